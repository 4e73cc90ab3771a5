// What does a command with one store cost over writing the catalogue with the JSON library alone?

#include "CfgPaths.h"
#include "Daemon.h"
#include "RawStore.h"
#include "Session.h"
#include "benches.h"

#include <algorithm>

namespace
{

void measure(Session& session, DataDirectory& data, const std::string& place, int rows)
{
    data.select(rows);
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
            giveUp("the daemon does not store");
    };
    const auto rawStore = [&] { storeCopy(catalogue, "/data/raw/catalogue.json"); };

    const auto medians = session.interleave(std::max(15, std::min(501, 200000 / rows)),
                                            {[&] { return session.secondsEach(1, store); },
                                             [&] { return session.secondsEach(1, rawStore); }});
    session.report({"SET_AUTOSTART_CFG, " + std::to_string(rows) + " rows, " + place, medians[0],
                    "raw store", medians[1], 1.1, "2"});
}

} // namespace

void benchStore(Session& session)
{
    for (const int rows : {40, 1000, 10000}) {
        {
            DataDirectory memory;
            measure(session, memory, "in memory", rows);
        }
        if (!session.disk().empty()) {
            DataDirectory disk(session.disk());
            measure(session, disk, "on disk", rows);
        }
    }
}
