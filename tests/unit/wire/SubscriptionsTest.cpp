#include "CommunicatorFixture.h"
#include "wire/SubscriptionRenewal.h"

#include <atomic>

namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;

TEST(SubscriptionRenewalTest, AsksForEachNewFileAtOnceAndForAnOldOneAfterThirtySeconds)
{
    const SocketFile none, first{1, 2, 3}, sameInodeAgain{1, 2, 4};
    SubscriptionRenewal renewal;
    SubscriptionRenewal::Time now{};
    EXPECT_FALSE(renewal.isDue(none, now));
    EXPECT_TRUE(renewal.isDue(first, now));
    EXPECT_FALSE(renewal.asked(first, false, now)); // no answer: not before
    EXPECT_FALSE(renewal.isDue(first, now + 29999ms));
    EXPECT_TRUE(renewal.isDue(first, now += 30s));
    EXPECT_TRUE(renewal.asked(first, true, now));
    EXPECT_FALSE(renewal.isDue(first, now + 29999ms));
    EXPECT_FALSE(renewal.isDue(none, now + 30s));
    EXPECT_TRUE(renewal.isDue(first, now += 30s));
    EXPECT_FALSE(renewal.asked(first, true, now)); // of the same process
    EXPECT_TRUE(renewal.isDue(sameInodeAgain, now));
    EXPECT_TRUE(renewal.asked(sameInodeAgain, true, now));
}

using SubscriptionsTest = CommunicatorFixture;

TEST_F(SubscriptionsTest, APeerIsWaitedForAndAskedAgainByWhoeverServesItsPath)
{
    static std::atomic<int> subscribed = 0;
    startResponder();
    EXPECT_TRUE(mCom.keepSubscribed("/tmp/peer", [] { ++subscribed; }));
    EXPECT_TRUE(mCom.keepSubscribed("/tmp/peer", [] { subscribed += 100; }));
    for (int process = 1; process <= 2; ++process) {
        ScriptedPeer peer("/tmp/peer");
        EXPECT_THAT(peer.receive().text, HasSubstr("Value=\"/tmp/sockA\""));
        peer.answer("ACK");
        EXPECT_TRUE(eventually([process] { return subscribed == process; }));
        EXPECT_TRUE(peer.nothingCame());
        unlink("/tmp/peer");
    }
    const std::string line = "INFO keepSubscribed: Subscribed to sock=/tmp/peer";
    EXPECT_THAT(logged(), testing::IsSupersetOf({line, line}));
    for (const std::string& entry : mLog.entries())
        EXPECT_EQ(std::string::npos, entry.find("ERROR")) << entry;
}

} // namespace
