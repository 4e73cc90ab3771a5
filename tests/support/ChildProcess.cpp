#include "ChildProcess.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

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

int variable(const char* name, int usual)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? std::atoi(value) : usual;
}

bool asUser(uid_t user, gid_t group, const std::function<void()>& script)
{
    bool allowed = false;
    std::jthread([&] {
        allowed = syscall(SYS_setresgid, group, group, group) == 0 &&
                  syscall(SYS_setresuid, user, user, user) == 0;
        if (allowed)
            script();
    }).join();
    return allowed;
}

std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& content)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

std::string sourceFile(const std::string& path)
{
    return std::string(SYSMGT_SOURCE_DIR) + '/' + path;
}

std::string binary(const std::string& name) { return std::string(SYSMGT_BIN_DIR) + "/" + name; }

namespace
{

/// A file in memory that several processes write to: each at its end, none over another's lines.
int openOutput(const char* name)
{
    const int output = memfd_create(name, MFD_CLOEXEC);
    fcntl(output, F_SETFL, O_APPEND);
    return output;
}

} // namespace

ChildProcess::ChildProcess(std::vector<std::string> command)
    : mOut(openOutput("out")), mErr(openOutput("err"))
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
    if (mPid != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(mOut, STDOUT_FILENO);
    dup2(mErr, STDERR_FILENO);
    execv(arguments[0], arguments.data());
    std::perror(arguments[0]);
    _exit(127);
}

ChildProcess::~ChildProcess()
{
    stop(SIGKILL);
    for (const char* report : {"Sanitizer", "runtime error:"})
        EXPECT_EQ(std::string::npos, errors().find(report)) << errors(); // not all of them end it
    close(mOut);
    close(mErr);
}

bool ChildProcess::waitFor(const std::string& text)
{
    const auto written = [&] { return (output() + errors()).find(text) != std::string::npos; };
    eventually([&] { return !running() || written(); });
    return written();
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
#ifdef SYSMGT_COVERAGE
    std::error_code hasEnded;
    if (number == SIGKILL && running() &&
        std::filesystem::read_symlink("/proc/" + std::to_string(mPid) + "/exe", hasEnded)
            .native()
            .ends_with("Manager")) { // what it has counted would be lost, see Counts.cpp
        kill(mPid, SIGPROF);
        kill(mPid, SIGCONT); // also of one that was stopped
        eventually([this] { return !running(); });
    }
#endif
    if (running())
        kill(mPid, number);
    return wait();
}
