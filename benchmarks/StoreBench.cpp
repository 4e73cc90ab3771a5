// What does a command with one store cost over writing the catalogue with the JSON library alone,
// and does bringing a stored catalogue up to date stay linear in its rows?

#include "BenchmarkRun.h"
#include "CfgPaths.h"
#include "Daemon.h"
#include "DataSets.h"
#include "DbgPrintClient.h"
#include "MessageHeader.h"
#include "RawStore.h"
#include "benches.h"

#include <algorithm>
#include <fstream>

namespace
{

void measureStores(BenchmarkRun& run, DataDirectory& data, const std::string& place, int rows)
{
    data.placeCatalogue(rows);
    const Daemon daemon("2");
    RawSocket client("/tmp/sockBenchClient");
    PreparedMessage commands[] = {setAutoStart(rowName(1)), setAutoStart(rowName(2))};
    const Json::Value catalogue = parseFile(kStoredCatalogue);
    std::filesystem::create_directory("/data/raw");

    bool odd = false; // each store changes the file
    const auto store = [&] {
        odd = !odd;
        if (request(client, daemon.address(), commands[odd]).find("\"10000\"") ==
            std::string_view::npos)
            abortBenchmarks("the daemon does not store");
    };
    const auto rawStore = [&] { storeCopy(catalogue, "/data/raw/catalogue.json"); };

    const auto medians = run.interleave(
        std::max(15, std::min(501, 200000 / rows)),
        {[&] { return run.secondsEach(1, store); }, [&] { return run.secondsEach(1, rawStore); }});
    run.report({"SET_AUTOSTART_CFG, " + std::to_string(rows) + " rows, " + place, medians[0],
                "raw store", medians[1], 1.1, "2"});
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
void measureSaves(BenchmarkRun& run, DataDirectory& data, const std::string& place)
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
    const auto store = [&] { send(setAutoStart(rowName(1))); };
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
    run.report({"SAVE_CFG, a new name, 40 rows, " + place, medians[1], "two stores", medians[0],
                1.5, "2"});
    run.report({"SAVE_CFG, over a configuration, 40 rows, " + place, medians[2], "two stores",
                medians[0], 1.8, "2"});
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
    run.report({"update of a catalogue of 10,000 rows", medians[0], "10 x 1,000 rows", medians[1],
                4, "5"});
}

} // namespace

void benchStore(BenchmarkRun& run)
{
    measureUpdate(run);
    for (const int rows : {40, 1000, 10000}) {
        {
            DataDirectory memory;
            measureStores(run, memory, "in memory", rows);
        }
        if (!run.disk().empty()) {
            DataDirectory disk(run.disk());
            measureStores(run, disk, "on disk", rows);
            if (rows == 40)
                measureSaves(run, disk, "on disk");
        }
    }
}
