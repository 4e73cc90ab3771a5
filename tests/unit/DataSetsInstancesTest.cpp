#include "StoreFixture.h"

#include <gmock/gmock.h>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

class DataSetsInstancesTest : public StoreTest
{
protected:
    Lines instances(const std::string& component)
    {
        Lines names;
        store.getInstances("D", component, names);
        return names;
    }
};

TEST_F(DataSetsInstancesTest, ANewInstanceCarriesEveryPropertyAtItsDefault)
{
    const std::string properties = "'properties': {'x': {'default': 5}, 'y': {}, 'z': 3, "
                                   "'n': {'default': null}}";
    const std::string fresh = "{'n': null, 'x': 5, 'y': '0', 'z': '0'}";
    load("{'K': {" + properties + "}, 'I': {" + properties + "}, 'S': {" + properties +
         ", 'instance': null}, 'P': {}}");
    int index = -1;
    EXPECT_EQ(FC_OK, store.addInstance("D", "K", "a"));
    EXPECT_EQ(FC_OK, store.addInstance("D", "S", ""));
    EXPECT_EQ(FC_OK, store.addInstance("D", "P", "bare"));
    EXPECT_EQ(FC_OK, store.appendInstance("D", "I", index));
    EXPECT_EQ(0, index);
    EXPECT_EQ(FC_OK, store.appendInstance("D", "I", index));
    EXPECT_EQ(1, index);
    EXPECT_EQ(json("{'K': {" + properties + ", 'instances': {'a': " + fresh + "}}, 'I': {" +
                   properties + ", 'instances': [" + fresh + "," + fresh + "]}, 'S': {" +
                   properties + ", 'instance': " + fresh + "}, 'P': {'instances': {'bare': {}}}}"),
              committed());

    store.addDataSet("E");
    store.addComponent("E", "C");
    EXPECT_EQ(FC_OK, store.clearComponent("D", "K"));
    EXPECT_EQ(FC_OK, store.addInstance("D", "K", "b"));
    int value = 0;
    EXPECT_EQ(FC_OK, store.getIntParam("D", "K", "x", value, "b"));
    EXPECT_EQ(5, value);
    EXPECT_THAT(instances("K"), ElementsAre("b"));
    EXPECT_FALSE(store.isChanged());
}

TEST_F(DataSetsInstancesTest, ShapeConflictsAndMissingNamesAreRefusedWithTheirLines)
{
    load(R"({'K': {'instances': {'a': {}}}, 'I': {'instances': [{}]}, 'S': {'instance': [1]},
             'N': 5})");
    const std::string before = committed();
    int index = -1;
    const auto expect = [this](Fcodes wanted, Fcodes result, const Lines& lines) {
        EXPECT_EQ(wanted, result);
        EXPECT_EQ(lines, logged());
    };
    DataSets& s = store;
    expect(
        FC_WRONG_TYPE, s.addInstance("D", "I", "k"),
        {"ERROR addInstance: Couldn't add to comp=I instances those are not an object (by key)"});
    expect(
        FC_WRONG_TYPE, s.addInstance("D", "S", ""),
        {"ERROR addInstance: Couldn't add to comp=S instances those are not an object (by key)"});
    expect(
        FC_WRONG_TYPE, s.addInstance("D", "N", "k"),
        {"ERROR addInstance: Couldn't add to comp=N instances those are not an object (by key)"});
    expect(FC_WRONG_TYPE, s.appendInstance("D", "K", index),
           {"ERROR addInstance: Couldn't append to comp=K values those are not an array "
            "(by index)"});
    expect(FC_NO_SUCH_NAME, s.addInstance("D", "X", "k"),
           {"ERROR addInstance: No such name dataset=D comp=X"});
    expect(FC_NO_SUCH_NAME, s.appendInstance("D", "X", index), {});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "X", "k"),
           {"ERROR removeInstance: No such name dataset=D comp=X"});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "K", "b"),
           {"ERROR removeInstance: No such instance name dataset=D comp=K inst=b"});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "K", ""),
           {"ERROR removeInstance: No such instance name dataset=D comp=K inst="});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "I", "0"),
           {"ERROR removeInstance: No such instance name dataset=D comp=I inst=0"});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "I", 1), {});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "I", -1), {});
    expect(FC_NO_SUCH_NAME, s.removeInstance("D", "K", 0), {});
    expect(FC_NO_SUCH_NAME, s.clearComponent("E", "K"),
           {"ERROR clearComponent: No such name dataset=E comp=K"});
    EXPECT_EQ(-1, index);
    EXPECT_EQ(before, committed());
}

TEST_F(DataSetsInstancesTest, RemovingByIndexMovesLaterInstancesOneDown)
{
    load(R"({'I': {'instances': [{'v': 0}, {'v': 1}, {'v': 2}]}, 'K': {'instances': {'a': 1}}})");
    EXPECT_THAT(instances("I"), ElementsAre("0", "1", "2"));
    EXPECT_EQ(FC_OK, store.removeInstance("D", "I", 0));
    EXPECT_EQ(FC_OK, store.removeInstance("D", "K", "a"));
    EXPECT_EQ(json("{'I': {'instances': [{'v': 1}, {'v': 2}]}, 'K': {'instances': {}}}"),
              committed());
    EXPECT_EQ(FC_OK, store.removeInstance("D", "I", 1));
    EXPECT_EQ(FC_OK, store.removeInstance("D", "I", 0));
    EXPECT_THAT(instances("I"), IsEmpty());
}

TEST_F(DataSetsInstancesTest, AnInstanceIsThereWhenItIsNotNull)
{
    load(R"({'K': {'instances': {'a': {}, 'n': null}}, 'I': {'instances': [{}, null]},
             'S': {'instance': {}}, 'T': {'instance': 5}})");
    EXPECT_TRUE(store.hasInstance("D", "K", "a"));
    EXPECT_FALSE(store.hasInstance("D", "K", "n"));
    EXPECT_FALSE(store.hasInstance("D", "K", ""));
    EXPECT_TRUE(store.hasInstance("D", "I", 0));
    EXPECT_FALSE(store.hasInstance("D", "I", 1));
    EXPECT_FALSE(store.hasInstance("D", "I", "0"));
    EXPECT_TRUE(store.hasInstance("D", "S", ""));
    EXPECT_FALSE(store.hasInstance("D", "T", ""));
    EXPECT_FALSE(store.hasInstance("D", "X", ""));
}

TEST_F(DataSetsInstancesTest, ListsAppendInstancesAndReplaceProperties)
{
    load(R"({'K': {'instances': {'b': 1, 'a': null}, 'properties': {'q': {}, 'p': {}}},
             'S': {'instance': {}}, 'E': {'instances': null}})");
    Lines names = {"before"};
    EXPECT_EQ(FC_OK, store.getInstances("D", "K", names));
    EXPECT_EQ(FC_OK, store.getInstances("D", "S", names));
    EXPECT_THAT(names, ElementsAre("before", "a", "b", ""));
    EXPECT_EQ(FC_NO_SUCH_NAME, store.getInstances("D", "E", names));
    EXPECT_EQ(FC_NO_SUCH_NAME, store.getInstances("D", "X", names));
    EXPECT_EQ(FC_OK, store.getProperties("D", "K", names));
    EXPECT_THAT(names, ElementsAre("p", "q"));
    EXPECT_EQ(FC_NO_SUCH_NAME, store.getProperties("D", "S", names));
    EXPECT_THAT(names, ElementsAre("p", "q"));
}

TEST_F(DataSetsInstancesTest, SearchesWalkWhateverShapeTheComponentHas)
{
    load(R"({'K': {'instances': {'re': {'n': 10}, 'no': {}, 'red': {'n': 9}, 'bad': 3}},
             'I': {'instances': [{'n': 10}, null, {'n': 9}]}, 'S': {'instance': {'n': 5}}})");
    const auto by = [this](const char* component, const char* condition, const auto& operand) {
        return store.getInstancesByParameter("D", component, "n", condition, operand);
    };
    EXPECT_THAT(by("K", "Exists", "x"), ElementsAre("re", "red"));
    EXPECT_THAT(by("K", "Does not exist", "x"), ElementsAre("bad", "no"));
    EXPECT_THAT(by("K", "(Num) Less than", "9"), ElementsAre("re"));
    EXPECT_THAT(by("K", "(Num) Less than", 10), ElementsAre("red"));
    EXPECT_THAT(by("I", "(Num) Greater than", 9), ElementsAre("0"));
    EXPECT_THAT(by("I", "Does not exist", ""), ElementsAre("1"));
    EXPECT_THAT(by("S", "(Text) Exactly matches", "5"), ElementsAre(""));
    EXPECT_THAT(by("X", "Exists", ""), IsEmpty());
    EXPECT_THAT(store.getInstancesByKey("D", "K", "(Text) Is in", "red,green"),
                ElementsAre("re", "red"));
    EXPECT_THAT(store.getInstancesByKey("D", "I", "(Text) Exactly matches", "2"), ElementsAre("2"));
}

TEST_F(DataSetsInstancesTest, APropertyDefinitionIsReadAsTexts)
{
    load(R"({'C': {'properties': {'p': {'access': 'RO', 'type': 'enum', 'default': 2,
             'values': [1, 'two', true]}, 'q': {'default': [1]}, 'r': 7}}})");
    std::string access;
    std::string type;
    std::string value;
    std::list<std::string> values = {"before"};
    EXPECT_EQ(FC_OK, store.getComponentProperty("D", "C", "p", access, type, value, values));
    EXPECT_EQ("RO enum 2", access + ' ' + type + ' ' + value);
    EXPECT_THAT(values, ElementsAre("1", "two", "true"));
    EXPECT_EQ(FC_NO_SUCH_NAME,
              store.getComponentProperty("D", "C", "x", access, type, value, values));
    EXPECT_EQ(3u, values.size());
    EXPECT_EQ(FC_OK, store.getComponentProperty("D", "C", "q", access, type, value, values));
    EXPECT_EQ("", access + type + value);
    EXPECT_THAT(values, IsEmpty());

    EXPECT_EQ(FC_OK, store.getComponentPropertyDefault("D", "C", "p", value));
    EXPECT_EQ("2", value);
    for (const char* without : {"r", "x"})
        EXPECT_EQ(FC_NO_SUCH_NAME, store.getComponentPropertyDefault("D", "C", without, value));
    EXPECT_EQ("2", value);
}

} // namespace
