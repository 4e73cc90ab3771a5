#include "wire/AnswerQueue.h"

#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;

class AnswerQueueTest : public testing::Test
{
protected:
    static SocketAddress peer(const std::string& path)
    {
        SocketAddress address;
        EXPECT_TRUE(address.assign(path));
        return address;
    }

    bool add(const std::string& path, int id, bool offered = false)
    {
        Answer answer{peer(path), "kept", 0, id};
        const bool added = mQueue.add(answer, mNow, offered);
        EXPECT_EQ(added ? "" : "kept", answer.text);
        return added;
    }

    /// The turn that is due: "begin 1", "offer 1", "give up 1", or "-".
    std::string turn() const
    {
        const char* const steps[] = {"begin ", "offer ", "give up "};
        const auto due = mQueue.turn(mNow);
        return due ? steps[static_cast<int>(due->step)] + std::to_string(due->answer->id) : "-";
    }

    AnswerQueue mQueue;
    AnswerQueue::Time mNow{1h};
};

TEST_F(AnswerQueueTest, AnAnswerHasThreeTriesOfASecondWithTenSecondsBehindEach)
{
    const auto began = mNow;
    EXPECT_TRUE(add("/mute", 1, true)); // the responder has begun the first try
    EXPECT_TRUE(add("/mute", 2));
    for (const int triesLeft : {3, 2, 1}) {
        EXPECT_EQ(triesLeft == 3 ? "-" : "begin 1", turn());
        if (triesLeft < 3) {
            EXPECT_EQ(0, mQueue.keep(peer("/mute"), mNow));
        }
        int offers = 0;
        int ended = 0;
        for (; ended == 0; ++offers) {
            mNow = mQueue.nextTurn();
            EXPECT_EQ("offer 1", turn());
            ended = mQueue.keep(peer("/mute"), mNow);
        }
        EXPECT_EQ(triesLeft, ended);
        EXPECT_EQ(11, offers); // 1, 2, 4 ... 512 ms and at the end
        EXPECT_EQ(mNow + 10s, mQueue.nextTurn());
        mNow = mQueue.nextTurn();
    }
    EXPECT_EQ(began + 33s, mNow);
    EXPECT_EQ("give up 1", turn());
    mQueue.remove(peer("/mute"), mNow);
    EXPECT_EQ("begin 2", turn());
    mQueue.remove(peer("/mute"), mNow);
    EXPECT_EQ(AnswerQueue::Time::max(), mQueue.nextTurn());
}

TEST_F(AnswerQueueTest, PeersTakeTurnsAndHaveABoundEachAndTogether)
{
    for (int id = 1; id <= 64; ++id)
        EXPECT_TRUE(add("/a", id));
    EXPECT_FALSE(add("/a", 65));
    mNow += 1ms;
    for (int id = 100; id < 292; ++id)
        EXPECT_TRUE(add("/" + std::to_string(id % 4), id));
    EXPECT_FALSE(add("/late", 65));
    EXPECT_FALSE(mQueue.isWaiting(peer("/late")));
    EXPECT_EQ("begin 1", turn());
    EXPECT_EQ(0, mQueue.keep(peer("/a"), mNow));
    EXPECT_EQ("begin 100", turn());
    mQueue.remove(peer("/0"), mNow);
    EXPECT_TRUE(add("/late", 65));
    mNow += 1ms;
    for (const char* id : {"104", "101", "102", "103", "65", "1"}) {
        EXPECT_EQ(id, turn().substr(6));
        mQueue.keep(mQueue.turn(mNow)->answer->receiver, mNow);
    }
    EXPECT_EQ("-", turn());
}

} // namespace
