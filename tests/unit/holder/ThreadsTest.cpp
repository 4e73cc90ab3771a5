// Eight threads at once on each unit that several threads share, for the thread sanitizer;
// SYSMGT_OPERATIONS says how much each of them does.

#include "ChildProcess.h"
#include "DataHolder.h"
#include "DataSet.h"
#include "DataSets.h"
#include "DbgLine.h"
#include "RandomOperations.h"
#include "ScriptedPeer.h"
#include "TableFixture.h"
#include "base/LocalTime.h"
#include "table/TableCell.h"
#include "wire/ResponseHistory.h"

#include <gmock/gmock.h>
#include <thread>

namespace
{

constexpr char kUnit[] = "Threads";
constexpr char kCommand[] = "<BODY><Command ID=\"Do\" /></BODY>";

/// Counts what its worker is given.
struct Counter : DataHolder {
    Fcodes doExecute(const std::string&, std::string&) override { return ++served, FC_OK; }
    Fcodes doHandle(MessageEvent*) override { return ++served, FC_OK; }
    std::atomic<int> queued = 0, served = 0;
};

TEST(ThreadsTest, EightThreadsShareEachUnit)
{
    const int amount = variable("SYSMGT_OPERATIONS", 200);
    LogCapture log;
    auto& holder = *new Counter; // its threads never end
    DataCommunicator& communicator = holder.getDataCommunicator();
    communicator.init(&holder, "/tmp/sockC", "/tmp/sockSendC", "tComC");
    holder.init("tWorkerC");
    communicator.start();
    DataSets store;
    store.loadComponent("D", "C", R"({"properties":{"n":{"type":"integer"}},"instance":{"n":0}})");
    ResponseHistory history;
    SocketAddress responder;
    responder.assign("/tmp/sockC");
    DatagramSocket peers[8];
    for (DatagramSocket& peer : peers)
        EXPECT_TRUE(peer.open() && peer.bind("/tmp/peer" + std::to_string(&peer - peers)));

    DataSet set("Set");
    DataTable* const tables[] = {new DataTable("A"), new DataTable("B")};
    for (DataTable* table : tables)
        set.addTableList((table->addColumns("a", column("a", DataColumn::INT)), table));

    // clang-format off
    const std::function<void(DataTable&, DataTable&, int)> tableWork[] = {
        [](DataTable& mine, DataTable&, int i) { visitCell(&mine, 1 + i % 9, "a", [&](DataItem& item) { item.setValue(i); }); },
        [&set](DataTable& mine, DataTable&, int i) { int number = 0; set.getIntParam(mine.getId(), 1 + i % 9, "a", &number); },
        [](DataTable& mine, DataTable&, int) { mine.getRowsNum() < 9 ? mine.newRow() + mine.appendNewRow() : 0; },
        [&set](DataTable&, DataTable&, int) { set.acceptChanges(); },
        [&set](DataTable& mine, DataTable&, int i) { i % 8 == 0 ? set.rollbackChanges() : mine.rollbackChanges(); },
        [](DataTable& mine, DataTable&, int i) { mine.deleteRow(1 + i % 9); mine.doDeleteRow(mine.getLastRowIndex()); },
        [](DataTable& mine, DataTable& other, int i) {
            mine.update(other, true, true, i % 5 == 0, true);
            delete mine.replaceColumn("a", column("a", i % 3 == 0 ? DataColumn::STR : DataColumn::INT));
        },
        [&set](DataTable& mine, DataTable&, int i) {
            const std::string text = i % 4 == 0 ? textOf(set) : "";
            for (int row = mine.getFirstRowIndex(); row != 0;)
                row = mine.getNextRowIndex(row);
        },
    };
    const std::pair<const char*, std::function<void(unsigned, int)>> units[] = {
        {"table", [&](unsigned thread, int i) { tableWork[thread](*tables[i % 2], *tables[1 - i % 2], i); }},
        {"store", [&](unsigned, int i) {
            int value = 0;
            store.isChangedProperty("D", "C", "n", "");
            std::unique_lock step(store);
            store.getNewIntParam("D", "C", "n", value, "");
            store.setIntParam("D", "C", "n", value + 1, "");
            if (i % 50 != 49)
                return;
            store.commit();
            if (value % 2 == 1)
                step.unlock(); // a file is stored within a step and outside of one
            store.storeDataSet("D", "/tmp/shared");
        }},
        {"history", [&](unsigned thread, int i) {
            const std::string text = std::to_string(thread);
            history.store(i % 20, {text, text, text});
            FiledResponse found;
            history.findAnswer(i % 20, text, found);
            EXPECT_EQ(found.header + found.sender, found.body + found.body);
        }},
        {"worker", [&](unsigned thread, int) {
            std::string none;
            thread % 2 == 0 ? holder.execute("Do", none) : holder.handle(new MessageEvent);
            for (++holder.queued; holder.queued > holder.served + 1000;)
                std::this_thread::yield();
        }},
        {"sender", [&](unsigned thread, int i) {
            const int socket = peers[thread].descriptor();
            const std::string request = ScriptedPeer::answerText(i, "COMMAND", FC_OK, kCommand);
            EXPECT_TRUE(sendDatagram(socket, request, responder, true)) << errno;
            for (int id = i - 31; i % 32 == 31 && id <= i; ++id) { // more than a socket's queue takes
                char answer[100] = "";
                SocketAddress sender;
                const bool came = waitReadable(socket, 30) == WaitResult::READABLE;
                EXPECT_TRUE(came && receiveDatagram(socket, answer, sizeof answer, sender) > 12) << id;
                EXPECT_EQ(id, std::atoi(answer + 12)); // <HEADER ID="
            }
        }},
        {"subscribers", [&](unsigned thread, int i) {
            communicator.subscribe("/tmp/none" + std::to_string((thread + static_cast<unsigned>(i)) % 10));
            MessageEvent event;
            if (i % 8 == 0)
                communicator.notify(event);
        }},
        {"log", [&](unsigned thread, int i) {
            gDbgLevel = i % 4;
            DBG_LOG(SEV_ERROR) << thread << " line " << i;
            if (thread == 0 && i % 64 == 0)
                log.clear();
        }},
        {"zone", [&](unsigned thread, int i) {
            gDbgLevel = SEV_INFO;
            EXPECT_TRUE(thread % 2 == 0 || setTimeZone(i % 2 == 0 ? "UTC0" : "XYZ-5"));
            DBG_LOG(SEV_ERROR) << i;
            EXPECT_THAT(toLocalTimeText(1709629629), testing::AnyOf("05-Mar-24  09:07:09", "05-Mar-24  14:07:09"));
        }},
    };
    // clang-format on
    for (const auto& [name, work] : units) {
        gDbgLevel = 5;
        std::vector<std::jthread> threads;
        for (unsigned thread = 0; thread < 8; ++thread)
            threads.emplace_back([&, thread] {
                for (int i = 0; i < amount && !testing::Test::HasFailure(); ++i)
                    work(thread, i);
            });
        threads.clear(); // waits for them
        std::cout << amount << " operations of eight threads on the " << name << std::endl;
    }
    int counted = 0, held = 0, stored = -1;
    store.loadDataSet("F", "/tmp/shared");
    store.getNewIntParam("D", "C", "n", counted, "");
    store.getIntParam("D", "C", "n", held, "");
    store.getIntParam("F", "C", "n", stored, "");
    EXPECT_EQ(8 * amount, counted);
    EXPECT_EQ(held, stored) << "the file holds the latest state";
    EXPECT_TRUE(eventually([&] { return holder.served == 2 * holder.queued; })); // half by peers
}

} // namespace
