#include "ChangeSettlement.h"

#include "CfgFiles.h"
#include "CfgPaths.h"
#include "ChangeJournal.h"
#include "DbgLine.h"
#include "base/AtomicFile.h"
#include "base/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace
{

constexpr char kUnit[] = "ConfigurationManager"; // log readers know start-up as the manager's

/// True for rows that differ at most in what starting a configuration changes, and in what an
/// upgrade has added or taken away.
bool haveSameContent(const std::optional<CatalogueRow>& left,
                     const std::optional<CatalogueRow>& right)
{
    if (!left || !right)
        return !left && !right;
    return std::ranges::all_of(*left, [&right](const auto& property) {
        const auto other = right->find(property.first);
        return other == right->end() || other->second == property.second ||
               property.first == "State" || property.first == "Fcode";
    });
}

/// True when the system went down while a file was being written that was not there before: nobody
/// has seen to it that its bytes are on the disk.
bool isTorn(const ChangeRecord& save)
{
    return !save.replaces() && save.moved == FileStamp{} && !save.boot.empty() &&
           save.boot != bootId();
}

/// From a place that another mount has put out of reach of links meanwhile.
bool copyBack(const std::string& kept, const std::string& path)
{
    struct stat info;
    std::ifstream file(kept, std::ios::binary);
    if (isSameFile(kept, path))
        return true;
    if (!file.is_open() || stat(kept.c_str(), &info) == -1)
        return false;
    const FileWrite write = replaceFileAtomically(path, [&](std::ostream& out) {
        file.clear();
        file.seekg(0);
        if (info.st_size > 0)
            out << file.rdbuf();
    });
    errno = write.error;
    if (write.error != 0)
        return false;
    std::ignore = lchown(path.c_str(), info.st_uid, info.st_gid);
    std::ignore = chmod(path.c_str(), info.st_mode & 07777);
    unlink(kept.c_str());
    return true;
}

} // namespace

void ChangeSettlement::run(const std::vector<ChangeRecord>& records)
{
    mRecords = &records;
    if (mSource == CatalogueSource::STORED) // or earlier saves would take them for their files
        std::ranges::for_each(records, [this](const auto& record) { removeCutOffCopy(record); });
    for (const ChangeRecord& record : records) {
        if (mSource == CatalogueSource::STORED && settle(record))
            continue;
        DBG_LOG(SEV_INFO) << "settleChanges: Dropped record of rowId=" << record.name
                          << " file=" << record.file;
        if (isLastCopy(record))
            DBG_LOG(SEV_ERROR) << "settleChanges: Has no row rowId=" << record.name
                               << ", kept as file="
                               << ChangeJournal::ofProcess().spare(record.number);
        // Without the catalogue nobody knows what the file was; but it was there.
        const std::string path = record.kind == ChangeRecord::Kind::IMPORT
                                     ? configurationPath(record.name)
                                     : record.file;
        if (mSource == CatalogueSource::FACTORY && !record.answered && !pathExists(path))
            putBackFile(record, path);
    }
}

/// True for the file of a save that was cut off, and whose row has gone by no command: a start that
/// did not believe the record has missed the file, or somebody has put another catalogue there.
bool ChangeSettlement::isLastCopy(const ChangeRecord& record) const
{
    struct stat info;
    return mSource == CatalogueSource::STORED && record.kind == ChangeRecord::Kind::SAVE &&
           !record.answered && !mTable.has(record.name) && !isChangedLater(record) &&
           !pathExists(record.file) && lstat(record.kept.c_str(), &info) == 0 && info.st_nlink == 1;
}

bool ChangeSettlement::settle(const ChangeRecord& record)
{
    switch (record.kind) {
    case ChangeRecord::Kind::UNSTORED:
        return applyUnstored(record);
    case ChangeRecord::Kind::IMPORT:
        return settleImport(record);
    default:
        break;
    }
    if (record.kind == ChangeRecord::Kind::REMOVE && putBackRemoved(record))
        return true;
    if (!mTable.has(record.name))
        return false;
    if (record.kind == ChangeRecord::Kind::SAVE)
        return settleSave(record);
    return record.kind == ChangeRecord::Kind::RENAME ? settleRename(record) : settleRemoval(record);
}

bool ChangeSettlement::settleSave(ChangeRecord save)
{
    if (save.answered)
        return completeSave(save);
    followRenames(save);
    const bool isBack = comesBack(save);
    if (isBack) {
        if (!putBackFile(save, save.file)) {
            const int error = errno;
            DBG_LOG(SEV_ERROR) << "settleChanges: Couldn't put back file=" << save.file
                               << " errno=" << error << ", kept as file="
                               << ChangeJournal::ofProcess().spare(save.number);
        }
        DBG_LOG(SEV_INFO) << "settleChanges: Put back rowId=" << save.name;
        putBackRow(mTable, save, FC_OK);
    }
    std::string file;
    mTable.readText(save.name, "File Name", file);
    if (isTorn(save) && file == configurationPath(save.name))
        unlink(file.c_str());
    std::time_t modified = 0;
    if (findRegularFile(file, modified)) // a directory has not come by the save
        return isBack;
    takeRowAway(save.name);
    putBackAutoStart(mTable, save);
    return true;
}

/// The channel manager had said OK. Its outcome may not have got as far as the row.
bool ChangeSettlement::completeSave(const ChangeRecord& save)
{
    std::time_t modified = 0;
    const std::string path = configurationPath(save.name);
    if (!pathExists(path)) {
        takeRowAway(save.name);
        return true;
    }
    const auto row = mTable.readRow(save.name);
    const bool isOld = save.after && save.before && haveSameContent(row, save.before);
    if (!(isOld || haveSameContent(row, save.after)) || !findRegularFile(path, modified))
        return false;
    if (isOld)
        mTable.writeRow(save.name, *save.after); // nothing of the save was stored
    std::string description = kNoDescription;
    mTable.readText(save.name, "Description", description);
    mTable.fillFileRow(save.name, description, modified);
    return true;
}

bool ChangeSettlement::settleImport(const ChangeRecord& import)
{
    const std::string path = configurationPath(import.name);
    if (hasEnded(import))
        return false;
    std::time_t modified = 0;
    if (hasArrived(import) && findRegularFile(path, modified)) {
        mTable.add(import.name);
        mTable.fillFileRow(import.name, import.after->at("Description"), modified);
        if (import.autoStartAfter != import.autoStartBefore)
            mTable.writeAutoStart(import.autoStartAfter);
        DBG_LOG(SEV_INFO) << "settleChanges: Completed import of rowId=" << import.name;
        return true;
    }
    return import.kept.empty() ? removeCutOffCopy(import) : putBackFile(import, path);
}

/// A file that its writer still extends is no longer what the record tells of, but neither is it
/// where it was.
bool ChangeSettlement::hasArrived(const ChangeRecord& import)
{
    const std::string path = configurationPath(import.name);
    const auto stamp = stampOf(path);
    if (!stamp || isSameFile(import.kept, path))
        return false;
    const bool mayBeOld = import.kept.empty() && import.boot != kNoOneReplaced;
    const bool hasGrown =
        stamp->size >= import.moved.size && stamp->modified >= import.moved.modified;
    return *stamp == import.moved || (hasGrown && !mayBeOld && !pathExists(import.file));
}

/// With the end of an import its second link goes.
bool ChangeSettlement::hasEnded(const ChangeRecord& import) const
{
    return import.kept.empty() ? !haveSameContent(mTable.readRow(import.name), import.before)
                               : !pathExists(import.kept);
}

/// What it was made from is still there.
bool ChangeSettlement::removeCutOffCopy(const ChangeRecord& import) const
{
    const std::string path = configurationPath(import.name);
    return import.kind == ChangeRecord::Kind::IMPORT && import.boot == kNoOneReplaced &&
           !hasEnded(import) && stampOf(path) != import.moved &&
           stampOf(import.file) == import.moved && unlink(path.c_str()) == 0;
}

bool ChangeSettlement::settleRename(const ChangeRecord& rename)
{
    const std::string path = configurationPath(rename.newName);
    std::time_t modified = 0;
    if (pathExists(rename.file) || stampOf(path) != rename.moved ||
        !findRegularFile(path, modified))
        return false;
    mTable.add(rename.newName);
    mTable.fillFileRow(rename.newName, rename.after->at("Description"), modified);
    takeRowAway(rename.name);
    std::string autoStart;
    if (mTable.readAutoStart(autoStart) == FC_OK && autoStart == rename.name)
        mTable.writeAutoStart(rename.newName);
    DBG_LOG(SEV_INFO) << "settleChanges: Completed rename of rowId=" << rename.name
                      << " to=" << rename.newName;
    return true;
}

/// A removal whose file could not be deleted, though its row has gone.
bool ChangeSettlement::putBackRemoved(const ChangeRecord& removal)
{
    std::time_t modified = 0;
    if (!removal.before || mTable.has(removal.name) ||
        !(findRegularFile(removal.file, modified) || isChangedLater(removal)))
        return false;
    mTable.writeRow(removal.name, *removal.before);
    putBackAutoStart(mTable, removal);
    DBG_LOG(SEV_INFO) << "settleChanges: Put back rowId=" << removal.name;
    return true;
}

bool ChangeSettlement::settleRemoval(const ChangeRecord& removal)
{
    if (pathExists(removal.file))
        return false;
    takeRowAway(removal.name);
    std::string autoStart;
    if (mTable.readAutoStart(autoStart) == FC_OK && autoStart == removal.name)
        mTable.writeAutoStart("");
    return true;
}

/// A change that was acknowledged while the disk refused the catalogue.
bool ChangeSettlement::applyUnstored(const ChangeRecord& change)
{
    if (!change.name.empty() && !change.after && mTable.has(change.name) &&
        !pathExists(configurationPath(change.name)))
        takeRowAway(change.name);
    if (change.after && (pathExists(configurationPath(change.name)) || isChangedLater(change)))
        mTable.writeRow(change.name, *change.after);
    mTable.writeAutoStart(change.autoStartAfter);
    DBG_LOG(SEV_INFO) << "settleChanges: Completed change of rowId=" << change.name;
    return true;
}

/// The file may be on its way.
bool ChangeSettlement::isChangedLater(const ChangeRecord& change) const
{
    return std::ranges::any_of(*mRecords, [&change](const ChangeRecord& other) {
        return other.number > change.number && other.kind != ChangeRecord::Kind::UNSTORED &&
               other.concerns(change.name);
    });
}

/// A configuration that was renamed after the save began starts under its new name.
void ChangeSettlement::followRenames(ChangeRecord& save) const
{
    for (const ChangeRecord& other : *mRecords)
        if (other.kind == ChangeRecord::Kind::RENAME && other.number > save.number &&
            other.name == save.autoStartBefore && !mTable.has(other.name))
            save.autoStartBefore = other.newName;
}

/// Alone: without this the scan would drop the rows before it too.
void ChangeSettlement::takeRowAway(const std::string& rowId)
{
    std::string file;
    mTable.readText(rowId, "File Name", file);
    mTable.remove(rowId);
    DBG_LOG(SEV_INFO) << "scanForCfgs: file=" << file
                      << " not found. Deleted cfg entry rowId=" << rowId;
}

bool comesBack(const ChangeRecord& save)
{
    return save.replaces() ||
           (save.before && save.kept.empty() && save.file == configurationPath(save.name) &&
            isRegularFile(save.file) && stampOf(save.file) == save.moved);
}

bool putBackFile(const ChangeRecord& record, const std::string& path)
{
    if (record.kept.empty() || !pathExists(record.kept))
        return true;
    // Nothing happens where both are still the same file.
    const auto put = [&] { return std::rename(record.kept.c_str(), path.c_str()); };
    if (persistently(put) == 0)
        return true;
    const int error = errno;
    if (error == EXDEV)
        return copyBack(record.kept, path);
    const bool isInTheWay = error == EISDIR || error == ENOTEMPTY || error == EEXIST;
    errno = error;
    return isInTheWay && !putAside(path, kObstacle).empty() && put() == 0;
}

Fcodes putBackAutoStart(ConfigurationsTable table, const ChangeRecord& save)
{
    std::string autoStart;
    if (save.autoStartBefore == save.autoStartAfter || table.readAutoStart(autoStart) != FC_OK ||
        autoStart != save.autoStartAfter)
        return FC_OK;
    return table.writeAutoStart(table.has(save.autoStartBefore) ? save.autoStartBefore : "");
}

Fcodes putBackRow(ConfigurationsTable table, const ChangeRecord& save, Fcodes code)
{
    CatalogueRow row = save.before.value_or(CatalogueRow{});
    if (row["State"] == kInprogress)
        row["State"] = kAvailable; // nobody would end it
    row["Fcode"] = std::to_string(static_cast<int>(code));
    return table.writeRow(save.name, row) | putBackAutoStart(table, save);
}
