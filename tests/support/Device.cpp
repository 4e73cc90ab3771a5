#include "Device.h"

#include "CfgPaths.h"
#include "MessageCommand.h"
#include "wire/DatagramSocket.h"

#include <algorithm>
#include <json/reader.h>
#include <sstream>
#include <stdexcept>

namespace
{

const std::map<std::string, std::string> kSockets = {{"CfgManager", kCfgSocket},
                                                     {"ChanManager", kChanSocket},
                                                     {"DevManager", kDevSocket},
                                                     {"FanManager", "/tmp/sockFan"}};

/// True when a datagram socket is bound to the path and takes messages.
bool isServed(const std::string& path)
{
    DatagramSocket probe;
    SocketAddress address;
    return probe.open() && address.assign(path) &&
           connect(probe.descriptor(), address.raw(), address.length()) == 0;
}

} // namespace

Device::Device() { placeFactoryCatalogue(); }

ChildProcess& Device::start(const std::string& name, std::vector<std::string> options)
{
    const auto option = std::find(options.begin(), options.end(), "--socket");
    const std::string path = option == options.end() ? kSockets.at(name) : *(option + 1);
    options.insert(options.begin(), name);
    auto& daemon = mDaemons[name];
    daemon.reset(); // the path is its successor's
    daemon = std::make_unique<ChildProcess>(options);
    if (!eventually([&] { return isServed(path) || !daemon->running(); }) || !daemon->running())
        throw std::runtime_error(name + " does not serve " + path + ": " + daemon->errors());
    return *daemon;
}

void Device::boot()
{
    for (const char* name : {"DevManager", "ChanManager", "CfgManager"})
        start(name);
    // The last that a boot does: it starts a configuration, or has the default channels loaded.
    if (!mLog.waitFor("serve: LOAD_CHANNELS"))
        throw std::runtime_error("the start at boot does not end");
}

std::string Device::cfgctl(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "cfgctl");
    ChildProcess client(arguments);
    const int status = client.wait();
    return status == 0 ? client.output() : std::to_string(status) + ": " + client.errors();
}

std::string commandText(const std::string& id, const Parameters& parameters)
{
    MessageCommand command;
    command.setId(id);
    for (const auto& [name, value] : parameters)
        command.addParam(name, value);
    std::string text;
    return command.toString(text);
}

void placeFactoryCatalogue() { writeFile(kFactoryCatalogue, readFile(SYSMGT_FACTORY_CATALOGUE)); }

void placeCatalogue(const std::vector<std::string>& rows, const std::string& autoStart)
{
    Json::Value catalogue;
    std::istringstream(readFile(kFactoryCatalogue)) >> catalogue;
    for (const std::string& row : rows) {
        const std::string key = row.substr(0, row.find('='));
        const std::string file = key == row ? "/data/cfg/" + key : row.substr(key.size() + 1);
        writeFile(file, "kept");
        Json::Value& instance = catalogue["components"]["ConfigurationsTable"]["instances"][key];
        instance["Name"] = key;
        instance["File Name"] = file;
        instance["Description"] = "kept";
        instance["State"] = "Inprogress";
        instance["Time"] = "N/A";
    }
    catalogue["components"]["AutoStart"]["instance"]["Name"] = autoStart;
    catalogue["components"]["RunningConfiguration"]["instance"]["Name"] = "ran before";
    writeFile(kStoredCatalogue, catalogue.toStyledString());
}
