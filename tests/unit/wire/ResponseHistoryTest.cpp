#include "wire/ResponseHistory.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace
{

class ResponseHistoryTest : public testing::Test
{
protected:
    void store(int id, const std::string& body) { mSizes = mHistory.store(id, {"", body, ""}); }
    bool storeRead(int id, const std::string& body, const std::string& sender)
    {
        return mHistory.storeReadByRequester(id, {"", body, sender}).has_value();
    }

    /// What is filed, and what of it is an answer; "-" for nothing.
    std::string filed(int id)
    {
        FiledResponse response;
        return mHistory.find(id, response) ? response.body : "-";
    }
    std::string answer(int id)
    {
        FiledResponse response;
        return mHistory.findAnswer(id, "/asked", response) ? response.body : "-";
    }

    ResponseHistory mHistory;
    ResponseHistory::Sizes mSizes{};
};

TEST_F(ResponseHistoryTest, AnAnswerFiledAgainGoesInTheTurnOfItsFirstFiling)
{
    store(1, "old");
    for (int id = 2; id <= 9; ++id)
        store(id, "x");
    store(1, "new");
    EXPECT_EQ("new", filed(1));
    EXPECT_EQ(10u, mSizes.queue);
    EXPECT_EQ(9u, mSizes.entries);

    store(10, "x"); // the eleventh evicts the first
    EXPECT_EQ("-", filed(1));
    EXPECT_EQ("x", filed(2));
    EXPECT_EQ(10u, mSizes.queue);
    EXPECT_EQ(9u, mSizes.entries);
}

TEST_F(ResponseHistoryTest, WhatARequesterReadIsAnAnswerOnlyFromThePathThatWasAsked)
{
    storeRead(1, "lie", "/liar");
    EXPECT_EQ("lie", filed(1));
    EXPECT_EQ("-", answer(1));
    EXPECT_TRUE(storeRead(1, "read for its owner", "/asked"));
    EXPECT_EQ("read for its owner", answer(1));

    store(1, "truth");
    EXPECT_EQ("truth", answer(1));
    EXPECT_FALSE(storeRead(1, "another lie", "/liar"));
    EXPECT_EQ("truth", answer(1));
    EXPECT_EQ("truth", filed(1));
}

TEST_F(ResponseHistoryTest, ThreadsFileAndLookAtTheSameTime)
{
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([this, thread] {
            FiledResponse response;
            for (int id = thread; id < 4000; id += 4) {
                mHistory.store(id, {"", std::to_string(id), ""});
                if (mHistory.findAnswer(id, "/asked", response)) {
                    EXPECT_EQ(std::to_string(id), response.body);
                }
            }
        });
    threads.clear();
    store(9999, "last");
    EXPECT_EQ(10u, mSizes.entries);
}

} // namespace
