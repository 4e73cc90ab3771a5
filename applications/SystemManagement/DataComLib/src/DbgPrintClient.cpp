#include "DbgPrintClient.h"

#include "base/LocalTime.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <iomanip>
#include <iostream>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

std::atomic<int> gDbgLevel{0};

const std::string gSeverityString[5] = {"INFO ", "WARN ", "ERROR", "FATAL", "SYS  "};

std::atomic<DbgPrintClient*> DbgPrintClient::instance{nullptr};

namespace
{

constexpr char kDbgFifo[] = "/tmp/sockDbg";
constexpr int kFallbackTask = 0;

/// write() to a FIFO whose reader has left raises SIGPIPE. The signal is held back and taken off
/// again, so that the line is lost and not the process; the process's disposition stays its own.
void writeWithoutSigpipe(int fd, const std::string& text)
{
    sigset_t sigpipe;
    sigset_t before;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, &before);

    // One that was pending already belongs to the caller.
    bool pendingBefore = false;
    if (sigismember(&before, SIGPIPE) == 1) {
        sigset_t pending;
        sigpending(&pending);
        pendingBefore = sigismember(&pending, SIGPIPE) == 1;
    }

    if (write(fd, text.data(), text.size()) == -1 && errno == EPIPE && !pendingBefore) {
        const timespec noWait{};
        while (sigtimedwait(&sigpipe, nullptr, &noWait) == -1 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace

DbgPrintClient* DbgPrintClient::getInstance()
{
    if (DbgPrintClient* existing = instance.load(std::memory_order_acquire))
        return existing;

    static std::mutex creation;
    const std::lock_guard guard(creation);
    const int savedErrno = errno;
    if (instance.load(std::memory_order_relaxed) == nullptr)
        instance.store(new DbgPrintClient, std::memory_order_release);
    errno = savedErrno;
    return instance.load(std::memory_order_relaxed);
}

DbgPrintClient::DbgPrintClient()
{
    setTaskName(kFallbackTask, "tUnknwn");
    mPipe = open(kDbgFifo, O_WRONLY | O_CLOEXEC);
    if (mPipe == -1)
        std::cout << "DbgPrintClient: Couldn't open a fifo " << kDbgFifo << " errno=" << errno
                  << std::endl;
    const int flags = fcntl(mPipe, F_GETFL);
    fcntl(mPipe, F_SETFL, flags | O_NONBLOCK);
}

std::ostringstream* DbgPrintClient::fillInOss(int severity, std::ostringstream* oss)
{
    const int savedErrno = errno;

    // Kept on purpose: log readers count on the second and its milliseconds coming from two clocks
    // that are read one after the other and not reconciled.
    const std::string date = dateText(std::time(nullptr));
    timeval now{};
    gettimeofday(&now, nullptr);

    *oss << gSeverityString[severity] << date << std::setfill('0') << std::setw(3)
         << now.tv_usec / 1000 << ' ' << taskName(currentTaskId()) << '(' << getpid() << ')';
    errno = savedErrno;
    return oss;
}

void DbgPrintClient::doReport(std::ostringstream* oss)
{
    const int savedErrno = errno;
    writeWithoutSigpipe(mPipe, oss->str());
    errno = savedErrno;
}

void DbgPrintClient::setTaskName(int threadId, const std::string& name)
{
    const std::lock_guard guard(mMutex);
    mTaskNames.emplace(threadId, name);
}

std::string DbgPrintClient::dateText(std::time_t second)
{
    const std::lock_guard guard(mMutex);
    const unsigned zone = timeZoneGeneration();
    if (second != mDateSecond || zone != mDateZone) {
        refreshTimeZone();
        const std::tm local = toLocalTime(second);
        std::array<char, 32> text;
        const std::size_t length =
            std::strftime(text.data(), text.size(), "%d/%m/%y %H:%M:%S.", &local);
        mDateText.assign(text.data(), length);
        mDateSecond = second;
        mDateZone = zone;
    }
    return mDateText;
}

std::string DbgPrintClient::taskName(int threadId)
{
    const std::lock_guard guard(mMutex);
    // Kept on purpose: a look-up leaves an empty entry, so a thread that logs before it is named
    // stays unnamed; log readers count on a thread's name never changing.
    const std::string& name = mTaskNames[threadId];
    return name.empty() ? mTaskNames[kFallbackTask] : name;
}

std::ostringstream* fillInOss(int severity, std::ostringstream* oss)
{
    return DbgPrintClient::getInstance()->fillInOss(severity, oss);
}

void debugReport(std::ostringstream* oss) { DbgPrintClient::getInstance()->doReport(oss); }

void setTaskName(int threadId, const std::string& name)
{
    DbgPrintClient::getInstance()->setTaskName(threadId, name);
}

int currentTaskId() { return static_cast<int>(static_cast<std::intptr_t>(pthread_self())); }
