// The responder's side of the communicator: what arrives on the receive socket.

#include "DataCommunicator.h"

#include "DbgLine.h"
#include "IAccessPolicy.h"
#include "IDataHolder.h"
#include "wire/AnswerQueue.h"
#include "wire/DataRequestHandler.h"
#include "wire/DatagramSocket.h"
#include "wire/MessageFrame.h"
#include "wire/PendingRequests.h"
#include "wire/RefusedSenders.h"
#include "wire/SubscriberList.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <sys/prctl.h>
#include <system_error>
#include <thread>
#include <utility>

namespace
{

constexpr char kUnit[] = "DataCommunicator";
constexpr std::size_t npos = std::string::npos;

constexpr int kResponderWait = 10;
constexpr int kRefusedWait = 1; // while a line may be due
constexpr std::size_t kShortAnswer = 4096;
/// Who has sent the request that this thread serves; null on any other thread.
thread_local const ucred* requester = nullptr;

constexpr int kPrintEverything = 0;
constexpr int kPrintNothing = 5;

/// Answers to requests of this process; everything else but an event is a request.
constexpr std::array<std::string_view, 4> kAnswerTypes = {kTypeAck, kTypeNack, kTypeResponse,
                                                          kTypeNoReply};

bool isAnswer(const std::string& type)
{
    return std::ranges::find(kAnswerTypes, type) != kAnswerTypes.end();
}

Answer refusal(int id, Fcodes reason, const SocketAddress& receiver)
{
    MessageHeader header;
    header.ID = id;
    header.Type = kTypeNack;
    header.Fcode = reason;
    Answer nack{receiver, headerText(header)};
    nack.kind = Answer::Kind::REFUSAL;
    nack.id = id;
    return nack;
}

/// The ID of the command that runCommand() would run; empty when it would not find one.
std::string_view commandId(std::string_view body)
{
    std::string_view element;
    std::string_view id;
    if (findSegment(body, 0, "BODY", element) != npos &&
        findSegment(element, 0, "Command", element) != npos)
        findPropertyValue(element, 0, "ID", id);
    return id;
}

/// The answer to what the policy refuses. To the sender it is an answer like any other: FC_OK.
Fcodes denyAccess(const MessageHeader& request, MessageHeader& response)
{
    response.ID = request.ID;
    response.Type = request.Type == kTypeCommand ? kTypeAck : kTypeNack;
    response.Fcode = FC_ACCESS_DENIED;
    return FC_OK;
}

// Commands of the communicator itself. Their results carry no text.

Fcodes addSubscriber(DataCommunicator& communicator, const std::string& command)
{
    std::string parameter;
    if (getSegment(command, 0, "Parameter", parameter) == npos) {
        DBG_LOG(SEV_ERROR) << "treatCommandMsg: Not found tags Parameter in:\n" << command;
        return FC_BODY_ERROR;
    }
    std::string name;
    std::string value;
    getPropertyValue(parameter, 0, "Name", name);
    if (getPropertyValue(parameter, 0, "Value", value) == npos || name != kParamSockName) {
        DBG_LOG(SEV_ERROR) << "treatCommandMsg: Not found tags Name=SockName or Value in:\n"
                           << parameter;
        return FC_BODY_ERROR;
    }
    communicator.subscribe(value);
    return FC_OK;
}

/// Calls `onRow` where the command names a row, else `onTable`. The row that the holder returns is
/// not passed back.
Fcodes callOnTable(DataCommunicator& communicator, const std::string& text,
                   int (IDataHolder::*onRow)(const std::string& table, int row),
                   int (IDataHolder::*onTable)(const std::string& table))
{
    MessageCommand command;
    std::string table;
    std::string row;
    if (command.initFromString(text) != FC_OK || !command.getParam("Table", table))
        return FC_BODY_ERROR;
    IDataHolder* const holder = communicator.getDataHolder();
    if (holder == nullptr)
        return FC_UNAVAILABLE;
    if (command.getParam("Row", row))
        (holder->*onRow)(table, textToInt(row));
    else
        (holder->*onTable)(table);
    return FC_OK;
}

Fcodes addRow(DataCommunicator& communicator, const std::string& command)
{
    return callOnTable(communicator, command, &IDataHolder::newRow, &IDataHolder::appendNewRow);
}

Fcodes getNextRow(DataCommunicator& communicator, const std::string& command)
{
    return callOnTable(communicator, command, &IDataHolder::getNextRowIndex,
                       &IDataHolder::getFirstRowIndex);
}

Fcodes stopDbgPrint(DataCommunicator&, const std::string&)
{
    gDbgLevel = kPrintNothing;
    return FC_OK;
}

Fcodes startDbgPrint(DataCommunicator&, const std::string&)
{
    gDbgLevel = kPrintEverything;
    return FC_OK;
}

struct CommandEntry {
    std::string_view id;
    Fcodes (*run)(DataCommunicator& communicator, const std::string& command);
};

/// Every other command is the holder's.
constexpr std::array<CommandEntry, 5> kCommands = {{
    {kCommandSubscribe, addSubscriber},
    {kCommandAddRow, addRow},
    {kCommandGetNextRow, getNextRow},
    {kCommandStopDbgPrint, stopDbgPrint},
    {kCommandStartDbgPrint, startDbgPrint},
}};

} // namespace

bool DataCommunicator::start()
{
    try {
        if (!mResponderRuns)
            std::thread(&DataCommunicator::work, this).detach();
        mResponderRuns = true;
    } catch (const std::system_error& error) {
        DBG_LOG(SEV_ERROR) << "start: responder thread create failed errno="
                           << error.code().value();
    }
    const std::lock_guard guard(mKeptPeersMutex);
    bool allRun = mResponderRuns;
    for (KeptPeer& peer : mKeptPeers)
        allRun = startKeeping(peer) && allRun;
    return allRun;
}

void DataCommunicator::doWork()
{
    setTaskName(currentTaskId(), mTaskName);
    prctl(PR_SET_NAME, "DataCommunicator"); // the kernel keeps the first 15 characters
    for (;;) {
        const int wait = mRefused->isEmpty() ? kResponderWait : kRefusedWait;
        switch (waitReadable(mReceiveSocket->descriptor(), wait)) {
        case WaitResult::READABLE:
            // While requests come the read itself waits for the next one: a call less for each.
            for (bool waits = false; serveNext(waits); waits = true)
                if (!mRefused->isEmpty())
                    logRefused();
            break;
        case WaitResult::TIMED_OUT:
            break;
        case WaitResult::FAILED:
            DBG_LOG(SEV_ERROR) << "doWork: select failed before recv msg or event errno=" << errno;
            std::this_thread::sleep_for(std::chrono::seconds(1));
            break;
        }
        if (!mRefused->isEmpty())
            logRefused();
    }
}

/// False when no datagram came; unless it waits that is an error.
bool DataCommunicator::serveNext(bool waits)
{
    MessageHeader header;
    std::string body;
    SocketAddress sender;
    ucred credentials{};
    // Until a command or an event is carried out, which may start processes.
    std::optional<DbgBurst> burst(std::in_place);
    char* const buffer = receiveBuffer();
    const ssize_t count = receiveDatagram(mReceiveSocket->descriptor(), buffer, kMessageSizeLimit,
                                          sender, &credentials, waits);
    if (count < 0 && waits)
        return false;
    const Fcodes result = takeDatagram(buffer, count, header, body, sender);
    const bool isAllowed = result == FC_OK && mayRequest(header, body, sender, credentials);
    if (header.Type == kTypeCommand || header.Type == kTypeEvent)
        burst.reset();
    if (result != FC_OK) {
        DBG_LOG(SEV_ERROR) << "doWork: readMsg failed from sock=" << sender.path()
                           << " fcode=" << Hex{result};
        DBG_LOG(SEV_ERROR) << "doWork: msg header:\n" << headerText(header);
        DBG_LOG(SEV_ERROR) << "doWork: msg body:\n" << body;
    } else if (header.Type == kTypeEvent) {
        DBG_LOG(SEV_INFO) << "doWork: Event arrived: msg header:\n" << headerText(header);
        DBG_LOG(SEV_INFO) << "doWork: msg body:\n" << body;
        if (isAllowed)
            treatEventMsg(header, body);
    } else if (isAnswer(header.Type) && !mayAnswer(header.ID, credentials)) {
        DBG_LOG(SEV_ERROR) << "doWork: answer ignored from sock=" << sender.path()
                           << " id=" << header.ID << " uid=" << credentials.uid;
    } else if (isAnswer(header.Type)) {
        storeResponse(header.ID, headerText(header), body, sender.path());
        DBG_LOG(SEV_SYS) << "doWork: **** stored in history *** id=" << header.ID
                         << " sender=" << sender.path() << " msg=" << body;
    } else {
        requester = &credentials;
        serveRequest(header, std::move(body), sender, isAllowed);
        requester = nullptr;
    }
    return count >= 0;
}

bool DataCommunicator::mayRequest(const MessageHeader& header, const std::string& body,
                                  const SocketAddress& sender, const ucred& credentials)
{
    const std::string& type = header.Type;
    IAccessPolicy* const policy = mAccessPolicy;
    if (policy == nullptr || (type != kTypeCommand && type != kTypeSet && type != kTypeEvent))
        return true;
    const std::string_view command = type == kTypeCommand ? commandId(body) : "";
    if (policy->mayRequest(credentials, type, command))
        return true;
    mRefused->add(credentials.uid, sender.path(), type, command);
    return false;
}

bool DataCommunicator::mayAnswer(int id, const ucred& credentials)
{
    const PendingRequests::Lock lock = mPending->lock();
    return mPending->mayAnswer(id, credentials);
}

void DataCommunicator::logRefused()
{
    while (const auto refused = mRefused->next(std::chrono::steady_clock::now()))
        DBG_LOG(SEV_ERROR) << "doWork: Refused by the policy from sock=" << refused->path
                           << " uid=" << refused->user << " request=" << refused->request
                           << " times=" << refused->times;
}

void DataCommunicator::serveRequest(const MessageHeader& header, std::string body,
                                    const SocketAddress& sender, bool isAllowed)
{
    MessageHeader responseHeader;
    std::string responseBody;
    const Fcodes result = isAllowed ? treatMsg(header, body, responseHeader, responseBody)
                                    : denyAccess(header, responseHeader);
    if (result != FC_OK) {
        DBG_LOG(SEV_ERROR) << "doWork: treatMsg failed from sock=" << sender.path()
                           << " id=" << header.ID << " req=" << body << " fcode=" << result;
        Answer nack = refusal(header.ID, result, sender);
        nack.refusedBody = std::move(responseBody);
        sendAnswer(std::move(nack));
        return;
    }
    Answer answer{sender, messageText(responseHeader, responseBody)};
    answer.bodyAt = answer.text.size() - responseBody.size();
    answer.id = header.ID;
    answer.request = std::move(body);
    sendAnswer(std::move(answer));
}

/// Sends it now, or leaves it to the sender thread while its receiver is full.
void DataCommunicator::sendAnswer(Answer answer)
{
    std::unique_lock lock(mAnswersMutex);
    // One that no socket sends is refused at once, so that its NACK has its place in the order.
    const bool joins = mAnswers->isWaiting(answer.receiver) && fitsDatagram(answer.text);
    if (!joins) {
        lock.unlock();
        logSending(mReceiveSocket->descriptor(), answer.text, answer.receiver);
        if (const int error = offerAnswer(answer); error != EAGAIN)
            return finishAnswer(answer, error);
        lock.lock();
    }
    if (startSender() && mAnswers->add(answer, std::chrono::steady_clock::now(), !joins))
        return mAnswerAdded.notify_one();
    lock.unlock();
    finishAnswer(answer, EAGAIN);
}

int DataCommunicator::offerAnswer(const Answer& answer)
{
    if (answer.text.size() > kShortAnswer && fitsDatagram(answer.text) && !isReserveFree())
        return EAGAIN;
    return sendOnce(mReceiveSocket->descriptor(), answer.text, answer.receiver, false);
}

/// The answer has been sent (0), or cannot be, for the reason given.
void DataCommunicator::finishAnswer(const Answer& answer, int error)
{
    if (answer.kind != Answer::Kind::RESPONSE) {
        if (error != 0)
            DBG_LOG(SEV_ERROR) << "doWork: response failed to sock=" << answer.receiver.path()
                               << " fcode=" << FC_COMM_ERROR;
        if (answer.kind == Answer::Kind::REFUSAL_OF_LENGTH)
            return;
        DBG_LOG(SEV_ERROR) << "doWork: response header:\n" << answer.text;
        DBG_LOG(SEV_ERROR) << "doWork: response body:\n" << answer.refusedBody;
    } else if (error != 0) {
        DBG_LOG(SEV_ERROR) << "doWork: sending resp failed to sock=" << answer.receiver.path()
                           << " id=" << answer.id << " req=" << answer.request
                           << " resp=" << std::string_view(answer.text).substr(answer.bodyAt)
                           << " fcode=" << FC_COMM_ERROR;
        if (error != EMSGSIZE)
            return;
        Answer nack = refusal(answer.id, FC_UNAVAILABLE, answer.receiver);
        nack.kind = Answer::Kind::REFUSAL_OF_LENGTH;
        sendAnswer(std::move(nack));
    }
}

/// Starts the sender thread unless it runs; with the answers' lock held.
bool DataCommunicator::startSender()
{
    try {
        if (!mSenderRuns)
            std::thread(&DataCommunicator::sendWaitingAnswers, this).detach();
        mSenderRuns = true;
    } catch (const std::system_error& error) {
        DBG_LOG(SEV_ERROR) << "doWork: sender thread create failed errno=" << error.code().value();
    }
    return mSenderRuns;
}

void DataCommunicator::sendWaitingAnswers()
{
    setTaskName(currentTaskId(), mTaskName);
    prctl(PR_SET_NAME, "AnswerSender");
    for (std::unique_lock lock(mAnswersMutex);;) {
        if (const auto turn = mAnswers->turn(std::chrono::steady_clock::now()))
            takeTurn(*turn, lock);
        else if (const auto next = mAnswers->nextTurn(); next != AnswerQueue::Time::max())
            mAnswerAdded.wait_until(lock, next);
        else
            mAnswerAdded.wait(lock);
    }
}

/// Takes a turn, without the lock while it sends: only this thread removes answers.
void DataCommunicator::takeTurn(AnswerTurn turn, std::unique_lock<std::mutex>& lock)
{
    const Answer& answer = *turn.answer;
    lock.unlock();
    if (turn.step == AnswerTurn::Step::BEGIN_TRY)
        logSending(mReceiveSocket->descriptor(), answer.text, answer.receiver);
    const bool givesUp = turn.step == AnswerTurn::Step::GIVE_UP;
    const int error = givesUp ? EAGAIN : offerAnswer(answer);
    const bool isFinished = givesUp || error != EAGAIN;
    if (isFinished)
        finishAnswer(answer, error);

    lock.lock();
    const AnswerQueue::Time now = std::chrono::steady_clock::now();
    if (isFinished)
        return mAnswers->remove(answer.receiver, now);
    const int triesLeft = mAnswers->keep(answer.receiver, now);
    lock.unlock();
    if (triesLeft != 0)
        logFull(answer.receiver, triesLeft);
    lock.lock();
}

Fcodes DataCommunicator::treatMsg(const MessageHeader& header, const std::string& body,
                                  MessageHeader& responseHeader, std::string& responseBody)
{
    if (header.Type == kTypeGet)
        return treatDataMsg(header, body, responseHeader, responseBody);
    if (header.Type == kTypeSet) {
        const Fcodes result = treatDataMsg(header, body, responseHeader, responseBody);
        IDataHolder* const holder = mDataHolder;
        if (result != FC_OK && holder != nullptr)
            holder->rollbackChanges();
        return result;
    }
    if (header.Type == kTypeCommand) {
        // The answer is an ACK also when the command failed; it carries the command's result.
        treatCommandMsg(header, body, responseHeader, responseBody);
        return FC_OK;
    }
    responseHeader.Type = header.Type;
    responseHeader.ID = header.ID;
    responseHeader.Fcode = FC_HEADER_ERROR;
    responseHeader.Size = 0;
    return FC_HEADER_ERROR;
}

Fcodes DataCommunicator::treatDataMsg(const MessageHeader& header, const std::string& body,
                                      MessageHeader& responseHeader, std::string& responseBody)
{
    IDataHolder* const holder = mDataHolder;
    if (holder != nullptr)
        return treatDataRequest(*holder, header, body, responseHeader, responseBody, mSendLimit);
    responseHeader.Type = kTypeResponse;
    responseHeader.ID = header.ID;
    responseHeader.Fcode = FC_UNAVAILABLE;
    responseHeader.Size = 0;
    return FC_UNAVAILABLE;
}

Fcodes DataCommunicator::treatCommandMsg(const MessageHeader& header, const std::string& body,
                                         MessageHeader& responseHeader, std::string& responseBody)
{
    const Fcodes result = runCommand(body, responseBody);
    responseHeader.ID = header.ID;
    responseHeader.Type = kTypeAck;
    responseHeader.Fcode = result;
    // Kept on purpose: peers count on Size before the BODY tags are added, 13 bytes short.
    responseHeader.Size = static_cast<int>(responseBody.size());
    if (!responseBody.empty())
        responseBody.insert(0, "<BODY>").append("</BODY>");
    return result;
}

Fcodes DataCommunicator::runCommand(const std::string& body, std::string& result)
{
    std::string inner;
    if (getSegment(body, 0, "BODY", inner) == npos) {
        DBG_LOG(SEV_ERROR) << "treatCommandMsg: Not Found BODY tags in msg:\n" << body;
        return FC_BODY_ERROR;
    }
    std::string command;
    if (getSegment(inner, 0, "Command", command) == npos) {
        DBG_LOG(SEV_ERROR) << "treatCommandMsg: Not Found Command tags in msg:\n" << inner;
        return FC_BODY_ERROR;
    }
    std::string id;
    if (getPropertyValue(command, 0, "ID", id) == npos) {
        DBG_LOG(SEV_ERROR) << "treatCommandMsg: Not found tags ID in:\n" << command;
        return FC_BODY_ERROR;
    }
    for (const CommandEntry& entry : kCommands)
        if (id == entry.id)
            return entry.run(*this, command);
    IDataHolder* const holder = mDataHolder;
    return holder == nullptr ? FC_UNAVAILABLE : holder->execute(command, result) | FC_OK;
}

Fcodes DataCommunicator::treatEventMsg(const MessageHeader& header, const std::string& body)
{
    std::string inner;
    if (getSegment(body, 0, "BODY", inner) == npos) {
        DBG_LOG(SEV_ERROR) << "treatEventMsg: Not Found BODY tags in msg:\n" << body;
        return FC_BODY_ERROR;
    }
    if (header.Type != kTypeEvent)
        return FC_OK;

    std::string element;
    if (getSegment(inner, 0, "Event", element) == npos) {
        DBG_LOG(SEV_ERROR) << "treatEventMsg: Not Found Event tags in msg:\n" << inner;
        return FC_BODY_ERROR;
    }
    auto event = std::make_unique<MessageEvent>();
    const Fcodes result = event->initFromString(element);
    if (result != FC_OK) {
        DBG_LOG(SEV_ERROR) << "treatEventMsg: event initFromString error fcode=" << Hex{result};
        return result;
    }
    event->Fcode = header.Fcode;
    IDataHolder* const holder = mDataHolder;
    return holder == nullptr ? FC_UNAVAILABLE : holder->handle(event.release()) | FC_OK;
}

void DataCommunicator::subscribe(const std::string& sockName)
{
    DBG_LOG(SEV_INFO) << "subscribe: subscribing observer sockName=" << sockName;
    SocketAddress subscriber;
    if (!subscriber.assign(sockName))
        return; // no socket can have this path
    const std::optional<uid_t> user = requester == nullptr ? std::nullopt : limitedUser(*requester);
    const std::lock_guard guard(mSubscribersMutex);
    switch (mSubscribers->add(subscriber, user)) {
    case SubscriberList::Result::LISTED:
        break;
    case SubscriberList::Result::LIST_FULL:
        DBG_LOG(SEV_ERROR) << "subscribe: too many observers, not added sockName=" << sockName;
        break;
    case SubscriberList::Result::USER_FULL:
        DBG_LOG(SEV_ERROR) << "subscribe: too many observers of a user, not added sockName="
                           << sockName << " uid=" << *user;
        break;
    }
}

/// The user for whom subscriptions count; none for those without a limit.
std::optional<uid_t> DataCommunicator::limitedUser(const ucred& sender)
{
    const PendingRequests::Lock lock = mPending->lock();
    if (mPending->isSibling(sender))
        return std::nullopt;
    return sender.uid;
}
