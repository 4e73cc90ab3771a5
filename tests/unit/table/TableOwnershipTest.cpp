#include "DataObject.h"
#include "DataSet.h"
#include "TableFixture.h"

#include <algorithm>
#include <array>
#include <functional>
#include <memory>

namespace
{

using TableOwnershipTest = TableFixture;

/// A data set with one table, row and item loses its parts in this order; a step finds its part
/// where the steps before have left it. After each, every link that is left is written through.
void takeApart(const std::array<std::size_t, 8>& order, std::size_t count)
{
    std::vector<std::unique_ptr<DataColumn>> old; // goes last: items may point at one
    std::unique_ptr<DataItem> item;
    std::unique_ptr<DataRow> row;
    std::unique_ptr<DataTable> table;
    auto set = std::make_unique<DataSet>("Set");
    const auto findTable = [&] {
        return table ? table.get() : set ? set->getTable("Table") : nullptr;
    };
    const auto findRow = [&] {
        return row ? row.get() : findTable() ? findTable()->getRows(1) : nullptr;
    };
    const std::function<void()> steps[] = {
        [&] { item = findRow() && !item ? findRow()->removeDataItem("a") : std::move(item); },
        [&] { row = findTable() && !row ? findTable()->removeRows(1) : std::move(row); },
        [&] { table = set && !table ? set->removeTable("Table") : std::move(table); },
        [&] { delete (row ? row.release() : findRow()); },
        [&] { delete (table ? table.release() : findTable()); },
        [&] { set.reset(); },
        [&] {
            if (findTable())
                old.emplace_back(findTable()->replaceColumn("a", column("a", DataColumn::STR)));
        },
        [&] {
            if (findTable())
                findTable()->removeColumns("a");
        }};

    set->addTable("Table", new DataTable("Table"));
    findTable()->addColumns("a", column("a", DataColumn::INT));
    const std::unique_ptr<DataItem> clone(
        findTable()->newRow(1, nullptr, false)->getDataItem("a")->clone());
    for (std::size_t i = 0; i < count; ++i) {
        steps[order[i]]();
        DataItem* const left = item        ? item.get()
                               : findRow() ? findRow()->getDataItem("a")
                                           : nullptr;
        for (DataItem* each : {clone.get(), left})
            EXPECT_TRUE(each == nullptr || (each->getId() == "a" && each->setValue("7") == FC_OK));
        if (findTable())
            findTable()->touch();
        if (set)
            textOf(*set);
    }
}

TEST_F(TableOwnershipTest, NothingDanglesInAnyOrderOfRemoval)
{
    std::array<std::size_t, 8> order{0, 1, 2, 3, 4, 5, 6, 7};
    do {
        takeApart(order, 6);
        std::reverse(order.begin() + 6, order.end()); // the two left out have no order
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(TableOwnershipTest, AddingElsewhereRemovesFromTheFormerOwner)
{
    DataTable first("first");
    DataTable second("second");
    first.addColumns("a", column("a", DataColumn::INT));
    second.addColumns("a", first.getColumns("a")); // shared
    DataRow* row = first.newRow(1, nullptr, false);
    second.newRow(1, nullptr, false);
    second.addRows(1, row); // frees the row there
    EXPECT_EQ(0, first.getRowsNum());
    EXPECT_EQ(row, second.getRows(1));

    DataObject object("o");
    object.addInstance("x", row);
    object.addInstance(row->getKey(), new DataRow(0)); // frees the owner of the key
    EXPECT_EQ(0, second.getRowsNum());
    EXPECT_EQ("x", object.getInstance("x")->getKey());

    DataSet one("one");
    DataSet other("other");
    auto* moved = new DataTable("t");
    one.addTable("t", moved);
    other.addTable("t", new DataTable("t"));
    other.addTable("t", moved);
    EXPECT_EQ(nullptr, one.getTable("t"));
    EXPECT_EQ(moved, other.getTable("t"));
}

TEST_F(TableOwnershipTest, ReplacedColumnThatIsSharedStaysTheOtherTables)
{
    DataTable first("first");
    DataObject second("second");
    auto* shared = column("a", DataColumn::INT);
    first.addColumns("a", shared);
    second.addParameter("a", shared);
    EXPECT_EQ(nullptr, first.replaceColumn("a", column("a", DataColumn::STR)));
    EXPECT_EQ(shared, second.getParameter("a"));
    const std::unique_ptr<DataColumn> last(second.replaceParameter("a", nullptr));
    EXPECT_EQ(shared, last.get());
}

TEST_F(TableOwnershipTest, ColumnLivesAsLongAsAnItemThatIsOlderThanItsOwner)
{
    auto* made = column("a", DataColumn::INT, 3);
    auto item = std::make_unique<DataItem>(made);
    {
        DataTable owner("t");
        owner.addColumns("a", made);
        owner.newRow(1, nullptr, false)->addDataItem("alias", item.release());
        owner.removeColumns("a");
        item = owner.getRows(1)->removeDataItem("alias");
    }
    EXPECT_EQ(3, item->getColumn()->getDefVal());
}

} // namespace
