// A sibling daemon to copy: it keeps the speeds of two fans, which others read, set and apply.

#include "DataHolder.h"
#include "DbgLine.h"
#include "KeptDataSet.h"
#include "MessageCommand.h"
#include "MessageEvent.h"
#include <unistd.h>

constexpr char kUnit[] = "FanManager"; // who speaks in the log
constexpr char kFactory[] = R"({"components": {"Fans": {
    "properties": {"Speed": {"type": "integer", "access": "RW", "default": 1200}},
    "instances": {"left": {"Speed": 1200}, "right": {"Speed": 1200}}
}}})";

class FanManager : public DataHolder
{
public:
    IDataSets* createDataSets() override // what GET and SET work on
    {
        IDataSets* store = DataHolder::createDataSets();
        mSpeeds.load(*store);
        return store;
    }

    Fcodes execute(const std::string& command, std::string& result) override
    {
        MessageCommand request;
        if (request.initFromString(command) != FC_OK)
            return FC_BODY_ERROR;
        if (request.ID != "APPLY_SPEED")
            return DataHolder::execute(command, result); // the commands of every daemon
        const Fcodes applied = mSpeeds.commit();
        MessageEvent event;
        event.ID = "Speed Changed";
        event.Source = "fans";
        for (const char* fan : {"left", "right"}) {
            std::string speed;
            getTextParam("FanDataSet", "Fans", "Speed", speed, fan);
            event.addParam(fan, speed);
        }
        notify(event);
        return applied; // the answer's code
    }
    Fcodes doHandle(MessageEvent* event) override // those of /tmp/sockCfg, see main()
    {
        DBG_LOG(SEV_INFO) << "doHandle: event=" << event->ID << " source=" << event->Source;
        return FC_OK;
    }

private:
    KeptDataSet mSpeeds{"FanDataSet", "/data/fan_data_set.json", kFactory};
};

int main()
{
    setTaskName(currentTaskId(), "tFanInit");
    auto& fans = *new FanManager; // as long as the process: so are its threads
    fans.init("tFan");
    DataCommunicator& communicator = fans.getDataCommunicator();
    communicator.init(&fans, "/tmp/sockFan", "/tmp/sockSendFan", "tFanCom");
    communicator.keepSubscribed("/tmp/sockCfg");
    fans.startMissingThreads(); // from here on it serves
    for (;;)
        pause();
}
