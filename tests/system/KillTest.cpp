// The daemon is killed at random moments of a storm of saves. Right after each kill the stored
// catalogue must be whole and hold every acknowledged configuration, and nothing else may lie
// beside it. SYSMGT_KILLS sets how often (40 unless told).

#include "Device.h"
#include "MessageCommand.h"
#include "ScriptedPeer.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <json/json.h>
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
    MessageCommand save;
    save.setId("SAVE_CFG");
    save.addParam("Name", name);
    std::string text;
    const std::string body = "<BODY>\n\t" + save.toString(text) + "\n</BODY>\n";
    MessageHeader header;
    header.ID = id;
    header.Type = "COMMAND";
    header.Size = static_cast<int>(body.size());
    std::string message;
    return header.toString(message) + body;
}

class KillTest : public testing::TestWithParam<int>
{
protected:
    /// A catalogue of so many configurations, and their files, as an earlier life has left them.
    void placeConfigurations(int rows)
    {
        Json::Value catalogue;
        std::ifstream("/etc/sysmgt/cfg_data_set.json") >> catalogue;
        std::filesystem::create_directories("/data/cfg");
        for (int row = 0; row < rows; ++row) {
            const std::string file = "/data/cfg/" + nameOf(row);
            writeFile(file, "placed");
            Json::Value& instance =
                catalogue["components"]["ConfigurationsTable"]["instances"][nameOf(row)];
            instance["Name"] = nameOf(row);
            instance["File Name"] = file;
            instance["Description"] = "placed";
            instance["State"] = "Available";
            instance["Time"] = "N/A";
            instance["Fcode"] = 0x10000;
        }
        std::ostringstream text;
        text << catalogue;
        writeFile(kCatalogue, text.str());
    }

    /// Saves one configuration after the other until told to stop; those that were acknowledged.
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
            if (isAcknowledged(client.descriptor(), stop)) {
                mAcknowledged.insert(name);
                ++mSaves;
            }
        }
    }

    static bool isAcknowledged(int client, const std::atomic<bool>& stop)
    {
        while (waitReadable(client, -1) != WaitResult::kReadable) {
            if (stop)
                return false;
            std::this_thread::yield();
        }
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

    void expectWhole(int rows)
    {
        Json::Value catalogue;
        Json::Reader reader;
        ASSERT_TRUE(reader.parse(readFile(kCatalogue), catalogue)) << readFile(kCatalogue);
        const Json::Value& instances = catalogue["components"]["ConfigurationsTable"]["instances"];
        for (int row = 0; row < rows; ++row)
            mAcknowledged.insert(nameOf(row));
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
    device.startChanManager({"-v", "5"});
    for (int kill = 0; kill < kills() && !HasFailure(); ++kill) {
        std::filesystem::remove_all("/data/cfg");
        placeConfigurations(rows);
        mTried.clear();
        mAcknowledged.clear();
        device.startCfgManager({"-v", "5"});
        std::atomic<bool> stop{false};
        std::thread saving([&, seed = mRandom()] { storm(rows, seed, stop); });
        std::this_thread::sleep_for(std::chrono::microseconds(mRandom() % 40000));
        device.cutCfgManager();
        stop = true;
        saving.join();
        waitForChanManager();
        expectWhole(rows);
        waitForStore();
    }
    RecordProperty("saves", mSaves);
    std::printf("%d kills, %d rows, %d saves acknowledged\n", kills(), rows, mSaves);
    EXPECT_GT(mSaves, 0);
}

INSTANTIATE_TEST_SUITE_P(Rows, KillTest, testing::Values(20, 500));

} // namespace
