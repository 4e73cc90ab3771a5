#pragma once

// The configuration manager in this process, with a channel manager that does as it is told and an
// observer of its events: for tests of exact texts, orders and codes. One manager a process.

#include "ConfigurationManager.h"
#include "LogCapture.h"
#include "MessageCommand.h"

#include <atomic>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <mutex>
#include <thread>

/// A channel manager: answers each command with a code, on a thread of its own.
class FakeChannels
{
public:
    using Answer = std::function<Fcodes(const MessageCommand& command)>;

    explicit FakeChannels(Answer answer);
    ~FakeChannels();

    FakeChannels(const FakeChannels&) = delete;
    FakeChannels& operator=(const FakeChannels&) = delete;

    /// The command elements that have come so far.
    std::vector<std::string> commands();

    /// What this thread has written is seen by the answers from here on, and the other way round:
    /// a datagram alone puts no order between memory accesses.
    void sync() { const std::lock_guard guard(mMutex); }

private:
    void serve();

    Answer mAnswer;
    int mSocket;
    std::atomic<bool> mStop{false};
    std::recursive_mutex mMutex; // guards mCommands, and is held while an answer is made up
    std::vector<std::string> mCommands;
    std::thread mThread;
};

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

    /// The events that have reached the observer since the last call, as "ID Source code".
    std::vector<std::string> events();

    /// Log entries of the manager's own unit, without its name, since the last call.
    std::vector<std::string> logged();

    /// Rows: their keys, one property of one ("<none>" when it cannot be read), and the auto-start.
    std::vector<std::string> rows();
    std::string text(const std::string& row, const char* property);
    int fcode(const std::string& row);
    std::string autoStart();

    /// The same as they are on disk.
    static std::string stored();

    /// Puts files and a catalogue in place before start(): "key" or "key=file" for a row.
    static void placeFile(const std::string& path, const std::string& content = "channels");
    static void placeCatalogue(const std::vector<std::string>& rows,
                               const std::string& autoStart = "");

    LogCapture mLog;
    Fcodes mChannelsResult = FC_OK; ///< of STORE_CHANNELS and LOAD_CHANNELS
    bool mWriteFile = true;         ///< whether STORE_CHANNELS writes it
    std::function<void()> mDuringLoad;
    std::unique_ptr<FakeChannels> mChannels;
    ConfigurationManager& mManager;

private:
    int mObserver;
};
