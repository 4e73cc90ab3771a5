#include "DataSet.h"
#include "DbgPrintClient.h"
#include "TableFixture.h"
#include "table/TableCell.h"

#include <functional>
#include <thread>

namespace
{

constexpr int kThreads = 8;
constexpr int kRounds = 400;

class TableThreadsTest : public TableFixture
{
protected:
    TableThreadsTest()
    {
        set.addTable("Left", filled("Left"));
        set.addTable("Right", filled("Right"));
    }

    static DataTable* filled(const std::string& name)
    {
        auto* made = new DataTable(name);
        made->addColumns("a", column("a", DataColumn::INT));
        made->addColumns("b", column("b", DataColumn::ENUM, 0, {"Off", "On"}));
        for (int i = 0; i < 10; ++i)
            made->appendNewRow();
        return made;
    }

    /// All threads run `work(thread, round)` at the same time.
    static void race(const std::function<void(int, int)>& work)
    {
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([&work, thread] {
                for (int round = 0; round < kRounds; ++round)
                    work(thread, round);
            });
        for (std::thread& thread : threads)
            thread.join();
    }

    DataSet set{"Set"};
};

TEST_F(TableThreadsTest, AllOperationsMayMeetOnOneTable)
{
    gDbgLevel = 5;
    race([this](int thread, int round) {
        DataTable& mine = *set.getTable(round % 2 == 0 ? "Left" : "Right");
        DataTable& other = *set.getTable(round % 2 == 0 ? "Right" : "Left");
        const int id = 1 + round % 12;
        std::string text;
        int number = 0;
        switch (thread) {
        case 0:
            visitCell(&mine, id, "a", [&](DataItem& item) { item.setValue(round); });
            break;
        case 1:
            set.getIntParam(mine.getId(), id, "a", &number);
            set.getStringParam(mine.getId(), id, "b", &text);
            break;
        case 2:
            mine.newRow();
            mine.appendNewRow();
            break;
        case 3:
            set.acceptChanges();
            break;
        case 4:
            round % 8 == 0 ? set.rollbackChanges() : mine.rollbackChanges();
            break;
        case 5:
            mine.deleteRow(id);
            mine.doDeleteRow(mine.getLastRowIndex());
            break;
        case 6:
            mine.update(other, true, true, round % 5 == 0, true);
            delete mine.replaceColumn(
                "a", column("a", round % 3 == 0 ? DataColumn::STR : DataColumn::INT));
            break;
        default:
            if (round % 4 == 0)
                set.toString(text);
            for (int row = mine.getFirstRowIndex(); row != 0; row = mine.getNextRowIndex(row))
                number = row;
            set.isChanged();
        }
    });
    for (DataTable* each : {set.getTable("Left"), set.getTable("Right")})
        for (auto row = each->getRowsBegin(); row != each->getRowsEnd(); ++row) {
            EXPECT_EQ(row->second->getId(), row->first);
            EXPECT_NE(row->second->getDataItem("a"), nullptr);
        }
}

TEST_F(TableThreadsTest, LockGroupsOperationsAndNoChangeIsLost)
{
    DataTable& left = *set.getTable("Left");
    set.acceptChanges();
    race([&left](int, int) {
        const std::lock_guard guard(left);
        DataItem& item = *left.getRows(1)->getDataItem("a");
        item.setIntVal(item.getIntVal_copy() + 1);
        left.appendNewRow();
    });
    EXPECT_EQ(left.getRows(1)->getDataItem("a")->getIntVal_copy(), kThreads * kRounds);
    EXPECT_EQ(left.getRowsNum(), 10 + kThreads * kRounds);
    EXPECT_TRUE(set.isChanged());
}

} // namespace
