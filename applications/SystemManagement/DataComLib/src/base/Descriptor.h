#pragma once

// What every unit that works on files shares.

#include <cerrno>
#include <unistd.h>

/// A descriptor that is closed with this object; -1 where opening has failed.
class Descriptor
{
public:
    explicit Descriptor(int fd) : mFd(fd) {}
    ~Descriptor()
    {
        if (mFd >= 0)
            close(mFd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return mFd; }
    bool isOpen() const { return mFd >= 0; }

private:
    int mFd;
};

/// How often a system call is repeated that signals interrupt. Bounded, because a call that never
/// gets through is a failure like any other.
constexpr int kInterruptedTries = 1000;

/// Makes a system call again as long as a signal interrupts it. `call` returns what the system call
/// returns: -1 with errno on failure.
template <typename Call>
auto uninterrupted(const Call& call)
{
    auto result = call();
    for (int tries = 1; result == -1 && errno == EINTR && tries < kInterruptedTries; ++tries)
        result = call();
    return result;
}

/// As uninterrupted(), and a few times more after a failure that may pass: reading what is there
/// must not depend on one moment. What is not there, or not for this process, fails at once.
template <typename Call>
auto persistently(const Call& call)
{
    auto result = uninterrupted(call);
    for (int tries = 1; result == -1 && tries < 3; ++tries) {
        if (errno == ENOENT || errno == ENOTDIR || errno == ENXIO || errno == EACCES)
            break;
        result = uninterrupted(call);
    }
    return result;
}
