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
        std::string file;
        getSegment(mChannels.receive().body, 0, "Command", element);
        command.initFromString(element);
        command.getParam("File", file);
        const std::lock_guard guard(mMutex);
        mCommands.push_back(element + "\n"); // the element's own line end
        if (command.ID == "STORE_CHANNELS" && mWriteFile)
            writeFile(file, "channels");
        if (const auto during = mDuringLoad; command.ID == "LOAD_CHANNELS" && during)
            during();
        mChannels.answer("ACK", mChannelsResult);
    }
}

void ManagerFixture::start()
{
    sync();
    mManager.init();
    sync();
    mManager.getDataCommunicator().subscribe(kObserver);
}

Fcodes ManagerFixture::run(const std::string& id, const Parameters& parameters)
{
    std::string response;
    sync();
    const Fcodes result = mManager.execute(commandText(id, parameters), response);
    sync();
    return result;
}

std::vector<std::string> ManagerFixture::commands()
{
    const std::lock_guard guard(mMutex);
    return mCommands;
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
    std::vector<std::string> found;
    for (std::string entry : mLog.entries())
        if (const auto at = entry.find(unit); at < 7) // behind the severity
            found.push_back(entry.erase(at, unit.size()));
    mLog.clear();
    return found;
}

void ManagerFixture::expectLog(const std::string& lines)
{
    std::string all = "\n";
    for (const std::string& line : logged())
        all += line + '\n';
    EXPECT_EQ(lines, all);
}

std::string ManagerFixture::text(const std::string& row, const char* property)
{
    std::string value = "<none>";
    mTable.readText(row, property, value);
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
    mTable.readAutoStart(value);
    return value;
}
