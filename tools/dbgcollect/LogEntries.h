#pragma once

// Cuts the bytes of the debug FIFO into entries. An entry begins with a header line (severity label
// and date) and goes on over the lines of its message, which may be many: whole messages are
// logged. One thread.

#include <string>
#include <string_view>

struct LogEntry {
    int severity = 0; ///< 0 "INFO " to 4 "SYS  "
    std::string task; ///< of the thread that logged it, "" when its header is cut off
    std::string text; ///< all its lines, each with its line end
};

class LogEntries
{
public:
    void append(std::string_view bytes);

    /// Takes the next entry that is known to be whole because another header follows it.
    bool next(LogEntry& entry);

    /// Takes what is left when the writers pause, up to the last line end; at the end, all of it.
    bool last(LogEntry& entry, bool atEnd);

private:
    void take(std::size_t length, LogEntry& entry);

    std::string_view pending() const { return std::string_view(mBytes).substr(mTaken); }

    std::string mBytes;
    std::size_t mTaken = 0;    // of them, by entries before
    std::size_t mSearched = 0; // no further header begins before this byte of what is pending
    int mSeverity = 0;         // of the entry under way; lines without a header belong to it
    std::string mTask;         // likewise
};

/// The severity whose header the line begins with, or -1 for a line of a longer message.
int headerSeverity(std::string_view line);

/// The task whose name the header of the line carries, "" when it is not whole.
std::string_view headerTask(std::string_view line);
