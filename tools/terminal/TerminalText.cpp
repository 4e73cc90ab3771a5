#include "TerminalText.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <utility>

namespace
{

constexpr char32_t kReplacement = 0xfffd;

struct Character {
    char32_t code = 0;
    std::size_t length = 0; // bytes; 0 where the text does not begin with a character in UTF-8
};

Character firstCharacter(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80)
        return {first, 1};
    const std::size_t length = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    if (length == 0 || first > 0xf4 || text.size() < length)
        return {};
    char32_t code = first & (0xffU >> (length + 1));
    for (const char c : text.substr(1, length - 1)) {
        if ((c & 0xc0) != 0x80)
            return {};
        code = code << 6 | (c & 0x3f);
    }
    constexpr std::array<char32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xd800 && code <= 0xdfff;
    if (code < kLeast.at(length) || code > 0x10ffff || isSurrogate)
        return {};
    return {code, length};
}

bool isHarmful(char32_t code)
{
    constexpr std::pair<char32_t, char32_t> kRanges[] = {
        {0, 0x1f},        {0x7f, 0x9f},     {0x61c, 0x61c},
        {0x200e, 0x200f}, {0x2028, 0x202e}, {0x2066, 0x2069},
    };
    return std::ranges::any_of(
        kRanges, [code](const auto& range) { return code >= range.first && code <= range.second; });
}

void appendEscaped(std::string& out, const char* format, unsigned code)
{
    std::array<char, 8> escaped;
    std::snprintf(escaped.data(), escaped.size(), format, code);
    out += escaped.data();
}

/// Calls with each character's code and bytes; with code U+FFFD for a byte that is no UTF-8.
void forEachCharacter(std::string_view text, const auto& call)
{
    while (!text.empty()) {
        const auto [code, length] = firstCharacter(text);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(length, 1));
        if (!call(length == 0 ? kReplacement : code, bytes))
            return;
        text.remove_prefix(bytes.size());
    }
}

std::size_t widthOf(char32_t code)
{
    // Widths are known in a locale of UTF-8 only, and the user's may be another.
    static const locale_t kUtf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const locale_t before = uselocale(kUtf8);
    const int width = wcwidth(static_cast<wchar_t>(code));
    uselocale(before);
    return width < 0 ? 1 : static_cast<std::size_t>(width);
}

} // namespace

std::string printableText(std::string_view text, bool keepTabs)
{
    std::string out;
    out.reserve(text.size());
    forEachCharacter(text, [&](char32_t code, std::string_view bytes) {
        if (code == kReplacement && bytes.size() == 1)
            appendEscaped(out, "\\x%02x", static_cast<unsigned char>(bytes[0]));
        else if (isHarmful(code) && !(keepTabs && code == '\t'))
            appendEscaped(out, code < 0x80 ? "\\x%02x" : "\\u%04x", code);
        else
            out += bytes;
        return true;
    });
    return out;
}

std::size_t columnsOf(std::string_view text)
{
    std::size_t columns = 0;
    forEachCharacter(text, [&](char32_t code, std::string_view) {
        columns += widthOf(code);
        return true;
    });
    return columns;
}

std::string cutToColumns(std::string_view text, std::size_t columns)
{
    if (columnsOf(text) <= columns)
        return std::string(text);
    std::string out;
    std::size_t used = 1; // of the ellipsis
    forEachCharacter(text, [&](char32_t code, std::string_view bytes) {
        used += widthOf(code);
        if (used <= columns)
            out += bytes;
        return used <= columns;
    });
    return out + "…";
}

std::string toUtf8(std::string_view text)
{
    std::string out;
    forEachCharacter(text, [&](char32_t code, std::string_view bytes) {
        out += code == kReplacement ? std::string_view("\ufffd") : bytes;
        return true;
    });
    return out;
}
