#include "store/InstanceFilter.h"

#include <gtest/gtest.h>
#include <utility>

namespace
{

TEST(InstanceFilterTest, TextOperandsCompareAsText)
{
    using Pairs = std::vector<std::pair<const char*, const char*>>; // value, operand
    // clang-format off
    struct Case { const char* condition; Pairs selected, passedOver; };
    const Case cases[] = {
        {"Exists", {{"", ""}}, {}},
        {"Does not exist", {}, {{"", ""}}},
        {"(Text) Contains", {{"abcd", "bc"}}, {{"bc", "abcd"}}},
        {"(Text) Does not contain", {{"abcd", "x"}}, {{"abcd", "d"}}},
        {"(Text) Exactly matches", {{"a", "a"}}, {{"a", "A"}}},
        {"(Text) Does not exactly match", {{"a", "ab"}}, {{"a", "a"}}},
        {"(Text) Is in", {{"d,g", "red,green"}, {"", "red,green"}}, {{"blue", "red,green"}}},
        {"(Text) Is not in", {{"blue", "red,green"}}, {{"re", "red,green"}}},
        {"(Text) Starts with", {{"abc", "ab"}}, {{"a", "ab"}}},
        {"(Text) Does not start with", {{"a", "ab"}}, {{"abc", "ab"}}},
        {"(Text) Ends with", {{"abc", "bc"}}, {{"c", "bc"}}},
        {"(Text) Does not end with", {{"abc", "x"}}, {{"abc", "bc"}, {"c", "xyz"}}},
        {"(Num) Less than", {{"10", "9"}}, {{"9", "10"}}},
        {"(Num) Greater than", {{"9", "10"}}, {{"9", "9"}}},
        {"(Date/time) Less than", {}, {{"1", "2"}}},
        {"(Date/time) Greater than", {}, {{"2", "1"}}},
        {"(Date/time) Equals", {}, {{"1", "1"}}},
        {"(text) contains", {}, {{"a", "a"}}},
    };
    // clang-format on
    const auto check = [](const char* condition, const Pairs& pairs, bool selected) {
        for (const auto& [value, operand] : pairs) {
            SCOPED_TRACE(std::string(condition) + " '" + value + "' '" + operand + "'");
            const Json::Value held(value);
            EXPECT_EQ(selected, InstanceFilter(condition, operand).selects(&held));
            EXPECT_EQ(selected, InstanceFilter(condition, operand).selectsText(value));
        }
    };
    for (const Case& c : cases) {
        check(c.condition, c.selected, true);
        check(c.condition, c.passedOver, false);
    }
}

TEST(InstanceFilterTest, IntegerOperandsSelectOnlyIntegersAndListsHaveNoText)
{
    const Json::Value nine(9);
    const Json::Value text("9");
    const Json::Value big(Json::Int64{3000000000});
    const Json::Value list(Json::arrayValue);
    const auto selected = [&](const InstanceFilter& filter) {
        std::string names;
        for (const auto& [name, value] : {std::pair("nine ", &nine),
                                          {"text ", &text},
                                          {"big ", &big},
                                          {"list ", &list},
                                          {"none ", nullptr}})
            names += filter.selects(value) ? name : "";
        return names;
    };
    EXPECT_EQ("nine ", selected({"(Num) Less than", 10}));
    EXPECT_EQ("nine ", selected({"(Num) Greater than", -10}));
    for (const char* condition : {"(Num) Less than", "(Num) Greater than", "Exists",
                                  "Does not exist", "(Text) Exactly matches"})
        EXPECT_EQ("", selected({condition, 9})) << condition;
    EXPECT_EQ("none ", selected({"Does not exist", ""}));
    EXPECT_EQ("nine text big list ", selected({"Exists", ""}));
    EXPECT_EQ("nine text big ", selected({"(Text) Does not contain", "x"}));
}

} // namespace
