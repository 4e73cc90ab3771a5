#include "StoreFixture.h"

#include <functional>

namespace
{

constexpr char kTypes[] = R"({
    'C': {
        'properties': {
            'Int': {'type': 'integer'}, 'Text': {'type': 'string'}, 'Bool': {'type': 'boolean'},
            'Enum': {'type': 'enum', 'values': [1, 'two', 3, true]}, 'Odd': {'type': ['integer']},
            'Stale': {'type': 'integer'}, 'Bare': {'type': 'enum'}
        },
        'instances': {
            'k': {'Int': 1, 'Text': 't', 'Bool': false, 'Enum': 1, 'Odd': 4, 'Stale': '5',
                  'Bare': 1, 'Free': 7, 'List': [1], 'Real': 2.5, 'Big': 3000000000, 'Null': null}
        },
        'instance': {'Int': 10, 'Text': 'single'}
    },
    'I': {
        'properties': {'Int': {'type': 'integer'}, 'Text': {'type': 'string'}},
        'instances': [{'Int': 20, 'Text': 'a'}, null, {'Int': 22, 'Text': 'c'}]
    }
})";

class DataSetsParamsTest : public StoreTest
{
protected:
    void SetUp() override { load(kTypes); }

    std::string now(const std::string& property, const std::string& key = "k")
    {
        std::string value = "?";
        store.getTextParam("D", "C", property, value, key);
        return value;
    }

    std::string pending(const std::string& property, const std::string& key = "k")
    {
        std::string value = "?";
        store.getNewTextParam("D", "C", property, value, key);
        return value;
    }
};

TEST_F(DataSetsParamsTest, ReadersConvertWhatTheLibraryConverts)
{
    struct Case {
        const char* property;
        Fcodes intCode;
        int intValue;
        Fcodes textCode;
        const char* textValue;
        Fcodes boolCode;
        bool boolValue;
    };
    for (const Case& c : {
             Case{"Int", FC_OK, 1, FC_OK, "1", FC_OK, true},
             Case{"Text", FC_WRONG_TYPE, -1, FC_OK, "t", FC_WRONG_TYPE, true},
             Case{"Bool", FC_OK, 0, FC_OK, "false", FC_OK, false},
             Case{"Real", FC_OK, 2, FC_OK, "2.5", FC_OK, true},
             Case{"Big", FC_WRONG_TYPE, -1, FC_OK, "3000000000", FC_OK, true},
             Case{"Null", FC_OK, 0, FC_OK, "", FC_OK, false},
             Case{"List", FC_WRONG_TYPE, -1, FC_WRONG_TYPE, "?", FC_WRONG_TYPE, true},
             Case{"None", FC_NO_SUCH_NAME, -1, FC_NO_SUCH_NAME, "?", FC_NO_SUCH_NAME, true},
         }) {
        SCOPED_TRACE(c.property);
        int number = -1;
        std::string text = "?";
        bool truth = true;
        EXPECT_EQ(c.intCode, store.getIntParam("D", "C", c.property, number, "k"));
        EXPECT_EQ(c.intValue, number);
        EXPECT_EQ(c.textCode, store.getTextParam("D", "C", c.property, text, "k"));
        EXPECT_EQ(c.textValue, text);
        EXPECT_EQ(c.boolCode, store.getBoolParam("D", "C", c.property, truth, "k"));
        EXPECT_EQ(c.boolValue, truth);
    }
}

TEST_F(DataSetsParamsTest, TheThreeShapesAreAddressedByKeyByIndexAndByTheEmptyKey)
{
    int value = 0;
    EXPECT_EQ(FC_OK, store.getIntParam("D", "C", "Int", value, "k"));
    EXPECT_EQ(1, value);
    EXPECT_EQ(FC_OK, store.getIntParam("D", "C", "Int", value, ""));
    EXPECT_EQ(10, value);
    EXPECT_EQ(FC_OK, store.getIntParam("D", "I", "Int", value, 2));
    EXPECT_EQ(22, value);
    for (const int index : {-1, 1, 3})
        EXPECT_EQ(FC_NO_SUCH_NAME, store.getIntParam("D", "I", "Int", value, index)) << index;
    for (const char* key : {"0", ""})
        EXPECT_EQ(FC_NO_SUCH_NAME, store.getIntParam("D", "I", "Int", value, key)) << key;
    EXPECT_EQ(FC_NO_SUCH_NAME, store.getIntParam("D", "C", "Int", value, 0));
}

/// What each writer makes of each type: set leaves the result pending, init commits it.
TEST_F(DataSetsParamsTest, WritersCheckTheDefinitionAndTheValueHeld)
{
    using Write = std::function<Fcodes(DataSets&, const std::string&, bool)>;
    const auto number = [](int v) -> Write {
        return [v](DataSets& s, const std::string& p, bool init) {
            return init ? s.initIntParam("D", "C", p, v, "k") : s.setIntParam("D", "C", p, v, "k");
        };
    };
    const auto text = [](const std::string& v) -> Write {
        return [v](DataSets& s, const std::string& p, bool init) {
            return init ? s.initTextParam("D", "C", p, v, "k")
                        : s.setTextParam("D", "C", p, v, "k");
        };
    };
    const auto truth = [](bool v) -> Write {
        return [v](DataSets& s, const std::string& p, bool init) {
            return init ? s.initBoolParam("D", "C", p, v, "k")
                        : s.setBoolParam("D", "C", p, v, "k");
        };
    };
    struct Case {
        const char* property;
        Write write;
        Fcodes code;
        const char* result; // as text; null: unchanged
    };
    for (const Case& c : {
             Case{"Int", number(-7), FC_OK, "-7"},
             Case{"Enum", number(3), FC_OK, "3"},
             Case{"Enum", number(4), FC_BAD_VALUE, nullptr},
             Case{"Bare", number(1), FC_BAD_VALUE, nullptr},
             Case{"Bool", number(1), FC_WRONG_TYPE, nullptr},
             Case{"Stale", number(1), FC_WRONG_TYPE, nullptr},
             Case{"Odd", number(1), FC_WRONG_TYPE, nullptr},
             Case{"Free", number(1), FC_WRONG_TYPE, nullptr},
             Case{"None", number(1), FC_NO_SUCH_NAME, nullptr},
             Case{"Text", text("new"), FC_OK, "new"},
             Case{"Enum", text("two"), FC_OK, "two"},
             Case{"Enum", text("true"), FC_OK, "true"},
             Case{"Enum", text("four"), FC_BAD_VALUE, nullptr},
             Case{"Int", text("0x10"), FC_OK, "16"},
             Case{"Int", text("017tail"), FC_OK, "15"},
             Case{"Int", text("abc"), FC_OK, "0"},
             Case{"Int", text("99999999999999999999"), FC_OK, "2147483647"},
             Case{"Int", text("-3000000000"), FC_OK, "-2147483648"},
             Case{"Bool", text("true"), FC_OK, "true"},
             Case{"Bool", text("TRUE"), FC_OK, "false"},
             Case{"Stale", text("1"), FC_WRONG_TYPE, nullptr},
             Case{"Bool", truth(true), FC_OK, "true"},
             Case{"Text", truth(true), FC_WRONG_TYPE, nullptr},
             Case{"Enum", truth(true), FC_WRONG_TYPE, nullptr},
         }) {
        load(kTypes);
        const std::string before = now(c.property);
        const std::string after = c.result == nullptr ? before : c.result;
        SCOPED_TRACE(std::string(c.property) + " to " + after);
        EXPECT_EQ(c.code, c.write(store, c.property, false));
        EXPECT_EQ(before, now(c.property));
        EXPECT_EQ(after, pending(c.property));
        EXPECT_EQ(c.result != nullptr, store.isChangedProperty("D", "C", c.property, "k"));

        EXPECT_EQ(c.code, c.write(store, c.property, true));
        EXPECT_EQ(after, now(c.property));
        EXPECT_FALSE(store.isChangedProperty("D", "C", c.property, "k"));
        store.rollback();
    }
}

TEST_F(DataSetsParamsTest, EachFailureHasItsLine)
{
    int number = 0;
    std::string text;
    bool truth = false;
    DataSets& s = store;
    const auto expectLine = [this](Fcodes, const std::string& line) {
        EXPECT_EQ(Lines{line}, logged());
    };

    expectLine(s.getIntParam("D", "C", "X", number, 3),
               "WARN getIntParam: dataset=D comp=C param=X ind=3 No such name.");
    expectLine(s.getTextParam("D", "C", "X", text, "k"),
               "WARN getTextParam: dataset=D comp=C param=X ind=k No such name.");
    expectLine(s.getIntParam("D", "C", "Text", number, "k"),
               "ERROR getIntParam: dataset=D comp=C param=Text ind=k wrong type.");
    expectLine(s.getNewBoolParam("D", "C", "Text", truth, "k"),
               "ERROR getBoolParam: dataset=D comp=C param=Text ind=k wrong type.");
    s.touchDataSet("D");
    expectLine(s.getNewBoolParam("D", "C", "Text", truth, "k"),
               "ERROR getNewBoolParam: dataset=D comp=C param=Text ind=k wrong type.");

    expectLine(s.setIntParam("D", "C", "X", 5, "k"),
               "ERROR setIntParam: dataset=D comp=C param=X val=5 No such name.");
    expectLine(s.setTextParam("D", "C", "X", "v", 3),
               "ERROR setTextParam: dataset=D comp=C param=X val=v ind=3 No such name.");
    expectLine(s.setTextParam("D", "C", "X", "v", "k"),
               "ERROR setTextParam: dataset=D comp=C param=X val=v No such name.");
    expectLine(s.initTextParam("D", "C", "X", "v", 3),
               "ERROR initTextParam: dataset=D comp=C param=X val=v ind=3 No such name.");
    expectLine(s.initTextParam("D", "C", "X", "v", "k"),
               "ERROR initTextParam: dataset=D comp=C param=X val=v No such name.");
    expectLine(s.initBoolParam("D", "C", "X", false, "k"),
               "ERROR initBoolParam: dataset=D comp=C param=X val=0 No such name.");

    expectLine(s.setIntParam("D", "C", "Enum", 4, "k"),
               "ERROR setIntParam: dataset=D comp=C param=Enum val=4 absent in enum");
    expectLine(s.initTextParam("D", "C", "Enum", "x", "k"),
               "ERROR initTextParam: dataset=D comp=C param=Enum val=x absent in enum");
    expectLine(s.setBoolParam("D", "C", "Text", true, "k"),
               "ERROR setBoolParam: dataset=D comp=C param=Text val=1 "
               "wrong expected type:\"string\"");
    expectLine(s.setTextParam("D", "C", "Free", "1", "k"),
               "ERROR setTextParam: dataset=D comp=C param=Free val=1 wrong expected type:null");
    expectLine(s.initIntParam("D", "C", "Stale", 1, "k"),
               "ERROR initIntParam: dataset=D comp=C param=Stale val=1 "
               "wrong expected type:\"integer\"");
}

TEST_F(DataSetsParamsTest, OnlyInitTextParamTellsWhatItConverted)
{
    store.setTextParam("D", "C", "Int", "0x1F", "k");
    store.setTextParam("D", "C", "Bool", "true", "k");
    store.initTextParam("D", "C", "Text", "plain", "k");
    EXPECT_EQ(Lines{}, logged());
    store.initTextParam("D", "C", "Int", "0x1F", "k");
    store.initTextParam("D", "C", "Bool", "true", "k");
    store.initTextParam("D", "I", "Int", "x", 0);
    EXPECT_EQ((Lines{"WARN initTextParam: dataset=D comp=C param=Int val=0x1F set as int=31",
                     "WARN initTextParam: dataset=D comp=C param=Bool val=true set as bool=1",
                     "WARN initTextParam: dataset=D comp=I param=Int val=x set as int=0"}),
              logged());
}

TEST_F(DataSetsParamsTest, AWriteByIndexGrowsTheWorkingCopyAndCommitsOnlyThatElement)
{
    const std::string before = committed();
    EXPECT_EQ(FC_OK, store.setIntParam("D", "I", "Int", 99, 2));
    EXPECT_TRUE(store.isChangedProperty("D", "I", "Int", 2));
    EXPECT_TRUE(store.isChangedInstance("D", "I", 0));
    EXPECT_FALSE(store.isChangedProperty("D", "I", "Int", 0));
    EXPECT_FALSE(store.isChangedInstance("D", "I", 3));
    EXPECT_EQ(before, committed());

    int value = 0;
    EXPECT_EQ(FC_OK, store.getNewIntParam("D", "I", "Int", value, 0));
    EXPECT_EQ(20, value);
    EXPECT_EQ(FC_OK, store.commit());
    EXPECT_EQ(FC_OK, store.getIntParam("D", "I", "Int", value, 2));
    EXPECT_EQ(99, value);
    EXPECT_EQ(FC_OK, store.initIntParam("D", "I", "Int", 22, 2));
    EXPECT_EQ(before, committed());
}

TEST_F(DataSetsParamsTest, AWriteThatDoesNotFitTheWorkingCopyIsRefused)
{
    store.touchComponent("D", "I");
    load(R"({'I': {'properties': {'Int': {'type': 'integer'}}, 'instances': {'k': {'Int': 1}}}})");
    EXPECT_EQ(FC_WRONG_TYPE, store.setIntParam("D", "I", "Int", 2, "k"));
    EXPECT_EQ(FC_OK, store.initIntParam("D", "I", "Int", 3, "k"));
    EXPECT_EQ(FC_OK, store.commit());
    int value = 0;
    EXPECT_EQ(FC_OK, store.getIntParam("D", "I", "Int", value, "k"));
    EXPECT_EQ(3, value);
}

} // namespace
