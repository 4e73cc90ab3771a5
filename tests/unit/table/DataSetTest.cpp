#include "DataSet.h"

#include "Device.h"
#include "TableFixture.h"

#include <memory>

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
        auto* made = new DataTable(name);
        made->addColumns(columnName, column(columnName, DataColumn::INT));
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

    std::string text(const DataSet& from)
    {
        std::string out = "old";
        return from.toString(out);
    }

    DataSet set{"Dev"};
};

TEST_F(DataSetTest, IsWrittenInOrderOfNamesAndReadBack)
{
    EXPECT_EQ(text(DataSet("Empty")), "<DataSet ID=\"Empty\" Version=\"0\">\n</DataSet>\n");
    EXPECT_EQ(names(set), "Fans Cards ");
    std::string cards;
    std::string fans;
    EXPECT_EQ(text(set), "<DataSet ID=\"Dev\" Version=\"0\">\n" +
                             set.getTable("Cards")->toString(cards) +
                             set.getTable("Fans")->toString(fans) + "</DataSet>\n");
    set.setVersion("2.1");
    DataSet copy;
    EXPECT_EQ(copy.initFromString(text(set)), FC_OK);
    EXPECT_EQ(text(copy), text(set));
    EXPECT_EQ(copy.initFromString("<DataSet ID=\"Dev\" >"), FC_OK);
    EXPECT_EQ(copy.getVersion(), "0");
}

TEST_F(DataSetTest, ReadingLeavesOutBadTablesOnly)
{
    EXPECT_EQ(set.initFromString("<DataSet Version=\"1\">"), FC_BODY_ERROR);
    EXPECT_EQ(set.initFromString("<DataSet ID=\"x\"><Table ></Table><Table Name=\"Fans\"><Columns>"
                                 "</Columns></Table></DataSet>"),
              FC_BODY_ERROR);
    EXPECT_EQ(names(set), "Cards Fans ");
    EXPECT_EQ(set.getTable("Fans")->getRowsNum(), 0);
    expectLogged({"ERROR DataSet:initFromString: Not found ID in:<DataSet Version=\"1\">",
                  "ERROR DataTable:initFromString: Not found Name in:<Table ></Table>",
                  "ERROR DataSet:initFromString: Error in initializing table fcode=10002"});
}

TEST_F(DataSetTest, LoadEndsCleanAndGivesWhatWasStored)
{
    set.touch();
    EXPECT_EQ(set.store(kFile), FC_OK);
    EXPECT_EQ(readFile(kFile), text(set));
    DataSet copy("Other");
    copy.addTable("Old", new DataTable("Old"));
    EXPECT_EQ(copy.load(kFile), FC_OK);
    expectLogged({"INFO DataSet:store: stored in file=/data/sensors.xml"});
    EXPECT_EQ(names(copy), "Cards Fans ");
    EXPECT_FALSE(copy.isChanged() || copy.getTable("Fans")->isChanged());
    EXPECT_EQ(copy.getTable("Fans")->getRows(1)->getState(), STATE_CLEAN);
}

TEST_F(DataSetTest, LoadOfNothingKeepsTheTablesAndOfAFaultyFileDropsThem)
{
    writeFile(kFile, "");
    EXPECT_EQ(set.load("/data/none"), FC_NO_SUCH_NAME);
    EXPECT_EQ(set.load(kFile), FC_UNAVAILABLE);
    EXPECT_EQ(set.load("/data"), FC_UNAVAILABLE);
    EXPECT_EQ(names(set), "Fans Cards ");
    writeFile(kFile, "<DataSet ");
    EXPECT_EQ(set.load(kFile), FC_BODY_ERROR);
    EXPECT_EQ(names(set), "");
    expectLogged({"ERROR DataSet:load: file stream !good",
                  "ERROR DataSet:load: file stream size==0 file=/data/sensors.xml",
                  "ERROR DataSet:load: file stream size==0 file=/data",
                  "ERROR DataSet:initFromString: Not found ID in:<DataSet "});
}

TEST_F(DataSetTest, FailedStoreIsLoggedAndIsNoError)
{
    EXPECT_EQ(set.store("/data/none/file"), FC_OK);
    expectLogged({"ERROR DataSet:store: Couldn't write file=/data/none/file errno=2",
                  "INFO DataSet:store: stored in file=/data/none/file"});
}

TEST_F(DataSetTest, StoreLogsWhatCannotBeReadBack)
{
    const auto stored = [this](const std::vector<std::string>& errors) {
        log.clear();
        set.store(kFile);
        std::vector<std::string> expected;
        for (const std::string& error : errors)
            expected.push_back("ERROR DataSet:store: Can't be read back: " + error);
        expected.emplace_back("INFO DataSet:store: stored in file=/data/sensors.xml");
        expectLogged(expected);
    };
    DataTable& fans = *set.getTable("Fans");
    DataItem& speed = *fans.getRows(1)->getDataItem("Speed");
    fans.addColumns("Mode", column("Mode", DataColumn::ENUM, 7, {"a<b", "Off"}));
    auto* const mode = new DataItem(fans.getColumns("Mode"));
    fans.getRows(1)->addDataItem("Mode", mode); // has no value: 7 is none
    speed.initStrVal("12 V <&");
    stored({});
    for (const char* value : {"a>b", "\"a"}) {
        speed.initStrVal(value);
        stored({std::string("table=Fans row=1 item=Speed value=") + value});
    }
    speed.initStrVal("");
    mode->initStrVal("On");
    stored({"table=Fans row=1 item=Mode value=On"});
    mode->init(column("Gone", DataColumn::INT));
    stored({"table=Fans row=1 item=Gone value=0"});
    fans.getColumns("Mode")->addValue(2, "<On>");
    stored({"table=Fans column=Mode"}); // the first of a table
    set.setVersion("1\"");
    fans.setId("F>");
    stored({"dataset=Dev version=1\"", "table=F>"});
    delete mode->getColumn();
}

TEST_F(DataSetTest, TouchesOneTableOrAll)
{
    EXPECT_EQ(set.touch("None") | set.untouch("None"), FC_OK);
    EXPECT_FALSE(set.isChanged());
    set.touch("Fans");
    EXPECT_TRUE(set.isChanged() && set.getTable("Fans")->isChanged());
    EXPECT_FALSE(set.getTable("Cards")->isChanged());
    set.untouch("Fans");
    EXPECT_FALSE(set.isChanged() || set.getTable("Fans")->isChanged());

    set.touch();
    EXPECT_TRUE(set.getTable("Cards")->isChanged());
    set.rollbackChanges();
    EXPECT_FALSE(set.isChanged() || set.getTable("Cards")->isChanged());
    expectLogged({"INFO DataSet:rollbackChanges: executing..."});
}

TEST_F(DataSetTest, CellsAndRowsAreFoundByTableRowAndItem)
{
    set.getTable("Fans")->getRows(1)->getDataItem("Speed")->initValue("30");
    set.getTable("Fans")->appendNewRow();
    int number = 0;
    std::string words;
    EXPECT_EQ(set.getIntParam("Fans", 1, "Speed", &number), FC_OK);
    EXPECT_EQ(set.getStringParam("Fans", 1, "Speed", &words), FC_OK);
    EXPECT_EQ(words + std::to_string(number), "3030");
    EXPECT_EQ(set.getFirstRowIndex("Fans") + set.getNextRowIndex("Fans", 1), 3);
    EXPECT_EQ(set.getFirstRowIndex("Doors") + set.getNextRowIndex("Doors", 1), 0);

    const struct {
        const char* holder;
        int row;
        const char* item;
        const char* logged;
    } missing[] = {{"Doors", 1, "Speed", "No such table=Doors"},
                   {"Fans", 9, "Speed", "No such rowId=9 in table=Fans"},
                   {"Fans", 1, "Colour", "No such item=Colour in rowId=1 in table=Fans"}};
    for (const auto& [holder, row, item, logged] : missing) {
        EXPECT_EQ(set.getIntParam(holder, row, item, &number), FC_NO_SUCH_NAME);
        EXPECT_EQ(set.getStringParam(holder, row, item, &words), FC_NO_SUCH_NAME);
        expectLogged({std::string("ERROR DataSet:getIntParam: ") + logged,
                      std::string("ERROR DataSet:getStringParam: ") + logged});
    }
    EXPECT_EQ(words + std::to_string(number), "3030");
}

TEST_F(DataSetTest, UpdateAddsMergesAndDropsTablesAsItsFlagsSay)
{
    DataSet reference("Ref");
    reference.addTable("Fans", plain("Fans", "Noise"));
    reference.addTable("Doors", plain("Doors", "Open"));

    EXPECT_EQ(set.update(reference, true, false, true, false, false, false), FC_OK);
    EXPECT_EQ(names(set), "Fans Cards ");
    EXPECT_FALSE(set.isChanged());
    EXPECT_EQ(set.update(reference, true, true, true, true, false, false), FC_OK);
    EXPECT_EQ(names(set), "Fans Cards Doors ");
    EXPECT_EQ(set.getTable("Fans")->getColumnsNum(), 2);
    EXPECT_TRUE(set.isChanged());
    EXPECT_EQ(set.update(reference, false, false, false, false, false, false), FC_OK);
    EXPECT_EQ(names(set), "Fans Doors ");
    EXPECT_EQ(set.getTable("Fans")->getColumnNames(), std::vector<std::string>{"Noise"});

    reference.getTable("Doors")->getRows(1)->getDataItem("Open")->setColumn(nullptr);
    set.removeTable("Doors");
    EXPECT_EQ(set.update(reference, true, true, true, false, false, false), FC_NO_SUCH_NAME);
    expectLogged({"ERROR DataRow:initFromString: No item in row with ID=",
                  "ERROR DataTable:initFromString: error in row=1 fcode10008",
                  "ERROR DataSet:update: Error in initializing table fcode=10008"});
    EXPECT_EQ(names(set), "Fans ");
}

TEST(DataSetTextTest, EnumTextThatIsNoLongerKnownCostsItsCellAndNotTheTable)
{
    DataSet set;
    EXPECT_EQ(FC_OK,
              set.initFromString("<DataSet ID=\"s\" ><Table Name=\"T\"><Columns>"
                                 "<Column Name=\"Mode\" Access=\"RW\" Type=\"enum\" Value=\"1\"  >"
                                 "<Value Index=\"1\" Text=\"Auto\" /></Column></Columns>"
                                 "<Row ID=\"1\" ><Item Name=\"Mode\" Value=\"Gone\" /></Row>"
                                 "</Table></DataSet>"));
    std::string text;
    EXPECT_EQ(FC_OK, set.getStringParam("T", 1, "Mode", &text));
    EXPECT_EQ("Auto", text);
}

} // namespace
