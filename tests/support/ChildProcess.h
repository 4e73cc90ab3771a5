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

/// Waits until `condition` holds; false when it does not within the limit.
bool eventually(const std::function<bool()>& condition);

/// A number from the environment.
int variable(const char* name, int usual);

/// Runs the script as another user and group, on a thread: to the kernel each has its own. False
/// where that is not allowed.
bool asUser(uid_t user, gid_t group, const std::function<void()>& script);

/// Whole files; reading a missing one gives "", and writing makes the directory.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);

/// The path of a file of the source tree. A function, so that a test's compilation does not depend
/// on where the tree stands.
std::string sourceFile(const std::string& path);

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

    /// What it has written so far to its standard output and error.
    std::string output() const { return contentOf(mOut); }
    std::string errors() const { return contentOf(mErr); }

    /// Waits until it has written `text` to either; false when it ends, or the limit passes,
    /// before.
    bool waitFor(const std::string& text);

    bool running();

    /// Waits for its end and returns the exit status, or minus the signal that ended it. A process
    /// that outlives the limit is killed: -SIGKILL.
    int wait();

    void signal(int number) const { kill(mPid, number); }

    /// Sends the signal and waits.
    int stop(int number = SIGTERM);

private:
    /// The whole file; the writer's position stays where it is.
    static std::string contentOf(int fd) { return readFile("/proc/self/fd/" + std::to_string(fd)); }

    int mOut; // files in memory that it writes to
    int mErr;
    pid_t mPid = -1; // 0 when it has ended
    int mStatus = 0;
};
