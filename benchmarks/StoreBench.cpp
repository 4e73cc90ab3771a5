// What does a command with one store cost over writing the catalogue with the JSON library, and
// over writing its bytes? What a save, over its two stores? And does bringing a stored catalogue up
// to date stay linear in its rows?

#include "BenchmarkRun.h"
#include "CfgPaths.h"
#include "Daemon.h"
#include "DataSets.h"
#include "DbgPrintClient.h"
#include "MessageHeader.h"
#include "Peers.h"
#include "RawStore.h"
#include "benches.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>

namespace
{

/// What a store is to cost: over a copy of the JSON library's tree written with the library, and
/// over the bytes alone.
struct StoreGoals {
    int rows;
    double toCopy;
    double toText;
};

void measureStores(BenchmarkRun& run, DataDirectory& data, const StoreGoals& goals)
{
    data.placeCatalogue(goals.rows);
    const Daemon daemon("2");
    RawSocket client("/tmp/sockBenchClient");
    PreparedMessage commands[] = {setAutoStart(rowName(1)), setAutoStart(rowName(2))};
    const Json::Value catalogue = parseFile(kStoredCatalogue);
    std::ostringstream text;
    text << std::ifstream(kStoredCatalogue).rdbuf();
    const std::string directory = "/data/raw" + std::to_string(goals.rows);
    std::filesystem::create_directory(directory);

    bool odd = false; // each store changes the file
    const auto store = [&] {
        odd = !odd;
        if (request(client, daemon.address(), commands[odd]).find("\"10000\"") ==
            std::string_view::npos)
            abortBenchmarks("the daemon does not store");
    };
    const PeerWork peers[] = {sqliteChange(directory + "/sqlite", goals.rows),
                              redisChange(directory + "/redis", goals.rows)};
    std::vector<std::function<void()>> works{
        store, [&] { storeCopy(catalogue, directory + "/copy.json"); },
        [&] { storeText(text.str(), directory + "/text.json"); }};
    for (const PeerWork& peer : peers)
        works.push_back(peer.missing.empty() ? peer.work : [] {});
    std::vector<std::function<double()>> figures;
    for (const auto& work : works)
        figures.emplace_back([&] { return run.secondsEach(1, work); });
    const auto medians = run.interleave(std::clamp(200000 / goals.rows, 21, 301), figures);

    Row row{.work = "SET_AUTOSTART_CFG, on disk",
            .rows = goals.rows,
            .level = 2,
            .figure = medians[0],
            .baselineName = "write, fsync, rename, fsync",
            .baseline = medians[2],
            .goal = goals.toText};
    run.report(row);
    row.baselineName = "jsoncpp copy stored";
    row.baseline = medians[1];
    row.goal = goals.toCopy;
    run.report(row);
    row.level = Row::kNoLevel;
    row.goal = 0;
    for (std::size_t i = 0; i < std::size(peers); ++i) {
        row.system = peers[i].system;
        row.missing = peers[i].missing;
        row.figure = medians[3 + i];
        run.report(row);
    }
}

/// Stands in for the channel manager: writes the file that it is asked for, without waiting for the
/// disk, and says OK.
[[noreturn]] void storeChannelsForever()
{
    RawSocket peer(kChanSocket);
    const std::string content(4000, 'c');
    for (;;) {
        sockaddr_un sender{};
        const std::string request(peer.receive(sender));
        MessageHeader header;
        header.initFromString(request);
        const std::size_t at = request.find(kCfgDir);
        if (request.find("STORE_CHANNELS") != std::string::npos)
            std::ofstream(request.substr(at, request.find('"', at) - at)) << content;
        const MessageHeader ack{0, FC_OK, header.ID, "ACK"};
        std::string answer;
        peer.send(sender, ack.toString(answer));
    }
}

/// A save over a configuration, and of a new one: removed again, which is not measured.
void measureSaves(BenchmarkRun& run, DataDirectory& data)
{
    data.placeCatalogue(40);
    const Process channels(storeChannelsForever, kChanSocket);
    const Daemon daemon("2");
    RawSocket client("/tmp/sockBenchClient");
    const auto send = [&](PreparedMessage message) {
        if (request(client, daemon.address(), message).find("\"10000\"") == std::string_view::npos)
            abortBenchmarks("the daemon refuses");
    };
    const auto save = [&](const std::string& name) {
        send(command("SAVE_CFG", {{"Name", name}, {"Description", "saved"}}));
    };
    save("new");
    bool odd = false;
    const auto store = [&] {
        odd = !odd;
        send(setAutoStart(rowName(odd ? 1 : 2)));
    };
    const auto medians = run.interleave(101, {[&] { return 2 * run.secondsEach(1, store); },
                                              [&] {
                                                  send(command("REMOVE_CFG", {{"RowID", "new"}}));
                                                  const Stopwatch watch;
                                                  save("new");
                                                  return watch.seconds();
                                              },
                                              [&] {
                                                  const Stopwatch watch;
                                                  save(rowName(2));
                                                  return watch.seconds();
                                              }});
    Row row{.work = "SAVE_CFG, a new name, on disk",
            .rows = 40,
            .level = 2,
            .figure = medians[1],
            .baselineName = "its two stores",
            .baseline = medians[0],
            .goal = 1.5};
    run.report(row);
    row.work = "SAVE_CFG, over a configuration, on disk";
    row.figure = medians[2];
    row.goal = 1.8;
    run.report(row);
}

/// A stored catalogue whose rows lack a property that the reference has.
double secondsToUpdate(int rows)
{
    Json::Value component;
    component["properties"]["Name"]["type"] = "string";
    for (int row = 0; row < rows; ++row)
        component["instances"][rowName(row)]["Name"] = rowName(row);
    DataSets store;
    store.loadComponent("Stored", "Table", component.toStyledString());
    store.loadComponent("Reference", "Table", R"({"properties": {"Name": {"type": "string"},
        "Size": {"type": "integer", "default": 7}}})");
    const Stopwatch watch;
    if (store.updateDataSet("Stored", "Reference", false, true, false) != FC_OK)
        abortBenchmarks("the catalogue is not updated");
    return watch.seconds();
}

void measureUpdate(BenchmarkRun& run)
{
    gDbgLevel = 5; // nothing is logged
    const auto medians = run.interleave(
        15, {[] { return secondsToUpdate(10000); }, [] { return 10 * secondsToUpdate(1000); }});
    run.report({.work = "update of a catalogue",
                .rows = 10000,
                .level = 5,
                .figure = medians[0],
                .baselineName = "10 x 1,000 rows",
                .baseline = medians[1],
                .goal = 4});
}

} // namespace

void benchStore(BenchmarkRun& run)
{
    measureUpdate(run);
    DataDirectory data(run.disk());
    for (const StoreGoals& goals :
         {StoreGoals{40, 0.85, 1.3}, {1000, 0.35, 1.6}, {10000, 0.25, 2.2}})
        measureStores(run, data, goals);
    measureSaves(run, data);
}
