#pragma once

// A channel manager: it holds the set of channels that the device runs, stores the set to a file
// and loads it back when the configuration manager asks for it. Peers read and write single
// channels with data requests, which the base class serves from the dataset.
//
// Made once by main() and never destroyed before the process ends. start() runs on the main thread;
// everything else on the communicator's thread, one command at a time.

#include "DataHolder.h"

#include <chrono>
#include <string>

class IDataSets;
class MessageCommand;
class MessageEvent;

/// How a simulated manager misbehaves, for the tests of its peers.
struct Simulation {
    std::chrono::milliseconds delay{0}; ///< before each channel command is carried out
    bool refuse = false;                ///< answers FC_UNAVAILABLE and does nothing
    bool silent = false;                ///< hangs in the first channel command, for good
};

class ChannelManager : public DataHolder
{
public:
    explicit ChannelManager(Simulation simulation) : mSimulation(simulation) {}

    /// Serves the two sockets from here on, with the default channels.
    void start(const std::string& socket, const std::string& sendSocket);

    /// The store, with the channels in it.
    IDataSets* createDataSets() override;

    /// Peers' writes to channels wait until they are accepted, or stored.
    Fcodes acceptChanges() override { return commit(); }
    Fcodes rollbackChanges() override { return rollback(); }

    /// "STORE_CHANNELS" and "LOAD_CHANNELS" with the parameter "File"; "Accept Changes".
    /// FC_BODY_ERROR without a file; the codes of loadDataSet() for a file that cannot be read,
    /// FC_BAD_VALUE for one that holds no set of channels, and the running channels then stay.
    /// Success is announced ("Channels Stored", "Channels Loaded"). Other commands are queued.
    Fcodes execute(const std::string& command, std::string& result) override;

    /// Nobody sends events to this manager.
    Fcodes doHandle(MessageEvent* /*event*/) override { return FC_OK; }

private:
    Fcodes serve(const MessageCommand& command,
                 Fcodes (ChannelManager::*operation)(const std::string& file),
                 const std::string& eventId);
    Fcodes storeChannels(const std::string& file);
    Fcodes loadChannels(const std::string& file);
    Fcodes loadDefaultChannels();
    Fcodes loadCandidate(const std::string& file);
    void announce(const std::string& eventId, const std::string& file);

    Simulation mSimulation;
    IDataSets* mChannels = nullptr; // the base class owns it
};
