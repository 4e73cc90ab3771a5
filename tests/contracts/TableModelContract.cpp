#include "DataTable.h"

#include "DataColumn.h"
#include "DataItem.h"
#include "DataObject.h"
#include "DataRow.h"
#include <gtest/gtest.h>
#include <memory>

namespace
{

DataColumn* column(const std::string& name, int defaultValue)
{
    auto* made = new DataColumn;
    made->setName(name);
    made->setType(1);
    made->setAccess(2);
    made->setDefVal(defaultValue);
    return made;
}

} // namespace

TEST(ContractTest, RowsAreAMapToTheirPointers)
{
    DataTable table("T");
    table.addColumns("C", column("C", 4));
    const int id = table.newRow();
    DataRow* row = table.getRowsBegin()->second;
    EXPECT_EQ(id, table.getRowsBegin()->first);
    EXPECT_EQ(table.getRows(id), row);
    EXPECT_EQ(table.getRowsEnd(), ++table.getRowsBegin());
    DataItem* item = *row->getDataItemListBegin();
    EXPECT_EQ("C", item->getId());
    EXPECT_EQ(4, item->getIntVal());
    EXPECT_EQ(*table.getColumnListBegin(), item->getColumn());

    table.removeRows(id); // nobody has to take what is handed back
    table.removeColumns("C");
    EXPECT_EQ(0, table.getRowsNum() + table.getColumnsNum());
}

TEST(ContractTest, ItemsAndRowsAreLinkedByHand)
{
    const std::unique_ptr<DataColumn> described(column("C", 4));
    DataRow row(1);
    auto* item = new DataItem(described.get());
    item->setRow(&row);
    EXPECT_EQ(item, row.getDataItem("C"));
    item->_setRow(nullptr);
    EXPECT_EQ(nullptr, row.getDataItem("C"));
    item->__setRow(&row);
    EXPECT_EQ(&row, item->getRow());
    item->_clearRow();
    EXPECT_EQ(nullptr, item->getRow());
    row._addDataItem("C", item);
    EXPECT_EQ(item, row.getDataItem("C"));
    row._removeDataItem(item);
    EXPECT_EQ(nullptr, row.getDataItem("C"));
    delete item;
}

TEST(ContractTest, AReplacedColumnIsTheCallers)
{
    DataTable table("T");
    DataColumn* first = column("C", 4);
    table.addColumns("C", first);
    table.newRow();
    DataColumn* old = table.replaceColumn("C", column("C", 5));
    EXPECT_EQ(first, old);
    EXPECT_EQ(4, old->getDefVal());
    delete old;

    DataObject object("O");
    object.addParameter("C", column("C", 4));
    object.newInstance("left", nullptr, false);
    old = object.replaceParameter("C", column("C", 5));
    EXPECT_EQ(4, old->getDefVal());
    delete old;
}
