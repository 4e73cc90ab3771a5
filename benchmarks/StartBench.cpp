// How long does a start take, from the process's start to its first answer?

#include "BenchmarkRun.h"
#include "Daemon.h"
#include "RawStore.h"
#include "benches.h"

void benchStart(BenchmarkRun& run)
{
    DataDirectory data(run.disk());
    const auto startWith = [&data](int rows) {
        data.placeCatalogue(rows);
        return Daemon("2").startSeconds();
    };
    const auto medians = run.interleave(21, {[&] { return startWith(10000); },
                                             [&] {
                                                 data.placeCatalogue(10000);
                                                 return rawStartSeconds();
                                             },
                                             [&] { return startWith(1000); }});
    run.report({.work = "start-up to the first answer",
                .rows = 10000,
                .level = 2,
                .figure = medians[0],
                .baselineName = "parse + scan + jsoncpp copy stored",
                .baseline = medians[1],
                .goal = 1.0});
    run.report({.work = "start-up to the first answer",
                .rows = 10000,
                .level = 2,
                .figure = medians[0],
                .baselineName = "1,000 rows",
                .baseline = medians[2],
                .goal = 9});
}
