#include "Guardian.h"

#include "Catalogue.h"
#include "CfgPaths.h"
#include "Refusals.h"
#include "terminal/TerminalText.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <sys/prctl.h>
#include <syslog.h>
#include <tuple>
#include <unistd.h>

namespace
{

constexpr int kSecond = 1000;     // ms
constexpr int kLook = 500;        // ms
constexpr int kTryLimit = 130;    // s for a start, as long as the daemon's own work may take
constexpr int kSettling = 3;      // s
constexpr int kBoot = 200;        // s for the daemon's own start of what is to run at boot
constexpr int kLongestPause = 60; // s between two tries
constexpr char kPeerName[] = "CfgManager";

void say(const std::string& what, const GuardedStart& start)
{
    syslog(LOG_NOTICE, "%s %s, which followed %s", what.c_str(), printableText(start.name).c_str(),
           printableText(start.before).c_str());
}

Answer askForStart(Peer& peer, const std::string& name)
{
    MessageCommand command;
    command.setId("START_CFG");
    command.addParam("RowID", name);
    return peer.command(command);
}

/// What a client reads that waits for the start: the exit status, the code, and the words.
std::string reportOf(const Failure& failure)
{
    std::string text;
    for (const std::string& field : {std::to_string(failure.exit), std::to_string(failure.code),
                                     failure.problem, failure.cause, failure.next})
        text += field + '\0';
    return text;
}

/// Nothing for a start that was done.
std::optional<Failure> readReport(const std::string& text)
{
    std::istringstream fields(text);
    std::string exit, code, problem, cause, next;
    for (std::string* field : {&exit, &code, &problem, &cause, &next})
        if (!std::getline(fields, *field, '\0'))
            return Failure(EXIT_INTERNAL, "the guardian has ended", "cfgctl status");
    if (exit == "0")
        return std::nullopt;
    Failure failure(static_cast<ExitCode>(std::stoi(exit)), problem, next);
    failure.code = static_cast<Fcodes>(std::stoul(code));
    failure.cause = cause;
    return failure;
}

class Guardian
{
public:
    Guardian(GuardedStart start, int seconds, int report)
        : mStart(std::move(start)), mSeconds(seconds), mReport(report)
    {
    }

    void run()
    {
        if (!takeOver()) {
            report({EXIT_STATE_OR_RIGHT, "another start is being guarded", "cfgctl status"});
            return;
        }
        const std::optional<Failure> failure = start();
        const bool isRefused = failure && !failure->mayBeDone &&
                               !holds(failure->code, FC_COMM_ERROR); // all is as before
        if (isRefused)
            end();
        else
            beginWaiting();
        report(failure.value_or(Failure(EXIT_DONE, "")));
        close(mReport);
        if (isRefused)
            return;
        if (awaitDeadline())
            goBack();
        end();
    }

private:
    /// The guardian of a start that has just been confirmed is about to end.
    bool takeOver()
    {
        for (int looks = 3 * kSecond / kLook; looks > 0;
             --looks, std::ignore = poll(nullptr, 0, kLook)) {
            const Confirmation shared;
            if (!shared.isOpen() || shared.read())
                return false;
            if (!mLock.emplace().isHeld())
                continue;
            mStart.deadline = mFirstDeadline = secondsSinceBoot() + kTryLimit + mSeconds;
            shared.write(mStart);
            return true;
        }
        return false;
    }

    void end()
    {
        const Confirmation shared;
        shared.clear();
        mLock.reset();
    }

    std::optional<Failure> start() const
    {
        try {
            const Deadline deadline(kTryLimit);
            Peer peer(mStart.socket, kPeerName, deadline, "", false);
            const Answer answer = askForStart(peer, mStart.name);
            return answer.ok() ? std::nullopt : std::optional(refusal(answer.code));
        } catch (const Failure& failure) {
            return failure;
        }
    }

    /// The time begins with the answer, unless somebody has set it, or confirmed, meanwhile.
    void beginWaiting() const
    {
        const Confirmation shared;
        auto now = shared.read();
        if (!now || now->deadline != mFirstDeadline)
            return;
        now->deadline = secondsSinceBoot() + mSeconds;
        shared.write(*now);
    }

    /// False when it has been confirmed before.
    bool awaitDeadline()
    {
        for (;; std::ignore = poll(nullptr, 0, kSecond)) {
            const Confirmation shared;
            auto now = shared.read();
            if (!now) {
                say("confirmed:", mStart);
                return false;
            }
            if (secondsSinceBoot() < now->deadline)
                continue;
            now->isBeingTakenBack = true;
            shared.write(*now);
            say("not confirmed, going back from", mStart);
            return true;
        }
    }

    /// As often as it takes; a daemon that starts anew is waited for. What it starts itself at boot
    /// may come behind ours, as late as that takes.
    void goBack()
    {
        int settling = kSettling;
        int pause = 1;
        bool isBack = false;
        auto sayOnce = [this, told = std::string()](const std::string& trouble) mutable {
            if (trouble != told)
                say(trouble + ", trying again to go back from", mStart);
            told = trouble;
        };
        for (int due = 0; settling > 0 && Confirmation().read();
             std::ignore = poll(nullptr, 0, kSecond)) {
            if (--due > 0)
                continue;
            try {
                const Deadline deadline(kTryLimit);
                Peer peer(mStart.socket, kPeerName, deadline, "", false);
                const auto running = Catalogue(peer).readRunning();
                if (running && (running->isFallback || running->name.empty()))
                    settling = kBoot;
                if (running) // else nobody says, and the answer to the start counts
                    isBack = !running->isFallback && !running->name.empty() &&
                             (isBack || running->name == mStart.before);
                if (isBack) {
                    --settling;
                    continue;
                }
                const Answer answer = askForStart(peer, mStart.before);
                isBack = answer.ok();
                if (isBack)
                    say("went back from", mStart);
                if (holds(answer.code, FC_NO_SUCH_NAME)) {
                    say("nothing to go back to from", mStart);
                    return;
                }
                if (!isBack)
                    sayOnce("refused with " + formatCode(answer.code));
                due = pause;
                pause = isBack ? 1 : std::min(2 * pause, kLongestPause);
            } catch (const Failure& failure) {
                settling = kBoot;
                sayOnce(failure.problem);
            }
        }
    }

    void report(const Failure& failure) const
    {
        const std::string text = reportOf(failure);
        std::ignore =
            write(mReport, text.data(), text.size()); // to nobody, if the client was killed
    }

    GuardedStart mStart;
    int mSeconds;
    int mReport;
    std::int64_t mFirstDeadline = 0;
    std::optional<GuardianLock> mLock;
};

/// What is left of the client is not this process's: neither terminal, nor socket, nor directory.
void leaveTheClient(int report)
{
    setsid();
    std::ignore = chdir("/");
    prctl(PR_SET_NAME, "cfgctl guardian");
    const int nothing = open("/dev/null", O_RDWR);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing, standard);
    close_range(STDERR_FILENO + 1, static_cast<unsigned>(report) - 1, 0);
    close_range(static_cast<unsigned>(report) + 1, ~0U, 0);
    Leftover::leaveAllToParent();
    sigset_t held; // whatever handler a socket of the client brings
    sigemptyset(&held);
    for (const int signal : {SIGHUP, SIGINT, SIGPIPE})
        sigaddset(&held, signal);
    sigprocmask(SIG_BLOCK, &held, nullptr);
    openlog("cfgctl", LOG_PID, LOG_DAEMON);
}

} // namespace

void startGuarded(const GuardedStart& start, int seconds, const Deadline& deadline,
                  const char* waitsFor)
{
    std::array<int, 2> ends{};
    const auto fail = [] {
        throw Failure(EXIT_INTERNAL, std::string("cannot make a guardian: ") + strerror(errno),
                      "cfgctl doctor");
    };
    if (pipe2(ends.data(), O_CLOEXEC) == -1)
        fail();
    const pid_t guardian = fork();
    if (guardian == -1)
        fail();
    if (guardian == 0) {
        leaveTheClient(ends[1]);
        try {
            Guardian(start, seconds, ends[1]).run();
        } catch (const std::exception& error) {
            syslog(LOG_ERR, "%s", error.what());
        }
        _exit(EXIT_DONE);
    }
    close(ends[1]);
    const Descriptor report(ends[0]);
    Leftover::sayAtSignal("the start goes on; to keep it, type: cfgctl confirm");
    WaitNote note(waitsFor);
    std::string text;
    std::array<char, 4096> chunk;
    for (pollfd waiting{report.get(), POLLIN, 0}; !deadline.isOver(); note.show(deadline)) {
        if (poll(&waiting, 1, kLook) <= 0)
            continue;
        const ssize_t got = read(report.get(), chunk.data(), chunk.size());
        if (got <= 0)
            break;
        text.append(chunk.data(), static_cast<std::size_t>(got));
    }
    Leftover::sayAtSignal("");
    if (text.empty() && deadline.isOver())
        throw Failure(EXIT_NO_ANSWER,
                      std::string("no answer from ") + kPeerName + " on " + start.socket + " in " +
                          std::to_string(deadline.seconds()) +
                          " s; the start goes on, and still wants to be confirmed",
                      "cfgctl status");
    if (auto failure = readReport(text))
        throw Failure(*failure);
}
