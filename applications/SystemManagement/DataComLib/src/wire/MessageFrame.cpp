#include "wire/MessageFrame.h"

#include "MessageCommand.h"
#include "MessageEvent.h"

#include <initializer_list>
#include <string_view>

namespace
{

constexpr int kPlaceholderId = 100;
constexpr std::size_t kHeaderReserve = 128;
constexpr std::size_t kUsualEvent = 512;

std::string join(std::initializer_list<std::string_view> pieces)
{
    std::size_t size = 0;
    for (const std::string_view piece : pieces)
        size += piece.size();
    std::string text;
    text.reserve(size);
    for (const std::string_view piece : pieces)
        text.append(piece);
    return text;
}

} // namespace

std::string headerText(const MessageHeader& header)
{
    std::string text;
    return header.toString(text);
}

std::string messageText(const MessageHeader& header, const std::string& body)
{
    std::string text;
    text.reserve(kHeaderReserve + body.size());
    header.toString(text).append(body);
    return text;
}

MessageHeader requestHeaderFor(const std::string& type, const std::string& body)
{
    MessageHeader header;
    header.ID = kPlaceholderId;
    header.Type = type;
    header.Size = static_cast<int>(body.size());
    return header;
}

std::string subscribeCommand(const std::string& sockName)
{
    return join({
        "\t<Command ID=\"",
        kCommandSubscribe,
        "\" >\n",
        "\t\t<Parameter Name=\"",
        kParamSockName,
        "\" Value=\"",
        sockName,
        "\" />\n",
        "\t</Command>\n",
    });
}

std::string commandBody(const std::string& commandText)
{
    return join({"<BODY>\n\t", commandText, "\n</BODY>\n"});
}

std::string tableItemBody(const std::string& table, int row, const std::string& itemElement)
{
    return join({
        "<BODY>\n",
        "\t<Table Name=\"",
        table,
        "\" >\n",
        "\t\t<Row ID=\"",
        std::to_string(row),
        "\" >\n",
        itemElement,
        "\t\t</Row>\n",
        "\t</Table>\n",
        "</BODY>\n",
    });
}

std::string componentItemBody(const std::string& dataSet, const std::string& component,
                              const std::string& row, const std::string& itemElement)
{
    // Kept on purpose: peers count on the data set's end tag standing without its tab.
    return join({
        "<BODY>\n",
        "\t<DataSet ID=\"",
        dataSet,
        "\" >\n",
        "\t<Component Name=\"",
        component,
        "\" >\n",
        "\t\t<Row ID=\"",
        row,
        "\" >\n",
        itemElement,
        "\t\t</Row>\n",
        "\t</Component>\n",
        "</DataSet>\n",
        "</BODY>\n",
    });
}

std::string itemElement(const std::string& item)
{
    return join({"\t\t<Item Name=\"", item, "\" />\n"});
}

std::string itemElement(const std::string& item, const std::string& value)
{
    return join({"\t\t<Item Name=\"", item, "\" Value=\"", value, "\" />\n"});
}

std::string eventMessage(const MessageEvent& event)
{
    constexpr std::string_view kStart = "<BODY>\n";
    constexpr std::string_view kEnd = "</BODY>\n";
    std::string element;
    element.reserve(kUsualEvent);
    event.toString(element);
    MessageHeader header;
    header.ID = kPlaceholderId;
    header.Type = kTypeEvent;
    header.Fcode = event.Fcode;
    header.Size = static_cast<int>(kStart.size() + element.size() + kEnd.size());
    std::string text;
    text.reserve(kHeaderReserve + kStart.size() + element.size() + kEnd.size());
    return header.toString(text).append(kStart).append(element).append(kEnd);
}
