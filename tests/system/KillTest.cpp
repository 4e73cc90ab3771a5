// The daemon is killed at random moments while configurations are saved one after the other. Right
// after each kill the stored catalogue must be whole and hold every acknowledged configuration, and
// nothing else may lie beside it. SYSMGT_KILLS sets how often it is killed (default 40).

#include "CfgPaths.h"
#include "Device.h"
#include "ScriptedPeer.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <json/reader.h>
#include <random>
#include <set>
#include <thread>

namespace
{

std::string nameOf(unsigned row) { return "cfg" + std::to_string(1000 + row); }

class KillTest : public testing::TestWithParam<unsigned>
{
protected:
    /// Saves one configuration after the other until stopped, and records the acknowledged ones.
    void save(std::mt19937::result_type seed, const std::atomic<bool>& stop)
    {
        DatagramSocket client;
        SocketAddress daemon;
        ASSERT_TRUE(client.open() && client.bind("/tmp/sockSaver") && daemon.assign(kCfgSocket));
        std::mt19937 random(seed);
        for (int id = 1; !stop; ++id) {
            // Half of the saves replace a configuration, half add a new one.
            const auto row = static_cast<unsigned>(random());
            const std::string name = nameOf(row % 2 == 0 ? row % GetParam() : 10000 + row % 1000);
            mTried.insert(name);
            const std::string body =
                "<BODY>\n" + commandText("SAVE_CFG", {{"Name", name}}) + "</BODY>\n";
            sendDatagram(client.descriptor(), ScriptedPeer::answerText(id, "COMMAND", FC_OK, body),
                         daemon, true);
            std::string answer(1000, '\0');
            const auto received = [&] {
                return recv(client.descriptor(), answer.data(), answer.size(), MSG_DONTWAIT) > 0;
            };
            while (!received() && !stop)
                std::this_thread::yield();
            if (answer.find("Fcode=\"10000\"") != std::string::npos) {
                mAcknowledged.insert(name);
                ++mSaves;
            }
        }
    }

    void expectWhole()
    {
        Json::Value catalogue;
        ASSERT_TRUE(Json::Reader().parse(readFile(kStoredCatalogue), catalogue));
        const Json::Value& instances = catalogue["components"]["ConfigurationsTable"]["instances"];
        for (const std::string& name : mAcknowledged)
            EXPECT_TRUE(instances.isMember(name)) << name;
        for (const auto& entry : std::filesystem::directory_iterator(kCfgDir))
            EXPECT_TRUE(entry.path() == kStoredCatalogue ||
                        mTried.contains(entry.path().filename()))
                << entry.path();
    }

    std::set<std::string> mTried;
    std::set<std::string> mAcknowledged;
    std::atomic<int> mSaves = 0;
};

TEST_P(KillTest, CatalogueIsWholeAndHoldsEveryAcknowledgedConfiguration)
{
    const char* const variable = std::getenv("SYSMGT_KILLS");
    const int kills = variable != nullptr ? std::atoi(variable) : 40;
    std::mt19937 random{20260301};
    Device device;
    device.start("ChanManager", {"-v", "5"});
    for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
        std::filesystem::remove_all(kCfgDir);
        mAcknowledged.clear();
        for (unsigned row = 0; row < GetParam(); ++row)
            mAcknowledged.insert(nameOf(row));
        mTried = mAcknowledged;
        placeCatalogue({mTried.begin(), mTried.end()});
        device.start("CfgManager", {"-v", "5"});
        std::atomic<bool> stop{false};
        std::thread saver([&, seed = random()] { save(seed, stop); });
        const int before = mSaves;
        // However slow the machine is, some saves are acknowledged.
        EXPECT_TRUE(kill % 4 != 0 || eventually([&] { return mSaves > before; }));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 40000));
        device.cut("CfgManager");
        stop = true;
        saver.join();
        // The channel manager may still be at the last file; what it answers now comes after that.
        EXPECT_EQ(FC_BODY_ERROR, RequestingHolder().command(kChanSocket, "STORE_CHANNELS"));
        expectWhole();
        // A store that was under way is brought to its end by a child that outlives the daemon.
        EXPECT_TRUE(eventually([] {
            return ChildProcess({"/usr/bin/pgrep", "-f", binary("CfgManager")}).wait() == 1;
        }));
    }
    std::printf("%d kills, %u rows, %d saves acknowledged\n", kills, GetParam(), mSaves.load());
}

INSTANTIATE_TEST_SUITE_P(Rows, KillTest, testing::Values(20U, 500U));

} // namespace
