#include "DataHolder.h"

#include "DataSets.h"
#include "DbgLine.h"
#include "LogCapture.h"
#include "MessageEvent.h"

#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kUnit[] = "Application";

/// An application that logs what its worker passes to it.
class LoggingHolder : public DataHolder
{
public:
    LoggingHolder() { init("tWorker"); }

    IDataSets* createDataSets() override { return mStore = DataHolder::createDataSets(); }
    Fcodes acceptChanges() override { return log("accept"); }
    Fcodes rollbackChanges() override { return log("rollback"); }

    Fcodes doExecute(const std::string& command, std::string& result) override
    {
        log("command " + command);
        result = "dropped";
        return DataHolder::doExecute(command, result);
    }

    Fcodes doHandle(MessageEvent* event) override { return log("event " + event->ID); }

    void pushUnknown() { push({9, 0, ::operator new(8)}); }

    IDataSets* mStore = nullptr;

private:
    static Fcodes log(const std::string& call)
    {
        DBG_LOG(SEV_WARN) << call;
        return FC_OK;
    }
};

TEST(DataHolderTest, WorkerServesTheQueueInOrderAndCarriesOutTwoExactCommands)
{
    LogCapture log;
    static LoggingHolder& holder = *new LoggingHolder; // its worker is never stopped
    std::string result = "untouched";
    EXPECT_EQ(FC_OK, holder.execute("accept changes", result));
    auto* const event = new MessageEvent;
    event->ID = "two";
    EXPECT_EQ(FC_OK, holder.handle(event));
    holder.pushUnknown();
    for (const char* command : {"Accept Changes", "Accept Changes ", "Rollback Changes"})
        holder.execute(command, result);
    EXPECT_TRUE(log.waitFor(":rollback\n"));
    EXPECT_EQ("untouched", result);
    EXPECT_THAT(log.text(), HasSubstr(" tWorker("));
    const std::string arrived = "INFO DataHolder:doExecute: arrived command=";
    const std::string unsupported = "WARN DataHolder:doExecute: Unsupported Command=";
    EXPECT_THAT(log.take(kUnit),
                ElementsAre("WARN command accept changes", arrived + "accept changes",
                            unsupported + "accept changes", "WARN event two",
                            "ERROR DataHolder:doWork: unknown event arrived id=9",
                            "WARN command Accept Changes", arrived + "Accept Changes",
                            "WARN accept", "WARN command Accept Changes ",
                            arrived + "Accept Changes ", unsupported + "Accept Changes ",
                            "WARN command Rollback Changes", arrived + "Rollback Changes",
                            "WARN rollback"));
}

TEST(DataHolderTest, AnApplicationWithoutAStoreIsToldSo)
{
    struct Storeless : DataHolder {
        IDataSets* createDataSets() override { return nullptr; }
        Fcodes doHandle(MessageEvent*) override { return FC_OK; }
    };
    LogCapture log;
    static Storeless& holder = *new Storeless; // its worker is never stopped
    holder.init("tWorker");
    EXPECT_THAT(log.entries(), ElementsAre("FATAL DataHolder:DataHolder::init Couldn't create "
                                           "dataSets_json Object"));
}

TEST(DataHolderTest, EachStoreOperationIsForwardedToTheStore)
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
        const auto traceInstance = [&](const std::string& component, const auto& instance,
                                       const auto& other) {
            trace(s.setIntParam("D", component, "i", 10, instance));
            trace(s.setTextParam("D", component, "t", "set", instance));
            trace(s.setBoolParam("D", component, "b", true, instance));
            trace(s.getIntParam("D", component, "i", n, instance), n);
            trace(s.getTextParam("D", component, "t", t, instance), t);
            trace(s.getBoolParam("D", component, "b", b, instance), b);
            trace(s.getNewIntParam("D", component, "i", n, instance), n);
            trace(s.getNewTextParam("D", component, "t", t, instance), t);
            trace(s.getNewBoolParam("D", component, "b", b, instance), b);
            trace(s.initIntParam("D", component, "i", 20, other));
            trace(s.initTextParam("D", component, "t", "init", other));
            trace(s.initBoolParam("D", component, "b", true, other));
            for (const auto& each : {instance, other})
                trace(s.hasInstance("D", component, each),
                      s.isChangedInstance("D", component, each),
                      s.isChangedProperty("D", component, "i", each));
            trace(s.isChangedProperty("D", component, "x", instance));
            trace(s.removeInstance("D", component, other));
            trace(s.hasInstance("D", component, other));
        };
        traceInstance("K", std::string("a"), std::string("b"));
        traceInstance("I", 0, 1);
        trace(s.isChanged(), s.isChangedDataSet("D"), s.isChangedDataSet("R"));
        trace(s.isChangedComponent("D", "K"), s.isChangedComponent("D", "S"));
        trace(s.setTextParam("D", "S", "t", "zero", ""));
        trace(s.rollbackComponent("D", "I"));
        trace(s.commitComponent("D", "K"));
        trace((s.touchComponent("D", "S"), "touched"));
        trace((s.touchDataSet("D"), "touched"));
        trace((s.untouchComponent("D", "S"), "untouched"));
        trace((s.untouchDataSet("D"), s.isChanged()));
        trace((s.setTextParam("D", "S", "t", "first", ""), s.commit()));
        trace((s.setTextParam("D", "S", "t", "second", ""), s.rollback()));
        trace(s.addInstance("D", "K", "c"));
        trace(s.appendInstance("D", "I", n), n);
        trace(s.clearComponent("D", "S"));
        trace(s.updateDataSet("D", "R", true, false, true));
        trace(s.updateDataSet("D", "R", true, true, false));
        trace(s.storeDataSet("D", "/tmp"), s.lastStoreError("/tmp"));
        trace(s.storeDataSet("D", "/tmp/stored"));
        trace(std::remove("/tmp/stored"));
        trace(s.deleteDataSet("R"));
        trace(s.updateDataSet("R", "D", false, false, false)); // fails: its line names both
        return lines;
    };
    DataSets store;
    const std::vector<std::string> expected = callEach(store, store);
    const std::vector<std::string> logged = log.entries();
    log.clear();
    static LoggingHolder& holder = *new LoggingHolder; // its worker is never stopped
    EXPECT_EQ(expected, callEach(holder, *holder.mStore));
    EXPECT_EQ(logged, log.entries());
    const auto ofFailure = testing::StartsWith(std::to_string(FC_NO_SUCH_NAME));
    EXPECT_THAT(expected, testing::Contains(ofFailure).Times(1)) << "the last";
}

} // namespace
