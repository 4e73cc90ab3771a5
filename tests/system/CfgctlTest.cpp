#include "CfgPaths.h"
#include "Device.h"
#include "ScriptedPeer.h"

#include <chrono>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

namespace
{

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
namespace fs = std::filesystem;

/// How many clients there are, by what they have in /tmp.
std::ptrdiff_t countClients()
{
    return std::count_if(fs::directory_iterator("/tmp"), {}, [](const auto& entry) {
        return entry.path().filename().string().find("Cfgctl") != std::string::npos;
    });
}

class CfgctlTest : public testing::Test
{
protected:
    /// The client's output, or "status: errors".
    static std::string run(const auto&... arguments)
    {
        return Device::cfgctl({std::string(arguments)...});
    }

    static std::unique_ptr<ChildProcess> watch(std::vector<std::string> options = {})
    {
        options.insert(options.begin(), {"cfgctl", "watch"});
        auto watcher = std::make_unique<ChildProcess>(options);
        EXPECT_TRUE(watcher->waitFor("watching")) << watcher->errors();
        return watcher;
    }

    Device device;
};

TEST_F(CfgctlTest, SavesListsShowsStartsRemovesAndSwitchesWhatTheManagerLogs)
{
    device.boot();
    EXPECT_THAT(run("list"), MatchesRegex("NAME +STATE +TIME +AT BOOT +DESCRIPTION\n"));
    EXPECT_EQ("save evening: OK\n", run("save", "evening", "-d", "After ten", "--autostart"));
    EXPECT_THAT(readFile("/data/cfg/evening"), HasSubstr("Frequency"));
    EXPECT_EQ("save después: OK\n", run("save", "después"));

    EXPECT_THAT(run("list"),
                MatchesRegex("NAME     STATE      TIME                AT BOOT  DESCRIPTION\n"
                             "después  Available  [0-9A-Za-z-]+ [0-9:]+  no       -\n"
                             "evening  Available  [0-9A-Za-z-]+ [0-9:]+  yes      After ten\n"));
    EXPECT_THAT(run("show", "evening"), MatchesRegex("Name:           evening\n"
                                                     "Description:    After ten\n"
                                                     "File:           /data/cfg/evening\n"
                                                     "File is there:  yes\n"
                                                     "Time:           [0-9A-Za-z-]+  [0-9:]+\n"
                                                     "State:          Available\n"
                                                     "Last result:    OK\n"
                                                     "Starts at boot: yes\n"));
    EXPECT_EQ("start evening: OK\n", run("start", "evening"));
    EXPECT_EQ("remove evening: OK\n", run("remove", "evening", "--yes"));
    EXPECT_THAT(run("list"), Not(HasSubstr("evening")));
    EXPECT_FALSE(fs::exists("/data/cfg/evening"));

    run("debug", "off");
    device.log().clear();
    run("save", "quiet");
    EXPECT_THAT(device.log().text(), Not(HasSubstr("execute: command=SAVE_CFG")));
    run("debug", "on");
    run("save", "loud");
    EXPECT_TRUE(device.log().waitFor("execute: command=SAVE_CFG"));
}

TEST_F(CfgctlTest, RefusalsNameWhatFailedAndWhyAndWhatNoMessageCarriesIsNotSent)
{
    device.boot();
    EXPECT_EQ("4: cfgctl: start x: No Such Name (0x10008): no configuration has this name; names "
              "are exact. Try: cfgctl list\n",
              run("start", "x"));
    EXPECT_THAT(run("save", "a/b"), HasSubstr("(0x10020): a name cannot hold a '/'."));
    device.log().clear();
    for (const std::string bad : {"a\"b", "a\nb", "a<b", "a>b", "a\x7f"}) {
        EXPECT_THAT(run("save", bad), AllOf(StartsWith("2: "), HasSubstr("stands at byte 2")));
        EXPECT_THAT(run("save", "good", "-d", bad), StartsWith("2: "));
    }
    EXPECT_THAT(run("save", "good", "-d", std::string(70000, 'x')),
                HasSubstr("too long for one message"));
    EXPECT_THAT(device.log().text(), Not(HasSubstr("command=SAVE_CFG")));

    // Without its sibling the manager answers, and says that it got no answer: not the client.
    device.cut("ChanManager");
    EXPECT_THAT(run("save", "z"),
                AllOf(StartsWith("6: "), HasSubstr("/tmp/sockChan does not run")));
}

TEST_F(CfgctlTest, ImportTakesARelativePathAndRenameKeepsTheDescriptionUnlessItIsGivenAnother)
{
    device.boot();
    writeFile("/tmp/stick/night shift", "{}");
    ASSERT_EQ(0, chdir("/tmp/stick"));
    EXPECT_EQ("import night shift: OK\n", run("import", "night shift", "-d", "First words"));
    EXPECT_TRUE(fs::exists("night shift")); // what went was a copy
    EXPECT_EQ("autostart night shift: OK\n", run("autostart", "night shift"));
    EXPECT_EQ("rename night shift two: OK\n", run("rename", "night shift", "two"));
    EXPECT_THAT(run("show", "two"),
                AllOf(HasSubstr("First words"), HasSubstr("Starts at boot: yes")));
    run("rename", "two", "three", "-d", "Second words");
    EXPECT_EQ("autostart --off: OK\n", run("autostart", "--off"));
    EXPECT_THAT(run("show", "three"),
                AllOf(HasSubstr("Second words"), HasSubstr("Starts at boot: no")));
}

TEST_F(CfgctlTest, WatchPrintsEachEventOnALineAndGoesOnWhenTheManagerStartsAnew)
{
    device.boot();
    const auto watcher = watch({"--count", "3"});
    run("save", "evening");
    device.start("CfgManager");
    ASSERT_TRUE(watcher->waitFor("started anew")) << watcher->errors();
    run("start", "evening");
    run("start", "nothing");
    EXPECT_EQ(0, watcher->wait());
    EXPECT_THAT(watcher->output(),
                MatchesRegex(".+  Configuration Added      evening           OK  -\n"
                             ".+  Configuration Activated  evening           OK  -\n"
                             ".+  Configuration Error      nothing           "
                             "No Such Name .0x10008.  -\n"));
    EXPECT_THAT(run("watch", "--count", "1", "--for", "1"),
                AllOf(StartsWith("6: "), HasSubstr("0 of 1 events")));
}

TEST_F(CfgctlTest, ClientsSideBySideHaveSocketsOfTheirOwnAndLeaveNone)
{
    device.boot();
    // What others have locked or made stops no client.
    flock(open("/tmp", O_RDONLY | O_CLOEXEC), LOCK_EX);
    writeFile("/tmp/sockCfgctl." + std::to_string(geteuid()) + ".0", "");
    run("save", "evening");
    std::vector<std::unique_ptr<ChildProcess>> watchers;
    for (int i = 0; i < 3; ++i)
        watchers.push_back(watch());
    std::deque<ChildProcess> clients;
    for (int i = 0; i < 10; ++i)
        clients.emplace_back(std::vector<std::string>{"cfgctl", "list"});
    for (ChildProcess& client : clients) {
        EXPECT_TRUE(client.waitFor("evening")) << client.errors();
        EXPECT_EQ(0, client.wait());
    }
    EXPECT_EQ(1 + 3, countClients());
    EXPECT_EQ(128 + SIGINT, watchers[0]->stop(SIGINT));
    EXPECT_EQ(128 + SIGTERM, watchers[1]->stop(SIGTERM));
    EXPECT_EQ(1 + 1, countClients());

    // What a killed one leaves is used again: the manager's list of subscribers does not grow.
    watchers[2]->stop(SIGKILL);
    for (int i = 0; i < 5; ++i)
        watch()->stop(SIGINT);
    EXPECT_THAT(device.log().text(), Not(testing::ContainsRegex("sockName=[^ ]+[.]4/")));
}

TEST_F(CfgctlTest, ListsACatalogueThatNoSingleAnswerHolds)
{
    std::vector<std::string> names;
    for (int i = 0; i < 1500; ++i)
        names.push_back("configuration-" + std::to_string(10000 + i));
    placeCatalogue(names);
    // One so long that its batch fits no answer, and one whose brackets end no element.
    std::string catalogue = readFile(kStoredCatalogue);
    catalogue.replace(catalogue.find("\"kept\"", catalogue.find(names[700])) + 1, 4,
                      "a > <b>" + std::string(60000, 'x'));
    writeFile(kStoredCatalogue, catalogue);
    device.start("CfgManager", {"-v", "2"});

    const std::string listed = run("list");
    std::size_t position = 0;
    for (const std::string& name : names) {
        position = listed.find("\n" + name + "  Available", position);
        ASSERT_NE(std::string::npos, position) << name;
    }
    EXPECT_THAT(listed, HasSubstr("  a > <b>xxx"));
}

} // namespace
