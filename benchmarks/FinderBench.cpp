// Do the finders stay linear on the worst texts? A walk of a text ten times as long may take ten
// times as long.

#include "BenchmarkRun.h"
#include "DataCommunicator.h"
#include "MessageText.h"
#include "MicroBenchmark.h"
#include "benches.h"

#include <string_view>

namespace
{

struct Text {
    const char* name;
    const char* piece;
    const char* end;
};

constexpr Text kTexts[] = {
    {"rows without attributes", "<Row></Row>", ""},
    {"rows with attributes", "<Row ID=\"1\" ></Row>", ""},
    {"start tags, one end", "<Row ", "</Row>"},
    {"only opening brackets", "<", ""},
    {"almost end tags", "</Ro", ""},
};

constexpr std::size_t kLong = kMessageSizeLimit - 1;
constexpr std::size_t kShort = kLong / 10;

std::string filled(const Text& text, std::size_t size)
{
    std::string out;
    while (out.size() < size)
        out += text.piece;
    return out + text.end;
}

void walk(benchmark::State& state, const std::string& text)
{
    for (auto _ : state) {
        SegmentIterator rows(text, "Row");
        for (std::string_view row; rows.next(row);)
            benchmark::DoNotOptimize(row);
    }
}

} // namespace

void benchFinders(BenchmarkRun& run)
{
    for (const Text& text : kTexts) {
        const std::string longText = filled(text, kLong);
        const std::string shortText = filled(text, kShort);
        const auto figures =
            medianOperationTimes(run, {{"long", [&](auto& state) { walk(state, longText); }},
                                       {"short", [&](auto& state) { walk(state, shortText); }}});
        run.report({std::string("walk of 69,999 bytes: ") + text.name, figures.at("long"),
                    "10 x 7,000 bytes", 10 * figures.at("short"), 1.5, "-"});
    }
}
