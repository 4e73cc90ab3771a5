#pragma once

// A device in the test's private world: the daemons, real binaries on their fixed paths, started as
// a test needs them. The test's own process is the log collector. Each start returns when the
// daemon's socket takes messages; daemons end with the object. One thread, one device a test.

#include "ChildProcess.h"
#include "LogCapture.h"

#include <memory>
#include <string>
#include <vector>

class Device
{
public:
    /// The debug FIFO is read and the factory catalogue is in place; nothing runs yet.
    Device();

    ChildProcess& startDevManager(const std::vector<std::string>& options = {});
    ChildProcess& startChanManager(const std::vector<std::string>& options = {});

    /// Returns when the manager serves: when it has logged that its communicator has started. With
    /// a "-v" that hides the line, when its socket is bound. What it starts at boot may still be
    /// under way.
    ChildProcess& startCfgManager(const std::vector<std::string>& options = {});

    /// All three, each without options, and the start at boot done.
    void boot();

    /// Ends the manager as a power cut would; its files and those of its siblings stay.
    void cutCfgManager();

    ChildProcess& devManager() { return *mDevManager; }
    ChildProcess& chanManager() { return *mChanManager; }
    ChildProcess& cfgManager() { return *mCfgManager; }
    LogCapture& log() { return mLog; }

    /// Runs the command-line client to its end.
    Finished cfgctl(std::vector<std::string> arguments);

private:
    LogCapture mLog;
    std::unique_ptr<ChildProcess> mDevManager;
    std::unique_ptr<ChildProcess> mChanManager;
    std::unique_ptr<ChildProcess> mCfgManager;
};

/// True when a datagram socket is bound to the path and takes messages.
bool isServed(const std::string& path);

/// Whole files; reading a missing one gives "".
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);
