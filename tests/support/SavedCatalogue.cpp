#include "SavedCatalogue.h"

#include "CfgPaths.h"
#include "ChildProcess.h"
#include "base/AtomicFile.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <json/reader.h>

Catalogue storedCatalogue()
{
    Json::Value document;
    EXPECT_TRUE(Json::Reader().parse(readFile(kStoredCatalogue), document));
    const Json::Value& components = document["components"];
    const Json::Value& instances = components["ConfigurationsTable"]["instances"];
    Catalogue found;
    for (const auto& entry : std::filesystem::directory_iterator(kCfgDir))
        if (entry.path() != kStoredCatalogue)
            found.rows[entry.path().filename()].second = readFile(entry.path());
    for (const std::string& name : instances.getMemberNames())
        found.rows[name].first = instances[name]["Description"].asString();
    found.autoStart = components["AutoStart"]["instance"]["Name"].asString();
    return found;
}

std::string describe(const Catalogue& one, const Catalogue& other)
{
    std::string text = one.autoStart == other.autoStart ? "" : "starts " + one.autoStart + '\n';
    for (const auto& [name, row] : one.rows)
        if (const auto found = other.rows.find(name);
            found == other.rows.end() || found->second != row)
            text += name + '=' + row.first + '|' + row.second + '\n';
    return text;
}

void Channels::finishRequests()
{
    ScriptedPeer last("/tmp/sockLast");
    last.send(kChanSocket, ScriptedPeer::answerText(0, "COMMAND", FC_OK, ""));
    last.receive();
}

void Channels::serve()
{
    while (!mStop) {
        const ScriptedPeer::Message request = mPeer.receive();
        const bool isSave = request.body.find("STORE_CHANNELS") != std::string::npos;
        const Mode how = isSave ? mode.load() : Mode::OK;
        const auto at = request.body.find(kCfgDir);
        if (isSave && (how == Mode::OK || how == Mode::REFUSE_AND_WRITE))
            writeFile(request.body.substr(at, request.body.find('"', at) - at), content(++written));
        if (how != Mode::SILENT)
            mPeer.answerIfThere(how == Mode::OK ? FC_OK : FC_ACCESS_DENIED);
    }
}

void startThrice(Device& device)
{
    const auto isOver = [](const std::string& helper) {
        return ChildProcess({"/usr/bin/pgrep", "-f", helper}).wait() == 1;
    };
    for (int boot = 0; boot <= 3; ++boot) {
        if (boot > 0) {
            device.start("CfgManager", {"-v", "5"});
            device.cut("CfgManager");
        }
        Channels::finishRequests();
        for (const std::string& helper : {binary("CfgManager"), std::string("mv -f")})
            EXPECT_TRUE(eventually([&] { return isOver(helper); }));
    }
    ChildProcess left({"/bin/ls", "-lan", kChangesBeside});
    EXPECT_EQ(2, left.wait()) << left.output();
    EXPECT_EQ(std::vector<std::string>{}, removeStaleTempFiles(kStoredCatalogue));
}
