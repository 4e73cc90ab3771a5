#include "DataRequest.h"

#include "Refusals.h"

#include <algorithm>
#include <string_view>

namespace
{

// An answer's elements. Texts stand in it as they are, so what ends one is not its quote alone.
constexpr std::string_view kRow = "\t\t\t<Row ID=\"";
constexpr std::string_view kRowTagEnd = "\" >\n";
constexpr std::string_view kRowEnd = "\t\t\t</Row>\n";
constexpr std::string_view kItem = "\t\t\t\t<Item Name=\"";
constexpr std::string_view kValue = "\" Value=\"";
constexpr std::string_view kItemEnd = "\" />\n";

/// Takes the text up to the first such end that an item, or the row's end, stands behind.
std::string takeText(std::string_view& rest, std::string_view end)
{
    for (std::size_t at = 0; (at = rest.find(end, at)) != std::string_view::npos; ++at) {
        const std::string_view behind = rest.substr(at + end.size());
        if (!behind.starts_with(kItem) && !behind.starts_with(kRowEnd))
            continue;
        std::string text(rest.substr(0, at));
        rest = behind;
        return text;
    }
    throw refusal(FC_BODY_ERROR);
}

} // namespace

const std::string* DataRow::find(const std::string& property) const
{
    const auto found =
        std::ranges::find(properties, property, &std::pair<std::string, std::string>::first);
    return found == properties.end() ? nullptr : &found->second;
}

std::string itemElement(const std::string& property)
{
    return "\t\t\t\t<Item Name=\"" + property + "\" />\n";
}

std::string itemElement(const std::string& property, const std::string& value)
{
    return "\t\t\t\t<Item Name=\"" + property + "\" Value=\"" + value + "\" />\n";
}

std::string rowElement(const std::string& key, const std::string& items)
{
    return "\t\t\t<Row ID=\"" + key + "\" >\n" + items + "\t\t\t</Row>\n";
}

std::string dataBody(const DataPlace& place, const std::string& rows)
{
    const char* const kind = place.dataset.empty() ? "Table" : "Component";
    const std::string element = std::string("\t\t<") + kind + " Name=\"" + place.component +
                                "\" >\n" + rows + "\t\t</" + kind + ">\n";
    if (place.dataset.empty())
        return "<BODY>\n" + element + "</BODY>\n";
    return "<BODY>\n\t<DataSet ID=\"" + place.dataset + "\" >\n" + element +
           "\t</DataSet>\n</BODY>\n";
}

std::vector<DataRow> parseRows(const std::string& body)
{
    std::string_view rest = body;
    if (const std::size_t first = rest.find(kRow); first != std::string_view::npos)
        rest.remove_prefix(first);
    std::vector<DataRow> rows;
    while (rest.starts_with(kRow)) {
        DataRow& row = rows.emplace_back();
        rest.remove_prefix(kRow.size());
        row.key = takeText(rest, kRowTagEnd);
        while (rest.starts_with(kItem)) {
            auto& [property, value] = row.properties.emplace_back();
            rest.remove_prefix(kItem.size());
            const std::size_t end = std::min(rest.find(kValue), rest.size());
            property = rest.substr(0, end);
            rest.remove_prefix(std::min(end + kValue.size(), rest.size()));
            value = takeText(rest, kItemEnd);
        }
        rest.remove_prefix(kRowEnd.size());
    }
    if (rest.find("<Row ") != std::string_view::npos)
        throw refusal(FC_BODY_ERROR);
    return rows;
}
