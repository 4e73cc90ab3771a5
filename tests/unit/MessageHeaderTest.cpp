#include "MessageHeader.h"
#include "LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using testing::ElementsAre;

std::string textOf(int id, const std::string& type, Fcodes fcode, int size)
{
    MessageHeader header;
    header.ID = id;
    header.Type = type;
    header.Fcode = fcode;
    header.Size = size;
    std::string text = "> ";
    return header.toString(text);
}

TEST(MessageHeaderTest, OnlyAnswersAndEventsPrintTheirCode)
{
    EXPECT_EQ("> <HEADER ID=\"5\" Type=\"COMMAND\" Size=\"12\" >\n</HEADER>\n",
              textOf(5, "COMMAND", FC_BAD_VALUE, 12));
    EXPECT_EQ("> <HEADER ID=\"-1\" Type=\"ACK\" Fcode=\"10020\" Size=\"0\" >\n</HEADER>\n",
              textOf(-1, "ACK", FC_BAD_VALUE, 0));
    for (const char* type : {"RESPONSE", "NACK", "EVENT"})
        EXPECT_NE(std::string::npos, textOf(1, type, FC_OK, 0).find(" Fcode=\"10000\" "));
    for (const char* type : {"GET", "SET", "NO_REPLY", "ack", ""})
        EXPECT_EQ(std::string::npos, textOf(1, type, FC_OK, 0).find("Fcode")) << type;
}

TEST(MessageHeaderTest, AHeaderIsReadBackAsItWasWritten)
{
    MessageHeader read;
    ASSERT_EQ(FC_OK, read.initFromString(textOf(7, "NACK", FC_BODY_ERROR | FC_LOS, 33)));
    EXPECT_EQ(7, read.ID);
    EXPECT_EQ("NACK", read.Type);
    EXPECT_EQ(FC_BODY_ERROR | FC_LOS, read.Fcode);
    EXPECT_EQ(33, read.Size);

    // Without a code in the text the one already there stays; what is no number is 0.
    ASSERT_EQ(FC_OK, read.initFromString("ID=\"x\" Type=\"GET\" Size=\"y\""));
    EXPECT_EQ(FC_BODY_ERROR | FC_LOS, read.Fcode);
    EXPECT_EQ(0, read.ID);
    EXPECT_EQ(0, read.Size);
}

TEST(MessageHeaderTest, WhatIsMissingIsLoggedAndWhatWasReadBeforeItStays)
{
    LogCapture log;
    MessageHeader header;
    EXPECT_EQ(FC_HEADER_ERROR, header.initFromString("Type=\"T\""));
    EXPECT_EQ(FC_HEADER_ERROR, header.initFromString("ID=\"4\""));
    EXPECT_EQ(4, header.ID);
    EXPECT_EQ(FC_HEADER_ERROR, header.initFromString("ID=\"5\" Type=\"T\" Fcode=\"10001\""));
    EXPECT_EQ("T", header.Type);
    EXPECT_EQ(FC_HEADER_ERROR, header.Fcode);
    EXPECT_THAT(log.entries(),
                ElementsAre("ERROR MessageHeader:initFromString: Not found tags ID in:\nType=\"T\"",
                            "ERROR MessageHeader:initFromString: Not found tags Type in:\nID=\"4\"",
                            "ERROR MessageHeader:initFromString: Not found tags Size in:\n"
                            "ID=\"5\" Type=\"T\" Fcode=\"10001\""));
}

} // namespace
