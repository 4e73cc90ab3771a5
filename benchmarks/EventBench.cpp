// What does an event cost over raw datagrams, and what does a subscriber cost that reads nothing?

#include "BenchmarkRun.h"
#include "Daemon.h"
#include "DataCommunicator.h"
#include "DbgPrintClient.h"
#include "MessageEvent.h"
#include "benches.h"

#include <deque>

namespace
{

/// One that notifies its subscribers. They are drained after each event, outside the measured time.
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

    double secondsEach(int count)
    {
        return secondsEach(count, [this] { mCommunicator->notify(mEvent); });
    }

    /// The same bytes to the same sockets.
    double rawSecondsEach(int count, RawSocket& sender)
    {
        mCommunicator->notify(mEvent);
        const std::string text(mSubscribers.back().receive());
        drain();
        return secondsEach(count, [&] {
            for (const sockaddr_un& address : mAddresses)
                sender.send(address, text);
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
    double secondsEach(int count, Work work)
    {
        double total = 0;
        for (int i = 0; i < count; ++i) {
            const Stopwatch watch;
            work();
            total += watch.seconds();
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
    std::deque<RawSocket> mSubscribers;
    std::vector<sockaddr_un> mAddresses;
    std::size_t mStuck = 0;
};

} // namespace

void benchEvents(BenchmarkRun& run)
{
    constexpr int kRounds = 501;
    gDbgLevel = 2;
    RawSocket sender("/tmp/sockBenchSender", true);
    for (const int count : {10, 100}) {
        Notifier notifier("Free" + std::to_string(count), count);
        const int each = run.smoke() ? 1 : 200 / count;
        const auto medians =
            run.interleave(kRounds, {[&] { return notifier.secondsEach(each); },
                                     [&] { return notifier.rawSecondsEach(each, sender); }});
        run.report({"event to " + std::to_string(count) + " subscribers", medians[0],
                    "raw datagrams", medians[1], 1.25, "2"});
    }

    Notifier free("All", 10);
    Notifier stuck("Stuck", 10);
    stuck.fillFirstQueue(sender);
    const auto medians = run.interleave(
        kRounds, {[&] { return stuck.secondsEach(20); }, [&] { return free.secondsEach(20); }});
    run.report({"event to 10 subscribers, one of them stuck", medians[0], "none stuck", medians[1],
                1.05, "2"});
}
