#include "LogEntries.h"

#include <algorithm>
#include <array>

namespace
{

constexpr std::array<std::string_view, 5> kLabels = {"INFO ", "WARN ", "ERROR", "FATAL", "SYS  "};
constexpr std::string_view kDate = "dd/dd/dd dd:dd:dd.ddd "; // d stands for any digit
constexpr std::size_t kHeaderSize = 5 + kDate.size();

bool isDigit(char c) { return c >= '0' && c <= '9'; }

} // namespace

int headerSeverity(std::string_view line)
{
    const auto label = std::find(kLabels.begin(), kLabels.end(), line.substr(0, 5));
    if (label == kLabels.end() || line.size() < kHeaderSize)
        return -1;
    const std::string_view date = line.substr(5, kDate.size());
    const bool matches =
        std::equal(date.begin(), date.end(), kDate.begin(),
                   [](char c, char wanted) { return wanted == 'd' ? isDigit(c) : c == wanted; });
    return matches ? static_cast<int>(label - kLabels.begin()) : -1;
}

std::string_view headerTask(std::string_view line)
{
    line = line.substr(0, line.find('\n'));
    const std::size_t end = line.find('(', std::min(kHeaderSize, line.size()));
    return end == std::string_view::npos ? "" : line.substr(kHeaderSize, end - kHeaderSize);
}

void LogEntries::append(std::string_view bytes)
{
    mBytes.erase(0, mTaken);
    mTaken = 0;
    mBytes.append(bytes);
}

bool LogEntries::next(LogEntry& entry)
{
    const std::string_view text = pending();
    for (std::size_t end; (end = text.find('\n', mSearched)) != std::string::npos;) {
        const std::string_view rest = text.substr(end + 1);
        if (rest.size() < kHeaderSize)
            return false; // a header may be under way
        if (headerSeverity(rest) != -1) {
            take(end + 1, entry);
            return true;
        }
        mSearched = end + 1;
    }
    return false;
}

bool LogEntries::last(LogEntry& entry, bool atEnd)
{
    const std::size_t length = atEnd ? pending().size() : pending().rfind('\n') + 1;
    if (length == 0)
        return false;
    take(length, entry);
    return true;
}

void LogEntries::take(std::size_t length, LogEntry& entry)
{
    const std::string_view text = pending();
    const int severity = headerSeverity(text);
    if (severity != -1) {
        mSeverity = severity;
        mTask = headerTask(text);
    }
    entry.severity = mSeverity;
    entry.task = mTask;
    entry.text = text.substr(0, length);
    mTaken += length;
    mSearched = 0;
}
