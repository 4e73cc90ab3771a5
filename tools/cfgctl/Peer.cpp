#include "Peer.h"

#include "CfgPaths.h"
#include "CommandLine.h"
#include "DataCommunicator.h"
#include "MessageHeader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <random>
#include <sys/socket.h>
#include <tuple>
#include <utility>

namespace
{

constexpr std::string_view kHeaderEnd = "</HEADER>\n";
constexpr std::chrono::milliseconds kLook = std::chrono::milliseconds(500);
constexpr std::chrono::milliseconds kRetry = std::chrono::milliseconds(20);

constexpr unsigned kIdMask = 0x3fffffff;

bool waitFor(int descriptor, short what, std::chrono::milliseconds limit)
{
    pollfd waiting{descriptor, what, 0};
    return poll(&waiting, 1, static_cast<int>(limit.count())) > 0;
}

bool breaksMessages(unsigned char c)
{
    return c < ' ' || c == 0x7f || c == '"' || c == '<' || c == '>';
}

} // namespace

Peer::Peer(std::string socket, std::string name, const Deadline& deadline, std::string waitsFor,
           bool isDryRun)
    : mPath(std::move(socket)), mName(std::move(name)), mDeadline(deadline),
      mWaitsFor(std::move(waitsFor)), mIsDryRun(isDryRun)
{
    // The path is used again: an answer to a client before may come to this one.
    if (!mIsDryRun)
        mLastId = static_cast<int>(std::random_device()() & kIdMask);
}

Answer Peer::command(const MessageCommand& command)
{
    requireValidText(command.ID);
    for (auto param = command.getParamsBegin(); param != command.getParamsEnd(); ++param) {
        requireValidText(param->first);
        requireValidText(param->second);
    }
    std::string text;
    return request(kTypeCommand, "<BODY>\n\t" + command.toString(text) + "\n</BODY>\n",
                   command.ID != kCommandSubscribe);
}

Answer Peer::get(const std::string& body) { return request(kTypeGet, body, false); }

Answer Peer::set(const std::string& body) { return request(kTypeSet, body, true); }

Answer Peer::subscribe()
{
    MessageCommand subscription;
    subscription.setId(kCommandSubscribe);
    subscription.addParam(kParamSockName, mSocket.path());
    return command(subscription);
}

bool Peer::nextEvent(MessageEvent& event, std::chrono::milliseconds limit)
{
    std::string datagram;
    if (!mEvents.empty()) {
        datagram = mEvents.front();
        mEvents.pop_front();
    } else if (!receive(datagram, limit)) {
        return false;
    }
    MessageHeader header;
    std::string element;
    event = MessageEvent();
    if (header.initFromString(datagram) != FC_OK || header.Type != kTypeEvent ||
        getSegment(datagram, 0, "Event", element) == std::string::npos ||
        event.initFromString(element) != FC_OK)
        return false;
    event.Fcode = header.Fcode;
    return true;
}

bool Peer::hasStartedAnew() const { return !isStillThere() && isServed(mPath); }

/// `mayBeDone`: the daemon changes something, also when nobody waits for its answer any more.
Answer Peer::request(const char* type, const std::string& body, bool mayBeDone)
{
    MessageHeader header;
    header.Type = type;
    header.ID = ++mLastId;
    header.Size = static_cast<int>(body.size());
    std::string datagram;
    header.toString(datagram);
    datagram += body;
    if (datagram.size() >= kMessageSizeLimit)
        throw Failure(EXIT_USAGE, "too long for one message: " + std::to_string(datagram.size()) +
                                      " bytes, and it takes fewer than " +
                                      std::to_string(kMessageSizeLimit));
    if (mIsDryRun)
        throw DryRun{mPath, {datagram}};

    WaitNote note(mWaitsFor);
    send(datagram, note);
    if (mayBeDone)
        Leftover::sayAtSignal(mName + " has been asked, and may still do it" +
                              (mPath == kCfgSocket ? ". Try: cfgctl status" : ""));
    const char* const answerType = header.Type == kTypeCommand ? kTypeAck : kTypeResponse;
    Answer answer = awaitAnswer(header.ID, answerType, mayBeDone, note);
    Leftover::sayAtSignal("");
    return answer;
}

Answer Peer::awaitAnswer(int id, const char* answerType, bool mayBeDone, WaitNote& note)
{
    std::string datagram;
    std::string problem;
    std::string cause;
    while (problem.empty()) {
        if (receive(datagram, mDeadline.left(kLook))) {
            MessageHeader answer;
            if (answer.initFromString(datagram) != FC_OK)
                continue;
            if (answer.Type == kTypeEvent) {
                mEvents.push_back(datagram);
            } else if (answer.ID == id) {
                if (answer.Type != answerType && answer.Fcode == FC_OK)
                    answer.Fcode = FC_HEADER_ERROR;
                const std::size_t end = datagram.find(kHeaderEnd);
                return {answer.Fcode,
                        end == std::string::npos ? "" : datagram.substr(end + kHeaderEnd.size())};
            }
        } else if (mDeadline.isOver()) {
            problem = "no answer from " + mName + " on " + mPath + " in " +
                      std::to_string(mDeadline.seconds()) + " s";
            cause = "it is busy, or stuck";
            if (mayBeDone)
                cause += "; what was asked may still be done";
        } else if (!isStillThere()) {
            problem = mName + " has ended before it answered";
            cause = "it was stopped, or has crashed";
            if (mayBeDone)
                cause += "; what was asked may be done or not";
        }
        note.show(mDeadline);
    }
    Failure failure = noAnswer(problem, cause);
    failure.mayBeDone = mayBeDone;
    Leftover::sayAtSignal("");
    throw Failure(failure);
}

void Peer::send(const std::string& datagram, WaitNote& note)
{
    if (!isStillThere())
        connectToDaemon();
    while (::send(mSocket.descriptor(), datagram.data(), datagram.size(),
                  MSG_DONTWAIT | MSG_NOSIGNAL) == -1) {
        const int error = errno;
        if (error == ECONNREFUSED || error == ENOTCONN) // it has ended at this moment
            connectToDaemon();
        else if (error != EAGAIN && error != EINTR)
            throw noAnswer("cannot send to " + mName + " on " + mPath, std::strerror(error));
        else if (mDeadline.isOver())
            throw noAnswer(mName + " takes no more messages on " + mPath +
                               ": its queue has been "
                               "full for " +
                               std::to_string(mDeadline.seconds()) + " s",
                           "it is stuck, or others ask too much; nothing has been sent");
        std::ignore = poll(nullptr, 0, static_cast<int>(kRetry.count()));
        note.show(mDeadline);
    }
}

void Peer::connectToDaemon()
{
    const bool isKnown = stat(mPath.c_str(), &mServed) == 0;
    if (const int error = mSocket.connectTo(mPath); error != 0) {
        if (error == EACCES)
            throw fileFailure("cannot ask " + mName + " on", mPath, error);
        const bool isLeft = isKnown && error == ECONNREFUSED;
        throw noAnswer("no answer from " + mName + " on " + mPath,
                       isLeft && !S_ISSOCK(mServed.st_mode) ? "that is no socket"
                       : isLeft          ? "it does not run; an earlier one has left its socket"
                       : error == ENOENT ? "it does not run"
                                         : std::strerror(error));
    }
}

bool Peer::receive(std::string& datagram, std::chrono::milliseconds limit) const
{
    const int descriptor = mSocket.descriptor();
    if (!waitFor(descriptor, POLLIN, limit))
        return false;
    const ssize_t size = recv(descriptor, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
    if (size < 0)
        return false;
    datagram.resize(static_cast<std::size_t>(size));
    if (recv(descriptor, datagram.data(), datagram.size(), MSG_DONTWAIT) != size)
        return false;
    datagram.resize(std::min(datagram.find('\0'), datagram.size()));
    return true;
}

bool Peer::isStillThere() const
{
    struct stat now {
    };
    return mServed.st_ino != 0 && stat(mPath.c_str(), &now) == 0 && now.st_ino == mServed.st_ino &&
           now.st_mtim.tv_sec == mServed.st_mtim.tv_sec &&
           now.st_mtim.tv_nsec == mServed.st_mtim.tv_nsec && isServed(mPath);
}

Failure Peer::noAnswer(const std::string& problem, const std::string& cause) const
{
    const bool isManager = mPath == kCfgSocket;
    Failure failure(EXIT_NO_ANSWER, problem, isManager ? "cfgctl status" : "ls -l /tmp/sock*");
    failure.cause = cause;
    return failure;
}

bool isValidText(const std::string& value) { return std::ranges::none_of(value, breaksMessages); }

void requireValidText(const std::string& value)
{
    const auto bad = std::ranges::find_if(value, breaksMessages);
    if (bad != value.end())
        throw Failure(EXIT_USAGE, inQuotes(value) +
                                      " cannot be sent: names and texts cannot hold "
                                      "double quotes, angle brackets or control "
                                      "characters, and " +
                                      inQuotes(std::string(1, *bad)) + " stands at byte " +
                                      std::to_string(bad - value.begin() + 1));
}
