#include "Fcodes.h"

#include <gtest/gtest.h>

namespace
{

TEST(FcodesTest, JoinedCodesReadAsTheWordsOfTheirBits)
{
    EXPECT_EQ(0x10003u, FC_HEADER_ERROR | FC_BODY_ERROR);
    EXPECT_EQ("OK", fcodeText(FC_OK));
    EXPECT_EQ("No Such Name", fcodeText(FC_NO_SUCH_NAME));
    EXPECT_EQ("No Such Name, Unavailable", fcodeText(FC_NO_SUCH_NAME | FC_UNAVAILABLE));
    EXPECT_EQ("LOS, code 0x10800", fcodeText(FC_LOS | static_cast<Fcodes>(0x10800)));
    EXPECT_EQ(12u, gFcodeString.size());
}

} // namespace
