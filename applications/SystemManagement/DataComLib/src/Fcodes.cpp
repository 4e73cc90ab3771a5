#include "Fcodes.h"

#include "DbgLine.h"

#include <sstream>

const FcodeStrings gFcodeString = {
    {FC_OK, "OK"},
    {FC_HEADER_ERROR, "Message Header Error"},
    {FC_BODY_ERROR, "Message Body Error"},
    {FC_ACCESS_DENIED, "Access Denied"},
    {FC_NO_SUCH_NAME, "No Such Name"},
    {FC_WRONG_TYPE, "Wrong Type"},
    {FC_BAD_VALUE, "Bad Value"},
    {FC_COMM_ERROR, "Communication Error"},
    {FC_UNSUPPORTED, "Unsupported Request"},
    {FC_UNAVAILABLE, "Unavailable"},
    {FC_DATA_STREAM, "Data Stream"},
    {FC_LOS, "LOS"},
};

const std::string& FcodeStrings::operator[](Fcodes code) const
{
    static const std::string noText;
    const auto known = find(code);
    return known == end() ? noText : known->second;
}

std::string fcodeText(Fcodes code)
{
    if (const auto known = gFcodeString.find(code); known != gFcodeString.end())
        return known->second;

    std::string joined;
    const auto append = [&joined](const std::string& text) {
        joined += (joined.empty() ? "" : ", ") + text;
    };
    std::uint32_t rest = code & ~static_cast<std::uint32_t>(FC_OK);
    for (const auto& [single, text] : gFcodeString) {
        const std::uint32_t bit = single & ~static_cast<std::uint32_t>(FC_OK);
        if (bit == 0 || (rest & bit) == 0)
            continue;
        rest &= ~bit;
        append(text);
    }
    if (rest != 0 || joined.empty()) {
        std::ostringstream unknown;
        unknown << "code 0x" << Hex{FC_OK | rest};
        append(unknown.str());
    }
    return joined;
}
