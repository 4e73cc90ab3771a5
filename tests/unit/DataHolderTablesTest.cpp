// The data holder's work on tables, here, and TableHolder, which serves them to peers.

#include "DataColumn.h"
#include "DataSet.h"
#include "DataTable.h"
#include "LogCapture.h"
#include "MessageHeader.h"
#include "TableHolder.h"

#include <functional>
#include <gmock/gmock.h>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kFirst[] = R"(<DataSet ID="First" Version="1"><Table Name="Fans"><Columns>
    <Column Name="Speed" Access="RW" Type="int" Value="5" />
    <Column Name="Mode" Access="RW" Type="enum" Value="1" ><Value Index="1" Text="Auto" />
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

    DataSet mFirst;
    DataSet mSecond;
};

class DataHolderTablesTest : public testing::Test
{
protected:
    LogCapture mLog;
    Tables mHolder;
};

TEST_F(DataHolderTablesTest, TablesComeFromTheFirstDataSetByNameThatHasThem)
{
    EXPECT_EQ(&mHolder.mFirst, mHolder.findDataSetWithTable("Fans"));
    EXPECT_EQ(mHolder.mFirst.getTable("Fans"), mHolder.findDataTable("Fans"));
    EXPECT_EQ(nullptr, mHolder.findDataTable("Pumps"));
    EXPECT_EQ(&mHolder.mSecond, mHolder.getDataSet("b"));
    EXPECT_EQ(nullptr, mHolder.getDataSet("c"));
    EXPECT_THAT(mHolder.getColumnNames("Fans"), ElementsAre("Speed", "Mode", "Hours"));
    EXPECT_THAT(mHolder.getColumnNames("Pumps"), IsEmpty());
    EXPECT_EQ(FC_OK, mHolder.addColumnToTable("a", "Fans", "New", DataColumn::INT, 0));
    EXPECT_EQ(3u, mHolder.getColumnNames("Fans").size());

    std::string text;
    int type = 0;
    EXPECT_EQ(FC_OK, mHolder.getDefValue("Fans", "Speed", text));
    EXPECT_EQ("5", text);
    EXPECT_EQ(FC_OK, mHolder.getParamType("Fans", "Mode", type));
    EXPECT_EQ(DataColumn::ENUM, type);
    EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.getParamType("Fans", "Colour", type));
    EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.getDefValue("Pumps", "Speed", text));
    EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.getDefValue("Fans", "Colour", text));
    EXPECT_THAT(mLog.entries(), ElementsAre("ERROR DataHolder:getDefValue: No such table=Pumps",
                                            "ERROR DataHolder:getDefValue: No such colId=Colour"));
}

TEST_F(DataHolderTablesTest, CellsHaveACommittedAndAPendingValue)
{
    int number = 0;
    std::string text;
    unsigned state = 9;
    EXPECT_EQ(FC_OK, mHolder.setStringParam("Fans", 1, "Speed", "12"));
    EXPECT_EQ(FC_OK, mHolder.getIntParam("Fans", 1, "Speed", &number));
    EXPECT_EQ(10, number);
    EXPECT_EQ(FC_OK, mHolder.getNewIntParam("Fans", 1, "Speed", &number));
    EXPECT_EQ(12, number);
    EXPECT_EQ(FC_OK, mHolder.getNewStringParam("Fans", 1, "Speed", &text));
    EXPECT_EQ("12", text);
    EXPECT_EQ(FC_OK, mHolder.getParamState("Fans", 1, "Speed", state));
    EXPECT_EQ(4u, state);
    EXPECT_EQ(FC_OK, mHolder.acceptChanges());
    EXPECT_EQ(FC_OK, mHolder.getStringParam("Fans", 1, "Speed", &text));
    EXPECT_EQ("12", text);

    EXPECT_EQ(FC_OK, mHolder.setIntParam("Fans", 1, "Mode", 2));
    EXPECT_EQ(FC_BAD_VALUE, mHolder.setStringParam("Fans", 1, "Mode", "Off"));
    EXPECT_EQ(FC_OK, mHolder.rollbackChanges());
    EXPECT_EQ(FC_OK, mHolder.initIntParam("Fans", 1, "Speed", 40));
    EXPECT_EQ(FC_OK, mHolder.initStringParam("Fans", 1, "Mode", "Full"));
    EXPECT_EQ(FC_OK, mHolder.getIntParam("Fans", 1, "Mode", &number));
    EXPECT_EQ(2, number);
    EXPECT_EQ(FC_OK, mHolder.getParamState("Fans", 1, "Speed", state));
    EXPECT_EQ(0u, state);
}

TEST_F(DataHolderTablesTest, WhatIsMissingIsNamedAsEachOperationDoes)
{
    using Call = std::function<Fcodes(const char*, int, const char*)>;
    int number = 7;
    std::string text = "seven";
    unsigned state = 7;
    const auto call = [](auto operation) { return Call(operation); };
    struct Row {
        const char* prefix; // of the lines for table and row; null: none
        bool namesItem;
        Call operation;
    };
    const Row table[] = {
        {"getIntParam", true,
         call([&](auto t, int r, auto i) { return mHolder.getIntParam(t, r, i, &number); })},
        {"getNewIntParam", true,
         call([&](auto t, int r, auto i) { return mHolder.getNewIntParam(t, r, i, &number); })},
        {"getStringParam", true,
         call([&](auto t, int r, auto i) { return mHolder.getStringParam(t, r, i, &text); })},
        {"getNewStringParam", true,
         call([&](auto t, int r, auto i) { return mHolder.getNewStringParam(t, r, i, &text); })},
        {"getStringParam", false,
         call([&](auto t, int r, auto i) { return mHolder.setIntParam(t, r, i, 1); })},
        {nullptr, false,
         call([&](auto t, int r, auto i) { return mHolder.setStringParam(t, r, i, "1"); })},
        {nullptr, false,
         call([&](auto t, int r, auto i) { return mHolder.initIntParam(t, r, i, 1); })},
        {nullptr, false,
         call([&](auto t, int r, auto i) { return mHolder.initStringParam(t, r, i, "1"); })},
        {nullptr, false,
         call([&](auto t, int r, auto i) { return mHolder.getParamState(t, r, i, state); })},
    };
    for (const Row& row : table) {
        EXPECT_EQ(FC_NO_SUCH_NAME, row.operation("Pumps", 1, "Speed"));
        EXPECT_EQ(FC_NO_SUCH_NAME, row.operation("Fans", 2, "Speed"));
        EXPECT_EQ(FC_NO_SUCH_NAME, row.operation("Fans", 1, "Colour"));
        std::vector<std::string> expected;
        if (row.prefix != nullptr) {
            const std::string start = std::string("ERROR DataHolder:") + row.prefix;
            expected = {start + ": No such table=Pumps", start + ": No such rowId=2 in table=Fans"};
            if (row.namesItem)
                expected.push_back(start + ": No such item=Colour in rowId=1 in table=Fans");
        }
        EXPECT_EQ(expected, mLog.entries());
        mLog.clear();
    }
    EXPECT_EQ(7, number);
    EXPECT_EQ("seven", text);
    EXPECT_EQ(7u, state);
}

TEST_F(DataHolderTablesTest, RowsAreMadeWalkedAndRemovedAtOnce)
{
    EXPECT_EQ(2, mHolder.newRow("Fans", 0));
    EXPECT_EQ(9, mHolder.newRow("Fans", 9));
    EXPECT_EQ(10, mHolder.appendNewRow("Fans"));
    EXPECT_EQ(5, mHolder.getRowsNum("Fans"));
    EXPECT_EQ(1, mHolder.getFirstRowIndex("Fans"));
    EXPECT_EQ(2, mHolder.getNextRowIndex("Fans", 1));
    EXPECT_EQ(3, mHolder.getLastRowIndex("Fans")); // the newer rows are not accepted yet
    EXPECT_EQ(FC_OK, mHolder.deleteRow("Fans", 1));
    EXPECT_EQ(FC_OK, mHolder.deleteRow("Fans", 77));
    EXPECT_EQ(2, mHolder.getFirstRowIndex("Fans"));
    EXPECT_EQ(FC_OK, mHolder.deleteRow("Fans", 0));
    EXPECT_EQ(0, mHolder.getRowsNum("Fans"));

    EXPECT_EQ(FC_NO_SUCH_NAME, mHolder.deleteRow("Pumps", 0));
    EXPECT_EQ(0, mHolder.newRow("Pumps", 1) + mHolder.appendNewRow("Pumps") +
                     mHolder.getFirstRowIndex("Pumps") + mHolder.getNextRowIndex("Pumps", 1) +
                     mHolder.getLastRowIndex("Pumps") + mHolder.getRowsNum("Pumps"));
}

TEST_F(DataHolderTablesTest, PeersReadAndWriteTablesThroughDataRequests)
{
    MessageHeader header;
    header.ID = 5;
    const auto request = [&](const char* type, const std::string& body) {
        MessageHeader answer;
        std::string text;
        header.Type = type;
        mHolder.getDataCommunicator().setDataHolder(&mHolder);
        const Fcodes result = mHolder.getDataCommunicator().treatMsg(header, body, answer, text);
        return std::pair(result, text);
    };
    EXPECT_EQ(std::pair(FC_OK, std::string("<BODY>\n\t<Table Name=\"Fans\" >\n"
                                           "\t\t\t<Row ID=\"1\" >\n"
                                           "\t\t\t\t<Item Name=\"Mode\" Value=\"Auto\" />\n"
                                           "\t\t\t</Row>\n"
                                           "\t\t\t<Row ID=\"3\" >\n"
                                           "\t\t\t\t<Item Name=\"Mode\" Value=\"Auto\" />\n"
                                           "\t\t\t</Row>\n\t</Table>\n</BODY>\n")),
              request("GET", "<BODY><Table Name=\"Fans\" ><Item Name=\"Mode\" /></Table></BODY>"));

    const auto set = [&](const std::string& item, const std::string& value) {
        return request("SET", "<BODY><Table Name=\"Fans\" ><Row ID=\"3\" ><Item Name=\"" + item +
                                  "\" Value=\"" + value + "\" /></Row></Table></BODY>")
            .first;
    };
    std::string text;
    EXPECT_EQ(FC_OK, set("Speed", "77"));
    EXPECT_EQ(FC_OK, mHolder.getNewStringParam("Fans", 3, "Speed", &text));
    EXPECT_EQ("77", text);
    EXPECT_EQ(FC_ACCESS_DENIED, set("Hours", "1"));
    EXPECT_EQ(FC_BAD_VALUE, set("Mode", "Off")); // and what was pending is rolled back
    unsigned state = 9;
    EXPECT_EQ(FC_OK, mHolder.getParamState("Fans", 3, "Speed", state));
    EXPECT_EQ(0u, state);
    EXPECT_EQ(FC_OK, set("Speed", "78"));
    EXPECT_EQ(FC_OK, mHolder.acceptChanges());
    EXPECT_EQ(FC_OK, mHolder.getStringParam("Fans", 3, "Speed", &text));
    EXPECT_EQ("78", text);
}

} // namespace
