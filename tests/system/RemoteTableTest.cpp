// A table of one process, read and written from another: the requests of the data holder against
// the sample device manager.

#include "CfgPaths.h"
#include "Device.h"

#include <gtest/gtest.h>

namespace
{

constexpr char kTable[] = "SensorTable";

class RemoteTableTest : public testing::Test
{
protected:
    RemoteTableTest() { mDevice.start("DevManager"); }

    void expectCell(int expected, int row, const char* item)
    {
        int number = -1;
        EXPECT_EQ(FC_OK, mHolder.requestRemoteIntParam(kDevSocket, kTable, row, item, number));
        EXPECT_EQ(expected, number) << row << ' ' << item;
    }

    Device mDevice;
    RequestingHolder mHolder;
};

TEST_F(RemoteTableTest, CellsAreReadAndWrittenOrRefusedWithANack)
{
    std::string text;
    EXPECT_EQ(FC_OK, mHolder.requestRemoteStringParam(kDevSocket, kTable, 1, "Alarm", text));
    EXPECT_EQ("Clear", text);

    // The answer to a write has no body: that is all that may be wrong with it.
    EXPECT_EQ(FC_BODY_ERROR, mHolder.requestSetRemoteIntParam(kDevSocket, kTable, 2, "Limit", 90));
    expectCell(85, 2, "Limit"); // pending until the device manager accepts it
    EXPECT_EQ(FC_OK, mHolder.command(kDevSocket, "APPLY_LIMITS"));
    expectCell(90, 2, "Limit");

    int number = 7;
    EXPECT_EQ(FC_HEADER_ERROR,
              mHolder.requestRemoteIntParam(kDevSocket, kTable, 9, "Limit", number));
    EXPECT_EQ(7, number);
    EXPECT_EQ(FC_HEADER_ERROR,
              mHolder.requestSetRemoteIntParam(kDevSocket, kTable, 1, "Temperature", 0));
    expectCell(38, 1, "Temperature");
}

TEST_F(RemoteTableTest, RowRequestsNameTheTableAsNoResponderReadsIt)
{
    int row = 7;
    EXPECT_EQ(FC_BODY_ERROR, mHolder.requestAddRow(kDevSocket, kTable, 5, row, 10, 1));
    EXPECT_EQ(FC_BODY_ERROR, mHolder.requestNextRowId(kDevSocket, kTable, 1, row, 10, 1));
    EXPECT_EQ(7, row);

    // Named as responders read it, the row is made.
    EXPECT_EQ(FC_OK, mHolder.command(kDevSocket, "Add Row", {{"Row", "5"}, {"Table", kTable}}));
    expectCell(70, 5, "Limit");
}

} // namespace
