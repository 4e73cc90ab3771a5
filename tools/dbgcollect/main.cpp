// The log collector: it reads the debug FIFO of all daemons and prints what they log, as it comes.

#include "LogEntries.h"
#include "PrintableText.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr char kFifo[] = "/tmp/sockDbg";
constexpr mode_t kFifoMode = 0666;   // daemons of any user log
constexpr mode_t kOutputMode = 0666; // but for the umask
constexpr std::size_t kMostBuffered = 65536;
constexpr int kFifoSize = 1 << 20; // writers never wait: what does not fit is lost

struct Options {
    int level = 0;
    std::vector<std::string> tasks;
    std::string grep;
    std::string outputFile;
    bool color = false;
    bool noColor = false;
    bool journal = false;
};

[[noreturn]] void fail(const std::string& what, int error = 0)
{
    std::fprintf(stderr, "dbgcollect: %s%s%s\n", what.c_str(), error == 0 ? "" : ": ",
                 error == 0 ? "" : std::strerror(error));
    std::exit(1);
}

/// Opens the FIFO for writing too, so that reading never ends when the last daemon closes it.
int openFifo()
{
    if (mkfifo(kFifo, kFifoMode) == 0)
        chmod(kFifo, kFifoMode); // whatever the umask
    else if (errno != EEXIST)
        fail(std::string("cannot make ") + kFifo, errno);

    struct stat status;
    if (lstat(kFifo, &status) == -1 || !S_ISFIFO(status.st_mode))
        fail(std::string(kFifo) + " is not a FIFO; remove it first");
    const int fifo = open(kFifo, O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
    if (fifo == -1)
        fail(std::string("cannot open ") + kFifo, errno);
    if (flock(fifo, LOCK_EX | LOCK_NB) == -1)
        fail(std::string("another collector reads ") + kFifo + " already");
    fcntl(fifo, F_SETPIPE_SZ, kFifoSize);
    return fifo;
}

/// Selects the entries to print, and prints them to the terminal or the file.
class Printer
{
public:
    explicit Printer(const Options& options) : mOptions(options)
    {
        if (!options.outputFile.empty() && (mOut = openOutput()) == -1)
            fail("cannot write " + options.outputFile, errno);
        mColor = options.color || (isatty(mOut) == 1 && !options.noColor);
    }

    void print(const LogEntry& entry)
    {
        if (!isWanted(entry))
            return;
        const std::string text = printableEntry(entry.text);
        const auto severity = static_cast<std::size_t>(entry.severity);
        if (mOptions.journal) {
            printLines(kPriorities.at(severity), text);
            return;
        }
        const std::string_view color = mColor ? kColors.at(severity) : std::string_view();
        if (color.empty()) {
            put(text);
            return;
        }
        const std::string lines = text.substr(0, text.find_last_not_of('\n') + 1);
        put("\033[" + std::string(color) + 'm' + lines + "\033[0m\n");
    }

    /// Writes what has been printed, or drops what is left of it: a disk that is full today is not
    /// tomorrow, and the daemons go on.
    void flush()
    {
        if (mBytes.empty())
            return;
        std::string_view rest = mBytes;
        while (!rest.empty()) {
            const ssize_t written = write(mOut, rest.data(), rest.size());
            if (written == -1 && errno == EINTR)
                continue;
            if (written <= 0)
                break;
            rest.remove_prefix(static_cast<std::size_t>(written));
        }
        const int error = errno;
        if (rest.empty())
            sayWritten();
        else
            drop(rest, error);
        mBytes.clear();
    }

    /// The file has another name now, and its place is free for a new one.
    void reopen()
    {
        const int out = openOutput();
        if (out == -1) {
            std::fprintf(stderr,
                         "dbgcollect: cannot open %s anew, going on with the old file: %s\n",
                         mOptions.outputFile.c_str(), std::strerror(errno));
            return;
        }
        close(mOut);
        mOut = out;
        mIsCut = false;
    }

private:
    static constexpr std::array<std::string_view, 5> kColors = {"", "33", "31", "1;31", "36"};
    /// As journald reads them: information, warning, error, critical; a "SYS  " line is a notice.
    static constexpr std::array<std::string_view, 5> kPriorities = {"<6>", "<4>", "<3>", "<2>",
                                                                    "<5>"};

    int openOutput() const
    {
        return open(mOptions.outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC,
                    kOutputMode);
    }

    /// Whoever was to read it has left, or there is no such descriptor: then nobody ever will.
    void drop(std::string_view rest, int error)
    {
        if (error == EPIPE || error == EBADF)
            fail("cannot write", error);
        if (mDropped == 0)
            std::fprintf(stderr, "dbgcollect: cannot write, dropping lines until it works: %s\n",
                         std::strerror(error));
        mDropped += static_cast<std::size_t>(std::ranges::count(rest, '\n'));
        if (rest.size() < mBytes.size())
            mIsCut = mBytes[mBytes.size() - rest.size() - 1] != '\n';
    }

    void sayWritten()
    {
        if (mDropped != 0)
            std::fprintf(stderr, "dbgcollect: writing again, %zu lines are lost\n", mDropped);
        mDropped = 0;
        mIsCut = false;
    }

    void put(std::string_view text)
    {
        if (mBytes.empty() && mIsCut) // what could be written ended within a line
            mBytes += '\n';
        mBytes += text;
        if (mBytes.size() >= kMostBuffered)
            flush();
    }

    bool isWanted(const LogEntry& entry) const
    {
        return entry.severity >= mOptions.level &&
               (mOptions.tasks.empty() || std::ranges::count(mOptions.tasks, entry.task) > 0) &&
               entry.text.find(mOptions.grep) != std::string::npos;
    }

    /// The journal takes each line for a message of its own.
    void printLines(std::string_view prefix, std::string_view text)
    {
        for (std::size_t end; !text.empty(); text.remove_prefix(end)) {
            end = std::min(text.find('\n'), text.size() - 1) + 1;
            put(std::string(prefix).append(text.substr(0, end)));
        }
    }

    const Options& mOptions;
    int mOut = STDOUT_FILENO;
    bool mColor = false;
    std::string mBytes;       // printed, and not written
    std::size_t mDropped = 0; // lines, since writing last worked
    bool mIsCut = false;      // the last byte in the file ends no line
};

void printWaiting(int fifo, LogEntries& entries, Printer& printer, bool atEnd)
{
    std::array<char, 65536> chunk;
    LogEntry entry;
    for (ssize_t got; (got = read(fifo, chunk.data(), chunk.size())) > 0;) {
        entries.append({chunk.data(), static_cast<std::size_t>(got)});
        while (entries.next(entry))
            printer.print(entry);
    }
    if (entries.last(entry, atEnd))
        printer.print(entry);
    printer.flush();
}

/// From here on SIGINT and SIGTERM, and SIGHUP where it means a new file, come through the
/// descriptor and end nothing by themselves.
int redirectSignals(bool hasFile)
{
    sigset_t redirected;
    sigemptyset(&redirected);
    sigaddset(&redirected, SIGINT);
    sigaddset(&redirected, SIGTERM);
    if (hasFile)
        sigaddset(&redirected, SIGHUP);
    sigprocmask(SIG_BLOCK, &redirected, nullptr);
    return signalfd(-1, &redirected, SFD_CLOEXEC | SFD_NONBLOCK);
}

void collect(const Options& options)
{
    const int signals = redirectSignals(!options.outputFile.empty());
    Printer printer(options);
    const int fifo = openFifo();
    std::fprintf(stderr, "dbgcollect: collecting from %s\n", kFifo);

    LogEntries entries;
    std::array<pollfd, 2> waiting{{{fifo, POLLIN, 0}, {signals, POLLIN, 0}}};
    for (bool ends = false; !ends;) {
        if (poll(waiting.data(), waiting.size(), -1) == -1 && errno != EINTR)
            fail("cannot wait", errno);
        signalfd_siginfo signal;
        if (read(signals, &signal, sizeof signal) != sizeof signal)
            signal.ssi_signo = 0; // none has come
        ends = signal.ssi_signo == SIGINT || signal.ssi_signo == SIGTERM;
        printWaiting(fifo, entries, printer, ends);
        if (signal.ssi_signo == SIGHUP)
            printer.reopen();
    }
    // The FIFO stays: daemons that have it open find the next collector through it.
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Prints what the daemons log, as it comes, until it is interrupted.",
                 "dbgcollect");
    Options options;
    app.add_option("-l,--level", options.level,
                   "Only lines of this severity and worse: 0 info, 1 warning, 2 error, 3 fatal, "
                   "4 system")
        ->check(CLI::Range(0, 4));
    app.add_option("-t,--task", options.tasks,
                   "Only entries of this task, such as tCfgCom; may be given several times")
        ->allow_extra_args(false);
    app.add_option("-g,--grep", options.grep, "Only entries that hold this text");
    CLI::Option* output = app.add_option("-o,--output", options.outputFile,
                                         "Append to this file, opened anew on SIGHUP");
    CLI::Option* color = app.add_flag("--color", options.color, "Colours also without a terminal");
    app.add_flag("--no-color", options.noColor, "No colours")->excludes(color);
    app.add_flag("--journal", options.journal,
                 "For a service's standard output: each line begins with the priority that the "
                 "journal reads")
        ->excludes(color)
        ->excludes(output);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }

    collect(options);
    return 0;
}
