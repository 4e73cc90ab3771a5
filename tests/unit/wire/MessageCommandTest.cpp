#include "MessageCommand.h"
#include "LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using testing::ElementsAre;

TEST(MessageCommandTest, ACommandPrintsItsParametersWithOneTab)
{
    MessageCommand command;
    command.setId("SUBSCRIBE");
    command.addParam("SockName", "/tmp/old");
    command.getParamsBegin()->second = "/tmp/s";
    std::string text = "replaced";
    EXPECT_EQ("<Command ID=\"SUBSCRIBE\" >\n\t<Parameter Name=\"SockName\" Value=\"/tmp/s\" />\n"
              "</Command>\n",
              command.toString(text));

    MessageCommand read;
    ASSERT_EQ(FC_OK, read.initFromString(text));
    std::string again;
    EXPECT_EQ(text, read.toString(again));
}

TEST(MessageCommandTest, WithoutAnIdNothingIsRead)
{
    LogCapture log;
    const std::string noId = "<Command ><Parameter Name=\"a\" Value=\"1\" /></Command>";
    const std::string noName = "<Command ID=\"c\" ><Parameter Value=\"1\" /><Parameter "
                               "Name=\"b\" /></Command>";
    MessageCommand command;
    EXPECT_EQ(FC_BODY_ERROR, command.initFromString(noId));
    EXPECT_EQ(FC_OK, command.initFromString(noName));
    EXPECT_EQ(command.getParamsEnd(), command.getParamsBegin());
    const std::string line = "ERROR MessageCommand:initFromString: Not ";
    EXPECT_THAT(log.entries(), ElementsAre(line + "Found ID in command\n" + noId,
                                           line + "found tag=Name in command:\n" + noName,
                                           line + "found tag=Value in command:\n" + noName));
}

} // namespace
