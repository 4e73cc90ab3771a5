#include "DataCommunicator.h"

#include "DbgLine.h"
#include "wire/AnswerQueue.h"
#include "wire/DatagramSocket.h"
#include "wire/MessageFrame.h"
#include "wire/PendingRequests.h"
#include "wire/RefusedSenders.h"
#include "wire/ResponseHistory.h"
#include "wire/SubscriberList.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace
{

constexpr char kUnit[] = "DataCommunicator";
constexpr std::size_t npos = std::string::npos;

constexpr int kSocketTimeout = 1;     // seconds that one transfer may block
constexpr int kSendBuffer = 64 << 20; // bytes; a bound, not a reservation
constexpr int kNoWaiting = -1;

[[noreturn]] void endProcess()
{
    // Kept on purpose: supervisors count on status 0 when the sockets cannot be made; they would
    // otherwise restart the process for ever.
    std::exit(0);
}

} // namespace

DataCommunicator::DataCommunicator()
    : mReceiveSocket(std::make_unique<DatagramSocket>()),
      mSendSocket(std::make_unique<DatagramSocket>()), mRefused(std::make_unique<RefusedSenders>()),
      mPending(std::make_unique<PendingRequests>()), mHistory(std::make_unique<ResponseHistory>()),
      mSubscribers(std::make_unique<SubscriberList>()), mAnswers(std::make_unique<AnswerQueue>())
{
}

DataCommunicator::~DataCommunicator() = default;

void DataCommunicator::init(IDataHolder* dataHolder, const std::string& sockName,
                            const std::string& sendSockName, const std::string& taskName)
{
    mDataHolder = dataHolder;
    mSockName = sockName;
    mSendSockName = sendSockName;
    mTaskName = taskName;
    openSendSocket();
    openReceiveSocket();

    // What peers leave unread is charged to the sender. With the usual buffer one that has stopped
    // reading could use it up, and nobody else would be answered; even of the larger one a quarter
    // is kept for short answers. The size of a message stays limited to what the usual buffer
    // holds.
    mSendLimit = mReceiveSocket->sendLimit();
    mReceiveSocket->growSendBuffer(kSendBuffer);
    mUnreadLimit = mReceiveSocket->sendLimit() / 4 * 3;
}

void DataCommunicator::openSendSocket()
{
    if (!mSendSocket->open()) {
        DBG_LOG(SEV_FATAL) << "init: Send Socket create failed";
        endProcess();
    }
    if (!mSendSocket->passCredentials())
        DBG_LOG(SEV_ERROR) << "init: setsockopt SO_PASSCRED failed";
    setTimeouts(*mSendSocket);
    if (!mSendSocket->bind(mSendSockName)) {
        DBG_LOG(SEV_FATAL) << "init: Socket bind failed to " << mSendSockName << " errno=" << errno;
        endProcess();
    }
    chmod(mSendSockName.c_str(), 0777);
}

void DataCommunicator::openReceiveSocket()
{
    if (!mReceiveSocket->open()) {
        DBG_LOG(SEV_FATAL) << "init: Socket create failed";
        endProcess();
    }
    if (!mReceiveSocket->passCredentials())
        DBG_LOG(SEV_ERROR) << "init: setsockopt SO_PASSCRED failed";
    if (!mReceiveSocket->bind(mSockName)) {
        DBG_LOG(SEV_FATAL) << "init: Socket bind failed to " << mSockName << " errno=" << errno;
        endProcess();
    }
    setTimeouts(*mReceiveSocket);
    chmod(mSockName.c_str(), 0777);
}

void DataCommunicator::setTimeouts(DatagramSocket& socket)
{
    if (!socket.setTimeout(SO_RCVTIMEO, kSocketTimeout))
        DBG_LOG(SEV_ERROR) << "init: setsockopt SO_RCVTIMEO failed";
    if (!socket.setTimeout(SO_SNDTIMEO, kSocketTimeout))
        DBG_LOG(SEV_ERROR) << "init: setsockopt SO_SNDTIMEO failed";
}

Fcodes DataCommunicator::readMsg(int socket, MessageHeader& header, std::string& body,
                                 sockaddr_un& sender, socklen_t& senderLength, int timeout, int)
{
    SocketAddress from;
    const Fcodes result = readMsg(socket, header, body, from, timeout);
    sender = from.address();
    senderLength = from.length();
    return result;
}

Fcodes DataCommunicator::readMsg(int socket, MessageHeader& header, std::string& body,
                                 SocketAddress& sender, int timeout)
{
    const WaitResult waited = waitReadable(socket, timeout);
    return waited == WaitResult::READABLE ? receiveMsg(socket, header, body, sender)
                                          : reportUnread(waited, socket, timeout);
}

Fcodes DataCommunicator::reportUnread(WaitResult waited, int socket, int timeout)
{
    if (waited == WaitResult::TIMED_OUT)
        DBG_LOG(SEV_ERROR) << "readMsg: Time out " << timeout << " sec. for sock=" << socket;
    else
        DBG_LOG(SEV_ERROR) << "readMsg: select failed errno=" << errno;
    return FC_COMM_ERROR;
}

/// The receive buffer of this thread. What is received is copied out before anything else runs: a
/// command may itself ask a peer and so receive on the same thread.
char* DataCommunicator::receiveBuffer()
{
    thread_local const auto buffer = std::make_unique_for_overwrite<char[]>(kMessageSizeLimit);
    return buffer.get();
}

Fcodes DataCommunicator::receiveMsg(int socket, MessageHeader& header, std::string& body,
                                    SocketAddress& sender, ucred* credentials)
{
    char* const buffer = receiveBuffer();
    const ssize_t count = receiveDatagram(socket, buffer, kMessageSizeLimit, sender, credentials);
    return takeDatagram(buffer, count, header, body, sender);
}

/// Reads what receiveDatagram() has left in the buffer, and in errno.
Fcodes DataCommunicator::takeDatagram(const char* buffer, ssize_t count, MessageHeader& header,
                                      std::string& body, const SocketAddress& sender)
{
    DBG_LOG(SEV_INFO) << "readMsg: recvfrom sock=" << sender.path()
                      << " senderlen=" << sender.length() << " readSize=" << count;
    if (count >= static_cast<ssize_t>(kMessageSizeLimit)) {
        DBG_LOG(SEV_ERROR) << "readMsg: MAX header size=" << kMessageSizeLimit
                           << " from sock=" << sender.path() << " errno=" << errno;
        return FC_COMM_ERROR;
    }
    if (count <= 0) {
        DBG_LOG(SEV_ERROR) << "readMsg: read error from sock=" << sender.path()
                           << " errno=" << errno;
        return FC_COMM_ERROR;
    }
    // Text ends at its first NUL.
    const std::string_view text(buffer, strnlen(buffer, static_cast<std::size_t>(count)));
    return parseMsg(text, header, body, sender);
}

Fcodes DataCommunicator::parseMsg(std::string_view text, MessageHeader& header, std::string& body,
                                  const SocketAddress& sender)
{
    std::string_view element;
    const std::size_t headerEnd = findSegment(text, 0, "HEADER", element);
    if (headerEnd == npos) {
        DBG_LOG(SEV_ERROR) << "readMsg: Not found tags HEADER in:\n"
                           << text << " from sock=" << sender.path();
        return FC_HEADER_ERROR;
    }
    DBG_LOG(SEV_INFO) << "readMsg: Msg Header:\n" << element;
    const Fcodes result = header.initFromString(element);
    if (result != FC_OK) {
        DBG_LOG(SEV_ERROR) << "readMsg: Header init failed from:\n"
                           << element << " from sock=" << sender.path();
        return result;
    }
    if (header.Size < 1)
        return FC_OK;
    if (findSegment(text, headerEnd, "BODY", element) == npos) {
        DBG_LOG(SEV_ERROR) << "readMsg: Not found tags BODY in:\n"
                           << text << " from sock=" << sender.path();
        return FC_BODY_ERROR;
    }
    body = element;
    DBG_LOG(SEV_INFO) << "readMsg: Msg Body:\n" << body;
    return FC_OK;
}

Fcodes DataCommunicator::sendMessage(int socket, const MessageHeader& header,
                                     const std::string& body, const sockaddr_un& receiver,
                                     socklen_t receiverLength, int retryDelay, int tries)
{
    const SocketAddress address(receiver, receiverLength);
    const int error = sendText(socket, messageText(header, body), address, retryDelay, tries);
    return error == 0 ? FC_OK : FC_COMM_ERROR;
}

bool DataCommunicator::fitsDatagram(const std::string& text) const
{
    if (text.size() <= mSendLimit)
        return true;
    errno = EMSGSIZE;
    return false;
}

/// The kernel is asked only when what has been sent since could have filled the rest.
bool DataCommunicator::isReserveFree()
{
    if (mBeforeReserve <= 0)
        mBeforeReserve = static_cast<std::int64_t>(mUnreadLimit) -
                         static_cast<std::int64_t>(mReceiveSocket->unreadBytes());
    return mBeforeReserve >= 0;
}

/// Counts what is about to be sent from the receive socket; false as fitsDatagram().
bool DataCommunicator::admit(const std::string& text)
{
    mBeforeReserve -= 2 * static_cast<std::int64_t>(text.size()) + 1024; // the kernel charges less
    return fitsDatagram(text);
}

/// Tries until the text is sent: 0, or the errno of the last try.
int DataCommunicator::sendText(int socket, const std::string& text, const SocketAddress& receiver,
                               int retryDelay, int tries)
{
    for (; tries > 0; --tries) {
        logSending(socket, text, receiver);
        const bool isFree = socket != mReceiveSocket->descriptor() || isReserveFree();
        const int error =
            isFree ? sendOnce(socket, text, receiver, retryDelay != kNoWaiting) : EAGAIN;
        if (error != EAGAIN)
            return error;
        logFull(receiver, tries);
        // Kept on purpose: callers count on a wait after each try, the last one too.
        if (retryDelay != kNoWaiting)
            std::this_thread::sleep_for(
                std::chrono::seconds(retryDelay == 0 ? kRetryDelay : retryDelay));
    }
    return EAGAIN;
}

/// One attempt: 0, or its errno. EAGAIN says that the receiver is full.
int DataCommunicator::sendOnce(int socket, const std::string& text, const SocketAddress& receiver,
                               bool mayWait)
{
    const bool isAdmitted =
        socket == mReceiveSocket->descriptor() ? admit(text) : fitsDatagram(text);
    if (isAdmitted && sendDatagram(socket, text, receiver, mayWait))
        return 0;
    const int error = errno;
    if (error != EAGAIN)
        logStopped(receiver, error);
    return error;
}

void DataCommunicator::logSending(int socket, const std::string& text,
                                  const SocketAddress& receiver)
{
    DBG_LOG(SEV_INFO) << "sendMessage: Sending msg via sockfd=" << socket
                      << " to sock=" << receiver.path() << " :\n"
                      << text;
}

void DataCommunicator::logStopped(const SocketAddress& receiver, int error)
{
    DBG_LOG(SEV_ERROR) << "sendMessage: in writing msg body to sock=" << receiver.path()
                       << " errno=" << error << " Stop sending.";
}

void DataCommunicator::logFull(const SocketAddress& receiver, int triesLeft)
{
    DBG_LOG(SEV_ERROR) << "sendMessage: in writing msg body to sock=" << receiver.path()
                       << " errno=" << EAGAIN << " tries left=" << triesLeft;
}

Fcodes DataCommunicator::readline(int socket, std::string& line, int timeout)
{
    for (char byte = 0; byte != '\n'; line.push_back(byte)) {
        const WaitResult waited = waitReadable(socket, timeout);
        if (waited == WaitResult::FAILED)
            DBG_LOG(SEV_ERROR) << "readLine: select failed for sock=" << socket;
        else if (waited == WaitResult::TIMED_OUT)
            DBG_LOG(SEV_ERROR) << "readLine: Time out " << timeout << " sec. for sock=" << socket;
        else if (read(socket, &byte, 1) == 1)
            continue;
        else
            DBG_LOG(SEV_ERROR) << "readLine: read error from sock=" << socket;
        DBG_LOG(SEV_ERROR) << "readLine: Till now read:" << line;
        return FC_COMM_ERROR;
    }
    return FC_OK;
}

void DataCommunicator::storeResponse(int id, const std::string& headerText, const std::string& body,
                                     const std::string& sender)
{
    const ResponseHistory::Sizes sizes = mHistory->store(id, {headerText, body, sender});
    logStored(sizes.queue, sizes.entries);
}

void DataCommunicator::logStored(std::size_t queued, std::size_t entries)
{
    DBG_LOG(SEV_SYS) << "**** storeResponse: stored=" << queued << " messages (hdrs=" << entries
                     << ",bds=" << entries << ",snds=" << entries << ")";
}

bool DataCommunicator::getResponse(int id, std::string& headerText, std::string& body,
                                   std::string& sender) const
{
    FiledResponse filed;
    if (!mHistory->find(id, filed))
        return false;
    headerText = std::move(filed.header);
    body = std::move(filed.body);
    sender = std::move(filed.sender);
    return true;
}
