#pragma once

// Decides when a peer is to be asked for its events again. A peer's list of subscribers ends with
// its process, and nobody tells the subscriber; but each process makes a socket file of its own.
// What the file does not show, a list that was lost all the same, is caught by asking every 30 s.
// One thread.

#include <chrono>
#include <cstdint>
#include <string>
#include <sys/types.h>

/// What tells the file at a path from another that was there before or comes after: also one with
/// the same inode was made at another time. A socket file is never written to, so that is the time
/// of modification; its status changes once more, when its daemon lets others write to it.
struct SocketFile {
    dev_t device = 0;
    ino_t inode = 0;       // 0: no file
    std::int64_t made = 0; // ns

    static SocketFile at(const std::string& path);
    bool operator==(const SocketFile&) const = default;
};

class SubscriptionRenewal
{
public:
    using Time = std::chrono::steady_clock::time_point;

    /// How often the file is looked at, and how long an answer holds, or a failure.
    static constexpr std::chrono::seconds kLookInterval{1};
    static constexpr std::chrono::seconds kAskInterval{30};

    bool isDue(const SocketFile& file, Time now) const
    {
        return file.inode != 0 && (file != mAsked || now >= mAskAgain);
    }

    /// Takes note of a request that has ended; `file` is what was there before it. True for the
    /// first answer of that file's process.
    bool asked(const SocketFile& file, bool answered, Time now);

private:
    SocketFile mAsked;
    SocketFile mAnswered;
    Time mAskAgain{};
};
