#include "ChannelManager.h"

#include "DbgLine.h"
#include "IDataSets.h"
#include "MessageCommand.h"
#include "MessageEvent.h"

#include <algorithm>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

constexpr char kUnit[] = "ChannelManager";

constexpr char kDataSet[] = "ChannelDataSet";
constexpr char kComponent[] = "ChannelTable";

// Under this name a file is loaded and checked before its channels replace the running ones.
constexpr char kCandidate[] = "Candidate";

constexpr char kDefaultFile[] = "Default";

constexpr char kDefaultChannels[] = R"({
    "properties" : {
        "Frequency" : {
            "type" : "integer", "access" : "RW", "default" : 950000,
            "description" : "Centre frequency in kHz."
        },
        "Gain" : {
            "type" : "integer", "access" : "RW", "default" : 0,
            "description" : "Gain in tenths of a dB."
        },
        "Modulation" : {
            "type" : "enum", "access" : "RW", "default" : "QPSK",
            "values" : [ "QPSK", "8PSK", "16QAM" ],
            "description" : "How the carrier is modulated."
        },
        "Enabled" : {
            "type" : "boolean", "access" : "RW", "default" : false,
            "description" : "Whether the channel transmits."
        }
    },
    "instances" : {
        "1" : { "Frequency" : 950000, "Gain" : 0, "Modulation" : "QPSK", "Enabled" : true },
        "2" : { "Frequency" : 986000, "Gain" : -15, "Modulation" : "8PSK", "Enabled" : false }
    }
})";

} // namespace

void ChannelManager::start(const std::string& socket, const std::string& sendSocket)
{
    setTaskName(currentTaskId(), "tChanInit");
    init("tChan"); // makes the store and the worker
    getDataCommunicator().init(this, socket, sendSocket, "tChanCom");
    getDataCommunicator().start();
    DBG_LOG(SEV_INFO) << "start: serving " << socket;
    startMissingThreads();
}

IDataSets* ChannelManager::createDataSets()
{
    mChannels = DataHolder::createDataSets();
    loadDefaultChannels();
    return mChannels;
}

Fcodes ChannelManager::execute(const std::string& command, std::string& result)
{
    MessageCommand message;
    if (message.initFromString(command) != FC_OK)
        return FC_BODY_ERROR;
    DBG_LOG(SEV_INFO) << "execute: command=" << message.ID;

    if (message.ID == "STORE_CHANNELS")
        return serve(message, &ChannelManager::storeChannels, "Channels Stored");
    if (message.ID == "LOAD_CHANNELS")
        return serve(message, &ChannelManager::loadChannels, "Channels Loaded");
    if (message.ID == "Accept Changes")
        return acceptChanges();
    return DataHolder::execute(command, result); // the commands that every holder knows
}

Fcodes ChannelManager::serve(const MessageCommand& command,
                             Fcodes (ChannelManager::*operation)(const std::string& file),
                             const std::string& eventId)
{
    std::string file;
    if (!command.getParam("File", file))
        return FC_BODY_ERROR;

    while (mSimulation.silent)
        pause();
    std::this_thread::sleep_for(mSimulation.delay);
    if (mSimulation.refuse)
        return FC_UNAVAILABLE;

    const Fcodes result = (this->*operation)(file);
    DBG_LOG(SEV_INFO) << "serve: " << command.ID << " file=" << file << " fcode=" << Hex{result};
    if (result == FC_OK)
        announce(eventId, file);
    return result;
}

Fcodes ChannelManager::storeChannels(const std::string& file)
{
    Fcodes result = FC_OK;
    result |= acceptChanges();
    result |= storeDataSet(kDataSet, file);
    // The store reports no write error: the file itself is checked.
    result |= loadCandidate(file);
    deleteDataSet(kCandidate);
    return result;
}

Fcodes ChannelManager::loadChannels(const std::string& file)
{
    if (file == kDefaultFile)
        return loadDefaultChannels();

    Fcodes result = loadCandidate(file);
    if (result == FC_OK) {
        rollbackChanges(); // they belong to the channels that are replaced
        result = loadDataSet(kDataSet, file);
    }
    deleteDataSet(kCandidate);
    return result;
}

Fcodes ChannelManager::loadDefaultChannels()
{
    return mChannels->loadComponent(kDataSet, kComponent, kDefaultChannels);
}

/// FC_OK when the file holds a set of channels, which then is in the store as the candidate.
Fcodes ChannelManager::loadCandidate(const std::string& file)
{
    if (const Fcodes loadResult = loadDataSet(kCandidate, file); loadResult != FC_OK)
        return loadResult;

    std::vector<std::string> channels;
    if (getInstances(kCandidate, kComponent, channels) != FC_OK || channels.empty())
        return FC_BAD_VALUE;
    const bool allReadable =
        std::all_of(channels.begin(), channels.end(), [this](const std::string& channel) {
            int number = 0;
            bool enabled = false;
            return getIntParam(kCandidate, kComponent, "Frequency", number, channel) == FC_OK &&
                   getIntParam(kCandidate, kComponent, "Gain", number, channel) == FC_OK &&
                   getBoolParam(kCandidate, kComponent, "Enabled", enabled, channel) == FC_OK;
        });
    return allReadable ? FC_OK : FC_BAD_VALUE;
}

void ChannelManager::announce(const std::string& eventId, const std::string& file)
{
    MessageEvent event;
    event.ID = eventId;
    event.Source = "ChanManager";
    event.Severity = "Info";
    event.addParam("File", file);
    notify(event); // to every subscriber
}
