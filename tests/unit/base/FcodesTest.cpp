#include "Fcodes.h"

#include <gtest/gtest.h>

namespace
{

TEST(FcodesTest, ReadingACodeWithoutATextInsertsNoRow)
{
    EXPECT_EQ("OK", gFcodeString[FC_OK]);
    EXPECT_EQ("LOS", gFcodeString[FC_LOS]);
    EXPECT_EQ("", gFcodeString[FC_LOS | FC_BAD_VALUE]);
    EXPECT_EQ(12u, gFcodeString.size());
}

TEST(FcodesTest, AJoinedCodeReadsAsTheTextsOfItsBits)
{
    EXPECT_EQ(0x10003u, FC_HEADER_ERROR | FC_BODY_ERROR);
    EXPECT_EQ("OK", fcodeText(FC_OK));
    EXPECT_EQ("No Such Name", fcodeText(FC_NO_SUCH_NAME));
    EXPECT_EQ("No Such Name, Unavailable", fcodeText(FC_NO_SUCH_NAME | FC_UNAVAILABLE));
    EXPECT_EQ("LOS, code 0x10800", fcodeText(FC_LOS | static_cast<Fcodes>(0x10800)));
}

} // namespace
