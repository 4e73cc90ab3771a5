#include "ConfigurationManager.h"

#include <gtest/gtest.h>

TEST(ContractTest, TheManagersHelpersArePublic)
{
    ConfigurationManager manager;
    std::string text;
    EXPECT_EQ(FC_BAD_VALUE, manager.generateFilename("", text));
    EXPECT_EQ(FC_OK, manager.generateFilename("day", text));
    EXPECT_EQ("/data/cfg/day", text);
    manager.timeToString(0, text);
    EXPECT_EQ(19U, text.size());
    EXPECT_EQ(FC_OK, manager.abortConfiguration());
    manager.sendEvent("Configuration Added", "day", FC_OK); // nobody has subscribed
}
