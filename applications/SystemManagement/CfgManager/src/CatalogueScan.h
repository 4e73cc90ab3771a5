#pragma once

// The walk at start-up that brings the rows of the catalogue in line with the files of the
// configuration directory. Used once, on the thread that starts the manager, and logged under the
// manager's name.

#include "ConfigurationsTable.h"

#include <string>
#include <unordered_map>
#include <vector>

class CatalogueScan
{
public:
    explicit CatalogueScan(ConfigurationsTable table) : mTable(table) {}

    /// Removes what a store of the catalogue that was cut off has left, makes rows "Available"
    /// whose file is there, drops the others, and adds a row for each regular file that has none
    /// and is not one that another process is storing. The changes are neither committed nor
    /// stored. False, and no row is touched, when the directory cannot be listed.
    bool run();

private:
    bool readDirectory();
    void removeStaleFiles();
    void matchRows();
    void dropRow(const std::string& rowId, const std::string& file);
    void addRowsForFiles();
    bool matchFile(const std::string& path);

    ConfigurationsTable mTable;

    /// The names in the directory, sorted; each matches one row at most.
    std::vector<std::string> mNames;
    std::vector<bool> mMatched;
    std::unordered_map<std::string, std::size_t> mByPath;
};
