#include "Device.h"
#include "ScriptedPeer.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

/// The client's socket paths that exist now.
std::vector<std::string> clientSockets()
{
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator("/tmp"))
        if (entry.path().filename().string().find("Cfgctl") != std::string::npos)
            found.push_back(entry.path().filename());
    return found;
}

class CfgctlTest : public testing::Test
{
protected:
    /// Runs the client, which must end so; returns what it wrote.
    std::string done(const std::vector<std::string>& arguments)
    {
        return ends(0, arguments).output;
    }
    std::string refused(const std::vector<std::string>& arguments)
    {
        return ends(1, arguments).errors;
    }
    std::string misused(const std::vector<std::string>& arguments)
    {
        return ends(2, arguments).errors;
    }
    std::string unanswered(const std::vector<std::string>& arguments)
    {
        return ends(3, arguments).errors;
    }

    std::unique_ptr<ChildProcess> watch(std::vector<std::string> options = {})
    {
        options.insert(options.begin(), {"cfgctl", "watch"});
        auto watcher = std::make_unique<ChildProcess>(options);
        EXPECT_TRUE(watcher->waitForErrors("watching")) << watcher->errors();
        return watcher;
    }

    Device device;

private:
    Finished ends(int status, const std::vector<std::string>& arguments)
    {
        Finished finished = device.cfgctl(arguments);
        EXPECT_EQ(status, finished.status) << testing::PrintToString(arguments) << '\n'
                                           << finished.output << finished.errors;
        return finished;
    }
};

TEST_F(CfgctlTest, SavesListsShowsStartsAndRemovesAConfiguration)
{
    device.boot();
    EXPECT_EQ("no configurations\n", done({"list"}));
    EXPECT_EQ("save evening: OK\n", done({"save", "evening", "-d", "After ten", "--autostart"}));
    EXPECT_THAT(readFile("/data/cfg/evening"), HasSubstr("Frequency"));
    done({"save", "día"});

    EXPECT_THAT(done({"list"}), testing::MatchesRegex(
                                    "  NAME     STATE        TIME                 DESCRIPTION\n"
                                    "  día   +Available    [0-9A-Za-z-]+  [0-9:]+\n"
                                    "[*] evening  Available    [0-9A-Za-z-]+  [0-9:]+  After ten\n"
                                    "[*] starts at boot\n"));
    EXPECT_THAT(done({"show", "evening"}),
                testing::MatchesRegex("Name:        evening\n"
                                      "Description: After ten\n"
                                      "File:        /data/cfg/evening\n"
                                      "Time:        [0-9A-Za-z-]+  [0-9:]+\n"
                                      "State:       Available\n"
                                      "Last result: OK\n"
                                      "At boot:     started\n"));
    EXPECT_EQ("start evening: OK\n", done({"start", "evening"}));

    EXPECT_EQ("remove evening: OK\n", done({"remove", "evening"}));
    EXPECT_THAT(done({"list"}), Not(HasSubstr("evening")));
    EXPECT_FALSE(fs::exists("/data/cfg/evening"));
}

TEST_F(CfgctlTest, RefusalsNameWhatFailedAndWhy)
{
    device.boot();
    EXPECT_EQ("cfgctl: start x: No Such Name (0x10008)\n", refused({"start", "x"}));
    EXPECT_EQ("cfgctl: remove x: No Such Name (0x10008)\n", refused({"remove", "x"}));
    EXPECT_EQ("cfgctl: rename x: No Such Name (0x10008)\n", refused({"rename", "x", "y"}));
    EXPECT_EQ("cfgctl: show x: No Such Name (0x10008)\n", refused({"show", "x"}));
    EXPECT_EQ("cfgctl: autostart x: No Such Name (0x10008)\n", refused({"autostart", "x"}));
    EXPECT_EQ("cfgctl: save a/b: Bad Value (0x10020)\n", refused({"save", "a/b"}));
    EXPECT_EQ("cfgctl: import /tmp/x: there is no such file\n", refused({"import", "/tmp/x"}));

    // Without its sibling the manager answers, and says that it got no answer: not the client.
    device.chanManager().stop(SIGKILL);
    EXPECT_EQ("cfgctl: save z: Communication Error (0x10040)\n", refused({"save", "z"}));
}

TEST_F(CfgctlTest, ValuesThatNoMessageCarriesAreNotSent)
{
    device.boot();
    device.log().clear();
    for (const std::string bad : {"a\"b", "a\nb", "a<b", "a>b", "a\x7f"}) {
        EXPECT_THAT(misused({"save", bad}), HasSubstr("cannot hold double quotes")) << bad;
        EXPECT_THAT(misused({"show", bad}), HasSubstr("cannot hold double quotes")) << bad;
        EXPECT_THAT(misused({"save", "good", "-d", bad}), HasSubstr("cannot hold")) << bad;
    }
    EXPECT_THAT(misused({"save", "good", "-d", std::string(70000, 'x')}),
                HasSubstr("too long for one message"));
    EXPECT_THAT(device.log().text(), Not(HasSubstr("recvfrom sock=/tmp/sockSendCfgctl")));
    EXPECT_FALSE(fs::exists("/data/cfg/good"));
}

TEST_F(CfgctlTest, WrongUseEndsWithTwo)
{
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"lists"},
        {"save"},
        {"rename", "one"},
        {"autostart"},
        {"autostart", "a", "--off"},
        {"debug", "maybe"},
        {"-t", "0", "list"},
        {"watch", "--count", "-1"},
    };
    for (const auto& arguments : wrong)
        misused(arguments);
    EXPECT_THAT(done({"--help"}), HasSubstr("autostart"));
}

TEST_F(CfgctlTest, WithoutAManagerItSaysSoAtOnce)
{
    const std::string said = "cfgctl: no answer from CfgManager on /tmp/sockCfg: is it running?\n";
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(said, unanswered({"list"}));
    EXPECT_EQ(said, unanswered({"watch"}));
    EXPECT_EQ(said, unanswered({"start", "x"}));

    // A manager that was killed leaves its socket's file.
    ScriptedPeer("/tmp/sockCfg");
    ASSERT_TRUE(fs::exists("/tmp/sockCfg"));
    EXPECT_EQ(said, unanswered({"start", "x"}));
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(8));
}

TEST_F(CfgctlTest, ABusyManagerIsWaitedForAsLongAsTold)
{
    const ScriptedPeer busy("/tmp/sockCfg");
    EXPECT_EQ("cfgctl: no answer from CfgManager on /tmp/sockCfg in 1 s: it may be busy\n",
              unanswered({"-t", "1", "start", "x"}));
}

TEST_F(CfgctlTest, ImportTakesAPathFromWhereTheUserStands)
{
    device.boot();
    done({"save", "model"});
    fs::create_directories("/tmp/stick");
    fs::copy_file("/data/cfg/model", "/tmp/stick/night shift");
    ASSERT_EQ(0, chdir("/tmp/stick"));

    EXPECT_EQ("import night shift: OK\n", done({"import", "night shift", "-d", "From the stick"}));
    EXPECT_FALSE(fs::exists("/tmp/stick/night shift"));
    EXPECT_EQ("start night shift: OK\n", done({"start", "night shift"}));
    EXPECT_THAT(done({"show", "night shift"}), HasSubstr("From the stick"));
}

TEST_F(CfgctlTest, RenameKeepsTheDescriptionUnlessItIsGivenAnother)
{
    device.boot();
    done({"save", "one", "-d", "First words"});
    done({"autostart", "one"});
    done({"rename", "one", "two"});
    EXPECT_THAT(done({"show", "two"}), HasSubstr("First words"));
    EXPECT_THAT(done({"show", "two"}), HasSubstr("At boot:     started"));
    done({"rename", "two", "three", "-d", "Second words"});
    EXPECT_THAT(done({"show", "three"}), HasSubstr("Second words"));

    EXPECT_EQ("autostart --off: OK\n", done({"autostart", "--off"}));
    EXPECT_THAT(done({"show", "three"}), HasSubstr("At boot:     not started"));
}

TEST_F(CfgctlTest, WatchPrintsEachEventOnALine)
{
    device.boot();
    const auto watcher = watch({"--count", "3"});
    done({"save", "evening"});
    done({"start", "evening"});
    refused({"start", "nothing"});
    EXPECT_EQ(0, watcher->wait());
    EXPECT_THAT(watcher->output(),
                testing::MatchesRegex(".+  Configuration Added      evening           OK\n"
                                      ".+  Configuration Activated  evening           OK\n"
                                      ".+  Configuration Error      nothing           "
                                      "No Such Name .0x10008.\n"));
    EXPECT_THAT(clientSockets(), testing::IsEmpty());
    EXPECT_THAT(refused({"watch", "--count", "1", "--timeout", "1"}), HasSubstr("0 of 1 events"));
}

TEST_F(CfgctlTest, WatchGoesOnWhenTheManagerStartsAnew)
{
    device.boot();
    const auto watcher = watch();
    device.cutCfgManager();
    device.startCfgManager();
    ASSERT_TRUE(watcher->waitForErrors("started anew")) << watcher->errors();
    done({"save", "evening"});
    EXPECT_TRUE(watcher->waitForOutput("Configuration Added"));
}

TEST_F(CfgctlTest, ClientsSideBySideHaveSocketsOfTheirOwnAndLeaveNone)
{
    device.boot();
    done({"save", "evening"});
    std::vector<std::unique_ptr<ChildProcess>> watchers;
    for (int i = 0; i < 3; ++i)
        watchers.push_back(watch());
    std::vector<std::unique_ptr<ChildProcess>> clients;
    for (int i = 0; i < 10; ++i)
        clients.push_back(
            std::make_unique<ChildProcess>(std::vector<std::string>{"cfgctl", "list"}));
    for (const auto& client : clients) {
        EXPECT_EQ(0, client->wait()) << client->errors();
        EXPECT_THAT(client->output(), HasSubstr("evening"));
    }
    EXPECT_EQ(6u, clientSockets().size());

    EXPECT_EQ(128 + SIGINT, watchers[0]->stop(SIGINT));
    EXPECT_EQ(128 + SIGTERM, watchers[1]->stop(SIGTERM));
    EXPECT_EQ(2u, clientSockets().size());

    // What a killed one leaves is used again: the manager's list of subscribers does not grow.
    watchers[2]->stop(SIGKILL);
    for (int i = 0; i < 5; ++i)
        watch()->stop(SIGINT);
    EXPECT_THAT(device.log().text(), Not(HasSubstr("sockCfgctl.3")));
}

TEST_F(CfgctlTest, ListsACatalogueThatNoSingleAnswerHolds)
{
    constexpr int kMany = 1500;
    fs::create_directories("/data/cfg");
    std::vector<std::string> names;
    for (int i = 0; i < kMany; ++i) {
        names.push_back("configuration-" + std::to_string(10000 + i));
        writeFile("/data/cfg/" + names.back(), "{}");
    }
    device.startChanManager();
    device.startCfgManager({"-v", "2"});
    // One so long that its batch fits no answer, and one whose brackets end no element.
    done({"save", names[700], "-d", std::string(60000, 'x')});
    device.cutCfgManager();
    std::string catalogue = readFile("/data/cfg/cfg_stored_set.json");
    catalogue.replace(catalogue.find(std::string(60000, 'x')), 7, "a > <b>");
    writeFile("/data/cfg/cfg_stored_set.json", catalogue);
    device.startCfgManager({"-v", "2"});

    const std::string listed = done({"list"});
    std::size_t position = 0;
    for (const std::string& name : names) {
        position = listed.find("\n  " + name + "  Available", position);
        ASSERT_NE(std::string::npos, position) << name;
    }
    EXPECT_THAT(listed, HasSubstr("  a > <b>xxx"));
}

TEST_F(CfgctlTest, DebugSwitchesWhatTheManagerLogs)
{
    device.boot();
    done({"debug", "off"});
    device.log().clear();
    done({"save", "quiet"});
    EXPECT_THAT(device.log().text(), Not(HasSubstr("CfgManager:")));
    EXPECT_THAT(device.log().text(), Not(HasSubstr("execute: command=SAVE_CFG")));
    done({"debug", "on"});
    done({"save", "loud"});
    EXPECT_TRUE(device.log().waitFor("execute: command=SAVE_CFG"));
}

} // namespace
