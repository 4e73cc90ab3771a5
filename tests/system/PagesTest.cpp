// What README.md and docs/sibling-daemon.md show is run, and does what the pages say.

#include "Device.h"

#include <cstdlib>
#include <gmock/gmock.h>

namespace
{

using testing::HasSubstr;

constexpr char kFan[] = "/tmp/sockFan";

/// A script of the first block of shell lines behind a heading of a page, with this build's
/// binaries in its path.
std::string scriptOf(const std::string& pageName, const std::string& heading)
{
    const std::string page = readFile(sourceFile(pageName));
    const std::size_t start = page.find("```sh\n", page.find(heading)) + 6;
    writeFile("/tmp/try.sh", page.substr(start, page.find("```", start) - start));
    setenv("PATH", (binary("").append(":") + getenv("PATH")).c_str(), 1);
    return "/tmp/try.sh";
}

TEST(ReadmeTest, TheTourDoesWhatItSays)
{
    Device device;
    device.boot();
    const std::string script = scriptOf("README.md", "## A tour");
    ChildProcess tour({"/bin/bash", "-m", "-c", ". " + script + "; kill %1"});
    tour.wait();
    for (const char* text : {"save day: OK", "night", "start day: OK", "weekday"})
        EXPECT_THAT(tour.output(), HasSubstr(text));
    EXPECT_THAT(tour.errors(), HasSubstr("No Such Name"));
    EXPECT_EQ("", readFile("/data/cfg/weekday"));
    EXPECT_NE("", readFile("/data/cfg/night"));
    EXPECT_THAT(device.log().text(), HasSubstr("cfgName=weekday fcode=10008"));
}

TEST(SiblingPageTest, TheShellLinesRunAsTyped)
{
    ChildProcess device({sourceFile("run"), "--on-device", "bash", "-m",
                         scriptOf("docs/sibling-daemon.md", "## Try it")});
    EXPECT_EQ(0, device.wait()) << device.errors();
    EXPECT_THAT(device.output(), HasSubstr("save day: OK"));
    EXPECT_THAT(device.output(), HasSubstr("doHandle: event=Configuration Added"));
}

TEST(SiblingPageTest, TheDaemonServesAndKeepsItsSpeedsAndTakesEvents)
{
    Device device;
    RequestingHolder holder;
    const auto expectSpeed = [&](int expected, const char* fan) {
        int speed = 0;
        EXPECT_EQ(FC_OK,
                  holder.requestGetIntParam(kFan, "FanDataSet", "Fans", "Speed", speed, fan));
        EXPECT_EQ(expected, speed) << fan;
    };
    device.boot();
    device.start("FanManager");
    EXPECT_EQ(FC_OK, holder.set(kFan, "FanDataSet", "Fans", "left", "Speed", "900"));
    expectSpeed(1200, "left"); // before it is applied
    EXPECT_EQ(FC_OK, holder.command(kFan, "APPLY_SPEED"));
    expectSpeed(900, "left");

    device.log().clear();
    device.start("CfgManager"); // its list of subscribers has gone
    ASSERT_TRUE(device.log().waitFor("sockName=/tmp/sockFan"));
    EXPECT_EQ("save day: OK\n", Device::cfgctl({"save", "day"}));
    EXPECT_TRUE(device.log().waitFor("doHandle: event=Configuration Added"));

    device.start("FanManager");
    expectSpeed(900, "left");
    expectSpeed(1200, "right");
}

} // namespace
