#include "DbgPrintClient.h"

#include "base/LocalTime.h"
#include "base/Sigpipe.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <fcntl.h>
#include <iomanip>
#include <iostream>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

std::atomic<int> gDbgLevel{0};

const std::string gSeverityString[5] = {"INFO ", "WARN ", "ERROR", "FATAL", "SYS  "};

std::atomic<DbgPrintClient*> DbgPrintClient::instance{nullptr};

namespace
{

constexpr char kDbgFifo[] = "/tmp/sockDbg";
constexpr int kFallbackTask = 0;

/// Of this thread's burst.
struct Burst {
    bool isOpen = false;
    bool holdsSigpipe = false;
    bool wasPending = false; // before it was held back
    bool wasRaised = false;  // by a line since
    sigset_t maskBefore{};
};

thread_local constinit Burst burst;

/// What the headers of a thread's lines have in common. A name never changes once a line bears it.
struct ThreadHeader {
    const std::string* task = nullptr;
    std::time_t second = -1; // of `date`, which is formatted in the zone `zone`
    unsigned zone = 0;
    std::array<char, 32> date{};
    std::size_t dateLength = 0;

    void refreshDate(std::time_t now);
};

thread_local constinit ThreadHeader threadHeader;

void ThreadHeader::refreshDate(std::time_t now)
{
    const unsigned currentZone = timeZoneGeneration();
    if (now == second && currentZone == zone)
        return;
    refreshTimeZone();
    const std::tm local = toLocalTime(now);
    dateLength = std::strftime(date.data(), date.size(), "%d/%m/%y %H:%M:%S.", &local);
    second = now;
    zone = currentZone;
}

std::atomic<pid_t> knownPid{0}; // 0 where it is to be asked for

pid_t processId()
{
    pid_t pid = knownPid.load(std::memory_order_relaxed);
    if (pid == 0) {
        pid = getpid();
        knownPid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

/// The FIFO, or a file at its very path, open for writing; -1 with errno. Anybody may put a link
/// into /tmp, and this process may write what they may not: one is followed to a FIFO only.
int openLog()
{
    struct stat status {
    };
    if (lstat(kDbgFifo, &status) == -1)
        return -1;
    if (!S_ISLNK(status.st_mode))
        return open(kDbgFifo, O_WRONLY | O_NOFOLLOW | O_CLOEXEC);

    if (stat(kDbgFifo, &status) == -1)
        return -1;
    // What the link leads to may have changed meanwhile.
    int fd = -1;
    if (S_ISFIFO(status.st_mode)) {
        fd = open(kDbgFifo, O_WRONLY | O_CLOEXEC);
        if (fd == -1 || (fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode)))
            return fd;
        close(fd);
    }
    errno = ELOOP; // as for any link that is not followed
    return -1;
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
    pthread_atfork(nullptr, nullptr, [] { knownPid = 0; });
    mPipe = openLog();
    if (mPipe == -1)
        std::cout << "DbgPrintClient: Couldn't open a fifo " << kDbgFifo << " errno=" << errno
                  << std::endl;
    const int flags = fcntl(mPipe, F_GETFL);
    fcntl(mPipe, F_SETFL, flags | O_NONBLOCK);
}

DbgBurst::DbgBurst() : mOutermost(!burst.isOpen) { burst.isOpen = true; }

DbgBurst::~DbgBurst()
{
    if (!mOutermost)
        return;
    if (burst.holdsSigpipe)
        releaseSigpipe(burst.maskBefore, burst.wasRaised && !burst.wasPending);
    burst.isOpen = burst.holdsSigpipe = burst.wasRaised = false;
}

std::ostringstream* DbgPrintClient::fillInOss(int severity, std::ostringstream* oss)
{
    std::pmr::string header;
    appendHeader(severity, header);
    *oss << std::setfill('0') << header;
    return oss;
}

void DbgPrintClient::appendHeader(int severity, std::pmr::string& text)
{
    const int savedErrno = errno;

    // Kept on purpose: log readers count on the second and its milliseconds coming from two clocks
    // that are read one after the other and not reconciled.
    const std::time_t second = std::time(nullptr);
    timeval now{};
    gettimeofday(&now, nullptr);

    ThreadHeader& kept = threadHeader;
    kept.refreshDate(second);
    if (kept.task == nullptr)
        kept.task = &taskName(currentTaskId());

    std::array<char, 3> milliseconds;
    auto rest = static_cast<int>(now.tv_usec / 1000);
    for (auto digit = milliseconds.rbegin(); digit != milliseconds.rend(); ++digit, rest /= 10)
        *digit = static_cast<char>('0' + rest % 10);
    std::array<char, 16> pid;
    const char* const pidEnd = std::to_chars(pid.begin(), pid.end(), processId()).ptr;
    const std::string_view pidText(pid.data(), static_cast<std::size_t>(pidEnd - pid.data()));

    text.append(gSeverityString[severity]).append(kept.date.data(), kept.dateLength);
    text.append(milliseconds.data(), milliseconds.size()).append(1, ' ').append(*kept.task);
    text.append(1, '(').append(pidText).append(1, ')');
    errno = savedErrno;
}

void DbgPrintClient::doReport(std::ostringstream* oss) { report(oss->view()); }

void DbgPrintClient::report(std::string_view text)
{
    const int savedErrno = errno;
    {
        const DbgBurst line;
        if (!burst.holdsSigpipe) {
            burst.wasPending = holdSigpipe(burst.maskBefore);
            burst.holdsSigpipe = true;
        }
        if (write(mPipe, text.data(), text.size()) == -1 && errno == EPIPE)
            burst.wasRaised = true;
    }
    errno = savedErrno;
}

void DbgPrintClient::setTaskName(int threadId, const std::string& name)
{
    const std::lock_guard guard(mMutex);
    mTaskNames.emplace(threadId, name);
}

const std::string& DbgPrintClient::taskName(int threadId)
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
