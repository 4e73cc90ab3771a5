#include "wire/PendingRequests.h"

#include "base/Credentials.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace
{

using Clock = PendingRequest::Clock;

constexpr int kNoWaiting = -1;
constexpr Clock::time_point kNever = Clock::time_point::max();
constexpr std::size_t kMaxSiblings = 16;
constexpr std::chrono::milliseconds kLastReading{250};

std::optional<uid_t> socketOwner(const std::string& path)
{
    struct stat socket {
    };
    if (stat(path.c_str(), &socket) != 0 || !S_ISSOCK(socket.st_mode))
        return std::nullopt;
    return socket.st_uid;
}

bool isRootOrOwn(const ucred& sender) { return sender.uid == 0 || sender.uid == geteuid(); }

} // namespace

PendingRequest::PendingRequest(PendingRequests& all, int id, std::string responder, int timeout)
    : mAll(all), mId(id), mResponder(std::move(responder)), mTimeout(timeout),
      mOwner(socketOwner(mResponder))
{
    const PendingRequests::Lock lock = mAll.lock();
    mAll.mRequests.push_back(this);
}

PendingRequest::~PendingRequest()
{
    const PendingRequests::Lock lock = mAll.lock();
    std::erase(mAll.mRequests, this);
    if (mAll.mWatcher == this) {
        mAll.mWatcher = nullptr;
        mAll.mChanged.notify_all();
    }
}

void PendingRequest::startTimeout()
{
    const PendingRequests::Lock lock = mAll.lock();
    mSent = Clock::now();
    mDeadline = mTimeout == 0 ? kNever : mSent + std::chrono::seconds(std::max(mTimeout, 0));
    if (mOwner && std::ranges::find(mAll.mSiblings, *mOwner) == mAll.mSiblings.end()) {
        if (mAll.mSiblings.size() == kMaxSiblings)
            mAll.mSiblings.erase(mAll.mSiblings.begin());
        mAll.mSiblings.push_back(*mOwner);
    }
}

void PendingRequest::renew(Clock::time_point now)
{
    if (mTimeout <= 0)
        return;
    // Kept on purpose: requesters whose answers are read by others count on the time-out starting
    // anew after each foreign answer. Twice is enough for them; strangers must not go on for ever.
    const std::chrono::seconds timeout(mTimeout);
    mDeadline = std::min(now + timeout, mSent + 2 * timeout);
}

std::optional<WaitResult> PendingRequests::wait(Lock& lock, PendingRequest& request, int socket)
{
    if (request.mTimeout < kNoWaiting) {
        errno = EINVAL;
        return WaitResult::FAILED;
    }
    if (request.mFailure != FC_OK)
        return std::nullopt;
    if (mWatcher == nullptr)
        mWatcher = &request;
    if (Clock::now() >= request.mDeadline)
        return awaitQueued(lock, request, socket);

    request.mReadingEnd.reset();
    if (mWatcher == &request)
        return watch(lock, request, socket);
    if (request.mDeadline == kNever)
        mChanged.wait(lock);
    else
        mChanged.wait_until(lock, request.mDeadline);
    return std::nullopt;
}

WaitResult PendingRequests::watch(Lock& lock, const PendingRequest& request, int socket)
{
    const Clock::time_point deadline = request.mDeadline;
    lock.unlock();
    const WaitResult waited = waitReadable(socket, deadline);
    const int error = errno;
    lock.lock();
    errno = error;
    return waited;
}

/// For a request whose time is up: the watcher reads on, another one sleeps until it has.
std::optional<WaitResult> PendingRequests::awaitQueued(Lock& lock, PendingRequest& request,
                                                       int socket)
{
    const Clock::time_point now = Clock::now();
    if (!request.mReadingEnd)
        request.mReadingEnd = now + kLastReading;
    if (now >= *request.mReadingEnd)
        return WaitResult::TIMED_OUT;
    const WaitResult waited = waitReadable(socket, kNoWaiting);
    if (waited != WaitResult::READABLE || mWatcher == &request)
        return waited;
    mChanged.wait_until(lock, *request.mReadingEnd);
    return std::nullopt;
}

void PendingRequests::handOver(int id, const FiledResponse& response)
{
    const Clock::time_point now = Clock::now();
    for (PendingRequest* const request : mRequests) {
        if (request->mId != id || request->mResponder != response.sender)
            request->renew(now);
        else if (!request->mAnswer || request->mAnswer->sender != response.sender)
            request->mAnswer = response;
    }
    mChanged.notify_all();
}

void PendingRequests::takeFiled(const ResponseHistory& history)
{
    for (PendingRequest* const request : mRequests) {
        FiledResponse filed;
        if (!request->mAnswer && history.findAnswer(request->mId, request->mResponder, filed))
            request->mAnswer = std::move(filed);
    }
}

void PendingRequests::endTry(Fcodes failure, const std::string& sender, int id,
                             const PendingRequest& reader)
{
    PendingRequest* ended = nullptr;
    for (PendingRequest* const request : mRequests) {
        if (request->mResponder != sender || request->mAnswer || request->mFailure != FC_OK)
            continue;
        if (request->mId == id) {
            ended = request;
            break;
        }
        if (ended == nullptr || request == &reader)
            ended = request;
    }
    if (ended != nullptr)
        ended->mFailure = failure;
    mChanged.notify_all();
}

bool PendingRequests::mayAnswer(int id, const ucred& sender) const
{
    return isKnownSender(sender) &&
           (isRootOrOwn(sender) ||
            std::ranges::any_of(mRequests, [&](const PendingRequest* request) {
                return request->mId == id && request->mOwner == sender.uid;
            }));
}

bool PendingRequests::maySpeakFor(const std::string& path, const ucred& sender) const
{
    return isKnownSender(sender) &&
           (isRootOrOwn(sender) ||
            std::ranges::any_of(mRequests, [&](const PendingRequest* request) {
                return request->mResponder == path && request->mOwner == sender.uid;
            }));
}

bool PendingRequests::isSibling(const ucred& sender) const
{
    return isKnownSender(sender) &&
           (isRootOrOwn(sender) || std::ranges::find(mSiblings, sender.uid) != mSiblings.end());
}
