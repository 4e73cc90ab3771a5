#pragma once

// A device in the test's private world: the daemons, real binaries on their fixed paths, started as
// a test needs them. The test's own process is the log collector. Daemons end with the object. One
// thread, one device a test.

#include "ChildProcess.h"
#include "DataHolder.h"
#include "LogCapture.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

class Device
{
public:
    /// The debug FIFO is read and the factory catalogue is in place; nothing runs yet.
    Device();

    /// "DevManager", "ChanManager" or "CfgManager", anew when it runs; returns when its socket
    /// takes messages. What the manager starts at boot may still be under way.
    ChildProcess& start(const std::string& name, std::vector<std::string> options = {});

    /// All three, each without options, and the start at boot done.
    void boot();

    /// Ends the daemon as a power cut would; its files and those of its siblings stay.
    void cut(const std::string& name) { mDaemons.at(name)->stop(SIGKILL); }

    LogCapture& log() { return mLog; }

    /// Runs the command-line client to its end. What it said: its output, or "status: errors".
    static std::string cfgctl(std::vector<std::string> arguments);

private:
    LogCapture mLog;
    std::map<std::string, std::unique_ptr<ChildProcess>> mDaemons;
};

/// An application that asks others.
class AskingHolder : public DataHolder
{
public:
    AskingHolder() { getDataCommunicator().init(this, "/tmp/sockAsk", "/tmp/sockSendAsk", "tAsk"); }
    Fcodes doHandle(MessageEvent*) override { return FC_OK; }
};

/// Whole files; reading a missing one gives "", and writing makes the directory.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);

/// The first block of shell lines behind a heading of a page.
std::string shellLines(const std::string& page, const std::string& heading);

/// The catalogue as the device is delivered with it, and one as an earlier life has left it: a row
/// for each "key" or "key=file", with the name of the one that starts at boot.
void placeFactoryCatalogue();
void placeCatalogue(const std::vector<std::string>& rows, const std::string& autoStart = "");
