#include "DataHolder.h"

#include "ChildProcess.h"
#include "DbgLine.h"
#include "LogCapture.h"
#include "MessageEvent.h"
#include "RecordingStore.h"

#include <cerrno>
#include <functional>
#include <future>
#include <gmock/gmock.h>

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

    /// What was noted, once `count` notes are there.
    std::vector<std::string> notes(std::size_t count)
    {
        eventually([&] { return copyOfNotes().size() >= count; });
        return copyOfNotes();
    }

    RecordingStore mStore;

private:
    Fcodes note(const std::string& what)
    {
        const std::lock_guard guard(mNotesMutex);
        mNotes.push_back(what);
        return FC_OK;
    }

    std::vector<std::string> copyOfNotes()
    {
        const std::lock_guard guard(mNotesMutex);
        return mNotes;
    }

    std::mutex mNotesMutex;
    std::vector<std::string> mNotes;
};

/// Holders live as long as the process: their workers are never stopped.
NotingHolder& makeHolder()
{
    static NotingHolder* holder = nullptr;
    holder = new NotingHolder;
    return *holder;
}

TEST(DataHolderTest, WorkerTakesEntriesInTheirOrderAndKnowsTwoCommandsToTheLetter)
{
    LogCapture log;
    NotingHolder& holder = makeHolder();
    std::string result = "untouched";
    EXPECT_EQ(FC_OK, holder.execute("accept changes", result));
    auto* const event = new MessageEvent;
    event->ID = "two";
    EXPECT_EQ(FC_OK, holder.handle(event));
    holder.pushUnknown();
    for (const char* command : {"Accept Changes", "Accept Changes ", "Rollback Changes"})
        holder.execute(command, result);
    EXPECT_THAT(holder.notes(7),
                ElementsAre("command accept changes", "event two", "command Accept Changes",
                            "accept", "command Accept Changes ", "command Rollback Changes",
                            "rollback"));
    EXPECT_EQ("untouched", result);
    EXPECT_THAT(log.text(), HasSubstr(" tNoting("));
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

TEST(DataHolderTest, EveryOperationOfTheStoreIsPassedOnWithItsArgumentsAndResult)
{
    LogCapture log;
    NotingHolder& h = makeHolder();
    int n = 0;
    bool b = false;
    std::string t;
    std::vector<std::string> list;
    const std::string key = "key";
    const std::string val = "val";
    const auto is = [](bool found) { return found ? FC_UNSUPPORTED : FC_OK; };
    const auto in = [&is](const auto& found) {
        return is(found == std::vector<std::string>{"found"});
    };
    const auto did = [] { return FC_UNSUPPORTED; };
    const struct {
        std::string expected;
        std::function<Fcodes()> call;
    } rows[] = {
        // clang-format off
        {"loadDataSet(path)", [&] { return h.loadDataSet("path"); }},
        {"loadDataSet(d, path)", [&] { return h.loadDataSet("d", "path"); }},
        {"storeDataSet(d, path)", [&] { return h.storeDataSet("d", "path"); }},
        {"deleteDataSet(d)", [&] { return h.deleteDataSet("d"); }},
        {"updateDataSet(src, ref, 0, 1, 0)", [&] { return h.updateDataSet("src", "ref", false, true, false); }},
        {"findDataSetWithComponent(c)", [&] { return h.findDataSetWithComponent(t, "c"); }},
        {"addInstance(d, c, key)", [&] { return h.addInstance("d", "c", key); }},
        {"appendInstance(d, c)", [&] { return h.appendInstance("d", "c", n); }},
        {"removeInstance(d, c, 43)", [&] { return h.removeInstance("d", "c", 43); }},
        {"removeInstance(d, c, key)", [&] { return h.removeInstance("d", "c", key); }},
        {"clearComponent(d, c)", [&] { return h.clearComponent("d", "c"); }},
        {"hasInstance(d, c, key)", [&] { return is(h.hasInstance("d", "c", key)); }},
        {"hasInstance(d, c, 43)", [&] { return is(h.hasInstance("d", "c", 43)); }},
        {"getProperties(d, c)", [&] { return h.getProperties("d", "c", list); }},
        {"getInstances(d, c)", [&] { return h.getInstances("d", "c", list); }},
        {"getInstancesByParameter(d, c, p, =, val)", [&] { return in(h.getInstancesByParameter("d", "c", "p", "=", val)); }},
        {"getInstancesByParameter(d, c, p, =, 45)", [&] { return in(h.getInstancesByParameter("d", "c", "p", "=", 45)); }},
        {"getInstancesByKey(d, c, =, val)", [&] { return in(h.getInstancesByKey("d", "c", "=", val)); }},
        {"getComponentPropertyDefault(d, c, p)", [&] { return h.getComponentPropertyDefault("d", "c", "p", t); }},
        {"getIntParam(d, c, p, 45)", [&] { return h.getIntParam("d", "c", "p", n, 45); }},
        {"getIntParam(d, c, p, key)", [&] { return h.getIntParam("d", "c", "p", n, key); }},
        {"getTextParam(d, c, p, 45)", [&] { return h.getTextParam("d", "c", "p", t, 45); }},
        {"getTextParam(d, c, p, key)", [&] { return h.getTextParam("d", "c", "p", t, key); }},
        {"getBoolParam(d, c, p, 45)", [&] { return h.getBoolParam("d", "c", "p", b, 45); }},
        {"getBoolParam(d, c, p, key)", [&] { return h.getBoolParam("d", "c", "p", b, key); }},
        {"getNewIntParam(d, c, p, 45)", [&] { return h.getNewIntParam("d", "c", "p", n, 45); }},
        {"getNewIntParam(d, c, p, key)", [&] { return h.getNewIntParam("d", "c", "p", n, key); }},
        {"getNewTextParam(d, c, p, 45)", [&] { return h.getNewTextParam("d", "c", "p", t, 45); }},
        {"getNewTextParam(d, c, p, key)", [&] { return h.getNewTextParam("d", "c", "p", t, key); }},
        {"getNewBoolParam(d, c, p, 45)", [&] { return h.getNewBoolParam("d", "c", "p", b, 45); }},
        {"getNewBoolParam(d, c, p, key)", [&] { return h.getNewBoolParam("d", "c", "p", b, key); }},
        {"setIntParam(d, c, p, 44, 45)", [&] { return h.setIntParam("d", "c", "p", 44, 45); }},
        {"setIntParam(d, c, p, 44, key)", [&] { return h.setIntParam("d", "c", "p", 44, key); }},
        {"setTextParam(d, c, p, val, 45)", [&] { return h.setTextParam("d", "c", "p", val, 45); }},
        {"setTextParam(d, c, p, val, key)", [&] { return h.setTextParam("d", "c", "p", val, key); }},
        {"setBoolParam(d, c, p, 1, 45)", [&] { return h.setBoolParam("d", "c", "p", true, 45); }},
        {"setBoolParam(d, c, p, 1, key)", [&] { return h.setBoolParam("d", "c", "p", true, key); }},
        {"initIntParam(d, c, p, 44, 45)", [&] { return h.initIntParam("d", "c", "p", 44, 45); }},
        {"initIntParam(d, c, p, 44, key)", [&] { return h.initIntParam("d", "c", "p", 44, key); }},
        {"initTextParam(d, c, p, val, 45)", [&] { return h.initTextParam("d", "c", "p", val, 45); }},
        {"initTextParam(d, c, p, val, key)", [&] { return h.initTextParam("d", "c", "p", val, key); }},
        {"initBoolParam(d, c, p, 1, 45)", [&] { return h.initBoolParam("d", "c", "p", true, 45); }},
        {"initBoolParam(d, c, p, 1, key)", [&] { return h.initBoolParam("d", "c", "p", true, key); }},
        {"touchDataSet(d)", [&] { return h.touchDataSet("d"), did(); }},
        {"untouchDataSet(d)", [&] { return h.untouchDataSet("d"), did(); }},
        {"touchComponent(d, c)", [&] { return h.touchComponent("d", "c"), did(); }},
        {"untouchComponent(d, c)", [&] { return h.untouchComponent("d", "c"), did(); }},
        {"isChanged()", [&] { return is(h.isChanged()); }},
        {"isChangedDataSet(d)", [&] { return is(h.isChangedDataSet("d")); }},
        {"isChangedComponent(d, c)", [&] { return is(h.isChangedComponent("d", "c")); }},
        {"isChangedInstance(d, c, key)", [&] { return is(h.isChangedInstance("d", "c", key)); }},
        {"isChangedInstance(d, c, 43)", [&] { return is(h.isChangedInstance("d", "c", 43)); }},
        {"isChangedProperty(d, c, p, key)", [&] { return is(h.isChangedProperty("d", "c", "p", key)); }},
        {"isChangedProperty(d, c, p, 44)", [&] { return is(h.isChangedProperty("d", "c", "p", 44)); }},
        {"commit()", [&] { return h.commit(); }},
        {"commitComponent(d, c)", [&] { return h.commitComponent("d", "c"); }},
        {"rollback()", [&] { return h.rollback(); }},
        {"rollbackComponent(d, c)", [&] { return h.rollbackComponent("d", "c"); }},
        // clang-format on
    };
    for (const auto& [expected, call] : rows) {
        n = 0;
        b = false;
        t.clear();
        EXPECT_EQ(FC_UNSUPPORTED, call()) << expected;
        EXPECT_EQ(expected, h.mStore.mLast);
        const auto gets = [&](const char* type) {
            return expected.starts_with("get") && expected.find(type) != std::string::npos;
        };
        EXPECT_EQ(gets("IntParam(") || expected.starts_with("append"), n == 7) << expected;
        EXPECT_EQ(gets("BoolParam("), b) << expected;
        EXPECT_EQ(gets("TextParam(") || gets("Default(") || expected.starts_with("find"),
                  t == "seven")
            << expected;
    }
}

} // namespace
