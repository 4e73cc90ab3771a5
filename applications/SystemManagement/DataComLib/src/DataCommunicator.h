#pragma once

// Connects this process with its peers over two datagram sockets: on the receive socket the
// responder, a thread of its own, serves requests, takes events and files answers; from the send
// socket any thread sends requests to peers. A message is one datagram below kMessageSizeLimit: a
// longer one is sent while the socket takes it (about 208 KiB), but no reader here accepts it.
//
// Usually a member of a DataHolder, which it calls as IDataHolder on the responder thread. Once
// start() or keepSubscribed() has been called it must live as long as the process: nothing stops
// their threads.
//
// init() comes first, and once. After it any thread may call any operation; start(), work(),
// doWork() and setDataHolder() belong to the owner. A time-out is in whole seconds: -1 does not
// wait at all, 0 waits without limit, and with any other negative value reading fails. `tries`
// below 1 sends nothing and gives FC_COMM_ERROR. A socket path has at most 108 bytes; a longer one
// cannot be reached, which is FC_COMM_ERROR.

#include "Fcodes.h"
#include "MessageCommand.h"
#include "MessageEvent.h"
#include "MessageHeader.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

/// In bytes: a message must be shorter, header included.
inline constexpr std::size_t kMessageSizeLimit = 70000;

class AnswerQueue;
class DatagramSocket;
class IAccessPolicy;
class IDataHolder;
class PendingRequest;
class PendingRequests;
class RefusedSenders;
class ResponseHistory;
class SocketAddress;
class SubscriberList;
enum class WaitResult;
struct Answer;
struct AnswerTurn;
struct FiledResponse;

class DataCommunicator
{
public:
    DataCommunicator();
    ~DataCommunicator();

    DataCommunicator(const DataCommunicator&) = delete;
    DataCommunicator& operator=(const DataCommunicator&) = delete;

    /// Makes both sockets, with mode 0777, and takes their paths over from an earlier process. Ends
    /// the process, with status 0, when a socket cannot be made. `taskName` names the responder in
    /// log lines. The holder is not owned and must live as long as messages come. Without one
    /// (null) what it would carry out is answered FC_UNAVAILABLE, and events are dropped.
    void init(IDataHolder* dataHolder, const std::string& sockName, const std::string& sendSockName,
              const std::string& taskName);

    /// Starts the responder thread, which runs work(); that only calls doWork(), which never
    /// returns. False, and a log line, when no thread can be made: nobody is served until a later
    /// call succeeds. It does not wait for that, since the caller may have to bring the device up
    /// meanwhile; DataHolder::startMissingThreads() does. True at once when the responder runs, and
    /// every peer of keepSubscribed() has its thread.
    bool start();
    void work() { doWork(); }
    void doWork();

    /// The holder of init(), or another one from the next message on; null as there.
    IDataHolder* getDataHolder() const { return mDataHolder; }
    void setDataHolder(IDataHolder* dataHolder) { mDataHolder = dataHolder; }

    /// Who may have COMMANDs, SETs and EVENTs carried out, and who may own the sockets that are
    /// asked; null, as at first: everybody. A refused command is answered with an ACK, a refused
    /// SET with a NACK, both FC_ACCESS_DENIED, a refused event is dropped, and a request to a
    /// refused owner cannot be sent. The policy is not owned and must live as long as the process.
    void setAccessPolicy(IAccessPolicy* policy) { mAccessPolicy = policy; }

    /// Sends a request to the peer whose receive socket is `responderPath` and waits for the
    /// answer. Each of the `tries` sends it under a new ID, which is left in the request's header,
    /// and waits for `timeout`: anew when another's answer has been read, but no longer than twice
    /// the time-out in all. What is unreadable and comes from elsewhere is only logged. Other
    /// threads may ask meanwhile. While the peer's queue is full the sending itself is tried again,
    /// as of sendMessage() with `timeout` as the delay; a request that cannot be sent ends at once.
    ///
    /// FC_OK says that an answer came, of whatever type and code; with Size 0 in its header the
    /// response body stays untouched, or becomes empty when the answer had been filed. Else
    /// FC_COMM_ERROR: the peer cannot be reached or did not answer; or what readMsg() returns for a
    /// bad answer, and then the response header carries the request's type and ID, and the failure.
    Fcodes sendRequest(const std::string& responderPath, MessageHeader& requestHeader,
                       const std::string& body, MessageHeader& responseHeader,
                       std::string& responseBody, int timeout, int tries);

    /// Sends a command (its element text). The result is the code of the peer's ACK, a failure of
    /// sendRequest(), or FC_HEADER_ERROR when the answer is no ACK, such as a NACK.
    Fcodes requestCommand(const std::string& responderPath, const std::string& commandText,
                          std::string& responseBody, int timeout, int tries);

    /// Asks the peer to send its events to this process's receive socket, with a time-out of 10 and
    /// 3 tries; results as of requestCommand(). The peer forgets it when it ends.
    Fcodes requestSubscribe(const std::string& responderPath);

    /// Keeps this process subscribed to the peer's events from here on: as of requestSubscribe() at
    /// once, within a second of a restart of the peer, which shows in its socket file, and 30 s
    /// after each answer or failure. A peer that is not there is waited for, without a log line.
    /// Events that it raised in between are missed, so `onSubscribed`, unless empty, is called
    /// after the first answer of each process of the peer: what must not be missed is read again
    /// there. That is on the peer's own thread; the call may send requests and take its time, and
    /// must not throw. Asking for a path twice keeps the first.
    ///
    /// False, and a log line, when the system has no thread for it: start() tries again.
    bool keepSubscribed(const std::string& responderPath, std::function<void()> onSubscribed = {});

    /// Read and write one data item of a peer. FC_OK, or the joined codes of what failed: those of
    /// sendRequest(), FC_HEADER_ERROR when the answer is no RESPONSE (a refused request is answered
    /// with a NACK), FC_BODY_ERROR when the item is not in it, and the peer's own code, also when
    /// the item came. `value` is written whenever the item came. A write that succeeded is
    /// FC_BODY_ERROR: its answer has no body.
    Fcodes requestDataItem(const std::string& responderPath, const std::string& table, int row,
                           const std::string& item, std::string& value, int timeout, int tries);
    Fcodes requestSetDataItem(const std::string& responderPath, const std::string& table, int row,
                              const std::string& item, const std::string& value, int timeout,
                              int tries);
    Fcodes requestGetParam(const std::string& responderPath, const std::string& dataSet,
                           const std::string& component, const std::string& row,
                           const std::string& item, std::string& value, int timeout, int tries);

    /// Sends an event, with the Time that it has, to one subscriber; no answer is awaited.
    /// FC_COMM_ERROR when it could not be sent; `timeout` is the delay between tries while the
    /// subscriber's queue is full, as of sendMessage().
    Fcodes requestEvent(const std::string& subscriberPath, const MessageEvent& event, int timeout,
                        int tries);

    /// Sets the event's Time to the local time and sends it to every subscriber in the order of
    /// subscription. One that is full, or gone, is skipped at once and only logged.
    void notify(MessageEvent& event);

    /// Adds a subscriber's receive socket at the end of the list; a path that is listed already
    /// moves there. There is no way off the list. A path that no socket can have is not kept, and
    /// beyond 20000 none is added, which is logged. Of what the requests of one user add no more
    /// than 100 are kept, unless the kernel names root, this process's user or the owner of a
    /// socket that has been asked; paths where nothing is any more make room for others then.
    void subscribe(const std::string& sockName);

    /// What the responder does with a message, on the calling thread. treatMsg() serves a request
    /// and leaves the answer in the response; a result other than FC_OK says that a NACK of that
    /// code is to be sent instead. treatCommandMsg() returns the code that it also leaves in its
    /// ACK; `responseBody` must be empty on entry. An answer to a GET that no socket could send is
    /// left incomplete. A GET in which more than 10000 items cannot be read is given up with
    /// FC_UNAVAILABLE.
    Fcodes treatMsg(const MessageHeader& header, const std::string& body,
                    MessageHeader& responseHeader, std::string& responseBody);
    Fcodes treatCommandMsg(const MessageHeader& header, const std::string& body,
                           MessageHeader& responseHeader, std::string& responseBody);
    Fcodes treatDataMsg(const MessageHeader& header, const std::string& body,
                        MessageHeader& responseHeader, std::string& responseBody);
    Fcodes treatEventMsg(const MessageHeader& header, const std::string& body);

    /// Takes the next datagram from a socket. The sender's address is written in any case, with
    /// length 0 when none came; a header that fails leaves what was read before it, and the body is
    /// untouched unless one was read: not when the header's Size is less than 1. FC_COMM_ERROR
    /// after a time-out, a failed read or kMessageSizeLimit bytes and more; FC_HEADER_ERROR or
    /// FC_BODY_ERROR when that element is missing. The last argument is not used.
    Fcodes readMsg(int socket, MessageHeader& header, std::string& body, sockaddr_un& sender,
                   socklen_t& senderLength, int timeout, int unused = 3);

    /// Sends header and body as one datagram. While the receiver is full it tries again after
    /// `retryDelay` seconds; a delay of -1 never waits, a delay of 0 is 10 seconds, and the last
    /// try is followed by a wait too. FC_COMM_ERROR after the last try, and at once for any other
    /// reason, such as nobody there or a message longer than the socket sends (about 208 KiB).
    Fcodes sendMessage(int socket, const MessageHeader& header, const std::string& body,
                       const sockaddr_un& receiver, socklen_t receiverLength, int retryDelay,
                       int tries);

    /// Appends what it reads up to and including a line feed, each byte within the time-out;
    /// FC_COMM_ERROR leaves what was read before.
    Fcodes readline(int socket, std::string& line, int timeout);

    /// The last ten answers to requests of this process, for the threads that wait for them.
    /// Storing one more drops the oldest. A request takes the last answer of the peer that it
    /// asked, else the last one. getResponse() gives the last one, or is false when nothing is
    /// stored under the ID, and the outputs are then untouched; what is read stays stored.
    /// The responder stores an answer only when its sender is root, this process's user or the
    /// owner of the socket to which the request went. So do requests with what they read for
    /// others, and no other answer completes one.
    void storeResponse(int id, const std::string& headerText, const std::string& body,
                       const std::string& sender);
    bool getResponse(int id, std::string& headerText, std::string& body, std::string& sender) const;

    /// The form in which events carry a time: "05-Mar-24  14:07:09", local, two blanks.
    static void timeToString(std::time_t time, std::string& out);

private:
    /// Seconds between two tries while a receiver is full, where the caller gives none.
    static constexpr int kRetryDelay = 10;

    void openSendSocket();
    void openReceiveSocket();
    void setTimeouts(DatagramSocket& socket);

    bool serveNext(bool waits);
    bool mayRequest(const MessageHeader& header, const std::string& body,
                    const SocketAddress& sender, const ucred& credentials);
    bool mayAnswer(int id, const ucred& credentials);
    std::optional<uid_t> limitedUser(const ucred& sender);
    void logRefused();
    void serveRequest(const MessageHeader& header, std::string body, const SocketAddress& sender,
                      bool isAllowed);

    void sendAnswer(Answer answer);
    int offerAnswer(const Answer& answer);
    void finishAnswer(const Answer& answer, int error);
    bool startSender();
    void sendWaitingAnswers();
    void takeTurn(AnswerTurn turn, std::unique_lock<std::mutex>& lock);

    Fcodes runCommand(const std::string& body, std::string& result);

    Fcodes readMsg(int socket, MessageHeader& header, std::string& body, SocketAddress& sender,
                   int timeout);
    Fcodes receiveMsg(int socket, MessageHeader& header, std::string& body, SocketAddress& sender,
                      ucred* credentials = nullptr);
    Fcodes takeDatagram(const char* buffer, ssize_t count, MessageHeader& header, std::string& body,
                        const SocketAddress& sender);
    static char* receiveBuffer();
    static Fcodes reportUnread(WaitResult waited, int socket, int timeout);
    Fcodes parseMsg(std::string_view text, MessageHeader& header, std::string& body,
                    const SocketAddress& sender);
    bool fitsDatagram(const std::string& text) const;
    bool isReserveFree();
    int sendText(int socket, const std::string& text, const SocketAddress& receiver, int retryDelay,
                 int tries);
    int sendOnce(int socket, const std::string& text, const SocketAddress& receiver, bool mayWait);
    static void logSending(int socket, const std::string& text, const SocketAddress& receiver);
    bool admit(const std::string& text);
    static void logStopped(const SocketAddress& receiver, int error);
    static void logFull(const SocketAddress& receiver, int triesLeft);
    static Fcodes logUnsent(const std::string& event);

    bool mayBeAsked(const std::string& responderPath);
    Fcodes awaitResponse(PendingRequest& request, const MessageHeader& requestHeader,
                         MessageHeader& responseHeader, std::string& responseBody, int tries);
    bool readResponse(const PendingRequest& request, MessageHeader& responseHeader,
                      std::string& responseBody, int tries);
    bool findResponse(const PendingRequest& request, FiledResponse& response) const;
    Fcodes checkHistoryAfterReadError(Fcodes failure, const PendingRequest& request,
                                      const MessageHeader& requestHeader,
                                      MessageHeader& responseHeader, std::string& responseBody);
    void fileForeignAnswer(const MessageHeader& header, const std::string& body,
                           const std::string& sender);
    static void logStored(std::size_t queued, std::size_t entries);

    /// A peer of keepSubscribed(); what is in it does not change while its thread runs.
    struct KeptPeer {
        std::string path;
        std::function<void()> onSubscribed;
        bool hasThread = false;
    };

    bool startKeeping(KeptPeer& peer);
    [[noreturn]] void renewSubscriptions(const KeptPeer& peer);

    std::string mSockName = "sockName";
    const std::unique_ptr<DatagramSocket> mReceiveSocket;
    std::string mSendSockName = "sendSockName";
    const std::unique_ptr<DatagramSocket> mSendSocket;
    std::string mTaskName = "tCom";
    std::size_t mSendLimit = static_cast<std::size_t>(-1); // no longer text is sent
    std::size_t mUnreadLimit = 0; // of what is no short answer; the rest is the reserve
    std::atomic<std::int64_t> mBeforeReserve{0}; // bytes that may be sent without asking the kernel

    std::atomic<IDataHolder*> mDataHolder{nullptr};

    std::atomic<IAccessPolicy*> mAccessPolicy{nullptr};
    const std::unique_ptr<RefusedSenders> mRefused; // the responder's

    const std::unique_ptr<PendingRequests> mPending; // has a lock of its own, held while reading
    const std::unique_ptr<ResponseHistory> mHistory; // has a lock of its own

    mutable std::mutex mSubscribersMutex; // guards mSubscribers
    const std::unique_ptr<SubscriberList> mSubscribers;

    bool mResponderRuns = false; // the owner's

    std::mutex mKeptPeersMutex;     // guards mKeptPeers
    std::list<KeptPeer> mKeptPeers; // their threads hold pointers into it

    std::mutex mAnswersMutex; // guards everything below
    std::condition_variable mAnswerAdded;
    const std::unique_ptr<AnswerQueue> mAnswers;
    bool mSenderRuns = false;
};
