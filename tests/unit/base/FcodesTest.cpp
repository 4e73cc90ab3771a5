#include "Fcodes.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace
{

TEST(FcodesTest, EachCodeHasItsTextAndReadingAnotherInsertsNoRow)
{
    const std::pair<unsigned, std::string> rows[] = {
        // clang-format off
        {0x10000, "OK"}, {0x10001, "Message Header Error"}, {0x10002, "Message Body Error"},
        {0x10004, "Access Denied"}, {0x10008, "No Such Name"}, {0x10010, "Wrong Type"},
        {0x10020, "Bad Value"}, {0x10040, "Communication Error"}, {0x10080, "Unsupported Request"},
        {0x10100, "Unavailable"}, {0x10200, "Data Stream"}, {0x10400, "LOS"},
        // clang-format on
    };
    for (const auto& [code, text] : rows)
        EXPECT_EQ(text, gFcodeString[static_cast<Fcodes>(code)]);
    EXPECT_EQ("", gFcodeString[FC_LOS | FC_BAD_VALUE]);
    EXPECT_EQ(std::size(rows), gFcodeString.size());
}

TEST(FcodesTest, AJoinedCodeReadsAsTheTextsOfItsBits)
{
    EXPECT_EQ(0x10003u, FC_HEADER_ERROR | FC_BODY_ERROR);
    EXPECT_EQ("OK", fcodeText(FC_OK));
    EXPECT_EQ("No Such Name, Unavailable", fcodeText(FC_NO_SUCH_NAME | FC_UNAVAILABLE));
    EXPECT_EQ("LOS, code 0x10800", fcodeText(FC_LOS | static_cast<Fcodes>(0x10800)));
}

} // namespace
