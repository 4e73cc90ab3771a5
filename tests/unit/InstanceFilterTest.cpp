#include "InstanceFilter.h"

#include <gtest/gtest.h>

namespace
{

TEST(InstanceFilterTest, TheTextFormComparesAsText)
{
    struct Case {
        const char* condition;
        const char* value;
        const char* operand;
        bool selected;
    };
    for (const Case& c : {
             Case{"Exists", "", "", true},
             Case{"Does not exist", "", "", false},
             Case{"(Text) Contains", "abcd", "bc", true},
             Case{"(Text) Contains", "bc", "abcd", false},
             Case{"(Text) Does not contain", "abcd", "x", true},
             Case{"(Text) Does not contain", "abcd", "d", false},
             Case{"(Text) Exactly matches", "a", "a", true},
             Case{"(Text) Exactly matches", "a", "A", false},
             Case{"(Text) Does not exactly match", "a", "ab", true},
             Case{"(Text) Does not exactly match", "a", "a", false},
             Case{"(Text) Is in", "d,g", "red,green", true},
             Case{"(Text) Is in", "", "red,green", true},
             Case{"(Text) Is in", "blue", "red,green", false},
             Case{"(Text) Is not in", "blue", "red,green", true},
             Case{"(Text) Is not in", "re", "red,green", false},
             Case{"(Text) Starts with", "abc", "ab", true},
             Case{"(Text) Starts with", "a", "ab", false},
             Case{"(Text) Does not start with", "a", "ab", true},
             Case{"(Text) Does not start with", "abc", "ab", false},
             Case{"(Text) Ends with", "abc", "bc", true},
             Case{"(Text) Ends with", "c", "bc", false},
             Case{"(Text) Does not end with", "abc", "x", true},
             Case{"(Text) Does not end with", "abc", "bc", false},
             Case{"(Text) Does not end with", "c", "xyz", false},
             Case{"(Num) Less than", "10", "9", true},
             Case{"(Num) Less than", "9", "10", false},
             Case{"(Num) Greater than", "9", "10", true},
             Case{"(Num) Greater than", "9", "9", false},
             Case{"(Date/time) Less than", "1", "2", false},
             Case{"(Date/time) Greater than", "2", "1", false},
             Case{"(Date/time) Equals", "1", "1", false},
             Case{"(text) contains", "a", "a", false},
             Case{"", "", "", false},
         }) {
        SCOPED_TRACE(std::string(c.condition) + " '" + c.value + "' '" + c.operand + "'");
        const Json::Value value(c.value);
        EXPECT_EQ(c.selected, InstanceFilter(c.condition, c.operand).selects(&value));
        EXPECT_EQ(c.selected, InstanceFilter(c.condition, c.operand).selectsText(c.value));
    }
}

TEST(InstanceFilterTest, TheIntegerFormKnowsOnlyTheNumericConditions)
{
    const Json::Value nine(9);
    EXPECT_TRUE(InstanceFilter("(Num) Less than", 10).selects(&nine));
    EXPECT_FALSE(InstanceFilter("(Num) Less than", 9).selects(&nine));
    EXPECT_TRUE(InstanceFilter("(Num) Greater than", -10).selects(&nine));
    EXPECT_FALSE(InstanceFilter("(Num) Greater than", 9).selects(&nine));

    const Json::Value text("9");
    const Json::Value tooBig(Json::Int64{3000000000});
    EXPECT_FALSE(InstanceFilter("(Num) Less than", 10).selects(&text));
    EXPECT_FALSE(InstanceFilter("(Num) Greater than", 10).selects(&tooBig));
    for (const char* condition : {"Exists", "Does not exist", "(Text) Exactly matches"}) {
        EXPECT_FALSE(InstanceFilter(condition, 9).selects(&nine)) << condition;
        EXPECT_FALSE(InstanceFilter(condition, 9).selects(nullptr)) << condition;
    }
}

TEST(InstanceFilterTest, AMissingValueOnlyDoesNotExistAndAnUnprintableOneOnlyExists)
{
    const Json::Value list(Json::arrayValue);
    EXPECT_TRUE(InstanceFilter("Does not exist", "").selects(nullptr));
    EXPECT_FALSE(InstanceFilter("Exists", "").selects(nullptr));
    EXPECT_FALSE(InstanceFilter("(Text) Does not contain", "x").selects(nullptr));
    EXPECT_TRUE(InstanceFilter("Exists", "").selects(&list));
    EXPECT_FALSE(InstanceFilter("Does not exist", "").selects(&list));
    EXPECT_FALSE(InstanceFilter("(Text) Does not contain", "x").selects(&list));
}

} // namespace
