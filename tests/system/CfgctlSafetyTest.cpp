// What the client does for whoever fears to lose something: the doctor, archives, and starts that
// have to be confirmed.

#include "CfgPaths.h"
#include "Device.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
namespace fs = std::filesystem;
using namespace std::string_literals;

std::string run(std::vector<std::string> arguments) { return Device::cfgctl(std::move(arguments)); }

struct Fault {
    const char* name;
    void (*seed)(Device& device);
    const char* said;
    int status;

    friend void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }
};

void mountOver(const char* path, unsigned long flags, const char* options)
{
    ASSERT_EQ(0, mount("test", path, "tmpfs", flags, options)) << errno;
}

constexpr char kQueue[] = "/tmp/queue";

const Fault kFaults[] = {
    {"None", [](Device&) {}, "doctor: OK\n", 0},
    {"NotRunning",
     [](Device& device) {
         device.cut("CfgManager");
         fs::remove(kCfgSocket);
     },
     "fault: CfgManager does not run", 3},
    {"StaleSocket", [](Device& device) { device.cut("CfgManager"); }, "/tmp/sockCfg is stale", 3},
    {"Silent", [](Device& device) { device.start("CfgManager").signal(SIGSTOP); },
     "runs, and does not answer", 3},
    {"NoChannelManager", [](Device& device) { device.cut("ChanManager"); }, "no channel manager",
     5},
    {"NoReader",
     [](Device&) {
         fs::remove("/tmp/sockDbg");
         mkfifo("/tmp/sockDbg", 0666);
     },
     "fault: nobody reads /tmp/sockDbg", 5},
    {"NoFifo", [](Device&) { fs::remove("/tmp/sockDbg"); }, "warning: nothing is logged", 0},
    {"NoFile",
     [](Device&) {
         run({"save", "a"});
         fs::remove("/data/cfg/a");
     },
     "'a' has no file", 5},
    {"BadCatalogue", [](Device&) { writeFile(kStoredCatalogue, "{\"dataset\""); },
     "cfg_stored_set.json is no catalogue: it is no JSON", 5},
    {"BadFactoryCatalogue", [](Device&) { writeFile(kFactoryCatalogue, "{}"); },
     "cfg_data_set.json is no catalogue", 5},
    {"DamagedCopy", [](Device&) { writeFile(kDamagedCatalogue, ""); }, "warning: an earlier start",
     0},
    {"DiskFull", [](Device&) { mountOver(kCfgDir, 0, "size=64k"); }, "/data/cfg is full", 5},
    {"DiskReadOnly", [](Device&) { mountOver(kCfgDir, MS_RDONLY, ""); }, "/data/cfg is read-only",
     5},
    {"CatalogueOfAnotherUser",
     [](Device&) {
         if (lchown(kCfgSocket, 1, 1) == -1)
             GTEST_SKIP() << "no other users here";
     },
     "may not write /data/cfg/cfg_stored_set.json\n    chown 1 /data/cfg "
     "/data/cfg/cfg_stored_set.json\n",
     5},
    {"AutoStartOfNothing",
     [](Device&) {
         run({"call", "SET_AUTOSTART_CFG", "RowID=gone", "AutoStart=true"});
     },
     "names 'gone', which is not there", 5},
    {"ShortQueue", [](Device&) { writeFile(kQueue, "63\n"); }, "warning: a socket queues 63", 0},
};

class DoctorTest : public testing::TestWithParam<Fault>
{
};

TEST_P(DoctorTest, FindsTheFaultAndSaysWhatToDo)
{
    Device device;
    device.boot();
    writeFile(kQueue, "64\n");
    ASSERT_EQ(0, mount(kQueue, "/proc/sys/net/unix/max_dgram_qlen", "", MS_BIND, nullptr));
    GetParam().seed(device);
    if (IsSkipped() || HasFatalFailure())
        return;
    ChildProcess doctor({"cfgctl", "doctor", "-t", "2"});
    EXPECT_EQ(GetParam().status, doctor.wait());
    EXPECT_THAT(doctor.output(), HasSubstr(GetParam().said));
    const bool isFound = std::string_view(GetParam().name) != "None";
    EXPECT_EQ(isFound, doctor.output().find("\n    ") != std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Faults, DoctorTest, testing::ValuesIn(kFaults),
                         [](const auto& fault) { return fault.param.name; });

class CfgctlSafetyTest : public testing::Test
{
protected:
    CfgctlSafetyTest() { device.boot(); }

    static std::string running() { return run({"get", "CfgDataSet", "RunningConfiguration"}); }

    Device device;
};

TEST_F(CfgctlSafetyTest, AnArchiveBringsBackWhatItHoldsAndLeavesTheRest)
{
    const std::string odd = "näh  \xff";
    run({"save", "a", "-d", "first"});
    run({"save", odd, "--autostart"});
    writeFile("/data/cfg/a", "content");
    writeFile("/tmp/all.tar", "old");
    EXPECT_THAT(run({"export", "/tmp/all.tar"}), StartsWith("2: "));
    EXPECT_THAT(run({"export", "/tmp/all.tar", "-y"}), HasSubstr("Configurations: 2\n"));
    run({"export", "/tmp/new.tar"});
    EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write,
              fs::status("/tmp/new.tar").permissions());
    const auto time = fs::last_write_time("/data/cfg/a");

    run({"remove", "-y", "a"});
    writeFile("/data/cfg/" + odd, "changed");
    run({"autostart", "--off"});
    run({"save", "later"});
    run({"export", "/tmp/off.tar"});
    EXPECT_THAT(run({"restore", "/tmp/all.tar"}), StartsWith("2: "));
    const std::string archive = readFile("/tmp/all.tar");
    device.log().clear();
    const std::size_t last = archive.rfind("Frequency");
    const std::string damaged[] = {
        "",
        "junk",
        archive.substr(0, last),
        archive.substr(0, 700),
        std::string(archive).replace(last, 1, "f"),
        std::string(archive).replace(archive.find("\"first\""), 7, "{}     ")};
    for (const std::string& bad : damaged) {
        writeFile("/tmp/bad.tar", bad);
        EXPECT_THAT(run({"restore", "-y", "/tmp/bad.tar"}), StartsWith("4: "));
    }
    EXPECT_THAT(device.log().text(), Not(HasSubstr("Import")));

    fs::create_directory("/data/cfg/a"); // onto which nothing is moved
    EXPECT_THAT(run({"restore", "-y", "/tmp/all.tar"}),
                AllOf(HasSubstr("at 'a', 0 of 2 are restored"),
                      HasSubstr("Try: cfgctl --yes restore /tmp/all.tar")));
    fs::remove("/data/cfg/a");
    EXPECT_THAT(run({"restore", "-y", "/tmp/all.tar"}), HasSubstr("Configurations: 2\n"));
    EXPECT_EQ("content", readFile("/data/cfg/a"));
    EXPECT_THAT(readFile("/data/cfg/" + odd), HasSubstr("Frequency"));
    EXPECT_THAT(run({"list"}), AllOf(HasSubstr("first"), HasSubstr("later"), HasSubstr("yes")));
    EXPECT_GT(std::chrono::seconds(1), time - fs::last_write_time("/data/cfg/a")); // to the second

    run({"restore", "-y", "/tmp/off.tar"}); // of a device without an auto-start
    EXPECT_THAT(run({"list"}), Not(HasSubstr("yes")));
    fs::remove("/data/cfg/a");
    EXPECT_THAT(
        run({"export", "-y", "/tmp/off.tar"}),
        AllOf(StartsWith("4: "), HasSubstr("'a' has no file"), HasSubstr("cfgctl remove a")));
}

TEST_F(CfgctlSafetyTest, AStartThatNobodyConfirmsIsTakenBackWhateverEndsMeanwhile)
{
    run({"save", "day"});
    run({"save", "night"});
    const std::vector<std::string> guarded = {"start", "day", "--confirm-within", "1"};
    EXPECT_THAT(run(guarded), HasSubstr("5: cfgctl: start day: no start can be guarded"));
    fs::create_directory("/run/sysmgt/confirm");
    EXPECT_THAT(run(guarded), HasSubstr("the default channels run"));
    run({"start", "night"});

    ChildProcess terminal({"/usr/bin/script", "-qc",
                           binary("cfgctl") + " start day --confirm-within 2; sleep 60",
                           "/dev/null"});
    EXPECT_TRUE(terminal.waitFor("start day: OK"));
    terminal.stop(SIGKILL);
    EXPECT_THAT(running(), HasSubstr("day"));
    EXPECT_THAT(run({"start", "night", "--confirm-within", "60"}), StartsWith("5: "));
    device.cut("CfgManager");
    EXPECT_TRUE(eventually([] { return readFile("/run/sysmgt/confirm/state").ends_with("1\0"s); }));
    device.start("CfgManager");
    EXPECT_TRUE(eventually([] { return running().find("night") != std::string::npos; }));
    EXPECT_THAT(run({"confirm"}), StartsWith("5: "));

    EXPECT_EQ("start day: OK\n", run(guarded));
    EXPECT_EQ("start day: OK\n", run({"start", "day", "--confirm-within", "60"}));
    EXPECT_EQ("confirm: OK, 'day' stays\n", run({"confirm"}));
    EXPECT_THAT(run({"confirm"}), HasSubstr("no start waits"));
    EXPECT_THAT(run({"start", "none", "--confirm-within", "60"}), StartsWith("4: "));
    EXPECT_THAT(run({"confirm"}), StartsWith("5: ")); // nothing is left of it
    EXPECT_THAT(running(), HasSubstr("day"));
}

} // namespace
