#pragma once

// The configuration manager in this process, with the channel manager's answers scripted: for tests
// of exact texts, orders and codes. One manager a process.

#include "CfgPaths.h"
#include "ConfigurationManager.h"
#include "Device.h"
#include "MessageCommand.h"

#include <gmock/gmock.h>

using Lines = std::vector<std::string>;

class ManagerFixture : public testing::Test
{
protected:
    /// A manager that asks the test instead of the channel manager.
    class ScriptedManager : public ConfigurationManager
    {
    public:
        Fcodes requestCommand(const std::string& target, const std::string& command, std::string&,
                              unsigned timeout, unsigned tries) override
        {
            MessageCommand request;
            std::string file;
            request.initFromString(command);
            request.getParam("File", file);
            requests.push_back(target + ' ' + request.ID + ' ' + file + ' ' +
                               std::to_string(timeout) + ' ' + std::to_string(tries));
            if (request.ID == "STORE_CHANNELS" && writesFile)
                writeFile(file, "channels");
            if (request.ID == "LOAD_CHANNELS")
                duringLoad();
            else
                duringStore();
            return channelsResult;
        }

        Fcodes channelsResult = FC_OK;
        bool writesFile = true;                   ///< by STORE_CHANNELS
        std::function<void()> duringLoad = [] {}; ///< called by LOAD_CHANNELS
        std::function<void()> duringStore = [] {};
        Lines requests; ///< each as "target ID file timeout tries"
    };

    /// The factory catalogue is in place; init() has not been called.
    ManagerFixture() { placeFactoryCatalogue(); }

    /// A command as the communicator hands it to the manager; its result.
    Fcodes run(const std::string& id, const Parameters& parameters)
    {
        std::string response;
        return mManager.execute(commandText(id, parameters), response);
    }

    /// Log entries of the manager's own unit, without its name, since the last call.
    Lines logged()
    {
        const std::string unit = "ConfigurationManager:";
        Lines found;
        for (std::string entry : mLog.entries())
            if (const auto at = entry.find(unit); at < 7) // behind the severity
                found.push_back(entry.erase(at, unit.size()));
        mLog.clear();
        return found;
    }

    /// The catalogue that is served: a line for each row, "key=Name|File Name|Description|State|
    /// Fcode|stamped" (or "N/A", its time), and "starts NAME" with the auto-start.
    Lines catalogue()
    {
        Lines lines;
        mManager.getInstances("CfgDataSet", "ConfigurationsTable", lines);
        for (std::string& line : lines) {
            const std::string row = line;
            int fcode = -1;
            mManager.getIntParam("CfgDataSet", "ConfigurationsTable", "Fcode", fcode, row);
            std::ostringstream rest;
            for (const char* property : {"Name", "File Name", "Description", "State"})
                rest << text(row, property) << '|';
            rest << std::hex << fcode << '|' << (text(row, "Time") == "N/A" ? "N/A" : "stamped");
            line += '=' + rest.str();
        }
        std::string autoStart = "<none>";
        mManager.getTextParam("CfgDataSet", "AutoStart", "Name", autoStart, std::string());
        lines.push_back("starts " + autoStart);
        return lines;
    }

    std::string text(const std::string& row, const char* property)
    {
        std::string value;
        mManager.getTextParam("CfgDataSet", "ConfigurationsTable", property, value, row);
        return value;
    }

    /// What the catalogue says that runs.
    std::string running()
    {
        std::string name = "none";
        bool isFallback = false;
        mManager.getTextParam("CfgDataSet", "RunningConfiguration", "Name", name, std::string());
        mManager.getBoolParam("CfgDataSet", "RunningConfiguration", "Fallback", isFallback,
                              std::string());
        return isFallback ? name + ", the fallback" : name;
    }

    /// The line of a row as a save, an import or a scan makes it, and as a failed start leaves it.
    static std::string rowLine(const std::string& name, const std::string& description = " ",
                               const std::string& fcode = "10000")
    {
        return name + '=' + name + "|/data/cfg/" + name + '|' + description + "|Available|" +
               fcode + "|stamped";
    }

    LogCapture mLog;
    ScriptedManager& mManager = *new ScriptedManager; // as long as the process: so are its threads
};
