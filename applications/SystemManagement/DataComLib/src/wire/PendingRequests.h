#pragma once

// The requests of this process that wait for answers on its one send socket, a thread each. One of
// them, the watcher, polls the socket and is the only one that reads it, while the others sleep: a
// poll whose datagram somebody else has taken would go on waiting. It hands what it reads to the
// request that it answers; when its own answer has come it leaves the socket to the next.
//
// One lock guards all requests. Nobody holds it while waiting; the watcher holds it from a read
// until what was read is handed over, so that whoever then finds the socket empty has missed
// nothing. Nothing is logged here.

#include "Fcodes.h"
#include "wire/DatagramSocket.h"
#include "wire/ResponseHistory.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/types.h>
#include <vector>

class PendingRequests;

/// One try of a request, from before it is sent until its end. It belongs to the thread that asks.
class PendingRequest
{
public:
    using Clock = std::chrono::steady_clock;

    PendingRequest(PendingRequests& all, int id, std::string responder, int timeout);
    ~PendingRequest();

    PendingRequest(const PendingRequest&) = delete;
    PendingRequest& operator=(const PendingRequest&) = delete;

    /// It has been sent: its time-out, one of DataCommunicator's, runs from now.
    void startTimeout();

    int id() const { return mId; }
    const std::string& responder() const { return mResponder; } ///< Path.
    int timeout() const { return mTimeout; }

    /// What others have read for it; FC_OK while its responder has sent nothing malformed. To be
    /// called with the lock held.
    const std::optional<FiledResponse>& answer() const { return mAnswer; }
    Fcodes failure() const { return mFailure; }

private:
    friend class PendingRequests;

    void renew(Clock::time_point now);

    PendingRequests& mAll;
    const int mId;
    const std::string mResponder;
    const int mTimeout;

    const std::optional<uid_t>
        mOwner; // of the responder's socket when it is asked; none: no socket

    // Guarded by the lock of mAll.
    Clock::time_point mSent;
    Clock::time_point mDeadline;                  // the greatest value: none
    std::optional<Clock::time_point> mReadingEnd; // after the deadline
    std::optional<FiledResponse> mAnswer;
    Fcodes mFailure = FC_OK;
};

class PendingRequests
{
public:
    using Lock = std::unique_lock<std::mutex>;

    Lock lock() { return Lock(mMutex); }

    // What follows is called with the lock held.

    /// Waits, without the lock, for something to do: READABLE says that a datagram is to be read
    /// before the lock is released, no value that others may have read the answer. What is queued
    /// when the request's time is up is read too, for a quarter of a second at most.
    std::optional<WaitResult> wait(Lock& lock, PendingRequest& request, int socket);

    /// A readable message that its reader does not want: the request that it answers gets it, the
    /// others wait anew.
    void handOver(int id, const FiledResponse& response);

    /// Gives each request what is filed for it, before more is filed and may push it out.
    void takeFiled(const ResponseHistory& history);

    /// An unreadable datagram. That of a responder ends a try: that of the request that it numbers,
    /// else the reader's, else the oldest one. Anybody else's ends none.
    void endTry(Fcodes failure, const std::string& sender, int id, const PendingRequest& reader);

    /// Whether an answer counts: when it comes from root, from this process's user, or from whoever
    /// owned the socket to which the pending request of this number goes when it was asked.
    bool mayAnswer(int id, const ucred& sender) const;

    /// The same for what comes from the path to which pending requests go, whatever its number.
    /// Anybody may bear that path who had it earlier, or has it in a name space of his own.
    bool maySpeakFor(const std::string& path, const ucred& sender) const;

    /// Whether the sender owned a socket that has been asked, of any request so far.
    bool isSibling(const ucred& sender) const;

private:
    friend class PendingRequest;

    static WaitResult watch(Lock& lock, const PendingRequest& request, int socket);
    std::optional<WaitResult> awaitQueued(Lock& lock, PendingRequest& request, int socket);

    std::mutex mMutex; // guards everything below, and the requests
    std::condition_variable mChanged;
    std::vector<PendingRequest*> mRequests; // oldest first
    const PendingRequest* mWatcher = nullptr;
    std::vector<uid_t> mSiblings; // the last few owners of sockets that have been asked
};
