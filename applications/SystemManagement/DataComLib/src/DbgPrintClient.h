#pragma once

// The process-wide debug print client: it writes each log line with one write() to the FIFO
// "/tmp/sockDbg", which a collector reads. A line that cannot be written is lost: after the first
// call nothing here blocks, and a collector that leaves does not end the process.
//
// Code that logs uses DBG_LOG (DbgLine.h). Any thread may call everything here.

#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>

/// From the least to the most important; SEV_SYS is for what operators want to see.
enum DbgSeverity : int { SEV_INFO = 0, SEV_WARN, SEV_ERROR, SEV_FATAL, SEV_SYS };

/// The threshold: a line of severity s is produced only while gDbgLevel <= s. 0 logs everything,
/// 5 nothing; there is no range check.
extern std::atomic<int> gDbgLevel;

/// The labels of the severities, five characters each.
extern const std::string gSeverityString[5];

class DbgPrintClient
{
public:
    /// The one instance, made by the first call. That call opens the FIFO and so waits for a
    /// collector when the FIFO exists and nobody reads it; without a FIFO it returns at once. A
    /// link at its path is followed to a FIFO only.
    static DbgPrintClient* getInstance();

    /// Writes the header of a line of severity 0 to 4 into the stream, and returns the stream:
    /// label, local time, task name and pid. The stream's fill character is '0' from then on.
    /// Leaves errno as it was, so that the values that follow in the line may still name it.
    std::ostringstream* fillInOss(int severity, std::ostringstream* oss);

    /// Writes the stream's whole text to the FIFO with one write(); the stream keeps it. Lines of
    /// more than PIPE_BUF bytes may be torn by others. Leaves errno as it was.
    void doReport(std::ostringstream* oss);

    /// The header in the order of its parts: label and time, task name, pid. They are valid until
    /// the thread's next header.
    using Header = std::array<std::string_view, 3>;

    /// The same two on texts, for DBG_LOG.
    Header header(int severity);
    void report(std::string_view text);

    /// Names the thread for its lines; `threadId` is pthread_self() taken as an int, see
    /// currentTaskId(). The first name given stays, and a thread that logs before it is named stays
    /// "tUnknwn".
    void setTaskName(int threadId, const std::string& name);

    /// False when the FIFO could not be opened: nobody can ever read a line of this process.
    bool isOpen() const { return mPipe >= 0; }

    DbgPrintClient(const DbgPrintClient&) = delete;
    DbgPrintClient& operator=(const DbgPrintClient&) = delete;

private:
    DbgPrintClient();

    const std::string& taskName(int threadId);

    static std::atomic<DbgPrintClient*> instance;

    int mPipe = 0; // set once by the constructor

    std::mutex mMutex; // guards mTaskNames; a name in it never changes
    std::map<int, std::string> mTaskNames;
};

/// While it lives, SIGPIPE is held back on its thread from the first line on, for all lines
/// together instead of for each alone: for work that a peer can make write thousands of them. It
/// starts no process.
class DbgBurst
{
public:
    DbgBurst();
    ~DbgBurst();

    DbgBurst(const DbgBurst&) = delete;
    DbgBurst& operator=(const DbgBurst&) = delete;

private:
    bool mOutermost;
};

/// The same three operations on the one instance.
std::ostringstream* fillInOss(int severity, std::ostringstream* oss);
void debugReport(std::ostringstream* oss);
void setTaskName(int threadId, const std::string& name);

/// The identifier under which the calling thread is known to setTaskName().
int currentTaskId();
