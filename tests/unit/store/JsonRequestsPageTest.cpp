// The examples of docs/json-requests.md, taken from the page when the tests are built.

#include "DataSetsFactory.h"
#include "LogCapture.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <memory>

#undef assert
#define assert(...) EXPECT_TRUE((__VA_ARGS__)) << "docs/json-requests.md"

TEST(JsonRequestsPageTest, ExamplesDoWhatTheyShow)
{
    const LogCapture log;
#include "json-requests-examples.inc"
}
