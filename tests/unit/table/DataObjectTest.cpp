// In what an object differs from a table: its keys, its text and its log lines.

#include "DataObject.h"

#include "TableFixture.h"

namespace
{

class DataObjectTest : public TableFixture
{
protected:
    DataObjectTest()
    {
        fan.addParameter("Speed", column("Speed", DataColumn::INT, 9));
        fan.addParameter("Mode", column("Mode", DataColumn::INT));
        fan.newInstance("left", nullptr, false);
        fan.newInstance("10", nullptr, false)->getDataItem("Mode")->initValue(7);
        fan.acceptChanges();
    }

    DataObject fan{"Fan"};
};

TEST_F(DataObjectTest, EmptyKeyAddressesAnInstance)
{
    fan.newInstance("", nullptr, false);
    DataObject copy;
    EXPECT_EQ(FC_OK, copy.initFromString(textOf(fan)));
    EXPECT_EQ(textOf(fan), textOf(copy));
    EXPECT_EQ((Names{"", "10", "left"}), copy.getInstances());
    EXPECT_EQ(10, copy.getInstance("10")->getId());

    fan.addInstance("", new DataRow(0));
    table.addRows(3, fan.getInstance("")); // a row of a table shows its id again
    EXPECT_EQ("\t\t\t<Row ID=\"3\" >\n\t\t\t</Row>\n", textOf(*table.getRows(3)));
}

TEST_F(DataObjectTest, TheCycleOfItsChangesIsThatOfATable)
{
    fan.setName("Blower");
    EXPECT_EQ("Blower", fan.getName());
    EXPECT_EQ(FC_OK, fan.touch());
    EXPECT_EQ(STATE_MODIFIED, fan.getState() & fan.getInstance("left")->getState());
    EXPECT_EQ(FC_OK, fan.untouch());
    EXPECT_EQ(STATE_CLEAN, fan.getState() | fan.getInstance("left")->getState());

    DataRow pattern(0);
    pattern.addDataItem("Mode", new DataItem(fan.getParameter("Mode")));
    pattern.getDataItem("Mode")->initValue(3);
    fan.newInstance("10", &pattern, false); // exists: stays as it is
    EXPECT_EQ("7", fan.getInstance("10")->getDataItem("Mode")->getStrVal_copy());
    fan.newInstance("10", &pattern, true);
    fan.newInstance("new", &pattern, true);
    EXPECT_EQ("3", fan.getInstance("10")->getDataItem("Mode")->getStrVal_copy());
    EXPECT_EQ("3", fan.getInstance("new")->getDataItem("Mode")->getStrVal_copy());
    fan.newInstance("left", nullptr, true);
    EXPECT_EQ(FC_OK, fan.rollbackChanges());
    EXPECT_EQ((Names{"10", "left"}), fan.getInstances());

    EXPECT_EQ(FC_NO_SUCH_NAME, fan.deleteInstance("right"));
    EXPECT_EQ(FC_OK, fan.deleteInstance("left"));
    EXPECT_EQ(2U, fan.getInstances().size());
    EXPECT_EQ(FC_OK, fan.acceptChanges());
    EXPECT_EQ((Names{"10"}), fan.getInstances());

    DataColumn foreign;
    EXPECT_EQ(nullptr, fan.removeParameter(&foreign));
    EXPECT_EQ("Mode", fan.removeParameter(fan.getParameter("Mode"))->getName());
    EXPECT_EQ(nullptr, fan.removeParameter("Mode"));
    EXPECT_EQ(nullptr, fan.getInstance("10")->getDataItem("Mode"));
    delete fan.getInstance("10"); // leaves the object
    fan.addInstance("x", nullptr);
    fan.addInstance("x", new DataRow(0));
    EXPECT_EQ(FC_OK, fan.doDeleteInstance("y"));
    EXPECT_EQ(FC_OK, fan.doDeleteInstance("x"));
    EXPECT_EQ(Names{}, fan.getInstances());
}

TEST_F(DataObjectTest, ChangedParametersAndCopiedInstancesAreLogged)
{
    DataObject reference("Reference");
    reference.addParameter("Speed", column("Speed", DataColumn::INT, 1));
    reference.newInstance("left", nullptr, false);
    delete fan.replaceParameter("Mode", column("Mode", DataColumn::ENUM, 0, {"Eco", "7"}));
    delete fan.replaceParameter("Mode", column("Mode", DataColumn::INT));
    fan.update(reference, false, true, true, true);
    EXPECT_EQ((Names{"Speed"}), fan.getParameters());
    EXPECT_EQ(nullptr, fan.getInstance("left")->getDataItem("Mode"));
    expectLogged(
        {"WARN DataObject:replaceParameter: enum column=Mode Set default instead of val=0",
         "WARN DataObject:replaceParameter: int column=Mode Set default instead of type=2 val=7",
         "WARN DataObject:replaceParameter: int column=Mode Set default instead of type=2 val=Eco",
         "WARN DataObject:update: dataObject=Fan column=Speed changed. Replacing...",
         "WARN DataObject:replaceParameter: column=Speed Keep val=9",
         "WARN DataObject:replaceParameter: column=Speed Keep val=9",
         "INFO DataObject:update: adding rowId=left",
         "INFO DataObject:newInstance: adding to rowId=left col=Speed val=1 str=1"});
}

} // namespace
