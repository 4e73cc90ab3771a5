#pragma once

// The main object of the daemon: the catalogue of stored configurations, one file in /data/cfg and
// one row in the component "ConfigurationsTable" each, the commands that change it, the activation
// of a configuration, and the events that announce all of it.
//
// Made once by main() and never destroyed before the process ends. init() runs on the main thread;
// commands run on the communicator's thread, one at a time, together with their requests to the
// channel manager; doHandle() and doExecute() run on the worker. The start at boot may overlap a
// command; each row is then changed in single steps, and only one of the two starts it.

#include "DataHolder.h"

#include <ctime>
#include <string>
#include <vector>

class ConfigurationManager : public DataHolder
{
public:
    using DataHolder::init;

    /// Start-up, once: loads the catalogue, reconciles it with the directory, serves the socket and
    /// starts the configuration marked for it. No failure stops it but that of the sockets, which
    /// ends the process.
    void init();

    /// Commits what is pending and stores the catalogue.
    Fcodes acceptChanges() override;

    /// Removes the configuration whose key is the decimal text of `row`, with its file, and
    /// announces it; FC_ACCESS_DENIED while it is being loaded. Of any other table only the changes
    /// are accepted.
    Fcodes deleteRow(const std::string& table, int row) override;

    /// Serves a command; those that are not the manager's own are queued for the worker.
    Fcodes execute(const std::string& command, std::string& response) override;
    Fcodes doExecute(const std::string& command, std::string& result) override;
    Fcodes doHandle(MessageEvent* event) override;

    /// The commands. Each takes the whole text of its command element; the results that are common
    /// to all: FC_BODY_ERROR for a text that is no command or lacks its key, FC_BAD_VALUE for an
    /// empty or forbidden name, FC_NO_SUCH_NAME for a row that does not exist.
    Fcodes addConfiguration(const std::string& command);    ///< and the channel manager's result
    Fcodes importConfiguration(const std::string& command); ///< FC_UNAVAILABLE: nothing arrived
    Fcodes renameConfiguration(const std::string& command); ///< FC_UNAVAILABLE: nothing arrived
    Fcodes removeConfiguration(const std::string& command);
    Fcodes startConfiguration(const std::string& command); ///< FC_UNAVAILABLE: not "Available"
    Fcodes setAutoStart(const std::string& command);
    Fcodes abortConfiguration();

    /// Brings the catalogue's rows in line with the files of the directory.
    void scanForCfgs();

    /// Starts the configuration marked for it, or lets the channel manager load its default.
    void startAutoCfg();

    /// The path of the file of a new configuration; FC_BAD_VALUE for an empty name.
    Fcodes generateFilename(const std::string& name, std::string& file);

    /// The first row whose file is `file`; FC_UNAVAILABLE, and an empty key, when there is none.
    Fcodes getRowIdByFilename(const std::string& file, std::string& rowId);

    /// A file's time as rows carry it, "05-Mar-24  14:07:09".
    void timeToString(std::time_t time, std::string& out);

private:
    struct CommandRow;
    struct DirEntries;
    struct RetryPolicy;
    static const CommandRow kCommands[];
    static const RetryPolicy kStoreChannels;
    static const RetryPolicy kLoadChannels;
    static const RetryPolicy kLoadDefault;

    void loadCatalogue();
    void takeTimeZone();

    void removeStaleTempFiles(DirEntries& entries);
    void matchRows(DirEntries& entries);
    void dropRow(const std::string& rowId, const std::string& file);
    void addRowsForFiles(const DirEntries& entries);
    Fcodes fillFileRow(const std::string& name, const std::string& description,
                       std::time_t modified);

    void removeOverwritten(const std::string& name);
    Fcodes setFileName(const std::string& name, std::string& file);
    Fcodes storeChannels(const std::string& name, const std::string& file);
    Fcodes cfgStored(const std::string& rowId);
    Fcodes moveConfiguration(const std::string& name, const std::string& newName,
                             const std::string& description);

    Fcodes readStartCommand(const std::string& command, std::string& rowId);
    Fcodes claimForStart(const std::string& rowId, std::string& file);
    Fcodes loadChannels(const std::string& file);
    Fcodes failStart(const std::string& rowId, Fcodes code);
    Fcodes cfgActivated(const std::string& rowId);

    Fcodes requestChannels(const std::string& command, RetryPolicy policy);
    void sendEvent(const std::string& id, const std::string& cfgName, Fcodes fcode);

    /// Single properties of rows, and of the component that names the configuration to start.
    bool hasRow(const std::string& rowId);
    Fcodes readText(const std::string& rowId, const char* property, std::string& value);
    Fcodes writeText(const std::string& rowId, const char* property, const std::string& value);
    Fcodes writeOutcome(const std::string& rowId, const char* state, Fcodes code);
    Fcodes readAutoStart(std::string& rowId);
    Fcodes writeAutoStart(const std::string& rowId);
    Fcodes storeCatalogue();
};
