// How much memory does a catalogue take over the JSON library's own tree, that is what a
// process grows by when it parses the same file? A daemon with an empty catalogue is the zero.

#include "BenchmarkRun.h"
#include "CfgPaths.h"
#include "Daemon.h"
#include "RawStore.h"
#include "benches.h"

namespace
{

struct Footprint {
    double loaded;
    double duringStore;
};

Footprint footprint(DataDirectory& data, int rows)
{
    data.placeCatalogue(rows);
    const Daemon daemon("2");
    const double loaded = memoryOf(daemon.pid()).resident;
    RawSocket client("/tmp/sockBenchClient");
    PreparedMessage store = setAutoStart(rowName(1));
    resetPeak(daemon.pid());
    request(client, daemon.address(), store);
    return {loaded, memoryOf(daemon.pid()).peak};
}

} // namespace

void benchMemory(BenchmarkRun& run)
{
    DataDirectory data;
    const Footprint empty = footprint(data, 0);
    const Footprint full = footprint(data, 10000);
    const double tree = rawParseBytes(kStoredCatalogue);
    run.report({.work = "memory after start-up",
                .rows = 10000,
                .level = 2,
                .figure = full.loaded - empty.loaded,
                .baselineName = "parsed by jsoncpp alone",
                .baseline = tree,
                .goal = 1.1,
                .unit = Unit::BYTES});
    run.report({.work = "peak of memory during a store",
                .rows = 10000,
                .level = 2,
                .figure = full.duringStore - empty.loaded,
                .baselineName = "parsed by jsoncpp alone",
                .baseline = tree,
                .goal = 1.3,
                .unit = Unit::BYTES});
}
