// What does a GET of one item cost over a raw round trip, and does the catalogue's size matter?

#include "BenchmarkRun.h"
#include "Daemon.h"
#include "benches.h"

void benchGet(BenchmarkRun& run)
{
    constexpr int kCount = 30;
    constexpr int kRounds = 1001;
    RawSocket client("/tmp/sockBenchClient");

    const RawPeer peer("/tmp/sockBenchPeer", 330);
    const sockaddr_un peerAddress = addressOf("/tmp/sockBenchPeer");
    const std::string payload(270, 'r');

    DataDirectory data;
    data.placeCatalogue(100);
    Daemon small("2");
    small.moveTo("/tmp/sockCfgSmall");
    expectItem(client, small, rowName(99));
    PreparedMessage getSmall = getItem(rowName(50));
    data.placeCatalogue(10000);
    const Daemon large("2");
    expectItem(client, large, rowName(9999));
    PreparedMessage getLarge = getItem(rowName(5000));

    const auto roundTrip = [&] {
        client.send(peerAddress, payload);
        client.receive();
    };
    const auto medians = run.interleave(
        kRounds,
        {[&] { return run.secondsEach(kCount, roundTrip); },
         [&] {
             return run.secondsEach(kCount, [&] { request(client, small.address(), getSmall); });
         },
         [&] {
             return run.secondsEach(kCount, [&] { request(client, large.address(), getLarge); });
         }});
    run.report({"GET of one item, 100 rows", medians[1], "raw round trip", medians[0], 1.4, "2"});
    run.report({"GET of one item, 10,000 rows", medians[2], "at 100 rows", medians[1], 1.1, "2"});
}
