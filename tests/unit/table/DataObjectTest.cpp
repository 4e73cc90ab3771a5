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
