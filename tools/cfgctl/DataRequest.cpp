#include "DataRequest.h"

#include "MessageText.h"

#include <algorithm>

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
    // Attributes only: a value is free to hold an angle bracket, which ends no attribute.
    std::vector<DataRow> rows;
    DataRow row;
    std::size_t position = getPropertyValue(body, 0, "<Row ID", row.key);
    while (position != std::string::npos) {
        DataRow following;
        const std::size_t next = getPropertyValue(body, position, "<Row ID", following.key);
        std::string property;
        std::string value;
        while ((position = getPropertyValue(body, position, "<Item Name", property)) < next &&
               (position = getPropertyValue(body, position, "Value", value)) < next)
            row.properties.emplace_back(property, value);
        rows.push_back(std::move(row));
        row = std::move(following);
        position = next;
    }
    return rows;
}
