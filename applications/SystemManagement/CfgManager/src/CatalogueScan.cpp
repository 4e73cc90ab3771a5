#include "CatalogueScan.h"

#include "CfgFiles.h"
#include "CfgPaths.h"
#include "DbgLine.h"
#include "base/AtomicFile.h"

#include <cstdlib>
#include <dirent.h>
#include <sys/stat.h>

namespace
{

constexpr char kUnit[] = "ConfigurationManager"; // log readers know the scan as the manager's

} // namespace

bool CatalogueScan::run()
{
    removeStaleFiles();
    if (!readDirectory()) {
        DBG_LOG(SEV_ERROR) << "scanForCfgs: scanDir error dir=" << kCfgDir;
        return false;
    }
    matchRows();
    addRowsForFiles();
    return true;
}

bool CatalogueScan::readDirectory()
{
    dirent** entries = nullptr;
    const int count = scandir(kCfgDir, &entries, nullptr, alphasort);
    if (count == -1)
        return false;
    for (int i = 0; i < count; ++i) {
        mByPath.emplace(configurationPath(entries[i]->d_name), mNames.size());
        mNames.emplace_back(entries[i]->d_name);
        std::free(entries[i]);
    }
    std::free(entries);
    mMatched.assign(mNames.size(), false);
    return true;
}

/// A store of the catalogue that was cut off may have left its temporary file. It is no
/// configuration, nor is that of another file, whose writer may still be at work; every other file
/// is the user's.
void CatalogueScan::removeStaleFiles()
{
    for (const std::string& file : removeStaleTempFiles(kStoredCatalogue))
        DBG_LOG(SEV_INFO) << "scanForCfgs: Removed stale file=" << file;
}

void CatalogueScan::matchRows()
{
    struct Row {
        std::string key;
        std::string file;
    };
    std::vector<Row> matched;
    for (const std::string& key : mTable.keys()) {
        Row row{key, ""};
        mTable.readText(key, "File Name", row.file); // a row without one is dropped below
        if (matchFile(row.file)) {
            DBG_LOG(SEV_INFO) << "scanForCfgs: file=" << row.file
                              << " found in cfg entry rowId=" << key;
            mTable.writeStateAndFcode(key, kAvailable, FC_OK);
            matched.push_back(std::move(row));
            continue;
        }
        dropRow(key, row.file);
        // Kept on purpose: log readers and stored catalogues count on the walk starting again from
        // the first row after each row dropped, while a file matches only once. The rows matched
        // so far find no file the second time and are dropped too, in the order of their keys.
        for (const Row& earlier : matched)
            dropRow(earlier.key, earlier.file);
        matched.clear();
    }
}

void CatalogueScan::dropRow(const std::string& rowId, const std::string& file)
{
    mTable.remove(rowId);
    DBG_LOG(SEV_INFO) << "scanForCfgs: file=" << file
                      << " not found. Deleted cfg entry rowId=" << rowId;
}

void CatalogueScan::addRowsForFiles()
{
    for (std::size_t i = 0; i < mNames.size(); ++i) {
        const std::string& name = mNames[i];
        const std::string path = configurationPath(name);
        if (mMatched[i] || path == kStoredCatalogue || path == kLegacyCatalogue)
            continue;
        struct stat info;
        if (stat(path.c_str(), &info) == -1) {
            DBG_LOG(SEV_ERROR) << "scanForCfgs: Not found file=" << path;
            continue;
        }
        if (!S_ISREG(info.st_mode) || isTempFileNameIn(kCfgDir, name))
            continue;
        mTable.add(name);
        DBG_LOG(SEV_INFO) << "scanForCfgs: Added entry rowId=" << name << " for file=" << name;
        mTable.fillFileRow(name, kNoDescription, info.st_mtime);
    }
}

bool CatalogueScan::matchFile(const std::string& path)
{
    const auto found = mByPath.find(path);
    if (found == mByPath.end() || mMatched[found->second])
        return false;
    mMatched[found->second] = true;
    return true;
}
