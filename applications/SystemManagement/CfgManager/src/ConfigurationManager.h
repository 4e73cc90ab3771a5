#pragma once

// The main object of the daemon: the catalogue of stored configurations, one file in /data/cfg and
// one row in the component "ConfigurationsTable" each, the commands that change it, the activation
// of a configuration, and the events that announce it.
//
// Made once by main(), and destroyed only when the process ends. init() runs on the main thread;
// commands run on the communicator's thread, one at a time, together with their requests to the
// channel manager; doHandle() and doExecute() run on the worker. The start at boot may overlap a
// command; each row is then changed in single steps, and only one of the two starts it.
//
// Before init() no operation may be called but the constructor.

#include "DataHolder.h"

#include <ctime>
#include <string>
#include <vector>

class CatalogueChange;
class ConfigurationsTable;
class RunningConfiguration;

class ConfigurationManager : public DataHolder
{
public:
    using DataHolder::init;

    /// Start-up, once: loads the catalogue, reconciles it with the directory, serves the socket and
    /// starts the configuration marked for it. Returns when that start has been answered or has
    /// timed out. No failure stops it but that of the sockets, which ends the process.
    void init();

    /// Commits what is pending and stores the catalogue; the results joined. FC_OK also when the
    /// disk refuses: the store logs that and keeps the old file.
    Fcodes acceptChanges() override;

    /// Removes the configuration whose key is the decimal text of `row`, with its file, and stores
    /// the catalogue. FC_ACCESS_DENIED, and nothing changes, while it is being loaded;
    /// FC_BAD_VALUE | FC_NO_SUCH_NAME when there is none. Event "Configuration Removed" when the
    /// row has gone, whatever became of the file. An auto-start of that name stays. Of any other
    /// table only the changes are accepted: FC_OK.
    Fcodes deleteRow(const std::string& table, int row) override;

    /// Serves a command element: the manager's own at once, with their results (`response` is not
    /// written); others are queued for the worker. FC_BODY_ERROR for a text without an ID.
    Fcodes execute(const std::string& command, std::string& response) override;

    /// The worker's side: no queued command does anything here. Of the events only the device
    /// manager's "Date&Time Updated" does, which sets the time zone; the event stays the caller's.
    Fcodes doExecute(const std::string& command, std::string& result) override;
    Fcodes doHandle(MessageEvent* event) override;

    /// Notifies every subscriber of an event about the configuration `cfgName`; subscribers that
    /// are full or gone are skipped. Any thread may call.
    void sendEvent(const std::string& eventId, const std::string& cfgName, unsigned fcode);

    // The commands. Each takes the whole text of its command element. Results common to all:
    // FC_BODY_ERROR for a text that is no command; the store's codes where the catalogue lacks the
    // component or a property, but what SAVE_CFG cannot write before its request to the channel
    // manager is only logged. A refusal changes nothing, unless its command says otherwise. What a
    // command has changed in the catalogue is on disk when it returns, but for START_CFG, and
    // unless the disk refused it, which only the log shows.

    /// SAVE_CFG: "Name", "Description" (a blank when missing), "AutoStart" ("true" or anything).
    /// Replaces the file and row of that name and has the channel manager write the file anew.
    /// FC_BODY_ERROR without a name, FC_BAD_VALUE for one that is empty or forbidden. A failure of
    /// the channel manager is the result (FC_COMM_ERROR when it has not answered in 30 seconds);
    /// the row is then there, without a time. Event "Configuration Added" when it answers OK, with
    /// FC_BAD_VALUE, as the result, when the file is missing all the same.
    Fcodes addConfiguration(const std::string& command);

    /// "Import Configuration": "File", "Description" (a blank when missing), "AutoStart". Moves the
    /// file into the directory, over one of its name. FC_BAD_VALUE without a file or for a
    /// forbidden name; FC_UNAVAILABLE when nothing arrived. No event.
    Fcodes importConfiguration(const std::string& command);

    /// "Rename Configuration": "Name", "New Name", "Description" (kept when missing). Moves file,
    /// row and auto-start, over a configuration of the new name. FC_BODY_ERROR without a name,
    /// FC_BAD_VALUE for an empty one and an empty or forbidden new one; FC_NO_SUCH_NAME for a row
    /// that does not exist; FC_UNAVAILABLE when nothing arrived. No event.
    Fcodes renameConfiguration(const std::string& command);

    /// REMOVE_CFG: "RowID". Deletes file and row, and clears an auto-start of that name.
    /// FC_BODY_ERROR without a RowID, FC_NO_SUCH_NAME for a row that does not exist. A file that
    /// could not be deleted and is still there adds FC_UNAVAILABLE; its row has gone all the same,
    /// and comes back with the auto-start at the next start-up if the file lies in the directory.
    /// No event.
    Fcodes removeConfiguration(const std::string& command);

    /// START_CFG: "RowID". Has the channel manager load the file. FC_BODY_ERROR without a RowID,
    /// FC_NO_SUCH_NAME for a row that does not exist, FC_UNAVAILABLE for one that is not
    /// "Available"; else the channel manager's code (FC_COMM_ERROR when it has not answered in 120
    /// seconds). Every start ends in one event, "Configuration Activated" or "Configuration Error"
    /// with the result, and leaves the row "Available" with the result as its "Fcode"; where
    /// cfgActivated() cannot write that after a successful load, "Unavailable". The row is not
    /// stored before the catalogue's next change.
    Fcodes startConfiguration(const std::string& command);

    /// SET_AUTOSTART_CFG: "RowID", "AutoStart" ("false" clears it, anything else sets it to the
    /// row, which need not exist). FC_BAD_VALUE when either is missing or empty. No event.
    Fcodes setAutoStart(const std::string& command);

    /// A placeholder: always FC_OK.
    Fcodes abortConfiguration();

    /// The ends of a save and of a successful start: make the row "Available" with Fcode FC_OK,
    /// after a save with its file's time too ("N/A" when the file is missing), and send the event
    /// with the result. cfgStored(): FC_BAD_VALUE for a missing file, though the row keeps FC_OK;
    /// it stores the catalogue. cfgActivated(): "Unavailable" where the row cannot be written. An
    /// empty key does nothing: FC_OK.
    Fcodes cfgStored(const std::string& rowId);
    Fcodes cfgActivated(const std::string& rowId);

    /// Brings the catalogue's rows in line with the files of the directory, and stores it, unless
    /// the directory cannot be listed. An auto-start that names no row is cleared after that, on
    /// disk with the catalogue's next change. Failures are logged.
    void scanForCfgs();

    /// Starts the configuration marked for it; without one, or when that fails, the channel manager
    /// is asked to load its default channels, and has 200 seconds to answer.
    void startAutoCfg();

    /// The path of the file of a new configuration; FC_BAD_VALUE, and `file` untouched, for an
    /// empty name.
    Fcodes generateFilename(const std::string& name, std::string& file);

    /// The first row whose file is `file`; FC_UNAVAILABLE, and an empty key, when there is none.
    Fcodes getRowIdByFilename(const std::string& file, std::string& rowId);

    /// A file's time as rows carry it, in local time: "05-Mar-24  14:07:09".
    void timeToString(std::time_t time, std::string& out);

private:
    Fcodes doListInstances(const std::string& dataset, const std::string& component,
                           std::vector<std::string>& names, std::size_t perName,
                           std::size_t limit) override
    {
        return listStoredInstances(dataset, component, names, perName, limit);
    }

    ConfigurationsTable catalogue();
    RunningConfiguration running();
    void loadCatalogue();
    void applyDeviceTimeZone();

    void removeOverwritten(const std::string& name, CatalogueChange& change);
    Fcodes setFileName(const std::string& name, std::string& file);
    Fcodes storeChannels(const std::string& file);
    Fcodes moveConfiguration(const std::string& name, const std::string& newName,
                             const std::string& description);

    Fcodes readStartCommand(const std::string& command, std::string& rowId);
    Fcodes claimForStart(const std::string& rowId, std::string& file);
    Fcodes loadChannels(const std::string& file);
    Fcodes reportFailedStart(const std::string& rowId, Fcodes code);
};
