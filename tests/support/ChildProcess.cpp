#include "ChildProcess.h"

#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

[[noreturn]] void becomeProgram(char** arguments, int out, int err)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    execv(arguments[0], arguments);
    std::perror(arguments[0]);
    _exit(127);
}

/// All that the file holds; the writer's position stays where it is.
std::string contentOf(int fd)
{
    struct stat status;
    fstat(fd, &status);
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    text.resize(static_cast<std::size_t>(pread(fd, text.data(), text.size(), 0)));
    return text;
}

} // namespace

bool eventually(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::string binary(const std::string& name) { return std::string(SYSMGT_BIN_DIR) + "/" + name; }

ChildProcess::ChildProcess(std::vector<std::string> command)
    : mOut(memfd_create("out", MFD_CLOEXEC)), mErr(memfd_create("err", MFD_CLOEXEC))
{
    if (command[0].find('/') == std::string::npos)
        command[0] = binary(command[0]);
    std::vector<char*> arguments;
    for (std::string& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    mPid = fork();
    if (mPid == -1)
        throw std::runtime_error("fork failed");
    if (mPid == 0)
        becomeProgram(arguments.data(), mOut, mErr);
}

ChildProcess::~ChildProcess()
{
    stop(SIGKILL);
    for (const char* report : {"Sanitizer", "runtime error:"})
        EXPECT_EQ(std::string::npos, errors().find(report)) << errors(); // it may have survived it
    close(mOut);
    close(mErr);
}

std::string ChildProcess::output() const { return contentOf(mOut); }

std::string ChildProcess::errors() const { return contentOf(mErr); }

bool ChildProcess::waitForOutput(const std::string& text)
{
    eventually([&] { return !running() || output().find(text) != std::string::npos; });
    return output().find(text) != std::string::npos;
}

bool ChildProcess::waitForErrors(const std::string& text)
{
    eventually([&] { return !running() || errors().find(text) != std::string::npos; });
    return errors().find(text) != std::string::npos;
}

bool ChildProcess::running()
{
    int status = 0;
    if (mPid != 0 && waitpid(mPid, &status, WNOHANG) == mPid) {
        mPid = 0;
        mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return mPid != 0;
}

int ChildProcess::wait()
{
    if (!eventually([this] { return !running(); }))
        stop(SIGKILL);
    return mStatus;
}

int ChildProcess::stop(int number)
{
    if (running())
        kill(mPid, number);
    return wait();
}
