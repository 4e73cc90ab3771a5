#include "StoreFixture.h"

#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <thread>

namespace
{

using testing::IsEmpty;
using testing::StartsWith;

class DataSetsTest : public StoreTest
{
protected:
    int sizeOf(const std::string& component)
    {
        int size = -1;
        return store.getComponentSize("D", component, size) == FC_OK ? size : -1;
    }
};

TEST_F(DataSetsTest, LoadingTellsMissingUnreadableAndNamelessFilesApart)
{
    struct Case {
        std::string text; // empty: no file
        Fcodes byItself;
        std::string byItselfLine;
        Fcodes named;
        std::string namedLine;
    };
    const std::string bad =
        "ERROR loadDataSet: Failed to parse a dataset from file=/tmp/f\n err=* ";
    const std::string deep = "ERROR loadDataSet: Exc: Couldn't load dataset file=/tmp/f";
    const std::string nameless = "ERROR loadDataSet: Not found key=dataset in file=/tmp/f";
    for (const Case& c : {
             Case{"", FC_NO_SUCH_NAME, "ERROR loadDataSet: file stream !good/tmp/f",
                  FC_NO_SUCH_NAME, "ERROR load: file stream !good /tmp/f"},
             Case{"{ 'components': ", FC_UNAVAILABLE, bad, FC_UNAVAILABLE, bad},
             Case{std::string(2000, '['), FC_UNAVAILABLE, deep, FC_UNAVAILABLE, deep},
             Case{"{'components': {}}", FC_NO_SUCH_NAME, nameless, FC_OK, ""},
             Case{"[1]", FC_NO_SUCH_NAME, nameless, FC_OK, ""},
             Case{"{'dataset': ['D']}", FC_UNAVAILABLE, deep, FC_OK, ""},
             Case{"{'dataset': 'Own'}", FC_OK, "", FC_OK, ""},
         }) {
        SCOPED_TRACE(c.text.substr(0, 20));
        unlink("/tmp/f");
        if (!c.text.empty())
            write("/tmp/f", c.text);
        const auto expectLine = [this](const std::string& line) {
            const Lines lines = logged();
            EXPECT_EQ(line.empty() ? 0u : 1u, lines.size());
            EXPECT_THAT(lines, testing::Each(StartsWith(line)));
        };
        EXPECT_EQ(c.byItself, store.loadDataSet("/tmp/f"));
        expectLine(c.byItselfLine);
        EXPECT_EQ(c.named, store.loadDataSet("Given", "/tmp/f"));
        expectLine(c.namedLine);
    }
    EXPECT_EQ(FC_OK, store.storeDataSet("Own", "/tmp/own"));
}

TEST_F(DataSetsTest, AFailedLoadLeavesTheDatasetAndALaterOneReplacesItWhole)
{
    load("{'C': {'instance': {}}}");
    write("/tmp/f", "{'dataset': 'D', 'components': {]}");
    EXPECT_EQ(FC_UNAVAILABLE, store.loadDataSet("/tmp/f"));
    EXPECT_EQ(json("{'C': {'instance': {}}}"), committed());
    load("{'E': {}}");
    EXPECT_EQ(json("{'E': {}}"), committed());
}

TEST_F(DataSetsTest, StoringWritesTheCommittedStateOnly)
{
    load("{'C': {'properties': {'v': {'type': 'integer'}}, 'instance': {'v': 1}}}");
    const std::string before = committed();
    store.setIntParam("D", "C", "v", 2, "");
    EXPECT_EQ(before, committed());
    store.commit();
    EXPECT_NE(before, committed());

    EXPECT_EQ(FC_NO_SUCH_NAME, store.storeDataSet("X", "/tmp/none"));
    EXPECT_EQ(-1, access("/tmp/none", F_OK));
    EXPECT_EQ(FC_OK, store.storeDataSet("D", "/tmp/no such dir/file"));
    EXPECT_EQ((Lines{"ERROR storeDataSet: Not found dataset=X",
                     "ERROR storeDataSet: Couldn't write file=/tmp/no such dir/file errno=2"}),
              logged());
}

TEST_F(DataSetsTest, DatasetsAndComponentsComeAndGo)
{
    EXPECT_EQ(FC_OK, store.addComponent("D", "C"));
    EXPECT_EQ(FC_OK, store.loadComponent("D", "L", R"({"instances": [1, 2]})"));
    EXPECT_EQ(FC_OK, store.loadComponent("A", "L", "[]"));
    EXPECT_EQ(json("{'C': {'properties': {}}, 'L': {'instances': [1, 2]}}"), committed());
    EXPECT_EQ(FC_OK, store.storeDataSet("D", "/tmp/d"));
    EXPECT_EQ(FC_OK, store.loadDataSet("/tmp/d")) << "a dataset knows its own name";

    std::string dataset;
    EXPECT_EQ(FC_OK, store.findDataSetWithComponent(dataset, "L"));
    EXPECT_EQ("A", dataset);
    EXPECT_EQ(FC_OK, store.deleteDataSet("A"));
    EXPECT_EQ(FC_OK, store.deleteDataSet("A"));
    EXPECT_EQ(FC_OK, store.findDataSetWithComponent(dataset, "L"));
    EXPECT_EQ("D", dataset);
    EXPECT_EQ(FC_NO_SUCH_NAME, store.findDataSetWithComponent(dataset, "X"));
    EXPECT_EQ("D", dataset);

    EXPECT_EQ(FC_OK, store.addComponent("D", "L"));
    EXPECT_EQ(FC_OK, store.deleteComponent("D", "C"));
    EXPECT_EQ(FC_NO_SUCH_NAME, store.deleteComponent("D", "C"));
    EXPECT_EQ(json("{'L': {'properties': {}}}"), committed());
    EXPECT_EQ(FC_OK, store.addDataSet("D"));
    EXPECT_EQ(json("{}"), committed());
}

TEST_F(DataSetsTest, AComponentsSizeIsThatOfItsInstances)
{
    load("{'A': {'instances': []}, 'K': {'instances': {'a': {}, 'b': {}}}, "
         "'S': {'instance': {}}, 'N': {'instances': null}}");
    EXPECT_EQ(0, sizeOf("A"));
    EXPECT_EQ(2, sizeOf("K"));
    EXPECT_EQ(0, sizeOf("N"));
    EXPECT_EQ(-1, sizeOf("S"));
    EXPECT_EQ(-1, sizeOf("X"));
}

TEST_F(DataSetsTest, ABadComponentTextIsToldOnStandardOutput)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(FC_UNAVAILABLE, store.loadComponent("D", "C", "{bad"));
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                StartsWith("Failed to parse text:\n{bad\nerror=* Line 1, Column 2\n"));
    testing::internal::CaptureStdout();
    EXPECT_EQ(FC_UNAVAILABLE, store.loadComponent("D", "C", std::string(5000, '[')));
    EXPECT_THAT(testing::internal::GetCapturedStdout(), StartsWith("Failed to parse text:\n[["));
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(FC_NO_SUCH_NAME, store.storeDataSet("D", "/tmp/none"));
}

/// Calls everything on dataset "D", component "C", by key, by index and for the single instance.
void callEverything(DataSets& store)
{
    int number = 0;
    bool truth = false;
    std::string text;
    Lines names;
    std::list<std::string> values;
    const auto call = [&](const auto& instance) {
        store.touchDataSet("D");
        store.touchComponent("D", "C");
        store.getIntParam("D", "C", "p", number, instance);
        store.getNewTextParam("D", "C", "p", text, instance);
        store.getNewBoolParam("D", "C", "p", truth, instance);
        store.setIntParam("D", "C", "p", 1, instance);
        store.setTextParam("D", "C", "p", "1", instance);
        store.initBoolParam("D", "C", "p", true, instance);
        store.initTextParam("D", "C", "p", "x", instance);
        store.isChangedInstance("D", "C", instance);
        store.isChangedProperty("D", "C", "p", instance);
        store.hasInstance("D", "C", instance);
        store.commitComponent("D", "C");
        store.untouchProperty("D", "C", "p", instance);
        store.commit();
        store.removeInstance("D", "C", instance);
    };
    call(0);
    call(std::string("k"));
    call(std::string());
    store.getComponentSize("D", "C", number);
    store.findDataSetWithComponent(text, "C");
    store.getProperties("D", "C", names);
    store.getInstances("D", "C", names);
    store.getInstancesByParameter("D", "C", "p", "(Text) Contains", "x");
    store.getInstancesByParameter("D", "C", "p", "(Num) Less than", 3);
    store.getInstancesByKey("D", "C", "Exists", "");
    store.getComponentProperty("D", "C", "p", text, text, text, values);
    store.getComponentPropertyDefault("D", "C", "p", text);
    for (const char* other : {"R", "D"}) {
        store.updateDataSet("D", other, false, true, true);
        store.updateDataSet(other, "D", false, true, true);
    }
    store.appendInstance("D", "C", number);
    store.addInstance("D", "C", "k");
    store.addInstance("D", "C", "");
    store.clearComponent("D", "C");
    store.storeDataSet("D", "/tmp/hostile.out");
    store.touchDataSet("D");
    store.rollbackComponent("D", "C");
    store.loadComponent("D", "N", "{}");
    store.deleteComponent("D", "C");
    store.addComponent("D", "C");
}

TEST_F(DataSetsTest, AnyShapeMayStandAnywhereInADocument)
{
    const char* const documents[] = {
        "%",
        "{'components': %}",
        "{'components': {'C': %}}",
        "{'components': {'C': {'properties': %, 'instances': %, 'instance': %}}}",
        "{'components': {'C': {'properties': {'p': %}, 'instances': {'k': %}}}}",
        "{'components': {'C': {'properties': {'p': %}, 'instances': [%]}}}",
        "{'components': {'C': {'properties': {'p': {'type': %, 'values': %, 'default': %, "
        "'access': %}}, 'instances': {'k': {'p': %}}, 'instance': {'p': %}}}}",
        "{'components': {'C': {'properties': {'p': {'type': 'enum', 'values': [%]}}, "
        "'instances': [{'p': %}]}}}",
    };
    const char* const shapes[] = {"null", "true",        "-1",  "4294967296", "1.5", "1e300",
                                  "'x'",  "'integer'",   "[]",  "[[]]",       "{}",  "{'k': 1}",
                                  "[{}]", "{'p': ['']}", "[1]", "{'C': []}",  "''"};
    gDbgLevel = 5;
    for (const std::string document : documents) {
        for (const std::string shape : shapes) {
            std::string text = document;
            for (std::size_t at; (at = text.find('%')) != std::string::npos;)
                text.replace(at, 1, shape);
            SCOPED_TRACE(text);
            write("/tmp/hostile", text);
            store.loadDataSet("/tmp/hostile");
            ASSERT_EQ(FC_OK, store.loadDataSet("D", "/tmp/hostile"));
            ASSERT_EQ(FC_OK, store.loadDataSet("R", "/tmp/hostile"));
            ASSERT_NO_THROW(callEverything(store));
            // The same against a well-formed partner, and with a working copy of another shape.
            load("{'C': {'properties': {'p': {'type': 'integer'}}, 'instances': {'k': {'p': 1}}}}");
            store.touchDataSet("D");
            ASSERT_EQ(FC_OK, store.loadDataSet("D", "/tmp/hostile"));
            load("{'C': {'properties': {'q': {}}, 'instances': [{'p': 1}]}}", "R");
            ASSERT_NO_THROW(callEverything(store));
        }
    }
}

TEST_F(DataSetsTest, AStepOfSeveralCallsIsSeenWholeByOtherThreads)
{
    load("{'C': {'properties': {'a': {'type': 'integer'}, 'b': {'type': 'integer'}}, "
         "'instance': {'a': 0, 'b': 0}}}");
    std::atomic<bool> done = false;
    std::atomic<int> torn = 0;
    std::thread reader([&] {
        while (!done) {
            int a = 0;
            int b = 0;
            store.isChanged();
            store.isChangedProperty("D", "C", "a", "");
            const std::lock_guard guard(store);
            store.getIntParam("D", "C", "a", a, "");
            store.getNewIntParam("D", "C", "b", b, "");
            torn += a != b;
        }
    });
    std::thread storer([&] {
        for (int count = 0; count < 50; ++count) {
            const std::lock_guard guard(store);
            store.storeDataSet("D", "/tmp/shared");
        }
    });
    for (int value = 1; value <= 200; ++value) {
        const std::lock_guard guard(store);
        store.setIntParam("D", "C", "a", value, "");
        store.initIntParam("D", "C", "b", value, "");
        store.commit();
    }
    for (int count = 0; count < 50; ++count)
        store.storeDataSet("D", "/tmp/shared");
    done = true;
    reader.join();
    storer.join();
    EXPECT_EQ(0, torn);
}

TEST_F(DataSetsTest, WhenThreadsStoreTheSameFileItEndsWithTheLatestState)
{
    load("{'C': {'properties': {'v': {'type': 'integer'}}, 'instance': {'v': 0}}}");
    for (int round = 0; round < 20; ++round) {
        std::vector<std::thread> storers;
        for (int thread = 0; thread < 4; ++thread)
            storers.emplace_back([this, round, thread] {
                store.initIntParam("D", "C", "v", 10 * round + thread, "");
                store.storeDataSet("D", "/tmp/shared");
            });
        for (std::thread& storer : storers)
            storer.join();
        int inMemory = -1;
        int inFile = -2;
        store.getIntParam("D", "C", "v", inMemory, "");
        ASSERT_EQ(FC_OK, store.loadDataSet("F", "/tmp/shared"));
        store.getIntParam("F", "C", "v", inFile, "");
        ASSERT_EQ(inMemory, inFile);
    }
}

/// Kept on purpose, so held here: see addComponent().
TEST_F(DataSetsTest, ARefusedDatasetLeavesTheStoreLockedOnceMore)
{
    struct Refusing : DataSets {
        Fcodes addDataSet(const std::string&) override { return FC_ACCESS_DENIED; }
    } refusing;
    EXPECT_EQ(FC_NO_SUCH_NAME, refusing.addComponent("D", "C"));
    auto other = std::async(std::launch::async, [&refusing] {
        EXPECT_FALSE(refusing.isChanged()); // asks without waiting
        return refusing.hasInstance("D", "C", 0);
    });
    EXPECT_EQ(std::future_status::timeout, other.wait_for(std::chrono::milliseconds(20)));
    refusing.unlock();
    EXPECT_FALSE(other.get());
}

} // namespace
