#include "PrintableText.h"

#include "LogEntries.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace
{

constexpr std::string_view kContinuation = "  | ";

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
        {0, 0x08},        {0x0a, 0x1f},     {0x7f, 0x9f},     {0x61c, 0x61c},
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

void appendLine(std::string& out, std::string_view line)
{
    while (!line.empty()) {
        const auto [code, length] = firstCharacter(line);
        if (length == 0)
            appendEscaped(out, "\\x%02x", static_cast<unsigned char>(line[0]));
        else if (isHarmful(code))
            appendEscaped(out, code < 0x80 ? "\\x%02x" : "\\u%04x", code);
        else
            out += line.substr(0, length);
        line.remove_prefix(std::max<std::size_t>(length, 1));
    }
}

} // namespace

std::string printableText(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    bool first = true;
    for (std::size_t end; !text.empty(); text.remove_prefix(end)) {
        end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        if (!first || headerSeverity(line) == -1)
            out += kContinuation;
        appendLine(out, line);
        first = false;
        if (end < text.size()) {
            out += '\n';
            ++end;
        }
    }
    return out;
}
