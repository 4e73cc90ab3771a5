#pragma once

// The configuration manager in this process, with a channel manager that carries out its commands
// and an observer of its events: for tests of exact texts, orders and codes. One manager a process.

#include "ConfigurationManager.h"
#include "ConfigurationsTable.h"
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
    Fcodes run(const std::string& id, const Parameters& parameters);

    /// The commands that the channel manager has been sent.
    std::vector<std::string> commands();

    /// The events that have reached the observer since the last call, as "ID Source code".
    std::vector<std::string> events();

    /// Log entries of the manager's unit, without its name, since the last call; and checks that
    /// these are `lines`, behind a line end, or hold `line`.
    std::vector<std::string> logged();
    void expectLog(const std::string& lines);
    void expectLogged(const std::string& line) { EXPECT_THAT(logged(), testing::Contains(line)); }

    /// Of a row: one property, and all but the time as "Name|File Name|Description|State|Fcode";
    /// then the auto-start. "<none>" is what cannot be read.
    std::string text(const std::string& row, const char* property);
    std::string row(const std::string& key);
    std::string autoStart();

    LogCapture mLog;
    Fcodes mChannelsResult = FC_OK; ///< of STORE_CHANNELS and LOAD_CHANNELS
    bool mWriteFile = true;         ///< whether STORE_CHANNELS writes it
    std::function<void()> mDuringLoad;
    ConfigurationManager& mManager;
    ConfigurationsTable mTable{mManager};

private:
    /// What this thread has written is seen by the answers from here on, and the other way round:
    /// a datagram alone puts no order between memory accesses.
    void sync() { const std::lock_guard guard(mMutex); }
    void serveChannels();

    ScriptedPeer mObserver;
    ScriptedPeer mChannels;
    std::atomic<bool> mStop{false};
    std::recursive_mutex mMutex; // guards mCommands, and is held while an answer is made
    std::vector<std::string> mCommands;
    std::thread mServing;
};
