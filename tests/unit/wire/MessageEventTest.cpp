#include "MessageEvent.h"
#include "LogCapture.h"

#include <gmock/gmock.h>

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

TEST(MessageEventTest, AnEventIsPrintedAsItWasReadWithItsParametersByName)
{
    const std::string start = "\t<Event ID=\"Up\" Source=\"so\" Status=\"st\" Time=\"t\" "
                              "Description=\"d\" Severity=\"se\" >\n";
    const std::string a = "\t\t<Parameter Name=\"A\" Value=\"2\" />\n";
    const std::string b = "\t\t<Parameter Name=\"B\" Value=\"3\" />\n";
    std::string text = "replaced";
    MessageEvent event;
    event.Fcode = FC_LOS; // travels in the header
    event.addParam("B", "overwritten");
    EXPECT_EQ(FC_OK, event.initFromString(start + b + a + "\t</Event>\n"));
    EXPECT_EQ("st", event.Status);
    EXPECT_EQ(start + a + b + "\t</Event>\n", event.toString(text));
}

TEST(MessageEventTest, OnlyTheIdIsRequired)
{
    LogCapture log;
    MessageEvent event;
    std::string text;
    const std::string full = "<Event ID=\"Up\" Severity=\"S\" >";
    EXPECT_EQ(FC_OK, event.initFromString(full));
    EXPECT_EQ(FC_BODY_ERROR, event.initFromString("<Event Source=\"S\" >"));
    EXPECT_EQ("\t<Event ID=\"Up\" Source=\"Source\" Status=\"None\" Time=\"2011-01-06  12:06:11\" "
              "Description=\"\" Severity=\"S\" >\n\t</Event>\n",
              event.toString(text));
    const std::string line = "MessageEvent:initFromString: Not found tags ";
    EXPECT_THAT(log.entries(), ElementsAre("WARN " + line + "Source in:\n" + full,
                                           "ERROR " + line + "ID in:\n<Event Source=\"S\" >"));
}

TEST(MessageEventTest, IncompleteParametersAreSkippedAndThirtyTwoOfThemLogged)
{
    LogCapture log;
    std::string text = "<Event ID=\"Up\" Source=\"S\" ><Parameter Value=\"1\" />";
    for (int i = 0; i < 1000; ++i)
        text += "<Parameter Name=\"b\" />";
    text += "<Parameter Name=\"c\" Value=\"3\" />";
    MessageEvent event;
    event.addParam("a", "0");
    EXPECT_EQ(FC_OK, event.initFromString(text));
    std::string printed;
    EXPECT_THAT(event.toString(printed),
                HasSubstr(">\n\t\t<Parameter Name=\"a\" Value=\"0\" />\n"
                          "\t\t<Parameter Name=\"c\" Value=\"3\" />\n\t</Event>"));
    const std::vector<std::string> lines = log.entries();
    ASSERT_EQ(32u, lines.size());
    EXPECT_EQ("ERROR MessageEvent:initFromString: Not found tag=Name in:\n" + text, lines[0]);
    EXPECT_EQ("ERROR MessageEvent:initFromString: Not found tag=Value in:\n" + text, lines[31]);
}

} // namespace
