#include "DataSet.h"
#include "TableFixture.h"

#include <memory>

namespace
{

class DataItemTest : public TableFixture
{
protected:
    DataItemTest() : limit((addCleanRows({1}), cell(1, "Limit"))), mode(cell(1, "Mode")) {}

    /// Committed and pending value, each as text and integer, and the state.
    static std::string show(const DataItem& item)
    {
        return item.getStrVal() + '/' + std::to_string(item.getIntVal()) + ' ' +
               item.getStrVal_copy() + '/' + std::to_string(item.getIntVal_copy()) + ' ' +
               std::to_string(item.getState());
    }

    DataItem& limit;
    DataItem& mode;
};

TEST_F(DataItemTest, IsBornNewWithTheDefaultOfItsColumn)
{
    EXPECT_EQ(show(DataItem(table.getColumns("Limit"))), "40/40 40/40 1");
    EXPECT_EQ(show(DataItem(table.getColumns("Mode"))), "On/1 On/1 1");
    EXPECT_EQ(show(DataItem()), "/0 /0 1");
}

TEST_F(DataItemTest, StrItemIsBornEmptyAndSaysSo)
{
    DataColumn name;
    name.init("Name", DataColumn::RW, DataColumn::STR);
    name.setDefVal(3);
    DataItem item(&name);
    expectLogged({"ERROR DataItem:initValue: item=Name ENUM not found ind=3"});
    EXPECT_EQ(show(item), "/0 /0 1");

    EXPECT_EQ(item.initValue("lower deck"), FC_OK);
    EXPECT_EQ(item.resetValue(), FC_BAD_VALUE);
    EXPECT_EQ(item.setValue(4), FC_BAD_VALUE);
    EXPECT_EQ(show(item), "lower deck/0 lower deck/0 1");
    expectLogged({"ERROR DataItem:initValue: item=Name ENUM not found ind=3",
                  "WARN DataItem:setValue(int): item=Name ENUM not found ind=4"});
}

TEST_F(DataItemTest, TextLagsTheIntegerByOneStep)
{
    EXPECT_EQ(limit.setValue("7"), FC_OK);
    EXPECT_EQ(show(limit), "40/40 7/7 4");
    EXPECT_EQ(limit.setValue(9), FC_OK);
    EXPECT_EQ(show(limit), "40/40 40/9 4");
    limit.acceptChanges();
    limit.setValue(11);
    EXPECT_EQ(show(limit), "40/9 9/11 4");

    EXPECT_EQ(mode.setValue(0), FC_OK);
    EXPECT_EQ(show(mode), "On/1 On/0 4");
}

TEST_F(DataItemTest, ValueThatIsNoneOfTheEnumerationIsRefusedAndChangesNothing)
{
    EXPECT_EQ(mode.setValue("off"), FC_BAD_VALUE);
    EXPECT_EQ(mode.initValue("off"), FC_BAD_VALUE);
    EXPECT_EQ(mode.initValue(2), FC_BAD_VALUE);
    EXPECT_EQ(show(mode), "On/1 On/1 0");

    // It is the value held so far that is looked up, not the new one.
    EXPECT_EQ(mode.setValue(99), FC_OK);
    mode.acceptChanges();
    EXPECT_EQ(mode.setValue(0), FC_BAD_VALUE);
    EXPECT_EQ(show(mode), "On/99 On/99 0");
    expectLogged({"ERROR DataItem:setValue(str): item=Mode ENUM not found text=off",
                  "ERROR DataItem:initValue: item=Mode ENUM not found text=off",
                  "ERROR DataItem:initValue: item=Mode ENUM not found ind=2",
                  "WARN DataItem:setValue(int): item=Mode ENUM not found ind=0"});
}

TEST_F(DataItemTest, PendingValueOutlivesARollback)
{
    mode.setValue("Off");
    mode.rollbackChanges();
    EXPECT_EQ(show(mode), "On/1 Off/0 0");
    mode.acceptChanges();
    EXPECT_EQ(show(mode), "Off/0 Off/0 0");
}

TEST_F(DataItemTest, CopyIsNewAndInNoRow)
{
    limit.setValue("7");
    const std::unique_ptr<DataItem> copy(limit.clone());
    EXPECT_EQ(show(*copy), "40/40 7/7 1");
    EXPECT_EQ(copy->getRow(), nullptr);
    EXPECT_EQ(copy->getId(), "Limit");

    copy->initValue("8");
    mode.initValue(*copy);
    EXPECT_EQ(show(mode), "8/8 8/8 0");
    copy->setValue("9"); // in no row
    limit.setValue(*copy);
    EXPECT_EQ(show(limit), "40/40 8/8 4");
}

TEST_F(DataItemTest, SettingMarksAllAboveAndInitialisingMarksNone)
{
    DataSet set;
    set.addTable("Sensors", new DataTable("Sensors"));
    DataTable& above = *set.getTable("Sensors");
    above.addColumns("Limit", column("Limit", DataColumn::INT));
    DataItem* item = above.newRow(5, nullptr, false)->getDataItem("Limit");
    set.acceptChanges();

    item->initValue("3");
    item->initIntVal(4);
    EXPECT_EQ(item->getRow()->getState() | above.getState() | set.getState(), STATE_CLEAN);
    for (const bool text : {true, false}) {
        text ? item->setStrVal("4") : item->setIntVal(4);
        EXPECT_EQ(item->getRow()->getState(), STATE_MODIFIED);
        EXPECT_EQ(above.getState(), STATE_MODIFIED);
        EXPECT_EQ(set.getState(), STATE_MODIFIED);
        set.acceptChanges();
        EXPECT_FALSE(set.isChanged() || above.isChanged());
    }
}

TEST_F(DataItemTest, TextHoldsTheCommittedValueAndIsRead)
{
    mode.setValue("Off");
    std::string text = "old";
    EXPECT_EQ(mode.toString(text), "\t\t\t<Item Name=\"Mode\" Value=\"On\" />\n");
    EXPECT_EQ(limit.initFromString(R"(<Item Name="Other" Value="12 V" />)"), FC_OK);
    EXPECT_EQ(show(limit), "12 V/12 12 V/12 0");

    EXPECT_EQ(limit.initFromString("<Item Value=\"1\" />"), FC_BODY_ERROR);
    EXPECT_EQ(limit.initFromString("<Item Name=\"Limit\" />"), FC_BODY_ERROR);
    expectLogged(
        {"ERROR DataItem:initFromString: Not Found tags Name in:\n<Item Value=\"1\" />",
         "ERROR DataItem:initFromString: Not Found tags Value in:\n<Item Name=\"Limit\" />"});
}

TEST_F(DataItemTest, MovesBetweenRowsWithItsOwnership)
{
    addCleanRows({2});
    DataRow& second = *table.getRows(2);
    limit.initValue(7);
    limit.setRow(&second); // frees the item that stood there
    EXPECT_EQ(&cell(2, "Limit"), &limit);
    EXPECT_EQ(table.getRows(1)->getDataItem("Limit"), nullptr);
    std::string text;
    EXPECT_EQ(second.toString(text), "\t\t\t<Row ID=\"2\" >\n"
                                     "\t\t\t<Item Name=\"Mode\" Value=\"On\" />\n"
                                     "\t\t\t<Item Name=\"Limit\" Value=\"7\" />\n"
                                     "\t\t\t</Row>\n");

    limit.setRow(nullptr);
    const std::unique_ptr<DataItem> mine(&limit);
    EXPECT_EQ(second.getDataItem("Limit"), nullptr);
    second.addDataItem("Alias", mode.clone());
    delete second.getDataItem("Alias"); // leaves its row by itself
    EXPECT_EQ(std::distance(second.getDataItemListBegin(), second.getDataItemListEnd()), 1);
}

TEST_F(DataItemTest, LinksOfItemAndRowCanBeSetApart)
{
    DataRow row(9);
    DataItem* const item = limit.clone();
    row._addDataItem("Limit", item);
    EXPECT_EQ(item, row.getDataItem("Limit"));
    EXPECT_EQ(nullptr, item->getRow());
    item->__setRow(&row);
    item->_clearRow();
    EXPECT_EQ(item, row.getDataItem("Limit"));
    row._addDataItem("Limit", item); // is there already
    row._removeDataItem(item);
    row._addDataItem("Alias", item);
    row._removeDataItem("Alias");
    EXPECT_EQ(row.getDataItemListBegin(), row.getDataItemListEnd());

    row._addDataItem("Limit", item);
    item->__setRow(&row);
    item->_setRow(table.getRows(1)); // takes it out of its row, and into none
    EXPECT_EQ(nullptr, row.getDataItem("Limit"));
    EXPECT_EQ(table.getRows(1), item->getRow());
    EXPECT_EQ(&limit, table.getRows(1)->getDataItem("Limit"));
    delete item;
}

} // namespace
