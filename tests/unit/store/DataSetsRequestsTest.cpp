#include "StoreFixture.h"
#include "store/RequestText.h"

namespace
{

using testing::ElementsAre;

constexpr char kDocument[] = R"({
    'K': {'properties': {'Int': {'type': 'integer', 'access': 'RW'}, 'Text': {'type': 'string'},
              'Enum': {'type': 'enum', 'values': [1, 'two']}, 'Bare': {'type': 'enum'},
              'Fixed': {'type': 'integer', 'access': 'RO'}, 'Bool': {'type': 'boolean'},
              'Stale': {'type': 'integer'}, 'Undone': {'type': 'integer'}},
          'instances': {'a': {'Int': 1, 'Text': 'x', 'Enum': 1, 'Bare': 1, 'Fixed': 5,
              'Bool': false, 'Stale': '7', 'Free': 9}, 'b': {'Int': 2, 'Text': 'y'}, 'five': 5}},
    'I': {'properties': {'Int': {'type': 'integer'}}, 'instances': [{'Int': 10}, {'Int': 11}, null]},
    'S': {'properties': {'Int': {'type': 'integer'}}, 'instance': {'Int': 20}},
    'N': {'instances': 5}
})";

using Operation = std::pair<const char*, Fcodes (DataSets::*)(const Json::Value&, Json::Value&)>;
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
        EXPECT_EQ(wanted, (store.*operation.second)(reply, reply));
        EXPECT_TRUE(operation != kSet || reply.size() == 2);
        EXPECT_EQ(Json::Value(static_cast<Json::UInt>(wanted)), reply["fcode"]);
        EXPECT_EQ(Json::Value(gFcodeString.at(wanted)), reply["description"]);

        const std::string start = "ERROR " + std::string(operation.first) + ": " + json(request);
        lines.clear();
        for (const std::string& line : logged()) {
            EXPECT_THAT(line, testing::StartsWith(start));
            lines += (lines.empty() ? "" : ";") + line.substr(std::min(line.size(), start.size()));
        }
        return compact(std::as_const(reply)["components"]);
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
    struct Case { Fcodes code; const char *components, *answer, *lines; };
    for (const Case& c : {
        Case{FC_OK, "{}", all, ""},
        Case{FC_OK, "null", all, ""},
        Case{FC_OK, "{'I': {'rows': [1, {'index': 0}], 'properties': ['Int']}, 'K': {'rows': ['b', "
                    "{'index': 'a', 'properties': ['Text']}], 'properties': ['Int', 'Text']}}",
             "{'I': {'rows': [{'index': 1, 'properties': {'Int': 11}}, {'index': 0, 'properties': {'Int': 10}}]}, "
             "'K': {'instances': {'b': {'Int': 2, 'Text': 'y'}, 'a': {'Text': 'x'}}}}", ""},
        Case{FC_OK, "{'I': {'rows': [1, 2]}, 'K': {'rows': ['five', {'index': 'b', 'properties': []}]}}",
             "{'I': {'rows': [{'Int': 11}, null]}, 'K': {'instances': {'b': {}, 'five': 5}}}", ""},
        Case{FC_NO_SUCH_NAME, "{'I': null, 'K': {'properties': ['Int']}}",
             "{'I': {'instances': [{'Int': 10}, {'Int': 11}, null]},"
             " 'K': {'instances': {'a': {'Int': 1}, 'b': {'Int': 2}, 'five': {}}}}",
             " comp=K instances rowKey=five no param=Int"},
        Case{FC_NO_SUCH_NAME, "{'X': {}, 'I': {'rows': [1]}}", "{'I': {'rows': [{'Int': 11}]}}", " No such component=X"},
        Case{FC_NO_SUCH_NAME, "{'I': {'rows': 1}, 'X': {}}", "{}", " rows is not an array; No such component=X"},
        Case{FC_BODY_ERROR, "{'I': {'rows': [0], 'properties': {}}}", "{}", " properties is not an array"},
        Case{FC_BODY_ERROR, "{'I': 5}", "{}", " comp=I is not an object"},
        Case{FC_BODY_ERROR, "[1]", "{}", " components is not an object"},
        Case{FC_BODY_ERROR, "{'I': {'rows': [0, 1.5, {'index': []}, [0]], 'properties': [7]}}",
             "{'I': {'rows': [{'index': 0}]}}", " properties[0] is not a string; rows[1] is not int or string;"
             " rows[2] is not int or string; rows[3] is not int or string"},
        Case{FC_BODY_ERROR, "{'I': {'rows': [3, -1, 'a', {'index': 0, 'properties': 'Int'}]}}", "{}",
             " comp=I instances invalid index=3; comp=I instances invalid index=-1;"
             " values are not objects (by rowKey); properties is not an array"},
        Case{FC_NO_SUCH_NAME, "{'K': {'rows': [0, 'c', 'five'], 'properties': ['Int']}}",
             "{'K': {'instances': {'five': {}}}}", " comp=K values are not array (by index).;"
             " doesn't have member=c; comp=K instances rowKey=five no param=Int"},
        Case{FC_NO_SUCH_NAME, "{'I': {'rows': [1], 'properties': ['No', 'Int']}}",
             "{'I': {'rows': [{'index': 1, 'properties': {'Int': 11}}]}}", " comp=I instances index=1 no param=No"},
        Case{FC_OK, "{'S': {}}", "{}",
             " No Values in comp=S; instances are neither an object(by rowKey), nor an array(by index)"},
        Case{FC_NO_SUCH_NAME, "{'N': {'rows': ['']}}", "{}", " values are not objects (by rowKey);"
             " instances are neither an object(by rowKey), nor an array(by index)"},
    }) {
        // clang-format on
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

TEST_F(DataSetsRequestsTest, FetchesAnswerEmptyListsAndAddAMemberToTheDocument)
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

TEST_F(DataSetsRequestsTest, FetchesReadTheMembersBesideTheComponents)
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
    using In = const std::string&;

    std::vector<std::string> mCalls;

    Fcodes onGetDataset(In dataset) override { return on("dataset", dataset); }
    Fcodes onGetComponent(In, In c) override { return on("component", c); }
    Fcodes onGetComponentEntry(In, In c, In key) override { return on("entry", c, key); }
    Fcodes onGetComponentEntry(In, In c, int i) override { return on("entry", c, i); }
    Fcodes onGetComponentValue(In, In c, In p, In key) override { return on("value", c, key, p); }
    Fcodes onGetComponentValue(In, In c, In p, int i) override { return on("value", c, i, p); }

private:
    Fcodes on(const char* what, const auto&... names)
    {
        std::ostringstream words(what, std::ios::ate);
        ((words << ' ' << names), ...);
        const std::string call = words.str();
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

TEST_F(DataSetsRequestsTest, HooksAreCalledBeforeEachReadAndMayChangeTheData)
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
    const std::string before = committed();
    ask(kSet,
        R"({'I': {'properties': {'Int': 30}, 'rows': [1, {'index': 0, 'properties': {'Int': 31}}]},
            'K': {'rows': [{'index': 'a', 'properties': {'Text': 'z', 'Enum': 'two', 'Bool': true}},
                           'b'], 'properties': {'Int': -3}}})",
        FC_OK);
    EXPECT_EQ("", lines);
    EXPECT_EQ(before, committed());
    EXPECT_TRUE(store.isChangedProperty("D", "K", "Bool", "a"));
    EXPECT_FALSE(store.isChangedProperty("D", "K", "Int", "a"));
    store.commit();
    EXPECT_EQ(json(R"({'I': {'instances': [{'Int': 31}, {'Int': 30}, null]}, 'K': {'instances': {
        'a': {'Int': 1, 'Text': 'z', 'Enum': 'two', 'Bare': 1, 'Fixed': 5, 'Bool': true,
        'Stale': '7', 'Free': 9}, 'b': {'Int': -3, 'Text': 'y'}, 'five': 5}}})"),
              ask(kGet, "{'I': {}, 'K': {}}", FC_OK));
}

TEST_F(DataSetsRequestsTest, ARefusedRequestIsLoggedAndWritesNothing)
{
    store.setIntParam("D", "I", "Int", 77, 0);
    const std::string before = committed();
    const auto rows = [](const std::string& text) {
        return "{'I': {'rows': [0], 'properties': {'Int': 1}}, 'K': {'rows': [" + text + "]}}";
    };
    const auto a = [&rows](const std::string& values) {
        return rows("{'index': 'a', 'properties': {'Bool': true, " + values + "}}");
    };
    const std::string incomplete =
        " comp=K rows[0] is not an Object || hasn't=index || hasn't=properties";
    const std::string notIndexed = " comp=K values are not array (by index).";
    // clang-format off
    struct Case { std::string components; Fcodes code; std::string line; };
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
             {rows("{'index': 0, 'properties': {}}"), FC_NO_SUCH_NAME, notIndexed},
             {rows("{'index': 'a'}"), FC_BODY_ERROR, incomplete},
             {rows("{'properties': {}}"), FC_BODY_ERROR, incomplete},
             {rows("'a'"), FC_BODY_ERROR, " comp=K rows[0] No key=properties"},
             {rows("{'index': 'b', 'properties': {'Int': 4}}, 2.5"), FC_BODY_ERROR, " comp=K rows[1] is neither int, nor string"},
             {"{'I': {'rows': [9], 'properties': {}}}", FC_NO_SUCH_NAME, " comp=I instances invalid index=9"},
             {"{'I': {'rows': [0], 'properties': [1]}}", FC_BODY_ERROR, " comp=I properties is not an object"},
             {"{'I': {'properties': {'Int': 1}}}", FC_BODY_ERROR, " comp=I no array key=rows"},
             {"{'X': {}}", FC_NO_SUCH_NAME, " No such component=X"},
             {"{'N': {}}", FC_NO_SUCH_NAME, " comp=N No key=properties"},
             {"{'S': {}}", FC_NO_SUCH_NAME, " comp=S No key=instances"},
             {"{'I': {}, 'K': {'rows': [0], 'properties': {}}, 'S': {}}", FC_NO_SUCH_NAME,
              " comp=I no array key=rows;" + notIndexed + "; comp=S No key=instances"},
             {"[]", FC_BODY_ERROR, " no key=components"},
         }) {
        // clang-format on
        SCOPED_TRACE(c.components);
        ask(kSet, c.components, c.code);
        int pending = 0;
        store.getNewIntParam("D", "I", "Int", pending, 0);
        EXPECT_EQ(std::tuple(c.line, 77, false, before),
                  std::tuple(lines, pending, store.isChangedComponent("D", "K"), committed()));
    }
    askWhole(kSet, "{'components': {}}", FC_BODY_ERROR);
    EXPECT_EQ(" no key=dataset", lines);
    askWhole(kSet, "{'dataset': 'E'}", FC_NO_SUCH_NAME);
    EXPECT_EQ(" No such dataset=E", lines);
}

TEST_F(DataSetsRequestsTest, AWorkingCopyOfAnotherShapeRefusesTheWholeRequest)
{
    for (const auto& [component, shape] : {std::pair("K", "{'properties': {}, 'instances': []}"),
                                           {"K", "{'instances': {'b': 5}}"},
                                           {"K", "5"},
                                           {"I", "{'instances': {}}"},
                                           {"I", "{'instances': [{}, 'x']}"}}) {
        store.rollback();
        load("{'" + std::string(component) + "': " + shape + "}");
        store.touchComponent("D", component);
        load(kDocument);
        ask(kSet, R"({'I': {'rows': [0, 1], 'properties': {'Int': 1}},
                'K': {'rows': ['b'], 'properties': {'Int': 1}}})",
            FC_WRONG_TYPE);
        EXPECT_THAT(lines, testing::EndsWith(" doesn't fit the working copy"));
        EXPECT_FALSE(store.isChangedProperty("D", "I", "Int", 0)) << shape;
        EXPECT_FALSE(store.isChangedProperty("D", "K", "Int", "b")) << shape;
    }
}

TEST(RequestTextTest, LogLinesAbbreviateALongRequestAfterOneMebibyte)
{
    Json::Value request;
    for (int row = 0; row < 20000; ++row)
        request.append(row);
    const RequestText text(request);
    const std::string first = (std::ostringstream() << text).str();
    EXPECT_GT(first.size(), 100000u);
    EXPECT_TRUE(first.ends_with("19999\n]"));

    std::ostringstream rest;
    for (int line = 0; line < 20000; ++line)
        rest << text << '\n';
    EXPECT_EQ(0u, rest.view().find(first));
    EXPECT_LT(rest.view().size(), 1500000u);
    EXPECT_TRUE(rest.view().ends_with("\n(as above)\n"));
}

} // namespace
