// In what an object differs from a table: its keys, its text and its log lines.

#include "DataObject.h"

#include "TableFixture.h"

namespace
{

constexpr char kFan[] = "\t<Object Type=\"Fan\">\n"
                        "\t\t<Parameters>\n"
                        "\t\t\t<Column Name=\"Mode\" Access=\"RW\" Type=\"int\" Value=\"0\" />\n"
                        "\t\t\t<Column Name=\"Speed\" Access=\"RW\" Type=\"int\" Value=\"9\" />\n"
                        "\t\t</Parameters>\n"
                        "\t\t\t<Row ID=\"10\" >\n"
                        "\t\t\t<Item Name=\"Mode\" Value=\"7\" />\n"
                        "\t\t\t<Item Name=\"Speed\" Value=\"9\" />\n"
                        "\t\t\t</Row>\n"
                        "\t\t\t<Row ID=\"left\" >\n"
                        "\t\t\t<Item Name=\"Mode\" Value=\"0\" />\n"
                        "\t\t\t<Item Name=\"Speed\" Value=\"9\" />\n"
                        "\t\t\t</Row>\n"
                        "\t</Object>\n";

class DataObjectTest : public TableFixture
{
protected:
    using Names = std::vector<std::string>;

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

TEST_F(DataObjectTest, IsWrittenInOrderOfNamesAndKeysAndReadBack)
{
    EXPECT_EQ(kFan, textOf(fan));
    DataObject copy;
    EXPECT_EQ(FC_OK, copy.initFromString(kFan));
    EXPECT_EQ(kFan, textOf(copy));
    EXPECT_EQ((Names{"Mode", "Speed"}), copy.getParameters());
    EXPECT_EQ((Names{"10", "left"}), copy.getInstances());
}

TEST_F(DataObjectTest, EmptyKeyIsAKey)
{
    fan.newInstance("", nullptr, false);
    DataObject copy;
    EXPECT_EQ(FC_OK, copy.initFromString(textOf(fan)));
    EXPECT_EQ((Names{"", "10", "left"}), copy.getInstances());

    fan.addInstance("", new DataRow(0));
    table.addRows(3, fan.getInstance("")); // a row of a table shows its id again
    EXPECT_EQ("\t\t\t<Row ID=\"3\" >\n\t\t\t</Row>\n", textOf(*table.getRows(3)));
}

TEST_F(DataObjectTest, ReadingReportsWhatIsWrong)
{
    EXPECT_EQ(FC_BODY_ERROR, fan.initFromString("<Object>"));
    EXPECT_EQ(FC_OK, fan.initFromString("<Object Type=\"F\">"));
    EXPECT_EQ(FC_BODY_ERROR | FC_NO_SUCH_NAME,
              fan.initFromString("<Object Type=\"F\"><Parameters><Column Name=\"a\" /></Parameters>"
                                 "<Row ID=\"up\" ><Item Name=\"b\" Value=\"\" /></Row></Object>"));
    expectLogged(
        {"ERROR DataObject:initFromString: Not found Type in:<Object>",
         "ERROR DataObject:initFromString: Not found Parameters in:<Object Type=\"F\">",
         "ERROR DataColumn:initFromString: Not Found tags Access in:\n<Column Name=\"a\" />",
         "ERROR DataObject:initFromString: error in parameter fcode=10002",
         "ERROR DataRow:initFromString: No item in row with ID=b",
         "ERROR DataObject:initFromString: error in instance=up fcode10008"});
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
