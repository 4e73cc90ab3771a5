#include "DataObject.h"
#include "TableFixture.h"

#include <functional>
#include <limits>

namespace
{

using DataTableTest = TableFixture;

TEST_F(DataTableTest, RowIdsStartAtOneAndFreeOnesAreFoundInGapsAndAtTheEnd)
{
    EXPECT_EQ(0, table.getFirstRowIndex() + table.getNextRowIndex(0) + table.getLastRowIndex());
    const int highest = std::numeric_limits<int>::max();
    const std::tuple<std::vector<int>, int, int> cases[] = {
        {{}, 1, 1},      {{1, 2, 4}, 3, 5}, {{1, 2, 3}, 4, 4},       {{2, 3}, 1, 4}, {{-3}, 1, 1},
        {{-3, 1}, 2, 2}, {{0, 2}, 1, 3},    {{1, 2, highest}, 3, 3}, // nothing lies behind it
    };
    for (const auto& [ids, available, appended] : cases) {
        table.clearRows();
        addCleanRows(ids);
        EXPECT_EQ(available, table.getAvailableRowId());
        EXPECT_EQ(appended, table.appendNewRow());
        table.doDeleteRow(appended);
        EXPECT_EQ(available, table.newRow());
    }
}

TEST_F(DataTableTest, FirstRowIsTheFirstNotMarkedDeletedAfterAnyChange)
{
    const std::pair<int, std::function<void()>> cases[] = {
        {2, [this] { table.getRows(2)->setState(STATE_ADDED); }},
        {1, [this] { table.rollbackChanges(); }},
        {-2, [this] { table.newRow(-2, nullptr, false); }},
        {2, [this] { table.addRows(2, new DataRow(7)); }},
        {6, [this] { delete table.getRows(5); }},
        {0, [this] { table.clearRows(); }},
    };
    for (const auto& [first, change] : cases) {
        table.clearRows();
        addCleanRows({1, 2, 3, 4, 5, 6});
        for (const int id : {1, 2, 3, 4})
            table.deleteRow(id);
        EXPECT_EQ(5, table.getFirstRowIndex());
        change();
        EXPECT_EQ(first, table.getFirstRowIndex());
    }
}

TEST_F(DataTableTest, RemovedColumnTakesItsCellsWithItAndTheTextIsReadBack)
{
    addCleanRows({1, 12});
    cell(12, "Mode").initValue("Off");
    const auto removed = table.removeColumns("Limit");
    EXPECT_EQ("Limit", removed->getName());
    EXPECT_EQ(nullptr, table.removeColumns(removed.get()));

    DataTable copy; // a cell that has lost its column would not be read
    for (const char* pass : {"into an empty table", "into the same one"}) {
        EXPECT_EQ(FC_OK, copy.initFromString(textOf(table))) << pass;
        EXPECT_EQ(textOf(table), textOf(copy)) << pass;
    }
}

TEST_F(DataTableTest, ReplacedColumnGoesToTheEndAndKeepsTheValuesItCanHold)
{
    addCleanRows({1, 2});
    cell(2, "Mode").initValue("Off");

    delete table.replaceColumn("Mode", column("Mode", DataColumn::ENUM, 1, {"Auto", "Eco", "On"}));
    EXPECT_EQ((Names{"Limit", "Mode"}), table.getColumnNames());
    EXPECT_EQ("OnEco", cell(1, "Mode").getStrVal() + cell(2, "Mode").getStrVal());
    EXPECT_EQ(1, cell(1, "Mode").getIntVal());
    delete table.replaceColumn("Limit", column("Limit", DataColumn::INT, 41));
    delete table.replaceColumn("Mode", column("Mode", DataColumn::STR));
    delete table.replaceColumn("Mode", column("Mode", DataColumn::INT, 5));
    EXPECT_EQ("405", cell(1, "Limit").getStrVal() + cell(1, "Mode").getStrVal());
    expectLogged(
        {"WARN DataTable:replaceColumn: enum column=Mode Set default instead of val=Off",
         "WARN DataTable:replaceColumn: column=Limit Keep val=40",
         "WARN DataTable:replaceColumn: column=Limit Keep val=40",
         "WARN DataTable:replaceColumn: column=Mode Keep val=On",
         "WARN DataTable:replaceColumn: column=Mode Keep val=Eco",
         "WARN DataTable:replaceColumn: int column=Mode Set default instead of type=3 val=On",
         "WARN DataTable:replaceColumn: int column=Mode Set default instead of type=3 val=Eco"});
}

TEST_F(DataTableTest, ReplacedColumnBelongsToTheCaller)
{
    static int freed;
    freed = 0;
    struct CountedColumn : DataColumn {
        ~CountedColumn() override { ++freed; }
    };
    DataColumn* const first = new CountedColumn;
    first->init("a", DataColumn::RW, DataColumn::INT);
    EXPECT_EQ(nullptr, table.replaceColumn("a", first));
    addCleanRows({1});
    EXPECT_EQ(nullptr, table.replaceColumn("a", first)); // by itself
    EXPECT_EQ(first, table.replaceColumn("a", column("a", DataColumn::INT)));
    EXPECT_EQ(0, freed);

    delete table.replaceColumn("a", first); // added again, it is the table's
    DataTable other("Other");
    other.addColumns("a", column("a", DataColumn::STR));
    table.update(other, false, true, false, false); // and is freed where nobody gets it
    EXPECT_EQ(1, freed);

    auto* const last = new CountedColumn;
    delete table.replaceColumn("a", last);
    EXPECT_EQ(last, table.replaceColumn("a", nullptr));
    EXPECT_EQ(last, cell(1, "a").getColumn()); // the cells stay, and point at it
    table.clearRows();
    EXPECT_EQ(1, freed);
    delete last;
}

TEST_F(DataTableTest, UpdateCopiesAndRemovesColumnsAndRowsByItsFlags)
{
    DataTable reference("Reference");
    reference.addColumns("Mode", column("Mode", DataColumn::ENUM, 0, {"Off", "On"}));
    reference.addColumns("Name", column("Name", DataColumn::INT));
    reference.newRow(1, nullptr, false);
    reference.newRow(3, nullptr, false);
    addCleanRows({1, 2});

    table.update(reference, true, false, false, false);
    EXPECT_EQ(2, table.getColumnsNum());
    table.update(reference, true, true, false, false);
    EXPECT_EQ((Names{"Limit", "Mode", "Name"}), table.getColumnNames());
    table.update(reference, false, false, false, false);
    EXPECT_EQ((Names{"Mode", "Name"}), table.getColumnNames());
    EXPECT_EQ((std::vector{1, 2}), rows());
    table.update(reference, true, true, true, true);
    EXPECT_EQ((std::vector{1, 2, 3}), rows());
    EXPECT_EQ("Off", cell(1, "Mode").getStrVal_copy());
    EXPECT_EQ(nullptr, table.getRows(1)->getDataItem("Name"));
    EXPECT_NE(nullptr, table.getRows(3)->getDataItem("Name"));
    EXPECT_NE(reference.getColumns("Mode"), table.getColumns("Mode"));
    expectLogged({"WARN DataTable:update: table=Sensors column=Mode changed. Replacing...",
                  "INFO DataTable:update: adding rowId=1",
                  "INFO DataTable:newRow: adding to rowId=1 col=Mode val=0 str=Off",
                  "INFO DataTable:update: adding rowId=3"});
}

TEST_F(DataTableTest, RowTextIsReadIntoTheItemsOfTheRow)
{
    addCleanRows({1});
    DataRow& row = *table.getRows(1);
    const std::string unknown = R"(<Row ID="9" ><Item Name="Height" Value="7" /><Item Name="x" />)";
    const std::string limit = R"(<Item Name="Limit" Value="7" /></Row>)";
    EXPECT_EQ(FC_OK, row.initFromString("<Row>" + limit));
    EXPECT_EQ(40, row.getDataItem("Limit")->getIntVal());
    EXPECT_EQ(FC_NO_SUCH_NAME, row.initFromString(unknown + limit));
    EXPECT_EQ(7, row.getDataItem("Limit")->getIntVal());
    EXPECT_EQ(9, row.getId());
    EXPECT_EQ(FC_OK, row.initFromString(R"(<Row ID="1" ><Item Name="Mode" Value="Up" /></Row>)"));
    EXPECT_FALSE(table.isChanged());
    expectLogged({"ERROR DataRow:initFromString: Not Found tags ID in:\n<Row>" + limit,
                  "ERROR DataRow:initFromString: No item in row with ID=Height",
                  "ERROR DataItem:initValue: item=Mode ENUM not found text=Up"});
}

TEST_F(DataTableTest, ReadingLogsBadElementsAndKeepsTheRest)
{
    DataObject object;
    const auto check = [this](auto& unit, const std::string& start, const std::string& name,
                              const std::string& columns, const std::string& column,
                              const std::string& row) {
        const std::string named = start + ' ' + name + "=\"T\">";
        EXPECT_EQ(FC_BODY_ERROR, unit.initFromString(start + '>'));
        EXPECT_EQ(FC_OK, unit.initFromString(named + "<Row ID=\"3\" ></Row>"));
        EXPECT_EQ(FC_BODY_ERROR | FC_NO_SUCH_NAME,
                  unit.initFromString(named + '<' + columns + "><Column Name=\"a\" /></" + columns +
                                      "><Row ID=\"4\" ><Item Name=\"b\" Value=\"\" /></Row>"));
        const std::string error = "ERROR Data" + start.substr(1) + ":initFromString: ";
        expectLogged({error + "Not found " + name + " in:" + start + '>',
                      error + "Not found " + columns + " in:" + named + "<Row ID=\"3\" ></Row>",
                      "ERROR DataColumn:initFromString: Not Found tags Access in:\n"
                      "<Column Name=\"a\" />",
                      error + "error in " + column + " fcode=10002",
                      "ERROR DataRow:initFromString: No item in row with ID=b",
                      error + "error in " + row + "=4 fcode10008"});
    };
    check(table, "<Table", "Name", "Columns", "column", "row");
    check(object, "<Object", "Type", "Parameters", "parameter", "instance");
    EXPECT_EQ("T", table.getId());
    EXPECT_EQ((std::vector{3, 4}), rows());
    EXPECT_EQ((Names{"3", "4"}), object.getInstances());
}

TEST_F(DataTableTest, TextMayNotAddFarMoreCellsThanItHolds)
{
    std::string columns = "<Table Name=\"t\"><Columns>";
    for (int i = 0; i < 600; ++i)
        columns +=
            "<Column Name=\"" + std::to_string(i) + "\" Access=\"RW\" Type=\"int\" Value=\"1\" />";
    columns += "</Columns>";
    DataTable large; // 1,300,000 cells, had these rows any: more than this text may add
    for (int i = 0; i < 2200; ++i)
        large.appendNewRow();
    EXPECT_EQ(FC_OK, large.initFromString(columns + "<Row ID=\"5000\" />"));

    std::string greedy = columns;
    for (int i = 1; i < 2300; ++i) // as few cells as are too many
        greedy += "<Row ID=\"" + std::to_string(i) + "\" />";
    log.clear();
    DataTable refused;
    EXPECT_EQ(FC_BODY_ERROR, refused.initFromString(greedy));
    EXPECT_LT(refused.getRowsNum(), 2200);
    expectLogged({"ERROR DataTable:initFromString: too many cells, rows=" +
                  std::to_string(refused.getRowsNum()) + " columns=600"});
}

} // namespace
