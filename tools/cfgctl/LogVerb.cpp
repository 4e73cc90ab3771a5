#include "Session.h"

#include "dbgcollect/LogEntries.h"
#include "terminal/TerminalText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace
{

constexpr char kLogFile[] = "/var/log/sysmgt.log";
constexpr off_t kEarlier = 16384; // bytes of what was there before
constexpr std::chrono::milliseconds kPoll = std::chrono::milliseconds(200);
constexpr const char* kSeverities[] = {"info", "warning", "error", "fatal", "system"};
constexpr std::string_view kContinuation = "\n  | "; // as the collector marks further lines
constexpr std::size_t kLabelSize = 5;
constexpr std::size_t kDateSize = 21; // with milliseconds

/// "05/03/24 14:07:09.042 tCfgInit(812)ConfigurationManager:131:init: Couldn't …" in pieces.
Json::Value asJson(const LogEntry& entry)
{
    Json::Value line;
    line["severity"] = kSeverities[entry.severity];
    std::string_view rest = entry.text;
    if (headerSeverity(rest) != -1) {
        line["time"] = std::string(rest.substr(kLabelSize, kDateSize));
        rest.remove_prefix(std::min(kLabelSize + kDateSize + 1, rest.size()));
        const auto take = [&](const char* key, char end) {
            const std::size_t at = rest.find(end);
            if (at == std::string_view::npos)
                return;
            line[key] = std::string(rest.substr(0, at));
            rest.remove_prefix(at + 1);
        };
        take("task", '(');
        take("pid", ')');
        take("unit", ':');
        take("line", ':');
    }
    while (rest.ends_with('\n'))
        rest.remove_suffix(1);
    std::string message(rest);
    for (std::size_t at = 0; (at = message.find(kContinuation, at)) != std::string::npos; ++at)
        message.replace(at, kContinuation.size(), "\n");
    line["message"] = message;
    return line;
}

/// A file that a collector appends to, and that is renamed away from time to time.
class GrowingFile
{
public:
    explicit GrowingFile(std::string path) : mPath(std::move(path)) { open(); }
    ~GrowingFile() { close(mFile); }

    GrowingFile(const GrowingFile&) = delete;
    GrowingFile& operator=(const GrowingFile&) = delete;

    /// Appends what is new; false when nothing is, for now.
    bool readNext(LogEntries& entries)
    {
        // Found before the read: whoever wrote into the next file wrote before into this one.
        const bool isLast = hasSuccessor();
        std::array<char, 65536> chunk;
        const ssize_t got = read(mFile, chunk.data(), chunk.size());
        if (got > 0) {
            entries.append({chunk.data(), static_cast<std::size_t>(got)});
            return true;
        }
        if (isLast) {
            const int next = openFile();
            if (next == -1)
                return false; // it is being renamed, too
            close(mFile);
            mFile = next;
        }
        return false;
    }

private:
    /// The writer has gone over to a new file of the name, which is not when that is made, or has
    /// begun this one anew.
    bool hasSuccessor() const
    {
        struct stat named;
        struct stat held;
        return stat(mPath.c_str(), &named) == 0 && fstat(mFile, &held) == 0 &&
               S_ISREG(named.st_mode) &&
               ((named.st_ino != held.st_ino && named.st_size > 0) ||
                held.st_size < lseek(mFile, 0, SEEK_CUR));
    }

    int openFile() const { return ::open(mPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }

    void open()
    {
        mFile = openFile();
        struct stat held;
        if (mFile == -1 && errno == EACCES)
            throw fileFailure("cannot read", mPath, errno);
        if (mFile == -1 || fstat(mFile, &held) != 0 || !S_ISREG(held.st_mode))
            throw Failure(EXIT_NAME_OR_VALUE,
                          "cannot read " + mPath + ": " +
                              (mFile == -1 ? std::strerror(errno) : "it is no regular file") +
                              "; a collector writes it",
                          "dbgcollect -o " + shellQuoted(mPath));
        if (held.st_size > kEarlier) { // from the next line on
            std::array<char, kEarlier> earlier;
            const ssize_t got =
                pread(mFile, earlier.data(), earlier.size(), held.st_size - kEarlier);
            const std::string_view text(earlier.data(),
                                        static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
            const std::size_t line = std::min(text.find('\n'), text.size() - 1) + 1;
            lseek(mFile, held.st_size - kEarlier + static_cast<off_t>(line), SEEK_SET);
        }
    }

    std::string mPath;
    int mFile = -1;
};

class EntryPrinter
{
public:
    explicit EntryPrinter(Session& session)
        : mSession(session), mTask(session.call.get("task")),
          mLeast(std::ranges::find(kSeverities, session.call.get("severity", kSeverities[0])) -
                 std::begin(kSeverities))
    {
    }

    void print(const LogEntry& entry) const
    {
        const Json::Value line = asJson(entry);
        if (entry.severity < mLeast || (!mTask.empty() && entry.task != mTask))
            return;
        constexpr Column kColumns[] = {
            {"", "time", kDateSize}, {"", "severity", 7}, {"", "task", 10}, {"", "message"}};
        if (mSession.out.isJson() || mSession.out.isTerminal()) {
            mSession.out.line(kColumns, line);
            return;
        }
        mSession.out.text(printableLines(entry.text));
    }

private:
    Session& mSession;
    std::string mTask;
    std::ptrdiff_t mLeast;
};

} // namespace

void runLog(Session& session)
{
    const std::string argument = session.call.argument(0);
    GrowingFile file(argument.empty() ? kLogFile : argument);
    const EntryPrinter printer(session);
    const Deadline end(session.call.number("for", 0));
    LogEntries entries;
    LogEntry entry;
    while (true) {
        while (file.readNext(entries))
            while (entries.next(entry))
                printer.print(entry);
        while (entries.next(entry))
            printer.print(entry);
        if (entries.last(entry, false))
            printer.print(entry);
        if (end.isOver())
            return;
        if (session.deadline.isOver())
            throw Failure(EXIT_TIME, "not ended in " + session.call.get("timeout") + " s",
                          "cfgctl log --for " + session.call.get("timeout"));
        const auto pause = session.deadline.left(end.left(kPoll));
        std::ignore = poll(nullptr, 0, static_cast<int>(pause.count()));
    }
}
