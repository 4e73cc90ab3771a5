#include "MessageEvent.h"
#include "LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

std::string textOf(const MessageEvent& event)
{
    std::string text = "replaced";
    return event.toString(text);
}

TEST(MessageEventTest, AnEventPrintsItsFieldsAndItsParametersByName)
{
    MessageEvent event;
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
    const std::string full = "<Event ID=\"Up\" Severity=\"S\" >";
    EXPECT_EQ(FC_OK, event.initFromString(full));
    EXPECT_EQ(FC_BODY_ERROR, event.initFromString("<Event Source=\"S\" >"));
    EXPECT_EQ("\t<Event ID=\"Up\" Source=\"Source\" Status=\"None\" Time=\"2011-01-06  12:06:11\" "
              "Description=\"\" Severity=\"S\" >\n\t</Event>\n",
              textOf(event));
    const std::string line = "MessageEvent:initFromString: Not found tags ";
    EXPECT_THAT(log.entries(), ElementsAre("WARN " + line + "Source in:\n" + full,
                                           "ERROR " + line + "ID in:\n<Event Source=\"S\" >"));
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
    EXPECT_THAT(textOf(event), HasSubstr(">\n\t\t<Parameter Name=\"a\" Value=\"0\" />\n"
                                         "\t\t<Parameter Name=\"c\" Value=\"3\" />\n\t</Event>"));
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
}

} // namespace
