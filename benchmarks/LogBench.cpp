// What does a log line cost: that nobody reads, at a closed site and in the daemon without a pipe,
// and that is written?

#include "BenchmarkRun.h"
#include "Daemon.h"
#include "DbgLine.h"
#include "MicroBenchmark.h"
#include "Peers.h"
#include "RawStore.h"
#include "benches.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

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
    run.report({.work = "closed log site",
                .level = 2,
                .figure = figures.at("site"),
                .baselineName = "one comparison",
                .baseline = figures.at("comparison"),
                .goal = 1.1});
    gDbgLevel = 0;
    const auto open = medianOperationTimes(run, {{"site", site}});
    run.report({.work = "open log site, no pipe",
                .level = 0,
                .figure = open.at("site"),
                .baselineName = "one comparison",
                .baseline = figures.at("comparison")});
}

/// Of a probe, since a process opens the pipe once, when it logs first.
void measureLines(BenchmarkRun& run)
{
    const auto figures = askProbe("line", run.smoke() ? "smoke" : "");
    Row row{.work = "produced log line",
            .level = 0,
            .figure = figures.at(0),
            .baselineName = "spdlog, flushed",
            .baseline = figures.at(1),
            .goal = 1.0};
    if (row.baseline == 0)
        row.missing = kNotInstalled;
    run.report(row);
}

/// One daemon, whose level is switched between the figures.
void measureDaemon(BenchmarkRun& run, const std::string& pipe, double goal)
{
    const Daemon daemon("2");
    RawSocket client("/tmp/sockBenchClient");
    PreparedMessage logAll = command("StartDbgPrint");
    PreparedMessage logNothing = command("StopDbgPrint");
    ItemRequest get;
    int number = 0;
    const auto getAfter = [&](PreparedMessage& level) {
        request(client, daemon.address(), level);
        return run.secondsEach(30,
                               [&] { request(client, daemon.address(), get.of(++number % 100)); });
    };
    const auto medians = run.interleave(
        501, {[&] { return getAfter(logAll); }, [&] { return getAfter(logNothing); }});
    run.report({.work = "GET of one item, " + pipe,
                .rows = 100,
                .level = 0,
                .figure = medians[0],
                .baselineName = "at level 5",
                .baseline = medians[1],
                .goal = goal});
}

} // namespace

void probeLines(bool smoke)
{
    constexpr char kPipe[] = "/tmp/sockDbg";
    constexpr int kLines = 100; // as many as the pipe holds, and more
    mkfifo(kPipe, 0666);
    const int reader = open(kPipe, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    gDbgLevel = 0;
    setTaskName(currentTaskId(), "bench");
    const BenchmarkRun run(smoke, false, "", -1);
    const auto lines = [&](const std::function<void()>& write) {
        const double seconds = run.secondsEach(kLines, write);
        std::array<char, 65536> chunk;
        while (read(reader, chunk.data(), chunk.size()) > 0) {
        }
        return seconds;
    };
    int number = 0;
    const PeerWork peer = spdlogLine(kPipe, "site: value=");
    std::vector<std::function<double()>> figures{
        [&] { return lines([&] { DBG_LOG(SEV_INFO) << "site: value=" << ++number; }); }};
    if (peer.missing.empty())
        figures.emplace_back([&] { return lines(peer.work); });
    auto medians = run.interleave(1001, figures);
    medians.resize(2);
    std::printf("%g %g\n", medians[0], medians[1]);
    unlink(kPipe);
}

void benchLog(BenchmarkRun& run)
{
    measureSites(run);
    measureLines(run);
    DataDirectory data;
    data.placeCatalogue(100);
    measureDaemon(run, "no pipe", 1.02);
    const Collector collector;
    measureDaemon(run, "a pipe that is read", 2.2);
}
