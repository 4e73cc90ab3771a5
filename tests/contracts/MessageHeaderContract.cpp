// Each file of this directory calls a public unit as code of other teams does: with its own header
// alone, before any other.
#include "MessageHeader.h"

#include <gtest/gtest.h>

TEST(ContractTest, MessageHeaderIncludesTheTextFinders)
{
    std::string text;
    EXPECT_EQ(&text, &MessageHeader().toString(text));
    std::string out;
    EXPECT_NE(std::string::npos, getSegment(text, 0, "HEADER", out));
    EXPECT_NE(std::string::npos, getPropertyValue(text, 0, "Size", out));
    EXPECT_NE(std::string::npos, getToken(text, 0, "<", ">", out));
    EXPECT_EQ("OK", gFcodeString[FC_OK]);
}
