#include "DataSet.h"
#include "DbgPrintClient.h"
#include "TableFixture.h"
#include "table/TableCell.h"

#include <functional>
#include <map>
#include <thread>

TEST(TableThreadsTest, ConcurrentOperationsLoseNoChangeMadeUnderTheLock)
{
    constexpr int kRounds = 400;
    LogCapture log;
    gDbgLevel = 5;
    DataSet set("Set");
    for (const char* name : {"Left", "Right"}) {
        set.addTable(name, new DataTable(name));
        set.getTable(name)->addColumns("a", column("a", DataColumn::INT));
        set.getTable(name)->addColumns("b", column("b", DataColumn::ENUM, 0, {"Off", "On"}));
        for (int i = 0; i < 10; ++i)
            set.getTable(name)->appendNewRow();
    }
    DataTable& left = *set.getTable("Left");
    DataTable& right = *set.getTable("Right");
    int changes = 0;
    const auto change = [&](DataTable&, DataTable&, int) {
        const std::lock_guard guard(left);
        ++changes;
    };

    const std::function<void(DataTable&, DataTable&, int)> work[] = {
        [](DataTable& mine, DataTable&, int round) {
            visitCell(&mine, 1 + round % 12, "a", [&](DataItem& item) { item.setValue(round); });
        },
        [&set](DataTable& mine, DataTable&, int round) {
            int number = 0;
            std::string text;
            set.getIntParam(mine.getId(), 1 + round % 12, "a", &number);
            set.getStringParam(mine.getId(), 1 + round % 12, "b", &text);
        },
        [](DataTable& mine, DataTable&, int) { mine.newRow(), mine.appendNewRow(); },
        [&set](DataTable&, DataTable&, int) { set.acceptChanges(); },
        [&set](DataTable& mine, DataTable&, int round) {
            round % 8 == 0 ? set.rollbackChanges() : mine.rollbackChanges();
        },
        [](DataTable& mine, DataTable&, int round) {
            mine.deleteRow(1 + round % 12);
            mine.doDeleteRow(mine.getLastRowIndex());
        },
        [](DataTable& mine, DataTable& other, int round) {
            mine.update(other, true, true, round % 5 == 0, true);
            const int type = round % 3 == 0 ? DataColumn::STR : DataColumn::INT;
            delete mine.replaceColumn("a", column("a", type));
        },
        [&set](DataTable& mine, DataTable&, int round) {
            if (round % 4 == 0)
                textOf(set);
            for (int row = mine.getFirstRowIndex(); row != 0;)
                row = mine.getNextRowIndex(row);
            set.isChanged();
        },
        change,
        change};
    std::vector<std::thread> threads;
    for (const auto& each : work)
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round)
                round % 2 == 0 ? each(left, right, round) : each(right, left, round);
        });
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(2 * kRounds, changes);
    for (DataTable* table : {&left, &right})
        for (const auto& [id, row] : std::map(table->getRowsBegin(), table->getRowsEnd()))
            EXPECT_TRUE(id == row->getId() && row->getDataItem("a") != nullptr) << id;
}
