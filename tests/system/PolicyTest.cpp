// Who may do what: the policy that docs/security.md shows, on a device with accounts of its own.

#include "CfgPaths.h"
#include "CfgPolicy.h"
#include "Device.h"
#include "ScriptedPeer.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;
using testing::HasSubstr;

enum User : uid_t { ROOT = 0, WEBUI = 1001, ALICE, BOB, DEVD, CHAND, STRANGER, NOBODY = 65534 };
enum Group : gid_t { USERS = 100, OPERATORS = 1101 };

class PolicyTest : public testing::Test
{
protected:
    PolicyTest()
    {
        replaceLink("/etc/passwd", "root:x:0:0:::\nwebui:x:1001:100:::\nalice:x:1002:100:::\n"
                                   "bob:x:1003:1101:::\ndevd:x:1004:100:::\nchand:x:1005:100:::\n"
                                   "nobody:x:65534:65534:::\n");
        replaceLink("/etc/group", "root:x:0:\nusers:x:100:\noperators:x:1101:alice,nobody,gone\n");
        const std::string page = readFile(sourceFile("docs/security.md"));
        const std::size_t start = page.find("```json\n") + 8;
        mExample = page.substr(start, page.find("```", start) - start);
    }

    /// In the private world these are links to the machine's files.
    static void replaceLink(const std::string& path, const std::string& content)
    {
        if (fs::is_symlink(path) && fs::remove(path))
            writeFile(path, content);
        ASSERT_EQ(content, readFile(path));
    }

    static std::string message(const std::string& type, const std::string& element)
    {
        return ScriptedPeer::answerText(7, type, FC_OK, "<BODY>\n" + element + "\n</BODY>\n");
    }
    static std::string command(const std::string& id)
    {
        return message("COMMAND", commandText(id));
    }

    /// The daemon's answer, "ACK 10004"; empty without a wait for one, and "-" where this process
    /// cannot become that user.
    static std::string sent(uid_t user, gid_t group, const std::string& text, bool waits = true)
    {
        std::ostringstream answer;
        const bool isUser = asUser(user, group, [&] {
            ScriptedPeer peer("/tmp/peer" + std::to_string(user));
            peer.send(kCfgSocket, text);
            const MessageHeader header = waits ? peer.receive().header : MessageHeader();
            if (waits)
                answer << header.Type << ' ' << std::hex << header.Fcode;
        });
        return isUser ? answer.str() : "-";
    }

    /// Has the sibling's socket owned by a user, and a link at its path by another.
    static void own(uid_t socketsOwner, uid_t linksOwner)
    {
        EXPECT_EQ(0, chown(kDevSocket, socketsOwner, 0));
        EXPECT_EQ(0, lchown("/data/link", linksOwner, 0));
    }

    Device mDevice;
    std::string mExample;
};

TEST_F(PolicyTest, TheDaemonDoesForEachSenderWhatThePageGrants)
{
    ScriptedPeer channels(kChanSocket);
    if (chown(kChanSocket, STRANGER, 0) != 0)
        GTEST_SKIP() << "needs root for a second user";
    writeFile(kPolicyFile, mExample);
    placeCatalogue({"day"});
    mDevice.start("CfgManager");
    EXPECT_TRUE(eventually([] { // the mode of a socket comes after its name
        return (fs::status(kCfgSocket).permissions() & fs::perms::others_write) != fs::perms::none;
    }));
    RequestingHolder root;
    const auto item = [](const std::string& type, const std::string& value) {
        return message(type, "<DataSet ID=\"CfgDataSet\" ><Component Name=\"ConfigurationsTable\" >"
                             "<Row ID=\"day\" ><Item Name=\"Description\" Value=\"" +
                                 value + "\" /></Row></Component></DataSet>");
    };
    // A command without parameters that is carried out is a body error.
    const struct {
        uid_t user;
        gid_t group;
        std::string text;
        std::string answer;
    } rows[] = {
        {WEBUI, USERS, command("START_CFG"), "ACK 10002"},
        {WEBUI, USERS, command("SAVE_CFG"), "ACK 10004"},
        {WEBUI, USERS, command("StopDbgPrint"), "ACK 10004"},
        {STRANGER, USERS, command("START_CFG"), "ACK 10004"},
        {STRANGER, USERS, command("SUBSCRIBE"), "ACK 10002"},
        {STRANGER, USERS, message("COMMAND", "<Command ID=\"SAVE_CFG\""), "ACK 10004"},
        {WEBUI, USERS, item("SET", "granted"), "RESPONSE 10000"},
        {STRANGER, USERS, item("SET", "refused"), "NACK 10004"},
        {STRANGER, USERS, item("GET", ""), "RESPONSE 10000"},
        {STRANGER, OPERATORS, command("SAVE_CFG"), "ACK 10002"},
        {ALICE, USERS, command("SAVE_CFG"), "ACK 10002"},
        {ALICE, USERS, command("START_CFG"), "ACK 10002"},
        {ALICE, USERS, message("COMMAND", ""), "ACK 10002"},
        {BOB, USERS, command("SAVE_CFG"), "ACK 10002"},
        {DEVD, USERS, command("SAVE_CFG"), "ACK 10004"},
        {NOBODY, USERS, command("SAVE_CFG"), "ACK 10004"},
        {NOBODY, USERS, command("SUBSCRIBE"), "ACK 10002"},
        {ROOT, ROOT, command("SAVE_CFG"), "ACK 10002"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.answer, sent(row.user, row.group, row.text)) << row.user << row.text;
    EXPECT_TRUE(mDevice.log().waitFor("Refused by the policy from sock=/tmp/peer1001 uid=1001 "
                                      "request=COMMAND SAVE_CFG times=1"));
    EXPECT_TRUE(mDevice.log().waitFor("uid=1001 request=COMMAND StopDbgPrint times=1"));

    EXPECT_EQ(FC_COMM_ERROR, root.command(kCfgSocket, "SAVE_CFG", {{"Name", "night"}}));
    EXPECT_TRUE(channels.nothingCame());
    EXPECT_THAT(mDevice.log().text(), HasSubstr("sendRequest: Not asked"));
    std::string description; // accepted with the save
    root.requestGetTextParam(kCfgSocket, "CfgDataSet", "ConfigurationsTable", "Description",
                             description, "day");
    EXPECT_EQ("granted", description);

    sent(ALICE, OPERATORS, message("EVENT", "<Event ID=\"refused\" />"), false);
    sent(DEVD, USERS, message("EVENT", "<Event ID=\"granted\" />"), false);
    EXPECT_TRUE(mDevice.log().waitFor("arrived event=granted"));
    EXPECT_THAT(mDevice.log().text(), Not(HasSubstr("arrived event=refused")));

    fs::remove(kPolicyFile);
    EXPECT_TRUE(eventually([&] { return sent(WEBUI, USERS, command("SAVE_CFG")) == "ACK 10002"; }));
}

TEST_F(PolicyTest, OnlyWhomTheKernelNamesIsNamedAndALinkNeedsTwoOwners)
{
    ScriptedPeer device(kDevSocket);
    // Not in /tmp, where the kernel lets follow only links of the directory's owner, or one's own.
    fs::create_symlink(kDevSocket, "/data/link");
    CfgPolicy none;
    EXPECT_TRUE(none.mayBeAsked("/data/link") && none.mayBeAsked("/tmp/nothing"));
    EXPECT_TRUE(none.mayRequest({.pid = 0, .uid = NOBODY, .gid = 0}, "SET", ""));

    writeFile(kPolicyFile, mExample);
    CfgPolicy policy;
    EXPECT_FALSE(policy.mayRequest({.pid = 0, .uid = ROOT, .gid = OPERATORS}, "SET", ""));
    EXPECT_FALSE(policy.mayRequest({.pid = 1, .uid = NOBODY, .gid = OPERATORS}, "SET", ""));
    EXPECT_TRUE(policy.mayRequest({.pid = 0, .uid = ROOT, .gid = 0}, "COMMAND", "SUBSCRIBE"));
    EXPECT_TRUE(policy.mayRequest({.pid = 1, .uid = ALICE, .gid = NOBODY}, "SET", ""));
    EXPECT_FALSE(policy.mayBeAsked("/tmp/nothing") || policy.mayBeAsked("/tmp"));
    EXPECT_TRUE(policy.mayBeAsked("/data/link")); // root's
    if (chown(kDevSocket, STRANGER, 0) != 0)
        GTEST_SKIP() << "the rest needs root for a second user";
    own(CHAND, DEVD);
    EXPECT_TRUE(policy.mayBeAsked("/data/link"));
    own(CHAND, STRANGER);
    EXPECT_FALSE(policy.mayBeAsked("/data/link"));
    own(STRANGER, CHAND);
    EXPECT_FALSE(policy.mayBeAsked("/data/link") || policy.mayBeAsked(kDevSocket));
}

TEST_F(PolicyTest, ABrokenPolicyLeavesAllToRootAndSaysWhy)
{
    const auto expectBroken = [&](const std::string& fault, const std::string& text = {}) {
        if (!text.empty())
            writeFile(kPolicyFile, text);
        CfgPolicy policy;
        EXPECT_TRUE(policy.mayRequest({.pid = 1, .uid = ROOT, .gid = 0}, "SET", "")) << fault;
        EXPECT_FALSE(policy.mayRequest({.pid = 1, .uid = WEBUI, .gid = 0}, "SET", "")) << fault;
        EXPECT_TRUE(mDevice.log().waitFor("fault=" + fault)) << mDevice.log().text();
        fs::remove(kPolicyFile);
    };
    expectBroken("* Line 1, Column 2\n  Missing '}'", "{");
    expectBroken("no object", "[]");
    expectBroken("Exceeded stackLimit", std::string(60000, '['));
    expectBroken("no object key=commands", R"({"commands": ["webui"]})");
    expectBroken("no object key=SAVE_CFG", R"({"commands": {"SAVE_CFG": "webui"}})");
    expectBroken("unknown key=sets", R"({"set": {"users": ["webui"]}, "sets": {}})");
    expectBroken("unknown key=set.user", R"({"set": {"user": ["webui"]}})");
    expectBroken("no array key=set.users", R"({"set": {"users": "webui"}})");
    expectBroken("no name in key=set.users", R"({"set": {"users": [1001]}})");
    expectBroken("unknown user=mallory", R"({"set": {"users": ["webui", "mallory"]}})");
    expectBroken("unknown user=webui", R"({"set": {"users": ["webui\u0000"]}})");
    expectBroken("unknown group=*", R"({"set": {"groups": ["*"]}})");
    expectBroken("stands for unknown users: user=nobody", R"({"set": {"users": ["nobody"]}})");
    expectBroken("* Line 1, Column 13\n  Duplicate key", R"({"set": {}, "set": {"users": ["*"]}})");
    ASSERT_EQ(0, mkfifo(kPolicyFile, 0600));
    expectBroken("No such device or address");
    fs::create_directory(kPolicyFile);
    expectBroken("Is a directory");
    fs::create_symlink("/etc/sysmgt/nothing", kPolicyFile);
    expectBroken("Link has been severed");
    writeFile(kPolicyFile, mExample);
    fs::resize_file(kPolicyFile, std::uintmax_t{1} << 40);
    expectBroken("File too large");
}

} // namespace
