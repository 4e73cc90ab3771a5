// The examples of docs/table-model.md, taken from the page when the tests are built.

#include "DataObject.h"
#include "DataSet.h"
#include "DataTable.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#undef assert
#define assert(...) EXPECT_TRUE((__VA_ARGS__)) << "docs/table-model.md"

TEST(TableModelPageTest, ExamplesDoWhatTheyShow)
{
    const LogCapture log;
#include "table-model-examples.inc"
}
