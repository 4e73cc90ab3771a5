#include "DataSet.h"

#include "Device.h"
#include "TableFixture.h"

#include <memory>
#include <sys/mount.h>

namespace
{

constexpr char kFile[] = "/data/sensors.xml";

class DataSetTest : public TableFixture
{
protected:
    DataSetTest()
    {
        set.addTable("Fans", plain("Fans", "Speed"));
        set.addTable("Cards", plain("Cards", "Slot"));
        set.acceptChanges();
    }

    /// A table of one integer column with row 1.
    static DataTable* plain(const std::string& name, const std::string& columnName)
    {
        auto* made = new DataTable;
        made->setId(name);
        made->addColumnList(column(columnName, DataColumn::INT));
        made->newRow();
        return made;
    }

    static std::string names(const DataSet& from)
    {
        std::string text;
        for (auto it = from.getTableListBegin(); it != from.getTableListEnd(); ++it)
            text += (*it)->getId() + ' ';
        return text;
    }

    DataSet set{"Dev"};
};

TEST_F(DataSetTest, IsWrittenInOrderOfNamesAndReadBack)
{
    EXPECT_EQ("Fans Cards ", names(set));
    set.setVersion("2.1");
    EXPECT_EQ("<DataSet ID=\"Dev\" Version=\"2.1\">\n" + textOf(*set.getTable("Cards")) +
                  textOf(*set.getTable("Fans")) + "</DataSet>\n",
              textOf(set));
    DataSet copy;
    EXPECT_EQ(FC_OK, copy.initFromString(textOf(set)));
    EXPECT_EQ(textOf(set), textOf(copy));
    EXPECT_EQ(FC_OK, copy.initFromString("<DataSet ID=\"Dev\" >"));
    EXPECT_EQ("0", copy.getVersion());
}

TEST_F(DataSetTest, ReadingLeavesOutBadTablesOnly)
{
    EXPECT_EQ(FC_BODY_ERROR, set.initFromString("<DataSet Version=\"1\">"));
    EXPECT_EQ(FC_BODY_ERROR,
              set.initFromString("<DataSet ID=\"x\"><Table ></Table><Table Name=\"Fans\"><Columns>"
                                 "</Columns></Table></DataSet>"));
    EXPECT_EQ("Cards Fans ", names(set));
    EXPECT_EQ(0, set.getTable("Fans")->getRowsNum());
    expectLogged({"ERROR DataSet:initFromString: Not found ID in:<DataSet Version=\"1\">",
                  "ERROR DataTable:initFromString: Not found Name in:<Table ></Table>",
                  "ERROR DataSet:initFromString: Error in initializing table fcode=10002"});
}

TEST_F(DataSetTest, LoadEndsCleanAndGivesWhatWasStored)
{
    set.touch();
    EXPECT_EQ(FC_OK, set.store(kFile));
    EXPECT_EQ(textOf(set), readFile(kFile));
    DataSet copy("Other");
    copy.addTable("Old", new DataTable("Old"));
    EXPECT_EQ(FC_OK, copy.load(kFile));
    EXPECT_EQ("Cards Fans ", names(copy));
    EXPECT_EQ(STATE_CLEAN, copy.getState() | copy.getTable("Fans")->getState() |
                               copy.getTable("Fans")->getRows(1)->getState());

    writeFile(kFile, "");
    EXPECT_EQ(FC_NO_SUCH_NAME, copy.load("/data/none"));
    EXPECT_EQ(FC_UNAVAILABLE, copy.load(kFile));
    EXPECT_EQ(FC_UNAVAILABLE, copy.load("/data"));
    EXPECT_EQ("Cards Fans ", names(copy)); // stay
    writeFile(kFile, "<DataSet ");
    EXPECT_EQ(FC_BODY_ERROR, copy.load(kFile));
    EXPECT_EQ("", names(copy));
    expectLogged({"INFO DataSet:store: stored in file=/data/sensors.xml",
                  "ERROR DataSet:load: file stream !good",
                  "ERROR DataSet:load: file stream size==0 file=/data/sensors.xml",
                  "ERROR DataSet:load: file stream size==0 file=/data",
                  "ERROR DataSet:initFromString: Not found ID in:<DataSet "});
}

TEST_F(DataSetTest, StoreLogsWhatCannotBeWrittenOrReadBackAndIsNoError)
{
    const std::unique_ptr<DataColumn> foreign(column("Foreign", DataColumn::INT));
    const auto addTable = [this](const std::string& name, const std::string& value) -> DataItem& {
        set.addTable(name, plain(name, "Speed"));
        DataItem& speed = *set.getTable(name)->getRows(1)->getDataItem("Speed");
        DataRow* const second = set.getTable(name)->newRow(2, speed.getRow(), false);
        second->getDataItem("Speed")->initStrVal(value); // the second row has it too
        speed.initStrVal(value);
        return speed;
    };
    addTable("A", "12 V <&");
    addTable("B", "a>b");
    addTable("C", "\"").getRow()->addDataItem("Foreign", new DataItem(foreign.get()));
    addTable("D", "").setColumn(foreign.get());
    addTable("E", "On").getColumn()->setType(DataColumn::ENUM);
    addTable("F", "").getColumn()->setType(DataColumn::ENUM); // as a new item of this column
    addTable("G", "a>b").getColumn()->addValue(2, "<On>");    // the first of each table
    addTable("H>", "a>b");
    addTable("I", "<Row 1, <Columns 2");
    addTable("J", "<Row 1").getColumn()->addValue(2, "<Row 1");
    addTable("K<Row ", "");
    set.setVersion("1\"");
    log.clear();
    EXPECT_EQ(FC_OK, set.store(kFile));
    EXPECT_EQ(FC_OK, DataSet("a>b").store("/data/none/file"));
    const std::string error = "ERROR DataSet:store: Can't be read back: ";
    expectLogged(
        {error + "dataset=Dev version=1\"", error + "table=B row=1 item=Speed value=a>b",
         error + "table=C row=1 item=Speed value=\"", error + "table=D row=1 item=Foreign value=",
         error + "table=E row=1 item=Speed value=On", error + "table=G column=Speed",
         error + "table=H>", error + "table=I row=1 item=Speed value=<Row 1, <Columns 2",
         error + "table=J column=Speed", error + "table=K<Row ",
         "INFO DataSet:store: stored in file=/data/sensors.xml", error + "dataset=a>b version=0",
         "ERROR DataSet:store: Couldn't write file=/data/none/file errno=2",
         "INFO DataSet:store: stored in file=/data/none/file"});

    writeFile("/data/target", "");
    ASSERT_EQ(0, mount("/data/target", kFile, nullptr, MS_BIND, nullptr)); // cannot be replaced
    EXPECT_EQ(FC_OK, DataSet("plain").store(kFile));
    EXPECT_EQ("<DataSet ID=\"plain\" Version=\"0\">\n</DataSet>\n", readFile("/data/target"));
    expectLogged({"ERROR DataSet:store: Written in place file=/data/sensors.xml errno=16",
                  "INFO DataSet:store: stored in file=/data/sensors.xml"});
}

TEST_F(DataSetTest, CellsAndRowsAreFoundByTableRowAndItem)
{
    set.getTable("Fans")->getRows(1)->getDataItem("Speed")->initValue("30");
    set.getTable("Fans")->appendNewRow();
    int number = 0;
    std::string text;
    EXPECT_EQ(FC_OK, set.getIntParam("Fans", 1, "Speed", &number));
    EXPECT_EQ(FC_OK, set.getStringParam("Fans", 1, "Speed", &text));
    EXPECT_EQ("3030", text + std::to_string(number));
    EXPECT_EQ(3, set.getFirstRowIndex("Fans") + set.getNextRowIndex("Fans", 1));
    EXPECT_EQ(0, set.getFirstRowIndex("Doors") + set.getNextRowIndex("Doors", 1));

    for (const auto& [name, row, item, logged] :
         {std::tuple("Doors", 1, "Speed", "No such table=Doors"),
          {"Fans", 9, "Speed", "No such rowId=9 in table=Fans"},
          {"Fans", 1, "Colour", "No such item=Colour in rowId=1 in table=Fans"}}) {
        EXPECT_EQ(FC_NO_SUCH_NAME, set.getIntParam(name, row, item, &number));
        EXPECT_EQ(FC_NO_SUCH_NAME, set.getStringParam(name, row, item, &text));
        expectLogged({std::string("ERROR DataSet:getIntParam: ") + logged,
                      std::string("ERROR DataSet:getStringParam: ") + logged});
    }
    EXPECT_EQ("3030", text + std::to_string(number));
}

TEST_F(DataSetTest, UpdateAddsMergesAndDropsTablesAsItsFlagsSay)
{
    DataSet reference("Ref");
    reference.addTable("Fans", plain("Fans", "Noise"));
    reference.addTable("Doors", plain("Doors", "Open"));

    EXPECT_EQ(FC_OK, set.update(reference, true, false, true, false, false, false));
    EXPECT_EQ("Fans Cards ", names(set));
    EXPECT_FALSE(set.isChanged());
    EXPECT_EQ(FC_OK, set.update(reference, true, true, true, true, false, false));
    EXPECT_EQ("Fans Cards Doors ", names(set));
    EXPECT_EQ(2, set.getTable("Fans")->getColumnsNum());
    EXPECT_TRUE(set.isChanged());
    set.acceptChanges();
    EXPECT_EQ(FC_OK, set.update(reference, false, false, false, false, false, false));
    EXPECT_TRUE(set.isChanged());
    EXPECT_EQ("Fans Doors ", names(set));
    EXPECT_EQ(Names{"Noise"}, set.getTable("Fans")->getColumnNames());

    reference.getTable("Doors")->getRows(1)->getDataItem("Open")->setColumn(nullptr);
    set.removeTable("Doors");
    EXPECT_EQ(FC_NO_SUCH_NAME, set.update(reference, true, true, true, false, false, false));
    expectLogged({"ERROR DataRow:initFromString: No item in row with ID=",
                  "ERROR DataTable:initFromString: error in row=1 fcode10008",
                  "ERROR DataSet:update: Error in initializing table fcode=10008"});
    EXPECT_EQ("Fans ", names(set));

    DataTable foreign;
    set.addTable("none", nullptr);
    set.addTableList(nullptr);
    EXPECT_EQ(nullptr, set.removeTableList(&foreign));
    set.addTableList(new DataTable("Last"));
    EXPECT_EQ("Fans", set.removeTable(set.getTable("Fans"))->getId());
    EXPECT_EQ("Last ", names(set));
}

} // namespace
