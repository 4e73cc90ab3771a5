#include "DataObject.h"

#include "TableFixture.h"

namespace
{

constexpr char kFan[] = "\t<Object Type=\"Fan\">\n"
                        "\t\t<Parameters>\n"
                        "\t\t\t<Column Name=\"Mode\" Access=\"RW\" Type=\"enum\" Value=\"0\"  >\n"
                        "\t\t\t\t<Value Index=\"0\" Text=\"Auto\" />\n"
                        "\t\t\t\t<Value Index=\"1\" Text=\"Off\" />\n"
                        "\t\t\t</Column>\n"
                        "\t\t\t<Column Name=\"Speed\" Access=\"RW\" Type=\"int\" Value=\"9\" />\n"
                        "\t\t</Parameters>\n"
                        "\t\t\t<Row ID=\"10\" >\n"
                        "\t\t\t<Item Name=\"Mode\" Value=\"Off\" />\n"
                        "\t\t\t<Item Name=\"Speed\" Value=\"9\" />\n"
                        "\t\t\t</Row>\n"
                        "\t\t\t<Row ID=\"left\" >\n"
                        "\t\t\t<Item Name=\"Mode\" Value=\"Auto\" />\n"
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
        fan.addParameter("Mode", column("Mode", DataColumn::ENUM, 0, {"Auto", "Off"}));
        fan.newInstance("left", nullptr, false);
        fan.newInstance("10", nullptr, false)->getDataItem("Mode")->initValue("Off");
        fan.acceptChanges();
    }

    DataItem& value(const std::string& key, const std::string& name)
    {
        return *fan.getInstance(key)->getDataItem(name);
    }

    DataObject fan{"Fan"};
};

TEST_F(DataObjectTest, IsWrittenInOrderOfNamesAndKeysAndReadBack)
{
    std::string text = "old";
    EXPECT_EQ(fan.toString(text), kFan);
    DataObject copy;
    EXPECT_EQ(copy.initFromString(kFan), FC_OK);
    EXPECT_EQ(copy.toString(text), kFan);
    EXPECT_EQ(copy.getParameters(), (Names{"Mode", "Speed"}));
    EXPECT_EQ(copy.getInstances(), (Names{"10", "left"}));
}

TEST_F(DataObjectTest, EmptyKeyIsAKey)
{
    fan.newInstance("", nullptr, false);
    std::string text;
    DataObject copy;
    EXPECT_EQ(FC_OK, copy.initFromString(fan.toString(text)));
    EXPECT_EQ((Names{"", "10", "left"}), copy.getInstances());

    table.addRows(3, new DataRow(0)); // a row of a table shows its id again
    fan.addInstance("", table.removeRows(3).release());
    table.addRows(3, fan.getInstance(""));
    EXPECT_EQ("\t\t\t<Row ID=\"3\" >\n\t\t\t</Row>\n", table.getRows(3)->toString(text));
}

TEST_F(DataObjectTest, ReadingReportsWhatIsWrong)
{
    EXPECT_EQ(fan.initFromString("<Object>"), FC_BODY_ERROR);
    EXPECT_EQ(fan.initFromString("<Object Type=\"F\">"), FC_OK);
    EXPECT_EQ(fan.initFromString("<Object Type=\"F\"><Parameters><Column Name=\"a\" /></Parameters>"
                                 "<Row ID=\"up\" ><Item Name=\"b\" Value=\"\" /></Row></Object>"),
              FC_BODY_ERROR | FC_NO_SUCH_NAME);
    expectLogged(
        {"ERROR DataObject:initFromString: Not found Type in:<Object>",
         "ERROR DataObject:initFromString: Not found Parameters in:<Object Type=\"F\">",
         "ERROR DataColumn:initFromString: Not Found tags Access in:\n<Column Name=\"a\" />",
         "ERROR DataObject:initFromString: error in parameter fcode=10002",
         "ERROR DataRow:initFromString: No item in row with ID=b",
         "ERROR DataObject:initFromString: error in instance=up fcode10008"});
}

TEST_F(DataObjectTest, AcceptsAndRollsBackLikeATable)
{
    EXPECT_EQ(fan.deleteInstance("right"), FC_NO_SUCH_NAME);
    EXPECT_FALSE(fan.isChanged());
    value("10", "Speed").setValue("3");
    EXPECT_EQ(fan.getState(), STATE_MODIFIED);
    fan.newInstance("right", nullptr, false);
    fan.deleteInstance("left");
    fan.rollbackChanges();
    EXPECT_EQ(fan.getInstances(), (Names{"10", "left"}));
    EXPECT_FALSE(fan.isChanged());

    fan.deleteInstance("10");
    fan.newInstance("right", nullptr, false);
    EXPECT_EQ(fan.acceptChanges(), FC_OK);
    EXPECT_EQ(fan.getInstances(), (Names{"left", "right"}));
    EXPECT_EQ(fan.doDeleteInstance("none") | fan.doDeleteInstance("left"), FC_OK);
    fan.doDeleteAllInstances();
    EXPECT_TRUE(fan.getInstances().empty());
}

TEST_F(DataObjectTest, ReplacedParameterKeepsTheValuesItCanHold)
{
    delete fan.replaceParameter("Mode", column("Mode", DataColumn::ENUM, 0, {"Eco", "Off"}));
    delete fan.replaceParameter("Mode", column("Mode", DataColumn::INT));
    fan.removeParameter("Mode");
    delete fan.replaceParameter("Speed", column("Speed", DataColumn::STR));
    expectLogged(
        {"WARN DataObject:replaceParameter: enum column=Mode Set default instead of val=Auto",
         "WARN DataObject:replaceParameter: int column=Mode Set default instead of type=2 val=Off",
         "WARN DataObject:replaceParameter: int column=Mode Set default instead of type=2 val=Eco",
         "WARN DataObject:replaceParameter: column=Speed Keep val=9",
         "WARN DataObject:replaceParameter: column=Speed Keep val=9"});
    EXPECT_EQ(fan.getInstance("left")->getDataItem("Mode"), nullptr);
}

TEST_F(DataObjectTest, UpdateTakesOverParametersAndInstances)
{
    DataObject reference("Reference");
    reference.addParameter("Speed", column("Speed", DataColumn::INT, 1));
    reference.newInstance("left", nullptr, false);
    reference.newInstance("up", nullptr, false);
    fan.update(reference, false, true, true, true);
    EXPECT_EQ(fan.getParameters(), (Names{"Speed"}));
    EXPECT_EQ(fan.getInstances(), (Names{"10", "left", "up"}));
    EXPECT_EQ(value("left", "Speed").getIntVal_copy(), 1);
    expectLogged({"WARN DataObject:update: dataObject=Fan column=Speed changed. Replacing...",
                  "WARN DataObject:replaceParameter: column=Speed Keep val=9",
                  "WARN DataObject:replaceParameter: column=Speed Keep val=9",
                  "INFO DataObject:update: adding rowId=left",
                  "INFO DataObject:newInstance: adding to rowId=left col=Speed val=1 str=1",
                  "INFO DataObject:update: adding rowId=up"});
}

} // namespace
