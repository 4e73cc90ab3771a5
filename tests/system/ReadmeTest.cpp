// The tour of README.md is run.

#include "Device.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <unistd.h>

namespace
{

using testing::HasSubstr;

TEST(ReadmeTest, TheTourDoesWhatItSays)
{
    const std::string page = readFile(SYSMGT_SOURCE_DIR "/README.md");
    Device device;
    device.boot();
    setenv("PATH", (binary("").append(":") + getenv("PATH")).c_str(), 1);
    writeFile("/tmp/tour.sh", shellLines(page, "## A tour") + "kill %1\n");
    ChildProcess tour({"/bin/bash", "-m", "/tmp/tour.sh"});
    tour.wait();
    for (const char* text : {"save day: OK", "* night", "start day: OK", "weekday"})
        EXPECT_THAT(tour.output(), HasSubstr(text)); // "*": it starts at boot
    EXPECT_THAT(tour.errors(), HasSubstr("No Such Name"));
    EXPECT_EQ("", readFile("/data/cfg/weekday"));
    EXPECT_NE("", readFile("/data/cfg/night"));
    EXPECT_THAT(device.log().text(), HasSubstr("cfgName=weekday fcode=10008"));
}

} // namespace
