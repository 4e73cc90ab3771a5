// The requester's side of the communicator: requests to peers, and events for subscribers.

#include "DataCommunicator.h"

#include "DbgLine.h"
#include "base/LocalTime.h"
#include "wire/DatagramSocket.h"
#include "wire/MessageFrame.h"
#include "wire/ResponseHistory.h"

#include <atomic>
#include <cstdint>
#include <utility>

namespace
{

constexpr char kUnit[] = "DataCommunicator";
constexpr int kNoWaiting = -1;
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
        const Fcodes sendResult =
            isValidPath ? sendMessage(mSendSocket->descriptor(), requestHeader, body,
                                      responder.address(), responder.length(), timeout, tries)
                        : FC_COMM_ERROR;
        if (sendResult != FC_OK) {
            DBG_LOG(SEV_ERROR) << "sendRequest: Error in sending to sock:" << responderPath
                               << " fcode=" << Hex{sendResult};
            return sendResult;
        }
        result = awaitResponse(responderPath, requestHeader, responseHeader, responseBody, timeout,
                               tries);
    }
    return result;
}

Fcodes DataCommunicator::awaitResponse(const std::string& responderPath,
                                       const MessageHeader& requestHeader,
                                       MessageHeader& responseHeader, std::string& responseBody,
                                       int timeout, int tries)
{
    const std::lock_guard guard(mMutex);
    FiledResponse filed;
    // Kept on purpose: requesters whose answers are read by others count on the time-out starting
    // anew after each foreign answer.
    while (!mHistory->findAnswer(requestHeader.ID, responderPath, filed)) {
        MessageHeader header;
        std::string body;
        SocketAddress from;
        const Fcodes readResult = readMsg(mSendSocket->descriptor(), header, body, from, timeout);
        if (readResult != FC_OK)
            return checkHistoryAfterReadError(readResult, responderPath, requestHeader,
                                              responseHeader, responseBody);

        const std::string sender = from.path();
        if (sender == responderPath && header.ID == requestHeader.ID) {
            responseHeader = header;
            if (header.Size > 0)
                responseBody = std::move(body);
            return FC_OK;
        }
        DBG_LOG(SEV_ERROR) << "sendRequest: Responder=" << sender << "!=" << responderPath
                           << " or respID=" << header.ID << "!=" << requestHeader.ID
                           << " retries left=" << tries;
        fileForeignAnswer(header, body, sender);
    }
    DBG_LOG(SEV_SYS) << "sendRequest: **** found in history *** id=" << requestHeader.ID
                     << " sender=" << filed.sender << " resp=" << filed.body;
    takeStored(filed, responseHeader, responseBody);
    return FC_OK;
}

Fcodes DataCommunicator::checkHistoryAfterReadError(Fcodes failure,
                                                    const std::string& responderPath,
                                                    const MessageHeader& requestHeader,
                                                    MessageHeader& responseHeader,
                                                    std::string& responseBody)
{
    FiledResponse filed;
    if (mHistory->findAnswer(requestHeader.ID, responderPath, filed)) {
        DBG_LOG(SEV_ERROR) << "sendRequest: **** found in history after read=err *** id="
                           << requestHeader.ID << " sender=" << filed.sender
                           << " resp=" << filed.body;
        takeStored(filed, responseHeader, responseBody);
        return FC_OK;
    }
    DBG_LOG(SEV_ERROR) << "sendRequest: Error in readMsg from sock:" << responderPath
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
    const ResponseHistory::Sizes sizes =
        mHistory->storeReadByRequester(header.ID, {headerText(header), body, sender});
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
    return sendEventText(subscriberPath, eventMessage(event), timeout, tries);
}

Fcodes DataCommunicator::sendEventText(const std::string& subscriberPath, const std::string& text,
                                       int timeout, int tries)
{
    SocketAddress subscriber;
    if (subscriber.assign(subscriberPath) &&
        sendText(mReceiveSocket->descriptor(), text, subscriber, timeout, tries) == 0)
        return FC_OK;
    DBG_LOG(SEV_ERROR) << "requestEvent: Failed to sendMessage:\n" << text;
    DBG_LOG(SEV_ERROR) << "requestEvent: FCODE=" << FC_COMM_ERROR;
    return FC_COMM_ERROR;
}

void DataCommunicator::notify(MessageEvent& event)
{
    timeToString(std::time(nullptr), event.Time);

    std::list<std::string> subscribers;
    {
        const std::lock_guard guard(mSubscribersMutex);
        subscribers = mSubscribers;
    }
    const std::string text = eventMessage(event);
    for (const std::string& subscriber : subscribers) {
        DBG_LOG(SEV_INFO) << "notify: event=" << event.ID << " to observer=" << subscriber;
        sendEventText(subscriber, text, kNoWaiting, 1);
    }
}

void DataCommunicator::timeToString(std::time_t time, std::string& out)
{
    out = toLocalTimeText(time);
}
