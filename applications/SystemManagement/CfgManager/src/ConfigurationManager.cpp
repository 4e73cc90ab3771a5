#include "ConfigurationManager.h"

#include "CatalogueChange.h"
#include "CatalogueScan.h"
#include "CatalogueStore.h"
#include "CfgFiles.h"
#include "CfgPaths.h"
#include "CfgPolicy.h"
#include "ChangeJournal.h"
#include "ChangeSettlement.h"
#include "ConfigurationsTable.h"
#include "DbgLine.h"
#include "IDataSets.h"
#include "MessageCommand.h"
#include "MessageEvent.h"
#include "MessageText.h"
#include "RunningConfiguration.h"
#include "SupervisorNotice.h"
#include "base/LocalTime.h"

#include <algorithm>
#include <cerrno>
#include <libgen.h>
#include <sys/stat.h>

namespace
{

constexpr char kUnit[] = "ConfigurationManager";

struct CommandEntry {
    std::string_view id;
    Fcodes (ConfigurationManager::*handler)(const std::string& command);
};

constexpr std::chrono::seconds kMoveLimit{30};

constexpr CommandEntry kCommands[] = {
    {"SAVE_CFG", &ConfigurationManager::addConfiguration},
    {"REMOVE_CFG", &ConfigurationManager::removeConfiguration},
    {"START_CFG", &ConfigurationManager::startConfiguration},
    {"SET_AUTOSTART_CFG", &ConfigurationManager::setAutoStart},
    {"Import Configuration", &ConfigurationManager::importConfiguration},
    {"Rename Configuration", &ConfigurationManager::renameConfiguration},
};

} // namespace

// Start-up

void ConfigurationManager::init()
{
    const SupervisorNotice supervisor;
    setTaskName(currentTaskId(), "tCfgInit");
    if (mkdir(kCfgDir, 0775) == -1) {
        if (errno == EEXIST)
            DBG_LOG(SEV_INFO) << "init: dir=" << kCfgDir << " already exists";
        else
            DBG_LOG(SEV_ERROR) << "init: Couldn't make dir=" << kCfgDir << " errno=" << errno;
    }

    DataHolder::init("tCfg");
    loadCatalogue();
    scanForCfgs();
    CatalogueStore::ofProcess().tidyLater();

    DataCommunicator& communicator = getDataCommunicator();
    communicator.setAccessPolicy(&CfgPolicy::ofProcess());
    communicator.init(this, kCfgSocket, kCfgSendSocket, "tCfgCom");
    applyDeviceTimeZone();
    communicator.requestSubscribe(kDevSocket); // without a device manager there are no events
    const bool isServing = communicator.start();
    DBG_LOG(SEV_INFO) << "init: dataCommunicator started";
    if (isServing)
        supervisor.ready();
    startAutoCfg();
    startMissingThreads();
    if (!isServing)
        supervisor.ready();
}

void ConfigurationManager::loadCatalogue()
{
    std::string copy;
    const CatalogueSource source = catalogue().load(copy);
    if (!copy.empty())
        DBG_LOG(SEV_ERROR) << "init: Couldn't load the stored catalogue, kept as file=" << copy;
    else if (source == CatalogueSource::FACTORY && pathExists(kStoredCatalogue))
        DBG_LOG(SEV_ERROR) << "init: Couldn't load the stored catalogue, nor keep a copy of file="
                           << kStoredCatalogue;
    if (!waitForMoves(kMoveLimit))
        DBG_LOG(SEV_ERROR) << "init: A move of the last run is still under way";
    const std::vector<ChangeRecord> changes = ChangeJournal::ofProcess().open();
    if (const int error = ChangeJournal::ofProcess().reserveError(); error != 0)
        DBG_LOG(SEV_ERROR) << "init: Couldn't reserve space for the records of changes errno="
                           << error;
    for (const auto& [directory, reason] : ChangeJournal::notBelieved())
        DBG_LOG(SEV_ERROR) << "init: Didn't believe the records of changes in dir=" << directory
                           << ", which is " << reason;
    ChangeSettlement(catalogue(), source).run(changes);
    running().forget();
}

void ConfigurationManager::applyDeviceTimeZone()
{
    std::string zone;
    if (requestGetTextParam(kDevSocket, "DeviceDataSet", "DateTimeTable", "TZ", zone,
                            kSingleInstance) != FC_OK)
        return;
    DBG_LOG(SEV_SYS) << "init: setenv TZ=" << zone;
    if (!setTimeZone(zone))
        DBG_LOG(SEV_ERROR) << "init: Refused TZ, too long or no zone file bytes=" << zone.size();
}

Fcodes ConfigurationManager::acceptChanges()
{
    const Fcodes commitResult = commit();
    return FC_OK | commitResult | catalogue().store();
}

Fcodes ConfigurationManager::abortConfiguration() { return FC_OK; }

// Commands and events

Fcodes ConfigurationManager::execute(const std::string& command, std::string& response)
{
    std::string id;
    if (getPropertyValue(command, 0, "ID", id) == std::string::npos) {
        DBG_LOG(SEV_ERROR) << "execute: Not found tags ID in:\n" << command;
        return FC_BODY_ERROR;
    }
    DBG_LOG(SEV_INFO) << "execute: command=" << id;
    const auto* const entry = std::ranges::find(kCommands, id, &CommandEntry::id);
    if (entry == std::end(kCommands))
        return DataHolder::execute(command, response);
    return (this->*entry->handler)(command);
}

Fcodes ConfigurationManager::doExecute(const std::string& command, std::string& /*result*/)
{
    DBG_LOG(SEV_INFO) << "doExecute: arrived command=" << command;
    std::string id;
    return getPropertyValue(command, 0, "ID", id) == std::string::npos ? FC_BODY_ERROR : FC_OK;
}

Fcodes ConfigurationManager::doHandle(MessageEvent* event)
{
    DBG_LOG(SEV_INFO) << "doHandle: arrived event=" << event->ID;
    std::string zone;
    if (event->ID == "Date&Time Updated" && event->getParam("TZ", zone)) {
        DBG_LOG(SEV_SYS) << "doHandle: setenv TZ=" << zone;
        if (!setTimeZone(zone))
            DBG_LOG(SEV_ERROR) << "doHandle: Refused TZ, too long or no zone file bytes="
                               << zone.size();
    }
    return FC_OK;
}

void ConfigurationManager::sendEvent(const std::string& eventId, const std::string& cfgName,
                                     unsigned fcode)
{
    MessageEvent event;
    event.ID = eventId;
    event.Source = cfgName;
    event.Status = "None";
    event.Severity = "Info";
    event.Fcode = static_cast<Fcodes>(fcode);
    DBG_LOG(SEV_INFO) << "sendEvent: notifying event=" << eventId << " cfgName=" << cfgName
                      << " fcode=" << Hex{fcode};
    notify(event);
}

// The catalogue and the directory

void ConfigurationManager::timeToString(std::time_t time, std::string& out)
{
    out = toLocalTimeText(time);
}

Fcodes ConfigurationManager::generateFilename(const std::string& name, std::string& file)
{
    if (name.empty())
        return FC_BAD_VALUE;
    file = configurationPath(name);
    return FC_OK;
}

Fcodes ConfigurationManager::getRowIdByFilename(const std::string& file, std::string& rowId)
{
    return catalogue().getRowIdByFilename(file, rowId);
}

void ConfigurationManager::scanForCfgs()
{
    if (CatalogueScan(catalogue()).run())
        acceptChanges(); // a catalogue that cannot be stored is served all the same

    std::string autoStart;
    if (catalogue().readAutoStart(autoStart) == FC_OK && !catalogue().has(autoStart))
        catalogue().writeAutoStart("");
}

ConfigurationsTable ConfigurationManager::catalogue() { return ConfigurationsTable(*this); }

RunningConfiguration ConfigurationManager::running() { return RunningConfiguration(*this); }

// SAVE_CFG

Fcodes ConfigurationManager::addConfiguration(const std::string& command)
{
    MessageCommand request;
    if (request.initFromString(command) != FC_OK) {
        DBG_LOG(SEV_ERROR) << "addConfiguration: Error in command:\n" << command;
        return FC_BODY_ERROR;
    }
    std::string name;
    std::string description = kNoDescription;
    std::string autoStart;
    request.getParam("Description", description);
    request.getParam("AutoStart", autoStart);
    if (!request.getParam("Name", name)) {
        DBG_LOG(SEV_ERROR) << "addConfiguration: Name is empty in command:\n" << command;
        return FC_BODY_ERROR;
    }
    if (name.empty()) {
        DBG_LOG(SEV_ERROR) << "addConfiguration: Empty cfg name supplied";
        return FC_BAD_VALUE;
    }
    if (!isConfigurationName(name)) {
        DBG_LOG(SEV_ERROR) << "addConfiguration: Bad filename supplied =" << name;
        return FC_BAD_VALUE;
    }

    commit(); // what is pending for a row that goes must not come back as a part of one
    auto noRetry = CatalogueStore::ofProcess().holdRetries();
    CatalogueChange change = CatalogueChange::save(catalogue(), name, autoStart == "true");
    if (catalogue().has(name))
        removeOverwritten(name, change);
    else
        change.keepCopy();
    Fcodes result = catalogue().add(name);
    if (result != FC_OK) {
        DBG_LOG(SEV_ERROR) << "addConfiguration: Couldn't add to dataset=CfgDataSet "
                              "comp=ConfigurationsTable new rowId="
                           << name;
        change.abandon();
        return result;
    }
    result |= catalogue().writeText(name, "Name", name);
    result |= catalogue().writeText(name, "Description", description);
    if (autoStart == "true")
        result |= catalogue().writeAutoStart(name);
    std::string file;
    result |= setFileName(name, file);
    result |= acceptChanges();
    if (result != FC_OK)
        DBG_LOG(SEV_ERROR) << "addConfiguration: Failed accept changes fcode=" << result;
    noRetry.unlock(); // the answer may take its time

    result = storeChannels(file);
    if (result != FC_OK) {
        change.fail(result);
        return result;
    }
    // Nothing is put back from here on: what the channel manager wrote must be there.
    syncFile(file);
    syncFile(kCfgDir);
    change.confirmAnswer();
    result = FC_OK | cfgStored(name);
    if (pathExists(file))
        change.end(); // else the row stays known as one without a file
    return result;
}

/// The file and the row of a configuration that is being saved anew.
void ConfigurationManager::removeOverwritten(const std::string& name, CatalogueChange& change)
{
    std::string file;
    if (const Fcodes readResult = catalogue().readText(name, "File Name", file);
        readResult != FC_OK)
        DBG_LOG(SEV_ERROR) << "addConfiguration: Not Found File Name in table="
                           << kConfigurationsTable << " row=" << name << " fcode=" << readResult;
    else if (!change.moveAway(file) && !removeConfigurationFile(file)) {
        DBG_LOG(SEV_ERROR) << "addConfiguration: Failed to remove file=" << file
                           << " errno=" << errno;
        change.keepCopy();
    }
    catalogue().remove(name);
}

Fcodes ConfigurationManager::setFileName(const std::string& name, std::string& file)
{
    Fcodes result = generateFilename(name, file);
    DBG_LOG(SEV_INFO) << "addConfiguration: Generated filename=" << file;
    if (result != FC_OK)
        return result;
    DBG_LOG(SEV_INFO) << "addConfiguration: Setting filename=" << file
                      << " to table=" << kConfigurationsTable << " rowId=" << name;
    result = catalogue().writeText(name, "File Name", file);
    if (result != FC_OK)
        DBG_LOG(SEV_ERROR) << "addConfiguration: Failed Setting filename=" << file
                           << " to table=" << kConfigurationsTable << " rowId=" << name
                           << " fcode=" << result;
    return result;
}

// Import Configuration

Fcodes ConfigurationManager::importConfiguration(const std::string& command)
{
    MessageCommand request;
    if (request.initFromString(command) != FC_OK) {
        DBG_LOG(SEV_ERROR) << "importConfiguration: Error in command:\n" << command;
        return FC_BODY_ERROR;
    }
    std::string source;
    if (!request.getParam("File", source)) {
        DBG_LOG(SEV_ERROR) << "importConfiguration: Empty cfg filename supplied";
        return FC_BAD_VALUE;
    }
    std::string path = source; // basename() may write to it
    const std::string name = basename(path.data());
    std::string description = kNoDescription;
    std::string autoStart = "false";
    request.getParam("Description", description);
    request.getParam("AutoStart", autoStart);
    DBG_LOG(SEV_SYS) << "importConfiguration file=" << source << " cfg=" << name;
    if (!isConfigurationName(name)) {
        DBG_LOG(SEV_ERROR) << "importConfiguration: Bad filename supplied =" << name;
        return FC_BAD_VALUE;
    }

    const FileMove move = importMove(source, name);
    DBG_LOG(SEV_INFO) << "importConfiguration: command=" << move.command;
    commit(); // as for a save
    const auto noRetry = CatalogueStore::ofProcess().holdRetries();
    const bool becomesAutoStart = autoStart == "true";
    std::time_t modified = 0;
    CatalogueChange change =
        CatalogueChange::import(catalogue(), name, source, description, becomesAutoStart);
    if (!move.run(modified)) {
        DBG_LOG(SEV_ERROR) << "importConfiguration: Couldn't stat filename=" << move.to;
        change.abandon();
        return FC_UNAVAILABLE;
    }
    Fcodes result = catalogue().add(name);
    DBG_LOG(SEV_INFO) << "importConfiguration: Added entry rowId=" << name
                      << " for file=" << move.to;
    result |= catalogue().fillFileRow(name, description, modified);
    if (becomesAutoStart)
        result |= catalogue().writeAutoStart(name);
    result |= acceptChanges();
    change.end();
    return result;
}

// Rename Configuration

Fcodes ConfigurationManager::renameConfiguration(const std::string& command)
{
    MessageCommand request;
    if (request.initFromString(command) != FC_OK) {
        DBG_LOG(SEV_ERROR) << "renameConfiguration: Error in command:\n" << command;
        return FC_BODY_ERROR;
    }
    std::string name;
    std::string newName;
    const bool named = request.getParam("Name", name);
    request.getParam("New Name", newName);
    if (name.empty()) {
        DBG_LOG(SEV_ERROR) << "renameConfiguration: Empty cfg name supplied";
        return named ? FC_BAD_VALUE : FC_BODY_ERROR;
    }
    if (newName.empty()) {
        DBG_LOG(SEV_ERROR) << "renameConfiguration: Empty new cfg name supplied";
        return FC_BAD_VALUE;
    }
    DBG_LOG(SEV_INFO) << "renameConfiguration: oldname=" << name << " new name=" << newName;
    if (!isConfigurationName(newName)) {
        DBG_LOG(SEV_ERROR) << "renameConfiguration: Bad filename supplied =" << newName;
        return FC_BAD_VALUE;
    }
    if (!catalogue().has(name)) {
        DBG_LOG(SEV_ERROR) << "renameConfiguration: Couldn't stat filename="
                           << configurationPath(newName);
        return FC_NO_SUCH_NAME;
    }

    std::string description = kNoDescription;
    catalogue().readText(name, "Description",
                         description); // stays unless the command brings another
    request.getParam("Description", description);
    return moveConfiguration(name, newName, description);
}

Fcodes ConfigurationManager::moveConfiguration(const std::string& name, const std::string& newName,
                                               const std::string& description)
{
    std::string file;
    catalogue().readText(name, "File Name", file); // without one nothing arrives
    const FileMove move = renameMove(file, newName);
    std::time_t modified = 0;
    commit(); // as for a save
    const auto noRetry = CatalogueStore::ofProcess().holdRetries();
    CatalogueChange change = CatalogueChange::rename(catalogue(), name, newName, file, description);
    bool moved = false;
    if (isInCfgDir(file)) {
        DBG_LOG(SEV_INFO) << "renameConfiguration: command=" << move.command;
        moved = move.run(modified);
    }
    if (!moved) {
        DBG_LOG(SEV_ERROR) << "renameConfiguration: Couldn't stat filename=" << move.to;
        change.abandon();
        return FC_UNAVAILABLE;
    }

    if (file != move.to && isSameFile(file, move.to)) { // links to one file, which mv may leave
        removeConfigurationFile(file);
        syncFile(kCfgDir);
    }

    // The new row first: a failure to add it must not cost the old one.
    Fcodes result = catalogue().add(newName);
    DBG_LOG(SEV_INFO) << "renameConfiguration: Added entry rowId=" << newName
                      << " for file=" << move.to;
    if (result == FC_OK && newName != name) {
        result |= catalogue().remove(name);
        running().renamed(name, newName);
    }
    result |= catalogue().fillFileRow(newName, description, modified);
    std::string autoStart;
    if (catalogue().readAutoStart(autoStart) == FC_OK && autoStart == name)
        result |= catalogue().writeAutoStart(newName);
    // Kept on purpose: log readers count on the prefix of the import in this line of the rename.
    if (result != FC_OK)
        DBG_LOG(SEV_ERROR) << "importConfiguration: Couldn't replace name=" << name
                           << " with new=" << newName;
    result |= acceptChanges();
    change.end();
    return result;
}

// REMOVE_CFG, and the removal of a row by a peer

Fcodes ConfigurationManager::removeConfiguration(const std::string& command)
{
    MessageCommand request;
    if (request.initFromString(command) != FC_OK) {
        DBG_LOG(SEV_ERROR) << "removeConfiguration: Error in command:\n" << command;
        return FC_BODY_ERROR;
    }
    std::string rowId;
    if (!request.getParam("RowID", rowId)) {
        DBG_LOG(SEV_ERROR) << "removeConfiguration: Not Found tag RowID";
        return FC_BODY_ERROR;
    }
    if (!catalogue().has(rowId)) {
        DBG_LOG(SEV_ERROR) << "removeConfiguration: Not Found row=" << rowId
                           << " in table=" << kConfigurationsTable;
        return FC_NO_SUCH_NAME;
    }

    commit(); // as for a save
    const auto noRetry = CatalogueStore::ofProcess().holdRetries();
    CatalogueChange change = CatalogueChange::remove(catalogue(), rowId, false);
    Fcodes result = FC_OK;
    std::string file;
    if (const Fcodes readResult = catalogue().readText(rowId, "File Name", file);
        readResult != FC_OK) {
        DBG_LOG(SEV_ERROR) << "removeConfiguration: Not Found File Name in table="
                           << kConfigurationsTable << " row=" << rowId << " fcode=" << readResult;
        result |= readResult;
    } else if (!removeConfigurationFile(file)) {
        DBG_LOG(SEV_ERROR) << "removeConfiguration: Failed to remove file=" << file
                           << " errno=" << errno;
        if (pathExists(file) && !isDirectory(file)) // which is nobody's configuration
            result |= FC_UNAVAILABLE;
    } else {
        syncFile(kCfgDir); // its row must not go before it
    }
    result |= catalogue().remove(rowId);
    running().removed(rowId);
    std::string autoStart;
    if (catalogue().readAutoStart(autoStart) == FC_OK && autoStart == rowId)
        result |= catalogue().writeAutoStart("");
    result |= acceptChanges();
    change.endRemoval();
    return result;
}

Fcodes ConfigurationManager::deleteRow(const std::string& table, int row)
{
    if (table != kConfigurationsTable) {
        acceptChanges(); // callers get FC_OK whatever becomes of it
        return FC_OK;
    }
    const std::string rowId = std::to_string(row);
    std::string state;
    if (catalogue().readText(rowId, "State", state) == FC_OK && state == kInprogress)
        return FC_ACCESS_DENIED;

    commit(); // as for a save
    const auto noRetry = CatalogueStore::ofProcess().holdRetries();
    CatalogueChange change = CatalogueChange::remove(catalogue(), rowId, true);
    Fcodes result = FC_OK;
    std::string file;
    if (const Fcodes readResult = catalogue().readText(rowId, "File Name", file);
        readResult != FC_OK) {
        DBG_LOG(SEV_ERROR) << "deleteRow: Not Found File Name in table=" << kConfigurationsTable
                           << " row=" << row << " fcode=" << readResult;
        result |= FC_BAD_VALUE;
    } else if (!removeConfigurationFile(file)) {
        DBG_LOG(SEV_ERROR) << "deleteRow: Failed to remove file=" << file << " errno=" << errno;
    } else {
        syncFile(kCfgDir); // as for REMOVE_CFG
    }
    Fcodes removeResult = catalogue().remove(rowId);
    running().removed(rowId);
    removeResult |= acceptChanges();
    change.endRemoval();
    if (removeResult == FC_OK) {
        DBG_LOG(SEV_INFO) << "deleteRow: CFG removed row=" << row << " fcode=" << removeResult;
        sendEvent("Configuration Removed", rowId, FC_OK);
    }
    return result | removeResult;
}

// SET_AUTOSTART_CFG

Fcodes ConfigurationManager::setAutoStart(const std::string& command)
{
    MessageCommand request;
    if (request.initFromString(command) != FC_OK) {
        DBG_LOG(SEV_ERROR) << "setAutoStart: Error in command:\n" << command;
        return FC_BODY_ERROR;
    }
    std::string rowId;
    if (!request.getParam("RowID", rowId)) {
        DBG_LOG(SEV_ERROR) << "setAutoStart: No RowID in command:\n" << command;
        return FC_BAD_VALUE;
    }
    std::string value;
    request.getParam("AutoStart", value);
    DBG_LOG(SEV_INFO) << "setAutoStart: RowID=" << rowId;
    DBG_LOG(SEV_INFO) << "setAutoStart: state=" << value;
    if (rowId.empty() || value.empty()) {
        DBG_LOG(SEV_ERROR) << "setAutoStart: Empty AutoStart | RowID in command:\n" << command;
        return FC_BAD_VALUE;
    }
    // Kept on purpose: peers count on exactly "false", and nothing else, clearing the auto-start.
    Fcodes result = catalogue().writeAutoStart(value == "false" ? "" : rowId);
    result |= catalogue().store();
    if (!CatalogueStore::ofProcess().isOnDisk())
        recordUnstored(catalogue(), 0, {""}); // no row has changed
    ChangeJournal::ofProcess().forgetAutoStart();
    return result;
}
