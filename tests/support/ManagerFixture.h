#pragma once

// The configuration manager in this process, with the channel manager's answers scripted: for tests
// of exact texts, orders and codes. One manager a process.

#include "ConfigurationManager.h"
#include "Device.h"

#include <functional>
#include <gmock/gmock.h>

using Lines = std::vector<std::string>;

class ManagerFixture : public testing::Test
{
protected:
    /// A manager that asks the test instead of the channel manager.
    class ScriptedManager : public ConfigurationManager
    {
    public:
        Fcodes requestCommand(const std::string& target, const std::string& command,
                              std::string& result, unsigned timeout, unsigned tries) override;

        Fcodes channelsResult = FC_OK;
        bool fileIsWritten = true;        ///< by STORE_CHANNELS
        std::function<void()> duringLoad; ///< called by LOAD_CHANNELS
        Lines requests;                   ///< each as "target ID file timeout tries"
    };

    /// The factory catalogue is in place; init() has not been called.
    ManagerFixture();

    /// A command as the communicator hands it to the manager; its result.
    Fcodes run(const std::string& id, const Parameters& parameters);

    /// Log entries of the manager's own unit, without its name, since the last call.
    Lines logged();

    /// The catalogue that is served: a line for each row, "key=Name|File Name|Description|State|
    /// Fcode|stamped" (or "N/A", its time), and "starts NAME" with the auto-start.
    Lines catalogue();
    std::string text(const std::string& row, const char* property);

    LogCapture mLog;
    ScriptedManager& mManager;
};

/// The line of a row as a save, an import or a scan makes it, and as a failed start leaves it.
std::string rowLine(const std::string& name, const std::string& description = " ",
                    const std::string& fcode = "10000");
