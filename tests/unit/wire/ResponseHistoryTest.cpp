#include "wire/ResponseHistory.h"

#include <gtest/gtest.h>

namespace
{

class ResponseHistoryTest : public testing::Test
{
protected:
    bool storeRead(int id, const std::string& body, const std::string& sender)
    {
        return mHistory.storeReadByRequester(id, {"", body, sender}).has_value();
    }

    /// The body of what is an answer of the path "/asked"; "-" for nothing.
    std::string answer(int id)
    {
        FiledResponse response;
        return mHistory.findAnswer(id, "/asked", response) ? response.body : "-";
    }

    ResponseHistory mHistory;
};

TEST_F(ResponseHistoryTest, AnAnswerFiledAgainIsDroppedInTheTurnOfItsFirstFiling)
{
    for (int id = 1; id <= 9; ++id)
        mHistory.store(id, {"", "old", ""});
    EXPECT_EQ(9u, mHistory.store(1, {"", "new", ""}).entries);
    EXPECT_EQ("new", answer(1));

    const ResponseHistory::Sizes sizes = mHistory.store(10, {"", "eleventh", ""});
    EXPECT_EQ("-", answer(1));
    EXPECT_EQ("old", answer(2));
    EXPECT_EQ(10u, sizes.queue);
    EXPECT_EQ(9u, sizes.entries);
}

TEST_F(ResponseHistoryTest, WhatARequesterReadIsAnAnswerOnlyFromThePathThatWasAsked)
{
    EXPECT_TRUE(storeRead(1, "foreign", "/stranger"));
    FiledResponse filed;
    EXPECT_TRUE(mHistory.find(1, filed));
    EXPECT_EQ("-", answer(1));
    EXPECT_TRUE(storeRead(1, "read for its owner", "/asked"));
    EXPECT_EQ("read for its owner", answer(1));

    mHistory.store(1, {"", "from the responder", ""});
    EXPECT_FALSE(storeRead(1, "foreign again", "/stranger"));
    EXPECT_EQ("from the responder", answer(1));
}

} // namespace
