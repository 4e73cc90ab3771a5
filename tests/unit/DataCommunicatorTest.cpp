#include "CommunicatorFixture.h"
#include "DbgPrintClient.h"
#include "MessageEvent.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class DataCommunicatorTest : public CommunicatorFixture
{
protected:
    /// What readMsg() makes of the next datagram on "/tmp/read".
    Fcodes read(const std::string& datagram, int timeout = 1)
    {
        DatagramSocket socket;
        EXPECT_TRUE(socket.open() && socket.bind("/tmp/read"));
        if (!datagram.empty())
            mPeer.send("/tmp/read", datagram);
        mLog.clear();
        mHeader = MessageHeader();
        mBody = "untouched";
        return mCom.readMsg(socket.descriptor(), mHeader, mBody, mSender, timeout);
    }

    /// The answer's code to a command with this body, called directly.
    Fcodes command(const std::string& body)
    {
        MessageHeader request;
        request.ID = 7;
        request.Type = "COMMAND";
        MessageHeader response;
        mBody.clear();
        EXPECT_EQ(FC_OK, mCom.treatMsg(request, body, response, mBody));
        EXPECT_EQ("ACK", response.Type);
        EXPECT_EQ(7, response.ID);
        return response.Fcode;
    }

    /// The answer to a datagram, from the responder.
    std::string exchange(const std::string& datagram)
    {
        mPeer.send(kSock, datagram);
        return mPeer.receive().text;
    }

    /// All observers that are told of an event, in the order of the log.
    std::string observers()
    {
        mLog.clear();
        MessageEvent event;
        event.ID = "E";
        mCom.notify(event);
        std::string told;
        for (const std::string& entry : mLog.entries())
            if (const auto at = entry.find("notify: event=E to observer="); at != std::string::npos)
                told += entry.substr(at + 28) + ' ';
        return told;
    }

    ScriptedPeer mPeer{"/tmp/peer"};
    MessageHeader mHeader;
    std::string mBody;
    SocketAddress mSender;
};

constexpr char kCommand[] = "<BODY><Command ID=\"Do\" /></BODY>";

// Start-up

TEST_F(DataCommunicatorTest, InitTakesBothPathsOverAndOpensThemToEverybody)
{
    for (const char* path : {kSock, kSendSock}) {
        struct stat status {
        };
        ASSERT_EQ(0, stat(path, &status));
        EXPECT_EQ(S_IFSOCK | 0777, static_cast<int>(status.st_mode));
    }
    DataCommunicator later;
    later.init(&mHolder, kSock, kSendSock, "tComB");
    mPeer.send(kSock, message("GET", ""));
    EXPECT_EQ(&mHolder, later.getDataHolder());
    later.setDataHolder(nullptr);
    EXPECT_EQ(nullptr, later.getDataHolder());
}

TEST_F(DataCommunicatorTest, ASocketThatCannotBeMadeEndsTheProcessWithStatusZero)
{
    const std::string tooLong = "/tmp/" + std::string(104, 'p');
    const auto end = testing::ExitedWithCode(0);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(DataCommunicator().init(&mHolder, "/tmp/no/dir", "/tmp/s", "t"), end, "");
    EXPECT_THAT(mLog.entries(), Contains(unit("FATAL", "init: Socket bind failed to /tmp/no/dir "
                                                       "errno=2")));
    EXPECT_EXIT(DataCommunicator().init(&mHolder, "/tmp/r", tooLong, "t"), end, "");
    EXPECT_THAT(mLog.entries(),
                Contains(unit("FATAL", "init: Socket bind failed to " + tooLong + " errno=36")));
}

// Transfers

TEST_F(DataCommunicatorTest, ReadingTellsAnAcceptedMessageFromAnUnusableOne)
{
    const std::string head = "<HEADER ID=\"1\" Type=\"T\" Size=\"9\" >\n</HEADER>\n";
    const std::string sized0 = "<HEADER ID=\"1\" Type=\"T\" Size=\"0\" ></HEADER><BODY>b</BODY>";
    const std::string sized = head + "<BODY>b</BODY>";
    const struct {
        std::string datagram;
        Fcodes code;
        std::string body;
    } cases[] = {
        {sized, FC_OK, "<BODY>b</BODY>"},
        {sized0, FC_OK, "untouched"},
        {head, FC_BODY_ERROR, "untouched"},
        {"<BODY>b</BODY>" + head, FC_BODY_ERROR, "untouched"},
        {head + std::string("\0<BODY>b</BODY>", 15), FC_BODY_ERROR, "untouched"},
        {"<HEADER ID=\"1\" Type=\"T\" ></HEADER>", FC_HEADER_ERROR, "untouched"},
        {"nothing", FC_HEADER_ERROR, "untouched"},
        {std::string(1, '\0'), FC_HEADER_ERROR, "untouched"},
        {sized + std::string(69999 - sized.size(), ' '), FC_OK, "<BODY>b</BODY>"},
        {sized + std::string(70000 - sized.size(), ' '), FC_COMM_ERROR, "untouched"},
        {sized + std::string(90000, ' '), FC_COMM_ERROR, "untouched"},
    };
    for (const auto& [datagram, code, body] : cases) {
        EXPECT_EQ(code, read(datagram)) << datagram.substr(0, 100);
        EXPECT_EQ(body, mBody) << datagram.substr(0, 100);
        EXPECT_EQ("/tmp/peer", mSender.path());
    }
}

TEST_F(DataCommunicatorTest, ReadingLogsWhatItRefuses)
{
    read("nothing");
    EXPECT_THAT(
        mLog.entries(),
        ElementsAre(unit("INFO", "readMsg: recvfrom sock=/tmp/peer senderlen=12 readSize=7"),
                    unit("ERROR", "readMsg: Not found tags HEADER in:\nnothing from "
                                  "sock=/tmp/peer")));
    const std::string bare = "<HEADER ID=\"1\" ></HEADER>";
    read(bare);
    EXPECT_THAT(mLog.entries(), Contains(unit("ERROR", "readMsg: Header init failed from:\n" +
                                                           bare + " from sock=/tmp/peer")));
    const std::string bodiless = "<HEADER ID=\"1\" Type=\"T\" Size=\"1\" />";
    read(bodiless);
    EXPECT_THAT(mLog.entries(), Contains(unit("INFO", "readMsg: Msg Header:\n" + bodiless)));
    EXPECT_THAT(mLog.entries(), Contains(unit("ERROR", "readMsg: Not found tags BODY in:\n" +
                                                           bodiless + " from sock=/tmp/peer")));
    read(std::string(70000, 'x'));
    EXPECT_THAT(mLog.entries(),
                Contains(unit("ERROR", "readMsg: MAX header size=70000 from sock=/tmp/peer "
                                       "errno=0")));

    EXPECT_EQ(FC_COMM_ERROR, read("", -1));
    EXPECT_THAT(mLog.entries(), ElementsAre(HasSubstr("ERROR DataCommunicator:readMsg: Time out -1 "
                                                      "sec. for sock=")));
    mLog.clear();
    EXPECT_EQ(FC_COMM_ERROR, mCom.readMsg(-1, mHeader, mBody, mSender, 0));
    EXPECT_THAT(mLog.entries(), ElementsAre(unit("ERROR", "readMsg: select failed errno=9")));
}

TEST_F(DataCommunicatorTest, SendingToAFullReceiverTriesAgainAndToAMissingOneDoesNot)
{
    DatagramSocket socket;
    SocketAddress receiver;
    ASSERT_TRUE(socket.open() && receiver.assign("/tmp/peer"));
    int queued = ScriptedPeer::fill("/tmp/peer");
    mLog.clear();
    EXPECT_EQ(FC_COMM_ERROR, mCom.sendMessage(socket.descriptor(), mHeader, "b", receiver, -1, 2));
    const std::string sending =
        "sendMessage: Sending msg via sockfd=" + std::to_string(socket.descriptor()) + " to sock=";
    const std::string text = "<HEADER ID=\"0\" Type=\"\" Size=\"0\" >\n</HEADER>\nb";
    const std::string full = "sendMessage: in writing msg body to sock=/tmp/peer errno=11 ";
    EXPECT_THAT(mLog.entries(), ElementsAre(unit("INFO", sending + "/tmp/peer :\n" + text),
                                            unit("ERROR", full + "tries left=2"),
                                            unit("INFO", sending + "/tmp/peer :\n" + text),
                                            unit("ERROR", full + "tries left=1")));

    ASSERT_TRUE(socket.setTimeout(SO_SNDTIMEO, 1));
    mPeer.play([&] {
        EXPECT_TRUE(waitForLog("tries left=3"));
        while (queued-- > 0)
            mPeer.receiveText();
    });
    EXPECT_EQ(FC_OK, mCom.sendMessage(socket.descriptor(), mHeader, "b", receiver, 1, 3));
    mPeer.join();

    ASSERT_TRUE(receiver.assign("/tmp/nobody"));
    mLog.clear();
    EXPECT_EQ(FC_COMM_ERROR, mCom.sendMessage(socket.descriptor(), mHeader, "b", receiver, 0, 3));
    EXPECT_THAT(mLog.entries(),
                ElementsAre(unit("INFO", sending + "/tmp/nobody :\n" + text),
                            unit("ERROR", "sendMessage: in writing msg body to sock=/tmp/nobody "
                                          "errno=2 Stop sending.")));
}

TEST_F(DataCommunicatorTest, ReadlineAppendsUpToTheLineFeed)
{
    std::array<int, 2> pipe;
    ASSERT_EQ(0, ::pipe(pipe.data()));
    ASSERT_EQ(10, write(pipe[1], "first\nrest", 10));
    std::string line = "> ";
    EXPECT_EQ(FC_OK, mCom.readline(pipe[0], line, 1));
    EXPECT_EQ("> first\n", line);

    mLog.clear();
    EXPECT_EQ(FC_COMM_ERROR, mCom.readline(pipe[0], line = "", -1));
    close(pipe[1]);
    EXPECT_EQ(FC_COMM_ERROR, mCom.readline(pipe[0], line, 1));
    close(pipe[0]);
    EXPECT_EQ(FC_COMM_ERROR, mCom.readline(-1, line, 1));
    const std::string sock = std::to_string(pipe[0]);
    EXPECT_THAT(mLog.entries(),
                ElementsAre(unit("ERROR", "readLine: Time out -1 sec. for sock=" + sock),
                            unit("ERROR", "readLine: Till now read:rest"),
                            unit("ERROR", "readLine: read error from sock=" + sock),
                            unit("ERROR", "readLine: Till now read:rest"),
                            unit("ERROR", "readLine: select failed for sock=-1"),
                            unit("ERROR", "readLine: Till now read:rest")));
}

// Commands and events

TEST_F(DataCommunicatorTest, CommandsOfTheCommunicatorItselfAreCarriedOut)
{
    const auto run = [this](const std::string& id, const std::string& parameters) {
        return command("<BODY><Command ID=\"" + id + "\" >" + parameters + "</Command></BODY>");
    };
    const std::string table = "<Parameter Name=\"Table\" Value=\"T\" />";
    const std::string row = "<Parameter Name=\"Row\" Value=\"3\" />";
    for (const char* id : {"Add Row", "Get Next Row"}) {
        EXPECT_EQ(FC_OK, run(id, table + row));
        EXPECT_EQ(FC_OK, run(id, table));
        EXPECT_EQ(FC_BODY_ERROR, run(id, row));
    }
    EXPECT_THAT(mHolder.calls(), ElementsAre("newRow(T, 3)", "appendNewRow(T)",
                                             "getNextRowIndex(T, 3)", "getFirstRowIndex(T)"));
    EXPECT_EQ(FC_OK, run("StopDbgPrint", ""));
    EXPECT_EQ(5, gDbgLevel);
    EXPECT_EQ(FC_OK, run("StartDbgPrint", ""));
    EXPECT_EQ(0, gDbgLevel);
    EXPECT_EQ("", mBody);
}

TEST_F(DataCommunicatorTest, OnlyACompleteSubscriptionIsTaken)
{
    const auto subscribe = [this](const std::string& parameters) {
        return command("<BODY><Command ID=\"SUBSCRIBE\" >" + parameters + "</Command></BODY>");
    };
    const std::string good = "<Parameter Name=\"SockName\" Value=\"/tmp/peer\" />";
    const std::string wrong = "<Parameter Name=\"Sock\" Value=\"/tmp/peer\" />";
    EXPECT_EQ(FC_BODY_ERROR, subscribe(""));
    EXPECT_EQ(FC_BODY_ERROR, subscribe("<Parameter Name=\"SockName\" />"));
    EXPECT_EQ(FC_BODY_ERROR, subscribe(wrong + good));
    EXPECT_THAT(mLog.entries(),
                ElementsAre(unit("ERROR", "treatCommandMsg: Not found tags Parameter in:\n"
                                          "<Command ID=\"SUBSCRIBE\" ></Command>"),
                            unit("ERROR", "treatCommandMsg: Not found tags Name=SockName or Value "
                                          "in:\n<Parameter Name=\"SockName\" />"),
                            unit("ERROR", "treatCommandMsg: Not found tags Name=SockName or Value "
                                          "in:\n" +
                                              wrong)));
    EXPECT_EQ("", observers());

    EXPECT_EQ(FC_OK, subscribe(good));
    EXPECT_THAT(mLog.entries(),
                Contains(unit("INFO", "subscribe: subscribing observer sockName=/tmp/peer")));
    mCom.subscribe("/tmp/other");
    EXPECT_EQ("/tmp/peer /tmp/other ", observers());
    EXPECT_EQ(FC_OK, subscribe(good));
    EXPECT_EQ("/tmp/other /tmp/peer ", observers());
}

TEST_F(DataCommunicatorTest, AFailedCommandIsAnAckWithItsCode)
{
    mHolder.onExecute = [](const std::string&, std::string& result) {
        result = "partial";
        return FC_UNAVAILABLE;
    };
    EXPECT_EQ(FC_UNAVAILABLE, command(kCommand));
    EXPECT_THAT(mHolder.calls(), ElementsAre("execute(<Command ID=\"Do\" />)"));
    EXPECT_EQ("<BODY>partial</BODY>", mBody);
    mHolder.onExecute = [](const std::string&, std::string&) { return Fcodes{}; };
    EXPECT_EQ(FC_OK, command(kCommand));

    mLog.clear();
    EXPECT_EQ(FC_BODY_ERROR, command("no body"));
    EXPECT_EQ(FC_BODY_ERROR, command("<BODY>no command</BODY>"));
    EXPECT_EQ(FC_BODY_ERROR, command("<BODY><Command Id=\"\" /></BODY>"));
    EXPECT_THAT(
        mLog.entries(),
        ElementsAre(
            unit("ERROR", "treatCommandMsg: Not Found BODY tags in msg:\nno body"),
            unit("ERROR",
                 "treatCommandMsg: Not Found Command tags in msg:\n<BODY>no command</BODY>"),
            unit("ERROR", "treatCommandMsg: Not found tags ID in:\n<Command Id=\"\" />")));
}

TEST_F(DataCommunicatorTest, AnEventReachesTheHolderWithTheCodeOfItsHeader)
{
    MessageHeader header;
    header.Type = "EVENT";
    header.Fcode = FC_LOS;
    EXPECT_EQ(FC_OK, mCom.treatEventMsg(header, "<BODY><Event ID=\"Up\" Source=\"S\" /></BODY>"));
    EXPECT_THAT(mHolder.calls(), ElementsAre("handle(Up, 66560)"));

    mLog.clear();
    EXPECT_EQ(FC_BODY_ERROR, mCom.treatEventMsg(header, ""));
    EXPECT_EQ(FC_BODY_ERROR, mCom.treatEventMsg(header, "<BODY></BODY>"));
    EXPECT_EQ(FC_BODY_ERROR, mCom.treatEventMsg(header, "<BODY><Event Name=\"x\" /></BODY>"));
    EXPECT_THAT(
        mLog.entries(),
        ElementsAre(unit("ERROR", "treatEventMsg: Not Found BODY tags in msg:\n"),
                    unit("ERROR", "treatEventMsg: Not Found Event tags in msg:\n<BODY></BODY>"),
                    HasSubstr("MessageEvent:initFromString: Not found tags ID"),
                    unit("ERROR", "treatEventMsg: event initFromString error fcode=10002")));
    header.Type = "ACK";
    EXPECT_EQ(FC_OK, mCom.treatEventMsg(header, "<BODY></BODY>"));
    EXPECT_EQ(1u, mHolder.calls().size());
}

TEST_F(DataCommunicatorTest, AFailedSetIsRolledBackAndAFailedGetIsNot)
{
    mHolder.refusals = {{"x", FC_BAD_VALUE}};
    MessageHeader request;
    MessageHeader response;
    const std::string body = "<BODY><DataSet ID=\"S\" ><Table Name=\"T\" ><Row ID=\"1\" >"
                             "<Item Name=\"x\" Value=\"1\" /></Row></Table></DataSet></BODY>";
    request.Type = "GET";
    EXPECT_EQ(FC_NO_SUCH_NAME, mCom.treatMsg(request, body, response, mBody));
    request.Type = "SET";
    EXPECT_EQ(FC_BAD_VALUE, mCom.treatMsg(request, body, response, mBody));
    EXPECT_THAT(mHolder.calls(), ElementsAre("setTextParam(S, T, x, 1, 1)", "rollbackChanges()"));
    mHolder.refusals.clear();
    EXPECT_EQ(FC_OK, mCom.treatMsg(request, body, response, mBody));
    EXPECT_EQ("setTextParam(S, T, x, 1, 1)", mHolder.calls().back());
}

TEST_F(DataCommunicatorTest, TimesForEventsHaveTwoBlanks)
{
    setenv("TZ", "UTC", 1);
    tzset();
    std::string text = "replaced";
    DataCommunicator::timeToString(1709647629, text);
    EXPECT_EQ("05-Mar-24  14:07:09", text);
}

// The loop

TEST_F(DataCommunicatorTest, TheResponderAnswersRequests)
{
    mHolder.onExecute = [](const std::string&, std::string& result) {
        result = "done";
        return FC_OK;
    };
    startResponder();
    // Size is 13 short of the body: the tags are not counted.
    EXPECT_EQ("<HEADER ID=\"7\" Type=\"ACK\" Fcode=\"10000\" Size=\"4\" >\n</HEADER>\n"
              "<BODY>done</BODY>",
              exchange(message("COMMAND", kCommand)));
    EXPECT_EQ("<HEADER ID=\"7\" Type=\"ACK\" Fcode=\"10002\" Size=\"0\" >\n</HEADER>\n",
              exchange(message("COMMAND", "")));
    EXPECT_EQ("<HEADER ID=\"7\" Type=\"RESPONSE\" Fcode=\"10000\" Size=\"0\" >\n</HEADER>\n",
              exchange(message("SET", "")));
    EXPECT_EQ("<HEADER ID=\"7\" Type=\"NACK\" Fcode=\"10002\" Size=\"0\" >\n</HEADER>\n",
              exchange(message("GET", "<BODY>nothing</BODY>")));
    EXPECT_EQ("<HEADER ID=\"7\" Type=\"NACK\" Fcode=\"10001\" Size=\"0\" >\n</HEADER>\n",
              exchange(message("PUT", "")));
    EXPECT_TRUE(waitForLog("doWork: response body:\n\n"));
    EXPECT_THAT(mLog.entries(),
                Contains(unit("ERROR", "doWork: treatMsg failed from sock=/tmp/peer id=7 req= "
                                       "fcode=65537")));
}

TEST_F(DataCommunicatorTest, TheRespondersLinesCarryTheTaskName)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // no thread has had its identifier before
    EXPECT_EXIT(
        {
            startResponder();
            mPeer.send(kSock, "garbage");
            std::_Exit(waitForLog(" tComA(") ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(DataCommunicatorTest, TheResponderOutlivesWhatItCannotUseOrAnswer)
{
    startResponder();
    mPeer.send(kSock, "garbage");
    EXPECT_TRUE(waitForLog("doWork: readMsg failed from sock=/tmp/peer fcode=10001"));
    EXPECT_TRUE(waitForLog("doWork: msg body:\n"));
    ScriptedPeer().send(kSock, message("COMMAND", kCommand));
    EXPECT_TRUE(waitForLog("doWork: sending resp failed to sock= id=7 req=" +
                           std::string(kCommand) + " resp= fcode=65600"));
    ScriptedPeer().send(kSock, message("PUT", ""));
    EXPECT_TRUE(waitForLog("doWork: response failed to sock= fcode=65600"));

    ScriptedPeer abstract(std::string("\0sysmgt", 7));
    abstract.send(kSock, message("COMMAND", kCommand));
    EXPECT_EQ("ACK", abstract.receive().header.Type);
}

TEST_F(DataCommunicatorTest, TheResponderTakesEventsAndFilesAnswersWithoutAnswering)
{
    startResponder();
    mPeer.send(kSock, message("EVENT", "<BODY><Event ID=\"Up\" Source=\"S\" /></BODY>"));
    EXPECT_TRUE(mHolder.waitForCall("handle(Up, 65536)"));
    for (const char* type : {"ACK", "NACK", "RESPONSE", "NO_REPLY"}) {
        mPeer.send(kSock, message(type, "<BODY>b</BODY>", 31));
        EXPECT_TRUE(waitForLog("doWork: **** stored in history *** id=31 sender=/tmp/peer "
                               "msg=<BODY>b</BODY>"));
        std::string header;
        std::string sender;
        EXPECT_TRUE(mCom.getResponse(31, header, mBody, sender));
        EXPECT_EQ("/tmp/peer", sender);
        EXPECT_NE(std::string::npos, header.find(type));
        mLog.clear();
    }
    EXPECT_TRUE(mPeer.nothingCame());
    std::string untouched = "untouched";
    EXPECT_FALSE(mCom.getResponse(32, untouched, untouched, untouched));
    EXPECT_EQ("untouched", untouched);
}

/// Datagrams that mean harm: each just fits, or is broken where it hurts.
TEST_F(DataCommunicatorTest, HostileMessagesCostMillisecondsAndAreSurvived)
{
    const auto repeat = [](const std::string& piece, std::size_t size = 69'000) {
        std::string text;
        while (text.size() + piece.size() <= size)
            text += piece;
        return text;
    };
    const std::string open = "<BODY><DataSet ID=\"S\" ><Table Name=\"T\" >";
    const std::string close = "</Table></DataSet></BODY>";
    const std::string bodies[] = {
        repeat("<"),
        repeat("<BODY>"),
        repeat("<BODY "),
        "<BODY>" + repeat("<DataSet ID=\"") + "</BODY>",
        "<BODY>" + repeat("<Table Name=\"T\" />") + "</BODY>",
        "<BODY>" + repeat("<Table>") + "</BODY>",
        "<BODY>" + repeat("<Component>Name=\"T\"</Component>") + "</BODY>",
        open + repeat("<Row ID=\"1\" />") + close,
        open + repeat("<Row>") + close,
        open + repeat("<Row></Row>") + close,
        open + repeat("<Row ID=\"1\" ><Item Name=\"x\" Value=\"y\" /></Row>") + close,
        open + repeat("<Item Name=\"x\" Value=\"y\" />") + close,
        open + repeat("<Item Name=\"") + close,
        "<BODY><Command ID=\"Add Row\" >" + repeat("<Parameter Name=\"x\" Value=\"y\" />") +
            "</Command></BODY>",
        "<BODY><Event ID=\"Up\" >" + repeat("<Parameter />") + "</Event></BODY>",
        std::string("<BODY><Table Name=\"\xff\x01%n\" ></Table></BODY>"),
    };
    gDbgLevel = 5; // the time of the log is the collector's matter
    mHolder.instances["S/T"] = {"1", "2"};
    for (const std::string& body : bodies)
        for (const char* type : {"GET", "SET", "COMMAND", "EVENT"})
            for (const std::size_t size : {body.size(), body.size() / 2}) {
                MessageHeader request;
                request.Type = type;
                MessageHeader response;
                mBody.clear();
                const std::string cut = body.substr(0, size);
                const auto begin = std::chrono::steady_clock::now();
                if (request.Type == "EVENT")
                    mCom.treatEventMsg(request, cut);
                else
                    mCom.treatMsg(request, cut, response, mBody);
                // Milliseconds, but for sanitizers and busy machines.
                EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1))
                    << type << ' ' << cut.substr(0, 60);
            }
}

} // namespace
