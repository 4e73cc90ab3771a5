#include "MessageCommand.h"
#include "LogCapture.h"

#include <gmock/gmock.h>

namespace
{

using testing::ElementsAre;

TEST(MessageCommandTest, ACommandIsPrintedAsItWasRead)
{
    const std::string text = "<Command ID=\"SUBSCRIBE\" >\n"
                             "\t<Parameter Name=\"SockName\" Value=\"/tmp/s\" />\n</Command>\n";
    MessageCommand command;
    EXPECT_EQ(FC_OK, command.initFromString(text));
    EXPECT_EQ("SUBSCRIBE", command.getId());
    std::string out = "replaced";
    EXPECT_EQ(text, command.toString(out));

    command.getParamsBegin()->second = "changed";
    EXPECT_TRUE(command.getParam("SockName", out));
    EXPECT_EQ("changed", out);
    command.addParam("Zone", "UTC");
    command.removeParam("SockName");
    EXPECT_EQ("Zone", command.getParamsBegin()->first);
    command.cleanUpRelations();
    EXPECT_EQ(command.getParamsEnd(), command.getParamsBegin());
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
