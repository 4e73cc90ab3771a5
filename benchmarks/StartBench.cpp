// How long does a start take, from the process's start to its first answer?

#include "BenchmarkRun.h"
#include "Daemon.h"
#include "RawStore.h"
#include "benches.h"

namespace
{

void measureStarts(BenchmarkRun& run, DataDirectory& data, const std::string& place)
{
    const auto startWith = [&data](int rows) {
        data.placeCatalogue(rows);
        return Daemon("2").startSeconds();
    };
    const auto medians = run.interleave(9, {[&] { return startWith(10000); },
                                            [&] {
                                                data.placeCatalogue(10000);
                                                return rawStartSeconds();
                                            },
                                            [&] { return startWith(1000); }});
    run.report({"start-up, 10,000 configurations, " + place, medians[0],
                "parse + scandir and stat + raw store", medians[1], 2.0, "2"});
    run.report({"start-up, 10,000 configurations, " + place, medians[0], "1,000 of them",
                medians[2], 12.0, "2"});
}

} // namespace

void benchStart(BenchmarkRun& run)
{
    {
        DataDirectory memory;
        measureStarts(run, memory, "in memory");
    }
    if (!run.disk().empty()) {
        DataDirectory disk(run.disk());
        measureStarts(run, disk, "on disk");
    }
}
