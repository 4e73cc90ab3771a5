#include "PrintableText.h"

#include "LogEntries.h"
#include "terminal/TerminalText.h"

#include <algorithm>

namespace
{

constexpr std::string_view kContinuation = "  | ";

} // namespace

std::string printableEntry(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    bool first = true;
    for (std::size_t end; !text.empty(); text.remove_prefix(end)) {
        end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        if (!first || headerSeverity(line) == -1)
            out += kContinuation;
        out += printableText(line, true);
        first = false;
        if (end < text.size()) {
            out += '\n';
            ++end;
        }
    }
    return out;
}
