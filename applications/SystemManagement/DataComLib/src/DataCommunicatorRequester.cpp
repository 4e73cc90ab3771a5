// The requester's side of the communicator: requests to peers, and events for subscribers.

#include "DataCommunicator.h"

#include "DbgLine.h"
#include "IAccessPolicy.h"
#include "base/LocalTime.h"
#include "wire/DatagramSocket.h"
#include "wire/MessageFrame.h"
#include "wire/PendingRequests.h"
#include "wire/ResponseHistory.h"
#include "wire/SubscriberList.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

namespace
{

constexpr char kUnit[] = "DataCommunicator";
constexpr int kSubscribeTimeout = 10;
constexpr int kSubscribeTries = 3;

/// Numbers the requests of the whole process.
std::atomic<std::uint32_t> nextRequestId{1};

void takeStored(const FiledResponse& filed, MessageHeader& header, std::string& body)
{
    header = MessageHeader();
    header.initFromString(filed.header);
    body = filed.body;
}

} // namespace

Fcodes DataCommunicator::sendRequest(const std::string& responderPath, MessageHeader& requestHeader,
                                     const std::string& body, MessageHeader& responseHeader,
                                     std::string& responseBody, int timeout, int tries)
{
    SocketAddress responder;
    const bool isValidPath = responder.assign(responderPath);
    Fcodes result = FC_COMM_ERROR;
    for (; result != FC_OK && tries > 0; --tries) {
        requestHeader.ID = static_cast<int>(nextRequestId.fetch_add(1, std::memory_order_relaxed));
        PendingRequest request(*mPending, requestHeader.ID, responderPath, timeout);
        const Fcodes sendResult =
            isValidPath && mayBeAsked(responderPath)
                ? sendMessage(mSendSocket->descriptor(), requestHeader, body, responder.address(),
                              responder.length(), timeout, tries)
                : FC_COMM_ERROR;
        if (sendResult != FC_OK) {
            DBG_LOG(SEV_ERROR) << "sendRequest: Error in sending to sock:" << responderPath
                               << " fcode=" << Hex{sendResult};
            return sendResult;
        }
        request.startTimeout();
        result = awaitResponse(request, requestHeader, responseHeader, responseBody, tries);
    }
    return result;
}

bool DataCommunicator::mayBeAsked(const std::string& responderPath)
{
    IAccessPolicy* const policy = mAccessPolicy;
    if (policy == nullptr || policy->mayBeAsked(responderPath))
        return true;
    DBG_LOG(SEV_ERROR)
        << "sendRequest: Not asked, no socket of an owner that the policy names sock="
        << responderPath;
    return false;
}

Fcodes DataCommunicator::awaitResponse(PendingRequest& request, const MessageHeader& requestHeader,
                                       MessageHeader& responseHeader, std::string& responseBody,
                                       int tries)
{
    const int socket = mSendSocket->descriptor();
    PendingRequests::Lock lock = mPending->lock();
    FiledResponse filed;
    while (!findResponse(request, filed)) {
        const std::optional<WaitResult> waited = mPending->wait(lock, request, socket);
        const bool isReadable = waited == WaitResult::READABLE;
        if (isReadable && readResponse(request, responseHeader, responseBody, tries))
            return FC_OK;
        const Fcodes failure = isReadable || !waited
                                   ? request.failure()
                                   : reportUnread(*waited, socket, request.timeout());
        if (failure != FC_OK)
            return checkHistoryAfterReadError(failure, request, requestHeader, responseHeader,
                                              responseBody);
    }
    DBG_LOG(SEV_SYS) << "sendRequest: **** found in history *** id=" << request.id()
                     << " sender=" << filed.sender << " resp=" << filed.body;
    takeStored(filed, responseHeader, responseBody);
    return FC_OK;
}

/// Reads one datagram; true when it is the answer.
bool DataCommunicator::readResponse(const PendingRequest& request, MessageHeader& responseHeader,
                                    std::string& responseBody, int tries)
{
    MessageHeader header;
    std::string body;
    SocketAddress from;
    ucred credentials{};
    const Fcodes result = receiveMsg(mSendSocket->descriptor(), header, body, from, &credentials);
    // Without a datagram the read itself has failed: that is nobody's but the reader's.
    const bool isReadError = result == FC_COMM_ERROR && errno != 0;
    const std::string sender = isReadError ? request.responder() : from.path();
    const bool isResponder = isReadError || mPending->maySpeakFor(sender, credentials);
    if (result != FC_OK) {
        if (isResponder)
            mPending->endTry(result, sender, isReadError ? request.id() : header.ID, request);
        return false;
    }
    if (!isResponder && !mPending->mayAnswer(header.ID, credentials)) {
        DBG_LOG(SEV_ERROR) << "sendRequest: answer ignored from sock=" << sender
                           << " id=" << header.ID << " uid=" << credentials.uid;
        return false;
    }
    if (sender == request.responder() && header.ID == request.id()) {
        responseHeader = header;
        if (header.Size > 0)
            responseBody = std::move(body);
        return true;
    }
    DBG_LOG(SEV_ERROR) << "sendRequest: Responder=" << sender << "!=" << request.responder()
                       << " or respID=" << header.ID << "!=" << request.id()
                       << " retries left=" << tries;
    fileForeignAnswer(header, body, sender);
    return false;
}

bool DataCommunicator::findResponse(const PendingRequest& request, FiledResponse& response) const
{
    if (!request.answer())
        return mHistory->findAnswer(request.id(), request.responder(), response);
    response = *request.answer();
    return true;
}

Fcodes DataCommunicator::checkHistoryAfterReadError(Fcodes failure, const PendingRequest& request,
                                                    const MessageHeader& requestHeader,
                                                    MessageHeader& responseHeader,
                                                    std::string& responseBody)
{
    FiledResponse filed;
    if (findResponse(request, filed)) {
        DBG_LOG(SEV_ERROR) << "sendRequest: **** found in history after read=err *** id="
                           << request.id() << " sender=" << filed.sender << " resp=" << filed.body;
        takeStored(filed, responseHeader, responseBody);
        return FC_OK;
    }
    DBG_LOG(SEV_ERROR) << "sendRequest: Error in readMsg from sock:" << request.responder()
                       << " fcode=" << failure;
    responseHeader.Type = requestHeader.Type;
    responseHeader.ID = requestHeader.ID;
    responseHeader.Size = 0;
    responseHeader.Fcode = failure;
    return failure;
}

void DataCommunicator::fileForeignAnswer(const MessageHeader& header, const std::string& body,
                                         const std::string& sender)
{
    const FiledResponse response{headerText(header), body, sender};
    mPending->takeFiled(*mHistory);
    mPending->handOver(header.ID, response);
    const ResponseHistory::Sizes sizes = mHistory->storeReadByRequester(header.ID, response);
    logStored(sizes.queue, sizes.entries);
    DBG_LOG(SEV_SYS) << "sendRequest: **** stored in history *** id=" << header.ID
                     << " sender=" << sender << " resp=" << body;
}

Fcodes DataCommunicator::requestCommand(const std::string& responderPath,
                                        const std::string& commandText, std::string& responseBody,
                                        int timeout, int tries)
{
    const std::string body = commandBody(commandText);
    MessageHeader request = requestHeaderFor(kTypeCommand, body);
    MessageHeader response;
    const Fcodes result =
        sendRequest(responderPath, request, body, response, responseBody, timeout, tries);
    if (result != FC_OK) {
        DBG_LOG(SEV_ERROR) << "requestCommand: Failed to sendRequest:\n"
                           << headerText(request) << body;
        DBG_LOG(SEV_ERROR) << "requestCommand: FCODE=" << Hex{result};
        return result;
    }
    if (response.ID == request.ID && response.Type == kTypeAck)
        return response.Fcode;
    DBG_LOG(SEV_ERROR) << "requestCommand: Request Header was:\n" << headerText(request);
    DBG_LOG(SEV_ERROR) << "requestCommand: Response Header mismatch:\n" << headerText(response);
    return FC_HEADER_ERROR;
}

Fcodes DataCommunicator::requestSubscribe(const std::string& responderPath)
{
    std::string response;
    return requestCommand(responderPath, subscribeCommand(mSockName), response, kSubscribeTimeout,
                          kSubscribeTries);
}

Fcodes DataCommunicator::requestEvent(const std::string& subscriberPath, const MessageEvent& event,
                                      int timeout, int tries)
{
    SocketAddress subscriber;
    const std::string text = eventMessage(event);
    if (subscriber.assign(subscriberPath) &&
        sendText(mReceiveSocket->descriptor(), text, subscriber, timeout, tries) == 0)
        return FC_OK;
    return logUnsent(text);
}

Fcodes DataCommunicator::logUnsent(const std::string& event)
{
    DBG_LOG(SEV_ERROR) << "requestEvent: Failed to sendMessage:\n" << event;
    DBG_LOG(SEV_ERROR) << "requestEvent: FCODE=" << FC_COMM_ERROR;
    return FC_COMM_ERROR;
}

void DataCommunicator::notify(MessageEvent& event)
{
    timeToString(std::time(nullptr), event.Time);

    std::shared_ptr<const SubscriberList::Addresses> subscribers;
    {
        const std::lock_guard guard(mSubscribersMutex);
        subscribers = mSubscribers->addresses();
    }
    const std::string text = eventMessage(event);
    const int socket = mReceiveSocket->descriptor();
    for (const SocketAddress& subscriber : *subscribers) {
        DBG_LOG(SEV_INFO) << "notify: event=" << event.ID << " to observer=" << subscriber.path();
        if (dbgEnabled(SEV_INFO))
            logSending(socket, text, subscriber);
        // From here, not below sendText(): right behind a system call each return is slow.
        const bool isFree = isReserveFree();
        if (isFree && admit(text) && sendDatagram(socket, text, subscriber, false))
            continue;
        if (const int error = isFree ? errno : EAGAIN; error == EAGAIN)
            logFull(subscriber, 1);
        else
            logStopped(subscriber, error);
        logUnsent(text);
    }
}

void DataCommunicator::timeToString(std::time_t time, std::string& out)
{
    out = toLocalTimeText(time);
}
