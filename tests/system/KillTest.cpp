// The daemon is killed at random moments of a storm of saves. Right after each kill the stored
// catalogue must be whole and hold every acknowledged configuration, and nothing else may lie
// beside it. SYSMGT_KILLS sets how often (40 unless told).

#include "Device.h"
#include "MessageHeader.h"
#include "ScriptedPeer.h"

#include <algorithm>
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

constexpr char kCatalogue[] = "/data/cfg/cfg_stored_set.json";

int kills()
{
    const char* const told = std::getenv("SYSMGT_KILLS");
    return told != nullptr ? std::atoi(told) : 40;
}

std::string nameOf(int row) { return "cfg" + std::to_string(1000 + row); }

std::string saveMessage(int id, const std::string& name)
{
    return ScriptedPeer::answerText(id, "COMMAND", FC_OK,
                                    "<BODY>\n\t<Command ID=\"SAVE_CFG\" >\n\t<Parameter "
                                    "Name=\"Name\" Value=\"" +
                                        name + "\" />\n</Command>\n</BODY>\n");
}

class KillTest : public testing::TestWithParam<int>
{
protected:
    /// A catalogue of so many configurations, and their files, as an earlier life has left them.
    void placeConfigurations(int rows)
    {
        std::vector<std::string> names;
        for (int row = 0; row < rows; ++row) {
            names.push_back(nameOf(row));
            mAcknowledged.insert(names.back());
            writeFile("/data/cfg/" + names.back(), "placed");
        }
        placeCatalogue(names);
    }

    /// Saves one configuration after the other until told to stop; notes what was acknowledged.
    void storm(int rows, std::mt19937::result_type seed, const std::atomic<bool>& stop)
    {
        DatagramSocket client;
        SocketAddress daemon;
        ASSERT_TRUE(client.open() && client.bind("/tmp/sockStorm"));
        ASSERT_TRUE(daemon.assign("/tmp/sockCfg"));
        std::mt19937 random(seed);
        for (int id = 1; !stop; ++id) {
            // Half of the saves replace a configuration, half bring a new one.
            const auto row = random() % 2 == 0 ? random() % static_cast<unsigned>(rows)
                                               : 10000 + random() % 1000;
            const std::string name = nameOf(static_cast<int>(row));
            mTried.insert(name);
            sendDatagram(client.descriptor(), saveMessage(id, name), daemon, true);
            while (!stop && waitReadable(client.descriptor(), -1) != WaitResult::READABLE)
                std::this_thread::yield();
            if (isAcknowledged(client.descriptor())) {
                mAcknowledged.insert(name);
                ++mSaves;
            }
        }
    }

    static bool isAcknowledged(int client)
    {
        if (waitReadable(client, -1) != WaitResult::READABLE)
            return false;
        std::string answer(70000, '\0');
        SocketAddress sender;
        receiveDatagram(client, answer.data(), answer.size(), sender);
        MessageHeader header;
        return header.initFromString(answer) == FC_OK && header.Fcode == FC_OK;
    }

    /// The channel manager may still be at the last file; what it answers now comes after that.
    void waitForChanManager()
    {
        ScriptedPeer client("/tmp/sockSync");
        client.send("/tmp/sockChan", "<HEADER ID=\"1\" Type=\"GET\" Size=\"0\" >\n</HEADER>\n");
        client.receive();
    }

    /// A store that was under way is brought to its end by a child that outlives the daemon.
    static void waitForStore()
    {
        const auto runs = [](const std::filesystem::directory_entry& process) {
            std::error_code gone;
            return std::filesystem::read_symlink(process.path() / "exe", gone) ==
                   binary("CfgManager");
        };
        EXPECT_TRUE(eventually([&] {
            const std::filesystem::directory_iterator processes("/proc");
            return std::none_of(begin(processes), end(processes), runs);
        }));
    }

    void expectWhole()
    {
        Json::Value catalogue;
        Json::Reader reader;
        ASSERT_TRUE(reader.parse(readFile(kCatalogue), catalogue)) << readFile(kCatalogue);
        const Json::Value& instances = catalogue["components"]["ConfigurationsTable"]["instances"];
        for (const std::string& name : mAcknowledged)
            EXPECT_TRUE(instances.isMember(name)) << name;
        for (const auto& entry : std::filesystem::directory_iterator("/data/cfg")) {
            const std::string name = entry.path().filename();
            EXPECT_TRUE(entry.path() == kCatalogue || mAcknowledged.contains(name) ||
                        mTried.contains(name))
                << name;
        }
    }

    std::mt19937 mRandom{20260301};
    std::set<std::string> mTried;
    std::set<std::string> mAcknowledged;
    int mSaves = 0;
};

TEST_P(KillTest, CatalogueIsWholeAndHoldsEveryAcknowledgedConfiguration)
{
    const int rows = GetParam();
    Device device;
    device.start("ChanManager", {"-v", "5"});
    for (int kill = 0; kill < kills() && !HasFailure(); ++kill) {
        std::filesystem::remove_all("/data/cfg");
        mTried.clear();
        mAcknowledged.clear();
        placeConfigurations(rows);
        device.start("CfgManager", {"-v", "5"});
        std::atomic<bool> stop{false};
        std::thread saving([&, seed = mRandom()] { storm(rows, seed, stop); });
        std::this_thread::sleep_for(std::chrono::microseconds(mRandom() % 40000));
        device.cut("CfgManager");
        stop = true;
        saving.join();
        waitForChanManager();
        expectWhole();
        waitForStore();
    }
    std::printf("%d kills, %d rows, %d saves acknowledged\n", kills(), rows, mSaves);
    EXPECT_GT(mSaves, 0);
}

INSTANTIATE_TEST_SUITE_P(Rows, KillTest, testing::Values(20, 500));

} // namespace
