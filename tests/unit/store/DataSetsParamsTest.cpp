#include "StoreFixture.h"

namespace
{

constexpr char kTypes[] = R"({
    'C': {'properties': {'Int': {'type': 'integer'}, 'Text': {'type': 'string'},
              'Bool': {'type': 'boolean'}, 'Enum': {'type': 'enum', 'values': [1, 'two', 3, true]},
              'Odd': {'type': ['integer']}, 'Stale': {'type': 'integer'}, 'Bare': {'type': 'enum'},
              'Real': {'type': 'boolean'}},
          'instances': {'k': {'Int': 1, 'Text': 't', 'Bool': false, 'Enum': 1, 'Odd': 4,
              'Stale': '5', 'Bare': 1, 'Free': 7, 'List': [1], 'Real': 2.5, 'Big': 3000000000,
              'Null': null, 'Truth': true}}, 'instance': {'Int': 10}},
    'I': {'properties': {'Int': {'type': 'integer'}}, 'instances': [{'Int': 20}, null, {'Int': 22}]}
})";

class DataSetsParamsTest : public StoreTest
{
protected:
    void SetUp() override { load(kTypes); }

    /// The pending value over the committed one.
    std::string value(const std::string& property)
    {
        std::string held = "?", pending = "?";
        store.getTextParam("D", "C", property, held, "k");
        store.getNewTextParam("D", "C", property, pending, "k");
        return pending + '/' + held;
    }

    template <typename Instance>
    int number(const std::string& component, const Instance& instance)
    {
        int value = -1;
        const Fcodes code = store.getIntParam("D", component, "Int", value, instance);
        EXPECT_EQ(value == -1 ? FC_NO_SUCH_NAME : FC_OK, code);
        return value;
    }
};

TEST_F(DataSetsParamsTest, ReadsConvertAsTheJsonLibraryDoes)
{
    // clang-format off
    struct Case { const char* property; Fcodes intCode, textCode, boolCode; const char* values; };
    // clang-format on
    for (const Case& c : {
             Case{"Int", FC_OK, FC_OK, FC_OK, "1 1 1"},
             Case{"Text", FC_WRONG_TYPE, FC_OK, FC_WRONG_TYPE, "-1 t 1"},
             Case{"Bool", FC_OK, FC_OK, FC_OK, "0 false 0"},
             Case{"Real", FC_OK, FC_OK, FC_OK, "2 2.5 1"},
             Case{"Big", FC_WRONG_TYPE, FC_OK, FC_OK, "-1 3000000000 1"},
             Case{"Null", FC_OK, FC_OK, FC_OK, "0  0"},
             Case{"List", FC_WRONG_TYPE, FC_WRONG_TYPE, FC_WRONG_TYPE, "-1 ? 1"},
             Case{"None", FC_NO_SUCH_NAME, FC_NO_SUCH_NAME, FC_NO_SUCH_NAME, "-1 ? 1"},
         }) {
        SCOPED_TRACE(c.property);
        int number = -1;
        std::string text = "?";
        bool truth = true;
        EXPECT_EQ(c.intCode, store.getIntParam("D", "C", c.property, number, "k"));
        EXPECT_EQ(c.textCode, store.getTextParam("D", "C", c.property, text, "k"));
        EXPECT_EQ(c.boolCode, store.getBoolParam("D", "C", c.property, truth, "k"));
        EXPECT_EQ(c.values, (std::ostringstream() << number << ' ' << text << ' ' << truth).str());
    }
}

TEST_F(DataSetsParamsTest, TheThreeShapesAreAddressedByKeyByIndexAndByTheEmptyKey)
{
    EXPECT_THAT((std::vector{number("C", "k"), number("C", ""), number("I", 2)}),
                testing::ElementsAre(1, 10, 22));
    EXPECT_THAT((std::vector{number("I", -1), number("I", 1), number("I", 3), number("I", "0"),
                             number("I", ""), number("C", 0)}),
                testing::Each(-1));
}

/// Set leaves the result pending, init commits it.
TEST_F(DataSetsParamsTest, ATextIsConvertedToTheTypeOfTheDefinition)
{
    // clang-format off
    struct Case { const char* property; std::string text; Fcodes code; std::string result, inited; };
    // clang-format on
    for (const Case& c : {
             Case{"Text", "new", FC_OK, "new/t", "new/new"},
             Case{"Enum", "two", FC_OK, "two/1", "two/two"},
             Case{"Enum", "true", FC_OK, "true/1", "true/true"},
             Case{"Enum", "four", FC_BAD_VALUE, "1/1", "1/1"},
             Case{"Bare", "1", FC_BAD_VALUE, "1/1", "1/1"},
             Case{"Int", "0x10", FC_OK, "16/1", "16/16"},
             Case{"Int", "017tail", FC_OK, "15/1", "15/15"},
             Case{"Int", "99999999999999999999", FC_OK, "2147483647/1", "2147483647/2147483647"},
             Case{"Int", "-3000000000", FC_OK, "-2147483648/1", "-2147483648/-2147483648"},
             Case{"Bool", "true", FC_OK, "true/false", "true/true"},
             Case{"Bool", "TRUE", FC_OK, "false/false", "false/false"},
             Case{"Stale", "1", FC_WRONG_TYPE, "5/5", "5/5"},
             Case{"Odd", "1", FC_WRONG_TYPE, "4/4", "4/4"},
         }) {
        SCOPED_TRACE(c.property + (" to " + c.text));
        EXPECT_EQ(c.code, store.setTextParam("D", "C", c.property, c.text, "k"));
        EXPECT_EQ(c.result, value(c.property));
        EXPECT_EQ(c.code == FC_OK, store.isChangedProperty("D", "C", c.property, "k"));
        EXPECT_EQ(c.code, store.initTextParam("D", "C", c.property, c.text, "k"));
        EXPECT_EQ(c.inited, value(c.property));
        EXPECT_FALSE(store.isChangedProperty("D", "C", c.property, "k"));
        load(kTypes);
    }
}

TEST_F(DataSetsParamsTest, EachFailureAndConversionIsLogged)
{
    int n = 0;
    std::string text;
    bool truth = false;
    DataSets& s = store;
    const auto expect = [this](Fcodes wanted, Fcodes result, const std::string& start,
                               const std::string& end) {
        EXPECT_EQ(wanted, result) << start << end;
        EXPECT_EQ(Lines{start + ": dataset=D comp=C param=" + end}, logged());
    };
    const Fcodes none = FC_NO_SUCH_NAME;
    const Fcodes type = FC_WRONG_TYPE;
    const std::string wrong = " wrong expected type:";
    // clang-format off
    expect(none, s.getIntParam("D", "C", "X", n, 3), "WARN getIntParam", "X ind=3 No such name.");
    expect(none, s.getTextParam("D", "C", "X", text, "k"), "WARN getTextParam", "X ind=k No such name.");
    expect(type, s.getIntParam("D", "C", "Text", n, "k"), "ERROR getIntParam", "Text ind=k wrong type.");
    expect(type, s.getNewBoolParam("D", "C", "Text", truth, "k"), "ERROR getBoolParam", "Text ind=k wrong type.");
    s.touchDataSet("D");
    expect(type, s.getNewBoolParam("D", "C", "Text", truth, "k"), "ERROR getNewBoolParam", "Text ind=k wrong type.");

    expect(none, s.setIntParam("D", "C", "X", 5, "k"), "ERROR setIntParam", "X val=5 No such name.");
    expect(none, s.setTextParam("D", "C", "X", "v", 3), "ERROR setTextParam", "X val=v ind=3 No such name.");
    expect(none, s.setTextParam("D", "C", "X", "v", "k"), "ERROR setTextParam", "X val=v No such name.");
    expect(none, s.initTextParam("D", "C", "X", "v", 3), "ERROR initTextParam", "X val=v ind=3 No such name.");
    expect(none, s.initTextParam("D", "C", "X", "v", "k"), "ERROR initTextParam", "X val=v No such name.");
    expect(none, s.initBoolParam("D", "C", "X", false, "k"), "ERROR initBoolParam", "X val=0 No such name.");

    expect(FC_BAD_VALUE, s.setIntParam("D", "C", "Enum", 4, "k"), "ERROR setIntParam", "Enum val=4 absent in enum");
    expect(FC_BAD_VALUE, s.initTextParam("D", "C", "Enum", "x", "k"), "ERROR initTextParam", "Enum val=x absent in enum");
    expect(type, s.initBoolParam("D", "C", "Truth", false, "k"), "ERROR initBoolParam", "Truth val=0" + wrong + "null");
    expect(type, s.setIntParam("D", "C", "Bool", 1, "k"), "ERROR setIntParam", "Bool val=1" + wrong + "\"boolean\"");
    expect(type, s.setBoolParam("D", "C", "Real", true, "k"), "ERROR setBoolParam", "Real val=1" + wrong + "\"boolean\"");
    expect(type, s.setBoolParam("D", "C", "Text", true, "k"), "ERROR setBoolParam", "Text val=1" + wrong + "\"string\"");
    expect(type, s.setTextParam("D", "C", "Free", "1", "k"), "ERROR setTextParam", "Free val=1" + wrong + "null");
    expect(type, s.initIntParam("D", "C", "Stale", 1, "k"), "ERROR initIntParam", "Stale val=1" + wrong + "\"integer\"");

    s.setTextParam("D", "C", "Int", "0x1F", "k"); // only init tells what it converted
    expect(FC_OK, s.initTextParam("D", "C", "Int", "0x1F", "k"), "WARN initTextParam", "Int val=0x1F set as int=31");
    expect(FC_OK, s.initTextParam("D", "C", "Bool", "true", "k"), "WARN initTextParam", "Bool val=true set as bool=1");
    expect(FC_OK, s.initTextParam("D", "C", "Int", "x", "k"), "WARN initTextParam", "Int val=x set as int=0");
    // clang-format on
}

TEST_F(DataSetsParamsTest, AWriteThatDoesNotFitTheWorkingCopyIsRefused)
{
    store.touchComponent("D", "I");
    load("{'I': {'properties': {'Int': {'type': 'integer'}}, 'instances': {'k': {'Int': 1}}}}");
    EXPECT_EQ(FC_WRONG_TYPE, store.setIntParam("D", "I", "Int", 2, "k"));
    expectEach(FC_OK, {store.initIntParam("D", "I", "Int", 3, "k"), store.commit()});
    EXPECT_EQ(3, number("I", "k"));
}

} // namespace
