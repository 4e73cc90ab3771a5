#include "CatalogueChange.h"

#include "CatalogueStore.h"
#include "CfgFiles.h"
#include "CfgPaths.h"
#include "ChangeJournal.h"
#include "ChangeSettlement.h"
#include "DbgLine.h"

#include <cerrno>
#include <cstdio>

namespace
{

constexpr char kUnit[] = "ConfigurationManager"; // the changes are its commands

ChangeJournal& journal() { return ChangeJournal::ofProcess(); }

ChangeRecord recordOf(ChangeRecord::Kind kind, const ConfigurationsTable& table,
                      const std::string& name)
{
    ChangeRecord record;
    record.kind = kind;
    record.name = name;
    record.before = table.readRow(name);
    table.readText(name, "File Name", record.file);
    table.readAutoStart(record.autoStartBefore);
    record.autoStartAfter = record.autoStartBefore;
    return record;
}

void reportUnrecorded(const std::string& name, int error)
{
    if (journal().isFirstFailure())
        DBG_LOG(SEV_ERROR) << "recordChange: Couldn't record the change of rowId=" << name
                           << " errno=" << error;
}

/// A save of a new name has failed, and another change now makes the name a configuration, or takes
/// its row away: that one has not asked for the auto-start. On the disk before the change begins,
/// which could be settled without the earlier one.
void forgetFailedSave(ConfigurationsTable table, const std::string& name)
{
    const ChangeRecord failed = journal().findFailedSave(name);
    std::string before;
    std::string after;
    table.readAutoStart(before);
    putBackAutoStart(table, failed);
    table.readAutoStart(after);
    if (before == after)
        return;
    table.store();
    if (!CatalogueStore::ofProcess().isOnDisk())
        recordUnstored(table, 0, {name});
}

} // namespace

CatalogueChange::CatalogueChange(ConfigurationsTable table, ChangeRecord record,
                                 const std::string& replaced)
    : mTable(table), mRecord(std::move(record)), mIsNewFile(mRecord.boot == kNoOneReplaced)
{
    const auto [number, error] = journal().begin(mRecord, replaced);
    mRecord.number = number;
    if (error != 0)
        reportUnrecorded(mRecord.name, error);
}

CatalogueChange CatalogueChange::save(ConfigurationsTable table, const std::string& name,
                                      bool becomesAutoStart)
{
    forgetFailedSave(table, name);
    ChangeRecord record = recordOf(ChangeRecord::Kind::SAVE, table, name);
    if (becomesAutoStart)
        record.autoStartAfter = name;
    const ChangeRecord refused = journal().findRefusedRemoval(name);
    if (!record.before && refused.before) { // its file is still there
        record.before = refused.before;
        record.file = refused.file;
        if (record.autoStartBefore == refused.autoStartAfter)
            record.autoStartBefore = refused.autoStartBefore;
    }
    const std::string replaced = isInCfgDir(record.file) ? record.file : "";
    record.boot = bootId();
    record.moved = stampOf(configurationPath(name)).value_or(FileStamp{});
    return {table, std::move(record), replaced};
}

CatalogueChange CatalogueChange::import(ConfigurationsTable table, const std::string& name,
                                        const std::string& source, const std::string& description,
                                        bool becomesAutoStart)
{
    forgetFailedSave(table, name);
    ChangeRecord record = recordOf(ChangeRecord::Kind::IMPORT, table, name);
    record.file = source;
    record.moved = stampOf(source).value_or(FileStamp{});
    record.after = CatalogueRow{{"Description", description}};
    if (!pathExists(configurationPath(name)))
        record.boot = kNoOneReplaced;
    if (becomesAutoStart)
        record.autoStartAfter = name;
    return {table, std::move(record), configurationPath(name)};
}

CatalogueChange CatalogueChange::rename(ConfigurationsTable table, const std::string& name,
                                        const std::string& newName, const std::string& file,
                                        const std::string& description)
{
    forgetFailedSave(table, newName);
    ChangeRecord record = recordOf(ChangeRecord::Kind::RENAME, table, name);
    record.newName = newName;
    record.file = file;
    record.moved = stampOf(file).value_or(FileStamp{});
    record.after = CatalogueRow{{"Description", description}};
    return {table, std::move(record), ""};
}

CatalogueChange CatalogueChange::remove(ConfigurationsTable table, const std::string& name,
                                        bool autoStartStays)
{
    forgetFailedSave(table, name);
    ChangeRecord record = recordOf(ChangeRecord::Kind::REMOVE, table, name);
    if (!autoStartStays && record.autoStartBefore == name)
        record.autoStartAfter = "";
    return {table, std::move(record), ""};
}

bool CatalogueChange::moveAway(const std::string& file)
{
    const ChangeRecord record = journal().find(mRecord.number);
    return !record.kept.empty() && record.file == file && !pathExists(record.kept) &&
           std::rename(file.c_str(), record.kept.c_str()) == 0;
}

void CatalogueChange::keepCopy()
{
    const ChangeRecord record = journal().find(mRecord.number);
    if (!record.kept.empty() && isSameFile(record.kept, record.file))
        copyWhole(record.file, record.kept);
}

void CatalogueChange::confirmAnswer()
{
    if (const auto row = mTable.readRow(mRecord.name))
        journal().confirmAnswer(mRecord.number, *row);
}

/// A part of a copy, while the whole is still where it was; or what somebody has put in the place
/// of the file that was to be moved.
void CatalogueChange::removeArrived(const std::string& path) const
{
    if (!isRegularFile(path))
        putAside(path, kObstacle);
    else if (stampOf(mRecord.file) == mRecord.moved)
        unlink(path.c_str());
}

void CatalogueChange::end()
{
    if (CatalogueStore::ofProcess().isOnDisk()) {
        journal().end(mRecord.number);
        CatalogueStore::ofProcess().tidyLater();
        return;
    }
    std::vector<std::string> names{mRecord.name};
    if (!mRecord.newName.empty())
        names.push_back(mRecord.newName);
    recordUnstored(mTable, mRecord.number, names);
}

void CatalogueChange::endRemoval()
{
    std::time_t modified = 0;
    if (!mRecord.before)
        journal().cancel(mRecord.number); // there was nothing to remove
    else if (!isInCfgDir(mRecord.file) || !findRegularFile(mRecord.file, modified))
        end();
}

void CatalogueChange::fail(Fcodes code)
{
    const ChangeRecord record = journal().find(mRecord.number);
    if (!comesBack(record)) {
        mTable.writeFcode(mRecord.name, code);
        journal().confirmFailure(mRecord.number);
        return;
    }
    const auto noRetry = CatalogueStore::ofProcess().holdRetries();
    if (CatalogueStore::ofProcess().isChangedByOthers()) {
        // Another daemon has taken over while this one was waiting, and has put back itself.
        DBG_LOG(SEV_ERROR) << "putBack: Not put back, others have changed file="
                           << kStoredCatalogue;
        return;
    }
    const bool isBack = putBackFile(record, record.file);
    putBackRow(mTable, record, code);
    mTable.store();
    if (!isBack)
        return; // the record stays: the next start puts back once more
    if (!CatalogueStore::ofProcess().isOnDisk()) {
        recordUnstored(mTable, mRecord.number, {mRecord.name});
        return;
    }
    journal().cancel(mRecord.number);
    CatalogueStore::ofProcess().tidyLater();
}

void CatalogueChange::abandon()
{
    const ChangeRecord record = journal().find(mRecord.number);
    const std::string path = configurationPath(mRecord.name);
    if (!record.name.empty() && !record.kept.empty())
        putBackFile(record, path);
    if (mIsNewFile)
        removeArrived(path);
    journal().cancel(mRecord.number);
    CatalogueStore::ofProcess().tidyLater();
}

void recordUnstored(ConfigurationsTable table, std::uint64_t number,
                    const std::vector<std::string>& names)
{
    std::string autoStart;
    table.readAutoStart(autoStart);
    // Kept on purpose: peers count on a SET being pending, not stored. What others had pending for
    // further rows is not recorded with these.
    ChangeJournal::UnstoredRows rows;
    for (const std::string& name : names)
        rows[name] = table.readRow(name);
    if (!journal().endUnstored(number, rows, autoStart)) {
        const int error = errno;
        DBG_LOG(SEV_ERROR)
            << "recordChange: Neither stored nor recorded, until a store succeeds, the "
               "change of rowId="
            << names.front() << " errno=" << error;
    }
}
