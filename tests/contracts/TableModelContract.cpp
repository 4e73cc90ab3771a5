#include "DataTable.h"

#include "DataColumn.h"
#include "DataItem.h"
#include "DataRow.h"
#include <gtest/gtest.h>
#include <memory>

namespace
{

DataColumn* column(int defaultValue)
{
    auto* made = new DataColumn;
    made->setName("C");
    made->setType(1);
    made->setAccess(2);
    made->setDefVal(defaultValue);
    return made;
}

} // namespace

TEST(ContractTest, RowsAndItemsAreWalkedByIterators)
{
    DataTable table("T");
    table.addColumns("C", column(4));
    const int id = table.newRow();
    DataRow* row = table.getRowsBegin()->second;
    DataItem* item = *row->getDataItemListBegin();
    EXPECT_EQ(4, item->getIntVal());
    EXPECT_EQ(*table.getColumnListBegin(), item->getColumn());
    EXPECT_EQ(table.getRowsEnd(), ++table.getRowsBegin());

    table.removeRows(id); // nobody has to take what is handed back
    table.removeColumns("C");
    EXPECT_EQ(0, table.getRowsNum() + table.getColumnsNum());
}

TEST(ContractTest, ItemsAndRowsAreLinkedByHand)
{
    const std::unique_ptr<DataColumn> held(column(4));
    DataRow row(1);
    const auto item = std::make_unique<DataItem>(held.get());
    item->setRow(&row);
    EXPECT_EQ(item.get(), row.getDataItem("C"));
    item->_setRow(nullptr);
    EXPECT_EQ(nullptr, row.getDataItem("C"));
    item->__setRow(&row);
    EXPECT_EQ(&row, item->getRow());
    item->_clearRow();
    EXPECT_EQ(nullptr, item->getRow());
    row._addDataItem("C", item.get());
    EXPECT_EQ(item.get(), row.getDataItem("C"));
    row._removeDataItem(item.get());
    EXPECT_EQ(nullptr, row.getDataItem("C"));
}
