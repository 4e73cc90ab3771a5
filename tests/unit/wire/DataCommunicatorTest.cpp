#include "CommunicatorFixture.h"
#include "DbgPrintClient.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kCommand[] = "<BODY><Command ID=\"Do\" /></BODY>";

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
        mBody = "untouched";
        return mCom.readMsg(socket.descriptor(), mHeader, mBody, mSender, mSenderLength, timeout);
    }

    /// What is made of a message of this type by a direct call, and the answer's code to a command.
    Fcodes treat(const std::string& type, const std::string& body)
    {
        MessageHeader request;
        request.ID = 7;
        request.Type = type;
        request.Fcode = FC_LOS;
        mBody.clear();
        return type == "EVENT" ? mCom.treatEventMsg(request, body)
                               : mCom.treatMsg(request, body, mHeader, mBody);
    }
    Fcodes command(const std::string& body)
    {
        EXPECT_EQ(FC_OK, treat("COMMAND", body));
        EXPECT_EQ("ACK", mHeader.Type);
        EXPECT_EQ(7, mHeader.ID);
        return mHeader.Fcode;
    }
    Fcodes command(const std::string& id, const std::string& parameters)
    {
        return command("<BODY><Command ID=\"" + id + "\" >" + parameters + "</Command></BODY>");
    }

    /// All observers that are told of an event, in the order of the log.
    std::string observers()
    {
        mLog.clear();
        MessageEvent event;
        event.ID = "E";
        mCom.notify(event);
        std::string told;
        for (const std::string& line : logged())
            if (line.starts_with("INFO notify: event=E to observer="))
                told += line.substr(33) + ' ';
        return told;
    }

    ScriptedPeer mPeer{"/tmp/peer"};
    MessageHeader mHeader;
    std::string mBody;
    sockaddr_un mSender{};
    socklen_t mSenderLength = 0;
};

// Start-up

TEST_F(DataCommunicatorTest, InitOpensBothPathsToEverybody)
{
    struct stat status {
    };
    for (const char* path : {kSock, kSendSock})
        EXPECT_TRUE(stat(path, &status) == 0 && status.st_mode == (S_IFSOCK | 0777)) << path;
}

TEST_F(DataCommunicatorTest, ASocketThatCannotBeMadeEndsTheProcessWithStatusZero)
{
    const std::string tooLong = "/tmp/" + std::string(104, 'p');
    const auto end = testing::ExitedWithCode(0);
    const std::string line = "FATAL init: Socket bind failed to ";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(DataCommunicator().init(&mHolder, "/tmp/no/dir", "/tmp/s", "t"), end, "");
    EXPECT_THAT(logged(), Contains(line + "/tmp/no/dir errno=2"));
    EXPECT_EXIT(DataCommunicator().init(&mHolder, "/tmp/r", tooLong, "t"), end, "");
    EXPECT_THAT(logged(), Contains(line + tooLong + " errno=36"));
}

// Transfers

TEST_F(DataCommunicatorTest, ReadingTellsAnAcceptedMessageFromAnUnusableOne)
{
    const std::string head = "<HEADER ID=\"1\" Type=\"T\" Size=\"9\" >\n</HEADER>\n";
    const std::string sized0 = "<HEADER ID=\"1\" Type=\"T\" Size=\"0\" ></HEADER>";
    const std::string sized = head + "<BODY>b</BODY>";
    const std::string unsized = "<HEADER ID=\"1\" Type=\"T\" ></HEADER>";
    const std::string taken = "INFO readMsg: Msg Body:\n<BODY>b</BODY>";
    const std::string noBody = "ERROR readMsg: Not found tags BODY in:\n";
    const std::string noHeader = "ERROR readMsg: Not found tags HEADER in:\n";
    const std::string from = " from sock=/tmp/peer";
    const std::string tooLong = "ERROR readMsg: MAX header size=70000" + from + " errno=0";
    const struct {
        std::string datagram;
        Fcodes code;
        std::string body;
        std::string lastLine;
    } cases[] = {
        // clang-format off
        {sized, FC_OK, "<BODY>b</BODY>", taken},
        {sized + std::string(69999 - sized.size(), ' '), FC_OK, "<BODY>b</BODY>", taken},
        {sized0 + "<BODY>b</BODY>", FC_OK, "untouched", "INFO readMsg: Msg Header:\n" + sized0},
        {head, FC_BODY_ERROR, "untouched", noBody + head + from},
        {"<BODY>b</BODY>" + head, FC_BODY_ERROR, "untouched", noBody + "<BODY>b</BODY>" + head + from},
        {head + std::string("\0<BODY>b</BODY>", 15), FC_BODY_ERROR, "untouched", noBody + head + from},
        {unsized, FC_HEADER_ERROR, "untouched", "ERROR readMsg: Header init failed from:\n" + unsized + from},
        {std::string(1, '\0'), FC_HEADER_ERROR, "untouched", noHeader + from},
        {"nothing", FC_HEADER_ERROR, "untouched", noHeader + "nothing" + from},
        {sized + std::string(70000 - sized.size(), ' '), FC_COMM_ERROR, "untouched", tooLong},
        {sized + std::string(90000, ' '), FC_COMM_ERROR, "untouched", tooLong},
        // clang-format on
    };
    for (const auto& [datagram, code, body, lastLine] : cases) {
        EXPECT_EQ(code, read(datagram)) << lastLine;
        EXPECT_EQ(body, mBody) << lastLine;
        EXPECT_EQ(lastLine, logged().back());
        EXPECT_STREQ("/tmp/peer", mSender.sun_path);
        EXPECT_EQ(12u, mSenderLength);
    }
    read("nothing");
    EXPECT_EQ("INFO readMsg: recvfrom sock=/tmp/peer senderlen=12 readSize=7", logged().front());
    EXPECT_EQ(FC_COMM_ERROR, read("", -1));
    EXPECT_THAT(logged(), ElementsAre(HasSubstr("ERROR readMsg: Time out -1 sec. for sock=")));
    EXPECT_EQ(FC_COMM_ERROR, mCom.readMsg(-1, mHeader, mBody, mSender, mSenderLength, 0, 3));
    EXPECT_THAT(logged(), ElementsAre("ERROR readMsg: select failed errno=9"));
}

TEST_F(DataCommunicatorTest, SendingToAFullReceiverTriesAgainAndToAMissingOneDoesNot)
{
    DatagramSocket socket;
    SocketAddress receiver;
    ASSERT_TRUE(socket.open() && receiver.assign("/tmp/peer"));
    const auto send = [&](int delay, int tries) {
        return mCom.sendMessage(socket.descriptor(), mHeader, "b", receiver.address(),
                                receiver.length(), delay, tries);
    };
    const auto sending = [&](const std::string& path) {
        return "INFO sendMessage: Sending msg via sockfd=" + std::to_string(socket.descriptor()) +
               " to sock=" + path + " :\n<HEADER ID=\"0\" Type=\"\" Size=\"0\" >\n</HEADER>\nb";
    };
    const std::string failed = "ERROR sendMessage: in writing msg body to sock=";
    int queued = ScriptedPeer::fill("/tmp/peer");
    mLog.clear();
    EXPECT_EQ(FC_COMM_ERROR, send(-1, 2));
    EXPECT_THAT(logged(),
                ElementsAre(sending("/tmp/peer"), failed + "/tmp/peer errno=11 tries left=2",
                            sending("/tmp/peer"), failed + "/tmp/peer errno=11 tries left=1"));

    ASSERT_TRUE(socket.setTimeout(SO_SNDTIMEO, 1));
    std::jthread reading([&] {
        EXPECT_TRUE(mLog.waitFor("tries left=3"));
        while (queued-- > 0)
            mPeer.receiveText();
    });
    EXPECT_EQ(FC_OK, send(1, 3));
    reading.join();

    mLog.clear();
    ASSERT_TRUE(receiver.assign("/tmp/nobody"));
    EXPECT_EQ(FC_COMM_ERROR, send(0, 3));
    EXPECT_THAT(logged(),
                ElementsAre(sending("/tmp/nobody"), failed + "/tmp/nobody errno=2 Stop sending."));
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
    const std::string read = "ERROR readLine: Till now read:rest";
    EXPECT_THAT(logged(), ElementsAre("ERROR readLine: Time out -1 sec. for sock=" + sock, read,
                                      "ERROR readLine: read error from sock=" + sock, read,
                                      "ERROR readLine: select failed for sock=-1", read));
}

// Commands and events

TEST_F(DataCommunicatorTest, CommandsOfTheCommunicatorItselfAreCarriedOut)
{
    const std::string table = "<Parameter Name=\"Table\" Value=\"T\" />";
    const std::string row = "<Parameter Name=\"Row\" Value=\"3\" />";
    for (const char* id : {"Add Row", "Get Next Row"}) {
        EXPECT_EQ(FC_OK, command(id, table + row));
        EXPECT_EQ(FC_OK, command(id, table));
        EXPECT_EQ(FC_BODY_ERROR, command(id, row));
    }
    EXPECT_THAT(mHolder.calls(), ElementsAre("newRow(T, 3)", "appendNewRow(T)",
                                             "getNextRowIndex(T, 3)", "getFirstRowIndex(T)"));
    EXPECT_EQ(FC_OK, command("StopDbgPrint", ""));
    EXPECT_EQ(5, gDbgLevel);
    EXPECT_EQ(FC_OK, command("StartDbgPrint", ""));
    EXPECT_EQ(0, gDbgLevel);
    EXPECT_EQ("", mBody);
}

TEST_F(DataCommunicatorTest, OnlyACompleteSubscriptionIsTaken)
{
    const std::string good = "<Parameter Name=\"SockName\" Value=\"/tmp/peer\" />";
    const std::string wrong = "<Parameter Name=\"Sock\" Value=\"/tmp/peer\" />";
    const std::string bare = "<Parameter Name=\"SockName\" />";
    const std::string line = "ERROR treatCommandMsg: Not found tags ";
    for (const std::string& parameters : {std::string(), bare, wrong + good})
        EXPECT_EQ(FC_BODY_ERROR, command("SUBSCRIBE", parameters));
    EXPECT_THAT(logged(), ElementsAre(line + "Parameter in:\n<Command ID=\"SUBSCRIBE\" ></Command>",
                                      line + "Name=SockName or Value in:\n" + bare,
                                      line + "Name=SockName or Value in:\n" + wrong));
    EXPECT_EQ("", observers());

    EXPECT_EQ(FC_OK, command("SUBSCRIBE", good));
    EXPECT_THAT(logged(), ElementsAre("INFO subscribe: subscribing observer sockName=/tmp/peer"));
    mCom.subscribe("/tmp/other");
    EXPECT_EQ("/tmp/peer /tmp/other ", observers());
    mCom.subscribe("/tmp/peer");
    EXPECT_EQ("/tmp/other /tmp/peer ", observers());
}

TEST_F(DataCommunicatorTest, AFailedCommandIsAnAckWithItsCode)
{
    mHolder.commandText = "partial";
    mHolder.commandResult = FC_UNAVAILABLE;
    EXPECT_EQ(FC_UNAVAILABLE, command(kCommand));
    EXPECT_THAT(mHolder.calls(), ElementsAre("execute(<Command ID=\"Do\" />)"));
    EXPECT_EQ(7, mHeader.Size); // 13 short of the body: the tags are not counted
    EXPECT_EQ("<BODY>partial</BODY>", mBody);
    mHolder.commandResult = {};
    EXPECT_EQ(FC_OK, command(kCommand));

    mLog.clear();
    for (const char* body :
         {"no body", "<BODY>no command</BODY>", "<BODY><Command Id=\"\" /></BODY>"})
        EXPECT_EQ(FC_BODY_ERROR, command(body));
    // clang-format off
    EXPECT_THAT(logged(), ElementsAre(
        "ERROR treatCommandMsg: Not Found BODY tags in msg:\nno body",
        "ERROR treatCommandMsg: Not Found Command tags in msg:\n<BODY>no command</BODY>",
        "ERROR treatCommandMsg: Not found tags ID in:\n<Command Id=\"\" />"));
    // clang-format on
}

TEST_F(DataCommunicatorTest, AnEventReachesTheHolderWithTheCodeOfItsHeader)
{
    EXPECT_EQ(FC_OK, treat("EVENT", "<BODY><Event ID=\"Up\" Source=\"S\" /></BODY>"));
    mLog.clear();
    for (const char* body : {"", "<BODY></BODY>", "<BODY><Event Name=\"x\" /></BODY>"})
        EXPECT_EQ(FC_BODY_ERROR, treat("EVENT", body));
    // clang-format off
    EXPECT_THAT(logged(), ElementsAre(
        "ERROR treatEventMsg: Not Found BODY tags in msg:\n",
        "ERROR treatEventMsg: Not Found Event tags in msg:\n<BODY></BODY>",
        HasSubstr("MessageEvent:initFromString: Not found tags ID"),
        "ERROR treatEventMsg: event initFromString error fcode=10002"));
    // clang-format on
    EXPECT_EQ(FC_OK, mCom.treatEventMsg(mHeader, "<BODY></BODY>")); // of another type
    EXPECT_THAT(mHolder.calls(), ElementsAre("handle(Up, 66560)"));
}

TEST_F(DataCommunicatorTest, AFailedSetIsRolledBackAndAFailedGetIsNot)
{
    mHolder.refusals = {{"x", FC_BAD_VALUE}};
    const std::string body = "<BODY><DataSet ID=\"S\" ><Table Name=\"T\" ><Row ID=\"1\" >"
                             "<Item Name=\"x\" Value=\"1\" /></Row></Table></DataSet></BODY>";
    EXPECT_EQ(FC_NO_SUCH_NAME, treat("GET", body));
    EXPECT_EQ(FC_BAD_VALUE, treat("SET", body));
    mHolder.refusals.clear();
    EXPECT_EQ(FC_OK, treat("SET", body));
    EXPECT_THAT(mHolder.calls(), ElementsAre("setTextParam(S, T, x, 1, 1)", "rollbackChanges()",
                                             "setTextParam(S, T, x, 1, 1)"));
}

TEST_F(DataCommunicatorTest, WithoutAHolderRequestsAreUnavailableAndEventsAreDropped)
{
    mCom.setDataHolder(nullptr);
    const std::string table = "<Parameter Name=\"Table\" Value=\"T\" />";
    EXPECT_EQ(FC_UNAVAILABLE, command(kCommand));
    EXPECT_EQ(FC_UNAVAILABLE, command("Add Row", table));
    EXPECT_EQ(FC_UNAVAILABLE, command("Get Next Row", table));
    for (const char* type : {"GET", "SET"})
        EXPECT_EQ(FC_UNAVAILABLE, treat(type, "<BODY><Table Name=\"T\" /></BODY>"));
    EXPECT_EQ(FC_UNAVAILABLE, treat("EVENT", "<BODY><Event ID=\"Up\" Source=\"S\" /></BODY>"));

    EXPECT_EQ(FC_OK, command("StartDbgPrint", ""));
    EXPECT_EQ(FC_OK, command("SUBSCRIBE", "<Parameter Name=\"SockName\" Value=\"/tmp/peer\" />"));
    EXPECT_EQ("/tmp/peer ", observers());
}

// The loop

TEST_F(DataCommunicatorTest, TheResponderAnswersRequests)
{
    mHolder.commandText = "done";
    startResponder();
    const char* const cases[][3] = {
        // clang-format off
        {"COMMAND", kCommand, "ACK\" Fcode=\"10000\" Size=\"4\" >\n</HEADER>\n<BODY>done</BODY>"},
        {"COMMAND", "", "ACK\" Fcode=\"10002\" Size=\"0\" >\n</HEADER>\n"},
        {"SET", "", "RESPONSE\" Fcode=\"10000\" Size=\"0\" >\n</HEADER>\n"},
        {"GET", "<BODY>nothing</BODY>", "NACK\" Fcode=\"10002\" Size=\"0\" >\n</HEADER>\n"},
        {"PUT", "", "NACK\" Fcode=\"10001\" Size=\"0\" >\n</HEADER>\n"},
        // clang-format on
    };
    for (const auto& [type, body, answer] : cases) {
        mPeer.send(kSock, message(type, body));
        EXPECT_EQ(std::string("<HEADER ID=\"7\" Type=\"") + answer, mPeer.receive().text);
    }
    EXPECT_TRUE(mLog.waitFor("doWork: response body:\n\n"));
    EXPECT_THAT(logged(), Contains("ERROR doWork: treatMsg failed from sock=/tmp/peer id=7 req= "
                                   "fcode=65537"));
}

TEST_F(DataCommunicatorTest, AnAnswerTooLargeForTheSocketIsRefusedAndOneForTheReaderIsSent)
{
    startResponder();
    mHolder.commandText.assign(80000, 'x');
    mPeer.send(kSock, message("COMMAND", kCommand));
    EXPECT_EQ("<BODY>" + mHolder.commandText + "</BODY>", mPeer.receive().body);

    mHolder.commandText.assign(300000, 'x');
    mPeer.send(kSock, message("COMMAND", kCommand));
    EXPECT_EQ("<HEADER ID=\"7\" Type=\"NACK\" Fcode=\"10100\" Size=\"0\" >\n</HEADER>\n",
              mPeer.receive().text);
    EXPECT_THAT(mLog.text(), HasSubstr("doWork: sending resp failed to sock=/tmp/peer id=7 req="));
}

TEST_F(DataCommunicatorTest, TheRespondersLinesCarryTheTaskName)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // no thread has had its identifier before
    EXPECT_EXIT(
        {
            startResponder();
            mPeer.send(kSock, "garbage");
            std::_Exit(mLog.waitFor(" tComA(") ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(DataCommunicatorTest, TheResponderOutlivesWhatItCannotUseOrAnswer)
{
    startResponder();
    mPeer.send(kSock, "garbage");
    EXPECT_TRUE(mLog.waitFor("doWork: readMsg failed from sock=/tmp/peer fcode=10001"));
    EXPECT_TRUE(mLog.waitFor("doWork: msg body:\n"));
    ScriptedPeer().send(kSock, message("COMMAND", kCommand));
    EXPECT_TRUE(mLog.waitFor("doWork: sending resp failed to sock= id=7 req=" +
                             std::string(kCommand) + " resp= fcode=65600"));
    ScriptedPeer().send(kSock, message("PUT", ""));
    EXPECT_TRUE(mLog.waitFor("doWork: response failed to sock= fcode=65600"));

    ScriptedPeer abstract(std::string("\0sysmgt", 7));
    abstract.send(kSock, message("COMMAND", kCommand));
    EXPECT_EQ("ACK", abstract.receive().header.Type);
}

TEST_F(DataCommunicatorTest, TheResponderTakesEventsAndFilesAnswersWithoutAnswering)
{
    startResponder();
    mPeer.send(kSock, message("EVENT", "<BODY><Event ID=\"Up\" Source=\"S\" /></BODY>"));
    EXPECT_TRUE(eventually(
        [&] { return mHolder.calls() == std::vector<std::string>{"handle(Up, 65536)"}; }));
    std::string header;
    std::string sender;
    for (const char* type : {"ACK", "NACK", "RESPONSE", "NO_REPLY"}) {
        mPeer.send(kSock, message(type, "<BODY>b</BODY>", 31));
        EXPECT_TRUE(mLog.waitFor("doWork: **** stored in history *** id=31 sender=/tmp/peer "
                                 "msg=<BODY>b</BODY>"));
        EXPECT_TRUE(mCom.getResponse(31, header, mBody, sender));
        EXPECT_EQ("/tmp/peer", sender);
        EXPECT_THAT(header, HasSubstr(type));
        mLog.clear();
    }
    EXPECT_TRUE(mPeer.nothingCame());
    EXPECT_FALSE(mCom.getResponse(32, header, mBody, sender));
    EXPECT_EQ("/tmp/peer", sender);
}

/// Datagrams that mean harm: each just fits, or is broken where it hurts.
TEST_F(DataCommunicatorTest, HostileMessagesCostMillisecondsAndAreSurvived)
{
    const auto full = [](const std::string& open, const std::string& piece, const char* close) {
        std::string text = open;
        while (text.size() + piece.size() <= 69'000)
            text += piece;
        return text + close;
    };
    const std::string table = "<BODY><DataSet ID=\"S\" ><Table Name=\"T\" >";
    const char* const end = "</Table></DataSet></BODY>";
    const std::string parameter = "<Parameter Name=\"x\" Value=\"y\" />";
    const std::string bodies[] = {
        full("", "<", ""),
        full("", "<BODY>", ""),
        full("", "<BODY ", ""),
        full("<BODY>", "<DataSet ID=\"", "</BODY>"),
        full("<BODY>", "<Table Name=\"T\" />", "</BODY>"),
        full("<BODY>", "<Table>", "</BODY>"),
        full("<BODY>", "<Component>Name=\"T\"</Component>", "</BODY>"),
        full(table, "<Row ID=\"1\" />", end),
        full(table, "<Row>", end),
        full(table, "<Row></Row>", end),
        full(table, "<Row ID=\"1\" ><Item Name=\"x\" Value=\"y\" /></Row>", end),
        full(table, "<Item Name=\"x\" Value=\"y\" />", end),
        full(table, "<Item Name=\"", end),
        full("<BODY><Command ID=\"Add Row\" >", parameter, "</Command></BODY>"),
        full("<BODY><Event ID=\"Up\" >", "<Parameter />", "</Event></BODY>"),
        "<BODY><Table Name=\"\xff\x01%n\" ></Table></BODY>",
    };
    gDbgLevel = 5; // the time of the log is the collector's matter
    mHolder.instances["S/T"] = {"1", "2"};
    for (const std::string& body : bodies)
        for (const char* type : {"GET", "SET", "COMMAND", "EVENT"})
            for (const std::size_t size : {body.size(), body.size() / 2}) {
                const auto begin = std::chrono::steady_clock::now();
                treat(type, body.substr(0, size));
                // Milliseconds, but for sanitizers and busy machines.
                EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1))
                    << type << ' ' << size << ' ' << body.substr(0, 60);
            }
}

} // namespace
