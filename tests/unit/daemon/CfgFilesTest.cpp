#include "CfgFiles.h"

#include "CfgPaths.h"
#include "Device.h"
#include "base/Descriptor.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace
{

TEST(CfgFilesTest, RefusesNamesThatCannotBeAFileName)
{
    for (const char* name : {"a", "CH 1", "-f", "a.b", "..a", " x", "$(reboot)", "caf\xc3\xa9"})
        EXPECT_TRUE(isConfigurationName(name)) << name;
    for (const char* name : {"", ".", "..", "/", "a/b", "../a", " ", " \t ", "a\nb", "a\x7f",
                             "\x01", "cfg_stored_set.json", "cfg_stored_set.xml", ".cfg_changes"})
        EXPECT_FALSE(isConfigurationName(name)) << name;
    EXPECT_TRUE(isConfigurationName(std::string(255, 'n')));
    EXPECT_FALSE(isConfigurationName(std::string(256, 'n')));
}

TEST(CfgFilesTest, OnlyFilesDirectlyInTheDirectoryAreDeleted)
{
    const std::vector<std::string> kept{"/data/keep", kStoredCatalogue, "/data/cfg/sub/deep"};
    for (const std::string& path : kept)
        writeFile(path, "kept");
    const std::vector<std::string> refused{
        "/data/keep", "/data/cfg/../keep", "/data/cfg/sub/deep", "/data/cfg/", "/data/cfg",
        "",           kStoredCatalogue,    "/data/cfgx"};
    for (const std::string& path : refused) {
        errno = 0;
        EXPECT_FALSE(removeConfigurationFile(path)) << path;
        EXPECT_EQ(EPERM, errno) << path;
    }
    for (const std::string& path : kept)
        EXPECT_EQ("kept", readFile(path)) << path;

    writeFile("/data/cfg/gone", "g");
    EXPECT_TRUE(removeConfigurationFile("/data/cfg/gone"));
    EXPECT_FALSE(removeConfigurationFile("/data/cfg/gone"));
    EXPECT_EQ(ENOENT, errno);
}

TEST(CfgFilesTest, ShellMetacharactersInPathsAreEscaped)
{
    std::time_t modified = 0;
    std::filesystem::create_directory(kCfgDir);
    ASSERT_EQ(0, chdir("/data")); // where an injected command would leave its file
    for (const std::string name :
         {"a b", "$(touch ran)", "`touch ran`", "a;b", "a&b|c", "*", "a[b]?", "{a,b}", "it's",
          "a\\b\\", "$HOME", "<in>out", "-rf", "(a)", "~", "#a", "!a", "a=b", "\\$(touch ran)"}) {
        writeFile("/tmp/" + name, name);
        EXPECT_TRUE(importMove("/tmp/" + name, name).run(modified)) << name;
        EXPECT_TRUE(renameMove(configurationPath(name), "new " + name).run(modified)) << name;
        EXPECT_EQ(name, readFile(configurationPath("new " + name)));
    }
    EXPECT_FALSE(std::filesystem::exists("/data/ran"));

    ASSERT_EQ(0, chdir("/tmp"));
    writeFile("/tmp/-t", "dash");
    EXPECT_TRUE(importMove("-t", "-t").run(modified));
    EXPECT_EQ("dash", readFile("/data/cfg/-t"));
}

TEST(CfgFilesTest, MovesNothingThatCouldHoldTheMoveUpAndKnowsOneThatIsUnderWay)
{
    writeFile(std::string(kChangesBeside) + "/journal", "records");
    std::filesystem::create_directories(kCfgDir);
    writeFile("/tmp/leased", "x");
    EXPECT_TRUE(importMove("/tmp/leased", "name").isAllowed());
    const Descriptor file(open("/tmp/leased", O_RDWR | O_CLOEXEC));
    ASSERT_EQ(0, fcntl(file.get(), F_SETLEASE, F_WRLCK));
    signal(SIGIO, SIG_IGN); // that somebody wants the file
    for (const std::string path : {"/proc/version", "/data/.cfg_changes/journal", "/tmp/leased"})
        EXPECT_FALSE(importMove(path, "name").isAllowed()) << path;

    // Of a stranger's lock nobody takes notice; where records can be kept is nobody else's.
    const Descriptor stranger(open(kCfgDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(0, flock(stranger.get(), LOCK_EX));
    ASSERT_EQ(0, chmod(kChangesBeside, 0700));
    writeFile("/tmp/moved", "x");
    FileMove move = importMove("/tmp/moved", "name");
    move.command = "sleep 0.5; " + move.command;
    std::time_t modified = 0;
    auto moving = std::async(std::launch::async, [&] { return move.run(modified); });
    const Descriptor late(open("/tmp/moved", O_RDWR | O_CLOEXEC));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(-1, fcntl(late.get(), F_SETLEASE, F_WRLCK)) << "a lease taken after the look";
    EXPECT_FALSE(waitForMoves(std::chrono::milliseconds(20)));
    EXPECT_TRUE(moving.get());
    EXPECT_TRUE(waitForMoves(std::chrono::milliseconds(20)));
}

TEST(CfgFilesTest, AMoveCountsWhenTheFileHasArrivedWholeAndIsNoOther)
{
    std::filesystem::create_directories(kCfgDir);
    writeFile("/tmp/stranger", "other");
    const std::string to = configurationPath("name");
    const struct {
        const char* command;
        bool arrives;
    } cases[] = {
        {"echo more >>/tmp/file; mv -f /tmp/file ", true}, // its writer is not done
        {"cp /tmp/file /data/cfg/name; rm /tmp/file; echo more >>", true},
        {"cp /tmp/file ", true}, // the source may not be deleted
        {"head -c 1 /tmp/file >", false},
        {"rm /tmp/file; ln -s /tmp/stranger ", false},
        {"rm /tmp/file; mkdir ", false},
        {": ", false},
    };
    for (const auto& [command, arrives] : cases) {
        writeFile("/tmp/file", "whole");
        FileMove move = importMove("/tmp/file", "name");
        move.command = command + to;
        std::time_t modified = 0;
        EXPECT_EQ(arrives, move.run(modified)) << move.command;
        std::filesystem::remove(to);
    }
}

} // namespace
