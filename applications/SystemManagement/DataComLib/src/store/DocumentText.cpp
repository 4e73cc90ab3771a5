#include "store/DocumentText.h"

#include <json/writer.h>
#include <sstream>
#include <string_view>
#include <utility>

namespace
{

/// Of the second byte of a sequence not all values are allowed: neither longer forms than needed,
/// nor surrogates, nor what is beyond U+10FFFF.
bool isSecondByte(unsigned char first, unsigned char second)
{
    switch (first) {
    case 0xE0:
        return second >= 0xA0 && second <= 0xBF;
    case 0xED:
        return second >= 0x80 && second <= 0x9F;
    case 0xF0:
        return second >= 0x90 && second <= 0xBF;
    case 0xF4:
        return second >= 0x80 && second <= 0x8F;
    default:
        return second >= 0x80 && second <= 0xBF;
    }
}

/// The length of the sequence at the beginning of a text that is not empty; 0 where it is no UTF-8.
std::size_t sequenceLength(std::string_view text)
{
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (byte(0) < 0x80)
        return 1;
    if (byte(0) < 0xC2 || byte(0) > 0xF4)
        return 0;
    const std::size_t length = byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
    if (text.size() < length || !isSecondByte(byte(0), byte(1)))
        return 0;
    for (std::size_t i = 2; i < length; ++i)
        if (byte(i) < 0x80 || byte(i) > 0xBF)
            return 0;
    return length;
}

bool isUtf8(const char* begin, const char* end)
{
    while (begin < end) {
        const std::size_t length = sequenceLength({begin, static_cast<std::size_t>(end - begin)});
        if (length == 0)
            return false;
        begin += length;
    }
    return true;
}

/// True when every key and text in the value is UTF-8.
bool isUtf8(const Json::Value& value)
{
    const char* begin = nullptr;
    const char* end = nullptr;
    if (value.isString() && value.getString(&begin, &end))
        return isUtf8(begin, end);
    const bool hasKeys = value.isObject();
    for (auto it = value.begin(); it != value.end(); ++it) {
        if (hasKeys) {
            begin = it.memberName(&end);
            if (!isUtf8(begin, end))
                return false;
        }
        if (!isUtf8(*it))
            return false;
    }
    return true;
}

} // namespace

std::string documentText(const Json::Value& document)
{
    std::ostringstream text;
    text << document;
    // Without an escape there was nothing but ASCII.
    if (text.view().find("\\u") == std::string_view::npos || isUtf8(document))
        return std::move(text).str();
    Json::StreamWriterBuilder raw;
    raw["emitUTF8"] = true; // takes bytes as they are
    return Json::writeString(raw, document);
}
