#include "Catalogue.h"

#include "CfgPaths.h"
#include "DataSets.h"
#include "MessageText.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace
{

constexpr char kDataSet[] = "CfgDataSet";
constexpr char kTable[] = "ConfigurationsTable";
constexpr char kAutoStart[] = "AutoStart";

// A row of an answer that holds only names carries its name twice and some tags. Names that are
// sure to fit in one answer, below kMessageSizeLimit, are read with one request.
constexpr std::uintmax_t kTagBytesPerRow = 100;
constexpr std::uintmax_t kSafeAnswerSize = 60000;

constexpr std::size_t kRowsPerRequest = 100;

std::string dataRequest(const std::string& component, const std::string& rows)
{
    return std::string("<BODY>\n\t<DataSet ID=\"") + kDataSet + "\" >\n\t\t<Component Name=\"" +
           component + "\" >\n" + rows + "\t\t</Component>\n\t</DataSet>\n</BODY>\n";
}

std::string itemElements(const std::vector<std::string>& properties)
{
    std::string items;
    for (const std::string& property : properties)
        items += "\t\t\t\t<Item Name=\"" + property + "\" />\n";
    return items;
}

std::string rowElement(const std::string& name, const std::string& items)
{
    return "\t\t\t<Row ID=\"" + name + "\" >\n" + items + "\t\t\t</Row>\n";
}

bool allNamesFitOneAnswer()
{
    std::error_code error;
    std::uintmax_t size = 0;
    for (const auto& file : std::filesystem::directory_iterator(kCfgDir, error))
        size += 2 * file.path().filename().native().size() + kTagBytesPerRow;
    return size < kSafeAnswerSize;
}

/// The manager stores its catalogue before it answers a command, so the file has all the names.
std::vector<std::string> storedNames()
{
    DataSets store;
    store.lock(); // its destructor unlocks
    std::vector<std::string> names;
    store.loadDataSet(kDataSet, kStoredCatalogue); // without the file there are no names
    store.getInstances(kDataSet, kTable, names);
    return names;
}

} // namespace

std::string Configuration::text(const std::string& property) const
{
    const auto found = properties.find(property);
    return found == properties.end() ? "?" : found->second;
}

std::vector<Configuration> parseRows(const std::string& body)
{
    // Attributes only: a value is free to hold an angle bracket, which ends no attribute.
    std::vector<Configuration> rows;
    Configuration row;
    std::size_t position = getPropertyValue(body, 0, "<Row ID", row.name);
    while (position != std::string::npos) {
        Configuration following;
        const std::size_t next = getPropertyValue(body, position, "<Row ID", following.name);
        std::string property;
        std::string value;
        while ((position = getPropertyValue(body, position, "<Item Name", property)) < next &&
               (position = getPropertyValue(body, position, "Value", value)) < next)
            row.properties[property] = value;
        rows.push_back(std::move(row));
        row = std::move(following);
        position = next;
    }
    return rows;
}

Answer Catalogue::readAll(const std::vector<std::string>& properties,
                          std::vector<Configuration>& rows)
{
    std::vector<std::string> names;
    Answer answer = readNames(names);
    for (std::size_t first = 0; answer.ok() && first < names.size(); first += kRowsPerRequest)
        answer = readRows(names, first, std::min(kRowsPerRequest, names.size() - first), properties,
                          rows);
    return answer;
}

Answer Catalogue::read(const std::string& name, Configuration& configuration)
{
    requireValidText(name);
    Answer answer = mClient.getData(dataRequest(kTable, rowElement(name, "")), mTimeout);
    if (answer.ok()) {
        const std::vector<Configuration> rows = parseRows(answer.body);
        if (rows.size() == 1)
            configuration = rows.front();
        else
            answer.code = FC_BODY_ERROR;
    }
    return answer;
}

Answer Catalogue::readAutoStart(std::string& name)
{
    const std::string items = itemElements({"Name"});
    Answer answer = mClient.getData(dataRequest(kAutoStart, rowElement("", items)), mTimeout);
    if (answer.ok())
        for (const Configuration& row : parseRows(answer.body))
            name = row.text("Name");
    return answer;
}

Answer Catalogue::readNames(std::vector<std::string>& names)
{
    if (!allNamesFitOneAnswer()) {
        names = storedNames();
        return {true, FC_OK, ""};
    }
    Answer answer = mClient.getData(dataRequest(kTable, itemElements({"Name"})), mTimeout);
    if (answer.ok())
        for (const Configuration& row : parseRows(answer.body))
            names.push_back(row.name);
    return answer;
}

/// One row that has been removed since makes the whole request fail, and rows of very long texts do
/// not fit into one answer: then the batch is read in halves. A single row that fails is left out.
Answer Catalogue::readRows(const std::vector<std::string>& names, std::size_t first,
                           std::size_t count, const std::vector<std::string>& properties,
                           std::vector<Configuration>& rows)
{
    const std::string items = itemElements(properties);
    std::string elements;
    for (std::size_t i = first; i < first + count; ++i)
        elements += rowElement(names[i], items);
    Answer answer = mClient.getData(dataRequest(kTable, elements), mTimeout);
    if (answer.ok()) {
        std::ranges::move(parseRows(answer.body), std::back_inserter(rows));
        return answer;
    }
    if (!answer.received && !isServed(kCfgSocket))
        return answer;
    if (count == 1)
        return {true, FC_OK, ""};
    const std::size_t half = count / 2;
    answer = readRows(names, first, half, properties, rows);
    return answer.ok() ? readRows(names, first + half, count - half, properties, rows) : answer;
}
