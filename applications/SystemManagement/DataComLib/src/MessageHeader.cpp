#include "MessageHeader.h"

#include "DbgLine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>

namespace
{

constexpr char kUnit[] = "MessageHeader";

/// The types whose header carries a result code.
constexpr std::array<std::string_view, 4> kTypesWithFcode = {kTypeResponse, kTypeAck, kTypeNack,
                                                             kTypeEvent};

template <typename Number>
void appendNumber(std::string& out, Number number, int base)
{
    std::array<char, 16> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr;
    out.append(digits.data(), end);
}

} // namespace

Fcodes MessageHeader::initFromString(std::string_view text)
{
    std::string_view value;
    if (findPropertyValue(text, 0, "ID", value) == std::string::npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not found tags ID in:\n" << text;
        return FC_HEADER_ERROR;
    }
    ID = textToInt(value);

    if (findPropertyValue(text, 0, "Type", value) == std::string::npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not found tags Type in:\n" << text;
        return FC_HEADER_ERROR;
    }
    Type = value;
    if (findPropertyValue(text, 0, "Fcode", value) != std::string::npos)
        Fcode = static_cast<Fcodes>(std::strtoul(std::string(value).c_str(), nullptr, 16));

    if (findPropertyValue(text, 0, "Size", value) == std::string::npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not found tags Size in:\n" << text;
        return FC_HEADER_ERROR;
    }
    Size = textToInt(value);
    return FC_OK;
}

std::string& MessageHeader::toString(std::string& out) const
{
    out.append("<HEADER ID=\"");
    appendNumber(out, ID, 10);
    out.append("\" Type=\"").append(Type).append("\" ");
    if (std::ranges::find(kTypesWithFcode, Type) != kTypesWithFcode.end()) {
        out.append("Fcode=\"");
        appendNumber(out, static_cast<std::uint32_t>(Fcode), 16);
        out.append("\" ");
    }
    out.append("Size=\"");
    appendNumber(out, Size, 10);
    return out.append("\" >\n</HEADER>\n");
}
