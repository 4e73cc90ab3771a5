#include "DataHolder.h"

#include "ChildProcess.h"
#include "DataSets.h"
#include "DbgLine.h"
#include "LogCapture.h"
#include "MessageEvent.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <sstream>

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

// The operations as applications and peers' doubles declare them.
template <typename Wanted, typename Declared>
constexpr bool isDeclaredAs(Declared)
{
    return std::is_same_v<Wanted, Declared>;
}
using Names = const std::string&;
static_assert(isDeclaredAs<void (IDataHolder::*)(std::string, DataSet*)>(&IDataHolder::addDataSet));
static_assert(isDeclaredAs<DataSet* (IDataHolder::*)(std::string)>(&IDataHolder::getDataSet));
static_assert(isDeclaredAs<DataSet* (IDataHolder::*)(Names)>(&IDataHolder::findDataSetWithTable));
static_assert(isDeclaredAs<Fcodes (IDataHolder::*)(Names, Names, std::string&, unsigned, unsigned)>(
    &IDataHolder::requestCommand));
static_assert(isDeclaredAs<Fcodes (IDataHolder::*)(Names, Names, int, int&, unsigned, unsigned)>(
    &IDataHolder::requestAddRow));
static_assert(isDeclaredAs<Fcodes (DataHolder::*)(Names, MessageEvent&, unsigned, unsigned)>(
    &DataHolder::requestEvent));

/// An application that records what its worker passes to it.
class RecordingHolder : public DataHolder
{
public:
    RecordingHolder() { init("tRecorder"); }

    IDataSets* createDataSets() override { return mStore = DataHolder::createDataSets(); }
    Fcodes acceptChanges() override { return record("accept"); }
    Fcodes rollbackChanges() override { return record("rollback"); }

    Fcodes doExecute(const std::string& command, std::string& result) override
    {
        record("command " + command);
        result = "dropped";
        return DataHolder::doExecute(command, result);
    }

    Fcodes doHandle(MessageEvent* event) override { return record("event " + event->ID); }

    void pushUnknown() { push({9, 0, ::operator new(8)}); }

    /// The records, once there are `count`.
    std::vector<std::string> records(std::size_t count)
    {
        eventually([&] { return copyOfRecords().size() >= count; });
        return copyOfRecords();
    }

    IDataSets* mStore = nullptr;

private:
    Fcodes record(const std::string& what)
    {
        const std::lock_guard guard(mRecordsMutex);
        mRecords.push_back(what);
        return FC_OK;
    }

    std::vector<std::string> copyOfRecords()
    {
        const std::lock_guard guard(mRecordsMutex);
        return mRecords;
    }

    std::mutex mRecordsMutex;
    std::vector<std::string> mRecords;
};

/// Holders live as long as the process: their workers are never stopped.
RecordingHolder& makeHolder()
{
    static RecordingHolder* holder = nullptr;
    holder = new RecordingHolder;
    return *holder;
}

TEST(DataHolderTest, WorkerTakesEntriesInTheirOrderAndKnowsTwoCommandsToTheLetter)
{
    LogCapture log;
    RecordingHolder& holder = makeHolder();
    std::string result = "untouched";
    EXPECT_EQ(FC_OK, holder.execute("accept changes", result));
    auto* const event = new MessageEvent;
    event->ID = "two";
    EXPECT_EQ(FC_OK, holder.handle(event));
    holder.pushUnknown();
    for (const char* command : {"Accept Changes", "Accept Changes ", "Rollback Changes"})
        holder.execute(command, result);
    EXPECT_THAT(holder.records(7),
                ElementsAre("command accept changes", "event two", "command Accept Changes",
                            "accept", "command Accept Changes ", "command Rollback Changes",
                            "rollback"));
    EXPECT_EQ("untouched", result);
    EXPECT_THAT(log.text(), HasSubstr(" tRecorder("));
    std::vector<std::string> lines;
    for (const std::string& line : log.entries())
        if (!line.starts_with("INFO") || line.ends_with("Accept Changes"))
            lines.push_back(line);
    EXPECT_THAT(lines,
                ElementsAre("WARN DataHolder:doExecute: Unsupported Command=accept changes",
                            "ERROR DataHolder:doWork: unknown event arrived id=9",
                            "INFO DataHolder:doExecute: arrived command=Accept Changes",
                            "WARN DataHolder:doExecute: Unsupported Command=Accept Changes "));
}

TEST(DataHolderTest, ItsLockIsRecursiveAndOfTheThreadThatTookItAlsoBeforeInit)
{
    struct Holder : DataHolder {
        Fcodes doHandle(MessageEvent*) override { return FC_OK; }
    } holder;
    const auto ofAnother = [&](auto operation) {
        return std::async(std::launch::async, operation).get();
    };
    EXPECT_EQ(EPERM, holder.unlock());
    EXPECT_EQ(0, holder.lock());
    EXPECT_EQ(0, holder.lock());
    EXPECT_EQ(EPERM, ofAnother([&] { return holder.unlock(); }));
    EXPECT_EQ(0, holder.unlock());
    EXPECT_EQ(0, holder.unlock());
    EXPECT_EQ(EPERM, holder.unlock());
}

TEST(DataHolderTest, EveryOperationOfTheStoreDoesOnTheHolderWhatItDoesOnAStore)
{
    LogCapture log;
    const std::string rows = R"({"properties": {"i": {"type": "integer", "default": 5},
        "t": {"type": "string"}, "b": {"type": "boolean"}}, )";
    std::ofstream("/tmp/holder") << R"({"dataset": "R", "components": {"K": )" + rows +
                                        R"("instances": {"a": {"i": 1, "t": "x", "b": false},
        "b": {"i": 2, "t": "y", "b": true}}}, "I": )" +
                                        rows + R"("instances": [
        {"i": 3, "t": "v", "b": true}, {"i": 4, "t": "w", "b": false}]}, "S": )" +
                                        rows + R"("instance": {"i": 6, "t": "u"}}}})";
    /// Calls `s`; `store` is what it works on. A line for each call: the results, and what changed.
    const auto callEach = [](auto& s, IDataSets& store) {
        std::vector<std::string> lines;
        const auto trace = [&](const auto&... results) {
            std::string line;
            ((line += testing::PrintToString(results) + ' '), ...);
            std::remove("/tmp/state");
            store.storeDataSet("D", "/tmp/state");
            std::ostringstream state;
            state << std::ifstream("/tmp/state").rdbuf();
            for (const char* component : {"K", "I", "S"})
                state << store.isChangedComponent("D", component);
            for (const char* key : {"a", "b", ""}) {
                std::string value;
                store.getNewTextParam("D", *key == 0 ? "S" : "K", "t", value, key);
                state << value << store.isChangedProperty("D", "K", "i", key);
            }
            lines.push_back(line + std::to_string(std::hash<std::string>()(state.str())));
        };
        int n = 0;
        bool b = false;
        std::string t;
        std::vector<std::string> list;
        trace(s.loadDataSet("/tmp/holder"));
        trace(s.loadDataSet("D", "/tmp/holder"));
        trace(s.findDataSetWithComponent(t, "K"), t);
        trace(s.getProperties("D", "K", list), list);
        trace(s.getInstances("D", "K", list), list);
        trace(s.getInstancesByParameter("D", "K", "i", "(Num) Less than", "10"));
        trace(s.getInstancesByParameter("D", "K", "i", "(Num) Less than", 2));
        trace(s.getInstancesByKey("D", "K", "(Text) Starts with", "b"));
        trace(s.getComponentPropertyDefault("D", "K", "i", t), t);
        trace(s.hasInstance("D", "K", "a"), s.hasInstance("D", "K", "c"));
        trace(s.hasInstance("D", "I", 1), s.hasInstance("D", "I", 2));
        trace(s.setIntParam("D", "K", "i", 10, "a"));
        trace(s.setIntParam("D", "I", "i", 11, 1));
        trace(s.setTextParam("D", "K", "t", "set", "a"));
        trace(s.setTextParam("D", "I", "t", "put", 1));
        trace(s.setBoolParam("D", "K", "b", true, "a"));
        trace(s.setBoolParam("D", "I", "b", true, 1));
        trace(s.getIntParam("D", "K", "i", n, "a"), n);
        trace(s.getIntParam("D", "I", "i", n, 1), n);
        trace(s.getTextParam("D", "K", "t", t, "a"), t);
        trace(s.getTextParam("D", "I", "t", t, 1), t);
        trace(s.getBoolParam("D", "K", "b", b, "a"), b);
        trace(s.getBoolParam("D", "I", "b", b, 1), b);
        trace(s.getNewIntParam("D", "K", "i", n, "a"), n);
        trace(s.getNewIntParam("D", "I", "i", n, 1), n);
        trace(s.getNewTextParam("D", "K", "t", t, "a"), t);
        trace(s.getNewTextParam("D", "I", "t", t, 1), t);
        trace(s.getNewBoolParam("D", "K", "b", b, "a"), b);
        trace(s.getNewBoolParam("D", "I", "b", b, 1), b);
        trace(s.isChanged(), s.isChangedDataSet("D"), s.isChangedDataSet("R"));
        trace(s.isChangedComponent("D", "K"), s.isChangedComponent("D", "S"));
        trace(s.isChangedInstance("D", "K", "a"), s.isChangedInstance("D", "K", "b"));
        trace(s.isChangedInstance("D", "I", 1), s.isChangedInstance("D", "I", 2));
        trace(s.isChangedProperty("D", "K", "i", "a"), s.isChangedProperty("D", "K", "x", "a"));
        trace(s.isChangedProperty("D", "I", "i", 1), s.isChangedProperty("D", "I", "i", 0));
        trace(s.rollbackComponent("D", "I"));
        trace(s.commitComponent("D", "K"));
        trace(s.initIntParam("D", "K", "i", 20, "b"));
        trace(s.initIntParam("D", "I", "i", 21, 0));
        trace(s.initTextParam("D", "K", "t", "init", "b"));
        trace(s.initTextParam("D", "I", "t", "start", 0));
        trace(s.initBoolParam("D", "K", "b", false, "b"));
        trace(s.initBoolParam("D", "I", "b", false, 0));
        trace((s.touchComponent("D", "S"), "touched"));
        trace((s.touchDataSet("D"), "touched"));
        trace((s.untouchComponent("D", "S"), "untouched"));
        trace((s.untouchDataSet("D"), s.isChanged()));
        trace((s.setTextParam("D", "S", "t", "first", ""), s.commit()));
        trace((s.setTextParam("D", "S", "t", "second", ""), s.rollback()));
        trace(s.addInstance("D", "K", "c"));
        trace(s.appendInstance("D", "I", n), n);
        trace(s.removeInstance("D", "I", 0));
        trace(s.removeInstance("D", "K", "b"));
        trace(s.clearComponent("D", "S"));
        trace(s.updateDataSet("D", "R", true, false, true));
        trace(s.updateDataSet("D", "R", true, true, false));
        trace(s.storeDataSet("D", "/tmp/stored"));
        trace(std::filesystem::remove("/tmp/stored"));
        trace(s.deleteDataSet("R"));
        trace(s.updateDataSet("R", "D", false, false, false)); // fails: its line names both
        return lines;
    };
    DataSets store;
    const std::vector<std::string> expected = callEach(store, store);
    const std::vector<std::string> logged = log.entries();
    log.clear();
    RecordingHolder& holder = makeHolder();
    EXPECT_EQ(expected, callEach(holder, *holder.mStore));
    EXPECT_EQ(logged, log.entries());
    const auto ofFailure = testing::StartsWith(std::to_string(FC_NO_SUCH_NAME));
    EXPECT_THAT(expected, testing::Contains(ofFailure).Times(1)) << "the last";
}

} // namespace
