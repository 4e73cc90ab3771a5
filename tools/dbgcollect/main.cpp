// The log collector: it reads the debug FIFO of all daemons and prints what they log, as it comes.

#include "LogEntries.h"
#include "PrintableText.h"

#include <CLI/CLI.hpp>
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

namespace
{

constexpr char kFifo[] = "/tmp/sockDbg";
constexpr mode_t kFifoMode = 0666; // daemons of any user log
constexpr int kFifoSize = 1 << 20; // writers never wait: what does not fit is lost

struct Options {
    int level = 0;
    std::string grep;
    std::string outputFile;
    bool color = false;
    bool noColor = false;
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
    explicit Printer(const Options& options)
        : mLevel(options.level), mGrep(options.grep), mOut(stdout)
    {
        if (!options.outputFile.empty() &&
            (mOut = std::fopen(options.outputFile.c_str(), "ae")) == nullptr)
            fail("cannot write " + options.outputFile, errno);
        mColor = options.color || (isatty(fileno(mOut)) == 1 && !options.noColor);
    }

    void print(const LogEntry& entry)
    {
        if (entry.severity < mLevel || entry.text.find(mGrep) == std::string::npos)
            return;
        const std::string text = printableText(entry.text);
        const std::string_view color =
            mColor ? kColors.at(static_cast<std::size_t>(entry.severity)) : std::string_view();
        if (color.empty()) {
            std::fputs(text.c_str(), mOut);
            return;
        }
        const std::string lines = text.substr(0, text.find_last_not_of('\n') + 1);
        std::fprintf(mOut, "\033[%sm%s\033[0m\n", color.data(), lines.c_str());
    }

    void flush()
    {
        if (std::fflush(mOut) != 0)
            fail("cannot write", errno);
    }

private:
    static constexpr std::array<std::string_view, 5> kColors = {"", "33", "31", "1;31", "36"};

    int mLevel;
    std::string mGrep;
    std::FILE* mOut;
    bool mColor = false;
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

/// From here on SIGINT and SIGTERM come through the descriptor and end nothing by themselves.
int redirectEndSignals()
{
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    return signalfd(-1, &ending, SFD_CLOEXEC);
}

void collect(const Options& options)
{
    const int signals = redirectEndSignals();
    Printer printer(options);
    const int fifo = openFifo();
    std::fprintf(stderr, "dbgcollect: collecting from %s\n", kFifo);

    LogEntries entries;
    std::array<pollfd, 2> waiting{{{fifo, POLLIN, 0}, {signals, POLLIN, 0}}};
    while (waiting[1].revents == 0) {
        if (poll(waiting.data(), waiting.size(), -1) == -1 && errno != EINTR)
            fail("cannot wait", errno);
        printWaiting(fifo, entries, printer, waiting[1].revents != 0);
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
    app.add_option("-g,--grep", options.grep, "Only entries that hold this text");
    app.add_option("-o,--output", options.outputFile, "Append to this file");
    CLI::Option* color = app.add_flag("--color", options.color, "Colours also without a terminal");
    app.add_flag("--no-color", options.noColor, "No colours")->excludes(color);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }

    collect(options);
    return 0;
}
