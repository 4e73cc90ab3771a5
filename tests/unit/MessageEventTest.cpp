#include "MessageEvent.h"
#include "LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using testing::ElementsAre;

std::string textOf(const MessageEvent& event)
{
    std::string text = "replaced";
    return event.toString(text);
}

TEST(MessageEventTest, AnEventPrintsItsFieldsAndItsParametersByName)
{
    MessageEvent event;
    EXPECT_EQ(
        "\t<Event ID=\"NULL\" Source=\"Source\" Status=\"None\" Time=\"2011-01-06  12:06:11\" "
        "Description=\"\" Severity=\"None\" >\n\t</Event>\n",
        textOf(event));
    event.ID = "Up";
    event.Fcode = FC_LOS; // travels in the header
    event.addParam("B", "1");
    event.addParam("A", "2");
    event.addParam("B", "3");
    EXPECT_EQ("\t<Event ID=\"Up\" Source=\"Source\" Status=\"None\" Time=\"2011-01-06  12:06:11\" "
              "Description=\"\" Severity=\"None\" >\n"
              "\t\t<Parameter Name=\"A\" Value=\"2\" />\n"
              "\t\t<Parameter Name=\"B\" Value=\"3\" />\n"
              "\t</Event>\n",
              textOf(event));

    MessageEvent read;
    ASSERT_EQ(FC_OK, read.initFromString(textOf(event)));
    EXPECT_EQ(textOf(event), textOf(read));
}

TEST(MessageEventTest, OnlyTheIdIsRequired)
{
    LogCapture log;
    MessageEvent event;
    event.Status = "kept";
    EXPECT_EQ(FC_OK, event.initFromString("<Event ID=\"Up\" Severity=\"S\" >"));
    EXPECT_EQ("Up", event.ID);
    EXPECT_EQ("Source", event.Source);
    EXPECT_EQ("kept", event.Status);
    EXPECT_EQ("S", event.Severity);

    EXPECT_EQ(FC_BODY_ERROR, event.initFromString("<Event Source=\"S\" >"));
    EXPECT_EQ("Source", event.Source);
    EXPECT_THAT(log.entries(),
                ElementsAre("WARN MessageEvent:initFromString: Not found tags Source in:\n"
                            "<Event ID=\"Up\" Severity=\"S\" >",
                            "ERROR MessageEvent:initFromString: Not found tags ID in:\n"
                            "<Event Source=\"S\" >"));
}

TEST(MessageEventTest, AnIncompleteParameterIsSkippedAndThoseAlreadyThereStay)
{
    LogCapture log;
    const std::string text = "<Event ID=\"Up\" Source=\"S\" >"
                             "<Parameter Value=\"1\" /><Parameter Name=\"b\" />"
                             "<Parameter Name=\"c\" Value=\"3\" /></Event>";
    MessageEvent event;
    event.addParam("a", "0");
    event.addParam("c", "0");
    EXPECT_EQ(FC_OK, event.initFromString(text));
    EXPECT_EQ(2, std::distance(event.getParamsBegin(), event.getParamsEnd()));
    std::string value = "untouched";
    EXPECT_FALSE(event.getParam("b", value));
    EXPECT_EQ("untouched", value);
    EXPECT_TRUE(event.getParam("c", value));
    EXPECT_EQ("3", value);
    EXPECT_THAT(log.entries(),
                ElementsAre("ERROR MessageEvent:initFromString: Not found tag=Name in:\n" + text,
                            "ERROR MessageEvent:initFromString: Not found tag=Value in:\n" + text));

    // Thousands of them must not keep the responder busy with logging.
    log.clear();
    std::string hostile = "<Event ID=\"Up\" Source=\"S\" >";
    for (int i = 0; i < 1000; ++i)
        hostile += "<Parameter />";
    event.initFromString(hostile);
    EXPECT_EQ(32u, log.entries().size());

    event.removeParam("a");
    event.cleanUpRelations();
    EXPECT_EQ(event.getParamsEnd(), event.getParamsBegin());
}

} // namespace
