#pragma once

// Counts what senders were refused, so that one line tells of many refusals: at most one a second
// of a user, the first at once. It keeps 64 users at most; those beyond are counted with the last.
// One thread, which also logs.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// What a line tells: the path and the request are those of the last refusal.
struct RefusedSender {
    uid_t user = 0;
    std::string path;
    std::string request; ///< Type, and the beginning of the command's ID, which may be any.
    std::uint64_t times = 0;
};

class RefusedSenders
{
public:
    using Time = std::chrono::steady_clock::time_point;

    void add(uid_t user, const std::string& path, std::string_view type, std::string_view command);

    /// The next one of whom a line is due, with the refusals since the last line.
    std::optional<RefusedSender> next(Time now);

    /// False from a refusal on until a second after the line that told of it.
    bool isEmpty() const { return mEntries.empty(); }

private:
    struct Entry {
        RefusedSender sender;
        Time nextLine;
    };
    std::vector<Entry> mEntries;
};
