// The daemon of docs/sibling-daemon.md: it keeps the speed of a fan.

#include "DataHolder.h"
#include "DbgLine.h"
#include "IDataSets.h"
#include "MessageCommand.h"
#include "MessageEvent.h"

#include <unistd.h>

namespace
{

constexpr char kUnit[] = "FanManager";

constexpr char kFan[] = R"({
    "properties": {
        "Speed": {"type": "integer", "access": "RW", "default": 1200, "description": "rpm"}
    }
})";

class FanManager : public DataHolder
{
public:
    /// The store of this daemon: one dataset, one component, a single instance.
    IDataSets* createDataSets() override
    {
        IDataSets* store = DataHolder::createDataSets();
        store->loadComponent("FanDataSet", "Fan", kFan);
        store->addInstance("FanDataSet", "Fan", "");
        return store;
    }

    /// A command of ours, on the responder's thread; its result is the answer.
    Fcodes execute(const std::string& command, std::string& result) override
    {
        MessageCommand request;
        if (request.initFromString(command) != FC_OK)
            return FC_BODY_ERROR;
        if (request.ID != "APPLY_SPEED")
            return DataHolder::execute(command, result);

        const Fcodes applied = commit(); // what peers have SET takes effect
        int speed = 0;
        getIntParam("FanDataSet", "Fan", "Speed", speed, "");
        DBG_LOG(SEV_INFO) << "execute: speed=" << speed;

        MessageEvent event;
        event.ID = "Speed Changed";
        event.Source = "fan";
        event.addParam("Speed", std::to_string(speed));
        notify(event);
        return applied;
    }

    /// Events of daemons that we have subscribed to, on the worker's thread.
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
    FanManager fan;
    fan.init("tFan");
    DataCommunicator& communicator = fan.getDataCommunicator();
    communicator.init(&fan, "/tmp/sockFan", "/tmp/sockSendFan", "tFanCom");
    communicator.requestSubscribe("/tmp/sockCfg"); // hear of configurations
    communicator.start();
    DBG_LOG(SEV_INFO) << "main: serving /tmp/sockFan";
    for (;;)
        pause();
}
