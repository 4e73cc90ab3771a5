#pragma once

// One run of the client: what was asked, where it is printed, whom it asks. One thread.

#include "CommandLine.h"
#include "Deadline.h"
#include "Output.h"
#include "Peer.h"

#include <initializer_list>
#include <optional>
#include <utility>

struct Session {
    Session(const Invocation& invocation, Output& output);

    /// Of --socket, or the configuration manager; made by the first call, since many verbs ask
    /// nobody. Throws Failure.
    Peer& peer();

    /// Asks on a terminal; elsewhere --yes has to say so. Throws Failure(EXIT_USAGE) for no. With
    /// --dry-run nothing is asked. The verb's limit begins again when somebody has thought about
    /// it.
    void confirm(const std::string& question);

    /// Has the daemon carry out a command; its answer, as of Peer. Throws Failure when it refuses.
    Answer carryOut(const MessageCommand& command);
    Answer carryOut(const char* id,
                    std::initializer_list<std::pair<const char*, std::string>> parameters);

    std::string socket() const; ///< of peer()

    bool isDryRun() const { return call.has("dry-run"); }

    const Invocation& call;
    Output& out;
    Deadline deadline;
    std::string waitsFor;

private:
    std::optional<Peer> mPeer;
};

// The verbs. Each throws Failure when it is not done.
void runHelp(Session& session);
void runVersion(Session& session);
void runCompletion(Session& session);

void runList(Session& session);
void runShow(Session& session);
void runStatus(Session& session);
void runWait(Session& session);
void runWatch(Session& session);
void runLog(Session& session);
void runValidate(Session& session);
void runDoctor(Session& session);

void runSave(Session& session);
void runStart(Session& session);
void runAutoStart(Session& session);
void runImport(Session& session);
void runRename(Session& session);
void runRemove(Session& session);
void runDebug(Session& session);
void runExport(Session& session);
void runRestore(Session& session);
void runGuardedStart(Session& session); // start --confirm-within
void runConfirm(Session& session);

void runGet(Session& session);
void runSet(Session& session);
void runCall(Session& session);
