#include "ConfigurationsTable.h"

#include "CatalogueStore.h"
#include "CfgFiles.h"
#include "CfgPaths.h"
#include "DataHolder.h"
#include "IDataSets.h"
#include "base/LocalTime.h"

#include <cstdlib>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace
{

constexpr char kAutoStart[] = "AutoStart";

} // namespace

CatalogueSource ConfigurationsTable::load(std::string& copy)
{
    // Beside a catalogue of the older format the configurations are of that format too.
    const bool isWiped = access(kLegacyCatalogue.c_str(), F_OK) == 0;
    if (isWiped)
        std::ignore = std::system((std::string("rm -rf ") + kCfgDir + "/*").c_str());

    // No result is looked at: without a catalogue the daemon serves what it can.
    bool isStored = mHolder.loadDataSet(kStoredCatalogue) == FC_OK;
    if (isStored) {
        constexpr char kDefaults[] = "Default Dataset";
        const bool isFactoryThere = mHolder.loadDataSet(kDefaults, kFactoryCatalogue) == FC_OK;
        const Fcodes result = mHolder.updateDataSet(kCfgDataSet, kDefaults, false, true, false);
        mHolder.deleteDataSet(kDefaults);
        isStored = !isFactoryThere || result != FC_NO_SUCH_NAME; // some other data set's file
    }
    if (!isStored) {
        copy = putAside(kStoredCatalogue, kDamagedCatalogue, true);
        if (copy.empty() && access(kStoredCatalogue.c_str(), F_OK) == 0) {
            mkdir(kChangesInside, 0700);
            copy = putAside(kStoredCatalogue, std::string(kChangesInside) + "/damaged", true);
        }
        mHolder.loadDataSet(kFactoryCatalogue);
    }
    CatalogueStore::ofProcess().watch();
    return isWiped    ? CatalogueSource::WIPED
           : isStored ? CatalogueSource::STORED
                      : CatalogueSource::FACTORY;
}

Fcodes ConfigurationsTable::store() { return CatalogueStore::ofProcess().store(mHolder); }

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

std::optional<CatalogueRow> ConfigurationsTable::readRow(const std::string& rowId) const
{
    if (!has(rowId))
        return std::nullopt;
    std::vector<std::string> properties;
    mHolder.getProperties(kCfgDataSet, kConfigurationsTable, properties);
    CatalogueRow row;
    for (const std::string& property : properties)
        if (std::string value; readText(rowId, property.c_str(), value) == FC_OK)
            row[property] = value;
    return row;
}

Fcodes ConfigurationsTable::writeRow(const std::string& rowId, const CatalogueRow& row)
{
    Fcodes result = add(rowId);
    for (const auto& [property, value] : row)
        result |= writeText(rowId, property.c_str(), value);
    return result;
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
    return result | writeFcode(rowId, code);
}

Fcodes ConfigurationsTable::writeFcode(const std::string& rowId, Fcodes code)
{
    return mHolder.initIntParam(kCfgDataSet, kConfigurationsTable, "Fcode", static_cast<int>(code),
                                rowId);
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
