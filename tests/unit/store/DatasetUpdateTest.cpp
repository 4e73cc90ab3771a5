#include "StoreFixture.h"

namespace
{

/// Brings "D" into line with "R"; `lines` is the report after its first line.
class DatasetUpdateTest : public StoreTest
{
protected:
    void expectUpdate(const std::string& src, const std::string& ref, const std::string& result,
                      Lines lines)
    {
        load(src);
        load(ref, "R");
        EXPECT_EQ(FC_OK, store.updateDataSet("D", "R", flags[0], flags[1], flags[2]));
        lines.insert(lines.begin(), "src=D ref=R");
        expectReport(lines);
        EXPECT_EQ(json(result), committed());
    }

    void expectReport(Lines lines)
    {
        for (std::string& line : lines)
            line.insert(0, "ERROR updateDataSet: ");
        EXPECT_EQ(lines, logged());
    }

    static std::string updating(char component)
    {
        return std::string("Updating existing comp=") + component + " in src_dataset=D";
    }

    /// Keep what the reference lacks, merge properties, replace instances.
    std::array<bool, 3> flags = {true, true, false};
};

TEST_F(DatasetUpdateTest, MissingDatasetsAndComponentsAreRefused)
{
    load("{'C': {}}");
    write("/tmp/bare.json", "{}");
    ASSERT_EQ(FC_OK, store.loadDataSet("Bare", "/tmp/bare.json"));
    expectEach(FC_NO_SUCH_NAME, {store.updateDataSet("X", "R", false, true, false),
                                 store.updateDataSet("Bare", "D", false, true, false),
                                 store.updateDataSet("D", "X", false, true, false)});
    expectReport({"src=X ref=R", "Not found src=X", "src=Bare ref=D",
                  "Not found Components in src=Bare OR ref=D", "src=D ref=X",
                  "Not found Components in src=D OR ref=X"});
    EXPECT_EQ(json("{'C': {}}"), committed());
}

TEST_F(DatasetUpdateTest, MalformedReferenceLeavesTheDatasetUnchanged)
{
    const std::string stored = "{'C': {'properties': {'p': {}}, 'instances': {'k': {'p': 1}}}}";
    load(stored);
    for (const char* components : {"[]", "'x'", "{'C': []}", "{'C': null}", "{'C': 7}",
                                   "{'C': {'properties': []}}", "{'C': {'properties': 'x'}}"}) {
        write("/tmp/ref.json", std::string("{'components': ") + components + "}");
        ASSERT_EQ(FC_OK, store.loadDataSet("R", "/tmp/ref.json"));
        EXPECT_EQ(FC_UNAVAILABLE, store.updateDataSet("D", "R", false, true, false)) << components;
        expectReport({"src=D ref=R", "Exc: Couldn't update dataset src=D"});
        EXPECT_EQ(json(stored), committed()) << components;
    }
}

TEST_F(DatasetUpdateTest, KeyedInstancesAreCompletedWithNewAndOldProperties)
{
    const std::string old = "'p': {'default': 5}";
    const std::string defined = "'properties': {'o': {'type': 'integer', 'default': 9}, "
                                "'n': {'type': 'integer', 'default': 3}, " +
                                old + "}";
    // clang-format off
    expectUpdate("{'C': {'properties': {'o': {'type': 'integer', 'default': 1}, " + old + "}, "
                 "'instances': {'a': {'o': 1, 'p': 1}, 'b': {'o': 2, 'n': 7, 'p': 1}, 'c': {'o': 3}, 'd': 5}}}",
                 "{'C': {" + defined + ", 'instances': {'c': {'n': 8}}}}",
                 "{'C': {" + defined + ", 'instances': {'a': {'o': 1, 'n': 3, 'p': 1}, "
                 "'b': {'o': 2, 'n': 7, 'p': 1}, 'c': {'o': 3, 'n': 8, 'p': 5}, 'd': 5}}}",
                 {updating('C'), "Adding property=n",
                  "Values are objects with keys in comp=C", "Testing value key=a", "Adding int value=3", "Adding default value key=a",
                  "Testing value key=b", "Found value=7", "Testing value key=c", "Found value=8", "Adding int value=8",
                  "Testing value key=d", "Values are objects with keys in comp=C", "Testing value key=a", "Found value=1",
                  "Testing value key=b", "Found value=1", "Testing value key=c", "Adding string value=5",
                  "Adding default value key=c", "Testing value key=d"});
    // clang-format on
}

TEST_F(DatasetUpdateTest, AReferenceValueIsConvertedToTheNewType)
{
    // clang-format off
    struct Case { std::string type, offered, taken; Lines lines; };
    // clang-format on
    const std::string key = "Adding default value key=k";
    for (const Case& c : {
             Case{"integer", "2.0", "2", {"Found value=2.0", "Adding int value=2"}},
             Case{"boolean", "1", "true", {"Found value=1", "Adding boolean value=1"}},
             Case{"string", "5", "'5'", {"Found value=5", "Adding string value=5"}},
             Case{"enum", "'e'", "'e'", {"Found value=e", "Adding enum value=e"}},
             Case{"integer", "'x'", "0", {"Found value=x", "Adding int value=0", key}},
             Case{"other", "1", "'1'", {"Found value=1", "Adding string value=1"}},
         }) {
        SCOPED_TRACE(c.type);
        const std::string start =
            "{'C': {'properties': {'n': {'default': 'd', 'type': '" + c.type + "'}}";
        Lines lines = {updating('C'), "Adding property=n", "Values are objects with keys in comp=C",
                       "Testing value key=k"};
        lines.insert(lines.end(), c.lines.begin(), c.lines.end());
        expectUpdate("{'C': {'properties': {}, 'instances': {'k': {}}}}",
                     start + ", 'instances': {'k': {'n': " + c.offered + "}}}}",
                     start + ", 'instances': {'k': {'n': " + c.taken + "}}}}", lines);
    }
}

TEST_F(DatasetUpdateTest, DefaultsAreConvertedToTheTypeOfTheProperty)
{
    const std::string defined =
        "{'properties': {'i': {'type': 'integer', 'default': '7'}, 'j': {'type': 'integer'}, "
        "'l': {'type': 'integer', 'default': [7]}, 'b': {'type': 'boolean', 'default': 'true'}, "
        "'c': {'type': 'boolean', 'default': true}, 's': {'type': 'string', 'default': 5}, "
        "'e': {'type': 'enum', 'values': [1, 2], 'default': 2}, 'u': {'default': 2.5}}";
    const std::string row = "{'i': 7, 'j': 0, 'l': 0, 'b': true, 'c': true, 's': '5', 'e': 2, "
                            "'u': 2.5}";
    load("{'I': {'instances': [{}]}, 'K': {'instances': {'k': {}}}, 'S': {'instance': {}}}");
    load("{'I': " + defined + "}, 'K': " + defined + "}, 'S': " + defined + "}}", "R");
    EXPECT_EQ(FC_OK, store.updateDataSet("D", "R", false, true, false));
    EXPECT_EQ(json("{'I': " + defined + ", 'instances': [" + row + "]}, 'K': " + defined +
                   ", 'instances': {'k': " + row + "}}, 'S': " + defined + ", 'instance': " + row +
                   "}}"),
              committed());
}

TEST_F(DatasetUpdateTest, IndexedSingleAndMissingInstancesAreCompletedWithTheDefault)
{
    const std::string defined = "'properties': {'n': {'type': 'string'}}";
    // clang-format off
    expectUpdate("{'I': {'properties': {}, 'instances': [{}, {'n': 'x'}, null, {}]}, 'N': {}, "
                 "'S': {'properties': {}, 'instance': {}}, 'T': {'properties': null, 'instance': {'n': 'x'}}}",
                 "{'I': {" + defined + "}, 'N': {" + defined + "}, 'S': {" + defined + "}, 'T': {" + defined + "}}",
                 "{'I': {" + defined + ", 'instances': [{'n': '0'}, {'n': 'x'}, null, {'n': '0'}]}, "
                 "'N': {" + defined + "}, 'S': {" + defined + ", 'instance': {'n': '0'}}, "
                 "'T': {" + defined + ", 'instance': {'n': 'x'}}}",
                 {updating('I'), "Adding property=n", "Adding default value ind=0", "Adding default value ind=3",
                  updating('N'), "No properties in comp=N. Adding...", "No values in comp=N",
                  updating('S'), "Adding property=n", "Testing single instance in comp=S",
                  "Adding default single instance prop=n",
                  updating('T'), "No properties in comp=T. Adding...", "Testing single instance in comp=T"});
    // clang-format on
}

TEST_F(DatasetUpdateTest, RemovesWhatTheReferenceLacksAndCopiesMissingComponents)
{
    flags = {false, false, false};
    const std::string absent = "Removing non-existent ";
    // clang-format off
    expectUpdate("{'I': {'properties': {'x': {}}, 'instances': [{'x': 1}, {}, 5]}, "
                 "'K': {'properties': {'p': {}, 'x': {}, 'y': {}}, 'instances': {'a': {'p': 1, 'x': 2}, 'b': {}}},"
                 "'S': {'properties': {'x': {}}, 'instance': {'x': 1}}, 'Z': {}}",
                 "{'A': {'instance': {'x': 1}}, 'I': {}, 'K': {'properties': {'p': {}, 'n': {}}}, "
                 "'S': {'properties': {}}}",
                 "{'A': {'instance': {'x': 1}}, 'I': {'properties': {}, 'instances': [{}, {}, 5]}, "
                 "'K': {'properties': {'p': {}}, 'instances': {'a': {'p': 1}, 'b': {}}}, "
                 "'S': {'properties': {}, 'instance': {}}}",
                 {"Adding comp=A to src_dataset=D", updating('I'), updating('K'), updating('S'),
                  absent + "properties from comp=A", absent + "properties from comp=I", "Testing property=x",
                  "Removing property=x", absent + "values prop=x in ref_dataset=R",
                  "Removing value from ind=0 in ref_dataset=R", absent + "properties from comp=K", "Testing property=p",
                  "Testing property=x", "Removing property=x", absent + "values prop=x in ref_dataset=R",
                  "Removing value from key=a in ref_dataset=R", "Testing property=y", "Removing property=y",
                  absent + "values prop=y in ref_dataset=R", absent + "properties from comp=S", "Testing property=x",
                  "Removing property=x", absent + "values prop=x in ref_dataset=R",
                  "Removing value from single inst prop=x in ref_dataset=R",
                  "Looking for components to remove from src_dataset=D", "Looking to Remove comp=A",
                  "Looking to Remove comp=I", "Looking to Remove comp=K", "Looking to Remove comp=S",
                  "Looking to Remove comp=Z", "Removing comp=Z"});
    // clang-format on
}

TEST_F(DatasetUpdateTest, InstancesAreReplacedOnlyOnRequestAndWhereTheReferenceHasSome)
{
    flags = {true, false, true};
    expectUpdate("{'C': {'instances': {'a': 1}, 'instance': 2, 'properties': {'x': {}}}}",
                 "{'C': {'instances': [3], 'instance': null, 'properties': {'y': {}}}}",
                 "{'C': {'instances': [3], 'instance': 2, 'properties': {'x': {}}}}",
                 {updating('C')});
}

TEST_F(DatasetUpdateTest, AComponentOfAWrongShapeDoesNotStopTheOthers)
{
    load("{'A': 5, 'B': {'properties': 'none'}, 'C': {}}");
    const std::string wanted = "{'properties': {'x': {}}}";
    load("{'A': " + wanted + ", 'B': " + wanted + ", 'C': " + wanted + "}", "R");
    EXPECT_EQ(FC_WRONG_TYPE, store.updateDataSet("D", "R", false, true, true));
    EXPECT_EQ(json("{'A': 5, 'B': {'properties': 'none'}, 'C': " + wanted + "}"), committed());
}

} // namespace
