#include "Session.h"
#include "SystemChecks.h"

#include "dbgcollect/LogEntries.h"
#include "terminal/TerminalText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace
{

constexpr char kLogFile[] = "/var/log/sysmgt.log";
constexpr std::size_t kEarlier = 100; // entries of what was there before
constexpr off_t kFirstLook = 65536;   // bytes of the file's end in which they are looked for first
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

/// What the user wants to see.
class EntryFilter
{
public:
    explicit EntryFilter(const Invocation& call)
        : mTask(call.get("task")),
          mLeast(std::ranges::find(kSeverities, call.get("severity", kSeverities[0])) -
                 std::begin(kSeverities)),
          mTakesAll(!call.has("task") && !call.has("severity"))
    {
    }

    bool takes(const LogEntry& entry) const
    {
        return entry.severity >= mLeast && (mTask.empty() || entry.task == mTask);
    }

    bool takesAll() const { return mTakesAll; }

private:
    std::string mTask;
    std::ptrdiff_t mLeast;
    bool mTakesAll;
};

/// A file that a collector appends to, and that is renamed away from time to time.
class GrowingFile
{
public:
    explicit GrowingFile(std::string path) : mPath(std::move(path)) { open(); }
    ~GrowingFile() { close(mFile); }

    GrowingFile(const GrowingFile&) = delete;
    GrowingFile& operator=(const GrowingFile&) = delete;

    /// Begins with the last wanted entries that are there, looking back as far as it takes; how
    /// many they are.
    std::size_t beginWithLast(const EntryFilter& wanted)
    {
        struct stat held;
        fstat(mFile, &held);
        for (off_t look = kFirstLook;; look *= 4) {
            const off_t begin = std::max<off_t>(held.st_size - look, 0);
            const std::deque<off_t> found = findEntries(wanted, begin, held.st_size);
            if (begin > 0 && found.size() <= kEarlier)
                continue;
            lseek(mFile, found.front(), SEEK_SET);
            return found.size() - 1;
        }
    }

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
            throw groupFailure("cannot read", mPath, errno, "read it");
        if (mFile == -1 || fstat(mFile, &held) != 0 || !S_ISREG(held.st_mode))
            throw Failure(EXIT_NAME_OR_VALUE,
                          "cannot read " + mPath + ": " +
                              (mFile == -1 ? std::strerror(errno) : "it is no regular file") +
                              (isCollecting() ? "; the collector that runs writes elsewhere"
                                              : "; a collector writes it"),
                          isCollecting() ? "ps -C dbgcollect -o args"
                                         : "dbgcollect -o " + shellQuoted(mPath));
    }

    /// Where the last wanted entries from `begin` on begin, the last behind them all. An entry
    /// whose header stands before `begin` is none.
    std::deque<off_t> findEntries(const EntryFilter& wanted, off_t begin, off_t size) const
    {
        std::deque<off_t> found;
        LogEntries entries;
        LogEntry entry;
        off_t at = begin;
        const auto look = [&] {
            const bool isWhole = begin == 0 || at != begin || headerSeverity(entry.text) != -1;
            if (isWhole && wanted.takes(entry))
                found.push_back(at);
            if (found.size() > kEarlier)
                found.pop_front();
            at += static_cast<off_t>(entry.text.size());
        };
        std::array<char, 65536> chunk;
        for (off_t read = begin; read < size;) {
            const auto most = std::min<off_t>(size - read, chunk.size());
            const ssize_t got = pread(mFile, chunk.data(), static_cast<std::size_t>(most), read);
            if (got <= 0)
                break;
            read += got;
            entries.append({chunk.data(), static_cast<std::size_t>(got)});
            while (entries.next(entry))
                look();
        }
        if (entries.last(entry, false))
            look();
        found.push_back(at);
        return found;
    }

    std::string mPath;
    int mFile = -1;
};

void print(Session& session, const LogEntry& entry)
{
    constexpr Column kColumns[] = {
        {"", "time", kDateSize}, {"", "severity", 7}, {"", "task", 10}, {"", "message"}};
    if (session.out.isJson() || session.out.isTerminal())
        session.out.line(kColumns, asJson(entry));
    else
        session.out.text(printableLines(entry.text));
}

std::string whatComes(const EntryFilter& filter, std::size_t count, int limit)
{
    const std::string kind = filter.takesAll() ? "" : " such";
    const std::string entries = kind + (count == 1 ? " entry" : " entries");
    const std::string until =
        limit == 0 ? ", until it is interrupted" : " for " + std::to_string(limit) + " s";
    if (count == 0)
        return "no" + kind + " entry so far; following" + until;
    return (count < kEarlier ? "" : "the last ") + std::to_string(count) + entries +
           (count < kEarlier ? " so far" : "") + ", then what comes" + until;
}

} // namespace

void runLog(Session& session)
{
    const std::string argument = session.call.argument(0);
    const std::string path = argument.empty() ? kLogFile : argument;
    GrowingFile file(path);
    const EntryFilter filter(session.call);
    const int limit = session.call.number("for", 0);
    const std::size_t earlier = file.beginWithLast(filter);
    session.out.note(path + ": " + whatComes(filter, earlier, limit));
    const Deadline end(limit);
    LogEntries entries;
    LogEntry entry;
    const auto printWanted = [&] {
        if (filter.takes(entry))
            print(session, entry);
    };
    while (true) {
        while (file.readNext(entries))
            while (entries.next(entry))
                printWanted();
        while (entries.next(entry))
            printWanted();
        if (entries.last(entry, false))
            printWanted();
        if (end.isOver())
            return;
        if (session.deadline.isOver())
            throw Failure(EXIT_TIME, "not ended in " + session.call.get("timeout") + " s",
                          "cfgctl log --for " + session.call.get("timeout"));
        const auto pause = session.deadline.left(end.left(kPoll));
        std::ignore = poll(nullptr, 0, static_cast<int>(pause.count()));
    }
}
