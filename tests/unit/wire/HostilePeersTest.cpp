// Peers that would hold the responder, or make it keep what they send: each with its bound.

#include "CommunicatorFixture.h"
#include "DbgPrintClient.h"
#include "wire/SubscriberList.h"

#include <pthread.h>
#include <thread>

namespace
{

using namespace testing;
using namespace std::chrono_literals;

constexpr uid_t kStranger = 1000;
constexpr char kCommand[] = "<BODY><Command ID=\"Do\" /></BODY>";

class HostilePeersTest : public CommunicatorFixture
{
protected:
    /// Sends requests that are answered, every third of them with a refusal.
    void ask(ScriptedPeer& peer, int firstId, int lastId)
    {
        for (int id = firstId; id <= lastId; ++id)
            peer.send(kSock, message(id % 3 == 0 ? "PUT" : "COMMAND", kCommand, id));
    }
};

/// By the length of the answers.
struct UnreadAnswersTest : HostilePeersTest, WithParamInterface<std::size_t> {
};

TEST_P(UnreadAnswersTest, PeersThatDoNotReadHoldNobodyAndGetTheirAnswersInOrder)
{
    gDbgLevel = SEV_ERROR;
    mHolder.commandText.assign(GetParam(), 'x');
    startResponder();
    ScriptedPeer impatient("/tmp/mute");
    ask(impatient, 1, 100); // more than may wait
    EXPECT_TRUE(mLog.waitFor("doWork: response failed to sock=/tmp/mute fcode=65600"));
    std::vector<std::unique_ptr<ScriptedPeer>> mutes;
    for (int i = 0; i < 20; ++i) {
        mutes.push_back(std::make_unique<ScriptedPeer>("/tmp/mute" + std::to_string(i)));
        ask(*mutes.back(), 1, 10);
    }
    ScriptedPeer client("/tmp/client");
    int lateAnswers = 0;
    for (int id = 3; id <= 60; id += 3) {
        const auto begin = std::chrono::steady_clock::now();
        ask(client, id, id);
        EXPECT_EQ(id, client.receive().header.ID);
        const auto passed = std::chrono::steady_clock::now() - begin;
        EXPECT_GT(500ms, passed); // whoever waits for a peer waits a second
        lateAnswers += passed > 100ms ? 1 : 0;
    }
    EXPECT_GE(1, lateAnswers); // the machine may be late once
    mutes.clear();
    for (int id = 1; id <= 64; ++id)
        EXPECT_EQ(id, impatient.receive().header.ID);
}

INSTANTIATE_TEST_SUITE_P(OfBytes, UnreadAnswersTest, Values(500, 69000));

TEST_F(HostilePeersTest, AnAnswerThatWaitedIsLoggedLikeAnyOther)
{
    startResponder();
    auto mute = std::make_unique<ScriptedPeer>("/tmp/mute");
    ScriptedPeer::fill("/tmp/mute");
    ask(*mute, 1, 3);
    EXPECT_TRUE(mLog.waitFor("doWork: treatMsg failed from sock=/tmp/mute id=3"));
    mute.reset(); // the next attempt finds nobody
    EXPECT_TRUE(mLog.waitFor("doWork: response body:\n"));

    std::vector<std::string> lines = logged();
    std::erase_if(lines, [](const std::string& line) {
        return line.find("sendMessage:") == std::string::npos &&
               line.find("resp") == std::string::npos;
    });
    const std::string failed =
        "ERROR sendMessage: in writing msg body to sock=/tmp/mute errno=111 Stop sending.";
    const std::string lost = "ERROR doWork: sending resp failed to sock=/tmp/mute id=";
    const std::string said = " req=<BODY><Command ID=\"Do\" /></BODY> resp= fcode=65600";
    EXPECT_THAT(lines,
                ElementsAre(HasSubstr("<HEADER ID=\"1\""), failed, lost + "1" + said,
                            HasSubstr("<HEADER ID=\"2\""), failed, lost + "2" + said,
                            HasSubstr("<HEADER ID=\"3\""), failed,
                            "ERROR doWork: response failed to sock=/tmp/mute fcode=65600",
                            HasSubstr("doWork: response header:\n<HEADER ID=\"3\" Type=\"NACK\""),
                            "ERROR doWork: response body:\n"));
}

TEST_F(HostilePeersTest, SubscribersThatCannotExistOrAreTooManyAreNotKept)
{
    gDbgLevel = SEV_WARN;
    const std::size_t max = SubscriberList::kMaxSubscribers;
    for (std::size_t i = 0; i < max; ++i)
        mCom.subscribe("/tmp/" + std::to_string(i));
    for (const std::string& path :
         {std::string("/tmp/0"), std::string(109, 'x'), "/tmp/" + std::to_string(max)})
        mCom.subscribe(path);
    EXPECT_THAT(logged(),
                ElementsAre("ERROR subscribe: too many observers, not added sockName=/tmp/20000"));
}

TEST_F(HostilePeersTest, WhoIsNotOfTheSuiteHasAHundredSubscriptionsOfSocketsThatAreThere)
{
    SubscriberList list;
    const auto add = [&](const std::string& path, std::optional<uid_t> user = kStranger) {
        SocketAddress address;
        EXPECT_TRUE(address.assign(path));
        return list.add(address, user);
    };
    using enum SubscriberList::Result;
    for (int i = 0; i < 250; ++i) // none of them is there
        EXPECT_EQ(LISTED, add("/tmp/gone" + std::to_string(i)));
    EXPECT_GE(100u, list.addresses()->size());
    for (int i = 0; i < 100; ++i) {
        writeFile("/tmp/there" + std::to_string(i), "");
        EXPECT_EQ(LISTED, add("/tmp/there" + std::to_string(i)));
    }
    EXPECT_EQ(USER_FULL, add("/tmp/more"));
    EXPECT_EQ(LISTED, add("/tmp/there1"));
    EXPECT_EQ(LISTED, add("/tmp/there2", kStranger + 1)); // counts for the first still
    EXPECT_EQ(USER_FULL, add("/tmp/more"));
    EXPECT_EQ(LISTED, add("/tmp/there3", std::nullopt)); // counts for nobody now
    EXPECT_EQ(LISTED, add("/tmp/more"));
    EXPECT_EQ(LISTED, add("/tmp/others", kStranger + 1));
    EXPECT_EQ(102u, list.addresses()->size());
    EXPECT_EQ("/tmp/others", list.addresses()->back().path());
}

TEST_F(HostilePeersTest, AnEventCostsAHundredSendingsHoweverManyAUserSubscribes)
{
    if (!asUser(kStranger, 0, [] {}))
        GTEST_SKIP() << "needs root for a second user";
    for (int i = 0; i < 150; ++i)
        writeFile("/tmp/" + std::to_string(i), "");
    startResponder();
    asUser(kStranger, 0, [&] {
        ScriptedPeer stranger("/tmp/stranger");
        for (int i = 0; i < 150; ++i) {
            const std::string path = "\"/tmp/" + std::to_string(i) + "\"";
            stranger.send(kSock, message("COMMAND", "<BODY><Command ID=\"SUBSCRIBE\" ><Parameter "
                                                    "Name=\"SockName\" Value=" +
                                                        path + " /></Command></BODY>"));
            EXPECT_EQ(FC_OK, stranger.receive().header.Fcode) << i;
        }
    });
    EXPECT_THAT(logged(), Contains("ERROR subscribe: too many observers of a user, not added "
                                   "sockName=/tmp/149 uid=1000"));
    mCom.subscribe("/tmp/own");
    MessageEvent event;
    mCom.notify(event);
    EXPECT_THAT(logged(), Contains(StartsWith("INFO notify: ")).Times(101));
}

TEST_F(HostilePeersTest, ThreadsThatCannotBeMadeAreTriedAgainEachSecond)
{
    pthread_attr_t usual;
    pthread_attr_t impossible;
    pthread_attr_init(&impossible);
    pthread_getattr_default_np(&usual);
    pthread_attr_setstacksize(&impossible, std::size_t{3} << (sizeof(std::size_t) == 8 ? 45 : 30));

    auto& holder = *new FakeDataHolder; // its threads never end
    holder.getDataCommunicator().init(&holder, "/tmp/sockB", "/tmp/sockSendB", "tComB");
    std::jthread relief([&] {
        for (int time = 0; time < 3; ++time, mLog.clear())
            for (const char* thread : {"::init pthread_create", "start: responder thread create"})
                EXPECT_TRUE(mLog.waitFor(std::string(thread) + " failed errno=11"));
        pthread_setattr_default_np(&usual);
    });
    pthread_setattr_default_np(&impossible);
    holder.init("tWorkerB");
    ScriptedPeer kept("/tmp/kept");
    EXPECT_FALSE(holder.getDataCommunicator().keepSubscribed("/tmp/kept", nullptr));
    EXPECT_FALSE(holder.getDataCommunicator().start());
    holder.startMissingThreads();
    EXPECT_EQ("COMMAND", kept.receive().header.Type);
    relief.join(); // the log has one reader
    kept.answer("ACK");
    EXPECT_TRUE(mLog.waitFor("keepSubscribed: Subscribed to sock=/tmp/kept"));

    ScriptedPeer client("/tmp/client");
    client.send("/tmp/sockB", message("PUT", ""));
    EXPECT_EQ("NACK", client.receive().header.Type);
}

} // namespace
