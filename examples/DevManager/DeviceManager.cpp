#include "DeviceManager.h"

#include "DbgLine.h"
#include "IDataSets.h"
#include "MessageCommand.h"
#include "MessageEvent.h"

namespace
{

constexpr char kUnit[] = "DeviceManager";

constexpr char kDataSet[] = "DeviceDataSet";
constexpr char kComponent[] = "DateTimeTable";
constexpr char kZone[] = "TZ";

constexpr char kFactory[] = R"({"components" : {"DateTimeTable" : {
    "properties" : {
        "TZ" : {
            "type" : "string", "access" : "RW", "default" : "UTC",
            "description" : "The device's time zone, as a value of the environment variable TZ."
        }
    },
    "instance" : {"TZ" : "UTC"}
}}})";

constexpr char kSensors[] = R"(<DataSet ID="SensorDataSet" Version="1">
    <Table Name="SensorTable">
        <Columns>
            <Column Name="Temperature" Access="RO" Type="int" Value="21" />
            <Column Name="Limit" Access="RW" Type="int" Value="70" />
            <Column Name="Alarm" Access="RO" Type="enum" Value="0" >
                <Value Index="0" Text="Clear" />
                <Value Index="1" Text="Raised" />
            </Column>
        </Columns>
        <Row ID="1" ><Item Name="Temperature" Value="38" /></Row>
        <Row ID="2" ><Item Name="Temperature" Value="52" /><Item Name="Limit" Value="85" /></Row>
    </Table>
</DataSet>)";

} // namespace

DeviceManager::DeviceManager(std::string zone, std::string file)
    : mFirstZone(std::move(zone)), mKept(kDataSet, std::move(file), kFactory)
{
}

void DeviceManager::start(const std::string& socket, const std::string& sendSocket)
{
    setTaskName(currentTaskId(), "tDevInit");
    init("tDev"); // makes the store and the worker
    std::string zone = mFirstZone;
    if (zone.empty())
        getTextParam(kDataSet, kComponent, kZone, zone, kSingleInstance);
    else
        initTextParam(kDataSet, kComponent, kZone, zone, kSingleInstance);
    mSensors.initFromString(kSensors);
    mSensors.acceptChanges();
    addDataSet("SensorDataSet", &mSensors); // before any other thread asks for it

    getDataCommunicator().init(this, socket, sendSocket, "tDevCom");
    getDataCommunicator().start();
    DBG_LOG(SEV_INFO) << "start: serving " << socket << " TZ=" << zone;
    startMissingThreads();
}

IDataSets* DeviceManager::createDataSets()
{
    IDataSets* store = DataHolder::createDataSets();
    mKept.load(*store);
    return store;
}

Fcodes DeviceManager::execute(const std::string& command, std::string& result)
{
    MessageCommand message;
    if (message.initFromString(command) != FC_OK)
        return FC_BODY_ERROR;
    DBG_LOG(SEV_INFO) << "execute: command=" << message.ID;
    if (message.ID == "SET_TIME_ZONE")
        return setZone(command);
    if (message.ID == "APPLY_LIMITS")
        return acceptChanges();
    return TableHolder::execute(command, result); // the commands that every holder knows
}

Fcodes DeviceManager::setZone(const std::string& command)
{
    MessageCommand message;
    std::string zone;
    if (message.initFromString(command) != FC_OK || !message.getParam(kZone, zone))
        return FC_BODY_ERROR;
    if (zone.empty())
        return FC_BAD_VALUE;

    const Fcodes result = initTextParam(kDataSet, kComponent, kZone, zone, kSingleInstance);
    if (result != FC_OK)
        return result;
    announceZone(zone);
    return mKept.store();
}

void DeviceManager::announceZone(const std::string& zone)
{
    MessageEvent event;
    event.ID = "Date&Time Updated";
    event.Source = "DevManager";
    event.Severity = "Info";
    event.Description = "The time zone has changed";
    event.addParam(kZone, zone);
    notify(event); // to every subscriber
    DBG_LOG(SEV_INFO) << "announceZone: TZ=" << zone;
}
