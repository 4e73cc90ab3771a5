// What the configuration manager does with the channel manager's help: storing the channels of a
// save, and loading those of a configuration that is started.

#include "CfgPaths.h"
#include "ConfigurationManager.h"
#include "ConfigurationsTable.h"
#include "DbgLine.h"
#include "MessageCommand.h"
#include "RunningConfiguration.h"

#include <sys/stat.h>

namespace
{

constexpr char kUnit[] = "ConfigurationManager";

/// How long the channel manager may take for an answer, in seconds, and how often a request is
/// sent.
struct RetryPolicy {
    unsigned timeout;
    unsigned tries;
};
constexpr RetryPolicy kStorePolicy{10, 3};
constexpr RetryPolicy kLoadPolicy{120, 1};
constexpr RetryPolicy kDefaultLoadPolicy{200, 1};

Fcodes requestChannels(DataHolder& holder, const std::string& command, RetryPolicy policy)
{
    std::string response; // unused: only the code of the answer counts
    return holder.requestCommand(kChanSocket, command, response, policy.timeout, policy.tries);
}

std::string commandText(const char* id, const char* parameter, const std::string& value)
{
    MessageCommand command;
    command.setId(id);
    command.addParam(parameter, value);
    std::string text;
    return command.toString(text);
}

} // namespace

// SAVE_CFG

Fcodes ConfigurationManager::storeChannels(const std::string& file)
{
    const std::string text = commandText("STORE_CHANNELS", "File", file);
    DBG_LOG(SEV_INFO) << "addConfiguration: sending to" << kChanSocket << " command" << text;
    const Fcodes result = requestChannels(*this, text, kStorePolicy);
    if (result != FC_OK)
        DBG_LOG(SEV_ERROR) << "addConfiguration: requestCommand failed fcode=" << result;
    return result;
}

Fcodes ConfigurationManager::cfgStored(const std::string& rowId)
{
    if (rowId.empty())
        return FC_OK;

    std::string time = "N/A";
    std::string file;
    Fcodes result = FC_OK | catalogue().readText(rowId, "File Name", file);
    if (result == FC_OK) {
        struct stat info;
        if (stat(file.c_str(), &info) == 0) {
            timeToString(info.st_mtime, time);
        } else {
            DBG_LOG(SEV_ERROR) << "cfgStored: Not found file=" << file;
            result |= FC_BAD_VALUE;
        }
    }
    result |= catalogue().writeStateAndFcode(rowId, kAvailable, FC_OK);
    result |= catalogue().writeText(rowId, "Time", time);
    result |= catalogue().store();
    sendEvent("Configuration Added", rowId, result);
    return result;
}

// START_CFG, and the start at boot

Fcodes ConfigurationManager::startConfiguration(const std::string& command)
{
    std::string rowId;
    std::string file;
    Fcodes result = readStartCommand(command, rowId);
    if (result == FC_OK)
        result = claimForStart(rowId, file);
    if (result == FC_OK) {
        result = loadChannels(file);
        running().loaded(rowId, result);
    }
    if (result != FC_OK)
        return reportFailedStart(rowId, result);

    result = FC_OK | cfgActivated(rowId);
    if (result != FC_OK)
        DBG_LOG(SEV_ERROR) << "startConfiguration: cfgActivated failed fcode=" << result;
    return result;
}

Fcodes ConfigurationManager::readStartCommand(const std::string& command, std::string& rowId)
{
    MessageCommand request;
    if (request.initFromString(command) == FC_OK && request.getParam("RowID", rowId))
        return FC_OK;
    DBG_LOG(SEV_ERROR) << "startConfiguration: Not Found tag RowID";
    return FC_BODY_ERROR;
}

/// Checks that the row can be started and marks it "Inprogress", in one step: the start at boot and
/// a command must not both pass.
Fcodes ConfigurationManager::claimForStart(const std::string& rowId, std::string& file)
{
    const std::lock_guard guard(*this);
    DBG_LOG(SEV_INFO) << "startConfiguration: name=" << rowId;
    if (rowId.empty() || !catalogue().has(rowId))
        return FC_NO_SUCH_NAME;

    std::string state;
    if (const Fcodes readResult = catalogue().readText(rowId, "State", state);
        readResult != FC_OK) {
        DBG_LOG(SEV_ERROR) << "startConfiguration: Not found State field in Cfg row=" << rowId;
        return readResult | FC_NO_SUCH_NAME;
    }
    if (state != kAvailable) {
        DBG_LOG(SEV_ERROR) << "startConfiguration: Cfg row=" << rowId << " state is not AVAILABLE";
        return FC_UNAVAILABLE;
    }
    if (const Fcodes readResult = catalogue().readText(rowId, "File Name", file);
        readResult != FC_OK) {
        DBG_LOG(SEV_ERROR) << "startConfiguration: Not Found Filename in table="
                           << kConfigurationsTable << " row=" << rowId << " fcode=" << readResult;
        return readResult;
    }
    if (const Fcodes writeResult = catalogue().writeText(rowId, "State", kInprogress);
        writeResult != FC_OK)
        DBG_LOG(SEV_ERROR) << "startConfiguration: Failed initStringParam State fcode="
                           << writeResult;
    return FC_OK;
}

Fcodes ConfigurationManager::loadChannels(const std::string& file)
{
    const std::string text = commandText("LOAD_CHANNELS", "File", file);
    DBG_LOG(SEV_INFO) << "startConfiguration: sending to" << kChanSocket << " command" << text;
    const Fcodes result = requestChannels(*this, text, kLoadPolicy);
    if (result != FC_OK)
        DBG_LOG(SEV_ERROR) << "startConfiguration: requestCommand failed fcode=" << result;
    return result;
}

Fcodes ConfigurationManager::reportFailedStart(const std::string& rowId, Fcodes code)
{
    // Kept on purpose: peers count on a refused start making the row "Available", even while it is
    // being loaded by another start.
    if (!rowId.empty() && catalogue().has(rowId))
        code |= catalogue().writeStateAndFcode(rowId, kAvailable, code);
    sendEvent("Configuration Error", rowId, code);
    return code;
}

Fcodes ConfigurationManager::cfgActivated(const std::string& rowId)
{
    if (rowId.empty())
        return FC_OK;
    const Fcodes result = FC_OK | catalogue().writeStateAndFcode(rowId, kAvailable, FC_OK);
    if (result == FC_OK) {
        sendEvent("Configuration Activated", rowId, result);
        return result;
    }
    DBG_LOG(SEV_ERROR) << "cfgActivated: init failed State | Fcode fcode=" << result;
    catalogue().writeStateAndFcode(rowId, kUnavailable, result);
    sendEvent("Configuration Error", rowId, result);
    return result;
}

void ConfigurationManager::startAutoCfg()
{
    std::string rowId;
    if (catalogue().readAutoStart(rowId) == FC_OK && !rowId.empty() && catalogue().has(rowId)) {
        const std::string start = commandText("START_CFG", "RowID", rowId);
        DBG_LOG(SEV_INFO) << "startAutoCfg: found auto cfg rowId=" << rowId;
        DBG_LOG(SEV_INFO) << "startAutoCfg: Executing command=" << start;
        const Fcodes startResult = startConfiguration(start);
        if (startResult == FC_OK)
            return;
        DBG_LOG(SEV_ERROR) << "startAutoCfg: startConfiguration failed fcode=" << startResult;
    }

    const std::string load = commandText("LOAD_CHANNELS", "File", "Default");
    DBG_LOG(SEV_INFO) << "startAutoCfg: sending to" << kChanSocket << " command" << load;
    const Fcodes loadResult = requestChannels(*this, load, kDefaultLoadPolicy);
    running().loadedFallback(loadResult);
    if (loadResult != FC_OK)
        DBG_LOG(SEV_ERROR) << "startAutoCfg: requestCommand failed fcode=" << loadResult;
}
