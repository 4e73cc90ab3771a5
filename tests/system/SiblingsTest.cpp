// The sample siblings, through the messages that the manager and clients send them.

#include "CfgPaths.h"
#include "Device.h"
#include "ScriptedPeer.h"

#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <thread>

namespace
{

using testing::HasSubstr;

class SiblingsTest : public testing::Test
{
protected:
    Fcodes store(const std::string& file)
    {
        return holder.command(kChanSocket, "STORE_CHANNELS", {{"File", file}});
    }
    Fcodes load(const std::string& file, unsigned timeout = 10)
    {
        return holder.command(kChanSocket, "LOAD_CHANNELS", {{"File", file}}, timeout);
    }

    std::string channel(const std::string& property)
    {
        std::string value = "?";
        holder.requestGetTextParam(kChanSocket, "ChannelDataSet", "ChannelTable", property, value,
                                   "1");
        return value;
    }

    Fcodes setChannel(const std::string& property, const std::string& value)
    {
        return holder.set(kChanSocket, "ChannelDataSet", "ChannelTable", "1", property, value);
    }

    Device device;
    RequestingHolder holder;
};

TEST_F(SiblingsTest, StoresAndReloadsChannels)
{
    device.start("ChanManager");
    EXPECT_EQ(FC_OK, setChannel("Frequency", "1200000"));
    EXPECT_EQ("950000", channel("Frequency")) << "before it is accepted";
    EXPECT_EQ(FC_OK, store("/tmp/set"));
    EXPECT_EQ("1200000", channel("Frequency"));
    EXPECT_EQ(FC_OK, load("Default"));
    EXPECT_EQ("950000", channel("Frequency"));
    EXPECT_EQ(FC_OK, load("/tmp/set"));
    EXPECT_EQ("1200000", channel("Frequency"));
    EXPECT_EQ("true", channel("Enabled"));
    EXPECT_EQ(FC_BAD_VALUE, setChannel("Modulation", "64QAM"));
    EXPECT_EQ(FC_OK, setChannel("Modulation", "16QAM"));
}

TEST_F(SiblingsTest, BadFilesAreRefusedAndTheChannelsStay)
{
    device.start("ChanManager");
    const std::string head =
        R"({"components":{"ChannelTable":{"properties":{},"instances":{"1":{"Frequency":)";
    const std::pair<std::string, Fcodes> files[] = {
        {"", FC_UNAVAILABLE},
        {"{\"components\":", FC_UNAVAILABLE},
        {"[1, 2]", FC_BAD_VALUE},
        {R"({"components":{"ChannelTable":{"instances":{}}}})", FC_BAD_VALUE},
        {R"({"components":{"ChannelTable":{"instances":[1]}}})", FC_BAD_VALUE},
        {head + R"("fast","Gain":1,"Enabled":true}}}}})", FC_BAD_VALUE},
        {head + R"(7,"Gain":1}}}}})", FC_BAD_VALUE},
    };
    EXPECT_EQ(FC_NO_SUCH_NAME, load("/tmp/missing"));
    for (const auto& [content, code] : files) {
        writeFile("/tmp/bad", content);
        EXPECT_EQ(code, load("/tmp/bad")) << content;
        EXPECT_EQ("950000", channel("Frequency")) << content;
    }
    EXPECT_NE(FC_OK, store("/no/such/dir/set"));
    EXPECT_EQ(FC_BODY_ERROR, holder.command(kChanSocket, "STORE_CHANNELS", {{"Path", "/tmp/set"}}));
}

TEST_F(SiblingsTest, StoresLoadsAndZonesAreAnnouncedAndTheManagerFollowsTheZone)
{
    device.start("ChanManager");
    device.start("DevManager", {"-z", "CET-1CEST"});
    device.start("CfgManager");
    EXPECT_TRUE(device.log().waitFor("init: setenv TZ=CET-1CEST"));
    ASSERT_TRUE(device.log().waitFor("serve: LOAD_CHANNELS")); // the start at boot
    ScriptedPeer observer("/tmp/observer");
    for (const char* sibling : {kChanSocket, kDevSocket})
        ASSERT_EQ(FC_OK, holder.command(sibling, "SUBSCRIBE", {{"SockName", "/tmp/observer"}}));
    ASSERT_EQ(FC_OK, store("/tmp/set"));
    EXPECT_THAT(observer.receiveText(), HasSubstr("Event ID=\"Channels Stored\""));
    ASSERT_EQ(FC_OK, load("/tmp/set"));
    EXPECT_THAT(observer.receiveText(), HasSubstr("Event ID=\"Channels Loaded\""));
    ASSERT_NE(FC_OK, load("/tmp/missing"));
    ASSERT_EQ(FC_BAD_VALUE, holder.command(kDevSocket, "SET_TIME_ZONE", {{"TZ", ""}}));
    EXPECT_TRUE(observer.nothingCame());

    std::string zone;
    holder.requestGetTextParam(kDevSocket, "DeviceDataSet", "DateTimeTable", "TZ", zone, "");
    EXPECT_EQ("CET-1CEST", zone);
    ChildProcess setter({"DevManager", "--set-zone", "IST-5:30"});
    EXPECT_EQ(0, setter.wait()) << setter.errors();
    EXPECT_THAT(observer.receiveText(),
                AllOf(HasSubstr("Event ID=\"Date&Time Updated\""),
                      HasSubstr("<Parameter Name=\"TZ\" Value=\"IST-5:30\" />")));
    EXPECT_TRUE(device.log().waitFor("doHandle: setenv TZ=IST-5:30"));
    device.start("DevManager");
    EXPECT_TRUE(device.log().waitFor("start: serving /tmp/sockDev TZ=IST-5:30")); // it is kept
}

TEST_F(SiblingsTest, SavesWhileTheStartAtBootWaitsForASilentChannelManager)
{
    ScriptedPeer channels(kChanSocket);
    device.start("CfgManager");
    EXPECT_THAT(channels.receiveText(), HasSubstr("LOAD_CHANNELS"));
    const std::jthread manager([&] {
        EXPECT_THAT(channels.receive().body, HasSubstr("STORE_CHANNELS"));
        writeFile("/data/cfg/night", "channels");
        channels.answer("ACK");
    });
    EXPECT_EQ("save night: OK\n", Device::cfgctl({"save", "night"}));
}

TEST_F(SiblingsTest, ASimulatedChannelManagerRefusesDelaysOrHangs)
{
    device.start("ChanManager", {"--refuse"});
    EXPECT_EQ(FC_UNAVAILABLE, store("/tmp/refused"));
    EXPECT_FALSE(std::filesystem::exists("/tmp/refused"));

    device.start("ChanManager", {"--delay-ms", "300", "--socket", "/tmp/other"});
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(FC_OK, holder.command("/tmp/other", "STORE_CHANNELS", {{"File", "/tmp/set"}}));
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(300));

    device.start("ChanManager", {"--silent"});
    EXPECT_EQ(FC_COMM_ERROR, load("/tmp/set", 1));
}

} // namespace
