#pragma once

// Connects this process with its peers over two datagram sockets: on the receive socket a thread of
// its own, the responder, serves requests, takes events and files answers; from the send socket any
// thread asks peers. A message is one datagram of fewer than 70000 bytes.
//
// Owned by a DataHolder, and told everything through IDataHolder, which is called on the responder
// thread. Once start() has been called it must live as long as the process: nothing stops the
// responder. Requests and notify() may come from any thread; init() comes first.
//
// Time-outs are whole seconds: -1 does not wait at all, 0 waits without limit.

#include "Fcodes.h"
#include "MessageCommand.h"
#include "MessageEvent.h"
#include "MessageHeader.h"

#include <atomic>
#include <cstddef>
#include <ctime>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

class DatagramSocket;
class IDataHolder;
class ResponseHistory;
class SocketAddress;

class DataCommunicator
{
public:
    DataCommunicator();
    ~DataCommunicator();

    DataCommunicator(const DataCommunicator&) = delete;
    DataCommunicator& operator=(const DataCommunicator&) = delete;

    /// Makes both sockets, taking their paths over from an earlier process. Ends the process, with
    /// status 0, when a socket cannot be made. The holder is not owned. Without one (null) its
    /// commands and data requests are answered "Unavailable" and events are dropped.
    void init(IDataHolder* dataHolder, const std::string& sockName, const std::string& sendSockName,
              const std::string& taskName);

    /// Starts the responder thread, which runs work(); that only calls doWork(), which never
    /// returns.
    void start();
    void work() { doWork(); }
    void doWork();

    IDataHolder* getDataHolder() const { return mDataHolder; }
    void setDataHolder(IDataHolder* dataHolder) { mDataHolder = dataHolder; }

    /// Asks the peer that listens on `responderPath`, and waits for its answer. `tries` attempts
    /// are made, each under an identifier of its own, which is left in the request's header. FC_OK
    /// says that an answer came; with a header of Size 0 the response body stays untouched.
    Fcodes sendRequest(const std::string& responderPath, MessageHeader& requestHeader,
                       const std::string& body, MessageHeader& responseHeader,
                       std::string& responseBody, int timeout, int tries);

    /// Sends a command (its element text); the result is the peer's own, or why there is none.
    Fcodes requestCommand(const std::string& responderPath, const std::string& commandText,
                          std::string& responseBody, int timeout, int tries);

    /// Asks for the peer's events, to be sent to this process's receive socket.
    Fcodes requestSubscribe(const std::string& responderPath);

    /// Read and write one data item of a peer. The peer's failure is part of the result, also when
    /// the item came.
    Fcodes requestDataItem(const std::string& responderPath, const std::string& table, int row,
                           const std::string& item, std::string& value, int timeout, int tries);
    Fcodes requestSetDataItem(const std::string& responderPath, const std::string& table, int row,
                              const std::string& item, const std::string& value, int timeout,
                              int tries);
    Fcodes requestGetParam(const std::string& responderPath, const std::string& dataSet,
                           const std::string& component, const std::string& row,
                           const std::string& item, std::string& value, int timeout, int tries);

    /// Events. notify() stamps the event with the local time and sends it to every observer in the
    /// order of subscription; one that is full, or gone, is skipped at once. An observer is listed
    /// once; there is no way off the list.
    Fcodes requestEvent(const std::string& observerPath, const MessageEvent& event, int timeout,
                        int tries);
    void notify(MessageEvent& event);
    void subscribe(const std::string& sockName);

    /// What the responder does with a message. treatMsg() serves a request and leaves its answer in
    /// the response; a result other than FC_OK says that the answer is a "NACK" of that code.
    Fcodes treatMsg(const MessageHeader& header, const std::string& body,
                    MessageHeader& responseHeader, std::string& responseBody);
    Fcodes treatCommandMsg(const MessageHeader& header, const std::string& body,
                           MessageHeader& responseHeader, std::string& responseBody);
    Fcodes treatDataMsg(const MessageHeader& header, const std::string& body,
                        MessageHeader& responseHeader, std::string& responseBody);
    Fcodes treatEventMsg(const MessageHeader& header, const std::string& body);

    /// Transfers on one socket. readMsg() leaves the body untouched when the header's Size is less
    /// than 1. sendMessage() tries again after `retryDelay` seconds while the receiver is full; a
    /// delay of -1 never waits, a delay of 0 is 10 seconds. readline() appends up to a line feed.
    Fcodes readMsg(int socket, MessageHeader& header, std::string& body, sockaddr_un& sender,
                   socklen_t& senderLength, int timeout, int unused = 3);
    Fcodes sendMessage(int socket, const MessageHeader& header, const std::string& body,
                       const sockaddr_un& receiver, socklen_t receiverLength, int retryDelay,
                       int tries);
    Fcodes readline(int socket, std::string& line, int timeout);

    /// Answers filed for whoever waits for them. getResponse() is false when nothing is filed, the
    /// outputs are then untouched.
    void storeResponse(int id, const std::string& headerText, const std::string& body,
                       const std::string& sender);
    bool getResponse(int id, std::string& headerText, std::string& body, std::string& sender) const;

    /// The form in which events carry a time.
    static void timeToString(std::time_t time, std::string& out);

private:
    void openSendSocket();
    void openReceiveSocket();
    void setTimeouts(DatagramSocket& socket);

    void serveNext();
    void serveRequest(const MessageHeader& header, const std::string& body,
                      const SocketAddress& sender);
    void rejectRequest(Fcodes reason, const MessageHeader& header, const std::string& body,
                       const std::string& responseBody, const SocketAddress& sender);
    void sendNack(const MessageHeader& nack, const SocketAddress& receiver);
    Fcodes runCommand(const std::string& body, std::string& result);

    Fcodes readMsg(int socket, MessageHeader& header, std::string& body, SocketAddress& sender,
                   int timeout);
    Fcodes receiveMsg(int socket, MessageHeader& header, std::string& body, SocketAddress& sender);
    Fcodes parseMsg(std::string_view text, MessageHeader& header, std::string& body,
                    const SocketAddress& sender);
    bool fitsDatagram(const std::string& text) const;
    int sendText(int socket, const std::string& text, const SocketAddress& receiver, int retryDelay,
                 int tries);
    Fcodes sendEventText(const std::string& observerPath, const std::string& text, int timeout,
                         int tries);

    Fcodes awaitResponse(const std::string& responderPath, const MessageHeader& requestHeader,
                         MessageHeader& responseHeader, std::string& responseBody, int timeout,
                         int tries);
    Fcodes checkHistoryAfterReadError(Fcodes failure, const std::string& responderPath,
                                      const MessageHeader& requestHeader,
                                      MessageHeader& responseHeader, std::string& responseBody);
    void fileForeignAnswer(const MessageHeader& header, const std::string& body,
                           const std::string& sender);
    static void logStored(std::size_t queued, std::size_t entries);

    std::string mSockName = "sockName";
    const std::unique_ptr<DatagramSocket> mReceiveSocket;
    std::string mSendSockName = "sendSockName";
    const std::unique_ptr<DatagramSocket> mSendSocket;
    std::string mTaskName = "tCom";
    std::size_t mSendLimit = static_cast<std::size_t>(-1); // no longer text is sent

    std::atomic<IDataHolder*> mDataHolder{nullptr};

    std::recursive_mutex mMutex; // held by the one requester that reads the send socket
    const std::unique_ptr<ResponseHistory> mHistory; // has a lock of its own

    mutable std::mutex mSubscribersMutex; // guards mSubscribers
    std::list<std::string> mSubscribers;
};
