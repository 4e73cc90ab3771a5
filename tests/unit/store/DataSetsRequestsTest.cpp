#include "StoreFixture.h"
#include "store/RequestText.h"

#include <gmock/gmock.h>

namespace
{

using testing::ElementsAre;

constexpr char kDocument[] = R"({
    'K': {
        'properties': {'Int': {'type': 'integer', 'access': 'RW'}, 'Text': {'type': 'string'},
                       'Enum': {'type': 'enum', 'values': [1, 'two']}, 'Bare': {'type': 'enum'},
                       'Fixed': {'type': 'integer', 'access': 'RO'}, 'Bool': {'type': 'boolean'},
                       'Stale': {'type': 'integer'}, 'Undone': {'type': 'integer'}},
        'instances': {
            'a': {'Int': 1, 'Text': 'x', 'Enum': 1, 'Bare': 1, 'Fixed': 5, 'Bool': false,
                  'Stale': '7', 'Free': 9},
            'b': {'Int': 2, 'Text': 'y'}, 'five': 5
        }
    },
    'I': {'properties': {'Int': {'type': 'integer'}}, 'instances': [{'Int': 10}, {'Int': 11}, null]},
    'S': {'properties': {'Int': {'type': 'integer'}}, 'instance': {'Int': 20}},
    'N': {'instances': 5}
})";

struct Operation {
    const char* name;
    Fcodes (DataSets::*call)(const Json::Value&, Json::Value&);
};

constexpr Operation kSet = {"setParams", &DataSets::setParams};
constexpr Operation kGet = {"getParams", &DataSets::getParams};
constexpr Operation kFetchNames = {"fetchPropertyNames", &DataSets::fetchPropertyNames};
constexpr Operation kFetchKeys = {"fetchComponentKeys", &DataSets::fetchComponentKeys};

class DataSetsRequestsTest : public StoreTest
{
protected:
    void SetUp() override { load(kDocument); }

    /// Asks for the components; checks how the reply ends, and that each line begins with the
    /// operation and the request. The components of the reply come back.
    std::string ask(const Operation& operation, const std::string& components, Fcodes wanted)
    {
        return askWhole(operation, "{'dataset': 'D', 'components': " + components + "}", wanted);
    }

    std::string askWhole(const Operation& operation, const std::string& request, Fcodes wanted)
    {
        logged();
        reply = parsed(request); // a reply may take the place of its request
        EXPECT_EQ(wanted, (store.*operation.call)(reply, reply));
        EXPECT_EQ(Json::Value(static_cast<Json::UInt>(wanted)), reply["fcode"]);
        EXPECT_EQ(Json::Value(gFcodeString.at(wanted)), reply["description"]);

        const std::string start = "ERROR " + std::string(operation.name) + ": " + json(request);
        lines.clear();
        for (const std::string& line : logged()) {
            EXPECT_THAT(line, testing::StartsWith(start));
            lines += (lines.empty() ? "" : ";") + line.substr(std::min(line.size(), start.size()));
        }
        return compact(std::as_const(reply)["components"]);
    }

    void set(const std::string& components, Fcodes wanted)
    {
        ask(kSet, components, wanted);
        EXPECT_EQ(2u, reply.size());
    }

    Json::Value reply;
    std::string lines; ///< what follows the request in the lines, parted by semicolons
};

TEST_F(DataSetsRequestsTest, GetParamsAnswersWhatItFindsAndLogsTheRest)
{
    const char* const all = R"({'I': {'instances': [{'Int': 10}, {'Int': 11}, null]},
        'K': {'instances': {'a': {'Int': 1, 'Text': 'x', 'Enum': 1, 'Bare': 1, 'Fixed': 5,
              'Bool': false, 'Stale': '7', 'Free': 9}, 'b': {'Int': 2, 'Text': 'y'}, 'five': 5}},
        'N': {'instances': 5}, 'S': {'instances': []}})";
    // clang-format off
    struct Case { const char* components; Fcodes code; const char *answer, *lines; };
    // clang-format on
    for (const Case& c : {
             Case{"{}", FC_OK, all, ""},
             Case{"null", FC_OK, all, ""},
             Case{"{'I': {'rows': [1, {'index': 0}], 'properties': ['Int']},"
                  " 'K': {'rows': ['b', {'index': 'a', 'properties': ['Text']}],"
                  " 'properties': ['Int', 'Text']}}",
                  FC_OK,
                  "{'I': {'rows': [{'index': 1, 'properties': {'Int': 11}},"
                  " {'index': 0, 'properties': {'Int': 10}}]},"
                  " 'K': {'instances': {'b': {'Int': 2, 'Text': 'y'}, 'a': {'Text': 'x'}}}}",
                  ""},
             Case{"{'I': {'rows': [1, 2]}, 'K': {'rows': ['five', {'index': 'b', 'properties': "
                  "[]}]}}",
                  FC_OK,
                  "{'I': {'rows': [{'Int': 11}, null]}, 'K': {'instances': {'b': {}, 'five': 5}}}",
                  ""},
             Case{"{'I': null, 'K': {'properties': ['Int']}}", FC_NO_SUCH_NAME,
                  "{'I': {'instances': [{'Int': 10}, {'Int': 11}, null]},"
                  " 'K': {'instances': {'a': {'Int': 1}, 'b': {'Int': 2}, 'five': {}}}}",
                  " comp=K instances rowKey=five no param=Int"},
             Case{"{'X': {}, 'I': {'rows': [1]}}", FC_NO_SUCH_NAME,
                  "{'I': {'rows': [{'Int': 11}]}}", " No such component=X"},
             Case{"{'I': {'rows': 1}, 'X': {}}", FC_NO_SUCH_NAME, "{}",
                  " rows is not an array; No such component=X"},
             Case{"{'I': {'rows': [0], 'properties': {}}}", FC_BODY_ERROR, "{}",
                  " properties is not an array"},
             Case{"{'I': 5}", FC_BODY_ERROR, "{}", " comp=I is not an object"},
             Case{"[1]", FC_BODY_ERROR, "{}", " components is not an object"},
             Case{"{'I': {'rows': [0, 1.5, {'index': []}, [0]], 'properties': [7]}}", FC_BODY_ERROR,
                  "{'I': {'rows': [{'index': 0}]}}",
                  " properties[0] is not a string; rows[1] is not int or string;"
                  " rows[2] is not int or string; rows[3] is not int or string"},
             Case{"{'I': {'rows': [3, -1, 'a', {'index': 0, 'properties': 'Int'}]}}", FC_BODY_ERROR,
                  "{}",
                  " comp=I instances invalid index=3; comp=I instances invalid index=-1;"
                  " values are not objects (by rowKey); properties is not an array"},
             Case{"{'K': {'rows': [0, 'c', 'five'], 'properties': ['Int']}}", FC_NO_SUCH_NAME,
                  "{'K': {'instances': {'five': {}}}}",
                  " comp=K values are not array (by index).; doesn't have member=c;"
                  " comp=K instances rowKey=five no param=Int"},
             Case{"{'I': {'rows': [1], 'properties': ['No', 'Int']}}", FC_NO_SUCH_NAME,
                  "{'I': {'rows': [{'index': 1, 'properties': {'Int': 11}}]}}",
                  " comp=I instances index=1 no param=No"},
             Case{"{'S': {}}", FC_OK, "{}",
                  " No Values in comp=S;"
                  " instances are neither an object(by rowKey), nor an array(by index)"},
             Case{"{'N': {'rows': ['']}}", FC_NO_SUCH_NAME, "{}",
                  " values are not objects (by rowKey);"
                  " instances are neither an object(by rowKey), nor an array(by index)"},
         }) {
        EXPECT_EQ(json(c.answer), ask(kGet, c.components, c.code)) << c.components;
        EXPECT_EQ(c.lines, lines) << c.components;
        EXPECT_EQ("D", reply["dataset"].asString());
        EXPECT_EQ(4u, reply.size());
    }
    EXPECT_EQ(json(all), askWhole(kGet, "{'dataset': 'D'}", FC_OK));
}

TEST_F(DataSetsRequestsTest, RequestWithoutDatasetIsABodyError)
{
    for (const auto& [operation, line] : {std::pair{kGet, " no rowKey=dataset or the dataset"},
                                          std::pair{kFetchNames, " no key=dataset or the dataset"},
                                          std::pair{kFetchKeys, " no key=dataset or the dataset"}})
        for (const char* request :
             {"{'components': {'K': {}}}", "{'dataset': 'E', 'components': {'K': {}}}",
              "{'dataset': 5, 'components': {'K': {}}}"}) {
            EXPECT_EQ("null", askWhole(operation, request, FC_BODY_ERROR));
            EXPECT_EQ(line, lines) << request;
            EXPECT_EQ(2u, reply.size());
        }
}

TEST_F(DataSetsRequestsTest, FetchingNamesAnswersNoneAndLeavesAMemberInTheDocument)
{
    const auto stored = [this] {
        Json::Value root = storedDocument();
        root.removeMember("components");
        return compact(root);
    };
    const std::string components = committed();
    EXPECT_EQ(json("{'K': {'properties': []}}"),
              ask(kFetchNames, "{'K': 0, 'N': {}, 'X': []}", FC_NO_SUCH_NAME));
    EXPECT_EQ(" comp=N No key=properties; No such component=X", lines);
    EXPECT_EQ(json("{'K': {'properties': null}}"), stored());
    EXPECT_FALSE(reply.isMember("dataset"));

    EXPECT_EQ(json("{'I': {'rows': []}, 'K': {'rows': []}}"),
              ask(kFetchKeys, "{'I': {}, 'K': {}, 'S': {}}", FC_UNAVAILABLE));
    EXPECT_EQ(" comp=I values are not objects (by rowKey); comp=S No key=instances", lines);
    EXPECT_EQ(json("{'K': {'properties': null, 'instances': null}}"), stored());
    EXPECT_EQ(components, committed());
    EXPECT_FALSE(store.isChanged());
}

TEST_F(DataSetsRequestsTest, FetchedNamesAreThoseThatStandBesideTheComponents)
{
    write("/tmp/D.json", R"({'components': {'C': {'properties': {'p': {}}, 'instances': {'k': {}}}},
        'C': {'properties': {'q': 1, 'o': 2}, 'instances': [1]}, 'dataset': 'D'})");
    store.loadDataSet("/tmp/D.json");
    EXPECT_EQ(json("{'C': {'properties': ['o', 'q']}}"), ask(kFetchNames, "{'C': {}}", FC_OK));
    EXPECT_EQ(json("{'C': {'rows': []}}"), ask(kFetchKeys, "{'C': {}}", FC_OK));
}

/// Brings its data up to date when asked, as a store before real hardware does.
class LiveStore : public DataSets
{
public:
    using Text = const std::string&;

    std::vector<std::string> mCalls;

    Fcodes onGetDataset(Text d) override { return called("dataset " + d); }
    Fcodes onGetComponent(Text, Text c) override { return called("component " + c); }
    Fcodes onGetComponentEntry(Text, Text c, Text key) override
    {
        return called("entry " + c + ' ' + key);
    }
    Fcodes onGetComponentEntry(Text, Text c, int index) override
    {
        return called("entry " + c + ' ' + std::to_string(index));
    }
    Fcodes onGetComponentValue(Text, Text c, Text p, Text key) override
    {
        return called("value " + c + ' ' + key + ' ' + p);
    }
    Fcodes onGetComponentValue(Text, Text c, Text p, int index) override
    {
        return called("value " + c + ' ' + std::to_string(index) + ' ' + p);
    }

private:
    Fcodes called(Text call)
    {
        mCalls.push_back(call);
        if (call == "entry I 1")
            throw 1; // of any type
        if (call == "entry K gone")
            removeInstance("D", "K", "gone");
        if (call == "value K a New")
            loadComponent("D", "K", R"({"instances": {"a": {"New": "read"}}})");
        if (call == "value I 0 Int")
            initIntParam("D", "I", "Int", 99, 0);
        return FC_UNAVAILABLE; // is ignored
    }
};

TEST_F(DataSetsRequestsTest, HooksComeJustBeforeEachReadAndMayChangeWhatIsRead)
{
    LiveStore live;
    live.loadComponent("D", "I", R"({"properties": {"Int": {"type": "integer"}},
                                     "instances": [{"Int": 1}, {"Int": 2}]})");
    live.loadComponent("D", "K", R"({"instances": {"a": {"New": 1, "Old": 2}, "gone": {}}})");
    const auto request = parsed(R"({'dataset': 'D', 'components': {
        'I': {'rows': [0], 'properties': ['Int', 'No']},
        'K': {'rows': ['gone', 'a'], 'properties': ['New', 'Old']}}})");
    EXPECT_EQ(FC_NO_SUCH_NAME, live.getParams(request, reply));
    EXPECT_EQ(json(R"({'I': {'rows': [{'index': 0, 'properties': {'Int': 99}}]},
                       'K': {'instances': {'a': {'New': 'read'}}}})"),
              compact(reply["components"]));
    EXPECT_THAT(live.mCalls,
                ElementsAre("dataset D", "component I", "entry I 0", "value I 0 Int", "component K",
                            "entry K gone", "entry K a", "value K a New"));

    live.mCalls.clear();
    EXPECT_EQ(FC_OK, live.getParams(parsed("{'dataset': 'D'}"), reply));
    EXPECT_THAT(live.mCalls, ElementsAre("dataset D", "component I", "component K"));
    logged();
    const auto bad = parsed("{'dataset': 'D', 'components': {'I': {'rows': [0, 1]}}}");
    EXPECT_EQ(FC_UNAVAILABLE, live.getParams(bad, reply));
    EXPECT_EQ(Json::Value("Unavailable"), reply["description"]);
    EXPECT_EQ(Lines{"ERROR getParams: Exc: Couldn't get request parameters=" + compact(bad)},
              logged());
}

TEST_F(DataSetsRequestsTest, SetParamsWritesPendingValuesOfEveryType)
{
    Json::Value wanted = parsed(committed());
    set(R"({'I': {'properties': {'Int': 30}, 'rows': [1, {'index': 0, 'properties': {'Int': 31}}]},
            'K': {'rows': [{'index': 'a', 'properties': {'Text': 'z', 'Enum': 'two', 'Bool': true}},
                           'b'], 'properties': {'Int': -3}}})",
        FC_OK);
    EXPECT_EQ("", lines);
    EXPECT_EQ(compact(wanted), committed());
    EXPECT_TRUE(store.isChangedProperty("D", "K", "Bool", "a"));
    EXPECT_FALSE(store.isChangedProperty("D", "K", "Int", "a"));
    store.commit();
    wanted["I"]["instances"][0]["Int"] = 31;
    wanted["I"]["instances"][1]["Int"] = 30;
    wanted["K"]["instances"]["b"]["Int"] = -3;
    Json::Value& a = wanted["K"]["instances"]["a"];
    a["Text"] = "z";
    a["Enum"] = "two";
    a["Bool"] = true;
    EXPECT_EQ(compact(wanted), committed());
}

TEST_F(DataSetsRequestsTest, ARefusalIsLoggedAndNothingIsWritten)
{
    store.setIntParam("D", "I", "Int", 77, 0);
    const std::string before = committed();
    const auto rows = [](const std::string& text) {
        return "{'I': {'rows': [0], 'properties': {'Int': 1}}, 'K': {'rows': [" + text + "]}}";
    };
    const auto a = [&rows](const std::string& values) {
        return rows("{'index': 'a', 'properties': {'Bool': true, " + values + "}}");
    };
    // clang-format off
    struct Case { std::string components; Fcodes code; std::string line; };
    // clang-format on
    for (const Case& c : std::vector<Case>{
             {a("'Fixed': 6"), FC_ACCESS_DENIED, " comp=K param=Fixed access=RO"},
             {a("'Free': 6"), FC_NO_SUCH_NAME, " comp=K ind=a hasn't param=Free"},
             {a("'Undone': 6"), FC_NO_SUCH_NAME, " comp=K ind=a hasn't param=Undone"},
             {a("'Int': '6'"), FC_WRONG_TYPE, " comp=K param=Int type mismatch"},
             {a("'Int': true"), FC_WRONG_TYPE, " comp=K param=Int type mismatch"},
             {a("'Int': 3000000000"), FC_WRONG_TYPE, " comp=K param=Int type mismatch"},
             {a("'Int': null"), FC_WRONG_TYPE, " comp=K param=Int type mismatch"},
             {a("'Bool': 'true'"), FC_WRONG_TYPE, " comp=K param=Bool type mismatch"},
             {a("'Text': 6"), FC_WRONG_TYPE, " comp=K param=Text type mismatch"},
             {a("'Stale': 6"), FC_WRONG_TYPE, " comp=K param=Stale type mismatch"},
             {a("'Enum': ['two']"), FC_WRONG_TYPE, " comp=K param=Enum type mismatch"},
             {a("'Enum': 2"), FC_BAD_VALUE, " comp=K param=Enum enum mismatch value=2"},
             {a("'Bare': 'x'"), FC_BAD_VALUE, " comp=K param=Bare enum mismatch value=\"x\""},
             {rows("{'index': 'c', 'properties': {}}"), FC_NO_SUCH_NAME, " doesn't have member=c"},
             {rows("{'index': '', 'properties': {}}"), FC_NO_SUCH_NAME, " doesn't have member="},
             {rows("{'index': 0, 'properties': {}}"), FC_NO_SUCH_NAME,
              " comp=K values are not array (by index)."},
             {rows("{'index': 'a'}"), FC_BODY_ERROR,
              " comp=K rows[0] is not an Object || hasn't=index || hasn't=properties"},
             {rows("{'properties': {}}"), FC_BODY_ERROR,
              " comp=K rows[0] is not an Object || hasn't=index || hasn't=properties"},
             {rows("'a'"), FC_BODY_ERROR, " comp=K rows[0] No key=properties"},
             {rows("{'index': 'b', 'properties': {'Int': 4}}, 2.5"), FC_BODY_ERROR,
              " comp=K rows[1] is neither int, nor string"},
             {"{'I': {'rows': [9], 'properties': {}}}", FC_NO_SUCH_NAME,
              " comp=I instances invalid index=9"},
             {"{'I': {'rows': [0], 'properties': [1]}}", FC_BODY_ERROR,
              " comp=I properties is not an object"},
             {"{'I': {'properties': {'Int': 1}}}", FC_BODY_ERROR, " comp=I no array key=rows"},
             {"{'X': {}}", FC_NO_SUCH_NAME, " No such component=X"},
             {"{'N': {}}", FC_NO_SUCH_NAME, " comp=N No key=properties"},
             {"{'S': {}}", FC_NO_SUCH_NAME, " comp=S No key=instances"},
             {"[]", FC_BODY_ERROR, " no key=components"},
         }) {
        set(c.components, c.code);
        EXPECT_EQ(c.line, lines) << c.components;
        int pending = 0;
        store.getNewIntParam("D", "I", "Int", pending, 0);
        EXPECT_EQ(77, pending) << c.components;
        EXPECT_FALSE(store.isChangedComponent("D", "K")) << c.components;
        EXPECT_EQ(before, committed()) << c.components;
    }

    set("{'I': {}, 'K': {'rows': [0], 'properties': {}}, 'S': {}}", FC_NO_SUCH_NAME);
    EXPECT_EQ(" comp=I no array key=rows; comp=K values are not array (by index).;"
              " comp=S No key=instances",
              lines);
    askWhole(kSet, "{'components': {}}", FC_BODY_ERROR);
    EXPECT_EQ(" no key=dataset", lines);
    askWhole(kSet, "{'dataset': 'E'}", FC_NO_SUCH_NAME);
    EXPECT_EQ(" No such dataset=E", lines);
}

TEST_F(DataSetsRequestsTest, AWorkingCopyOfAnotherShapeRefusesTheWholeRequest)
{
    const std::vector<std::pair<const char*, const char*>> shapes = {
        {"K", "{'properties': {}, 'instances': []}"},
        {"K", "{'instances': {'b': 5}}"},
        {"K", "5"},
        {"I", "{'instances': {}}"},
        {"I", "{'instances': [{}, 'x']}"}};
    for (const auto& [component, shape] : shapes) {
        store.rollback();
        load("{'" + std::string(component) + "': " + shape + "}");
        store.touchComponent("D", component);
        load(kDocument);
        set(R"({'I': {'rows': [0, 1], 'properties': {'Int': 1}},
                'K': {'rows': ['b'], 'properties': {'Int': 1}}})",
            FC_WRONG_TYPE);
        EXPECT_THAT(lines, testing::EndsWith(" doesn't fit the working copy"));
        EXPECT_FALSE(store.isChangedProperty("D", "I", "Int", 0)) << shape;
        EXPECT_FALSE(store.isChangedProperty("D", "K", "Int", "b")) << shape;
    }
}

TEST(RequestTextTest, LinesOfALongRequestStopShowingItWhenThePipeIsFull)
{
    Json::Value request;
    for (int row = 0; row < 20000; ++row)
        request.append(row);
    const RequestText text(request);
    std::ostringstream first;
    first << text;
    EXPECT_GT(first.view().size(), 100000u);
    EXPECT_TRUE(first.view().ends_with("19999\n]"));

    std::ostringstream rest;
    for (int line = 0; line < 20000; ++line)
        rest << text << '\n';
    EXPECT_EQ(0u, rest.view().find(first.view()));
    EXPECT_LT(rest.view().size(), 1500000u);
    EXPECT_TRUE(rest.view().ends_with("\n(as above)\n"));
}

} // namespace
