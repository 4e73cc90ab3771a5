#include "CommunicatorFixture.h"
#include "wire/PendingRequests.h"

#include <filesystem>
#include <fstream>
#include <latch>
#include <thread>
#include <unistd.h>

namespace
{

using namespace testing;

constexpr int kNoWaiting = -1;
constexpr int kSeconds = 20;
constexpr uid_t kStrangersUid = 1000;
constexpr uid_t kNobody = 65534; // also stands for users that are not known here
constexpr char kAnswer[] = "<BODY>answer</BODY>";

class DataCommunicatorRequesterTest : public CommunicatorFixture
{
protected:
    static constexpr char kPeer[] = "/tmp/peer";

    /// Sends a command to the peer, which takes it and does what the script says; the result.
    Fcodes request(const std::function<void()>& script, int timeout = kSeconds)
    {
        mBody = "untouched";
        const std::jthread peer([&] {
            mLastId = mPeer.receive().header.ID;
            script();
        });
        return mCom.requestCommand(kPeer, "C", mBody, timeout, 1);
    }

    /// An answer under this number that does not come from the peer.
    void sendForeignAnswer(int id)
    {
        mStranger.send(kSendSock, message("ACK", "<BODY>foreign</BODY>", id));
    }

    static bool asStranger(const std::function<void()>& script)
    {
        return asUser(kStrangersUid, 0, script);
    }

    ScriptedPeer mPeer{kPeer};
    ScriptedPeer mStranger{"/tmp/stranger"};
    int mLastId = 0; // of the request that a script took
    std::string mBody = "untouched";
    std::string mValue = "untouched";
};

// What goes out

TEST_F(DataCommunicatorRequesterTest, RequestsHaveTheirExactTextsAndAreNumberedFromOne)
{
    int id = 0; // ctest runs each case in a process of its own
    const auto sent = [this, &id] {
        const ScriptedPeer::Message message = mPeer.receive();
        EXPECT_EQ(++id, message.header.ID);
        EXPECT_EQ(static_cast<int>(message.body.size()), message.header.Size);
        return message.header.Type + message.body;
    };
    // clang-format off
    mCom.requestCommand(kPeer, "<Command ID=\"C\" />", mBody, kNoWaiting, 1);
    EXPECT_EQ("COMMAND<BODY>\n\t<Command ID=\"C\" />\n</BODY>\n", sent());
    mCom.requestDataItem(kPeer, "T", 3, "i", mValue, kNoWaiting, 1);
    EXPECT_EQ("GET<BODY>\n\t<Table Name=\"T\" >\n\t\t<Row ID=\"3\" >\n\t\t<Item Name=\"i\" />\n"
              "\t\t</Row>\n\t</Table>\n</BODY>\n", sent());
    mCom.requestSetDataItem(kPeer, "T", -3, "i", "v", kNoWaiting, 1);
    EXPECT_EQ("SET<BODY>\n\t<Table Name=\"T\" >\n\t\t<Row ID=\"-3\" >\n\t\t<Item Name=\"i\" Value=\"v\" />\n"
              "\t\t</Row>\n\t</Table>\n</BODY>\n", sent());
    // The data set's end tag stands without the tab of its start tag.
    mCom.requestGetParam(kPeer, "D", "C", "r", "i", mValue, kNoWaiting, 1);
    EXPECT_EQ("GET<BODY>\n\t<DataSet ID=\"D\" >\n\t<Component Name=\"C\" >\n\t\t<Row ID=\"r\" >\n"
              "\t\t<Item Name=\"i\" />\n\t\t</Row>\n\t</Component>\n</DataSet>\n</BODY>\n", sent());
    const std::jthread peer([&] {
        EXPECT_EQ("COMMAND<BODY>\n\t\t<Command ID=\"SUBSCRIBE\" >\n\t\t<Parameter Name=\"SockName\" "
                  "Value=\"/tmp/sockA\" />\n\t</Command>\n\n</BODY>\n", sent());
        mPeer.answer("ACK");
    });
    // clang-format on
    // A parameter of a peer is logged as a data item.
    const auto failed = [](const char* prefix) {
        return HasSubstr(std::string(prefix) + "Failed to sendRequest:\n");
    };
    EXPECT_THAT(logged(), AllOf(Contains(failed(" requestDataItem: ")).Times(2),
                                Contains(failed(" requestSetDataItem: "))));
    EXPECT_EQ(FC_OK, mCom.requestSubscribe(kPeer));
}

TEST_F(DataCommunicatorRequesterTest, EachTryHasANumberOfItsOwnAndNoTriesSendNothing)
{
    EXPECT_EQ(FC_COMM_ERROR, mCom.requestCommand(kPeer, "C", mBody, kNoWaiting, 0));
    EXPECT_TRUE(mPeer.nothingCame());
    EXPECT_EQ(FC_COMM_ERROR, mCom.requestCommand(kPeer, "C", mBody, kNoWaiting, 2));
    const int first = mPeer.receive().header.ID;
    EXPECT_EQ(first + 1, mPeer.receive().header.ID);
    EXPECT_TRUE(mPeer.nothingCame());

    const std::vector<std::string> lines = logged();
    const std::string failed =
        "ERROR sendRequest: Error in readMsg from sock:/tmp/peer fcode=65600";
    const std::string request = "ERROR requestCommand: Failed to sendRequest:\n<HEADER ID=\"";
    EXPECT_THAT(lines, AllOf(Contains(failed).Times(2),
                             Contains(StartsWith(request + std::to_string(first + 1)))));
    EXPECT_EQ("ERROR requestCommand: FCODE=10040", lines.back());
}

TEST_F(DataCommunicatorRequesterTest, APeerThatCannotBeReachedFailsAtOnce)
{
    for (const std::string& path : {std::string("/tmp/nobody"), "/tmp/" + std::string(104, 'p')}) {
        EXPECT_EQ(FC_COMM_ERROR, mCom.requestDataItem(path, "T", 3, "i", mValue, kSeconds, 3));
        const std::string line = "ERROR sendRequest: Error in sending to sock:" + path;
        EXPECT_THAT(logged(), AllOf(Contains(line + " fcode=10040"),
                                    Contains("ERROR requestDataItem: FCODE=65600")));
    }
}

// What comes back

TEST_F(DataCommunicatorRequesterTest, ACommandReturnsThePeersCode)
{
    EXPECT_EQ(FC_UNAVAILABLE, request([&] { mPeer.answer("ACK", FC_UNAVAILABLE, kAnswer); }));
    EXPECT_EQ(kAnswer, mBody);
    EXPECT_EQ(FC_HEADER_ERROR, request([&] { mPeer.answer("NACK", FC_BAD_VALUE); }));
    EXPECT_EQ("untouched", mBody); // the answer has none
    const std::string id = ":\n<HEADER ID=\"" + std::to_string(mLastId) + "\" Type=";
    const std::string line = "requestCommand: ";
    EXPECT_THAT(mLog.text(), AllOf(HasSubstr(line + "Request Header was" + id + "\"COMMAND\""),
                                   HasSubstr(line + "Response Header mismatch" + id)));
}

TEST_F(DataCommunicatorRequesterTest, AnAnswerFromAnotherPathIsFiledAndTheRequesterKeepsWaiting)
{
    EXPECT_EQ(FC_OK, request([&] {
                  for (const int id : {mLastId, mLastId, mLastId + 1000})
                      sendForeignAnswer(id);
                  mPeer.answer("ACK", FC_OK, kAnswer);
              }));
    EXPECT_EQ(kAnswer, mBody);
    const std::string id = std::to_string(mLastId);
    const std::vector<std::string> lines = logged();
    // clang-format off
    EXPECT_THAT(lines, Contains("ERROR sendRequest: Responder=/tmp/stranger!=/tmp/peer or respID=" + id + "!=" + id +
                                " retries left=1").Times(2));
    EXPECT_THAT(lines, IsSupersetOf({
        "SYS sendRequest: **** stored in history *** id=" + id + " sender=/tmp/stranger resp=<BODY>foreign</BODY>",
        std::string("SYS **** storeResponse: stored=3 messages (hdrs=2,bds=2,snds=2)")}));
    // clang-format on
    std::string sender;
    EXPECT_TRUE(mCom.getResponse(mLastId, mValue, mBody, sender));
    EXPECT_EQ("/tmp/stranger", sender);

    // Each of them starts the time-out of one second anew.
    const std::jthread peer([&] {
        const int requestId = mPeer.receive().header.ID;
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
        EXPECT_TRUE(eventually([&] {
            sendForeignAnswer(requestId + 1000);
            return std::chrono::steady_clock::now() > end;
        }));
        mPeer.answer("ACK", FC_OK, kAnswer);
    });
    EXPECT_EQ(FC_OK, mCom.requestCommand(kPeer, "C", mBody, 1, 1));
}

TEST_F(DataCommunicatorRequesterTest, AnAnswerFiledDuringTheWaitIsFound)
{
    const auto isFound = [&](const std::string& where, const std::function<void()>& script) {
        EXPECT_EQ(FC_OK, request([&] {
                      mCom.storeResponse(mLastId, message("ACK", kAnswer, mLastId), kAnswer, "/x");
                      script();
                  }));
        EXPECT_EQ(kAnswer, mBody);
        return mLog.text().find("sendRequest: **** found in history " + where +
                                "*** id=" + std::to_string(mLastId) +
                                " sender=/x resp=" + kAnswer) != std::string::npos;
    };
    EXPECT_TRUE(isFound("", [&] { sendForeignAnswer(mLastId); }));

    // What cannot be read ends the try. The answer must come between two looks, so ask from new
    // sockets until it does; it is found in any case.
    EXPECT_TRUE(eventually([&] {
        mCom.init(&mHolder, kSock, kSendSock, "tComA");
        return isFound("after read=err ", [&] { mPeer.reply("garbage"); });
    }));
}

TEST_F(DataCommunicatorRequesterTest, RequestersReadEachOthersAnswers)
{
    constexpr int kRequesters = 4;
    std::vector<std::jthread> requesters;
    for (int i = 0; i < kRequesters; ++i)
        requesters.emplace_back([this, i] {
            std::string answer;
            const std::string text = "command" + std::to_string(i);
            EXPECT_EQ(FC_OK, mCom.requestCommand(kPeer, text, answer, kSeconds, 1));
            EXPECT_EQ("<BODY>\n\t" + text + "\n</BODY>", answer);
        });
    std::vector<ScriptedPeer::Message> requests;
    for (int i = 0; i < kRequesters; ++i)
        requests.insert(requests.begin(), mPeer.receive());
    for (const auto& request : requests)
        mPeer.reply(message("ACK", request.body, request.header.ID));
}

TEST_F(DataCommunicatorRequesterTest, TheResponderServesAndFilesWhileARequestWaits)
{
    startResponder();
    EXPECT_EQ(FC_OK, request([&] {
                  mStranger.send(kSock, message("COMMAND", "<BODY><Command ID=\"Do\" /></BODY>"));
                  EXPECT_EQ("ACK", mStranger.receive().header.Type);
                  mStranger.send(kSock, message("ACK", kAnswer, 5000));
                  EXPECT_TRUE(mLog.waitFor("doWork: **** stored in history *** id=5000"));
                  mPeer.answer("ACK");
              }));
}

TEST_F(DataCommunicatorRequesterTest, ADataItemComesWithThePeersCode)
{
    const auto ask = [this](const char* type, Fcodes fcode, const std::string& body) {
        mValue = "untouched";
        const std::jthread peer([&] {
            mPeer.receive();
            mPeer.answer(type, fcode, body);
        });
        return mCom.requestDataItem(kPeer, "T", 3, "i", mValue, kSeconds, 1);
    };
    const std::string item = "<BODY><Item Name=\"i\" Value=\"v\" /></BODY>";
    // Without a line the value is taken; the body follows the line.
    const std::tuple<Fcodes, std::string, Fcodes, std::string> cases[] = {
        // clang-format off
        {FC_OK, item, FC_OK, ""},
        {FC_LOS, item, FC_LOS, ""},
        {FC_LOS, "", FC_LOS | FC_BODY_ERROR, "Body size=0 in get response"},
        {FC_OK, "<BODY></BODY>", FC_BODY_ERROR, "No Item segment in response:\n"},
        {FC_OK, "<BODY><Item Value=\"v\" /></BODY>", FC_BODY_ERROR, "No Name tags in response:\n"},
        {FC_OK, "<BODY><Item Name=\"j\" Value=\"v\" /></BODY>", FC_BODY_ERROR, "requested=i got=j in response:\n"},
        {FC_OK, "<BODY><Item Name=\"i\" /></BODY>", FC_BODY_ERROR, "No Value tags in response:\n"},
        // clang-format on
    };
    for (const auto& [fcode, body, result, line] : cases) {
        EXPECT_EQ(result, ask("RESPONSE", fcode, body)) << body;
        EXPECT_EQ(line.empty() ? "v" : "untouched", mValue) << body;
        EXPECT_EQ(line.empty() ? "INFO readMsg: Msg Body:\n" + body
                               : "ERROR requestDataItem: " + line + body,
                  logged().back());
    }
    EXPECT_EQ(FC_HEADER_ERROR, ask("ACK", FC_OK, item));
    const std::string log = mLog.text();
    EXPECT_THAT(log, AllOf(HasSubstr("requestDataItem: Request Header was:\n<HEADER"),
                           HasSubstr("requestDataItem: Response Header mismatch:\n<HEADER")));
}

TEST_F(DataCommunicatorRequesterTest, AWriteAnsweredWithoutABodyIsABodyErrorEvenWhenItSucceeded)
{
    startResponder();
    mHolder.dataSets = {{"T", "S"}};
    EXPECT_EQ(FC_BODY_ERROR, mCom.requestSetDataItem(kSock, "T", 3, "i", "v", kSeconds, 1));
    EXPECT_EQ("ERROR requestSetDataItem: Body size=0 in set response", logged().back());
    // A write that fails is refused with a NACK.
    EXPECT_EQ(FC_HEADER_ERROR, mCom.requestSetDataItem(kSock, "?", 3, "i", "v", kSeconds, 1));
    EXPECT_THAT(mLog.text(), HasSubstr("requestSetDataItem: Response Header mismatch:\n"));
}

// What strangers send

TEST_F(DataCommunicatorRequesterTest, JunkEndsNoTryUnlessItIsTheRespondersOwn)
{
    const std::string head = "<HEADER ID=\"1\" Type=\"ACK\" Size=\"9\" >\n</HEADER>\n";
    const std::pair<std::string, Fcodes> junk[] = {{"", FC_COMM_ERROR},
                                                   {"garbage", FC_HEADER_ERROR},
                                                   {head, FC_BODY_ERROR},
                                                   {std::string(70000, 'x'), FC_COMM_ERROR}};
    ScriptedPeer nameless;
    const auto sendJunk = [&] {
        for (const auto& [text, failure] : junk) {
            mStranger.send(kSendSock, text);
            nameless.send(kSendSock, text);
        }
    };
    sendJunk();
    EXPECT_EQ(FC_OK, request([&] {
                  sendJunk();
                  mPeer.answer("ACK");
              }));
    for (const auto& [text, failure] : junk)
        EXPECT_EQ(failure, request([&] { mPeer.reply(text); }));

    sendJunk(); // an answer behind it is found without waiting
    mPeer.send(kSendSock, message("ACK", "", mLastId + 1));
    EXPECT_EQ(FC_OK, request([] {}, kNoWaiting));
}

TEST_F(DataCommunicatorRequesterTest, StrangersDoNotProlongARequestForEver)
{
    std::atomic<bool> ended;
    const auto seconds = [&](int timeout, const std::string& disturbance) {
        ended = false;
        const auto begin = std::chrono::steady_clock::now();
        const std::jthread stranger([&] {
            EXPECT_TRUE(eventually([&] { // nobody reads behind the request's end
                mStranger.sendIfThereIsRoom(kSendSock, disturbance);
                return ended.load();
            }));
        });
        EXPECT_EQ(FC_COMM_ERROR, request([] {}, timeout));
        ended = true;
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    EXPECT_THAT(seconds(2, "garbage"), AllOf(Ge(2), Lt(4)));
    EXPECT_THAT(seconds(1, message("ACK", "<BODY>foreign</BODY>", 5000)), AllOf(Ge(2), Lt(4)));
}

TEST_F(DataCommunicatorRequesterTest, WhenItsTimeIsUpItReadsOnForAMomentUnlessAnotherWatches)
{
    DatagramSocket flooded; // it never becomes empty
    ASSERT_TRUE(flooded.open() && flooded.bind("/tmp/flooded"));
    PendingRequests pending;
    PendingRequest request(pending, 7, kPeer, kNoWaiting);
    request.startTimeout();
    std::latch watching(1);
    std::jthread watcher([&] {
        PendingRequest other(pending, 8, kPeer, 0);
        other.startTimeout();
        PendingRequests::Lock lock = pending.lock();
        watching.count_down();
        EXPECT_EQ(WaitResult::READABLE, pending.wait(lock, other, flooded.descriptor()));
        pending.handOver(7, {"", kAnswer, kPeer});
    });
    watching.wait();
    PendingRequests::Lock lock = pending.lock(); // the watcher polls
    mStranger.send("/tmp/flooded", "garbage");
    const auto wait = [&] { return pending.wait(lock, request, flooded.descriptor()); };
    EXPECT_EQ(std::nullopt, wait());
    EXPECT_TRUE(request.answer());

    lock.unlock();
    watcher.join();
    lock.lock();
    EXPECT_EQ(WaitResult::READABLE, wait());
    EXPECT_TRUE(eventually([&] { return wait() == WaitResult::TIMED_OUT; }));
    lock.unlock(); // the request ends under it
}

TEST_F(DataCommunicatorRequesterTest, APeerThatIsSilentHoldsNobodyElsesRequest)
{
    ScriptedPeer silent("/tmp/silent");
    std::jthread other([&] {
        std::string body;
        EXPECT_EQ(FC_LOS, mCom.requestCommand("/tmp/silent", "C", body, 0, 1));
    });
    silent.receive();
    EXPECT_EQ(FC_UNAVAILABLE, request([&] { mPeer.answer("ACK", FC_UNAVAILABLE); }, 0));
    EXPECT_EQ(FC_HEADER_ERROR, request([&] { mPeer.reply("garbage"); }, 0));
    EXPECT_EQ(FC_COMM_ERROR, request([] {}, 1));
    EXPECT_EQ(FC_OK, request(
                         [&] {
                             silent.answer("ACK", FC_LOS);
                             other.join(); // whoever watched the socket, somebody does
                             mPeer.answer("ACK");
                         },
                         0));
}

TEST_F(DataCommunicatorRequesterTest, WhatHasComeForARequestIsNotPushedOut)
{
    PendingRequests pending;
    const PendingRequest filed(pending, 7, kPeer, 1);
    const PendingRequest read(pending, 8, kPeer, 1);
    ResponseHistory history;
    history.store(7, {"", kAnswer, "/x"});
    pending.takeFiled(history);
    pending.handOver(8, {"", "foreign", "/x"});
    pending.handOver(8, {"", kAnswer, kPeer});
    EXPECT_TRUE(filed.answer() && filed.answer()->body == kAnswer);
    EXPECT_TRUE(read.answer() && read.answer()->body == kAnswer);
}

TEST_F(DataCommunicatorRequesterTest,
       AMalformedAnswerEndsTheTryItNumbersElseTheReadersElseTheOldest)
{
    // The number, who has read it, and whose tries have failed by then.
    const std::tuple<int, int, std::string> cases[] = {{8, 0, "01 "}, {8, 1, "01 "}, {0, 1, "01 "},
                                                       {0, 0, "10 "}, {0, 2, "10 "}, {9, 2, "10 "}};
    for (const auto& [id, reader, failed] : cases) {
        PendingRequests pending;
        PendingRequest requests[] = {
            {pending, 7, kPeer, 1}, {pending, 8, kPeer, 1}, {pending, 9, "/tmp/other", 1}};
        PendingRequests::Lock lock = pending.lock();
        std::string found;
        for (int time = 0; time < 3; ++time, found += ' ') { // the second ends the other one
            pending.endTry(FC_HEADER_ERROR, kPeer, id, requests[reader]);
            for (const PendingRequest& request : {std::cref(requests[0]), std::cref(requests[1])})
                found += request.failure() == FC_OK ? '0' : '1';
        }
        EXPECT_EQ(failed + "11 11 ", found) << id << ' ' << reader;
        EXPECT_EQ(FC_OK, requests[2].failure());
        EXPECT_EQ(std::nullopt, pending.wait(lock, requests[0], -1));
        lock.unlock();
    }
    PendingRequests pending;
    PendingRequest none(pending, 7, kPeer, -2);
    PendingRequests::Lock lock = pending.lock();
    EXPECT_EQ(WaitResult::FAILED, pending.wait(lock, none, -1));
    EXPECT_EQ(EINVAL, errno);
    lock.unlock();
}

TEST_F(DataCommunicatorRequesterTest, OnlyRootTheOwnUserAndTheRespondersOwnerMayAnswer)
{
    PendingRequests pending;
    const auto may = [&](pid_t pid, uid_t uid, int id = 7) {
        const ucred sender{.pid = pid, .uid = uid, .gid = 0};
        const bool answers = pending.mayAnswer(id, sender);
        EXPECT_EQ(answers, pending.maySpeakFor(id == 7 ? kPeer : "/x", sender));
        return answers;
    };
    const PendingRequest own(pending, 7, kPeer, 1);
    EXPECT_TRUE(may(1, 0) && may(1, geteuid()) && may(1, geteuid(), 8));
    EXPECT_FALSE(may(0, 0) || may(1, kNobody) || may(1, kStrangersUid));
    if (chown(kPeer, kNobody, 0) != 0)
        GTEST_SKIP() << "the rest needs root for a second user";
    {
        const PendingRequest nobodys(pending, 7, kPeer, 1);
        EXPECT_FALSE(may(1, kNobody));
        ASSERT_EQ(0, chown(kPeer, kStrangersUid, 0));
        EXPECT_FALSE(may(1, kStrangersUid)); // who owns it now was not asked
    }
    std::filesystem::rename(kPeer, "/tmp/elsewhere");
    const PendingRequest absent(pending, 7, kPeer, 1);
    std::ofstream(kPeer) << "no socket";
    ASSERT_EQ(0, chown(kPeer, kStrangersUid, 0));
    const PendingRequest file(pending, 7, kPeer, 1);
    EXPECT_FALSE(may(1, kStrangersUid));
    std::filesystem::rename("/tmp/elsewhere", kPeer);
    const PendingRequest asked(pending, 7, kPeer, 1);
    EXPECT_TRUE(may(1, kStrangersUid));
    EXPECT_FALSE(may(1, kStrangersUid, 8) || may(1, kStrangersUid + 1));
    EXPECT_TRUE(asStranger([&] { EXPECT_TRUE(may(1, 0, 8) && may(1, kStrangersUid, 8)); }));
}

TEST_F(DataCommunicatorRequesterTest, WhoBearsTheRespondersPathAndIsNotItIsIgnored)
{
    ScriptedPeer heir(kPeer); // mPeer still sends under the path
    if (chown("/tmp/stranger", kStrangersUid, 0) != 0)
        GTEST_SKIP() << "needs root for a second user";
    std::jthread watcher([&] {
        std::string body;
        EXPECT_EQ(FC_UNAVAILABLE, mCom.requestCommand("/tmp/stranger", "C", body, 0, 1));
    });
    mStranger.receive();
    const std::jthread peer([&] {
        const int id = heir.receive().header.ID;
        EXPECT_TRUE(asStranger([&] {
            mPeer.send(kSendSock, "garbage");
            for (int i = 0; i < 11; ++i) // as many as push out what is filed
                mPeer.send(kSendSock, message("ACK", "", id + i));
        }));
        EXPECT_TRUE(mLog.waitFor("sendRequest: answer ignored from sock=/tmp/peer id=" +
                                 std::to_string(id + 10) + " uid=1000"));
        EXPECT_TRUE(asStranger([&] { mStranger.answer("ACK", FC_UNAVAILABLE); }));
        watcher.join();
        heir.answer("ACK", FC_LOS);
    });
    mCom.storeResponse(5000, "", "", "");
    EXPECT_EQ(FC_LOS, mCom.requestCommand(kPeer, "C", mBody, kSeconds, 1));
    EXPECT_TRUE(mCom.getResponse(5000, mValue, mValue, mValue));
}

TEST_F(DataCommunicatorRequesterTest, AForgedAnswerIsIgnoredAndPushesNoneOut)
{
    if (!asStranger([] {}))
        GTEST_SKIP() << "needs root for a second user";
    startResponder();
    EXPECT_EQ(FC_LOS, request([&] {
                  mStranger.send(kSock, message("ACK", "", 5000));
                  EXPECT_TRUE(asStranger([&] {
                      ScriptedPeer forger("/tmp/forger");
                      for (int i = 0; i < 11; ++i) // as many as push out what is filed
                          forger.send(kSock, message("ACK", "", mLastId + i));
                  }));
                  const std::string last = std::to_string(mLastId + 10);
                  EXPECT_TRUE(mLog.waitFor(
                      "doWork: answer ignored from sock=/tmp/forger id=" + last + " uid=1000"));
                  mPeer.answer("ACK", FC_LOS);
              }));
    std::string text;
    EXPECT_TRUE(mCom.getResponse(5000, text, text, text));
    EXPECT_FALSE(mCom.getResponse(mLastId, text, text, text));
}

// Events

TEST_F(DataCommunicatorRequesterTest, AnEventGoesOutFromTheReceiveSocketUnnumbered)
{
    MessageEvent event;
    event.Fcode = FC_LOS;
    std::string element;
    event.toString(element);
    const std::string text = "<HEADER ID=\"100\" Type=\"EVENT\" Fcode=\"10400\" Size=\"" +
                             std::to_string(element.size() + 15) + "\" >\n</HEADER>\n<BODY>\n" +
                             element + "</BODY>\n";
    const std::string tooLong = "/tmp/" + std::string(104, 'p');
    EXPECT_EQ(FC_COMM_ERROR, mCom.requestEvent(tooLong, event, kNoWaiting, 1));
    EXPECT_THAT(logged(), ElementsAre("ERROR requestEvent: Failed to sendMessage:\n" + text,
                                      "ERROR requestEvent: FCODE=65600"));

    EXPECT_EQ(FC_OK, mCom.requestEvent(kPeer, event, kNoWaiting, 1));
    EXPECT_EQ(text, mPeer.receive().text);
    mPeer.answer("ACK"); // arrives at the receive socket
    startResponder();
    EXPECT_TRUE(mLog.waitFor("doWork: **** stored in history *** id=100"));
}

TEST_F(DataCommunicatorRequesterTest, NotifyReachesEachSubscriberAlsoWhenAnotherDoesNotRead)
{
    ScriptedPeer full("/tmp/full");
    ScriptedPeer::fill("/tmp/full");
    for (const char* path : {"/tmp/gone", "/tmp/full", "/tmp/stranger", kPeer})
        mCom.subscribe(path);
    MessageEvent event;
    event.Time = "old";
    event.Description.assign(60000, 'x');
    for (int i = 0; i < 5; ++i) { // more than a usual send buffer holds
        const auto begin = std::chrono::steady_clock::now();
        mCom.notify(event);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
        EXPECT_EQ("EVENT", mPeer.receive().header.Type) << i;
    }
    EXPECT_EQ(19u, event.Time.size());
    EXPECT_THAT(mLog.text(), HasSubstr("sock=/tmp/gone errno=2 Stop sending."));
    EXPECT_THAT(mLog.text(), HasSubstr("sock=/tmp/full errno=11 tries left=1"));
}

} // namespace
