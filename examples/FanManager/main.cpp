// The daemon of docs/sibling-daemon.md: it keeps the speeds of the fans.

#include "DataHolder.h"
#include "DbgLine.h"
#include "IDataSets.h"
#include "MessageCommand.h"
#include "MessageEvent.h"

#include <unistd.h>

namespace
{

constexpr char kUnit[] = "FanManager";

constexpr char kDataSet[] = "FanDataSet";
constexpr char kComponent[] = "Fans";
constexpr char kFile[] = "/data/fan_data_set.json";
constexpr char kFans[] = R"({
    "properties": {
        "Speed": {"type": "integer", "access": "RW", "default": 1200, "description": "rpm"}
    }
})";

constexpr unsigned kSubscribeIntervalSeconds = 5;

class FanManager : public DataHolder
{
public:
    /// The store of this daemon: as it was kept, or at the first start an instance for each fan.
    IDataSets* createDataSets() override
    {
        IDataSets* store = DataHolder::createDataSets();
        if (store->loadDataSet(kDataSet, kFile) == FC_OK)
            return store;
        store->loadComponent(kDataSet, kComponent, kFans);
        store->addInstance(kDataSet, kComponent, "left");
        store->addInstance(kDataSet, kComponent, "right");
        return store;
    }

    /// What peers have SET takes effect, and outlives a reboot.
    Fcodes acceptChanges() override
    {
        const Fcodes commitResult = commit();
        return commitResult | storeDataSet(kDataSet, kFile);
    }

    /// Commands of this daemon, on the responder's thread; the result is the answer's code.
    Fcodes execute(const std::string& command, std::string& result) override
    {
        MessageCommand request;
        if (request.initFromString(command) != FC_OK)
            return FC_BODY_ERROR;
        if (request.ID != "APPLY_SPEED")
            return DataHolder::execute(command, result);

        const Fcodes applyResult = acceptChanges();
        MessageEvent event;
        event.ID = "Speed Changed";
        event.Source = "fans";
        std::vector<std::string> fans;
        getInstances(kDataSet, kComponent, fans);
        for (const std::string& fan : fans) {
            int speed = 0;
            getIntParam(kDataSet, kComponent, "Speed", speed, fan);
            DBG_LOG(SEV_INFO) << "execute: fan=" << fan << " speed=" << speed;
            event.addParam(fan, std::to_string(speed));
        }
        notify(event);
        return applyResult;
    }

    /// Events of daemons that this one has subscribed to, on the worker's thread.
    Fcodes doHandle(MessageEvent* event) override
    {
        DBG_LOG(SEV_INFO) << "doHandle: event=" << event->ID;
        return FC_OK;
    }
};

} // namespace

int main()
{
    setTaskName(currentTaskId(), "tFanInit");
    FanManager fans;
    fans.init("tFan");
    DataCommunicator& communicator = fans.getDataCommunicator();
    communicator.init(&fans, "/tmp/sockFan", "/tmp/sockSendFan", "tFanCom");
    communicator.requestSubscribe("/tmp/sockCfg"); // to receive its events
    communicator.start();
    DBG_LOG(SEV_INFO) << "main: serving /tmp/sockFan";
    fans.startMissingThreads(); // returns at once, unless the system made none
    for (;;) {
        sleep(kSubscribeIntervalSeconds);
        communicator.requestSubscribe("/tmp/sockCfg"); // it may have restarted since
    }
}
