// What the pages show is run, and does what they say.

#include "CfgPaths.h"
#include "Device.h"
#include "ScriptedPeer.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <regex>

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

TEST(TemplateTest, ServesAndKeepsItsSpeedsAndTakesEvents)
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

TEST(WireFormatPageTest, TheManagerSpeaksAsThePageShows)
{
    const std::string page = readFile(sourceFile("docs/wire-format.md"));
    const std::regex block("\n```\n([^`]*)```\n");
    const std::vector<std::string> shown(
        std::sregex_token_iterator(page.begin(), page.end(), block, 1), {});
    ASSERT_LE(6U, shown.size());
    Device device;
    device.boot();
    ScriptedPeer client("/tmp/page");
    const auto ask = [&](const char* type, const std::string& body) {
        client.send(kCfgSocket, ScriptedPeer::answerText(5, type, FC_OK, body));
        return client.receiveText();
    };
    client.send(kCfgSocket, shown[0]); // the start of a configuration that is not there
    EXPECT_EQ(shown[2], client.receiveText());
    RequestingHolder().command(kCfgSocket, "SUBSCRIBE", {{"SockName", "/tmp/page"}});
    const std::regex time("Time=\"[^\"]*\"");
    EXPECT_EQ(std::regex_replace(shown[3], time, ""),
              std::regex_replace(ask("COMMAND", shown[1]), time, ""));
    client.receive(); // the answer to the save
    EXPECT_THAT(ask("GET", shown[4]), testing::EndsWith(shown[5]));
}

} // namespace
