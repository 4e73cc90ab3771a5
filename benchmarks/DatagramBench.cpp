// How long can one datagram of the greatest size keep the responder from the next request?

#include "BenchmarkRun.h"
#include "Daemon.h"
#include "DataCommunicator.h"
#include "benches.h"

#include <utility>

namespace
{

constexpr std::size_t kGreatest = kMessageSizeLimit - 1;

/// A body that repeats one piece as often as a datagram holds it.
struct Shape {
    const char* name;
    const char* type;
    const char* before;
    const char* piece;
    const char* after;
};

constexpr char kTable[] = "<BODY><Table Name=\"ConfigurationsTable\" >";
constexpr char kRow[] = "<BODY><Table Name=\"ConfigurationsTable\" ><Row ID=\"Channels 00042\" >";

constexpr Shape kShapes[] = {
    {"many rows that exist", "GET", kTable, "<Row ID=\"Channels 00042\"/>", "</Table></BODY>"},
    {"many rows that do not exist", "GET", kTable, "<Row ID=\"\"/>", "</Table></BODY>"},
    {"many items of a row", "GET", kRow, "<Item Name=\"Name\"/>", "</Row></Table></BODY>"},
    {"many missing items of a row", "GET", kRow, "<Item Name=\"\"/>", "</Row></Table></BODY>"},
    {"many items of every row", "GET", kTable, "<Item Name=\"Name\"/>", "</Table></BODY>"},
    {"many missing items of every row", "GET", kTable, "<Item Name=\"\"/>", "</Table></BODY>"},
    {"one table", "GET", kTable, "", "</Table></BODY>"},
    {"many tables", "GET", "<BODY>", "<Table Name=\"ConfigurationsTable\"/>", "</BODY>"},
    {"many tables that do not exist", "GET", "<BODY>", "<Table Name=\"\"/>", "</BODY>"},
    {"tables without end", "GET", "<BODY>", "<Table Name=\"ConfigurationsTable\" >", "</BODY>"},
    {"only opening brackets", "GET", "<BODY>", "<", "</BODY>"},
    {"start tags without end", "GET", kTable, "<Row ", "</Table></BODY>"},
    {"rows without attributes", "GET", kTable, "<Row></Row>", "</Table></BODY>"},
    {"many writes", "SET", kRow, "<Item Name=\"Description\" Value=\"x\"/>",
     "</Row></Table></BODY>"},
    {"many writes that fail", "SET", kRow, "<Item Name=\"\" Value=\"\"/>", "</Row></Table></BODY>"},
    {"many bad parameters", "COMMAND", "<BODY><Command ID=\"SAVE_CFG\" >", "<Parameter />",
     "</Command></BODY>"},
    {"many parameters without value", "COMMAND", "<BODY><Command ID=\"SAVE_CFG\" >",
     "<Parameter Name=\"\"/>", "</Command></BODY>"},
    {"an event of bad parameters", "EVENT", "<BODY><Event ID=\"x\" >", "<Parameter />",
     "</Event></BODY>"},
    {"no body", "GET", "", "<", ""},
};

std::string datagram(const Shape& shape)
{
    const std::string before = std::string("<HEADER ID=\"1\" Type=\"") + shape.type +
                               "\" Size=\"69900\" >\n</HEADER>\n" + shape.before;
    const std::string after = shape.after;
    const std::string piece = shape.piece;
    std::string text = before;
    while (!piece.empty() && text.size() + piece.size() + after.size() <= kGreatest)
        text += piece;
    text += after;
    return text.append(kGreatest - text.size(), ' ');
}

/// What the daemon computes from a datagram's arrival until it has answered a small request that
/// came right behind it, less what it computes for that alone.
double busySeconds(const BenchmarkRun& run, const Daemon& daemon, const std::string& text)
{
    RawSocket attacker("/tmp/sockBenchAttacker");
    RawSocket client("/tmp/sockBenchClient");
    PreparedMessage get = getItem(rowName(1));
    const auto busy = [&](bool attacked) {
        const double before = daemon.cpuSeconds();
        if (attacked)
            attacker.send(daemon.address(), text);
        request(client, daemon.address(), get);
        attacker.drain();
        return daemon.cpuSeconds() - before;
    };
    const auto medians =
        run.interleave(7, {[&] { return busy(true); }, [&] { return busy(false); }});
    return medians[0] - medians[1];
}

void reportWorst(BenchmarkRun& run, const Daemon& daemon, Row row)
{
    row.work = "worst datagram, " + row.work;
    row.baselineName = "limit";
    row.goal = 1;
    std::string worst;
    for (const Shape& shape : kShapes) {
        const double seconds = busySeconds(run, daemon, datagram(shape));
        run.detail(shape.name, seconds);
        if (seconds > row.figure) {
            worst = shape.name;
            row.figure = seconds;
        }
    }
    run.detail("the worst: " + worst, row.figure);
    run.report(row);
}

} // namespace

void benchDatagrams(BenchmarkRun& run)
{
    DataDirectory data;
    for (const auto& [rows, limit] : {std::pair{10000, 3e-3}, {100000, 5e-3}}) {
        if (!run.takes(rows))
            continue;
        data.placeCatalogue(rows);
        reportWorst(run, Daemon("2"),
                    {.work = "no pipe", .rows = rows, .level = 2, .baseline = limit});
        const Collector collector;
        const Daemon daemon("2");
        reportWorst(run, daemon, {.work = "a pipe", .rows = rows, .level = 2, .baseline = 5e-3});
        RawSocket client("/tmp/sockBenchClient");
        PreparedMessage logAll = command("StartDbgPrint");
        request(client, daemon.address(), logAll);
        reportWorst(run, daemon, {.work = "a pipe", .rows = rows, .level = 0, .baseline = 10e-3});
    }
}
