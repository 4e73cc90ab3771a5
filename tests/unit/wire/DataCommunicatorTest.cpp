#include "CommunicatorFixture.h"
#include "DbgPrintClient.h"
#include "Refusal.h"

#include <filesystem>
#include <thread>
#include <unistd.h>

namespace
{

using namespace testing;

constexpr char kEvent[] = "<BODY><Event ID=\"Up\" Source=\"S\" /></BODY>";
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

    /// Has a message treated by a direct call; the result, or the code of a command's answer.
    Fcodes treat(const std::string& type, const std::string& body)
    {
        const MessageHeader request{0, FC_LOS, 7, type};
        mBody.clear();
        if (type == "EVENT")
            return mCom.treatEventMsg(request, body);
        const Fcodes result = mCom.treatMsg(request, body, mHeader, mBody);
        if (type != "COMMAND")
            return result;
        EXPECT_TRUE(result == FC_OK && mHeader.Type == "ACK" && mHeader.ID == 7);
        return mHeader.Fcode;
    }

    static std::string command(const std::string& id, const std::string& parameters)
    {
        return "<BODY><Command ID=\"" + id + "\" >" + parameters + "</Command></BODY>";
    }

    ScriptedPeer mPeer{"/tmp/peer"};
    MessageHeader mHeader;
    std::string mBody;
    sockaddr_un mSender{};
    socklen_t mSenderLength = 0;
};

// Start-up

TEST_F(DataCommunicatorTest, ASocketThatCannotBeMadeEndsTheProcessWithStatusZero)
{
    const std::string tooLong = "/tmp/" + std::string(104, 'p');
    const auto end = testing::ExitedWithCode(0);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string line = "FATAL init: Socket bind failed to ";
    EXPECT_EXIT(DataCommunicator().init(&mHolder, "/tmp/no/dir", "/tmp/s", "t"), end, "");
    EXPECT_THAT(logged(), Contains(line + "/tmp/no/dir errno=2"));
    EXPECT_EXIT(DataCommunicator().init(&mHolder, "/tmp/r", tooLong, "t"), end, "");
    EXPECT_THAT(logged(), Contains(line + tooLong + " errno=36"));
    const auto refuseSockets = [] { refuse(SYS_socket, 0, 0, EMFILE); };
    EXPECT_EXIT((refuseSockets(), DataCommunicator().init(&mHolder, "/tmp/r", "/tmp/s", "t")), end,
                "");
    EXPECT_THAT(logged(), Contains("FATAL init: Send Socket create failed"));
}

TEST_F(DataCommunicatorTest, SocketsWithoutTheirOptionsServeAllTheSame)
{
    static FakeDataHolder& holder = *new FakeDataHolder; // its responder never ends
    std::jthread([] {                                    // one that the kernel refuses every option
        refuse(SYS_setsockopt, 0, 0, EPERM);
        refuse(SYS_getsockopt, 0, 0, EPERM);
        holder.getDataCommunicator().init(&holder, "/tmp/r", "/tmp/s", "t");
        holder.getDataCommunicator().start();
    })
        .join();
    const std::string line = "ERROR init: setsockopt SO_";
    EXPECT_THAT(logged(), IsSupersetOf({line + "RCVTIMEO failed", line + "SNDTIMEO failed",
                                        line + "PASSCRED failed", line + "RCVTIMEO failed",
                                        line + "SNDTIMEO failed"}));
    mPeer.send("/tmp/r", message("PUT", ""));
    EXPECT_EQ("NACK", mPeer.receive().header.Type);
}

// Transfers

TEST_F(DataCommunicatorTest, ReadMsgTakesWholeMessagesAndSaysWhatIsWrongWithOthers)
{
    const std::string head = "<HEADER ID=\"1\" Type=\"T\" Size=\"9\" >\n</HEADER>\n";
    const std::string sized0 = "<HEADER ID=\"1\" Type=\"T\" Size=\"0\" ></HEADER>";
    const std::string unsized = "<HEADER ID=\"1\" Type=\"T\" ></HEADER>";
    const std::string body = "<BODY>b</BODY>";
    const std::string from = " from sock=/tmp/peer";
    const std::string taken = "INFO readMsg: Msg Body:\n" + body;
    const std::string noBody = "ERROR readMsg: Not found tags BODY in:\n";
    const std::string noHeader = "ERROR readMsg: Not found tags HEADER in:\n";
    const auto ofSize = [&](std::size_t size) {
        return head + body + std::string(size - head.size() - body.size(), ' ');
    };
    const std::tuple<std::string, Fcodes, std::string> cases[] = {
        // clang-format off
        {head + body, FC_OK, taken},
        {ofSize(69999), FC_OK, taken},
        {ofSize(70000), FC_COMM_ERROR, "ERROR readMsg: MAX header size=70000" + from + " errno=0"},
        {sized0 + body, FC_OK, "INFO readMsg: Msg Header:\n" + sized0},
        {head, FC_BODY_ERROR, noBody + head + from},
        {body + head, FC_BODY_ERROR, noBody + body + head + from},
        {head + '\0' + body, FC_BODY_ERROR, noBody + head + from},
        {unsized, FC_HEADER_ERROR, "ERROR readMsg: Header init failed from:\n" + unsized + from},
        {"nothing", FC_HEADER_ERROR, noHeader + "nothing" + from},
        // clang-format on
    };
    for (const auto& [datagram, code, lastLine] : cases) {
        EXPECT_EQ(code, read(datagram)) << lastLine;
        EXPECT_EQ(lastLine == taken ? body : "untouched", mBody) << lastLine;
        const std::vector<std::string> lines = logged();
        const std::string size = std::to_string(datagram.size());
        EXPECT_EQ("INFO readMsg: recvfrom sock=/tmp/peer senderlen=12 readSize=" + size,
                  lines.front());
        EXPECT_EQ(lastLine, lines.back());
    }
    EXPECT_STREQ("/tmp/peer", mSender.sun_path);
    EXPECT_EQ(12u, mSenderLength);
    EXPECT_EQ(FC_COMM_ERROR, read("", -1));
    EXPECT_THAT(logged(), ElementsAre(HasSubstr("ERROR readMsg: Time out -1 sec. for sock=")));
    EXPECT_EQ(FC_COMM_ERROR, mCom.readMsg(-1, mHeader, mBody, mSender, mSenderLength, 0, 3));
    EXPECT_THAT(logged(), ElementsAre("ERROR readMsg: select failed errno=9"));
}

TEST_F(DataCommunicatorTest, SendingToAFullReceiverTriesAgainAndToAMissingOneDoesNot)
{
    DatagramSocket socket;
    ASSERT_TRUE(socket.open() && socket.setTimeout(SO_SNDTIMEO, 1));
    const auto send = [&](const std::string& path, int delay, int tries) {
        SocketAddress receiver;
        EXPECT_TRUE(receiver.assign(path));
        return mCom.sendMessage(socket.descriptor(), mHeader, "b", receiver.address(),
                                receiver.length(), delay, tries);
    };
    int queued = ScriptedPeer::fill("/tmp/peer");
    mLog.clear();
    EXPECT_EQ(FC_COMM_ERROR, send("/tmp/peer", -1, 2));
    const std::string sending =
        "INFO sendMessage: Sending msg via sockfd=" + std::to_string(socket.descriptor()) +
        " to sock=/tmp/peer :\n" + "<HEADER ID=\"0\" Type=\"\" Size=\"0\" >\n</HEADER>\nb";
    const std::string failed = "ERROR sendMessage: in writing msg body to sock=/tmp/";
    EXPECT_THAT(logged(), ElementsAre(sending, failed + "peer errno=11 tries left=2", sending,
                                      failed + "peer errno=11 tries left=1"));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(FC_COMM_ERROR, send("/tmp/peer", 1, 1)); // after the socket's second one more
    EXPECT_LE(std::chrono::milliseconds(1900), std::chrono::steady_clock::now() - begin);

    std::jthread reading([&] {
        EXPECT_TRUE(mLog.waitFor("tries left=3"));
        while (queued-- > 0)
            mPeer.receiveText();
    });
    EXPECT_EQ(FC_OK, send("/tmp/peer", 1, 3));
    reading.join();
    EXPECT_EQ(FC_COMM_ERROR, send("/tmp/nobody", 0, 3));
    EXPECT_EQ(failed + "nobody errno=2 Stop sending.", logged().back());
}

TEST_F(DataCommunicatorTest, ReadlineAppendsUpToTheLineFeed)
{
    int pipe[2];
    ASSERT_EQ(0, ::pipe(pipe));
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
    const std::string read = "ERROR readLine: Till now read:rest";
    EXPECT_THAT(logged(), ElementsAre(HasSubstr("ERROR readLine: Time out -1 sec. for sock="), read,
                                      HasSubstr("ERROR readLine: read error from sock="), read,
                                      "ERROR readLine: select failed for sock=-1", read));
}

// Commands and events

TEST_F(DataCommunicatorTest, EachMessageCallsTheHolderOrIsRefusedWithItsCode)
{
    const std::string table = "<Parameter Name=\"Table\" Value=\"T\" />";
    const std::string row = "<Parameter Name=\"Row\" Value=\"3\" />";
    const std::string wrong = "<Parameter Name=\"Sock\" Value=\"/tmp/peer\" />";
    const std::string noValue = "<Parameter Name=\"SockName\" />";
    const std::string write = "<BODY><DataSet ID=\"S\" ><Table Name=\"T\" ><Row ID=\"1\" >"
                              "<Item Name=\"x\" Value=\"1\" /></Row></Table></DataSet></BODY>";
    const std::string commandError = "ERROR treatCommandMsg: Not ";
    const std::string eventError = "ERROR treatEventMsg: ";
    // The outcome is the last call of the holder, else the last line.
    const std::tuple<std::string, std::string, Fcodes, std::string> cases[] = {
        // clang-format off
        {"COMMAND", command("Add Row", table + row), FC_OK, "newRow(T, 3)"},
        {"COMMAND", command("Add Row", table), FC_OK, "appendNewRow(T)"},
        {"COMMAND", command("Add Row", row), FC_BODY_ERROR, ""},
        {"COMMAND", command("Get Next Row", table + row), FC_OK, "getNextRowIndex(T, 3)"},
        {"COMMAND", command("Get Next Row", table), FC_OK, "getFirstRowIndex(T)"},
        {"COMMAND", command("Get Next Row", row), FC_BODY_ERROR, ""},
        {"COMMAND", command("SUBSCRIBE", ""), FC_BODY_ERROR,
         commandError + "found tags Parameter in:\n<Command ID=\"SUBSCRIBE\" ></Command>"},
        {"COMMAND", command("SUBSCRIBE", noValue), FC_BODY_ERROR,
         commandError + "found tags Name=SockName or Value in:\n" + noValue},
        {"COMMAND", command("SUBSCRIBE", wrong + noValue), FC_BODY_ERROR,
         commandError + "found tags Name=SockName or Value in:\n" + wrong},
        {"COMMAND", "no body", FC_BODY_ERROR, commandError + "Found BODY tags in msg:\nno body"},
        {"COMMAND", "<BODY>-</BODY>", FC_BODY_ERROR, commandError + "Found Command tags in msg:\n<BODY>-</BODY>"},
        {"COMMAND", "<BODY><Command Id=\"\" /></BODY>", FC_BODY_ERROR,
         commandError + "found tags ID in:\n<Command Id=\"\" />"},
        {"EVENT", kEvent, FC_OK, "handle(Up, 66560)"}, // the code of the header
        {"EVENT", "", FC_BODY_ERROR, eventError + "Not Found BODY tags in msg:\n"},
        {"EVENT", "<BODY></BODY>", FC_BODY_ERROR, eventError + "Not Found Event tags in msg:\n<BODY></BODY>"},
        {"EVENT", "<BODY><Event /></BODY>", FC_BODY_ERROR, eventError + "event initFromString error fcode=10002"},
        {"GET", write, FC_NO_SUCH_NAME, ""}, // is not rolled back
        {"SET", write, FC_BAD_VALUE, "rollbackChanges()"},
        // clang-format on
    };
    mHolder.refusals = {{"x", FC_BAD_VALUE}};
    for (const auto& [type, body, code, outcome] : cases) {
        const std::size_t callsBefore = mHolder.calls().size();
        mLog.clear();
        EXPECT_EQ(code, treat(type, body)) << body;
        std::vector<std::string> happened = logged();
        if (const auto calls = mHolder.calls(); calls.size() > callsBefore)
            happened.push_back(calls.back());
        EXPECT_EQ(outcome, happened.empty() ? "" : happened.back()) << body;
    }
    mHolder.refusals.clear();
    EXPECT_EQ(FC_OK, treat("SET", write));
    EXPECT_EQ("setTextParam(S, T, x, 1, 1)", mHolder.calls().back());
    EXPECT_EQ(FC_OK, mCom.treatEventMsg(mHeader, "<BODY></BODY>")); // of another type
}

TEST_F(DataCommunicatorTest, ARepeatedSubscriptionMovesToTheEndOfTheList)
{
    const char* const good = "<Parameter Name=\"SockName\" Value=\"/tmp/peer\" />";
    EXPECT_EQ(FC_OK, treat("COMMAND", command("SUBSCRIBE", good)));
    EXPECT_EQ("INFO subscribe: subscribing observer sockName=/tmp/peer", logged().back());
    for (const char* path : {"/tmp/b", "/tmp/a", "/tmp/b"})
        mCom.subscribe(path);
    mLog.clear();
    MessageEvent event;
    event.ID = "E";
    mCom.notify(event);
    std::vector<std::string> lines = logged();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("INFO notify:"); });
    const std::string line = "INFO notify: event=E to observer=/tmp/";
    EXPECT_THAT(lines, ElementsAre(line + "peer", line + "a", line + "b"));
}

TEST_F(DataCommunicatorTest, AFailedCommandIsAnAckWithItsCode)
{
    mHolder.commandText = "partial";
    mHolder.commandResult = FC_UNAVAILABLE;
    EXPECT_EQ(FC_UNAVAILABLE, treat("COMMAND", kCommand));
    EXPECT_THAT(mHolder.calls(), ElementsAre("execute(<Command ID=\"Do\" />)"));
    EXPECT_EQ(7, mHeader.Size); // 13 short of the body: the tags are not counted
    EXPECT_EQ("<BODY>partial</BODY>", mBody);
    mHolder.commandResult = {};
    EXPECT_EQ(FC_OK, treat("COMMAND", kCommand));
}

TEST_F(DataCommunicatorTest, WithoutAHolderRequestsAreUnavailableAndEventsAreDropped)
{
    mCom.setDataHolder(nullptr);
    const std::string row = command("Add Row", "<Parameter Name=\"Table\" Value=\"T\" />");
    for (const std::string& body : {std::string(kCommand), row})
        EXPECT_EQ(FC_UNAVAILABLE, treat("COMMAND", body));
    for (const char* type : {"GET", "SET"})
        EXPECT_EQ(FC_UNAVAILABLE, treat(type, "<BODY><Table Name=\"T\" /></BODY>"));
    EXPECT_EQ(FC_UNAVAILABLE, treat("EVENT", kEvent));

    EXPECT_EQ(FC_OK, treat("COMMAND", command("StopDbgPrint", "")));
    EXPECT_EQ(5, gDbgLevel);
    EXPECT_EQ(FC_OK, treat("COMMAND", command("StartDbgPrint", "")));
    EXPECT_EQ(0, gDbgLevel);
    EXPECT_EQ("", mBody);
}

// The loop

TEST_F(DataCommunicatorTest, TheResponderAnswersEachTypeOfRequest)
{
    for (const char* path : {kSock, kSendSock})
        EXPECT_EQ(std::filesystem::perms::all, std::filesystem::status(path).permissions());
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
    mHolder.commandText.assign(80000, 'x');
    mHolder.instances["S/T"].assign(5000, "row");
    mHolder.values["S/T/row/x"].assign(60, 'x');
    startResponder();
    mPeer.send(kSock, message("COMMAND", kCommand));
    EXPECT_EQ("<BODY>" + mHolder.commandText + "</BODY>", mPeer.receive().body);

    mPeer.send(kSock, message("GET", "<BODY><DataSet ID=\"S\" ><Table Name=\"T\" >"
                                     "<Item Name=\"x\" /></Table></DataSet></BODY>"));
    EXPECT_EQ("<HEADER ID=\"7\" Type=\"NACK\" Fcode=\"10100\" Size=\"0\" >\n</HEADER>\n",
              mPeer.receive().text);
    EXPECT_THAT(mLog.text(), HasSubstr("doWork: sending resp failed to sock=/tmp/peer id=7 req="));
}

TEST_F(DataCommunicatorTest, TheResponderOutlivesWhatItCannotUseOrAnswer)
{
    startResponder();
    mPeer.send(kSock, "garbage");
    EXPECT_TRUE(mLog.waitFor("doWork: readMsg failed from sock=/tmp/peer fcode=10001"));
    EXPECT_TRUE(mLog.waitFor("doWork: msg body:\n"));
    EXPECT_THAT(mLog.text(), HasSubstr(" tComA(")); // the responder's task name
    ScriptedPeer().send(kSock, message("COMMAND", kCommand));
    EXPECT_TRUE(mLog.waitFor("doWork: sending resp failed to sock= id=7 req=" +
                             std::string(kCommand) + " resp= fcode=65600"));
    ScriptedPeer().send(kSock, message("PUT", ""));
    EXPECT_TRUE(mLog.waitFor("doWork: response failed to sock= fcode=65600"));

    ScriptedPeer abstract(std::string("\0sysmgt", 7));
    abstract.send(kSock, message("COMMAND", kCommand));
    EXPECT_EQ("ACK", abstract.receive().header.Type);
    // Only the refusal of the PUT: an answer that failed is not followed by another.
    EXPECT_THAT(logged(), Contains("ERROR doWork: response failed to sock= fcode=65600").Times(1));

    ScriptedPeer::fill("/tmp/peer"); // may hold the responder for a while, not for ever
    mPeer.send(kSock, message("COMMAND", kCommand));
    EXPECT_TRUE(mLog.waitFor("to sock=/tmp/peer errno=11 tries left=3"));
}

TEST_F(DataCommunicatorTest, TheResponderTakesEventsAndFilesAnswersWithoutAnswering)
{
    startResponder();
    mPeer.send(kSock, message("EVENT", kEvent));
    EXPECT_TRUE(eventually([&] { return mHolder.calls().size() == 1; }));
    EXPECT_EQ("handle(Up, 65536)", mHolder.calls().front());
    int id = 31;
    std::string header;
    std::string sender;
    for (const char* type : {"ACK", "NACK", "RESPONSE", "NO_REPLY"}) {
        mPeer.send(kSock, message(type, "<BODY>b</BODY>", id));
        EXPECT_TRUE(mLog.waitFor("doWork: **** stored in history *** id=" + std::to_string(id) +
                                 " sender=/tmp/peer msg=<BODY>b</BODY>"));
        EXPECT_TRUE(mCom.getResponse(id++, header, mBody, sender));
        EXPECT_THAT(header, HasSubstr(type));
    }
    EXPECT_FALSE(mCom.getResponse(id, header, mBody, sender));
    EXPECT_EQ("/tmp/peer", sender);
    EXPECT_TRUE(mPeer.nothingCame());
}

} // namespace
