// The data holder's work on tables, here, and TableHolder, which serves them to peers.

#include "DataColumn.h"
#include "DataSet.h"
#include "DataTable.h"
#include "Device.h"
#include "ScriptedPeer.h"
#include "TableHolder.h"

#include <functional>
#include <gmock/gmock.h>
#include <sstream>
#include <thread>
#include <tuple>

namespace
{

using testing::ElementsAre;

constexpr char kFirst[] = R"(<DataSet ID="First" Version="1"><Table Name="Fans"><Columns>
    <Column Name="Speed" Access="RW" Type="int" Value="5" />
    <Column Name="Mode" Access="WO" Type="enum" Value="1" ><Value Index="1" Text="Auto" />
        <Value Index="2" Text="Full" /></Column>
    <Column Name="Hours" Access="RO" Type="int" Value="0" /></Columns>
    <Row ID="1" ><Item Name="Speed" Value="10" /></Row>
    <Row ID="3" ><Item Name="Speed" Value="30" /></Row></Table></DataSet>)";

/// An application that keeps tables; its store is of no concern.
class Tables : public TableHolder
{
public:
    Tables()
    {
        for (auto* const dataSet : {&mFirst, &mSecond}) {
            EXPECT_EQ(FC_OK, dataSet->initFromString(kFirst));
            EXPECT_EQ(FC_OK, dataSet->acceptChanges());
        }
        mSecond.setId("Second");
        addDataSet("b", &mSecond);
        addDataSet("a", &mFirst);
        addDataSet("a", nullptr); // changes nothing
    }

    Fcodes doHandle(MessageEvent*) override { return FC_OK; }

    DataTable* findDataTable(const std::string& table) override
    {
        ++mLookUps;
        return table == "Alone" ? &mAlone : TableHolder::findDataTable(table);
    }

    DataSet mFirst;
    DataSet mSecond;
    DataTable mAlone;
    int mLookUps = 0;
};

class DataHolderTablesTest : public testing::Test
{
protected:
    /// A cell of row 1: as integers and as texts, committed and pending; then its state.
    std::string cell(const char* item)
    {
        int number = -1, newNumber = -1;
        std::string text, newText;
        unsigned state = 99;
        EXPECT_EQ(FC_OK, mHolder.getIntParam("Fans", 1, item, &number) |
                             mHolder.getNewIntParam("Fans", 1, item, &newNumber) |
                             mHolder.getStringParam("Fans", 1, item, &text) |
                             mHolder.getNewStringParam("Fans", 1, item, &newText) |
                             mHolder.getParamState("Fans", 1, item, state));
        return (std::ostringstream()
                << number << ' ' << newNumber << ' ' << text << ' ' << newText << ' ' << state)
            .str();
    }

    LogCapture mLog;
    Tables mHolder;
};

TEST_F(DataHolderTablesTest, TablesComeFromTheFirstDataSetByNameThatHasThem)
{
    EXPECT_EQ(&mHolder.mFirst, mHolder.findDataSetWithTable("Fans"));
    EXPECT_EQ(mHolder.mFirst.getTable("Fans"), mHolder.findDataTable("Fans"));
    EXPECT_EQ(&mHolder.mSecond, mHolder.getDataSet("b"));
    EXPECT_EQ(nullptr, mHolder.getDataSet("c"));
    EXPECT_EQ(FC_OK, mHolder.addColumnToTable("a", "Fans", "New", DataColumn::INT, 0));
    EXPECT_THAT(mHolder.getColumnNames("Fans"), ElementsAre("Speed", "Mode", "Hours"));
    EXPECT_THAT(mHolder.getColumnNames("Pumps"), ElementsAre());

    std::string text;
    int type = 0;
    EXPECT_EQ(FC_OK, mHolder.getDefValue("Fans", "Speed", text) |
                         mHolder.getParamType("Fans", "Mode", type));
    EXPECT_EQ(std::pair(std::string("5"), int{DataColumn::ENUM}), std::pair(text, type));
    EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.getParamType("Fans", "Colour", type));
    EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.getParamType("Pumps", "Speed", type));
    EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.getDefValue("Pumps", "Speed", text));
    EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.getDefValue("Fans", "Colour", text));
    EXPECT_THAT(mLog.entries(), ElementsAre("ERROR DataHolder:getDefValue: No such table=Pumps",
                                            "ERROR DataHolder:getDefValue: No such colId=Colour"));
}

TEST_F(DataHolderTablesTest, CellsHaveACommittedAndAPendingValue)
{
    EXPECT_EQ("10 10 10 10 0", cell("Speed"));
    EXPECT_EQ(FC_OK, mHolder.setStringParam("Fans", 1, "Speed", "12"));
    EXPECT_EQ("10 12 10 12 4", cell("Speed"));
    EXPECT_EQ(FC_OK, mHolder.acceptChanges());
    EXPECT_EQ("12 12 12 12 0", cell("Speed"));

    EXPECT_EQ(FC_OK, mHolder.setIntParam("Fans", 1, "Mode", 2));
    EXPECT_EQ(FC_BAD_VALUE, mHolder.setStringParam("Fans", 1, "Mode", "Off"));
    EXPECT_EQ(FC_OK, mHolder.rollbackChanges());
    EXPECT_EQ("1 2 Auto Auto 0", cell("Mode")); // the pending value stays
    EXPECT_EQ(FC_OK, mHolder.initIntParam("Fans", 1, "Speed", 40));
    EXPECT_EQ(FC_OK, mHolder.initStringParam("Fans", 1, "Mode", "Full"));
    EXPECT_EQ("40 40 40 40 0", cell("Speed"));
    EXPECT_EQ("2 2 Full Full 0", cell("Mode"));
}

TEST_F(DataHolderTablesTest, EachOperationLogsAMissingTableRowOrItemInItsOwnWords)
{
    using In = const std::string&;
    Tables& h = mHolder;
    int n = 7;
    std::string text = "seven";
    unsigned state = 7;
    // The prefix of the lines for table and row (empty: none), and whether an item has its line.
    const std::tuple<std::string, bool, std::function<Fcodes(In, int, In)>> operations[] = {
        // clang-format off
        {"getIntParam", true, [&](In t, int r, In i) { return h.getIntParam(t, r, i, &n); }},
        {"getNewIntParam", true, [&](In t, int r, In i) { return h.getNewIntParam(t, r, i, &n); }},
        {"getStringParam", true, [&](In t, int r, In i) { return h.getStringParam(t, r, i, &text); }},
        {"getNewStringParam", true, [&](In t, int r, In i) { return h.getNewStringParam(t, r, i, &text); }},
        {"getStringParam", false, [&](In t, int r, In i) { return h.setIntParam(t, r, i, 1); }},
        {"", false, [&](In t, int r, In i) { return h.setStringParam(t, r, i, "1"); }},
        {"", false, [&](In t, int r, In i) { return h.initIntParam(t, r, i, 1); }},
        {"", false, [&](In t, int r, In i) { return h.initStringParam(t, r, i, "1"); }},
        {"", false, [&](In t, int r, In i) { return h.getParamState(t, r, i, state); }},
        // clang-format on
    };
    for (const auto& [prefix, namesItem, operation] : operations) {
        EXPECT_EQ(FC_NO_SUCH_NAME, operation("Pumps", 1, "Speed"));
        EXPECT_EQ(FC_NO_SUCH_NAME, operation("Fans", 2, "Speed"));
        EXPECT_EQ(FC_NO_SUCH_NAME, operation("Fans", 1, "Colour"));
        const std::string start = "ERROR DataHolder:" + prefix;
        std::vector<std::string> expected;
        if (!prefix.empty())
            expected = {start + ": No such table=Pumps", start + ": No such rowId=2 in table=Fans"};
        if (namesItem)
            expected.push_back(start + ": No such item=Colour in rowId=1 in table=Fans");
        EXPECT_EQ(expected, mLog.entries());
        mLog.clear();
    }
    EXPECT_EQ(std::tuple(7, "seven", 7u), std::tuple(n, text, state));
}

TEST_F(DataHolderTablesTest, RowsAreMadeWalkedAndRemovedAtOnce)
{
    Tables& h = mHolder;
    EXPECT_THAT((std::vector{h.newRow("Fans", 0), h.newRow("Fans", 9), h.appendNewRow("Fans")}),
                ElementsAre(2, 9, 10));
    const auto walk = [&h](const char* table) {
        return std::vector{h.getRowsNum(table), h.getFirstRowIndex(table),
                           h.getNextRowIndex(table, 1), h.getLastRowIndex(table)};
    };
    EXPECT_THAT(walk("Fans"), ElementsAre(5, 1, 2, 3)); // the newer rows are not accepted yet
    EXPECT_EQ(FC_OK, h.deleteRow("Fans", 1));
    EXPECT_EQ(FC_OK, h.deleteRow("Fans", 77));
    EXPECT_EQ(2, h.getFirstRowIndex("Fans"));
    EXPECT_EQ(FC_OK, h.deleteRow("Fans", 0));
    EXPECT_EQ(0, h.getRowsNum("Fans"));

    EXPECT_EQ(FC_NO_SUCH_NAME, h.deleteRow("Pumps", 0));
    EXPECT_EQ(0, h.newRow("Pumps", 1) + h.appendNewRow("Pumps"));
    EXPECT_THAT(walk("Pumps"), ElementsAre(0, 0, 0, 0));
}

TEST_F(DataHolderTablesTest, ServedTableIsLookedUpOnceAndItsRowIdsAreDecimal)
{
    using Names = std::vector<std::string>;
    std::string text = "untouched";
    Names expectedLog;
    for (const std::string row : {"3x", "", " 3", "+3", "0x3", "3 ", "99999999999", "2"}) {
        EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.getTextParam("", "Fans", "Speed", text, row));
        EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.setTextParam("", "Fans", "Speed", "9", row));
        expectedLog.push_back("ERROR TableHolder:getTextParam: No such rowId=" + row +
                              " in table=Fans");
    }
    EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.getTextParam("", "Fans", "Colour", text, "3"));
    EXPECT_EQ(FC_ACCESS_DENIED, mHolder.getTextParam("", "Fans", "Mode", text, "3"));
    EXPECT_EQ(FC_ACCESS_DENIED, mHolder.setTextParam("", "Fans", "Hours", "1", "3"));
    EXPECT_EQ(FC_BAD_VALUE, mHolder.setTextParam("", "Fans", "Mode", "Off", "3"));
    EXPECT_EQ("untouched", text);
    expectedLog.emplace_back(
        "ERROR TableHolder:getTextParam: No such item=Colour in rowId=3 in table=Fans");
    expectedLog.emplace_back("ERROR DataItem:setValue(str): item=Mode ENUM not found text=Off");
    EXPECT_EQ(expectedLog, mLog.entries());

    mHolder.mLookUps = 0;
    Names rows, columns;
    EXPECT_EQ(FC_OK, mHolder.getTextParam("", "Fans", "Speed", text, "3") |
                         mHolder.setTextParam("", "Fans", "Speed", "31", "3") |
                         mHolder.getInstances("", "Fans", rows) |
                         mHolder.getProperties("", "Fans", columns));
    EXPECT_EQ(std::tuple("30", Names{"1", "3"}, Names{"Speed", "Mode", "Hours"}),
              std::tuple(text, rows, columns));
    for (const auto& [table, dataSet] : {std::pair("Fans", "First"), {"Alone", "Alone"}}) {
        EXPECT_EQ(FC_OK, mHolder.findDataSetWithComponent(text, table));
        EXPECT_EQ(dataSet, text);
    }
    EXPECT_EQ(6, mHolder.mLookUps);
}

TEST_F(DataHolderTablesTest, WhatIsNoTableIsServedFromTheStore)
{
    Tables& h = *new Tables; // its worker never ends
    h.init("tTables");
    writeFile("/tmp/S", R"({"components": {"Pumps": {
        "properties": {"Flow": {"type": "integer"}}, "instances": {"left": {"Flow": 4}}}}})");
    EXPECT_EQ(FC_OK, h.loadDataSet("S", "/tmp/S"));
    std::string dataSet, text;
    std::vector<std::string> rows, columns;
    EXPECT_EQ(FC_OK, h.findDataSetWithComponent(dataSet, "Pumps") |
                         h.getProperties("S", "Pumps", columns) |
                         h.getInstances("S", "Pumps", rows) |
                         h.setTextParam("S", "Pumps", "Flow", "5", "left") |
                         h.getTextParam("S", "Pumps", "Flow", text, "left"));
    EXPECT_EQ("S Flow left 4", dataSet + ' ' + columns.at(0) + ' ' + rows.at(0) + ' ' + text);
    EXPECT_TRUE(h.isChangedProperty("S", "Pumps", "Flow", "left"));
}

TEST(RemoteRowsTest, TheRowIsTheOneThatTheAnswerNames)
{
    LogCapture log;
    RequestingHolder holder;
    ScriptedPeer peer("/tmp/peer");
    const auto command = [](const std::string& id, const std::string& parameters) {
        return "<BODY><Command" + id + " >" + parameters + "</Command></BODY>";
    };
    const std::string row = "<Parameter Name=\"Row\" Value=\"12\" />", id = " ID=\"Add Row\"";
    const std::tuple<Fcodes, std::string, Fcodes, int> cases[] = {
        {FC_OK, command(id, row), FC_OK, 12},        {FC_OK, command(id, ""), FC_OK, 7},
        {FC_OK, command("", row), FC_BODY_ERROR, 7}, {FC_OK, "", FC_OK, 7},
        {FC_LOS, command(id, row), FC_LOS, 7},
    };
    for (const auto& [fcode, body, result, expected] : cases) {
        int answered = 7;
        const std::jthread peers([&] {
            peer.receive();
            peer.answer("ACK", fcode, body);
        });
        EXPECT_EQ(result, holder.requestAddRow("/tmp/peer", "T", 5, answered, 10, 1)) << body;
        EXPECT_EQ(expected, answered) << body;
    }
    int number = 7;
    unlink("/tmp/peer");
    EXPECT_EQ(FC_COMM_ERROR, holder.requestGetIntParam("/tmp/peer", "D", "C", "i", number, "r"));
    EXPECT_EQ(7, number);
}

} // namespace
