#include "MessageText.h"

#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <limits>

namespace
{

constexpr std::size_t npos = std::string::npos;

/// A text, the tag or attribute that is wanted, what is found ("-" for nothing) and from where.
using Finding = std::tuple<std::string, std::string, std::string, std::size_t>;

TEST(MessageTextTest, SegmentsAreFoundByTheRulesOfTheFormat)
{
    const Finding cases[] = {
        {"<Row><A/></Row><Row ID=\"1\" ></Row>", "Row", "<Row ID=\"1\" ></Row>", 0},
        {"x<Item Name=\"a\" Value=\"b\" />y", "Item", "<Item Name=\"a\" Value=\"b\" />", 0},
        {"<Item/>", "Item", "-", 0},
        {"<Items></Items>", "Item", "-", 0},
        {"<Row ID=\"1\" >no end", "Row", "-", 0},
        // The first end tag closes, nested or not.
        {"<Row><Row></Row></Row>", "Row", "<Row><Row></Row>", 0},
        // A ">" in a value ends the start tag; a "/" before it makes it self-closing.
        {"<Item Name=\"/>\" Value=\"b\" />", "Item", "<Item Name=\"/>", 0},
        // What has attributes is preferred, also when it is not an element at all.
        {"<Row>a</Row><Row ", "Row", "-", 0},
        {"<Row>a</Row><Row>b</Row>", "Row", "<Row>b</Row>", 1},
        {"<Row>a</Row>", "Row", "-", 100},
    };
    for (const auto& [text, tag, expected, from] : cases) {
        std::string out = "-";
        const std::size_t end = getSegment(text, from, tag, out);
        EXPECT_EQ(expected, out) << text;
        EXPECT_EQ(expected == "-" ? npos : text.rfind(expected) + expected.size(), end) << text;
    }
}

TEST(MessageTextTest, PropertyValuesAreFoundWithoutWordBoundaryOrEscaping)
{
    const Finding cases[] = {
        {"<Row RowID=\"7\" ID=\"3\" >", "ID", "7", 0},
        {"<Row ID=\"\" >", "ID", "", 0},
        {"ID=\"a\\\"b\"", "ID", "a\\", 0},
        {"ID=\"1\" ID=\"2\"", "ID", "2", 1},
        {"ID =\"1\"", "ID", "-", 0},
        {"ID=\"1", "ID", "-", 0},
        {"ID=\"1\"", "ID", "-", 100},
    };
    for (const auto& [text, name, expected, from] : cases) {
        std::string out = "-";
        const std::size_t end = getPropertyValue(text, from, name, out);
        EXPECT_EQ(expected, out) << text;
        EXPECT_EQ(expected == "-", end == npos) << text;
    }
}

TEST(MessageTextTest, TokensEndAtTheirDelimiterAndABlankMatchesAnyBlank)
{
    std::string out;
    EXPECT_EQ(4u, getToken("a bc\nd\te", 0, "\t", " ", out));
    EXPECT_EQ("bc", out);
    EXPECT_EQ(4u, getToken("<<ab>>", 0, "<<", ">>", out));
    for (const char* text : {"<<xy", "xy>>", ""})
        EXPECT_EQ(npos, getToken(text, 0, "<<", ">>", out));
    EXPECT_EQ(npos, getToken("a b", 9, " ", " ", out));
    EXPECT_EQ("ab", out);
}

TEST(MessageTextTest, NumbersAreReadUpToTheirFirstOtherCharacterAndCutToTheRange)
{
    constexpr int max = std::numeric_limits<int>::max();
    constexpr int min = std::numeric_limits<int>::min();
    const std::pair<std::string, int> cases[] = {
        // clang-format off
        {"12", 12}, {" -7x", -7}, {"", 0}, {"x1", 0},
        {"99999999999", max}, {"-99999999999", min}, {"99999999999999999999999", max},
        // clang-format on
    };
    for (const auto& [text, number] : cases)
        EXPECT_EQ(number, textToInt(text)) << text;
}

TEST(MessageTextTest, WalkOverAllElementsIsLinear)
{
    const auto secondsToWalk = [](int elements) {
        std::string text;
        for (int i = 0; i < elements; ++i)
            text += "<Row></Row>";
        std::chrono::duration<double> best{1e9};
        for (int round = 0; round < 5; ++round) {
            const auto begin = std::chrono::steady_clock::now();
            SegmentIterator walk(text, "Row");
            std::string_view element;
            while (walk.next(element)) {
            }
            best = std::min(best, decltype(best)(std::chrono::steady_clock::now() - begin));
        }
        return best.count();
    };
    EXPECT_GT(40 * secondsToWalk(630), secondsToWalk(6300)); // ten times as long a text
}

TEST(MessageTextTest, OnlyTheBytesThatEndAValueOrAnElementCannotBeSent)
{
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text = "<=> '\n" + std::string(1, static_cast<char>(byte)) + "\"";
        const bool isSendable = std::string("\"<>").find(text[6]) == npos && byte != 0;
        EXPECT_EQ(isSendable ? npos : 3, findUnsendable(std::string_view(text).substr(3, 4)))
            << byte;
    }
    EXPECT_EQ(0, findUnsendable("<=>"));
}

} // namespace
