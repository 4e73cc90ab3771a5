#include "CommunicatorFixture.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <thread>

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

constexpr int kNoWaiting = -1;
constexpr int kSeconds = 20;

class DataCommunicatorRequesterTest : public CommunicatorFixture
{
protected:
    static constexpr char kPeer[] = "/tmp/peer";

    /// Sends a command to the peer, which takes it and does what the script says; the result.
    Fcodes request(const std::function<void()>& script, int timeout = kSeconds, int tries = 1)
    {
        mBody = "untouched";
        const std::jthread peer([&] {
            mLastId = mPeer.receive().header.ID;
            script();
        });
        return mCom.requestCommand(kPeer, "C", mBody, timeout, tries);
    }

    /// Asks the peer for item "i", which is answered so; the result.
    Fcodes ask(const std::string& type, Fcodes fcode, const std::string& body)
    {
        mValue = "untouched";
        const std::jthread peer([&] {
            mPeer.receive();
            mPeer.answer(type, fcode, body);
        });
        return mCom.requestDataItem(kPeer, "T", 3, "i", mValue, kSeconds, 1);
    }

    /// A datagram of the liar to the socket where answers are awaited.
    void lie(int id) { mLiar.send(kSendSock, message("ACK", "<BODY>lie</BODY>", id)); }

    std::string header(const std::string& rest)
    {
        return "<HEADER ID=\"" + std::to_string(mLastId) + "\" Type=\"" + rest + " >\n</HEADER>\n";
    }

    ScriptedPeer mPeer{kPeer};
    ScriptedPeer mLiar{"/tmp/liar"};
    int mLastId = 0; // of the request that a script took
    std::string mBody = "untouched";
    std::string mValue = "untouched";
};

// What goes out

TEST_F(DataCommunicatorRequesterTest, TheFirstRequestOfAProcessIsNumberOne)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // in a process of its own
    EXPECT_EXIT(
        {
            mCom.requestCommand(kPeer, "C", mBody, kNoWaiting, 1);
            std::exit(mPeer.receive().header.ID == 1 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(DataCommunicatorRequesterTest, EveryRequestHasItsText)
{
    const auto sent = [this] {
        const ScriptedPeer::Message message = mPeer.receive();
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
    EXPECT_EQ(FC_OK, mCom.requestSubscribe(kPeer));
    EXPECT_EQ("untouched", mValue);
}

TEST_F(DataCommunicatorRequesterTest, EachTryHasANumberOfItsOwnAndNoTriesSendNothing)
{
    EXPECT_EQ(FC_COMM_ERROR, mCom.requestCommand(kPeer, "C", mBody, kNoWaiting, 0));
    EXPECT_TRUE(mPeer.nothingCame());
    mLog.clear();

    EXPECT_EQ(FC_COMM_ERROR, mCom.requestCommand(kPeer, "C", mBody, kNoWaiting, 2));
    mLastId = mPeer.receive().header.ID + 1;
    EXPECT_EQ(mLastId, mPeer.receive().header.ID);
    EXPECT_TRUE(mPeer.nothingCame());
    const std::string failed =
        "ERROR sendRequest: Error in readMsg from sock:/tmp/peer fcode=65600";
    // clang-format off
    EXPECT_THAT(logged(), ElementsAre(
        HasSubstr("INFO"), HasSubstr("readMsg: Time out"), failed,
        HasSubstr("INFO"), HasSubstr("readMsg: Time out"), failed,
        "ERROR requestCommand: Failed to sendRequest:\n" + header("COMMAND\" Size=\"18\"") + "<BODY>\n\tC\n</BODY>\n",
        "ERROR requestCommand: FCODE=10040"));
    // clang-format on
}

TEST_F(DataCommunicatorRequesterTest, APeerThatCannotBeReachedFailsAtOnce)
{
    for (const std::string& path : {std::string("/tmp/nobody"), "/tmp/" + std::string(104, 'p')}) {
        EXPECT_EQ(FC_COMM_ERROR, mCom.requestDataItem(path, "T", 3, "i", mValue, kSeconds, 3));
        const std::string line = "ERROR sendRequest: Error in sending to sock:";
        EXPECT_THAT(logged(), IsSupersetOf({line + path + " fcode=10040",
                                            std::string("ERROR requestDataItem: FCODE=65600")}));
    }
}

// What comes back

TEST_F(DataCommunicatorRequesterTest, ACommandHasThePeersOwnResult)
{
    EXPECT_EQ(FC_UNAVAILABLE,
              request([&] { mPeer.answer("ACK", FC_UNAVAILABLE, "<BODY>text</BODY>"); }));
    EXPECT_EQ("<BODY>text</BODY>", mBody);
    EXPECT_EQ(FC_HEADER_ERROR, request([&] { mPeer.answer("NACK", FC_BAD_VALUE); }));
    // clang-format off
    EXPECT_THAT(logged(), IsSupersetOf({
        "ERROR requestCommand: Request Header was:\n" + header("COMMAND\" Size=\"18\""),
        "ERROR requestCommand: Response Header mismatch:\n" + header("NACK\" Fcode=\"10020\" Size=\"0\"")}));
    // clang-format on
}

TEST_F(DataCommunicatorRequesterTest, AnAnswerFromAnotherPathIsFiledAndTheRequesterKeepsWaiting)
{
    EXPECT_EQ(FC_OK, request([&] {
                  for (const int id : {mLastId, mLastId, mLastId + 1000})
                      lie(id);
                  EXPECT_TRUE(mLog.waitFor("respID=" + std::to_string(mLastId + 1000) + "!="));
                  mPeer.answer("ACK", FC_OK, "<BODY>truth</BODY>");
              }));
    EXPECT_EQ("<BODY>truth</BODY>", mBody);
    const std::string id = std::to_string(mLastId);
    const std::vector<std::string> lines = logged();
    // clang-format off
    EXPECT_THAT(lines, Contains("ERROR sendRequest: Responder=/tmp/liar!=/tmp/peer or respID=" + id + "!=" + id +
                                " retries left=1").Times(2));
    EXPECT_THAT(lines, IsSupersetOf({
        "SYS sendRequest: **** stored in history *** id=" + id + " sender=/tmp/liar resp=<BODY>lie</BODY>",
        std::string("SYS **** storeResponse: stored=3 messages (hdrs=2,bds=2,snds=2)")}));
    // clang-format on
    std::string sender;
    EXPECT_TRUE(mCom.getResponse(mLastId, mValue, mBody, sender));
    EXPECT_EQ("/tmp/liar", sender);
}

TEST_F(DataCommunicatorRequesterTest, ALieUnderTheNextTrysNumberDoesNotCompleteThatTry)
{
    const auto script = [&] {
        lie(mLastId + 1);
        mPeer.receive(); // the next try, once the first has timed out
        mPeer.answer("ACK", FC_LOS);
    };
    EXPECT_EQ(FC_LOS, request(script, 1, 2));
    EXPECT_EQ("untouched", mBody);
}

TEST_F(DataCommunicatorRequesterTest, WhatOnePeerLeavesUnreadKeepsNobodyElseFromEvents)
{
    ScriptedPeer stuck("/tmp/stuck");
    MessageEvent event;
    event.Description.assign(60000, 'x');
    mCom.subscribe("/tmp/stuck");
    mCom.subscribe(kPeer);
    for (int i = 0; i < 5; ++i) { // more than a usual send buffer holds
        mCom.notify(event);
        EXPECT_EQ("EVENT", mPeer.receive().header.Type) << i;
    }
}

TEST_F(DataCommunicatorRequesterTest, AnAnswerFiledMeanwhileIsFoundWhateverElseIsRead)
{
    const std::string truth = "<BODY>truth</BODY>";
    const auto file = [&] {
        mCom.storeResponse(mLastId, message("ACK", truth, mLastId), truth, "/tmp/elsewhere");
    };
    const auto isFound = [&](const std::string& where, const std::function<void()>& script) {
        EXPECT_EQ(FC_OK, request(script));
        EXPECT_EQ(truth, mBody);
        return mLog.text().find("sendRequest: **** found in history " + where +
                                "*** id=" + std::to_string(mLastId) +
                                " sender=/tmp/elsewhere resp=" + truth) != std::string::npos;
    };
    EXPECT_TRUE(isFound("", [&] { file(), lie(mLastId); }));
    // The stranger's answer has replaced nothing, and no line says that it was stored.
    EXPECT_THAT(mLog.text(), Not(HasSubstr("sendRequest: **** stored in history")));
    EXPECT_TRUE(isFound("", [&] {
        lie(mLastId);
        EXPECT_TRUE(mLog.waitFor("respID=" + std::to_string(mLastId) + "!="));
        file();
        lie(mLastId + 1000);
    }));
    // What cannot be read ends the try. The answer must come between two looks, so ask from new
    // sockets until it does; it is found in any case.
    EXPECT_TRUE(eventually([&] {
        mCom.init(&mHolder, kSock, kSendSock, "tComA");
        return isFound("after read=err ", [&] { file(), mPeer.reply("garbage"); });
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
    ScriptedPeer client("/tmp/client");
    EXPECT_EQ(FC_OK, request([&] {
                  client.send(kSock, message("COMMAND", "<BODY><Command ID=\"Do\" /></BODY>"));
                  EXPECT_EQ("ACK", client.receive().header.Type);
                  client.send(kSock, message("ACK", "<BODY>filed</BODY>", 5000));
                  EXPECT_TRUE(mLog.waitFor("doWork: **** stored in history *** id=5000"));
                  mPeer.answer("ACK");
              }));
}

TEST_F(DataCommunicatorRequesterTest, ADataItemIsTakenFromTheAnswerAndThePeersFailureToo)
{
    const std::string item = "<BODY><Item Name=\"i\" Value=\"v\" /></BODY>";
    const struct {
        Fcodes fcode;
        std::string body;
        Fcodes result;
        std::string line; // none where the value is taken; the body follows unless it is empty
    } cases[] = {
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
    EXPECT_THAT(mLog.text(), HasSubstr("requestDataItem: Request Header was:\n<HEADER"));
    EXPECT_THAT(mLog.text(), HasSubstr("requestDataItem: Response Header mismatch:\n<HEADER"));
}

TEST_F(DataCommunicatorRequesterTest, AWriteAnsweredWithoutABodyIsABodyErrorEvenWhenItSucceeded)
{
    startResponder();
    mHolder.dataSets = {{"T", "S"}};
    EXPECT_EQ(FC_BODY_ERROR, mCom.requestSetDataItem(kSock, "T", 3, "i", "v", kSeconds, 1));
    EXPECT_THAT(mHolder.calls(), ElementsAre("setTextParam(S, T, i, v, 3)"));
    EXPECT_THAT(mLog.text(), HasSubstr("requestSetDataItem: Body size=0 in set response\n"));
    // A write that fails is refused with a "NACK".
    EXPECT_EQ(FC_HEADER_ERROR, mCom.requestSetDataItem(kSock, "?", 3, "i", "v", kSeconds, 1));
    EXPECT_THAT(mLog.text(), HasSubstr("requestSetDataItem: Response Header mismatch:\n"));
}

TEST_F(DataCommunicatorRequesterTest, AParameterOfAPeerIsReadAndLoggedAsADataItem)
{
    startResponder();
    mHolder.values = {{"D/C/r/i", "value"}};
    EXPECT_EQ(FC_OK, mCom.requestGetParam(kSock, "D", "C", "r", "i", mValue, kSeconds, 1));
    EXPECT_EQ("value", mValue);
    EXPECT_EQ(FC_COMM_ERROR,
              mCom.requestGetParam("/tmp/nobody", "D", "C", "r", "i", mValue, kSeconds, 1));
    EXPECT_THAT(mLog.text(), HasSubstr(":requestDataItem: Failed to sendRequest:\n"));
    EXPECT_THAT(mLog.text(), Not(HasSubstr("requestGetParam")));
}

// Events

TEST_F(DataCommunicatorRequesterTest, AnEventGoesOutFromTheReceiveSocketUnnumbered)
{
    MessageEvent event;
    event.ID = "Up";
    event.Fcode = FC_LOS;
    std::string element;
    event.toString(element);
    EXPECT_EQ(FC_OK, mCom.requestEvent(kPeer, event, kNoWaiting, 1));
    const std::string text = "<HEADER ID=\"100\" Type=\"EVENT\" Fcode=\"10400\" Size=\"" +
                             std::to_string(element.size() + 15) + "\" >\n</HEADER>\n<BODY>\n" +
                             element + "</BODY>\n";
    EXPECT_EQ(text, mPeer.receive().text);
    mPeer.answer("ACK"); // arrives at the receive socket
    startResponder();
    EXPECT_TRUE(mLog.waitFor("doWork: **** stored in history *** id=100"));

    mLog.clear();
    const std::string tooLong = "/tmp/" + std::string(104, 'p');
    EXPECT_EQ(FC_COMM_ERROR, mCom.requestEvent(tooLong, event, kNoWaiting, 1));
    EXPECT_THAT(logged(), ElementsAre("ERROR requestEvent: Failed to sendMessage:\n" + text,
                                      "ERROR requestEvent: FCODE=65600"));
}

TEST_F(DataCommunicatorRequesterTest, ANotificationReachesEveryObserverAndSkipsAFullOneAtOnce)
{
    ScriptedPeer full("/tmp/full");
    ScriptedPeer::fill("/tmp/full");
    for (const char* path : {"/tmp/gone", "/tmp/full", "/tmp/liar", kPeer})
        mCom.subscribe(path);
    MessageEvent event;
    event.ID = "Up";
    event.Time = "old";
    const auto begin = std::chrono::steady_clock::now();
    mCom.notify(event);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
    EXPECT_EQ(mPeer.receive().text, mLiar.receive().text);
    EXPECT_EQ(19u, event.Time.size());
    EXPECT_THAT(mLog.text(), HasSubstr("sock=/tmp/gone errno=2 Stop sending."));
    EXPECT_THAT(mLog.text(), HasSubstr("sock=/tmp/full errno=11 tries left=1"));
}

TEST_F(DataCommunicatorRequesterTest, ObserversSubscribeWhileEventsAreRaised)
{
    std::atomic<bool> done = false;
    const std::jthread raising([&] {
        while (!done) {
            MessageEvent event;
            mCom.notify(event);
        }
    });
    for (int i = 0; i < 200; ++i)
        mCom.subscribe("/tmp/gone" + std::to_string(i % 5));
    done = true;
}

} // namespace
