#include "ChildProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kPipeSize = 1 << 20; // a child that nobody reads for a while does not stall

int millisecondsUntil(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::max(left, milliseconds(0)).count());
}

std::array<int, 2> makePipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) == -1)
        throw std::runtime_error("pipe2 failed");
    fcntl(ends[1], F_SETPIPE_SZ, kPipeSize);
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    return ends;
}

[[noreturn]] void becomeProgram(char** arguments, int out, int err)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int null = open("/dev/null", O_RDONLY);
    dup2(null, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    execv(arguments[0], arguments);
    std::perror(arguments[0]);
    _exit(127);
}

bool drain(int fd, std::string& text)
{
    std::array<char, 65536> chunk;
    ssize_t got;
    while ((got = read(fd, chunk.data(), chunk.size())) > 0)
        text.append(chunk.data(), static_cast<std::size_t>(got));
    return got == -1 && errno == EAGAIN; // false at the end
}

} // namespace

bool eventually(const std::function<bool()>& condition, milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    while (!condition()) {
        if (Clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

std::string binary(const std::string& name) { return std::string(SYSMGT_BIN_DIR) + "/" + name; }

ChildProcess::ChildProcess(std::vector<std::string> command)
{
    if (command[0].find('/') == std::string::npos)
        command[0] = binary(command[0]);
    std::vector<char*> arguments;
    for (std::string& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);

    const auto out = makePipe();
    const auto err = makePipe();
    mPid = fork();
    if (mPid == -1)
        throw std::runtime_error("fork failed");
    if (mPid == 0)
        becomeProgram(arguments.data(), out[1], err[1]);
    close(out[1]);
    close(err[1]);
    mOut.fd = out[0];
    mErr.fd = err[0];
    mPidFd = static_cast<int>(syscall(SYS_pidfd_open, mPid, 0));
}

ChildProcess::~ChildProcess()
{
    if (running())
        stop(SIGKILL);
    readSome(0);
    for (const char* report : {"Sanitizer", "runtime error:"})
        if (mErr.text.find(report) != std::string::npos)
            ADD_FAILURE() << mErr.text; // a fault that the program may have survived
    for (const int fd : {mPidFd, mOut.fd, mErr.fd})
        if (fd != -1)
            close(fd);
}

std::string ChildProcess::output()
{
    readSome(0);
    return mOut.text;
}

std::string ChildProcess::errors()
{
    readSome(0);
    return mErr.text;
}

bool ChildProcess::waitForOutput(const std::string& text, milliseconds limit)
{
    return waitFor(mOut, text, limit);
}

bool ChildProcess::waitForErrors(const std::string& text, milliseconds limit)
{
    return waitFor(mErr, text, limit);
}

void ChildProcess::signal(int number) const
{
    if (!mEnded)
        kill(mPid, number);
}

int ChildProcess::wait(milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    while (!reap(false)) {
        if (Clock::now() >= deadline) {
            signal(SIGKILL);
            reap(true);
            break;
        }
        readSome(millisecondsUntil(deadline));
    }
    readSome(0);
    return mStatus;
}

int ChildProcess::stop(int number)
{
    signal(number);
    return wait();
}

bool ChildProcess::waitFor(const Stream& stream, const std::string& text, milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    readSome(0);
    while (stream.text.find(text) == std::string::npos) {
        const int left = millisecondsUntil(deadline);
        if (left == 0 || !readSome(left))
            return stream.text.find(text) != std::string::npos;
    }
    return true;
}

/// Waits for output or the process's end, and reads what there is; false when nothing more can
/// come.
bool ChildProcess::readSome(int milliseconds)
{
    std::array<pollfd, 3> waiting{
        {{mOut.fd, POLLIN, 0}, {mErr.fd, POLLIN, 0}, {mPidFd, POLLIN, 0}}};
    poll(waiting.data(), waiting.size(), mPidFd == -1 ? std::min(milliseconds, 10) : milliseconds);
    const bool ended = waiting[2].revents != 0;
    for (Stream* stream : {&mOut, &mErr}) {
        if (stream->fd != -1 && !drain(stream->fd, stream->text)) {
            close(stream->fd);
            stream->fd = -1;
        }
    }
    return !ended;
}

bool ChildProcess::reap(bool block)
{
    int status = 0;
    if (!mEnded && waitpid(mPid, &status, block ? 0 : WNOHANG) == mPid) {
        mEnded = true;
        mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return mEnded;
}

Finished runProgram(const std::vector<std::string>& command, milliseconds limit)
{
    ChildProcess process(command);
    const int status = process.wait(limit);
    return {status, process.output(), process.errors()};
}
