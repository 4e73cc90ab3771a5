// The daemon's process entry: options, pid file, start file, and the end by an exception.

#include "Device.h"
#include "ScriptedPeer.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace
{

TEST(MainTest, DetachedDaemonLeavesItsPidInBothFilesAndServes)
{
    Device device;
    ChildProcess starter({"CfgManager", "-d", "-v", "7", "-v", "0", "-p", "/tmp/pid", "-s",
                          "/tmp/start", "no option"});
    ASSERT_EQ(0, starter.wait());
    ASSERT_TRUE(device.log().waitFor("init: dataCommunicator started"));
    const std::string pid = readFile("/tmp/pid");
    EXPECT_EQ("0:" + pid.substr(0, pid.size() - 1) + ":0\n", readFile("/tmp/start"));
    EXPECT_EQ(binary("CfgManager"),
              std::filesystem::read_symlink("/proc/" + std::to_string(std::stoi(pid)) + "/exe"));
    EXPECT_EQ("debug on: OK\n", Device::cfgctl({"debug", "on"}));
    kill(std::stoi(pid), SIGKILL);
}

TEST(MainTest, FilesThatCannotBeWrittenDoNotStopTheDaemon)
{
    Device device;
    ChildProcess& daemon =
        device.start("CfgManager", {"-v", "none", "-p", "/no/pid", "-s", "/no/start"});
    EXPECT_EQ("/no/start: No such file or directory\n", daemon.errors());
    EXPECT_TRUE(device.log().waitFor("init: dataCommunicator started")); // no number is level 0
}

TEST(MainTest, TellsTheSupervisorThatAsksForItWhenRequestsAreServed)
{
    Device device;
    ScriptedPeer deviceManager("/tmp/sockDev");
    for (const std::string socket : {"/tmp/notify", "@notify"}) {
        ScriptedPeer supervisor(socket[0] == '@' ? '\0' + socket.substr(1) : socket);
        setenv("NOTIFY_SOCKET", socket.c_str(), 1);
        device.start("CfgManager");
        deviceManager.receive(); // the start waits for the time zone
        EXPECT_TRUE(supervisor.nothingCame()) << socket;
        deviceManager.answer("NACK");
        deviceManager.receive();
        deviceManager.answer("ACK");
        EXPECT_EQ("READY=1", supervisor.receiveText());
    }
}

TEST(MainTest, UnknownOptionPrintsTheUsageAndStartsNothing)
{
    ChildProcess daemon({"CfgManager", "-p", "/tmp/no-pid", "-x"});
    EXPECT_EQ(1, daemon.wait());
    EXPECT_EQ("Usage: " + binary("CfgManager") +
                  " [-v verboseLevel] [-d] [-p pidfile] [-s startfile]\n",
              daemon.errors());
    EXPECT_FALSE(std::filesystem::exists("/tmp/no-pid"));
}

TEST(MainTest, ManagerIsDestroyedBeforeAnExceptionEndsTheProcess)
{
    ChildProcess daemon({"ThrowingManager"});
    EXPECT_EQ(-SIGABRT, daemon.wait());
    EXPECT_EQ("manager: destroyed", daemon.errors());
}

} // namespace
