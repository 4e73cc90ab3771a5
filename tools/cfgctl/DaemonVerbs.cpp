#include "DataRequest.h"
#include "MessageText.h"
#include "Refusals.h"
#include "Session.h"

namespace
{

/// The words of get and set: DATASET COMPONENT KEY PROPERTY, or TABLE ROW ITEM.
struct Address {
    DataPlace place;
    std::vector<std::string> rest; ///< key and property, as far as given, and what follows
};

Address readAddress(const Invocation& call)
{
    const bool isTable = call.has("table");
    for (const std::string& word : call.arguments)
        requireValidText(word);
    const std::size_t names = isTable ? 1 : 2;
    Address address;
    address.place =
        isTable ? DataPlace{"", call.argument(0)} : DataPlace{call.argument(0), call.argument(1)};
    address.rest.assign(call.arguments.begin() + static_cast<std::ptrdiff_t>(names),
                        call.arguments.end());
    return address;
}

} // namespace

void runGet(Session& session)
{
    const Address address = readAddress(session.call);
    std::string rows;
    if (!address.rest.empty())
        rows = rowElement(address.rest[0],
                          address.rest.size() > 1 ? itemElement(address.rest[1]) : "");
    const Answer answer = session.peer().get(dataBody(address.place, rows));
    if (!answer.ok())
        throw refusal(answer.code);
    Json::Value values(Json::arrayValue);
    for (const DataRow& row : parseRows(answer.body))
        for (const auto& [property, value] : row.properties) {
            Json::Value& object = values.append(Json::objectValue);
            object["key"] = row.key;
            object["property"] = property;
            object["value"] = value;
        }
    constexpr Column kColumns[] = {{"KEY", "key"}, {"PROPERTY", "property"}, {"VALUE", "value"}};
    session.out.table("values", kColumns, values);
}

void runSet(Session& session)
{
    const Address address = readAddress(session.call);
    const std::string item = itemElement(address.rest[1], address.rest[2]);
    const Answer answer =
        session.peer().set(dataBody(address.place, rowElement(address.rest[0], item)));
    if (!answer.ok())
        throw refusal(answer.code);
    session.out.document()["pending"] = true;
    session.out.text(session.call.asked() + ": OK\n");
    session.out.note("pending: it takes effect when the daemon next commits");
}

void runCall(Session& session)
{
    MessageCommand command;
    command.setId(session.call.argument(0));
    for (std::size_t i = 1; i < session.call.arguments.size(); ++i) {
        const std::string& word = session.call.arguments[i];
        const std::size_t at = word.find('=');
        if (at == std::string::npos)
            throw Failure(EXIT_USAGE, "a parameter is NAME=VALUE, not " + inQuotes(word),
                          "cfgctl help call");
        command.addParam(word.substr(0, at), word.substr(at + 1));
    }
    const Answer answer = session.carryOut(command);
    std::string text;
    getToken(answer.body, 0, "<BODY>", "</BODY>", text);
    constexpr Column kLines[] = {{"Answer", "answer"}};
    if (!text.empty()) {
        Json::Value object;
        object["answer"] = text;
        session.out.record(kLines, object);
    }
    session.out.text(session.call.asked() + ": OK\n");
}
