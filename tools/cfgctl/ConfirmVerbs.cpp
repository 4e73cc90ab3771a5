#include "Catalogue.h"
#include "Guardian.h"
#include "Session.h"

#include <cerrno>

namespace
{

std::string wayBack(const GuardedStart& start, int limit)
{
    return "in " + std::to_string(limit) + " s " + inQuotes(start.before) +
           " comes back, unless you type: cfgctl confirm";
}

void require(const Confirmation& shared)
{
    if (shared.isOpen())
        return;
    Failure failure = groupFailure("no start can be guarded, cannot open", kConfirmDirectory,
                                   shared.error(), "guard a start, or confirm it");
    failure.exit = EXIT_STATE_OR_RIGHT;
    if (shared.error() == ENOENT)
        failure.next = "systemd-tmpfiles --create";
    throw Failure(failure);
}

/// True when a start of this name is guarded already: its deadline is another now.
bool moveDeadline(GuardedStart& start, int limit)
{
    const Confirmation shared;
    require(shared);
    const auto now = shared.read();
    if (!now)
        return false;
    if (now->isBeingTakenBack || now->name != start.name || now->socket != start.socket)
        throw Failure(EXIT_STATE_OR_RIGHT,
                      now->isBeingTakenBack
                          ? inQuotes(now->name) + " was not confirmed, and is being taken back"
                          : "the start of " + inQuotes(now->name) + " waits for its confirmation",
                      "cfgctl confirm");
    start = *now;
    start.deadline = secondsSinceBoot() + limit;
    shared.write(start);
    return true;
}

std::string whatRan(Catalogue& catalogue)
{
    const auto running = catalogue.readRunning();
    if (running && !running->name.empty() && !running->isFallback)
        return running->name;
    throw Failure(EXIT_STATE_OR_RIGHT,
                  running && running->isFallback
                      ? "there is no way back: the default channels run, and they are no "
                        "configuration"
                      : "there is no way back: nobody knows what runs",
                  "cfgctl status");
}

} // namespace

void runGuardedStart(Session& session)
{
    const int limit = session.call.number("confirm-within", 0);
    GuardedStart start;
    start.name = session.call.argument(0);
    requireValidText(start.name);
    start.socket = session.socket();
    if (!moveDeadline(start, limit)) {
        Catalogue catalogue(session.peer());
        start.before = whatRan(catalogue);
        const std::string autoStart = catalogue.readAutoStart();
        try {
            startGuarded(start, limit, session.deadline, session.waitsFor.c_str());
        } catch (const Failure&) {
            if (Confirmation().read())
                session.out.note(wayBack(start, limit));
            throw;
        }
        session.out.note("after a reboot " +
                         (autoStart.empty() ? "the default channels" : inQuotes(autoStart)) +
                         " would run, confirmed or not");
    }
    session.out.note(wayBack(start, limit));
    session.out.document()["before"] = start.before;
    session.out.document()["confirmWithin"] = limit;
    session.out.text(session.call.asked() + ": OK\n");
}

void runConfirm(Session& session)
{
    const Confirmation shared;
    require(shared);
    const auto start = shared.read();
    if (!start)
        throw Failure(EXIT_STATE_OR_RIGHT, "no start waits for a confirmation", "cfgctl status");
    if (session.isDryRun()) {
        session.out.document()["dryRun"] = true;
        session.out.document()["datagrams"] = Json::arrayValue;
        session.out.note("the start of " + inQuotes(start->name) + " would be confirmed in " +
                         kConfirmDirectory + ", without a datagram");
        return;
    }
    shared.clear();
    if (start->isBeingTakenBack)
        throw Failure(EXIT_STATE_OR_RIGHT,
                      "too late: CfgManager may have been told to start " +
                          inQuotes(start->before) + " again; it is not told once more",
                      "cfgctl status");
    session.out.document()["name"] = start->name;
    session.out.text("confirm: OK, " + inQuotes(start->name) + " stays\n");
}
