// What does an event cost over raw datagrams, and what does a subscriber cost that reads nothing?

#include "BenchmarkRun.h"
#include "Daemon.h"
#include "DataCommunicator.h"
#include "DbgPrintClient.h"
#include "MessageEvent.h"
#include "Peers.h"
#include "benches.h"

#include <deque>
#include <string>
#include <vector>

namespace
{

/// One that notifies its subscribers. Who does not read within the measured time does so behind it.
class Notifier
{
public:
    Notifier(const std::string& name, int count)
    {
        mCommunicator->init(nullptr, "/tmp/sock" + name, "/tmp/sockSend" + name, "tBench");
        for (int i = 0; i < count; ++i) {
            const std::string path = "/tmp/sock" + name + std::to_string(i);
            mSubscribers.emplace_back(path);
            mAddresses.push_back(addressOf(path));
            mCommunicator->subscribe(path);
        }
        mEvent.ID = "Configuration Activated";
        mEvent.Source = rowName(42);
        mEvent.Severity = "Info";
    }

    /// What one event takes: until it is sent, or until all but a stuck subscriber have read it.
    double secondsEach(int count, bool read)
    {
        return secondsEach(count, read, [this] { mCommunicator->notify(mEvent); });
    }

    /// The same bytes to the same sockets.
    double rawSecondsEach(int count, bool read, RawSocket& sender)
    {
        if (mText.empty()) {
            mCommunicator->notify(mEvent);
            mText = mSubscribers.back().receive();
            drain();
        }
        return secondsEach(count, read, [&] {
            for (const sockaddr_un& address : mAddresses)
                sender.send(address, mText);
        });
    }

    /// The first subscriber reads no more, and its queue is full.
    void fillFirstQueue(RawSocket& sender)
    {
        mStuck = 1;
        while (sender.send(mAddresses[0], "full")) {
        }
    }

private:
    template <typename Work>
    double secondsEach(int count, bool read, Work work)
    {
        work(); // not measured: the caches are the last figure's
        drain();
        double total = 0;
        for (int i = 0; i < count; ++i) {
            const Stopwatch watch;
            work();
            if (read)
                for (std::size_t k = mStuck; k < mSubscribers.size(); ++k)
                    mSubscribers[k].receive();
            total += watch.seconds();
            if (!read)
                drain();
        }
        return total / count;
    }

    void drain()
    {
        for (std::size_t i = mStuck; i < mSubscribers.size(); ++i)
            mSubscribers[i].drain();
    }

    DataCommunicator* mCommunicator = new DataCommunicator; // must live as long as the process
    MessageEvent mEvent;
    std::string mText;
    std::deque<RawSocket> mSubscribers;
    std::vector<sockaddr_un> mAddresses;
    std::size_t mStuck = 0;
};

struct EventGoals {
    int subscribers;
    double allTold;
    double sent;
};

void measureEvents(BenchmarkRun& run, const EventGoals& goals)
{
    RawSocket sender("/tmp/sockBenchSender", true);
    Notifier notifier("Free" + std::to_string(goals.subscribers), goals.subscribers);
    const PeerWork buses[] = {busSignal(Bus::BROKER, goals.subscribers),
                              busSignal(Bus::DAEMON, goals.subscribers)};
    const int each = run.repetitions(1000 / goals.subscribers);
    std::vector<std::function<double()>> figures;
    for (const bool read : {true, false}) {
        figures.emplace_back([&, read] { return notifier.secondsEach(each, read); });
        figures.emplace_back([&, read] { return notifier.rawSecondsEach(each, read, sender); });
    }
    for (const PeerWork& bus : buses)
        if (bus.missing.empty())
            figures.emplace_back([&] { return run.secondsEach(each, bus.work); });
    const auto medians = run.interleave(101, figures);

    const std::string work = "event to " + std::to_string(goals.subscribers) + " subscribers";
    Row row{.work = work + ", sent",
            .level = 2,
            .figure = medians[2],
            .baselineName = "raw datagrams sent",
            .baseline = medians[3],
            .goal = goals.sent};
    run.report(row);
    row = {.work = work + ", all told",
           .level = 2,
           .figure = medians[0],
           .baselineName = "raw datagrams sent and read",
           .baseline = medians[1],
           .goal = goals.allTold};
    run.report(row);
    row.level = Row::kNoLevel;
    row.goal = 0;
    auto figure = medians.begin() + 4;
    for (const PeerWork& bus : buses) {
        row.system = bus.system;
        row.missing = bus.missing;
        row.figure = bus.missing.empty() ? *figure++ : 0;
        run.report(row);
    }
}

void measureStuck(BenchmarkRun& run)
{
    RawSocket filler("/tmp/sockBenchFiller", true);
    Notifier nine("Nine", 9);
    Notifier ten("Ten", 10);
    ten.fillFirstQueue(filler);
    const int each = run.repetitions(20);
    const auto medians = run.interleave(301, {[&] { return ten.secondsEach(each, true); },
                                              [&] { return nine.secondsEach(each, true); }});
    run.report({.work = "event to 10 subscribers, one of them stuck",
                .level = 2,
                .figure = medians[0],
                .baselineName = "9 subscribers",
                .baseline = medians[1],
                .goal = 1.03});
}

} // namespace

void benchEvents(BenchmarkRun& run)
{
    gDbgLevel = 2;
    for (const EventGoals& goals : {EventGoals{10, 1.08, 1.08}, {100, 1.03, 1.05}})
        measureEvents(run, goals);
    measureStuck(run);
}
