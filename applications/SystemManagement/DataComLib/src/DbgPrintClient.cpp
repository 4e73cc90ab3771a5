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

constexpr std::size_t kLabelLength = 5;

/// What the headers of a thread's lines have in common, so that a line only replaces its label and
/// its milliseconds. A name never changes once a line bears it.
struct ThreadHeader {
    const std::string* task = nullptr;
    std::time_t second = -1; // of the date, which is formatted in the zone `zone`
    unsigned zone = 0;
    std::size_t dateEnd = kLabelLength;
    std::array<char, 48> time{}; // label, date, milliseconds and a blank
    pid_t pid = 0;
    std::size_t idLength = 0;
    std::array<char, 16> id{}; // the pid in brackets

    void refreshDate(std::time_t now);
    void refreshId(pid_t current);
};

thread_local constinit ThreadHeader threadHeader;

void ThreadHeader::refreshDate(std::time_t now)
{
    const unsigned currentZone = timeZoneGeneration();
    if (now == second && currentZone == zone)
        return;
    refreshTimeZone();
    const std::tm local = toLocalTime(now);
    dateEnd =
        kLabelLength + std::strftime(time.data() + kLabelLength, 32, "%d/%m/%y %H:%M:%S.", &local);
    time[dateEnd + 3] = ' ';
    second = now;
    zone = currentZone;
}

void ThreadHeader::refreshId(pid_t current)
{
    if (current == pid)
        return;
    id[0] = '(';
    char* const end = std::to_chars(id.data() + 1, id.data() + id.size() - 1, current).ptr;
    *end = ')';
    idLength = static_cast<std::size_t>(end + 1 - id.data());
    pid = current;
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

std::atomic<bool> mustHoldBack{false}; // the kernel cannot leave SIGPIPE out

/// False when the line is yet to be written.
bool reportWithoutSigpipe(int pipe, std::string_view text)
{
    if (mustHoldBack.load(std::memory_order_relaxed))
        return false;
    // Full, or without a reader: such a line is lost.
    if (writeWithoutSigpipe(pipe, text) != -1 || errno == EAGAIN || errno == EPIPE)
        return true;
    mustHoldBack.store(true, std::memory_order_relaxed);
    return false;
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
    std::string text;
    for (const std::string_view part : header(severity))
        text.append(part);
    *oss << std::setfill('0') << text;
    return oss;
}

DbgPrintClient::Header DbgPrintClient::header(int severity)
{
    const int savedErrno = errno;

    // Kept on purpose: log readers count on the second and its milliseconds coming from two clocks
    // that are read one after the other and not reconciled.
    const std::time_t second = std::time(nullptr);
    timeval now{};
    gettimeofday(&now, nullptr);

    ThreadHeader& kept = threadHeader;
    kept.refreshDate(second);
    kept.refreshId(processId());
    if (kept.task == nullptr)
        kept.task = &taskName(currentTaskId());

    gSeverityString[severity].copy(kept.time.data(), kLabelLength);
    auto milliseconds = static_cast<unsigned>(now.tv_usec / 1000);
    for (std::size_t digit = kept.dateEnd + 3; digit-- > kept.dateEnd; milliseconds /= 10)
        kept.time[digit] = static_cast<char>('0' + milliseconds % 10);
    errno = savedErrno;
    return {std::string_view(kept.time.data(), kept.dateEnd + 4), *kept.task,
            std::string_view(kept.id.data(), kept.idLength)};
}

void DbgPrintClient::doReport(std::ostringstream* oss) { report(oss->view()); }

void DbgPrintClient::report(std::string_view text)
{
    const int savedErrno = errno;
    if (!reportWithoutSigpipe(mPipe, text)) {
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
