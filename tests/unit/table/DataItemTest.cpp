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

TEST_F(DataItemTest, NewStrItemIsEmptyAndLogsAnError)
{
    const std::unique_ptr<DataColumn> name(column("Name", DataColumn::STR, 3));
    DataItem item(name.get());
    EXPECT_EQ("/0 /0 1", show(item));
    EXPECT_EQ(FC_OK, item.initValue("lower deck"));
    EXPECT_EQ(FC_BAD_VALUE, item.resetValue());
    EXPECT_EQ(FC_BAD_VALUE, item.setValue(4));
    EXPECT_EQ("lower deck/0 lower deck/0 1", show(item));
    expectLogged({"ERROR DataItem:initValue: item=Name ENUM not found ind=3",
                  "ERROR DataItem:initValue: item=Name ENUM not found ind=3",
                  "WARN DataItem:setValue(int): item=Name ENUM not found ind=4"});
}

TEST_F(DataItemTest, ValueThatIsNoneOfTheEnumerationIsRefusedAndChangesNothing)
{
    for (const Fcodes code : {mode.setValue("off"), mode.initValue("off"), mode.initValue(2)})
        EXPECT_EQ(FC_BAD_VALUE, code);
    EXPECT_EQ("On/1 On/1 0", show(mode));

    // It is the value held so far that is looked up, not the new one.
    EXPECT_EQ(FC_OK, mode.setValue(99));
    mode.acceptChanges();
    EXPECT_EQ(FC_BAD_VALUE, mode.setValue(0));
    EXPECT_EQ("On/99 On/99 0", show(mode));
    expectLogged({"ERROR DataItem:setValue(str): item=Mode ENUM not found text=off",
                  "ERROR DataItem:initValue: item=Mode ENUM not found text=off",
                  "ERROR DataItem:initValue: item=Mode ENUM not found ind=2",
                  "WARN DataItem:setValue(int): item=Mode ENUM not found ind=0"});
}

TEST_F(DataItemTest, CopyIsNewAndInNoRow)
{
    limit.setValue("7");
    const std::unique_ptr<DataItem> copy(limit.clone());
    EXPECT_EQ("40/40 7/7 1", show(*copy));
    EXPECT_EQ("/0 /0 1", show(DataItem()));
    EXPECT_EQ(nullptr, copy->getRow());
    EXPECT_EQ("Limit", copy->getId());

    copy->initValue("8");
    mode.initValue(*copy);
    EXPECT_EQ("8/8 8/8 0", show(mode));
    copy->setValue("9"); // in no row
    limit.setValue(*copy);
    EXPECT_EQ("40/40 8/8 4", show(limit));
}

TEST_F(DataItemTest, ElementHoldsTheCommittedValueAndIsReadIntoBoth)
{
    mode.setValue("Off");
    EXPECT_EQ("\t\t\t<Item Name=\"Mode\" Value=\"On\" />\n", textOf(mode));
    EXPECT_EQ(FC_OK, limit.initFromString(R"(<Item Name="Other" Value="12 V" />)"));
    EXPECT_EQ("12 V/12 12 V/12 0", show(limit));

    EXPECT_EQ(FC_BODY_ERROR, limit.initFromString("<Item Value=\"1\" />"));
    EXPECT_EQ(FC_BODY_ERROR, limit.initFromString("<Item Name=\"Limit\" />"));
    expectLogged(
        {"ERROR DataItem:initFromString: Not Found tags Name in:\n<Item Value=\"1\" />",
         "ERROR DataItem:initFromString: Not Found tags Value in:\n<Item Name=\"Limit\" />"});
}

TEST_F(DataItemTest, SetRowTransfersOwnership)
{
    addCleanRows({2});
    DataRow& second = *table.getRows(2);
    limit.initValue(7);
    second.addDataItem("Limit", &limit); // frees the item that stood there
    EXPECT_EQ(nullptr, table.getRows(1)->getDataItem("Limit"));
    EXPECT_EQ("\t\t\t<Row ID=\"2\" >\n"
              "\t\t\t<Item Name=\"Mode\" Value=\"On\" />\n"
              "\t\t\t<Item Name=\"Limit\" Value=\"7\" />\n"
              "\t\t\t</Row>\n",
              textOf(second));
    limit.setRow(table.getRows(1));
    EXPECT_EQ(nullptr, second.getDataItem("Limit"));
    delete second.getDataItem("Mode"); // leaves its row by itself
    EXPECT_EQ(second.getDataItemListEnd(), second.getDataItemListBegin());

    second._addDataItem("Limit", &limit); // a step of a link leaves the other row alone
    second._addDataItem("Limit", &limit); // is there already
    second._removeDataItem("Limit");
    EXPECT_EQ(&limit, table.getRows(1)->getDataItem("Limit"));
}

} // namespace
