#include "ManagerFixture.h"

#include "CfgPaths.h"
#include "MessageEvent.h"
#include "MessageHeader.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <json/json.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr char kObserver[] = "/tmp/sockObserver";

int bindSocket(const char* path)
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string(path).copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(path);
    EXPECT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address)) << path;
    return fd;
}

/// Managers live as long as the process: their threads are never stopped.
ConfigurationManager& makeManager()
{
    static ConfigurationManager* manager = nullptr;
    manager = new ConfigurationManager;
    return *manager;
}

} // namespace

FakeChannels::FakeChannels(Answer answer)
    : mAnswer(std::move(answer)), mSocket(bindSocket(kChanSocket)), mThread([this] { serve(); })
{
}

FakeChannels::~FakeChannels()
{
    mStop = true;
    mThread.join();
    close(mSocket);
    unlink(kChanSocket);
}

std::vector<std::string> FakeChannels::commands()
{
    const std::lock_guard guard(mMutex);
    return mCommands;
}

void FakeChannels::serve()
{
    while (!mStop) {
        pollfd readable{mSocket, POLLIN, 0};
        if (poll(&readable, 1, 20) < 1)
            continue;
        std::string text(70000, '\0');
        sockaddr_un sender{};
        socklen_t length = sizeof sender;
        const ssize_t got = recvfrom(mSocket, text.data(), text.size(), 0,
                                     reinterpret_cast<sockaddr*>(&sender), &length);
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);

        MessageHeader header;
        std::string element;
        MessageCommand command;
        header.initFromString(text);
        getSegment(text, 0, "Command", element);
        command.initFromString(element);
        const std::lock_guard guard(mMutex);
        mCommands.push_back(element + "\n"); // the element's own line end
        header.Fcode = mAnswer(command);
        header.Type = "ACK";
        header.Size = 0;
        std::string answer;
        header.toString(answer);
        sendto(mSocket, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&sender),
               length);
    }
}

ManagerFixture::ManagerFixture() : mManager(makeManager()), mObserver(bindSocket(kObserver))
{
    std::filesystem::copy_file(SYSMGT_FACTORY_CATALOGUE, kFactoryCatalogue,
                               std::filesystem::copy_options::overwrite_existing);
    mChannels = std::make_unique<FakeChannels>([this](const MessageCommand& command) {
        std::string file;
        command.getParam("File", file);
        if (command.ID == "STORE_CHANNELS" && mWriteFile)
            placeFile(file);
        if (const auto during = mDuringLoad; command.ID == "LOAD_CHANNELS" && during)
            during();
        return mChannelsResult;
    });
}

ManagerFixture::~ManagerFixture() { close(mObserver); }

void ManagerFixture::start()
{
    mChannels->sync();
    mManager.init();
    mChannels->sync();
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
    mChannels->sync();
    const Fcodes result = mManager.execute(element(id, parameters), response);
    mChannels->sync();
    return result;
}

std::vector<std::string> ManagerFixture::events()
{
    std::vector<std::string> found;
    std::string text(70000, '\0');
    for (ssize_t got; (got = recv(mObserver, text.data(), text.size(), MSG_DONTWAIT)) > 0;) {
        const std::string message = text.substr(0, static_cast<std::size_t>(got));
        MessageHeader header;
        MessageEvent event;
        std::string element;
        header.initFromString(message);
        getSegment(message, 0, "Event", element);
        event.initFromString(element);
        std::ostringstream line;
        line << event.ID << ' ' << event.Source << ' ' << std::hex << header.Fcode;
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

int ManagerFixture::fcode(const std::string& row)
{
    int value = -1;
    mManager.getIntParam("CfgDataSet", "ConfigurationsTable", "Fcode", value, row);
    return value;
}

std::string ManagerFixture::autoStart()
{
    std::string value = "<none>";
    mManager.getTextParam("CfgDataSet", "AutoStart", "Name", value, std::string());
    return value;
}

std::string ManagerFixture::stored()
{
    std::ifstream file(kStoredCatalogue);
    return {std::istreambuf_iterator<char>(file), {}};
}

void ManagerFixture::placeFile(const std::string& path, const std::string& content)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << content;
}

void ManagerFixture::placeCatalogue(const std::vector<std::string>& rows,
                                    const std::string& autoStart)
{
    Json::Value catalogue;
    std::ifstream(kFactoryCatalogue) >> catalogue;
    for (const std::string& row : rows) {
        const std::size_t equals = row.find('=');
        const std::string key = row.substr(0, equals);
        Json::Value& instance = catalogue["components"]["ConfigurationsTable"]["instances"][key];
        instance["Name"] = key;
        instance["File Name"] =
            equals == std::string::npos ? "/data/cfg/" + key : row.substr(equals + 1);
        instance["Description"] = "kept";
        instance["State"] = "Inprogress";
        instance["Time"] = "N/A";
        instance["Fcode"] = 0x10040;
    }
    catalogue["components"]["AutoStart"]["instance"]["Name"] = autoStart;
    std::ostringstream text;
    text << catalogue;
    placeFile(kStoredCatalogue, text.str());
}
