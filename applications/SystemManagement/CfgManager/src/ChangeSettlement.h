#pragma once

// Brings files and rows together again at start-up, after changes of the catalogue that an earlier
// run recorded and did not bring to their end: each becomes the old whole or the new whole. Used
// between the loading of the catalogue and the scan, on the thread that starts the manager, and
// logged under the manager's name. Settling twice changes nothing.

#include "ConfigurationsTable.h"

#include <vector>

class ChangeSettlement
{
public:
    /// `source`: of the catalogue in the table. No record applies to any but the stored one.
    ChangeSettlement(ConfigurationsTable table, CatalogueSource source)
        : mTable(table), mSource(source)
    {
    }

    /// Settles the records, in their order. The changes are neither committed nor stored.
    void run(const std::vector<ChangeRecord>& records);

private:
    bool settle(const ChangeRecord& record);
    bool settleSave(ChangeRecord save);
    bool completeSave(const ChangeRecord& save);
    bool settleImport(const ChangeRecord& import);
    static bool hasArrived(const ChangeRecord& import);
    bool hasEnded(const ChangeRecord& import) const;
    bool removeCutOffCopy(const ChangeRecord& import) const;
    bool settleRename(const ChangeRecord& rename);
    bool putBackRemoved(const ChangeRecord& removal);
    bool settleRemoval(const ChangeRecord& removal);
    bool applyUnstored(const ChangeRecord& change);
    bool isLastCopy(const ChangeRecord& record) const;
    void takeRowAway(const std::string& rowId);
    bool isChangedLater(const ChangeRecord& change) const;
    void followRenames(ChangeRecord& save) const;

    const std::vector<ChangeRecord>* mRecords = nullptr; // of run()
    ConfigurationsTable mTable;
    CatalogueSource mSource;
};

/// Whether the configuration that a save is over comes back when it fails: its file is kept, or
/// could be neither kept nor deleted and is still as the save has found it.
bool comesBack(const ChangeRecord& save);

/// Puts the file that a change has replaced back in its place, when the journal has kept it; false
/// with errno when it could not be put there. Nothing kept is no failure.
bool putBackFile(const ChangeRecord& record, const std::string& path);

/// The auto-start as it was before a change, unless somebody has set another one since, or has
/// removed the one before.
Fcodes putBackAutoStart(ConfigurationsTable table, const ChangeRecord& save);

/// The row and the auto-start of a save that has failed, as they were before, with `code` as the
/// row's last outcome; the results joined.
Fcodes putBackRow(ConfigurationsTable table, const ChangeRecord& save, Fcodes code);
