#include "Device.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr char kFactoryCatalogue[] = "/etc/sysmgt/cfg_data_set.json";

std::unique_ptr<ChildProcess> launch(const std::string& name,
                                     const std::vector<std::string>& options)
{
    std::vector<std::string> command{name};
    command.insert(command.end(), options.begin(), options.end());
    return std::make_unique<ChildProcess>(std::move(command));
}

void waitUntilServed(const std::string& name, const std::string& path, ChildProcess& daemon)
{
    if (!eventually([&] { return isServed(path) || !daemon.running(); }) || !daemon.running())
        throw std::runtime_error(name + " does not serve " + path + ": " + daemon.errors());
}

/// The socket that the options name instead of the usual one.
std::string socketOf(const std::vector<std::string>& options, const std::string& usual)
{
    const auto option = std::find(options.begin(), options.end(), "--socket");
    return option == options.end() ? usual : *(option + 1);
}

} // namespace

bool isServed(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool served =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return served;
}

std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

Device::Device()
{
    // What an earlier test of the same process may have left.
    std::filesystem::remove_all("/data/cfg");
    for (const char* socket : {"/tmp/sockCfg", "/tmp/sockChan", "/tmp/sockDev"})
        std::filesystem::remove(socket);
    std::filesystem::copy_file(SYSMGT_FACTORY_CATALOGUE, kFactoryCatalogue,
                               std::filesystem::copy_options::overwrite_existing);
}

ChildProcess& Device::startDevManager(const std::vector<std::string>& options)
{
    mDevManager = launch("DevManager", options);
    waitUntilServed("DevManager", socketOf(options, "/tmp/sockDev"), *mDevManager);
    return *mDevManager;
}

ChildProcess& Device::startChanManager(const std::vector<std::string>& options)
{
    mChanManager = launch("ChanManager", options);
    waitUntilServed("ChanManager", socketOf(options, "/tmp/sockChan"), *mChanManager);
    return *mChanManager;
}

ChildProcess& Device::startCfgManager(const std::vector<std::string>& options)
{
    mLog.clear();
    mCfgManager = launch("CfgManager", options);
    if (std::find(options.begin(), options.end(), "-v") != options.end())
        waitUntilServed("CfgManager", "/tmp/sockCfg", *mCfgManager);
    else if (!mLog.waitFor("init: dataCommunicator started"))
        throw std::runtime_error("CfgManager does not start: " + mCfgManager->errors());
    return *mCfgManager;
}

void Device::boot()
{
    startDevManager();
    startChanManager();
    startCfgManager();
    // The last that a boot does: it starts a configuration, or has the default channels loaded.
    if (!mLog.waitFor("serve: LOAD_CHANNELS"))
        throw std::runtime_error("the start at boot does not end");
}

void Device::cutCfgManager() { mCfgManager->stop(SIGKILL); }

Finished Device::cfgctl(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "cfgctl");
    return runProgram(arguments);
}
