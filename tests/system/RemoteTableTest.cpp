// A table of one process, read and written from another: the requests of the data holder against
// the sample device manager.

#include "Device.h"

#include <gmock/gmock.h>

namespace
{

constexpr char kDevManager[] = "/tmp/sockDev";
constexpr char kTable[] = "SensorTable";

class RemoteTableTest : public testing::Test
{
protected:
    RemoteTableTest() { mDevice.start("DevManager"); }

    Device mDevice;
    RequestingHolder mHolder;
};

TEST_F(RemoteTableTest, CellsAreReadAndWrittenFromAnotherProcess)
{
    int number = 0;
    std::string text;
    EXPECT_EQ(FC_OK, mHolder.requestRemoteIntParam(kDevManager, kTable, 2, "Temperature", number));
    EXPECT_EQ(52, number);
    EXPECT_EQ(FC_OK, mHolder.requestRemoteStringParam(kDevManager, kTable, 1, "Alarm", text));
    EXPECT_EQ("Clear", text);

    // The answer to a write has no body: that is all that may be wrong with it.
    EXPECT_EQ(FC_BODY_ERROR, mHolder.requestSetRemoteIntParam(kDevManager, kTable, 2, "Limit", 90));
    EXPECT_EQ(FC_OK, mHolder.requestRemoteIntParam(kDevManager, kTable, 2, "Limit", number));
    EXPECT_EQ(85, number); // pending until the device manager accepts it
    EXPECT_EQ(FC_OK, mHolder.requestCommand(
                         kDevManager, "<Command ID=\"APPLY_LIMITS\" >\n</Command>\n", text, 10, 1));
    EXPECT_EQ(FC_OK, mHolder.requestRemoteIntParam(kDevManager, kTable, 2, "Limit", number));
    EXPECT_EQ(90, number);
}

TEST_F(RemoteTableTest, WhatCannotBeReadOrWrittenIsRefused)
{
    int number = 7;
    // What is refused is answered with a NACK.
    EXPECT_EQ(FC_HEADER_ERROR,
              mHolder.requestRemoteIntParam(kDevManager, kTable, 9, "Limit", number));
    EXPECT_EQ(7, number);
    EXPECT_EQ(FC_HEADER_ERROR,
              mHolder.requestSetRemoteIntParam(kDevManager, kTable, 1, "Temperature", 0));
    EXPECT_EQ(FC_OK, mHolder.requestRemoteIntParam(kDevManager, kTable, 1, "Temperature", number));
    EXPECT_EQ(38, number);
}

TEST_F(RemoteTableTest, RowRequestsNameTheTableAsNoResponderReadsIt)
{
    int row = 7;
    EXPECT_EQ(FC_BODY_ERROR, mHolder.requestAddRow(kDevManager, kTable, 5, row, 10, 1));
    EXPECT_EQ(FC_BODY_ERROR, mHolder.requestNextRowId(kDevManager, kTable, 1, row, 10, 1));
    EXPECT_EQ(7, row);

    // Named as responders read it, the row is made; its number is not passed back.
    std::string answer = "untouched";
    EXPECT_EQ(FC_OK, mHolder.requestCommand(kDevManager,
                                            "<Command ID=\"Add Row\" >\n"
                                            "\t<Parameter Name=\"Row\" Value=\"5\" />\n"
                                            "\t<Parameter Name=\"Table\" Value=\"SensorTable\" />\n"
                                            "</Command>\n",
                                            answer, 10, 1));
    EXPECT_EQ("untouched", answer);
    EXPECT_EQ(FC_OK, mHolder.requestRemoteIntParam(kDevManager, kTable, 5, "Limit", row));
    EXPECT_EQ(70, row);
}

} // namespace
