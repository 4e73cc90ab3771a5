#pragma once

// Reads what this process logs: it is the collector at the other end of the debug FIFO. Make one
// before the first log line of the process, that is at the start of a test or in a fixture.

#include <string>
#include <vector>

class LogCapture
{
public:
    /// Makes the FIFO where there is none and starts with nothing captured, at level 0.
    LogCapture();
    ~LogCapture();

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// All that has been logged since construction or the last clear(), as written.
    std::string text();

    /// Waits until the text has been logged, also by another process.
    bool waitFor(const std::string& wanted);

    /// The captured entries as "ERROR Unit:init: message": label, unit and message, without date,
    /// task and line number; of one unit without its name: "ERROR init: message". A message of
    /// several lines stays one entry.
    std::vector<std::string> entries(const std::string& unnamedUnit = {});

    /// entries(), then clear().
    std::vector<std::string> take(const std::string& unit);

    void clear();

private:
    int mFifo;
    std::string mText;
};
