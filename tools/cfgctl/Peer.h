#pragma once

// A daemon that the client asks: requests, their answers, and its events. There is no responder
// thread: the client sends, waits for the answer, and ends. One thread.

#include "ClientSocket.h"
#include "Deadline.h"
#include "Failure.h"
#include "MessageCommand.h"
#include "MessageEvent.h"

#include <deque>
#include <string>
#include <sys/stat.h>
#include <vector>

/// The answer to a request.
struct Answer {
    Fcodes code = FC_OK;
    std::string body;

    bool ok() const { return code == FC_OK; }
};

/// Thrown by a request of --dry-run, which ends the verb.
struct DryRun {
    std::string socket;
    std::vector<std::string> datagrams; ///< in their order; one, from a request
};

class Peer
{
public:
    /// `name` and `waitsFor` are for the user; the deadline must outlive the object.
    /// Throws Failure when the client's own socket cannot be made.
    Peer(std::string socket, std::string name, const Deadline& deadline, std::string waitsFor,
         bool isDryRun);

    /// A request is sent once, since it may change things. Any answer comes back, whatever its
    /// code; Failure(EXIT_NO_ANSWER) when there is none by the deadline, or can be none any more
    /// because the daemon has ended; EXIT_STATE_OR_RIGHT where this user may not ask it. One that
    /// does not fit a message, or holds a text that requireValidText() refuses, is not sent:
    /// Failure(EXIT_USAGE). An answer may have any length.
    Answer command(const MessageCommand& command);
    Answer get(const std::string& body);
    Answer set(const std::string& body);

    /// Has the daemon's events sent to this process; again after it has started anew.
    Answer subscribe();

    /// Waits for the next event; false when none has come in that time.
    bool nextEvent(MessageEvent& event, std::chrono::milliseconds limit);

    /// True when another daemon serves the socket than the one asked last.
    bool hasStartedAnew() const;

    const std::string& socket() const { return mPath; }
    const std::string& name() const { return mName; }
    const Deadline& deadline() const { return mDeadline; }

private:
    Answer request(const char* type, const std::string& body, bool mayBeDone);
    Answer awaitAnswer(int id, const char* answerType, bool mayBeDone, WaitNote& note);
    void send(const std::string& datagram, WaitNote& note);
    void connectToDaemon();
    bool receive(std::string& datagram, std::chrono::milliseconds limit) const;
    bool isStillThere() const;
    Failure noAnswer(const std::string& problem, const std::string& cause) const;

    std::string mPath;
    std::string mName;
    const Deadline& mDeadline;
    std::string mWaitsFor;
    bool mIsDryRun;
    int mLastId = 0;
    std::deque<std::string> mEvents; // that came between requests and answers
    struct stat mServed {
    }; // the daemon's socket file: it makes a new one at each start
    ClientSocket mSocket;
};

/// False when the message format cannot carry the value: it has no escaping, and its elements are
/// found by their angle brackets.
bool isValidText(const std::string& value);

/// Throws Failure(EXIT_USAGE) for such a one.
void requireValidText(const std::string& value);
