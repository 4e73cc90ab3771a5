#include "StoreFixture.h"

namespace
{

using testing::ElementsAre;

using DataSetsInstancesTest = StoreTest;

TEST_F(DataSetsInstancesTest, ANewInstanceCarriesEveryPropertyAtItsDefault)
{
    const std::string defined =
        "'properties': {'x': {'default': 5}, 'y': {}, 'z': 3, 'n': {'default': null}}";
    const std::string fresh = "{'n': null, 'x': 5, 'y': '0', 'z': '0'}";
    load("{'K': {" + defined + "}, 'I': {" + defined + "}, 'S': {" + defined + "}, 'P': {}}");
    int indices[] = {-1, -1};
    expectEach(FC_OK, {store.addInstance("D", "K", "a"), store.clearComponent("D", "K"),
                       store.addInstance("D", "K", "b"), store.addInstance("D", "S", ""),
                       store.addInstance("D", "P", "bare")});
    expectEach(FC_OK, {store.appendInstance("D", "I", indices[0]),
                       store.appendInstance("D", "I", indices[1])});
    EXPECT_THAT(indices, ElementsAre(0, 1));
    EXPECT_EQ(json("{'K': {" + defined + ", 'instances': {'b': " + fresh + "}}, 'I': {" + defined +
                   ", 'instances': [" + fresh + "," + fresh + "]}, 'S': {" + defined +
                   ", 'instance': " + fresh + "}, 'P': {'instances': {'bare': {}}}}"),
              committed());
    EXPECT_FALSE(store.isChanged());
}

TEST_F(DataSetsInstancesTest, ShapeConflictsAndMissingNamesAreRefusedAndLogged)
{
    load("{'K': {'instances': {'a': {}}}, 'I': {'instances': [{}]}, 'S': {'instance': [1]}, "
         "'N': 5}");
    const std::string before = committed();
    int index = -1;
    const auto expect = [this](Fcodes wanted, Fcodes result, const Lines& lines) {
        EXPECT_EQ(wanted, result);
        EXPECT_EQ(lines, logged());
    };
    DataSets& s = store;
    const std::string add = "ERROR addInstance: ";
    const std::string remove = "ERROR removeInstance: No such instance name dataset=D ";
    const std::string keyed = " instances those are not an object (by key)";
    // clang-format off
    expect(FC_WRONG_TYPE, s.addInstance("D", "I", "k"), {add + "Couldn't add to comp=I" + keyed});
    expect(FC_WRONG_TYPE, s.addInstance("D", "S", ""), {add + "Couldn't add to comp=S" + keyed});
    expect(FC_WRONG_TYPE, s.addInstance("D", "N", "k"), {add + "Couldn't add to comp=N" + keyed});
    expect(FC_WRONG_TYPE, s.appendInstance("D", "K", index),
           {add + "Couldn't append to comp=K values those are not an array (by index)"});
    expect(FC_NO_SUCH_NAME, s.addInstance("D", "X", "k"), {add + "No such name dataset=D comp=X"});
    expect(FC_NO_SUCH_NAME, s.appendInstance("D", "X", index), {});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "X", "k"), {"ERROR removeInstance: No such name dataset=D comp=X"});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "K", "b"), {remove + "comp=K inst=b"});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "I", "0"), {remove + "comp=I inst=0"});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "I", 1), {});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "I", -1), {});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "K", 0), {});
    expect(FC_NO_SUCH_NAME, s.clearComponent("E", "K"), {"ERROR clearComponent: No such name dataset=E comp=K"});
    // clang-format on
    EXPECT_EQ(-1, index);
    EXPECT_EQ(before, committed());
}

TEST_F(DataSetsInstancesTest, HasInstanceIsFalseForNullAndForOtherShapes)
{
    load("{'K': {'instances': {'a': {}, 'n': null}}, 'I': {'instances': [{}, null]}, "
         "'S': {'instance': {}}, 'T': {'instance': 5}}");
    const auto has = [this](const char* component, const auto& instance) {
        return store.hasInstance("D", component, instance);
    };
    EXPECT_THAT((std::vector{has("K", "a"), has("I", 0), has("S", "")}), testing::Each(true));
    EXPECT_THAT((std::vector{has("K", "n"), has("K", ""), has("I", 1), has("I", "0"), has("T", ""),
                             has("X", "")}),
                testing::Each(false));
}

TEST_F(DataSetsInstancesTest, GetInstancesAppendsGetPropertiesReplacesAndSizesCountInstances)
{
    load("{'K': {'instances': {'b': 1, 'a': null}, 'properties': {'q': {}, 'p': {}}}, "
         "'I': {'instances': [1]}, 'S': {'instance': {}}, 'E': {'instances': null}}");
    Lines names = {"before"};
    expectEach(FC_OK, {store.getInstances("D", "K", names), store.getInstances("D", "I", names),
                       store.getInstances("D", "S", names)});
    expectEach(FC_NO_SUCH_NAME,
               {store.getInstances("D", "E", names), store.getInstances("D", "X", names)});
    EXPECT_THAT(names, ElementsAre("before", "a", "b", "0", ""));
    for (const std::size_t limit : {5u, 6u, 12u}) // the limit may be reached, not exceeded
        expectEach(FC_OK, {store.listInstances("D", "K", names, 5, limit)});
    EXPECT_THAT(names, ElementsAre("before", "a", "b", "0", "", "a", "a", "b", "a", "b"));
    const auto size = [this](const char* component) {
        int found = -1;
        return store.getComponentSize("D", component, found) == FC_OK ? found : -1;
    };
    EXPECT_THAT((std::vector{size("K"), size("I"), size("E"), size("S"), size("X")}),
                ElementsAre(2, 1, 0, -1, -1));
    EXPECT_EQ(FC_OK, store.getProperties("D", "K", names));
    EXPECT_EQ(FC_NO_SUCH_NAME, store.getProperties("D", "S", names));
    EXPECT_THAT(names, ElementsAre("p", "q"));
}

TEST_F(DataSetsInstancesTest, SearchesCoverAllThreeShapesOfInstances)
{
    load("{'K': {'instances': {'re': {'n': 10}, 'no': {}, 'red': {'n': 9}, 'bad': 3}}, "
         "'I': {'instances': [{'n': 10}, null, {'n': 9}]}, 'S': {'instance': {'n': 5}}}");
    const auto by = [this](const char* component, const char* condition, const auto& operand) {
        return store.getInstancesByParameter("D", component, "n", condition, operand);
    };
    EXPECT_THAT(by("K", "Does not exist", "x"), ElementsAre("bad", "no"));
    EXPECT_THAT(by("K", "(Num) Less than", "9"), ElementsAre("re"));
    EXPECT_THAT(by("K", "(Num) Less than", 10), ElementsAre("red"));
    EXPECT_THAT(by("I", "(Num) Greater than", 9), ElementsAre("0"));
    EXPECT_THAT(by("I", "Does not exist", ""), ElementsAre("1"));
    EXPECT_THAT(by("S", "(Text) Exactly matches", "5"), ElementsAre(""));
    EXPECT_THAT(by("X", "Exists", ""), ElementsAre());
    EXPECT_THAT(store.getInstancesByKey("D", "K", "(Text) Is in", "red,green"),
                ElementsAre("re", "red"));
    EXPECT_THAT(store.getInstancesByKey("D", "I", "(Text) Exactly matches", "2"), ElementsAre("2"));
}

TEST_F(DataSetsInstancesTest, APropertyDefinitionIsReadAsTexts)
{
    load("{'C': {'properties': {'p': {'access': 'RO', 'type': 'enum', 'default': 2, "
         "'values': [1, 'two', true]}, 'q': {'default': [1]}, 'r': 7}}}");
    std::string access, type, value;
    std::list<std::string> values = {"before"};
    const auto read = [&](const char* property) {
        return store.getComponentProperty("D", "C", property, access, type, value, values);
    };
    EXPECT_EQ(FC_OK, read("p"));
    EXPECT_EQ(FC_NO_SUCH_NAME, read("x"));
    EXPECT_EQ("RO enum 2", access + ' ' + type + ' ' + value);
    EXPECT_THAT(values, ElementsAre("1", "two", "true"));
    EXPECT_EQ(FC_OK, read("q"));
    EXPECT_EQ("", access + type + value);
    EXPECT_THAT(values, ElementsAre());

    EXPECT_EQ(FC_OK, store.getComponentPropertyDefault("D", "C", "p", value));
    expectEach(FC_NO_SUCH_NAME, {store.getComponentPropertyDefault("D", "C", "r", value),
                                 store.getComponentPropertyDefault("D", "C", "x", value)});
    EXPECT_EQ("2", value);
}

} // namespace
