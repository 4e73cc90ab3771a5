// What docs/sibling-daemon.md shows is run, and its daemon does what the page says.

#include "Device.h"

#include <cstdlib>
#include <gmock/gmock.h>

namespace
{

constexpr char kFan[] = "/tmp/sockFan";

class SiblingPageTest : public testing::Test
{
protected:
    static int speedOf(RequestingHolder& holder, const std::string& fan)
    {
        int speed = 0;
        EXPECT_EQ(FC_OK,
                  holder.requestGetIntParam(kFan, "FanDataSet", "Fans", "Speed", speed, fan));
        return speed;
    }
};

TEST_F(SiblingPageTest, TheShellLinesRunAsTyped)
{
    const std::string page = readFile(SYSMGT_SOURCE_DIR "/docs/sibling-daemon.md");
    writeFile("/tmp/try.sh", shellLines(page, "## Try it"));
    setenv("PATH", (binary("").append(":") + getenv("PATH")).c_str(), 1);
    ChildProcess device({SYSMGT_SOURCE_DIR "/run", "--on-device", "bash", "-m", "/tmp/try.sh"});
    EXPECT_EQ(0, device.wait()) << device.errors();
    EXPECT_THAT(device.output(), testing::HasSubstr("save day: OK"));
    EXPECT_THAT(device.output(), testing::HasSubstr("doHandle: event=Configuration Added"));
}

TEST_F(SiblingPageTest, TheDaemonServesHearsAndKeepsItsSpeeds)
{
    Device device;
    device.boot();
    auto fans = std::make_unique<ChildProcess>(std::vector<std::string>{"FanManager"});
    ASSERT_TRUE(device.log().waitFor("main: serving /tmp/sockFan"));

    RequestingHolder holder;
    EXPECT_EQ(FC_OK, holder.set(kFan, "FanDataSet", "Fans", "left", "Speed", "900"));
    EXPECT_EQ(1200, speedOf(holder, "left")) << "before it is applied";
    EXPECT_EQ(FC_OK, holder.command(kFan, "APPLY_SPEED"));
    EXPECT_EQ(900, speedOf(holder, "left"));

    device.log().clear();
    device.cut("CfgManager"); // its list of subscribers goes with it
    device.start("CfgManager");
    ASSERT_TRUE(device.log().waitFor("sockName=/tmp/sockFan"));
    EXPECT_EQ("save day: OK\n", Device::cfgctl({"save", "day"}));
    EXPECT_TRUE(device.log().waitFor("doHandle: event=Configuration Added"));

    fans->stop(SIGKILL);
    device.log().clear();
    fans = std::make_unique<ChildProcess>(std::vector<std::string>{"FanManager"});
    ASSERT_TRUE(device.log().waitFor("main: serving /tmp/sockFan"));
    EXPECT_EQ(900, speedOf(holder, "left"));
    EXPECT_EQ(1200, speedOf(holder, "right"));
}

} // namespace
