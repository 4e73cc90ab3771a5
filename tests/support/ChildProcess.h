#pragma once

// A program started by a test: a real binary with its standard output and error captured. It ends
// with the object, and with the test's process whatever happens to that. One thread.

#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

/// How long a test waits for anything that is bound to happen. Long, because machines that run
/// tests in parallel under sanitizers stall; no test that passes waits for it.
constexpr std::chrono::seconds kLimit{30};

/// Waits until `condition` holds; false when it does not within the limit. For what gives no sign
/// of its own: a file that appears, a socket that is bound.
bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit = kLimit);

/// The path of a binary of this build.
std::string binary(const std::string& name);

class ChildProcess
{
public:
    /// Starts command[0] with its arguments; a name without "/" is a binary of this build.
    explicit ChildProcess(std::vector<std::string> command);
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return mPid; }

    /// What it has written so far, and whether it comes to write `text` (or has) within the limit.
    std::string output();
    std::string errors();
    bool waitForOutput(const std::string& text, std::chrono::milliseconds limit = kLimit);
    bool waitForErrors(const std::string& text, std::chrono::milliseconds limit = kLimit);

    void signal(int number) const;
    bool running() { return !reap(false); }

    /// Waits for its end and returns the exit status, or minus the signal that ended it. A process
    /// that outlives the limit is killed: -SIGKILL.
    int wait(std::chrono::milliseconds limit = kLimit);

    /// Sends the signal and waits.
    int stop(int number = SIGTERM);

private:
    struct Stream {
        int fd = -1;
        std::string text;
    };

    bool waitFor(const Stream& stream, const std::string& text, std::chrono::milliseconds limit);
    bool readSome(int milliseconds);
    bool reap(bool block);

    pid_t mPid = -1;
    int mPidFd = -1;
    Stream mOut;
    Stream mErr;
    bool mEnded = false;
    int mStatus = 0;
};

/// A program that has ended, with all that it wrote.
struct Finished {
    int status = 0; ///< exit status, or minus the signal
    std::string output;
    std::string errors;
};

/// Runs a program to its end.
Finished runProgram(const std::vector<std::string>& command,
                    std::chrono::milliseconds limit = kLimit);
