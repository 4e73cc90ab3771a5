// Do the finders stay linear on the worst texts? A walk of a text ten times as long may take ten
// times as long. The two take turns within a millisecond, so that a change of the processor's speed
// falls on both.

#include "BenchmarkRun.h"
#include "DataCommunicator.h"
#include "MessageText.h"
#include "benches.h"

#include <benchmark/benchmark.h>
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

void walk(const std::string& text)
{
    SegmentIterator rows(text, "Row");
    for (std::string_view row; rows.next(row);)
        benchmark::DoNotOptimize(row);
}

} // namespace

void benchFinders(BenchmarkRun& run)
{
    for (const Text& text : kTexts) {
        const std::string longText = filled(text, kLong);
        const std::string shortText = filled(text, kShort);
        const auto medians = run.interleave(
            1001, {[&] { return run.secondsEach(1, [&] { walk(longText); }); },
                   [&] { return 10 * run.secondsEach(10, [&] { walk(shortText); }); }});
        run.report({.work = std::string("walk of 69,999 bytes: ") + text.name,
                    .figure = medians[0],
                    .baselineName = "10 x 7,000 bytes",
                    .baseline = medians[1],
                    .goal = 1.5});
    }
}
