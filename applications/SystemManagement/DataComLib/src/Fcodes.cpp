#include "Fcodes.h"

#include "DbgLine.h"

#include <sstream>

const std::map<Fcodes, std::string> gFcodeString = {
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

std::string fcodeText(Fcodes code)
{
    if (const auto known = gFcodeString.find(code); known != gFcodeString.end())
        return known->second;

    std::string words;
    std::uint32_t rest = code & ~static_cast<std::uint32_t>(FC_OK);
    for (const auto& [single, text] : gFcodeString) {
        const std::uint32_t bit = single & ~static_cast<std::uint32_t>(FC_OK);
        if (bit == 0 || (rest & bit) == 0)
            continue;
        rest &= ~bit;
        words += (words.empty() ? "" : ", ") + text;
    }
    if (rest != 0 || words.empty()) {
        std::ostringstream unknown;
        unknown << "code 0x" << Hex{FC_OK | rest};
        words += (words.empty() ? "" : ", ") + unknown.str();
    }
    return words;
}
