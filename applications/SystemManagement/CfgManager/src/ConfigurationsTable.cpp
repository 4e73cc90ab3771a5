#include "ConfigurationsTable.h"

#include "CfgFiles.h"
#include "CfgPaths.h"
#include "DataHolder.h"
#include "IDataSets.h"
#include "base/LocalTime.h"

#include <cstdlib>
#include <tuple>
#include <unistd.h>

namespace
{

constexpr char kAutoStart[] = "AutoStart";

} // namespace

void ConfigurationsTable::load()
{
    // Beside a catalogue of the older format the configurations are of that format too.
    if (access(kLegacyCatalogue.c_str(), F_OK) == 0)
        std::ignore = std::system((std::string("rm -rf ") + kCfgDir + "/*").c_str());

    // No result is looked at: without a catalogue the daemon serves what it can.
    if (mHolder.loadDataSet(kStoredCatalogue) != FC_OK) {
        mHolder.loadDataSet(kFactoryCatalogue);
        return;
    }
    constexpr char kDefaults[] = "Default Dataset";
    mHolder.loadDataSet(kDefaults, kFactoryCatalogue);
    mHolder.updateDataSet(kCfgDataSet, kDefaults, false, true, false);
    mHolder.deleteDataSet(kDefaults);
}

Fcodes ConfigurationsTable::store() { return mHolder.storeDataSet(kCfgDataSet, kStoredCatalogue); }

std::vector<std::string> ConfigurationsTable::keys() const
{
    std::vector<std::string> found;
    mHolder.getInstances(kCfgDataSet, kConfigurationsTable, found);
    return found;
}

bool ConfigurationsTable::has(const std::string& rowId) const
{
    return mHolder.hasInstance(kCfgDataSet, kConfigurationsTable, rowId);
}

Fcodes ConfigurationsTable::add(const std::string& rowId)
{
    return mHolder.addInstance(kCfgDataSet, kConfigurationsTable, rowId);
}

Fcodes ConfigurationsTable::remove(const std::string& rowId)
{
    return mHolder.removeInstance(kCfgDataSet, kConfigurationsTable, rowId);
}

Fcodes ConfigurationsTable::getRowIdByFilename(const std::string& file, std::string& rowId) const
{
    for (const std::string& key : keys()) {
        std::string value;
        if (readText(key, "File Name", value) == FC_OK && value == file) {
            rowId = key;
            return FC_OK;
        }
    }
    rowId.clear();
    return FC_UNAVAILABLE;
}

Fcodes ConfigurationsTable::readText(const std::string& rowId, const char* property,
                                     std::string& value) const
{
    return mHolder.getTextParam(kCfgDataSet, kConfigurationsTable, property, value, rowId);
}

Fcodes ConfigurationsTable::writeText(const std::string& rowId, const char* property,
                                      const std::string& value)
{
    return mHolder.initTextParam(kCfgDataSet, kConfigurationsTable, property, value, rowId);
}

Fcodes ConfigurationsTable::writeStateAndFcode(const std::string& rowId, const char* state,
                                               Fcodes code)
{
    const Fcodes result = writeText(rowId, "State", state);
    return result | mHolder.initIntParam(kCfgDataSet, kConfigurationsTable, "Fcode",
                                         static_cast<int>(code), rowId);
}

Fcodes ConfigurationsTable::fillFileRow(const std::string& name, const std::string& description,
                                        std::time_t modified)
{
    Fcodes result = writeText(name, "File Name", configurationPath(name));
    result |= writeText(name, "Name", name);
    result |= writeText(name, "Description", description);
    result |= writeText(name, "Time", toLocalTimeText(modified));
    result |= writeStateAndFcode(name, kAvailable, FC_OK);
    return result;
}

Fcodes ConfigurationsTable::readAutoStart(std::string& rowId) const
{
    return mHolder.getTextParam(kCfgDataSet, kAutoStart, "Name", rowId, kSingleInstance);
}

Fcodes ConfigurationsTable::writeAutoStart(const std::string& rowId)
{
    return mHolder.initTextParam(kCfgDataSet, kAutoStart, "Name", rowId, kSingleInstance);
}
