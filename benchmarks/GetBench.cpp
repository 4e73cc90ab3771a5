// What does a GET of one item cost over a raw round trip, alone, on two cores and beside other
// clients, and does the catalogue's size matter? Every request asks for another row.

#include "BenchmarkRun.h"
#include "Daemon.h"
#include "Peers.h"
#include "benches.h"

#include <array>
#include <cstdint>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <sched.h>
#include <unistd.h>

namespace
{

constexpr int kCount = 200;

/// Numbers of rows, drawn uniformly beforehand: the same draws for any number of rows.
class RandomRows
{
public:
    explicit RandomRows(int rows) : mRows(static_cast<std::uint32_t>(rows)) {}

    int next()
    {
        mAt = (mAt + 1) % draws().size();
        return static_cast<int>(draws()[mAt] * mRows >> 32U);
    }

private:
    static const std::vector<std::uint32_t>& draws()
    {
        static const std::vector<std::uint32_t> drawn = [] {
            std::mt19937 generator(20240305);
            std::vector<std::uint32_t> numbers(65536); // more than a figure asks for
            for (std::uint32_t& number : numbers)
                number = static_cast<std::uint32_t>(generator());
            return numbers;
        }();
        return drawn;
    }

    std::uint64_t mRows;
    std::size_t mAt = 0;
};

std::shared_ptr<RawSocket> newClient()
{
    static int count = 0;
    return std::make_shared<RawSocket>("/tmp/sockBench" + std::to_string(getpid()) + "." +
                                       std::to_string(++count));
}

Server startBarePeer()
{
    constexpr char kPath[] = "/tmp/sockBenchPeer";
    const auto peer = std::make_shared<RawPeer>(kPath, 330);
    const auto connect = [=] {
        return [client = newClient(), address = addressOf(kPath),
                payload = std::string(270, 'r')](int /*row*/) {
            client->send(address, payload);
            client->receive();
        };
    };
    return {.system = "two bare processes",
            .connect = connect,
            .processes = {peer->pid()},
            .server = peer};
}

Server startDaemon(DataDirectory& data, int rows)
{
    constexpr int kLevel = 2;
    data.placeCatalogue(rows);
    const auto daemon = std::make_shared<Daemon>(std::to_string(kLevel));
    daemon->moveTo("/tmp/sockCfg" + std::to_string(rows));
    RawSocket client("/tmp/sockBenchClient");
    expectItem(client, *daemon, rows - 1);
    const auto connect = [daemon] {
        return [client = newClient(), address = daemon->address(),
                get = ItemRequest()](int row) mutable { request(*client, address, get.of(row)); };
    };
    return {.rows = rows,
            .level = kLevel,
            .connect = connect,
            .processes = {daemon->pid()},
            .server = daemon};
}

/// Lets all threads of the server run on this core only.
void moveTo(const Server& server, int core)
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core, &cores);
    for (const pid_t process : server.processes)
        for (const auto& task :
             std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task"))
            if (sched_setaffinity(std::stoi(task.path().filename()), sizeof cores, &cores) == -1)
                abortBenchmarks("cannot move a server to another core");
}

/// One client of a server, and the times of its single requests.
class Asker
{
public:
    Asker(const BenchmarkRun& run, const Server& server)
        : mCount(run.repetitions(kCount)), mRows(server.rows), mAsk(server.connect())
    {
    }

    double secondsEach()
    {
        constexpr int kUnmeasured = 60; // the caches are the last server's
        double total = 0;
        for (int i = 0; i < kUnmeasured; ++i)
            mAsk(mRows.next());
        mLatencies.beginRound(mCount);
        for (int i = 0; i < mCount; ++i) {
            const int row = mRows.next();
            const Stopwatch watch;
            mAsk(row);
            const double seconds = watch.seconds();
            mLatencies.add(seconds);
            total += seconds;
        }
        return total / mCount;
    }

    const Latencies& latencies() const { return mLatencies; }

private:
    int mCount;
    RandomRows mRows;
    Question mAsk;
    Latencies mLatencies;
};

struct Asked {
    std::vector<double> medians;
    std::deque<Asker> askers;
};

Asked askInTurn(const BenchmarkRun& run, const std::vector<Server>& servers, int rounds)
{
    Asked asked;
    std::vector<std::function<double()>> figures;
    for (const Server& server : servers) {
        Asker& asker = asked.askers.emplace_back(run, server);
        figures.emplace_back([&asker] { return asker.secondsEach(); });
    }
    asked.medians = run.interleave(rounds, figures);
    return asked;
}

/// Processes that ask one server at the same time.
class Crowd
{
public:
    static constexpr int kSize = 4;

    Crowd(const BenchmarkRun& run, const Server& server) : mCount(run.repetitions(kCount / 2))
    {
        for (Member& member : mMembers) {
            std::array<int, 2> orders;
            std::array<int, 2> reports;
            if (pipe2(orders.data(), O_CLOEXEC) == -1 || pipe2(reports.data(), O_CLOEXEC) == -1)
                abortBenchmarks("cannot make a pipe");
            member.process.emplace([&] { askForever(server, orders[0], reports[1]); });
            member.orders = orders[1];
            member.reports = reports[0];
            close(orders[0]);
            close(reports[1]);
        }
    }

    ~Crowd()
    {
        for (const Member& member : mMembers) {
            close(member.orders);
            close(member.reports);
        }
    }

    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    /// What one request takes when so many of them ask.
    double secondsEach(std::size_t clients)
    {
        char token = 0;
        const Stopwatch watch;
        for (std::size_t i = 0; i < clients; ++i)
            if (write(mMembers[i].orders, &token, 1) != 1)
                abortBenchmarks("a client takes no orders");
        for (std::size_t i = 0; i < clients; ++i)
            if (read(mMembers[i].reports, &token, 1) != 1)
                abortBenchmarks("a client has ended");
        return watch.seconds() / (mCount * static_cast<double>(clients));
    }

private:
    struct Member {
        std::optional<Process> process;
        int orders = -1;
        int reports = -1;
    };

    void askForever(const Server& server, int orders, int reports) const
    {
        RandomRows rows(server.rows);
        const Question ask = server.connect();
        for (char token = 0; read(orders, &token, 1) == 1;) {
            for (int i = 0; i < mCount; ++i)
                ask(rows.next());
            if (write(reports, &token, 1) != 1)
                return;
        }
    }

    int mCount;
    std::array<Member, kSize> mMembers;
};

// Of the servers; other software follows the daemons.
constexpr std::size_t kBare = 0;
constexpr std::size_t kDaemon = 1;

void measureOneClient(BenchmarkRun& run, const std::vector<Server>& servers)
{
    const auto [medians, askers] = askInTurn(run, servers, 151);
    for (std::size_t i = kDaemon; i < servers.size(); ++i) {
        Row row{.work = "GET of one item",
                .system = servers[i].system,
                .rows = servers[i].rows,
                .level = servers[i].level,
                .figure = medians[i],
                .baselineName = "raw round trip",
                .baseline = medians[kBare],
                .p50 = askers[i].latencies().percentile(50),
                .p99 = askers[i].latencies().percentile(99)};
        row.goal = i == kDaemon ? 1.12 : 0;
        run.report(row);
        if (!row.system.empty())
            continue;
        if (i == kDaemon) {
            const Latencies& bare = askers[kBare].latencies();
            run.report({.work = "p99 of single requests",
                        .rows = row.rows,
                        .level = row.level,
                        .figure = row.p99,
                        .baselineName = "p50 x the raw pair's own ratio",
                        .baseline = row.p50 * bare.percentile(99) / bare.percentile(50),
                        .goal = 1.15});
            continue;
        }
        row.p50 = row.p99 = 0; // once is enough
        row.baselineName = "at 100 rows";
        row.baseline = medians[kDaemon];
        row.goal = row.rows == 10000 ? 1.05 : 1.15;
        run.report(row);
    }
}

/// The servers on another core than the client.
void measureTwoCores(BenchmarkRun& run, const std::vector<Server>& servers)
{
    const std::string work = "GET of one item, two cores";
    if (run.otherCore() == -1)
        return run.report({.work = work, .rows = 100, .level = 2, .missing = "no second core"});
    for (const Server& server : servers)
        moveTo(server, run.otherCore());
    const auto medians = askInTurn(run, servers, 101).medians;
    for (const Server& server : servers)
        moveTo(server, sched_getcpu());
    for (std::size_t i = kDaemon; i < servers.size(); ++i)
        run.report({.work = work,
                    .system = servers[i].system,
                    .rows = servers[i].rows,
                    .level = servers[i].level,
                    .figure = medians[i],
                    .baselineName = "raw round trip, two cores",
                    .baseline = medians[kBare],
                    .goal = i == kDaemon ? 1.03 : 0});
}

/// What four clients gain over one, or lose, is to be what it is for two bare processes.
void measureCrowds(BenchmarkRun& run, const std::vector<Server>& servers)
{
    std::deque<Crowd> crowds;
    std::vector<std::function<double()>> figures;
    for (const Server& server : servers) {
        Crowd& crowd = crowds.emplace_back(run, server);
        figures.emplace_back([&crowd] { return crowd.secondsEach(1); });
        figures.emplace_back([&crowd] { return crowd.secondsEach(Crowd::kSize); });
    }
    const auto medians = run.interleave(151, figures);
    const double bare = medians[2 * kBare + 1] / medians[2 * kBare];
    for (std::size_t i = kDaemon; i < servers.size(); ++i)
        run.report({.work = "GET of one item, each of four clients",
                    .system = servers[i].system,
                    .rows = servers[i].rows,
                    .level = servers[i].level,
                    .figure = medians[2 * i + 1],
                    .baselineName = "one client x the raw pair's own ratio",
                    .baseline = medians[2 * i] * bare,
                    .goal = i == kDaemon ? 1.03 : 0});
}

} // namespace

void benchGet(BenchmarkRun& run)
{
    DataDirectory data;
    std::vector<Server> servers{startBarePeer()};
    for (const int rows : {100, 10000, 100000})
        if (run.takes(rows))
            servers.push_back(startDaemon(data, rows));
    std::vector<Server> few{servers[kBare], servers[kDaemon]};
    const std::vector<Server> others{startRedis(100), startBusService(Bus::NONE, 100),
                                     startBusService(Bus::BROKER, 100),
                                     startBusService(Bus::DAEMON, 100)};
    for (const Server& other : others) {
        if (!other.missing.empty())
            run.report({.work = "GET of one item",
                        .system = other.system,
                        .rows = other.rows,
                        .missing = other.missing});
        else
            servers.push_back(other);
    }
    if (others[0].missing.empty())
        few.push_back(others[0]);
    measureOneClient(run, servers);
    measureTwoCores(run, few);
    measureCrowds(run, few);
}
