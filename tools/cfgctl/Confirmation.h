#pragma once

// A start that is to be confirmed, as the client's runs share it: in "/run/sysmgt/confirm", which
// the system makes at boot and loses with it. The start itself, and the way back, are the business
// of a guardian process that lives until one of the two; without it what the directory says is
// void. One thread an object; it holds the lock of the directory as long as it lives.

#include "base/Descriptor.h"

#include <cstdint>
#include <optional>
#include <string>

inline constexpr char kConfirmDirectory[] = "/run/sysmgt/confirm";

struct GuardedStart {
    std::string name;
    std::string before;        ///< what comes back without a confirmation
    std::string socket;        ///< of the daemon that starts both
    std::int64_t deadline = 0; ///< by secondsSinceBoot()
    bool isBeingTakenBack = false;
};

class Confirmation
{
public:
    /// Waits for the lock, which nobody holds for long. Where the directory is not there, or not
    /// for this user, isOpen() is false and error() an errno value.
    Confirmation();

    bool isOpen() const { return mFile.isOpen(); }
    int error() const { return mError; }

    /// The start under way; nothing when there is none, or its guardian was killed.
    std::optional<GuardedStart> read() const;
    void write(const GuardedStart& start) const;
    void clear() const;

private:
    Descriptor mFile;
    int mError = 0;
};

/// Held by the guardian for its life; a second one does not get it. Taken with a Confirmation in
/// hand.
class GuardianLock
{
public:
    GuardianLock();
    bool isHeld() const { return mIsHeld; }

private:
    Descriptor mFile;
    bool mIsHeld;
};

/// Goes on while the system sleeps, and whatever time is set.
std::int64_t secondsSinceBoot();
