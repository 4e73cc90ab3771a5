#include "CfgFiles.h"

#include "CfgPaths.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

void write(const std::string& path, const std::string& content) { std::ofstream(path) << content; }

std::string read(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

class CfgFilesTest : public testing::Test
{
protected:
    void SetUp() override { mkdir(kCfgDir, 0775); }

    std::time_t mModified = 0;
};

TEST_F(CfgFilesTest, NameIsRefusedWhenItCannotBeAFileOfItsOwn)
{
    for (const char* name : {"a", "CH 1", "-f", "a.b", "..a", " x", "$(reboot)", "caf\xc3\xa9"})
        EXPECT_TRUE(isConfigurationName(name)) << name;
    for (const char* name : {"", ".", "..", "/", "a/b", "../a", " ", " \t ", "a\nb", "a\x7f",
                             "\x01", "cfg_stored_set.json", "cfg_stored_set.xml"})
        EXPECT_FALSE(isConfigurationName(name)) << name;
    EXPECT_TRUE(isConfigurationName(std::string(255, 'n')));
    EXPECT_FALSE(isConfigurationName(std::string(256, 'n')));
}

TEST_F(CfgFilesTest, OnlyFilesDirectlyInTheDirectoryAreDeleted)
{
    write("/data/keep", "k");
    write(kStoredCatalogue, "{}");
    mkdir("/data/cfg/sub", 0775);
    write("/data/cfg/sub/deep", "d");
    for (const char* path : {"/data/keep", "/data/cfg/../keep", "/data/cfg/sub/deep", "/data/cfg/",
                             "/data/cfg", "", kStoredCatalogue, "/data/cfgx"}) {
        errno = 0;
        EXPECT_FALSE(removeConfigurationFile(path)) << path;
        EXPECT_EQ(EPERM, errno) << path;
    }
    EXPECT_EQ("k", read("/data/keep"));
    EXPECT_EQ("d", read("/data/cfg/sub/deep"));
    EXPECT_EQ("{}", read(kStoredCatalogue));

    write("/data/cfg/gone", "g");
    EXPECT_TRUE(removeConfigurationFile("/data/cfg/gone"));
    EXPECT_FALSE(removeConfigurationFile("/data/cfg/gone"));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(CfgFilesTest, OrdinaryPathsStandInTheMoveCommandAsTheyAre)
{
    EXPECT_EQ("mv -f \"/tmp/in/ch_1.cfg\" /data/cfg/ch_1.cfg",
              importMove("/tmp/in/ch_1.cfg", "ch_1.cfg").command);
    EXPECT_EQ("mv -f \"/tmp/my dir/it's #1!\" /data/cfg/x~1#",
              importMove("/tmp/my dir/it's #1!", "x~1#").command);
    EXPECT_EQ("mv -f \"/data/cfg/old one\" \"/data/cfg/new one\"",
              renameMove("/data/cfg/old one", "new one").command);
}

TEST_F(CfgFilesTest, WhatTheShellWouldActOnReachesTheMoveAsItIs)
{
    ASSERT_EQ(0, chdir("/data")); // where a command that ran would leave its mark
    const char* const names[] = {"a b",   "$(touch ran)", "`touch ran`", "a;b",           "a&b|c",
                                 "*",     "a[b]?",        "{a,b}",       "it's",          "a\\b\\",
                                 "$HOME", "<in>out",      "-rf",         "(a)",           "~",
                                 "#a",    "!a",           "a=b",         "\\$(touch ran)"};
    for (const char* name : names) {
        const std::string source = std::string("/tmp/") + name;
        write(source, name);
        EXPECT_TRUE(importMove(source, name).run(mModified)) << name;
        EXPECT_EQ(name, read(configurationPath(name))) << name;

        EXPECT_TRUE(renameMove(configurationPath(name), std::string("new ") + name).run(mModified));
        EXPECT_EQ(name, read(configurationPath(std::string("new ") + name))) << name;
    }
    EXPECT_NE(0, access("/data/ran", F_OK));

    ASSERT_EQ(0, chdir("/tmp"));
    write("-t", "dash");
    EXPECT_TRUE(importMove("-t", "-t").run(mModified));
    EXPECT_EQ("dash", read("/data/cfg/-t"));
}

TEST_F(CfgFilesTest, MoveSucceedsOnlyWhenTheFileItselfHasArrived)
{
    write("/data/cfg/there", "older");
    EXPECT_FALSE(importMove("/tmp/missing", "there").run(mModified));
    EXPECT_EQ("older", read("/data/cfg/there"));

    write("/tmp/newer", "newer");
    EXPECT_TRUE(importMove("/tmp/newer", "there").run(mModified));
    EXPECT_EQ("newer", read("/data/cfg/there"));
    write("/data/cfg/there", "older");

    EXPECT_TRUE(renameMove("/data/cfg/there", "there").run(mModified));
    EXPECT_EQ("older", read("/data/cfg/there"));

    mkdir("/tmp/directory", 0775);
    EXPECT_FALSE(importMove("/tmp/directory", "directory").run(mModified));
}

} // namespace
