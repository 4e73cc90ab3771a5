#include "DataSet.h"
#include "TableFixture.h"

#include <functional>
#include <limits>
#include <map>
#include <memory>

namespace
{

constexpr char kSensors[] =
    "\t<Table Name=\"Sensors\">\n"
    "\t\t<Columns>\n"
    "\t\t\t<Column Name=\"Limit\" Access=\"RW\" Type=\"int\" Value=\"40\" />\n"
    "\t\t\t<Column Name=\"Mode\" Access=\"RW\" Type=\"enum\" Value=\"1\"  >\n"
    "\t\t\t\t<Value Index=\"0\" Text=\"Off\" />\n"
    "\t\t\t\t<Value Index=\"1\" Text=\"On\" />\n"
    "\t\t\t</Column>\n"
    "\t\t</Columns>\n"
    "\t\t\t<Row ID=\"1\" >\n"
    "\t\t\t<Item Name=\"Limit\" Value=\"7\" />\n"
    "\t\t\t<Item Name=\"Mode\" Value=\"On\" />\n"
    "\t\t\t</Row>\n"
    "\t\t\t<Row ID=\"12\" >\n"
    "\t\t\t<Item Name=\"Limit\" Value=\"40\" />\n"
    "\t\t\t<Item Name=\"Mode\" Value=\"Off\" />\n"
    "\t\t\t</Row>\n"
    "\t</Table>\n";

class DataTableTest : public TableFixture
{
protected:
    unsigned state(int row) { return table.getRows(row)->getState(); }

    std::string text(DataTable& from)
    {
        std::string out = "old";
        return from.toString(out);
    }
};

TEST_F(DataTableTest, RowIdsStartAtOneAndFreeOnesAreFoundInGapsAndAtTheEnd)
{
    EXPECT_EQ(table.getFirstRowIndex() + table.getNextRowIndex(0) + table.getLastRowIndex(), 0);
    EXPECT_EQ(table.appendNewRow(), 1);
    table.doDeleteRow(1);
    EXPECT_EQ(table.newRow(), 1);

    addCleanRows({2, 4});
    EXPECT_EQ(table.getAvailableRowId(), 3);
    EXPECT_EQ(table.appendNewRow(), 5);
    EXPECT_EQ(table.newRow(), 3);
    EXPECT_EQ(table.newRow(), 6);
    table.doDeleteRow(1);
    EXPECT_EQ(table.newRow(), 1);

    addCleanRows({std::numeric_limits<int>::max(), -3});
    EXPECT_EQ(table.appendNewRow(), 7); // nothing lies behind the highest id there is
    table.doDeleteAllRows();
    addCleanRows({-3});
    EXPECT_EQ(table.appendNewRow(), 1);
    addCleanRows({3});
    EXPECT_EQ(table.newRow(), 2);
}

TEST_F(DataTableTest, TheThreeWalksPassOverDifferentRows)
{
    addCleanRows({1, 2, 3, 4, 5, 6});
    const auto mark = [&](std::vector<unsigned> states) {
        for (int id = 1; id <= 6; ++id)
            table.getRows(id)->setState(states[static_cast<std::size_t>(id - 1)]);
    };
    const struct {
        std::vector<unsigned> states;
        int first, afterFirstRow, last;
    } cases[] = {
        {{0, 0, 0, 0, 0, 0}, 1, 2, 6}, {{2, 2, 0, 0, 0, 1}, 3, 3, 5},
        {{6, 6, 4, 4, 1, 2}, 3, 2, 0}, // deleted with another mark: not the first, but the next
        {{3, 2, 3, 0, 4, 4}, 4, 3, 4}, {{2, 2, 2, 2, 2, 2}, 0, 0, 0},
    };
    for (const auto& [states, first, afterFirstRow, last] : cases) {
        mark(states);
        EXPECT_EQ(table.getFirstRowIndex(), first);
        EXPECT_EQ(table.getNextRowIndex(1), afterFirstRow);
        EXPECT_EQ(table.getLastRowIndex(), last);
    }
    EXPECT_EQ(table.getNextRowIndex(6), 0);
    EXPECT_EQ(table.getNextRowIndex(7), 0);
}

TEST_F(DataTableTest, FirstRowIsTheFirstOneNotMarkedDeletedWhateverHasHappenedSince)
{
    using Change = std::function<void()>;
    const Change changes[] = {
        [this] { table.getRows(2)->setState(STATE_ADDED); },
        [this] { table.getRows(1)->touch(); },
        [this] { table.getRows(3)->untouch(); },
        [this] { table.getRows(2)->acceptChanges(); },
        [this] { table.getRows(4)->rollbackChanges(); },
        [this] { table.rollbackChanges(); },
        [this] { table.acceptChanges(); },
        [this] { table.newRow(-2, nullptr, false); },
        [this] { table.addRows(-1, new DataRow(7)); },
        [this] { table.addRows(2, new DataRow(7)); },
        [this] { table.addRows(9, table.removeRows(3).release()); },
        [this] { table.deleteRow(5); },
        [this] { table.doDeleteRow(5); },
        [this] { delete table.getRows(5); },
        [this] { table.clearRows(); },
    };
    for (const Change& change : changes) {
        table.clearRows();
        addCleanRows({1, 2, 3, 4, 5, 6});
        for (const int id : {1, 2, 3, 4})
            table.deleteRow(id);
        EXPECT_EQ(5, table.getFirstRowIndex());
        change();
        int first = 0;
        for (const auto& [id, row] : std::map(table.getRowsBegin(), table.getRowsEnd()))
            if (first == 0 && (row->getState() & STATE_DELETED) == 0)
                first = id;
        EXPECT_EQ(first, table.getFirstRowIndex()) << "change " << &change - changes;
    }
}

TEST_F(DataTableTest, DeletedRowStaysUntilChangesAreAccepted)
{
    addCleanRows({1, 2, 3, 4});
    EXPECT_EQ(table.deleteRow(9), FC_NO_SUCH_NAME);
    EXPECT_FALSE(table.isChanged());
    EXPECT_EQ(table.deleteRow(2) | table.deleteRow(3), FC_OK);
    EXPECT_EQ(table.getState(), STATE_MODIFIED);
    EXPECT_EQ(rows(), (std::vector{1, 2, 3, 4}));
    cell(4, "Limit").setValue("5");

    EXPECT_EQ(table.acceptChanges(), FC_OK);
    EXPECT_EQ(rows(), (std::vector{1, 4}));
    EXPECT_EQ(cell(4, "Limit").getIntVal(), 5);
    EXPECT_EQ(table.getState() | state(1) | state(4), STATE_CLEAN);
    EXPECT_EQ(table.getAvailableRowId(), 2);

    EXPECT_EQ(table.doDeleteRow(1) | table.doDeleteRow(1), FC_OK);
    EXPECT_EQ(rows(), (std::vector{4}));
}

TEST_F(DataTableTest, AcceptingPassesOverCleanRows)
{
    addCleanRows({1});
    cell(1, "Limit").setValue("5");
    table.getRows(1)->setState(STATE_CLEAN);
    table.acceptChanges();
    EXPECT_EQ(cell(1, "Limit").getIntVal(), 40);
}

TEST_F(DataTableTest, RollbackRemovesNewRowsAndKeepsAllThatWereTouched)
{
    addCleanRows({1, 2});
    const DataRow& pattern = *table.getRows(1);
    table.deleteRow(1);
    cell(2, "Limit").setValue("5");
    table.newRow(3, nullptr, false);
    table.newRow(4, &pattern, false); // values of a pattern leave it new
    table.newRow(5, nullptr, false);
    cell(5, "Limit").setValue("5"); // a value set later does not
    table.newRow(6, nullptr, false);
    table.deleteRow(6);
    EXPECT_EQ(state(4), STATE_ADDED);

    table.rollbackChanges();
    EXPECT_EQ(rows(), (std::vector{1, 2, 5, 6}));
    EXPECT_EQ(table.getState() | state(1) | state(2) | state(5) | state(6), STATE_CLEAN);
    EXPECT_EQ(cell(2, "Limit").getIntVal_copy(), 5);
}

TEST_F(DataTableTest, NewRowOnAnExistingIdLeavesTheRowUnlessItIsReused)
{
    addCleanRows({1, 2});
    cell(1, "Limit").initValue("7");
    cell(2, "Mode").initValue("Off");
    delete cell(2, "Limit").getRow()->removeDataItem("Limit").release();

    EXPECT_EQ(table.newRow(1, table.getRows(2), false), table.getRows(1));
    EXPECT_EQ(table.getState(), STATE_MODIFIED);
    EXPECT_EQ(state(1), STATE_CLEAN);
    EXPECT_EQ(cell(1, "Limit").getIntVal_copy(), 7);

    table.newRow(1, table.getRows(2), true); // the pattern has no limit: that stays
    EXPECT_EQ(state(1), STATE_MODIFIED);
    EXPECT_EQ(cell(1, "Limit").getIntVal_copy(), 7);
    EXPECT_EQ(cell(1, "Mode").getStrVal_copy(), "Off");
    EXPECT_EQ(cell(1, "Mode").getStrVal(), "On");
    expectLogged({"INFO DataTable:newRow: adding to rowId=1 col=Mode val=0 str=Off"});

    table.acceptChanges();
    table.newRow(1, nullptr, true);
    EXPECT_EQ(state(1), STATE_MODIFIED);
    EXPECT_EQ(cell(1, "Limit").getIntVal(), 40);
    EXPECT_EQ(cell(1, "Mode").getStrVal_copy(), "On");
    expectLogged({});
}

TEST_F(DataTableTest, TouchingGoesDownToTheItems)
{
    addCleanRows({1});
    table.touch();
    EXPECT_EQ(table.getState() & state(1) & cell(1, "Mode").getState(), STATE_MODIFIED);
    table.untouch();
    EXPECT_EQ(table.getState() | state(1) | cell(1, "Mode").getState(), STATE_CLEAN);
    table.getRows(1)->touch();
    EXPECT_EQ(table.getState(), STATE_MODIFIED);
}

TEST_F(DataTableTest, RemovedColumnTakesItsCellsWithIt)
{
    addCleanRows({1});
    table.addColumns("Late", column("Late", DataColumn::INT)); // gives existing rows no cell
    EXPECT_EQ(table.getColumnNames(), (std::vector<std::string>{"Limit", "Mode", "Late"}));
    const auto removed = table.removeColumns("Limit");
    EXPECT_EQ(removed->getName(), "Limit");
    EXPECT_EQ(table.removeColumns(removed.get()), nullptr);
    EXPECT_EQ(table.getColumnsNum(), 2);
    EXPECT_EQ(table.getRows(1)->getDataItem("Limit"), nullptr);
    DataTable copy;
    EXPECT_EQ(copy.initFromString(text(table)), FC_OK);
}

TEST_F(DataTableTest, ReplacedColumnGoesToTheEndAndKeepsTheValuesItCanHold)
{
    addCleanRows({1, 2});
    cell(2, "Mode").initValue("Off");

    delete table.replaceColumn("Mode", column("Mode", DataColumn::ENUM, 1, {"Auto", "Eco", "On"}));
    EXPECT_EQ(table.getColumnNames(), (std::vector<std::string>{"Limit", "Mode"}));
    EXPECT_EQ(cell(1, "Mode").getStrVal() + cell(2, "Mode").getStrVal(), "OnEco");
    EXPECT_EQ(cell(1, "Mode").getIntVal(), 1);
    delete table.replaceColumn("Limit", column("Limit", DataColumn::INT, 41));
    delete table.replaceColumn("Mode", column("Mode", DataColumn::INT, 5));
    delete table.replaceColumn("Mode", column("Mode", DataColumn::STR));
    EXPECT_EQ(cell(1, "Limit").getStrVal() + cell(1, "Mode").getStrVal(), "405");
    expectLogged(
        {"WARN DataTable:replaceColumn: enum column=Mode Set default instead of val=Off",
         "WARN DataTable:replaceColumn: column=Limit Keep val=40",
         "WARN DataTable:replaceColumn: column=Limit Keep val=40",
         "WARN DataTable:replaceColumn: int column=Mode Set default instead of type=2 val=On",
         "WARN DataTable:replaceColumn: int column=Mode Set default instead of type=2 val=Eco",
         "WARN DataTable:replaceColumn: column=Mode Keep val=5",
         "WARN DataTable:replaceColumn: column=Mode Keep val=5"});

    const std::unique_ptr<DataColumn> old(table.replaceColumn("Limit", nullptr));
    EXPECT_EQ(old->getDefVal(), 41);
    EXPECT_EQ(table.getColumns("Limit"), nullptr);
    EXPECT_EQ(cell(1, "Limit").getColumn(), old.get()); // the cells stay
}

TEST_F(DataTableTest, ReplacedColumnIsTheCallers)
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

    EXPECT_NE(first, cell(1, "a").getColumn());
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

TEST_F(DataTableTest, UpdateTakesOverWhatItsFlagsSay)
{
    DataTable reference("Reference");
    reference.addColumns("Mode", column("Mode", DataColumn::ENUM, 0, {"Off", "On"}));
    reference.addColumns("Name", column("Name", DataColumn::INT));
    reference.newRow(1, nullptr, false);
    reference.newRow(3, nullptr, false);
    addCleanRows({1, 2});
    using Names = std::vector<std::string>;

    table.update(reference, true, false, false, false);
    EXPECT_EQ(table.getColumnNames(), (Names{"Limit", "Mode"}));
    table.update(reference, true, true, false, false);
    EXPECT_EQ(table.getColumnNames(), (Names{"Limit", "Mode", "Name"}));
    table.update(reference, false, false, false, false);
    EXPECT_EQ(table.getColumnNames(), (Names{"Mode", "Name"}));
    EXPECT_EQ(rows(), (std::vector{1, 2}));
    table.update(reference, true, true, true, true);
    EXPECT_EQ(rows(), (std::vector{1, 2, 3}));
    EXPECT_EQ(cell(1, "Mode").getStrVal_copy(), "Off");
    EXPECT_EQ(table.getRows(1)->getDataItem("Name"), nullptr);
    EXPECT_NE(table.getRows(3)->getDataItem("Name"), nullptr);
    EXPECT_NE(table.getColumns("Mode"), reference.getColumns("Mode"));
    expectLogged({"WARN DataTable:update: table=Sensors column=Mode changed. Replacing...",
                  "INFO DataTable:update: adding rowId=1",
                  "INFO DataTable:newRow: adding to rowId=1 col=Mode val=0 str=Off",
                  "INFO DataTable:update: adding rowId=3"});
}

TEST_F(DataTableTest, IsReadBackAsItWasWritten)
{
    DataTable copy;
    EXPECT_EQ(copy.initFromString(kSensors), FC_OK);
    EXPECT_EQ(text(copy), kSensors);
    EXPECT_EQ(copy.getRows(12)->getState(), STATE_ADDED);

    EXPECT_EQ(copy.initFromString(kSensors), FC_OK);
    EXPECT_EQ(text(copy), kSensors);
}

TEST_F(DataTableTest, RowTextIsReadIntoTheItemsOfTheRow)
{
    addCleanRows({1});
    DataRow& row = *table.getRows(1);
    EXPECT_EQ(row.initFromString("<Row><Item Name=\"Limit\" Value=\"7\" /></Row>"), FC_OK);
    EXPECT_EQ(row.getDataItem("Limit")->getIntVal(), 40);
    EXPECT_EQ(
        row.initFromString("<Row ID=\"1\" ><Item Name=\"Height\" Value=\"7\" /><Item Name=\"x\" />"
                           "<Item Name=\"Limit\" Value=\"7\" /></Row>"),
        FC_NO_SUCH_NAME);
    EXPECT_EQ(row.getDataItem("Limit")->getIntVal(), 7);
    EXPECT_EQ(row.initFromString("<Row ID=\"1\" ><Item Name=\"Mode\" Value=\"Up\" /></Row>"),
              FC_OK);
    EXPECT_FALSE(table.isChanged());
    expectLogged({"ERROR DataRow:initFromString: Not Found tags ID in:\n"
                  "<Row><Item Name=\"Limit\" Value=\"7\" /></Row>",
                  "ERROR DataRow:initFromString: No item in row with ID=Height",
                  "ERROR DataItem:initValue: item=Mode ENUM not found text=Up"});
}

TEST_F(DataTableTest, ReadingReportsWhatIsWrongAndTakesTheRest)
{
    EXPECT_EQ(table.initFromString("<Table><Columns>"), FC_BODY_ERROR);
    EXPECT_EQ(table.initFromString("<Table Name=\"T\"><Row ID=\"3\" ></Row>"), FC_OK);
    EXPECT_EQ(table.initFromString("<Table Name=\"T\"><Columns><Column Name=\"a\" /></Columns>"
                                   "<Row ID=\"4\" ><Item Name=\"b\" Value=\"\" /></Row></Table>"),
              FC_BODY_ERROR | FC_NO_SUCH_NAME);
    EXPECT_EQ(rows(), (std::vector{3, 4}));
    EXPECT_EQ(table.getId(), "T");
    expectLogged(
        {"ERROR DataTable:initFromString: Not found Name in:<Table><Columns>",
         "ERROR DataTable:initFromString: Not found Columns in:<Table Name=\"T\"><Row ID=\"3\" "
         "></Row>",
         "ERROR DataColumn:initFromString: Not Found tags Access in:\n<Column Name=\"a\" />",
         "ERROR DataTable:initFromString: error in column fcode=10002",
         "ERROR DataRow:initFromString: No item in row with ID=b",
         "ERROR DataTable:initFromString: error in row=4 fcode10008"});
}

TEST_F(DataTableTest, TextMayNotAddFarMoreCellsThanItHolds)
{
    std::string columns = "<Table Name=\"t\"><Columns>";
    for (int i = 0; i < 1000; ++i)
        columns +=
            "<Column Name=\"" + std::to_string(i) + "\" Access=\"RW\" Type=\"int\" Value=\"1\" />";
    columns += "</Columns>";
    DataTable large; // more cells than a short text may add, had these rows any
    for (int i = 0; i < 1200; ++i)
        large.appendNewRow();
    EXPECT_EQ(FC_OK, large.initFromString(columns + "<Row ID=\"5000\" />"));

    std::string greedy = columns;
    for (int i = 1; i < 5000; ++i)
        greedy += "<Row ID=\"" + std::to_string(i) + "\" />";
    log.clear();
    DataTable refused;
    EXPECT_EQ(FC_BODY_ERROR, refused.initFromString(greedy));
    EXPECT_LT(refused.getRowsNum(), 2000);
    expectLogged({"ERROR DataTable:initFromString: too many cells, rows=" +
                  std::to_string(refused.getRowsNum()) + " columns=1000"});
}

} // namespace
