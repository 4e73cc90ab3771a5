#include "DataObject.h"
#include "DataSet.h"
#include "TableFixture.h"

#include <algorithm>
#include <array>
#include <memory>

namespace
{

/// A data set with one table, row and item, and what a caller has taken out of it. Each member of
/// the family finds the others wherever they are now.
class Family
{
public:
    Family() : set(std::make_unique<DataSet>("Set"))
    {
        auto* made = new DataTable("Table");
        made->addColumns("a", column("a", DataColumn::INT));
        set->addTable("Table", made);
        clone.reset(made->newRow(1, nullptr, false)->getDataItem("a")->clone());
    }

    void takeItem()
    {
        if (DataRow* holder = findRow(); holder != nullptr && !item)
            item = holder->removeDataItem("a");
    }
    void takeRow()
    {
        if (DataTable* holder = findTable(); holder != nullptr && !row)
            row = holder->removeRows(1);
    }
    void takeTable()
    {
        if (set && !table)
            table = set->removeTable("Table");
    }
    void replaceColumn()
    {
        if (DataTable* holder = findTable())
            old.emplace_back(holder->replaceColumn("a", column("a", DataColumn::STR)));
    }
    void dropColumn()
    {
        if (DataTable* holder = findTable())
            holder->removeColumns("a");
    }
    void freeSet() { set.reset(); }
    void freeRow() { delete (row ? row.release() : findRow()); }
    void freeTable() { delete (table ? table.release() : findTable()); }

    /// Every link up and down is followed and written through.
    void use()
    {
        for (DataItem* each : {clone.get(), item ? item.get() : findItem()}) {
            if (each == nullptr)
                continue;
            EXPECT_EQ(each->getId(), "a");
            each->setValue("7");
        }
        std::string text;
        if (DataRow* found = findRow())
            found->touch();
        if (DataTable* found = findTable())
            found->toString(text);
        if (set)
            set->toString(text);
    }

private:
    DataTable* findTable() const
    {
        return table ? table.get() : set ? set->getTable("Table") : nullptr;
    }
    DataRow* findRow() const
    {
        return row ? row.get() : findTable() ? findTable()->getRows(1) : nullptr;
    }
    DataItem* findItem() const { return findRow() ? findRow()->getDataItem("a") : nullptr; }

    std::vector<std::unique_ptr<DataColumn>> old; // goes last: the clone may point at one
    std::unique_ptr<DataItem> clone;
    std::unique_ptr<DataItem> item;
    std::unique_ptr<DataRow> row;
    std::unique_ptr<DataTable> table;
    std::unique_ptr<DataSet> set;
};

class TableOwnershipTest : public testing::Test
{
    LogCapture mLog;
};

TEST_F(TableOwnershipTest, NothingDanglesInWhateverOrderThingsLeave)
{
    using Step = void (Family::*)();
    const std::array<Step, 8> steps{&Family::takeItem,      &Family::takeRow,    &Family::takeTable,
                                    &Family::replaceColumn, &Family::dropColumn, &Family::freeSet,
                                    &Family::freeRow,       &Family::freeTable};
    std::array<int, 6> order{}; // every selection of six of the eight, in every order
    std::array<bool, 8> taken{true, true, true, true, true, true, false, false};
    do {
        int next = 0;
        for (int step = 0; step < 8; ++step)
            if (taken[static_cast<std::size_t>(step)])
                order[static_cast<std::size_t>(next++)] = step;
        do {
            Family family;
            for (const int step : order) {
                (family.*steps[static_cast<std::size_t>(step)])();
                family.use();
            }
        } while (std::next_permutation(order.begin(), order.end()));
    } while (std::prev_permutation(taken.begin(), taken.end()));
}

TEST_F(TableOwnershipTest, WhatIsAddedElsewhereLeavesWhereItWas)
{
    DataTable first("first");
    DataTable second("second");
    first.addColumns("a", column("a", DataColumn::INT));
    second.addColumns("a", first.getColumns("a")); // shared
    DataRow* row = first.newRow(1, nullptr, false);
    second.newRow(1, nullptr, false);
    second.addRows(1, row); // frees the row there
    EXPECT_EQ(first.getRowsNum(), 0);
    EXPECT_EQ(second.getRows(1), row);
    second.acceptChanges();
    row->getDataItem("a")->setValue("5");
    EXPECT_TRUE(second.isChanged());

    DataObject object("o");
    object.addInstance("x", row);
    object.addInstance(row->getKey(), new DataRow(0)); // frees the owner of the key
    EXPECT_EQ(second.getRowsNum(), 0);
    EXPECT_EQ(object.getInstance("x")->getKey(), "x");

    DataSet one("one");
    DataSet other("other");
    auto* table = new DataTable("t");
    one.addTable("t", table);
    other.addTable("t", new DataTable("t"));
    other.addTable("t", table);
    EXPECT_EQ(one.getTable("t"), nullptr);
    EXPECT_EQ(other.getTable("t"), table);
    EXPECT_EQ(other.removeTable(table)->getId(), "t");
    EXPECT_EQ(other.getTableListBegin(), other.getTableListEnd());
}

TEST_F(TableOwnershipTest, ColumnLivesAsLongAsAnItemPointsAtIt)
{
    std::unique_ptr<DataItem> item;
    {
        DataTable table("t");
        auto* made = column("a", DataColumn::INT, 3);
        item = std::make_unique<DataItem>(made); // before the column has an owner
        table.addColumns("a", made);
        DataRow* row = table.newRow(1, nullptr, false);
        row->addDataItem("alias", item.release());
        table.removeColumns("a");
        EXPECT_EQ(row->getDataItem("a"), nullptr);
        item = row->removeDataItem("alias");
    }
    EXPECT_EQ(item->getColumn()->getDefVal(), 3);
    EXPECT_EQ(item->resetValue(), FC_OK);
}

} // namespace
