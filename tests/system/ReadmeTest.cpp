// What the pages show is run: the tour of README.md, and the daemon of docs/sibling-daemon.md.

#include "Device.h"
#include "MessageHeader.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <unistd.h>

namespace
{

using testing::HasSubstr;

/// The first block of shell lines behind a heading.
std::string shellLines(const std::string& page, const std::string& heading)
{
    const std::size_t start = page.find("```sh\n", page.find(heading)) + 6;
    return page.substr(start, page.find("```", start) - start);
}

TEST(ReadmeTest, TheTourDoesWhatItSays)
{
    const std::string page = readFile(SYSMGT_SOURCE_DIR "/README.md");
    Device device;
    device.boot();
    setenv("PATH", (binary("").append(":") + getenv("PATH")).c_str(), 1);
    writeFile("/tmp/tour.sh", shellLines(page, "## A tour") + "kill %1\n");
    ChildProcess tour({"/bin/bash", "-m", "/tmp/tour.sh"});
    tour.wait();
    for (const char* said : {"save day: OK", "* night", "start day: OK", "weekday"})
        EXPECT_THAT(tour.output(), HasSubstr(said)); // the mark: it starts at boot
    EXPECT_THAT(tour.errors(), HasSubstr("No Such Name"));
    EXPECT_EQ("", readFile("/data/cfg/weekday"));
    EXPECT_NE("", readFile("/data/cfg/night"));
    EXPECT_THAT(device.log().text(), HasSubstr("cfgName=weekday fcode=10008"));
}

TEST(ReadmeTest, TheDaemonOfOnesOwnServesSetsAndHears)
{
    constexpr char kFan[] = "/tmp/sockFan";
    Device device;
    device.boot();
    ChildProcess fan({"FanManager"});
    ASSERT_TRUE(device.log().waitFor("main: serving /tmp/sockFan"));

    AskingHolder holder;
    int speed = 0;
    EXPECT_EQ(FC_OK, holder.requestGetIntParam(kFan, "FanDataSet", "Fan", "Speed", speed, ""));
    EXPECT_EQ(1200, speed);

    MessageHeader set;
    MessageHeader answer;
    std::string body = "<BODY>\n<DataSet ID=\"FanDataSet\" >\n<Component Name=\"Fan\" >\n"
                       "<Row ID=\"\" >\n<Item Name=\"Speed\" Value=\"900\" />\n</Row>\n"
                       "</Component>\n</DataSet>\n</BODY>\n";
    set.Type = "SET";
    set.Size = static_cast<int>(body.size());
    EXPECT_EQ(FC_OK,
              holder.getDataCommunicator().sendRequest(kFan, set, body, answer, body, 10, 1));
    EXPECT_EQ(FC_OK, answer.Fcode);
    EXPECT_EQ(FC_OK, holder.requestCommand(kFan, "<Command ID=\"APPLY_SPEED\" >\n</Command>\n",
                                           body, 10, 1));
    EXPECT_EQ(FC_OK, holder.requestGetIntParam(kFan, "FanDataSet", "Fan", "Speed", speed, ""));
    EXPECT_EQ(900, speed);

    EXPECT_EQ("save day: OK\n", Device::cfgctl({"save", "day"}));
    EXPECT_TRUE(device.log().waitFor("doHandle: event=Configuration Added"));
}

} // namespace
