// The daemon is killed at random moments in a storm of all its commands, while the channel manager
// refuses some saves and leaves others without an answer. After three more starts the catalogue,
// the files and the auto-start must be what was acknowledged; the command that was cut off has
// happened as a whole or not at all. SYSMGT_KILLS sets how often (default 40), SYSMGT_SEED which
// storms, and SYSMGT_POWER a program that makes of /data what a power cut leaves of it.

#include "CfgPaths.h"
#include "Device.h"
#include "SavedCatalogue.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <random>
#include <thread>

namespace
{

class KillTest : public testing::TestWithParam<unsigned>
{
protected:
    /// What the next command is to make of the catalogue.
    Catalogue draw(std::string& id, Parameters& parameters)
    {
        Catalogue next = mAcknowledged;
        const std::string name = anyName();
        const std::string description = "words " + std::to_string(mRandom() % 1000);
        const std::string autoStart = mRandom() % 4 == 0 ? "true" : "false";
        const bool isThere = next.rows.contains(name);
        switch (mRandom() % 6) {
        default:
            id = "SAVE_CFG";
            parameters = {{"Name", name}, {"Description", description}, {"AutoStart", autoStart}};
            mChannels.mode =
                std::array{Channels::Mode::OK, Channels::Mode::OK, Channels::Mode::REFUSE,
                           isThere ? Channels::Mode::REFUSE_AND_WRITE : Channels::Mode::OK,
                           Channels::Mode::SILENT}[mRandom() % (mRandom() % 20 == 0 ? 5 : 4)];
            next.rows[name] = {description, Channels::content(mChannels.written + 1)};
            break;
        case 0:
            id = "Import Configuration";
            parameters = {{"File", "/data/new/" + name},
                          {"Description", description},
                          {"AutoStart", autoStart}};
            writeFile("/data/new/" + name, description);
            next.rows[name] = {description, description};
            break;
        case 1: {
            const std::string newName = anyName();
            id = "Rename Configuration";
            parameters = {{"Name", name}, {"New Name", newName}, {"Description", description}};
            if (!isThere)
                return next;
            const std::string content = next.rows[name].second;
            next.rows.erase(name);
            next.rows[newName] = {description, content};
            if (next.autoStart == name)
                next.autoStart = newName;
            return next;
        }
        case 2:
            id = isThere ? "REMOVE_CFG" : "SET_AUTOSTART_CFG";
            parameters = {{"RowID", name}, {"AutoStart", "false"}};
            next.rows.erase(name);
            if (!isThere || next.autoStart == name)
                next.autoStart = "";
            return next;
        case 3:
            id = mRandom() % 2 == 0 ? "START_CFG" : "SET_AUTOSTART_CFG";
            parameters = {{"RowID", next.rows.begin()->first}, {"AutoStart", "true"}};
            if (id == "SET_AUTOSTART_CFG")
                next.autoStart = next.rows.begin()->first;
            return next;
        }
        if (autoStart == "true")
            next.autoStart = name;
        return next;
    }

    std::string anyName() { return "cfg" + std::to_string(1000 + mRandom() % (GetParam() + 5)); }

    /// Sends one command after the other until stopped.
    void storm(const std::atomic<bool>& stop)
    {
        DatagramSocket client;
        SocketAddress daemon;
        ASSERT_TRUE(client.open() && client.bind("/tmp/sockStorm") && daemon.assign(kCfgSocket));
        for (int id = 1; !stop; ++id) {
            std::string command;
            Parameters parameters;
            mCutOff = draw(command, parameters);
            mLast = commandText(command, parameters);
            const std::string body = "<BODY>\n" + mLast + "</BODY>\n";
            sendDatagram(client.descriptor(), ScriptedPeer::answerText(id, "COMMAND", FC_OK, body),
                         daemon, true);
            std::string answer(1000, '\0');
            while (recv(client.descriptor(), answer.data(), answer.size(), MSG_DONTWAIT) <= 0) {
                if (stop)
                    return;
                std::this_thread::yield();
            }
            if (answer.find("Fcode=\"10000\"") != std::string::npos) {
                mAcknowledged = mCutOff;
                ++mCount;
            }
            mCutOff = mAcknowledged;
        }
    }

    static void runPower(const char* moment)
    {
        if (const char* const program = std::getenv("SYSMGT_POWER"); program != nullptr) {
            ChildProcess power({program, moment});
            EXPECT_EQ(0, power.wait()) << power.errors();
        }
    }

    void expectLaw()
    {
        startThrice(mDevice);
        const Catalogue found = storedCatalogue();
        EXPECT_TRUE(found == mAcknowledged || found == mCutOff)
            << "after " << mLast << "found:\n"
            << describe(found, mAcknowledged) << "acknowledged:\n"
            << describe(mAcknowledged, found) << "or:\n"
            << describe(mCutOff, found);
    }

    Device mDevice;
    Channels mChannels;
    std::mt19937 mRandom; ///< of the commands
    std::mt19937 mMoment; ///< of the kills
    Catalogue mAcknowledged;
    Catalogue mCutOff; ///< What it becomes if the command under way is carried out.
    std::string mLast;
    std::atomic<int> mCount = 0;
};

TEST_P(KillTest, WhatWasAcknowledgedIsThereAfterThreeStarts)
{
    mRandom.seed(static_cast<unsigned>(variable("SYSMGT_SEED", 20260301)));
    const int kills = variable("SYSMGT_KILLS", 40);
    for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
        std::filesystem::remove_all(kCfgDir);
        std::filesystem::remove_all("/data/new");
        std::vector<std::string> names;
        for (unsigned row = 0; row < GetParam(); ++row)
            names.push_back("cfg" + std::to_string(1000 + row));
        placeCatalogue(names, "cfg1003");
        mAcknowledged = mCutOff = storedCatalogue();
        runPower("start");
        mDevice.start("CfgManager", {"-v", "5"});
        std::atomic<bool> stop{false};
        const int before = mCount;
        std::thread client([&] { storm(stop); });
        // However slow the machine is, some commands are acknowledged.
        EXPECT_TRUE(kill % 4 != 0 || eventually([&] {
                        return mCount > before || mChannels.mode == Channels::Mode::SILENT;
                    }));
        const unsigned span = std::getenv("SYSMGT_POWER") != nullptr ? 500000 : 60000;
        std::this_thread::sleep_for(std::chrono::microseconds(mMoment() % span));
        mDevice.cut("CfgManager");
        stop = true;
        client.join();
        if (std::getenv("SYSMGT_POWER") != nullptr)
            Channels::finishRequests();
        runPower("cut");
        expectLaw();
    }
    std::printf("%d kills, %u rows, %d commands acknowledged\n", kills, GetParam(), mCount.load());
}

INSTANTIATE_TEST_SUITE_P(Rows, KillTest, testing::Values(20U, 500U));

} // namespace
