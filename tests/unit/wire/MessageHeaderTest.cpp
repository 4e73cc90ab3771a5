#include "MessageHeader.h"
#include "LogCapture.h"

#include <gmock/gmock.h>

namespace
{

using testing::ElementsAre;

std::string textOf(int id, const std::string& type, Fcodes fcode, int size)
{
    std::string text = "> ";
    return MessageHeader{size, fcode, id, type}.toString(text);
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

TEST(MessageHeaderTest, WhatIsMissingIsLoggedAndWhatWasReadBeforeItStays)
{
    LogCapture log;
    MessageHeader header;
    std::string text;
    const char* const noSize = "ID=\"5\" Type=\"ACK\" Fcode=\"10001\"";
    for (const char* incomplete : {"Type=\"T\"", "ID=\"4\"", noSize})
        EXPECT_EQ(FC_HEADER_ERROR, header.initFromString(incomplete));
    EXPECT_EQ(textOf(5, "ACK", FC_HEADER_ERROR, 0), header.toString(text = "> "));
    // Without a code in the text the one already there stays; what is no number is 0.
    EXPECT_EQ(FC_OK, header.initFromString("ID=\"x\" Type=\"NACK\" Size=\"33\""));
    EXPECT_EQ(textOf(0, "NACK", FC_HEADER_ERROR, 33), header.toString(text = "> "));
    const std::string line = "ERROR MessageHeader:initFromString: Not found tags ";
    EXPECT_THAT(log.entries(), ElementsAre(line + "ID in:\nType=\"T\"", line + "Type in:\nID=\"4\"",
                                           line + "Size in:\n" + noSize));
}

} // namespace
