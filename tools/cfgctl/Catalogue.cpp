#include "Catalogue.h"

#include "CfgPaths.h"
#include "CommandLine.h"
#include "DataSets.h"
#include "Refusals.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <unistd.h>

namespace
{

const DataPlace kTable{"CfgDataSet", "ConfigurationsTable"};
const DataPlace kAutoStart{"CfgDataSet", "AutoStart"};
const DataPlace kRunning{"CfgDataSet", "RunningConfiguration"};
constexpr char kNoItem[] = "\t\t\t\t<Item />\n"; // one without a name: rows come without values
constexpr std::size_t kRowsPerRequest = 100;

/// The answer was too long for the manager to send.
bool isTooLong(const Answer& answer) { return holds(answer.code, FC_UNAVAILABLE); }

bool isMissing(const Answer& answer) { return holds(answer.code, FC_NO_SUCH_NAME); }

/// The manager stores its catalogue before it answers a command, so the file has all the names.
std::vector<std::string> storedNames()
{
    DataSets store;
    store.lock(); // its destructor unlocks
    std::vector<std::string> names;
    if (access(kStoredCatalogue.c_str(), R_OK) == -1)
        throw groupFailure("the names fit no answer; cannot read", kStoredCatalogue, errno,
                           "read the catalogue");
    if (store.loadDataSet(kTable.dataset, kStoredCatalogue) != FC_OK ||
        store.getInstances(kTable.dataset, kTable.component, names) != FC_OK)
        throw Failure(EXIT_NAME_OR_VALUE,
                      "the names fit no answer, and " + kStoredCatalogue + " is no catalogue",
                      "cfgctl validate " + kStoredCatalogue);
    return names;
}

} // namespace

Listing Catalogue::readAll(const std::vector<std::string>& properties)
{
    std::string items;
    for (const std::string& property : properties)
        items += itemElement(property);
    const std::vector<std::string> names = readNames();
    std::vector<std::string> wanted = names;
    const auto odd = std::stable_partition(wanted.begin(), wanted.end(), isValidText);
    std::span<const std::string> plain(wanted.begin(), odd);
    std::vector<DataRow> rows;
    for (; !plain.empty(); plain = plain.subspan(std::min(kRowsPerRequest, plain.size())))
        readRows(plain.first(std::min(kRowsPerRequest, plain.size())), items, rows);
    for (auto name = odd; name != wanted.end(); ++name)
        if (name->find('"') == std::string::npos)
            readRows({&*name, 1}, items, rows); // alone, since it may cut its request short
    return inOrder(names, rows);
}

Listing Catalogue::inOrder(const std::vector<std::string>& names, std::vector<DataRow>& rows)
{
    std::map<std::string, DataRow> read;
    for (DataRow& row : rows)
        read.emplace(row.key, std::move(row));
    Listing listing;
    for (const std::string& name : names)
        if (auto row = read.extract(name); !row.empty())
            listing.rows.push_back(std::move(row.mapped()));
        else
            listing.leftOut.push_back(name);
    if (!listing.leftOut.empty()) { // unless they have been removed meanwhile
        const std::vector<std::string> now = readNames();
        const std::set<std::string> there(now.begin(), now.end());
        std::erase_if(listing.leftOut, [&](const auto& name) { return !there.contains(name); });
    }
    return listing;
}

std::vector<std::string> Catalogue::readNames()
{
    auto names = askForNames();
    return names ? std::move(*names) : storedNames();
}

std::optional<std::vector<std::string>> Catalogue::askForNames()
{
    const Answer answer = mPeer.get(dataBody(kTable, kNoItem));
    if (isTooLong(answer))
        return std::nullopt;
    if (!answer.ok())
        throw refusal(answer.code);
    std::vector<std::string> names;
    for (DataRow& row : parseRows(answer.body))
        names.push_back(std::move(row.key));
    return names;
}

std::optional<DataRow> Catalogue::find(const std::string& name)
{
    requireValidText(name);
    if (name.empty())
        return std::nullopt; // the empty key stands for a component's single instance
    const Answer answer = mPeer.get(dataBody(kTable, rowElement(name)));
    if (isMissing(answer))
        return std::nullopt;
    if (!answer.ok())
        throw refusal(answer.code);
    std::vector<DataRow> rows = parseRows(answer.body);
    if (rows.size() != 1 || rows.front().key != name)
        throw Failure(EXIT_INTERNAL, "the answer does not hold just the row that was asked for");
    return std::move(rows.front());
}

std::optional<DataRow> Catalogue::findQuietly(const std::string& name)
{
    auto names = askForNames();
    if (!names && access(kStoredCatalogue.c_str(), R_OK) == 0)
        names = storedNames();
    if (names && std::ranges::find(*names, name) == names->end())
        return std::nullopt;
    return find(name);
}

DataRow Catalogue::read(const std::string& name)
{
    std::optional<DataRow> row = find(name);
    if (!row)
        throw refusal(FC_NO_SUCH_NAME);
    return std::move(*row);
}

std::string Catalogue::readAutoStart()
{
    const Answer answer = mPeer.get(dataBody(kAutoStart, rowElement("", itemElement("Name"))));
    if (!answer.ok())
        throw refusal(answer.code);
    const std::vector<DataRow> rows = parseRows(answer.body);
    const std::string* const name = rows.empty() ? nullptr : rows.front().find("Name");
    return name == nullptr ? "" : *name;
}

std::optional<Running> Catalogue::readRunning()
{
    const std::string items = itemElement("Name") + itemElement("Fallback");
    const Answer answer = mPeer.get(dataBody(kRunning, rowElement("", items)));
    const std::vector<DataRow> rows = parseRows(answer.body);
    if (!answer.ok() || rows.size() != 1)
        return std::nullopt;
    const std::string* const name = rows.front().find("Name");
    const std::string* const fallback = rows.front().find("Fallback");
    if (name == nullptr || fallback == nullptr)
        return std::nullopt;
    return Running{*name, *fallback == "true"};
}

/// One row that has been removed since makes the whole request fail, and rows of very long texts do
/// not fit into one answer: then the batch is read in halves. Only an answer that came says so.
void Catalogue::readRows(std::span<const std::string> names, const std::string& items,
                         std::vector<DataRow>& rows)
{
    std::string elements;
    for (const std::string& name : names)
        elements += rowElement(name, items);
    const Answer answer = mPeer.get(dataBody(kTable, elements));
    if (answer.ok()) {
        for (DataRow& row : parseRows(answer.body))
            if (!row.properties.empty()) // else it has been removed since
                rows.push_back(std::move(row));
    } else if (names.size() > 1 && (isMissing(answer) || isTooLong(answer))) {
        readRows(names.first(names.size() / 2), items, rows);
        readRows(names.subspan(names.size() / 2), items, rows);
    } else if (!isMissing(answer)) {
        throw refusal(answer.code);
    }
}

Failure leftOutFailure(const std::string& problem, const std::vector<std::string>& names)
{
    constexpr std::size_t kShown = 5;
    std::string shown;
    for (const std::string& name : std::span(names).first(std::min(kShown, names.size())))
        shown += (shown.empty() ? "" : ", ") + inQuotes(name);
    if (names.size() > kShown)
        shown += " and " + std::to_string(names.size() - kShown) + " more";
    Failure failure(EXIT_NAME_OR_VALUE, problem + ' ' + shown, std::string("ls -lb ") + kCfgDir);
    failure.cause = "double quotes, angle brackets and control characters in a name or description "
                    "fit no message; root can give the file another name";
    return failure;
}

Json::Value namesAsJson(const std::vector<std::string>& names)
{
    Json::Value list(Json::arrayValue);
    for (const std::string& name : names)
        list.append(Json::objectValue)["name"] = name;
    return list;
}
