#pragma once

// The configuration manager in this process, with a channel manager that does as it is told and an
// observer of its events: for tests of exact texts, orders and codes. One manager a process.

#include "ConfigurationManager.h"
#include "Device.h"
#include "MessageCommand.h"
#include "ScriptedPeer.h"

#include <atomic>
#include <functional>
#include <gmock/gmock.h>
#include <mutex>
#include <thread>

class ManagerFixture : public testing::Test
{
protected:
    /// The factory catalogue is in place, the channel manager answers OK and writes the file that
    /// it is to store; the manager is not running yet.
    ManagerFixture();
    ~ManagerFixture() override;

    /// Runs init(), in which the channel manager is asked for its default channels unless a
    /// catalogue says otherwise, and subscribes the observer.
    void start();

    /// A command as the communicator hands it to the manager; its result.
    Fcodes run(const std::string& id, const std::map<std::string, std::string>& parameters);
    static std::string element(const std::string& id,
                               const std::map<std::string, std::string>& parameters);

    /// The commands that the channel manager has been sent, and the text of one.
    std::vector<std::string> commands();
    static std::string channelCommand(const std::string& id, const std::string& file);

    /// The events that have reached the observer since the last call, as "ID Source code".
    std::vector<std::string> events();

    /// Log entries of the manager's own unit, without its name, since the last call.
    std::vector<std::string> logged();

    /// Rows: their keys, one property of one, and all but the time as "Name|File Name|Description|
    /// State|Fcode"; then the auto-start. "<none>" is what cannot be read.
    std::vector<std::string> rows();
    std::string text(const std::string& row, const char* property);
    std::string row(const std::string& key);
    std::string autoStart();

    LogCapture mLog;
    Fcodes mChannelsResult = FC_OK; ///< of STORE_CHANNELS and LOAD_CHANNELS
    bool mWriteFile = true;         ///< whether STORE_CHANNELS writes it
    std::function<void()> mDuringLoad;
    ConfigurationManager& mManager;

private:
    /// What this thread has written is seen by the answers from here on, and the other way round:
    /// a datagram alone puts no order between memory accesses.
    void sync() { const std::lock_guard guard(mMutex); }
    void serveChannels();
    void answer(const MessageCommand& command);

    ScriptedPeer mObserver;
    ScriptedPeer mChannels;
    std::atomic<bool> mStop{false};
    std::recursive_mutex mMutex; // guards mCommands, and is held while an answer is made up
    std::vector<std::string> mCommands;
    std::thread mServing;
};
