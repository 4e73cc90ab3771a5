// What does a log line cost that nobody reads: a closed site, and the daemon without a pipe?

#include "BenchmarkRun.h"
#include "Daemon.h"
#include "DbgLine.h"
#include "MicroBenchmark.h"
#include "benches.h"

namespace
{

constexpr char kUnit[] = "LogBench";

std::atomic<int> gPlainLevel{2};

void comparison(benchmark::State& state)
{
    int lines = 0;
    for (auto _ : state) {
        if (gPlainLevel.load(std::memory_order_relaxed) <= SEV_INFO)
            benchmark::DoNotOptimize(++lines);
        benchmark::ClobberMemory();
    }
}

void site(benchmark::State& state)
{
    int value = 0;
    for (auto _ : state) {
        DBG_LOG(SEV_INFO) << "site: value=" << ++value;
        benchmark::ClobberMemory();
    }
}

void measureSites(BenchmarkRun& run)
{
    gDbgLevel = 2;
    const auto figures = medianOperationTimes(run, {{"comparison", comparison}, {"site", site}});
    run.report({"closed log site", figures.at("site"), "one comparison", figures.at("comparison"),
                1.1, "2"});
    gDbgLevel = 0;
    const auto open = medianOperationTimes(run, {{"site", site}});
    run.report({"open log site, no pipe", open.at("site"), "one comparison",
                figures.at("comparison"), 0, "0"});
}

/// One daemon, whose level is switched between the figures.
void measureDaemon(BenchmarkRun& run, const std::string& pipe, double goal)
{
    const Daemon daemon("2");
    RawSocket client("/tmp/sockBenchClient");
    PreparedMessage logAll = command("StartDbgPrint");
    PreparedMessage logNothing = command("StopDbgPrint");
    PreparedMessage get = getItem(rowName(42));
    const auto getAfter = [&](PreparedMessage& level) {
        request(client, daemon.address(), level);
        return run.secondsEach(30, [&] { request(client, daemon.address(), get); });
    };
    const auto medians = run.interleave(
        501, {[&] { return getAfter(logAll); }, [&] { return getAfter(logNothing); }});
    run.report(
        {"GET of one item, level 0, " + pipe, medians[0], "at level 5", medians[1], goal, "0"});
}

} // namespace

void benchLog(BenchmarkRun& run)
{
    measureSites(run);
    DataDirectory data;
    data.placeCatalogue(100);
    measureDaemon(run, "no pipe", 1.02);
    const Collector collector;
    measureDaemon(run, "a pipe that is read", 0);
}
