#include "ManagerFixture.h"

#include "CfgPaths.h"
#include "MessageEvent.h"
#include "MessageText.h"

namespace
{

constexpr char kObserver[] = "/tmp/sockObserver";

/// Managers live as long as the process: their threads are never stopped.
ConfigurationManager& makeManager()
{
    static ConfigurationManager* manager = nullptr;
    manager = new ConfigurationManager;
    return *manager;
}

} // namespace

ManagerFixture::ManagerFixture()
    : mManager(makeManager()), mObserver(kObserver), mChannels(kChanSocket)
{
    placeFactoryCatalogue();
    mServing = std::thread([this] { serveChannels(); });
}

ManagerFixture::~ManagerFixture()
{
    mStop = true;
    mServing.join();
}

void ManagerFixture::serveChannels()
{
    while (!mStop) {
        if (mChannels.nothingCame()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        std::string element;
        MessageCommand command;
        getSegment(mChannels.receive().body, 0, "Command", element);
        command.initFromString(element);
        const std::lock_guard guard(mMutex);
        mCommands.push_back(element + "\n"); // the element's own line end
        answer(command);
    }
}

void ManagerFixture::answer(const MessageCommand& command)
{
    std::string file;
    command.getParam("File", file);
    if (command.ID == "STORE_CHANNELS" && mWriteFile)
        writeFile(file, "channels");
    if (const auto during = mDuringLoad; command.ID == "LOAD_CHANNELS" && during)
        during();
    mChannels.answer("ACK", mChannelsResult);
}

void ManagerFixture::start()
{
    sync();
    mManager.init();
    sync();
    mManager.getDataCommunicator().subscribe(kObserver);
}

std::string ManagerFixture::element(const std::string& id,
                                    const std::map<std::string, std::string>& parameters)
{
    MessageCommand command;
    command.setId(id);
    for (const auto& [name, value] : parameters)
        command.addParam(name, value);
    std::string text;
    return command.toString(text);
}

Fcodes ManagerFixture::run(const std::string& id,
                           const std::map<std::string, std::string>& parameters)
{
    std::string response;
    sync();
    const Fcodes result = mManager.execute(element(id, parameters), response);
    sync();
    return result;
}

std::vector<std::string> ManagerFixture::commands()
{
    const std::lock_guard guard(mMutex);
    return mCommands;
}

std::string ManagerFixture::channelCommand(const std::string& id, const std::string& file)
{
    return "<Command ID=\"" + id + "\" >\n\t<Parameter Name=\"File\" Value=\"" + file +
           "\" />\n</Command>\n";
}

std::vector<std::string> ManagerFixture::events()
{
    std::vector<std::string> found;
    while (!mObserver.nothingCame()) {
        const ScriptedPeer::Message message = mObserver.receive();
        std::string element;
        MessageEvent event;
        getSegment(message.body, 0, "Event", element);
        event.initFromString(element);
        std::ostringstream line;
        line << event.ID << ' ' << event.Source << ' ' << std::hex << message.header.Fcode;
        found.push_back(line.str());
    }
    return found;
}

std::vector<std::string> ManagerFixture::logged()
{
    const std::string unit = "ConfigurationManager:";
    std::vector<std::string> own;
    for (std::string entry : mLog.entries())
        if (const auto at = entry.find(unit); at != std::string::npos && at < 7)
            own.push_back(entry.erase(at, unit.size()));
    mLog.clear();
    return own;
}

std::vector<std::string> ManagerFixture::rows()
{
    std::vector<std::string> keys;
    mManager.getInstances("CfgDataSet", "ConfigurationsTable", keys);
    return keys;
}

std::string ManagerFixture::text(const std::string& row, const char* property)
{
    std::string value = "<none>";
    mManager.getTextParam("CfgDataSet", "ConfigurationsTable", property, value, row);
    return value;
}

std::string ManagerFixture::row(const std::string& key)
{
    std::ostringstream line;
    for (const char* property : {"Name", "File Name", "Description", "State"})
        line << text(key, property) << '|';
    int fcode = -1;
    mManager.getIntParam("CfgDataSet", "ConfigurationsTable", "Fcode", fcode, key);
    line << std::hex << fcode;
    return line.str();
}

std::string ManagerFixture::autoStart()
{
    std::string value = "<none>";
    mManager.getTextParam("CfgDataSet", "AutoStart", "Name", value, std::string());
    return value;
}
