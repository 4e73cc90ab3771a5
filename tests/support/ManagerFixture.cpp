#include "ManagerFixture.h"

#include "CfgPaths.h"
#include "MessageCommand.h"

Fcodes ManagerFixture::ScriptedManager::requestCommand(const std::string& target,
                                                       const std::string& command, std::string&,
                                                       unsigned timeout, unsigned tries)
{
    MessageCommand request;
    std::string file;
    request.initFromString(command);
    request.getParam("File", file);
    requests.push_back(target + ' ' + request.ID + ' ' + file + ' ' + std::to_string(timeout) +
                       ' ' + std::to_string(tries));
    if (request.ID == "STORE_CHANNELS" && fileIsWritten)
        writeFile(file, "channels");
    if (request.ID == "LOAD_CHANNELS" && duringLoad)
        duringLoad();
    return channelsResult;
}

// Managers live as long as the process: their threads are never stopped.
ManagerFixture::ManagerFixture() : mManager(*new ScriptedManager) { placeFactoryCatalogue(); }

Fcodes ManagerFixture::run(const std::string& id, const Parameters& parameters)
{
    std::string response;
    return mManager.execute(commandText(id, parameters), response);
}

Lines ManagerFixture::logged()
{
    const std::string unit = "ConfigurationManager:";
    Lines found;
    for (std::string entry : mLog.entries())
        if (const auto at = entry.find(unit); at < 7) // behind the severity
            found.push_back(entry.erase(at, unit.size()));
    mLog.clear();
    return found;
}

Lines ManagerFixture::catalogue()
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

std::string ManagerFixture::text(const std::string& row, const char* property)
{
    std::string value;
    mManager.getTextParam("CfgDataSet", "ConfigurationsTable", property, value, row);
    return value;
}

std::string rowLine(const std::string& name, const std::string& description,
                    const std::string& fcode)
{
    return name + '=' + name + "|/data/cfg/" + name + '|' + description + "|Available|" + fcode +
           "|stamped";
}
