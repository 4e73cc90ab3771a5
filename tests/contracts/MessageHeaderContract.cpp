// Each file of this directory calls a public unit as code of other teams does: with its own header
// alone, before any other.
#include "MessageHeader.h"

#include <gtest/gtest.h>

TEST(ContractTest, TheFindersComeWithTheMessageHeader)
{
    MessageHeader header;
    ASSERT_EQ(FC_OK,
              header.initFromString("<HEADER ID=\"5\" Type=\"GET\" Size=\"0\" >\n</HEADER>"));
    std::string text = "<x>";
    const std::string& returned = header.toString(text);
    EXPECT_EQ(&text, &returned);

    std::string out;
    EXPECT_NE(std::string::npos, getSegment(text, 0, "HEADER", out));
    EXPECT_EQ(text.find('"', text.find("GET")), getPropertyValue(text, 0, "Type", out));
    EXPECT_EQ("GET", out);
    EXPECT_EQ(2U, getToken(text, 0, "<", ">", out));
    EXPECT_EQ("OK", gFcodeString[FC_OK]);
}
