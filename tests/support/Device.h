#pragma once

// A device in the test's private world: the daemons, real binaries on their fixed paths, started as
// a test needs them. The test's own process is the log collector. Daemons end with the object. One
// thread, one device a test.

#include "ChildProcess.h"
#include "DataHolder.h"
#include "LogCapture.h"
#include "MessageHeader.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

class Device
{
public:
    /// The debug FIFO is read and the factory catalogue is in place; nothing runs yet.
    Device();

    /// "DevManager", "ChanManager", "CfgManager" or "FanManager", anew when it runs; returns when
    /// its socket takes messages. What the manager starts at boot may still be under way.
    ChildProcess& start(const std::string& name, std::vector<std::string> options = {});

    /// All three, each without options, and the start at boot done.
    void boot();

    /// Ends the daemon as a power cut would; its files and those of its siblings stay.
    void cut(const std::string& name) { mDaemons.at(name)->stop(SIGKILL); }

    LogCapture& log() { return mLog; }

    /// Runs the command-line client to its end and returns its output, or "status: errors".
    static std::string cfgctl(std::vector<std::string> arguments);

private:
    LogCapture mLog;
    std::map<std::string, std::unique_ptr<ChildProcess>> mDaemons;
};

/// A command element as applications send it.
using Parameters = std::map<std::string, std::string>;
std::string commandText(const std::string& id, const Parameters& parameters = {});

/// An application that sends requests to others. The results are the peer's, or why it gave none.
class RequestingHolder : public DataHolder
{
public:
    RequestingHolder()
    {
        getDataCommunicator().init(this, "/tmp/sockTest", "/tmp/sockSendTest", "tTest");
    }

    Fcodes doHandle(MessageEvent*) override { return FC_OK; }

    Fcodes command(const std::string& socket, const std::string& id,
                   const Parameters& parameters = {}, unsigned timeout = 10)
    {
        std::string response;
        return requestCommand(socket, commandText(id, parameters), response, timeout, 1);
    }

    /// A SET of one property of a dataset's row.
    Fcodes set(const std::string& socket, const std::string& dataset, const std::string& component,
               const std::string& row, const std::string& property, const std::string& value)
    {
        MessageHeader request, response;
        request.Type = "SET";
        std::string body = "<BODY>\n<DataSet ID=\"" + dataset + "\" >\n<Component Name=\"" +
                           component + "\" >\n<Row ID=\"" + row + "\" >\n<Item Name=\"" + property +
                           "\" Value=\"" + value +
                           "\" />\n</Row>\n</Component>\n</DataSet>\n</BODY>\n";
        request.Size = static_cast<int>(body.size());
        const Fcodes sent =
            getDataCommunicator().sendRequest(socket, request, body, response, body, 10, 1);
        return sent | response.Fcode;
    }
};

/// The factory catalogue, and a stored one as an earlier run leaves it: a row and its
/// file for each "key" or "key=file", and the name of the one that starts at boot.
void placeFactoryCatalogue();
void placeCatalogue(const std::vector<std::string>& rows, const std::string& autoStart = "");
