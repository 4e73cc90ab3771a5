#include "store/DocumentText.h"

#include <algorithm>
#include <array>
#include <charconv>
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

/// Writes what the library's stream output writes, into one string, for most documents: a store of
/// a large one takes half the time, during which the document is locked.
class StyledText
{
public:
    explicit StyledText(std::size_t expectedLength) { mText.reserve(expectedLength); }

    /// False where the value has a comment or text that is no UTF-8; the text is of no use then.
    bool write(const Json::Value& value, bool hasOwnLine = true);

    std::string take() { return std::move(mText); }

private:
    bool writeElements(const Json::Value& array);
    bool writeMembers(const Json::Value& object);
    bool quote(const char* begin, const char* end);
    bool escapeSequence(std::string_view text, std::size_t& length);
    void escapeHex(unsigned unit);

    template <typename Number>
    void writeNumber(Number number)
    {
        std::array<char, 24> digits;
        mText.append(digits.data(),
                     std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
    }

    void beginLine() { mText.append(1, '\n').append(mDepth, '\t'); }

    std::string mText;
    std::size_t mDepth = 0;
};

bool StyledText::write(const Json::Value& value, bool hasOwnLine)
{
    for (const auto place : {Json::commentBefore, Json::commentAfterOnSameLine, Json::commentAfter})
        if (value.hasComment(place))
            return false;
    const auto type = value.type();
    const bool hasLines = (type == Json::objectValue || type == Json::arrayValue) && !value.empty();
    if (hasLines && !hasOwnLine)
        beginLine();
    const char* begin = nullptr;
    const char* end = nullptr;
    switch (type) {
    case Json::nullValue:
        mText += "null";
        return true;
    case Json::intValue:
        writeNumber(value.asLargestInt());
        return true;
    case Json::uintValue:
        writeNumber(value.asLargestUInt());
        return true;
    case Json::realValue:
        mText += Json::valueToString(value.asDouble());
        return true;
    case Json::booleanValue:
        mText += value.asBool() ? "true" : "false";
        return true;
    case Json::stringValue:
        return !value.getString(&begin, &end) || quote(begin, end);
    case Json::arrayValue:
        return writeElements(value);
    case Json::objectValue:
        return writeMembers(value);
    }
    return false;
}

bool StyledText::writeElements(const Json::Value& array)
{
    mText += '[';
    ++mDepth;
    const Json::ArrayIndex size = array.size();
    for (Json::ArrayIndex i = 0; i < size; ++i) {
        if (i > 0)
            mText += ',';
        beginLine();
        if (!write(array[i]))
            return false;
    }
    --mDepth;
    if (size > 0)
        beginLine();
    mText += ']';
    return true;
}

bool StyledText::writeMembers(const Json::Value& object)
{
    mText += '{';
    ++mDepth;
    bool any = false;
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (std::exchange(any, true))
            mText += ',';
        beginLine();
        const char* end = nullptr;
        const char* const name = it.memberName(&end);
        if (!quote(name, end))
            return false;
        mText += " : ";
        if (!write(*it, false))
            return false;
    }
    --mDepth;
    if (any)
        beginLine();
    mText += '}';
    return true;
}

bool StyledText::quote(const char* begin, const char* end)
{
    constexpr std::string_view kEscaped = "\"\\\b\f\n\r\t";
    constexpr std::string_view kLetters = "\"\\bfnrt";
    const auto isPlain = [](unsigned char c) {
        return c >= 0x20 && c < 0x80 && c != '"' && c != '\\';
    };
    mText += '"';
    while (begin < end) {
        const char* const special = std::find_if_not(begin, end, isPlain);
        mText.append(begin, special);
        begin = special;
        if (begin == end)
            break;
        std::size_t length = 1;
        if (const std::size_t at = kEscaped.find(*begin); at != std::string_view::npos)
            mText.append(1, '\\').append(1, kLetters[at]);
        else if (!escapeSequence({begin, static_cast<std::size_t>(end - begin)}, length))
            return false;
        begin += length;
    }
    mText += '"';
    return true;
}

/// The character at the beginning of the text, in one or two units of UTF-16.
bool StyledText::escapeSequence(std::string_view text, std::size_t& length)
{
    length = sequenceLength(text);
    if (length == 0)
        return false;
    const auto first = static_cast<unsigned char>(text[0]);
    unsigned code = length == 1 ? first : first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i)
        code = code << 6 | (static_cast<unsigned char>(text[i]) & 0x3FU);
    if (code >= 0x10000) {
        code -= 0x10000;
        escapeHex(0xD800 + (code >> 10));
        code = 0xDC00 + (code & 0x3FF);
    }
    escapeHex(code);
    return true;
}

void StyledText::escapeHex(unsigned unit)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    mText += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4)
        mText += kDigits[unit >> shift & 0xF];
}

} // namespace

std::string documentText(const Json::Value& document, std::size_t expectedLength)
{
    StyledText usual(expectedLength);
    if (usual.write(document))
        return usual.take();
    std::ostringstream text;
    text << document;
    if (isUtf8(document))
        return std::move(text).str();
    Json::StreamWriterBuilder raw;
    raw["emitUTF8"] = true; // takes bytes as they are
    return Json::writeString(raw, document);
}
