// How long does a start take, from the process's start to its first answer?

#include "Daemon.h"
#include "RawStore.h"
#include "Session.h"
#include "benches.h"

namespace
{

void measure(Session& session, DataDirectory& data, const std::string& place)
{
    const auto startWith = [&data](int rows) {
        data.select(rows);
        return Daemon("2").startSeconds();
    };
    const auto medians = session.interleave(9, {[&] { return startWith(10000); },
                                                [&] {
                                                    data.select(10000);
                                                    return rawStartSeconds();
                                                },
                                                [&] { return startWith(1000); }});
    session.report({"start-up, 10,000 configurations, " + place, medians[0],
                    "parse + scandir and stat + raw store", medians[1], 2.0, "2"});
    session.report({"start-up, 10,000 configurations, " + place, medians[0], "1,000 of them",
                    medians[2], 12.0, "2"});
}

} // namespace

void benchStart(Session& session)
{
    {
        DataDirectory memory;
        measure(session, memory, "in memory");
    }
    if (!session.disk().empty()) {
        DataDirectory disk(session.disk());
        measure(session, disk, "on disk");
    }
}
