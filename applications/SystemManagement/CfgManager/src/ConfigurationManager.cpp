#include "ConfigurationManager.h"

#include "CfgFiles.h"
#include "CfgPaths.h"
#include "DbgLine.h"
#include "MessageCommand.h"
#include "MessageEvent.h"
#include "MessageText.h"
#include "base/AtomicFile.h"
#include "base/LocalTime.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <libgen.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <unordered_map>

namespace
{

constexpr char kUnit[] = "ConfigurationManager";

constexpr char kCfgDataSet[] = "CfgDataSet";
constexpr char kTable[] = "ConfigurationsTable";
constexpr char kAutoStart[] = "AutoStart";
constexpr char kNoKey[] = ""; // a component's single instance

constexpr char kAvailable[] = "Available";
constexpr char kInprogress[] = "Inprogress";
constexpr char kUnavailable[] = "Unavailable";
constexpr char kNoDescription[] = " ";

std::string commandText(const char* id, const char* parameter, const std::string& value)
{
    MessageCommand command;
    command.setId(id);
    command.addParam(parameter, value);
    std::string text;
    return command.toString(text);
}

} // namespace

/// How long the channel manager may take for an answer, in seconds, and how often it is asked.
struct ConfigurationManager::RetryPolicy {
    int timeout;
    int tries;
};

const ConfigurationManager::RetryPolicy ConfigurationManager::kStoreChannels{10, 3};
const ConfigurationManager::RetryPolicy ConfigurationManager::kLoadChannels{120, 1};
const ConfigurationManager::RetryPolicy ConfigurationManager::kLoadDefault{200, 1};

/// One row of the table of commands.
struct ConfigurationManager::CommandRow {
    std::string_view id;
    Fcodes (ConfigurationManager::*handler)(const std::string& command);
};

const ConfigurationManager::CommandRow ConfigurationManager::kCommands[] = {
    {"SAVE_CFG", &ConfigurationManager::addConfiguration},
    {"REMOVE_CFG", &ConfigurationManager::removeConfiguration},
    {"START_CFG", &ConfigurationManager::startConfiguration},
    {"SET_AUTOSTART_CFG", &ConfigurationManager::setAutoStart},
    {"Import Configuration", &ConfigurationManager::importConfiguration},
    {"Rename Configuration", &ConfigurationManager::renameConfiguration},
};

/// The names in the configuration directory, sorted; an entry is taken once it has met its row.
struct ConfigurationManager::DirEntries {
    std::vector<std::string> names;
    std::vector<bool> taken;
    std::unordered_map<std::string, std::size_t> byPath;

    bool read()
    {
        dirent** list = nullptr;
        const int count = scandir(kCfgDir, &list, nullptr, alphasort);
        if (count == -1)
            return false;
        for (int i = 0; i < count; ++i) {
            byPath.emplace(configurationPath(list[i]->d_name), names.size());
            names.emplace_back(list[i]->d_name);
            std::free(list[i]);
        }
        std::free(list);
        taken.assign(names.size(), false);
        return true;
    }

    bool take(const std::string& path)
    {
        const auto found = byPath.find(path);
        if (found == byPath.end() || taken[found->second])
            return false;
        return taken[found->second] = true;
    }
};

// Start-up

void ConfigurationManager::init()
{
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

    DataCommunicator& communicator = getDataCommunicator();
    communicator.init(this, kCfgSocket, kCfgSendSocket, "tCfgCom");
    takeTimeZone();
    communicator.requestSubscribe(kDevSocket); // without a device manager there are no events
    communicator.start();
    DBG_LOG(SEV_INFO) << "init: dataCommunicator started";
    startAutoCfg();
}

void ConfigurationManager::loadCatalogue()
{
    // A catalogue of the older format says that the files are of that format too.
    if (access(kLegacyCatalogue, F_OK) == 0)
        std::ignore = std::system("rm -rf /data/cfg/*");

    // No result is looked at: without a catalogue the daemon serves what it can.
    if (loadDataSet(kStoredCatalogue) != FC_OK) {
        loadDataSet(kFactoryCatalogue);
        return;
    }
    constexpr char kDefaults[] = "Default Dataset";
    loadDataSet(kDefaults, kFactoryCatalogue);
    updateDataSet(kCfgDataSet, kDefaults, false, true, false);
    deleteDataSet(kDefaults);
}

void ConfigurationManager::takeTimeZone()
{
    std::string zone;
    if (requestGetTextParam(kDevSocket, "DeviceDataSet", "DateTimeTable", "TZ", zone, kNoKey) !=
        FC_OK)
        return;
    DBG_LOG(SEV_SYS) << "init: setenv TZ=" << zone;
    setTimeZone(zone);
}

Fcodes ConfigurationManager::acceptChanges()
{
    const Fcodes committed = commit();
    return FC_OK | committed | storeCatalogue();
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
    const auto* const row = std::ranges::find(kCommands, id, &CommandRow::id);
    if (row == std::end(kCommands))
        return DataHolder::execute(command, response);
    return (this->*row->handler)(command);
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
        setTimeZone(zone);
    }
    return FC_OK;
}

void ConfigurationManager::sendEvent(const std::string& id, const std::string& cfgName,
                                     Fcodes fcode)
{
    MessageEvent event;
    event.ID = id;
    event.Source = cfgName;
    event.Status = "None";
    event.Severity = "Info";
    event.Fcode = fcode;
    DBG_LOG(SEV_INFO) << "sendEvent: notifying event=" << id << " cfgName=" << cfgName
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
    std::vector<std::string> keys;
    getInstances(kCfgDataSet, kTable, keys);
    for (const std::string& key : keys) {
        std::string value;
        if (readText(key, "File Name", value) == FC_OK && value == file) {
            rowId = key;
            return FC_OK;
        }
    }
    rowId.clear();
    return FC_UNAVAILABLE;
}

void ConfigurationManager::scanForCfgs()
{
    DirEntries entries;
    if (entries.read()) {
        removeStaleTempFiles(entries);
        matchRows(entries);
        addRowsForFiles(entries);
        acceptChanges(); // a catalogue that cannot be stored is served all the same
    } else {
        DBG_LOG(SEV_ERROR) << "scanForCfgs: scanDir error dir=" << kCfgDir;
    }

    std::string autoStart;
    if (readAutoStart(autoStart) == FC_OK && !hasRow(autoStart))
        writeAutoStart("");
}

/// A store that was cut off may have left its short-lived file; it is no configuration.
void ConfigurationManager::removeStaleTempFiles(DirEntries& entries)
{
    for (const std::string& name : entries.names)
        if (isTempFileName(name) && entries.take(configurationPath(name)))
            unlink(configurationPath(name).c_str());
}

void ConfigurationManager::matchRows(DirEntries& entries)
{
    struct Row {
        std::string key;
        std::string file;
    };
    std::vector<std::string> keys;
    getInstances(kCfgDataSet, kTable, keys);

    std::vector<Row> matched;
    for (const std::string& key : keys) {
        Row row{key, ""};
        readText(key, "File Name", row.file); // a row without one is dropped below
        if (entries.take(row.file)) {
            DBG_LOG(SEV_INFO) << "scanForCfgs: file=" << row.file
                              << " found in cfg entry rowId=" << key;
            writeOutcome(key, kAvailable, FC_OK);
            matched.push_back(std::move(row));
            continue;
        }
        dropRow(key, row.file);
        // Kept on purpose: peers count on the walk starting again from the first row after each
        // row dropped, while files once matched stay taken. Every row matched so far thus finds its
        // file gone and is dropped too, in the order of the keys; then the walk is where it was.
        for (const Row& earlier : matched)
            dropRow(earlier.key, earlier.file);
        matched.clear();
    }
}

void ConfigurationManager::dropRow(const std::string& rowId, const std::string& file)
{
    removeInstance(kCfgDataSet, kTable, rowId);
    DBG_LOG(SEV_INFO) << "scanForCfgs: file=" << file
                      << " not found. Deleted cfg entry rowId=" << rowId;
}

void ConfigurationManager::addRowsForFiles(const DirEntries& entries)
{
    for (std::size_t i = 0; i < entries.names.size(); ++i) {
        const std::string& name = entries.names[i];
        const std::string path = configurationPath(name);
        if (entries.taken[i] || path == kStoredCatalogue || path == kLegacyCatalogue)
            continue;
        struct stat info;
        if (stat(path.c_str(), &info) == -1) {
            DBG_LOG(SEV_ERROR) << "scanForCfgs: Not found file=" << path;
            continue;
        }
        if (!S_ISREG(info.st_mode))
            continue;
        addInstance(kCfgDataSet, kTable, name);
        DBG_LOG(SEV_INFO) << "scanForCfgs: Added entry rowId=" << name << " for file=" << name;
        fillFileRow(name, kNoDescription, info.st_mtime);
    }
}

/// The state of a row whose file is in place.
Fcodes ConfigurationManager::fillFileRow(const std::string& name, const std::string& description,
                                         std::time_t modified)
{
    std::string time;
    timeToString(modified, time);
    Fcodes result = writeText(name, "File Name", configurationPath(name));
    result |= writeText(name, "Name", name);
    result |= writeText(name, "Description", description);
    result |= writeText(name, "Time", time);
    result |= writeOutcome(name, kAvailable, FC_OK);
    return result;
}

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

    if (hasRow(name))
        removeOverwritten(name);
    Fcodes result = addInstance(kCfgDataSet, kTable, name);
    if (result != FC_OK) {
        DBG_LOG(SEV_ERROR) << "addConfiguration: Couldn't add to dataset=CfgDataSet "
                              "comp=ConfigurationsTable new rowId="
                           << name;
        return result;
    }
    result |= writeText(name, "Name", name);
    result |= writeText(name, "Description", description);
    if (autoStart == "true")
        result |= writeAutoStart(name);
    std::string file;
    result |= setFileName(name, file);
    result |= acceptChanges();
    if (result != FC_OK)
        DBG_LOG(SEV_ERROR) << "addConfiguration: Failed accept changes fcode=" << result;
    return storeChannels(name, file);
}

/// The file and the row of a configuration that is being saved anew.
void ConfigurationManager::removeOverwritten(const std::string& name)
{
    std::string file;
    if (const Fcodes found = readText(name, "File Name", file); found != FC_OK)
        DBG_LOG(SEV_ERROR) << "addConfiguration: Not Found File Name in table=" << kTable
                           << " row=" << name << " fcode=" << found;
    else if (!removeConfigurationFile(file))
        DBG_LOG(SEV_ERROR) << "addConfiguration: Failed to remove file=" << file
                           << " errno=" << errno;
    removeInstance(kCfgDataSet, kTable, name);
}

Fcodes ConfigurationManager::setFileName(const std::string& name, std::string& file)
{
    const Fcodes generated = generateFilename(name, file);
    DBG_LOG(SEV_INFO) << "addConfiguration: Generated filename=" << file;
    if (generated != FC_OK)
        return generated;
    DBG_LOG(SEV_INFO) << "addConfiguration: Setting filename=" << file << " to table=" << kTable
                      << " rowId=" << name;
    const Fcodes written = writeText(name, "File Name", file);
    if (written != FC_OK)
        DBG_LOG(SEV_ERROR) << "addConfiguration: Failed Setting filename=" << file
                           << " to table=" << kTable << " rowId=" << name << " fcode=" << written;
    return written;
}

Fcodes ConfigurationManager::storeChannels(const std::string& name, const std::string& file)
{
    const std::string text = commandText("STORE_CHANNELS", "File", file);
    DBG_LOG(SEV_INFO) << "addConfiguration: sending to" << kChanSocket << " command" << text;
    const Fcodes stored = requestChannels(text, kStoreChannels);
    if (stored != FC_OK) {
        DBG_LOG(SEV_ERROR) << "addConfiguration: requestCommand failed fcode=" << stored;
        return stored;
    }
    return FC_OK | cfgStored(name);
}

Fcodes ConfigurationManager::cfgStored(const std::string& rowId)
{
    if (rowId.empty())
        return FC_OK;

    std::string time = "N/A";
    std::string file;
    Fcodes result = FC_OK | readText(rowId, "File Name", file);
    if (result == FC_OK) {
        struct stat info;
        if (stat(file.c_str(), &info) == 0) {
            timeToString(info.st_mtime, time);
        } else {
            DBG_LOG(SEV_ERROR) << "cfgStored: Not found file=" << file;
            result |= FC_BAD_VALUE;
        }
    }
    result |= writeOutcome(rowId, kAvailable, FC_OK);
    result |= writeText(rowId, "Time", time);
    result |= storeCatalogue();
    sendEvent("Configuration Added", rowId, result);
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
    std::time_t modified = 0;
    if (!move.run(modified)) {
        DBG_LOG(SEV_ERROR) << "importConfiguration: Couldn't stat filename=" << move.to;
        return FC_UNAVAILABLE;
    }
    Fcodes result = addInstance(kCfgDataSet, kTable, name);
    DBG_LOG(SEV_INFO) << "importConfiguration: Added entry rowId=" << name
                      << " for file=" << move.to;
    result |= fillFileRow(name, description, modified);
    if (autoStart == "true")
        result |= writeAutoStart(name);
    return result | acceptChanges();
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
    if (!hasRow(name))
        return FC_NO_SUCH_NAME;

    std::string description = kNoDescription;
    readText(name, "Description", description); // stays unless the command brings another
    request.getParam("Description", description);
    return moveConfiguration(name, newName, description);
}

Fcodes ConfigurationManager::moveConfiguration(const std::string& name, const std::string& newName,
                                               const std::string& description)
{
    std::string file;
    readText(name, "File Name", file); // without one nothing arrives
    const FileMove move = renameMove(file, newName);
    std::time_t modified = 0;
    bool moved = false;
    if (liesInCfgDir(file)) {
        DBG_LOG(SEV_INFO) << "renameConfiguration: command=" << move.command;
        moved = move.run(modified);
    }
    if (!moved) {
        DBG_LOG(SEV_ERROR) << "renameConfiguration: Couldn't stat filename=" << move.to;
        return FC_UNAVAILABLE;
    }

    // The new row first: a failure to add it must not cost the old one.
    Fcodes result = addInstance(kCfgDataSet, kTable, newName);
    DBG_LOG(SEV_INFO) << "renameConfiguration: Added entry rowId=" << newName
                      << " for file=" << move.to;
    if (result == FC_OK && newName != name)
        result |= removeInstance(kCfgDataSet, kTable, name);
    result |= fillFileRow(newName, description, modified);
    std::string autoStart;
    if (readAutoStart(autoStart) == FC_OK && autoStart == name)
        result |= writeAutoStart(newName);
    // Kept on purpose: peers count on the prefix of the import in this line of the rename.
    if (result != FC_OK)
        DBG_LOG(SEV_ERROR) << "importConfiguration: Couldn't replace name=" << name
                           << " with new=" << newName;
    return result | acceptChanges();
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
    if (!hasRow(rowId))
        return FC_NO_SUCH_NAME;

    Fcodes result = FC_OK;
    std::string file;
    if (const Fcodes found = readText(rowId, "File Name", file); found != FC_OK) {
        DBG_LOG(SEV_ERROR) << "removeConfiguration: Not Found File Name in table=" << kTable
                           << " row=" << rowId << " fcode=" << found;
        result |= found;
    } else if (!removeConfigurationFile(file)) {
        DBG_LOG(SEV_ERROR) << "removeConfiguration: Failed to remove file=" << file
                           << " errno=" << errno;
    }
    result |= removeInstance(kCfgDataSet, kTable, rowId);
    std::string autoStart;
    if (readAutoStart(autoStart) == FC_OK && autoStart == rowId)
        result |= writeAutoStart("");
    return result | acceptChanges();
}

Fcodes ConfigurationManager::deleteRow(const std::string& table, int row)
{
    if (table != kTable) {
        acceptChanges(); // told to succeed whatever becomes of it
        return FC_OK;
    }
    const std::string rowId = std::to_string(row);
    std::string state;
    if (readText(rowId, "State", state) == FC_OK && state == kInprogress)
        return FC_ACCESS_DENIED;

    Fcodes result = FC_OK;
    std::string file;
    if (const Fcodes found = readText(rowId, "File Name", file); found != FC_OK) {
        DBG_LOG(SEV_ERROR) << "deleteRow: Not Found File Name in table=" << kTable << " row=" << row
                           << " fcode=" << found;
        result |= FC_BAD_VALUE;
    } else if (!removeConfigurationFile(file)) {
        DBG_LOG(SEV_ERROR) << "deleteRow: Failed to remove file=" << file << " errno=" << errno;
    }
    Fcodes removed = removeInstance(kCfgDataSet, kTable, rowId);
    removed |= acceptChanges();
    if (removed == FC_OK) {
        DBG_LOG(SEV_INFO) << "deleteRow: CFG removed row=" << row << " fcode=" << removed;
        sendEvent("Configuration Removed", rowId, FC_OK);
    }
    return result | removed;
}

// START_CFG, and the start at boot

Fcodes ConfigurationManager::startConfiguration(const std::string& command)
{
    std::string rowId;
    std::string file;
    Fcodes result = readStartCommand(command, rowId);
    if (result == FC_OK)
        result = claimForStart(rowId, file);
    if (result == FC_OK)
        result = loadChannels(file);
    if (result != FC_OK)
        return failStart(rowId, result);

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
    if (rowId.empty() || !hasRow(rowId))
        return FC_NO_SUCH_NAME;

    std::string state;
    if (const Fcodes read = readText(rowId, "State", state); read != FC_OK) {
        DBG_LOG(SEV_ERROR) << "startConfiguration: Not found State field in Cfg row=" << rowId;
        return read | FC_NO_SUCH_NAME;
    }
    if (state != kAvailable) {
        DBG_LOG(SEV_ERROR) << "startConfiguration: Cfg row=" << rowId << " state is not AVAILABLE";
        return FC_UNAVAILABLE;
    }
    if (const Fcodes read = readText(rowId, "File Name", file); read != FC_OK) {
        DBG_LOG(SEV_ERROR) << "startConfiguration: Not Found Filename in table=" << kTable
                           << " row=" << rowId << " fcode=" << read;
        return read;
    }
    if (const Fcodes written = writeText(rowId, "State", kInprogress); written != FC_OK)
        DBG_LOG(SEV_ERROR) << "startConfiguration: Failed initStringParam State fcode=" << written;
    return FC_OK;
}

Fcodes ConfigurationManager::loadChannels(const std::string& file)
{
    const std::string text = commandText("LOAD_CHANNELS", "File", file);
    DBG_LOG(SEV_INFO) << "startConfiguration: sending to" << kChanSocket << " command" << text;
    const Fcodes loaded = requestChannels(text, kLoadChannels);
    if (loaded != FC_OK)
        DBG_LOG(SEV_ERROR) << "startConfiguration: requestCommand failed fcode=" << loaded;
    return loaded;
}

Fcodes ConfigurationManager::failStart(const std::string& rowId, Fcodes code)
{
    // Kept on purpose: peers count on a refused start making the row "Available", even while it is
    // being loaded by another start.
    if (!rowId.empty() && hasRow(rowId))
        code |= writeOutcome(rowId, kAvailable, code);
    sendEvent("Configuration Error", rowId, code);
    return code;
}

Fcodes ConfigurationManager::cfgActivated(const std::string& rowId)
{
    if (rowId.empty())
        return FC_OK;
    const Fcodes result = FC_OK | writeOutcome(rowId, kAvailable, FC_OK);
    if (result == FC_OK) {
        sendEvent("Configuration Activated", rowId, result);
        return result;
    }
    DBG_LOG(SEV_ERROR) << "cfgActivated: init failed State | Fcode fcode=" << result;
    writeOutcome(rowId, kUnavailable, result);
    sendEvent("Configuration Error", rowId, result);
    return result;
}

void ConfigurationManager::startAutoCfg()
{
    std::string rowId;
    if (readAutoStart(rowId) == FC_OK && !rowId.empty() && hasRow(rowId)) {
        const std::string start = commandText("START_CFG", "RowID", rowId);
        DBG_LOG(SEV_INFO) << "startAutoCfg: found auto cfg rowId=" << rowId;
        DBG_LOG(SEV_INFO) << "startAutoCfg: Executing command=" << start;
        const Fcodes started = startConfiguration(start);
        if (started == FC_OK)
            return;
        DBG_LOG(SEV_ERROR) << "startAutoCfg: startConfiguration failed fcode=" << started;
    }

    const std::string load = commandText("LOAD_CHANNELS", "File", "Default");
    DBG_LOG(SEV_INFO) << "startAutoCfg: sending to" << kChanSocket << " command" << load;
    if (const Fcodes loaded = requestChannels(load, kLoadDefault); loaded != FC_OK)
        DBG_LOG(SEV_ERROR) << "startAutoCfg: requestCommand failed fcode=" << loaded;
}

Fcodes ConfigurationManager::requestChannels(const std::string& command, RetryPolicy policy)
{
    std::string response; // the channel manager says all it has to say in its code
    return requestCommand(kChanSocket, command, response, policy.timeout, policy.tries);
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
    // Kept on purpose: peers count on "false" alone clearing the auto-start, to the letter.
    const Fcodes written = writeAutoStart(value == "false" ? "" : rowId);
    return written | storeCatalogue();
}

// Properties

bool ConfigurationManager::hasRow(const std::string& rowId)
{
    return hasInstance(kCfgDataSet, kTable, rowId);
}

Fcodes ConfigurationManager::readText(const std::string& rowId, const char* property,
                                      std::string& value)
{
    return getTextParam(kCfgDataSet, kTable, property, value, rowId);
}

Fcodes ConfigurationManager::writeText(const std::string& rowId, const char* property,
                                       const std::string& value)
{
    return initTextParam(kCfgDataSet, kTable, property, value, rowId);
}

Fcodes ConfigurationManager::writeOutcome(const std::string& rowId, const char* state, Fcodes code)
{
    const Fcodes written = writeText(rowId, "State", state);
    return written | initIntParam(kCfgDataSet, kTable, "Fcode", static_cast<int>(code), rowId);
}

Fcodes ConfigurationManager::readAutoStart(std::string& rowId)
{
    return getTextParam(kCfgDataSet, kAutoStart, "Name", rowId, kNoKey);
}

Fcodes ConfigurationManager::writeAutoStart(const std::string& rowId)
{
    return initTextParam(kCfgDataSet, kAutoStart, "Name", rowId, kNoKey);
}

Fcodes ConfigurationManager::storeCatalogue()
{
    return storeDataSet(kCfgDataSet, kStoredCatalogue);
}
