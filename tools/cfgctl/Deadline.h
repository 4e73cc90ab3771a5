#pragma once

// The one limit of a verb, set when it begins: whatever it sends and waits for ends by then. A
// plain value.

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

class Deadline
{
public:
    using Clock = std::chrono::steady_clock;

    /// 0 for none.
    explicit Deadline(int seconds)
        : mSeconds(seconds), mLimit(std::chrono::seconds(seconds)), mBegin(Clock::now())
    {
    }

    /// Begins again: what comes has the whole time, or what is `left` of another.
    void restart() { *this = Deadline(mSeconds); }
    void restart(std::chrono::milliseconds left)
    {
        restart();
        mLimit = left;
    }

    int seconds() const { return mSeconds; }
    bool isOver() const { return mSeconds != 0 && passed() >= mLimit; }
    std::chrono::milliseconds passed() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - mBegin);
    }

    /// How long to wait at once: what is left, and at most `most`.
    std::chrono::milliseconds left(std::chrono::milliseconds most) const
    {
        if (mSeconds == 0)
            return most;
        return std::clamp(mLimit - passed(), std::chrono::milliseconds(0), most);
    }

private:
    int mSeconds;
    std::chrono::milliseconds mLimit;
    Clock::time_point mBegin;
};

/// On a terminal, what is waited for and how long: "waiting for the channel manager, 12 of 130 s".
/// The line is taken away at the end.
class WaitNote
{
public:
    explicit WaitNote(std::string whatFor) : mWhatFor(std::move(whatFor)) {}
    ~WaitNote();

    WaitNote(const WaitNote&) = delete;
    WaitNote& operator=(const WaitNote&) = delete;

    /// To be called at least twice a second; it writes once a second.
    void show(const Deadline& deadline);

private:
    std::string mWhatFor;
    std::chrono::seconds mShown{0};
};

/// On a terminal, how far something has come that takes long: "restoring, 120 of 2000". The line is
/// taken away at the end.
class ProgressNote
{
public:
    explicit ProgressNote(std::string what) : mWhat(std::move(what)) {}
    ~ProgressNote();

    ProgressNote(const ProgressNote&) = delete;
    ProgressNote& operator=(const ProgressNote&) = delete;

    /// To be called with each step.
    void show(std::size_t done, std::size_t all);

private:
    std::string mWhat;
    Deadline::Clock::time_point mShown = Deadline::Clock::now();
    bool mIsShown = false;
};
