#include "DataHolder.h"

#include "DbgLine.h"
#include "LogCapture.h"
#include "MessageEvent.h"
#include "RecordingStore.h"

#include <condition_variable>
#include <functional>
#include <gmock/gmock.h>

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

/// An application that notes what its worker is handed.
class NotingHolder : public DataHolder
{
public:
    NotingHolder() { init("tNoting"); }

    IDataSets* createDataSets() override { return &mStore; }
    Fcodes acceptChanges() override { return note("accept"); }
    Fcodes rollbackChanges() override { return note("rollback"); }

    Fcodes doExecute(const std::string& command, std::string& result) override
    {
        note("command " + command);
        result = "dropped";
        return DataHolder::doExecute(command, result);
    }

    Fcodes doHandle(MessageEvent* event) override { return note("event " + event->ID); }

    void pushUnknown() { push({9, 0, ::operator new(8)}); }

    /// What was noted, once `count` notes are there and the worker has come back for more.
    std::vector<std::string> notes(std::size_t count)
    {
        std::unique_lock guard(mNotesMutex);
        mNoted.wait_for(guard, std::chrono::seconds(30), [&] { return mNotes.size() >= count; });
        return mNotes;
    }

    RecordingStore mStore;

private:
    Fcodes note(const std::string& what)
    {
        const std::lock_guard guard(mNotesMutex);
        mNotes.push_back(what);
        mNoted.notify_all();
        return FC_OK;
    }

    std::mutex mNotesMutex;
    std::condition_variable mNoted;
    std::vector<std::string> mNotes;
};

/// Holders live as long as the process: their workers are never stopped.
NotingHolder& makeHolder()
{
    static NotingHolder* holder = nullptr;
    holder = new NotingHolder;
    return *holder;
}

MessageEvent* newEvent(const std::string& id)
{
    auto* event = new MessageEvent;
    event->ID = id;
    return event;
}

TEST(DataHolderTest, CommandsAndEventsReachTheWorkerInTheirOrder)
{
    LogCapture log;
    NotingHolder& holder = makeHolder();
    std::string result = "untouched";
    EXPECT_EQ(FC_OK, holder.execute("one", result));
    EXPECT_EQ(FC_OK, holder.handle(newEvent("two")));
    EXPECT_EQ(FC_OK, holder.execute("three", result));
    EXPECT_THAT(holder.notes(3), ElementsAre("command one", "event two", "command three"));
    EXPECT_EQ("untouched", result);
}

TEST(DataHolderTest, WorkerKnowsTwoCommandsToTheLetterAndWarnsOfOthers)
{
    LogCapture log;
    NotingHolder& holder = makeHolder();
    std::string result;
    for (const char* command :
         {"Accept Changes", "Accept Changes ", "accept changes", "Rollback Changes"})
        holder.execute(command, result);
    EXPECT_THAT(holder.notes(6),
                ElementsAre("command Accept Changes", "accept", "command Accept Changes ",
                            "command accept changes", "command Rollback Changes", "rollback"));
    const auto entries = log.entries();
    EXPECT_THAT(entries, Contains("INFO DataHolder:doExecute: arrived command=Accept Changes"));
    EXPECT_THAT(entries,
                Contains("WARN DataHolder:doExecute: Unsupported Command=Accept Changes "));
    EXPECT_THAT(entries, Contains("WARN DataHolder:doExecute: Unsupported Command=accept changes"));
    EXPECT_THAT(entries,
                Not(Contains("WARN DataHolder:doExecute: Unsupported Command=Rollback Changes")));
    EXPECT_THAT(log.text(), testing::HasSubstr(" tNoting("));
}

TEST(DataHolderTest, UnknownEntryIsReportedAndTheWorkerGoesOn)
{
    LogCapture log;
    NotingHolder& holder = makeHolder();
    holder.pushUnknown();
    holder.handle(newEvent("after"));
    EXPECT_THAT(holder.notes(1), ElementsAre("event after"));
    EXPECT_THAT(log.entries(), Contains("ERROR DataHolder:doWork: unknown event arrived id=9"));
}


TEST(DataHolderTest, EveryOperationOfTheStoreIsPassedOnWithItsArgumentsAndResult)
{
    LogCapture log;
    NotingHolder& h = makeHolder();
    int number = 0;
    bool flag = false;
    std::string text;
    std::vector<std::string> list;
    const auto fromBool = [](bool found) { return found ? FC_UNSUPPORTED : FC_OK; };
    const auto fromList = [](const std::vector<std::string>& found) {
        return found.size() == 1 && found[0] == "found" ? FC_UNSUPPORTED : FC_OK;
    };
    struct Row {
        const char* expected;
        std::function<Fcodes()> call;
    };
    const Row rows[] = {
        {"loadDataSet(path)", [&] { return h.loadDataSet("path"); }},
        {"loadDataSet(dataset, path)", [&] { return h.loadDataSet("dataset", "path"); }},
        {"storeDataSet(dataset, path)", [&] { return h.storeDataSet("dataset", "path"); }},
        {"deleteDataSet(dataset)", [&] { return h.deleteDataSet("dataset"); }},
        {"updateDataSet(src, ref, 0, 1, 0)",
         [&] { return h.updateDataSet("src", "ref", false, true, false); }},
        {"findDataSetWithComponent(component)",
         [&] { return h.findDataSetWithComponent(text, "component"); }},
        {"addInstance(dataset, component, key)",
         [&] { return h.addInstance("dataset", "component", std::string("key")); }},
        {"appendInstance(dataset, component)",
         [&] { return h.appendInstance("dataset", "component", number); }},
        {"removeInstance(dataset, component, 43)",
         [&] { return h.removeInstance("dataset", "component", 43); }},
        {"removeInstance(dataset, component, key)",
         [&] { return h.removeInstance("dataset", "component", std::string("key")); }},
        {"clearComponent(dataset, component)",
         [&] { return h.clearComponent("dataset", "component"); }},
        {"hasInstance(dataset, component, key)",
         [&] { return fromBool(h.hasInstance("dataset", "component", std::string("key"))); }},
        {"hasInstance(dataset, component, 43)",
         [&] { return fromBool(h.hasInstance("dataset", "component", 43)); }},
        {"getProperties(dataset, component)",
         [&] { return h.getProperties("dataset", "component", list); }},
        {"getInstances(dataset, component)",
         [&] { return h.getInstances("dataset", "component", list); }},
        {"getInstancesByParameter(dataset, component, property, condition, operand)",
         [&] {
             return fromList(h.getInstancesByParameter("dataset", "component", "property",
                                                       "condition", std::string("operand")));
         }},
        {"getInstancesByParameter(dataset, component, property, condition, 45)",
         [&] {
             return fromList(
                 h.getInstancesByParameter("dataset", "component", "property", "condition", 45));
         }},
        {"getInstancesByKey(dataset, component, condition, operand)",
         [&] {
             return fromList(
                 h.getInstancesByKey("dataset", "component", "condition", std::string("operand")));
         }},
        {"getComponentPropertyDefault(dataset, component, property)",
         [&] { return h.getComponentPropertyDefault("dataset", "component", "property", text); }},
        {"getIntParam(dataset, component, property, 45)",
         [&] { return h.getIntParam("dataset", "component", "property", number, 45); }},
        {"getIntParam(dataset, component, property, key)",
         [&] {
             return h.getIntParam("dataset", "component", "property", number, std::string("key"));
         }},
        {"getTextParam(dataset, component, property, 45)",
         [&] { return h.getTextParam("dataset", "component", "property", text, 45); }},
        {"getTextParam(dataset, component, property, key)",
         [&] {
             return h.getTextParam("dataset", "component", "property", text, std::string("key"));
         }},
        {"getBoolParam(dataset, component, property, 45)",
         [&] { return h.getBoolParam("dataset", "component", "property", flag, 45); }},
        {"getBoolParam(dataset, component, property, key)",
         [&] {
             return h.getBoolParam("dataset", "component", "property", flag, std::string("key"));
         }},
        {"getNewIntParam(dataset, component, property, 45)",
         [&] { return h.getNewIntParam("dataset", "component", "property", number, 45); }},
        {"getNewIntParam(dataset, component, property, key)",
         [&] {
             return h.getNewIntParam("dataset", "component", "property", number,
                                     std::string("key"));
         }},
        {"getNewTextParam(dataset, component, property, 45)",
         [&] { return h.getNewTextParam("dataset", "component", "property", text, 45); }},
        {"getNewTextParam(dataset, component, property, key)",
         [&] {
             return h.getNewTextParam("dataset", "component", "property", text, std::string("key"));
         }},
        {"getNewBoolParam(dataset, component, property, 45)",
         [&] { return h.getNewBoolParam("dataset", "component", "property", flag, 45); }},
        {"getNewBoolParam(dataset, component, property, key)",
         [&] {
             return h.getNewBoolParam("dataset", "component", "property", flag, std::string("key"));
         }},
        {"setIntParam(dataset, component, property, 44, 45)",
         [&] { return h.setIntParam("dataset", "component", "property", 44, 45); }},
        {"setIntParam(dataset, component, property, 44, key)",
         [&] { return h.setIntParam("dataset", "component", "property", 44, std::string("key")); }},
        {"setTextParam(dataset, component, property, value, 45)",
         [&] {
             return h.setTextParam("dataset", "component", "property", std::string("value"), 45);
         }},
        {"setTextParam(dataset, component, property, value, key)",
         [&] {
             return h.setTextParam("dataset", "component", "property", std::string("value"),
                                   std::string("key"));
         }},
        {"setBoolParam(dataset, component, property, 1, 45)",
         [&] { return h.setBoolParam("dataset", "component", "property", true, 45); }},
        {"setBoolParam(dataset, component, property, 1, key)",
         [&] {
             return h.setBoolParam("dataset", "component", "property", true, std::string("key"));
         }},
        {"initIntParam(dataset, component, property, 44, 45)",
         [&] { return h.initIntParam("dataset", "component", "property", 44, 45); }},
        {"initIntParam(dataset, component, property, 44, key)",
         [&] {
             return h.initIntParam("dataset", "component", "property", 44, std::string("key"));
         }},
        {"initTextParam(dataset, component, property, value, 45)",
         [&] {
             return h.initTextParam("dataset", "component", "property", std::string("value"), 45);
         }},
        {"initTextParam(dataset, component, property, value, key)",
         [&] {
             return h.initTextParam("dataset", "component", "property", std::string("value"),
                                    std::string("key"));
         }},
        {"initBoolParam(dataset, component, property, 1, 45)",
         [&] { return h.initBoolParam("dataset", "component", "property", true, 45); }},
        {"initBoolParam(dataset, component, property, 1, key)",
         [&] {
             return h.initBoolParam("dataset", "component", "property", true, std::string("key"));
         }},
        {"touchDataSet(dataset)",
         [&] {
             h.touchDataSet("dataset");
             return FC_UNSUPPORTED;
         }},
        {"untouchDataSet(dataset)",
         [&] {
             h.untouchDataSet("dataset");
             return FC_UNSUPPORTED;
         }},
        {"touchComponent(dataset, component)",
         [&] {
             h.touchComponent("dataset", "component");
             return FC_UNSUPPORTED;
         }},
        {"untouchComponent(dataset, component)",
         [&] {
             h.untouchComponent("dataset", "component");
             return FC_UNSUPPORTED;
         }},
        {"isChanged()", [&] { return fromBool(h.isChanged()); }},
        {"isChangedDataSet(dataset)", [&] { return fromBool(h.isChangedDataSet("dataset")); }},
        {"isChangedComponent(dataset, component)",
         [&] { return fromBool(h.isChangedComponent("dataset", "component")); }},
        {"isChangedInstance(dataset, component, key)",
         [&] { return fromBool(h.isChangedInstance("dataset", "component", std::string("key"))); }},
        {"isChangedInstance(dataset, component, 43)",
         [&] { return fromBool(h.isChangedInstance("dataset", "component", 43)); }},
        {"isChangedProperty(dataset, component, property, key)",
         [&] {
             return fromBool(
                 h.isChangedProperty("dataset", "component", "property", std::string("key")));
         }},
        {"isChangedProperty(dataset, component, property, 44)",
         [&] { return fromBool(h.isChangedProperty("dataset", "component", "property", 44)); }},
        {"commit()", [&] { return h.commit(); }},
        {"commitComponent(dataset, component)",
         [&] { return h.commitComponent("dataset", "component"); }},
        {"rollback()", [&] { return h.rollback(); }},
        {"rollbackComponent(dataset, component)",
         [&] { return h.rollbackComponent("dataset", "component"); }},
    };
    for (const auto& [expected, call] : rows) {
        number = 0;
        flag = false;
        text.clear();
        list.clear();
        EXPECT_EQ(FC_UNSUPPORTED, call()) << expected;
        EXPECT_EQ(expected, h.mStore.mLast);
        const std::string operation = expected;
        const bool reads = operation.starts_with("get");
        const auto isOf = [&](const char* type) {
            return reads && operation.find(type) != std::string::npos;
        };
        EXPECT_EQ(isOf("IntParam(") || operation.starts_with("append"), number == 7) << expected;
        EXPECT_EQ(isOf("BoolParam("), flag) << expected;
        EXPECT_EQ(isOf("TextParam(") || isOf("Default(") || operation.starts_with("find"),
                  text == "seven")
            << expected;
    }
}

} // namespace
