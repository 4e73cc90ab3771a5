#include "DataObject.h"
#include "DataSet.h"
#include "DbgPrintClient.h"
#include "TableFixture.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <random>
#include <utility>

namespace
{

/// What this thread has worked so far, whatever else the machine does.
double workDone()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double least(
    const std::function<void()>& work, const std::function<void()>& prepare = [] {})
{
    double best = 1e300;
    for (int run = 0; run < 3; ++run) {
        prepare();
        const double before = workDone();
        work();
        best = std::min(best, workDone() - before);
    }
    return best;
}

std::string repeated(const std::string& piece, std::size_t size)
{
    std::string text;
    while (text.size() < size)
        text += piece;
    return text;
}

/// Every reader takes the text, and what has been read is walked, written and changed.
void readEverywhere(const std::string& text)
{
    std::string out;
    DataSet set;
    set.initFromString(text);
    set.toString(out);
    set.acceptChanges();
    DataTable table;
    table.initFromString(text);
    table.toString(out);
    table.appendNewRow();
    table.rollbackChanges();
    DataObject object;
    object.initFromString(text);
    object.toString(out);
    DataColumn column;
    column.initFromString(text);
    DataItem(&column).initFromString(text);
    if (DataRow* row = table.getRows(table.getFirstRowIndex()))
        row->initFromString(text);
}

class TableTextTest : public TableFixture
{
protected:
    TableTextTest()
    {
        gDbgLevel = 5;
        addCleanRows({1, 2, 30});
        set.addTable("Sensors", new DataTable("Sensors"));
        set.getTable("Sensors")->update(table, true, true, true, false);
        set.toString(good);
    }

    static std::string tableText(int rowCount)
    {
        DataTable big("Big");
        for (int i = 0; i < 10; ++i)
            big.addColumns("c" + std::to_string(i),
                           column("c" + std::to_string(i), DataColumn::INT));
        for (int i = 0; i < rowCount; ++i)
            big.appendNewRow();
        std::string text;
        return big.toString(text);
    }

    DataSet set{"Set"};
    std::string good;
};

TEST_F(TableTextTest, TextMayBeCutOffAnywhere)
{
    for (std::size_t length = 0; length <= good.size(); ++length)
        readEverywhere(good.substr(0, length));
}

TEST_F(TableTextTest, TextMayBeDamagedAnywhere)
{
    const std::string pieces[] = {"\"",
                                  "<",
                                  ">",
                                  "/>",
                                  "ID=\"",
                                  "</Row>",
                                  "<Row ",
                                  "<Table Name=\"",
                                  "99999999999999999999",
                                  "-",
                                  std::string(1, '\0'),
                                  "\xff"};
    std::mt19937 dice(1);
    const auto below = [&](std::size_t limit) { return dice() % limit; };
    for (int round = 0; round < 3000; ++round) {
        std::string text = good;
        for (std::size_t wounds = 1 + below(4); wounds > 0; --wounds)
            text.replace(below(text.size()), below(9), pieces[below(std::size(pieces))]);
        readEverywhere(text);
    }
}

TEST_F(TableTextTest, HugeTextCostsWhatItsLengthCosts)
{
    for (const std::string start : {"", "<DataSet ID=\"d\"><Table Name=\"t\"><Columns></Columns>"})
        for (const std::string piece :
             {"<", "\"", "<Row ", "<Row ID=\"1\" >", "<Row ID=\"1\" />", "<Table Name=\"",
              "<Columns>", "<Table Name=\"t\"></Table>", "<Table>", "<Item Name=\"",
              "<Value Index=\"1\" />", "</Row>",
              "<Columns><Column Name=\"a\" Access=\"RW\" Type=\"int\" Value=\"1\" />"})
            readEverywhere(start + repeated(piece, 300'000));

    std::string names = "<DataSet ID=\"d\">";
    for (int i = 0; i < 20'000; ++i)
        names += "<Table Name=\"" + std::to_string(i) + "\"></Table>";
    readEverywhere(names + names);
}

TEST_F(TableTextTest, LargeTableIsReadAndWrittenInProportionToItsSize)
{
    const auto cost = [](int rowCount) {
        const std::string text = tableText(rowCount);
        return least([&] {
            DataTable big;
            std::string out;
            EXPECT_EQ(big.initFromString(text), FC_OK);
            EXPECT_EQ(big.toString(out), text);
        });
    };
    EXPECT_LT(cost(10'000) / cost(1'000), 20);
}

TEST_F(TableTextTest, ManyRowsComeAndGoInProportionToTheirNumber)
{
    const auto costs = [](int rowCount) {
        DataTable big;
        const auto add = [&] {
            while (big.getRowsNum() < rowCount)
                big.newRow();
        };
        const auto markSecondHalf = [&] {
            add();
            big.acceptChanges();
            for (int id = rowCount / 2; id != 0; id = big.getNextRowIndex(id))
                big.deleteRow(id);
        };
        const double accepting = least([&] { big.acceptChanges(); }, markSecondHalf);
        EXPECT_EQ(big.getRowsNum(), rowCount / 2 - 1);
        return std::pair(accepting, least(add, [&] { big.doDeleteAllRows(); }));
    };
    const auto [acceptingMany, addingMany] = costs(20'000);
    const auto [acceptingFew, addingFew] = costs(2'000);
    EXPECT_LT(acceptingMany / acceptingFew, 40);
    EXPECT_LT(addingMany / addingFew, 40);
}

} // namespace
