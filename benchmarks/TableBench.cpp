// Do tables stay linear? Ten times as many rows may take little more than ten times as long, and
// the first row behind deleted ones is found as fast as one that stands in front.

#include "BenchmarkRun.h"
#include "DataSet.h"
#include "DbgPrintClient.h"
#include "RawSocket.h"
#include "benches.h"

#include <ctime>
#include <json/json.h>
#include <memory>
#include <string>

namespace
{

constexpr int kFew = 2'000;
constexpr int kMany = 10 * kFew;
constexpr int kNoLogging = 5; // log level

/// The processor time of this thread: what else the machine does falls on neither side.
class CpuWatch
{
public:
    double seconds() const { return now() - mStart; }

private:
    static double now()
    {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    }

    double mStart = now();
};

/// A table of ten integer columns.
void addColumns(DataTable& table)
{
    for (int i = 0; i < 10; ++i) {
        auto* const column = new DataColumn;
        column->init("column" + std::to_string(i), DataColumn::RW, DataColumn::INT);
        table.addColumns(column->getName(), column);
    }
}

/// Columns and rows, accepted.
void fill(DataTable& table, int rows)
{
    addColumns(table);
    while (rows-- > 0)
        table.appendNewRow();
    table.acceptChanges();
}

double secondsToAdd(int rows)
{
    DataTable table;
    addColumns(table);
    const CpuWatch watch;
    while (rows-- > 0)
        table.newRow();
    return watch.seconds();
}

double secondsToParse(int rows)
{
    DataTable table;
    fill(table, rows);
    std::string text;
    table.toString(text);
    DataTable copy;
    const CpuWatch watch;
    copy.initFromString(text);
    return watch.seconds();
}

double secondsToWrite(int rows)
{
    DataTable table;
    fill(table, rows);
    std::string text;
    table.toString(text); // makes the allocator tidy up after earlier tables
    const CpuWatch watch;
    table.toString(text);
    return watch.seconds();
}

double secondsToStore(int rows)
{
    DataSet set("Set");
    auto* const table = new DataTable("Table");
    fill(*table, rows);
    set.addTable("Table", table);
    set.store("/data/table_bench.xml"); // as above
    const CpuWatch watch;
    set.store("/data/table_bench.xml");
    return watch.seconds();
}

double secondsToDeleteHalf(int rows)
{
    DataTable table;
    fill(table, rows);
    const CpuWatch watch;
    for (int id = rows / 2; id <= rows; ++id)
        table.deleteRow(id);
    table.acceptChanges();
    return watch.seconds();
}

double secondsToFindFirst(const BenchmarkRun& run, const DataTable& table)
{
    return run.secondsEach(1000, [&table] { table.getFirstRowIndex(); });
}

/// A table of six texts and four numbers a row, such as catalogues have.
void fillMixed(DataTable& table, Json::Value& same, int rows)
{
    constexpr int kTexts = 6;
    for (int i = 0; i < 10; ++i) {
        auto* const column = new DataColumn;
        column->init("column" + std::to_string(i), DataColumn::RW,
                     i < kTexts ? DataColumn::STR : DataColumn::INT);
        table.addColumns(column->getName(), column);
    }
    for (int id = 1; id <= rows; ++id) {
        DataRow* const row = table.getRows(table.appendNewRow());
        Json::Value& cells = same.append(Json::objectValue);
        for (int i = 0; i < 10; ++i) {
            const std::string name = "column" + std::to_string(i);
            if (i < kTexts) {
                row->getDataItem(name)->setValue("Evening line-up of " + std::to_string(id));
                cells[name] = "Evening line-up of " + std::to_string(id);
            } else {
                row->getDataItem(name)->setValue(id);
                cells[name] = id;
            }
        }
    }
    table.acceptChanges();
}

/// Both ways, through text.
void measureText(BenchmarkRun& run)
{
    constexpr int kRows = 10'000;
    DataTable table;
    Json::Value same;
    fillMixed(table, same, kRows);
    std::string text;
    std::string json;
    const Json::StreamWriterBuilder writer;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    const auto medians = run.interleave(
        11, {[&] {
                 const CpuWatch watch;
                 table.toString(text);
                 return watch.seconds();
             },
             [&] {
                 DataTable copy;
                 const CpuWatch watch;
                 if (copy.initFromString(text) != FC_OK || copy.getRowsNum() != kRows)
                     abortBenchmarks("a table's text is not read back");
                 return watch.seconds();
             },
             [&] {
                 const CpuWatch watch;
                 json = Json::writeString(writer, same);
                 return watch.seconds();
             },
             [&] {
                 Json::Value copy;
                 const CpuWatch watch;
                 reader->parse(json.data(), json.data() + json.size(), &copy, nullptr);
                 return watch.seconds();
             }});
    run.detail("out", medians[0]);
    run.detail("in", medians[1]);
    run.detail("jsoncpp out", medians[2]);
    run.detail("jsoncpp in", medians[3]);
    run.report({.work = "table of 10 columns to text and back",
                .rows = kRows,
                .level = kNoLogging,
                .figure = medians[0] + medians[1],
                .baselineName = "jsoncpp, the same cells",
                .baseline = medians[2] + medians[3],
                .goal = 1.0});
}

void measureFirstRow(BenchmarkRun& run)
{
    DataTable kept;
    DataTable deleted;
    fill(kept, kMany);
    fill(deleted, kMany);
    for (int id = 1; id < kMany; ++id)
        deleted.deleteRow(id);
    const auto medians = run.interleave(101, {[&] { return secondsToFindFirst(run, deleted); },
                                              [&] { return secondsToFindFirst(run, kept); }});
    run.report({.work = "first row behind deleted ones",
                .rows = kMany,
                .level = kNoLogging,
                .figure = medians[0],
                .baselineName = "first row of as many kept",
                .baseline = medians[1],
                .goal = 10});
}

} // namespace

void benchTables(BenchmarkRun& run)
{
    gDbgLevel = kNoLogging;
    const struct {
        const char* name;
        double (*seconds)(int rows);
    } operations[] = {{"added", secondsToAdd},
                      {"read from text", secondsToParse},
                      {"written as text", secondsToWrite},
                      {"stored in memory", secondsToStore},
                      {"half of them deleted", secondsToDeleteHalf}};
    for (const auto& [name, seconds] : operations) {
        const auto medians = run.interleave(
            15, {[&] { return seconds(kMany); }, [&] { return 10 * seconds(kFew); }});
        run.report({.work = "rows of 10 cells " + std::string(name),
                    .rows = kMany,
                    .level = kNoLogging,
                    .figure = medians[0],
                    .baselineName = "10 x 2,000 rows",
                    .baseline = medians[1],
                    .goal = 4});
    }
    measureFirstRow(run);
    measureText(run);
}
