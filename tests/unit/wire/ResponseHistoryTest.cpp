#include "wire/ResponseHistory.h"

#include <gtest/gtest.h>

namespace
{

class ResponseHistoryTest : public testing::Test
{
protected:
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

TEST_F(ResponseHistoryTest, ARequesterPrefersTheAnswerOfThePathThatItAsked)
{
    mHistory.storeReadByRequester(1, {"", "foreign", "/stranger"});
    EXPECT_EQ("-", answer(1)); // anybody may write to the send socket
    mHistory.store(1, {"", "first", "/x"});
    mHistory.store(1, {"", "second", "/y"});
    EXPECT_EQ("second", answer(1));
    mHistory.storeReadByRequester(1, {"", "read for its owner", "/asked"});
    mHistory.store(1, {"", "third", "/x"});
    mHistory.storeReadByRequester(1, {"", "foreign again", "/stranger"});
    EXPECT_EQ("read for its owner", answer(1));
    FiledResponse filed;
    EXPECT_TRUE(mHistory.find(1, filed));
    EXPECT_EQ("foreign again", filed.body);
}

} // namespace
