#include "RunningConfiguration.h"

#include "ConfigurationsTable.h"
#include "DataHolder.h"
#include "IDataSets.h"

#include <mutex>

namespace
{

constexpr char kComponent[] = "RunningConfiguration";
constexpr char kName[] = "Name";
constexpr char kFallback[] = "Fallback";
constexpr char kDefaultChannels[] = "Default";

/// Whether it is another, or unknown, what runs.
bool changesWhatRuns(Fcodes result) { return result == FC_OK || result == FC_COMM_ERROR; }

} // namespace

void RunningConfiguration::forget()
{
    const std::lock_guard guard(mHolder);
    write("", false);
}

void RunningConfiguration::loaded(const std::string& rowId, Fcodes result)
{
    const std::lock_guard guard(mHolder);
    if (changesWhatRuns(result))
        write(result == FC_OK && ConfigurationsTable(mHolder).has(rowId) ? rowId : "", false);
}

void RunningConfiguration::loadedFallback(Fcodes result)
{
    const std::lock_guard guard(mHolder);
    if (changesWhatRuns(result))
        write(result == FC_OK ? kDefaultChannels : "", result == FC_OK);
}

void RunningConfiguration::renamed(const std::string& rowId, const std::string& newRowId)
{
    const std::lock_guard guard(mHolder);
    if (isRunning(rowId))
        write(newRowId, false);
}

void RunningConfiguration::removed(const std::string& rowId)
{
    const std::lock_guard guard(mHolder);
    if (isRunning(rowId))
        write("", false);
}

bool RunningConfiguration::exists() const
{
    return mHolder.hasInstance(kCfgDataSet, kComponent, kSingleInstance);
}

bool RunningConfiguration::isRunning(const std::string& rowId) const
{
    std::string name;
    bool isFallback = false;
    return exists() &&
           mHolder.getTextParam(kCfgDataSet, kComponent, kName, name, kSingleInstance) == FC_OK &&
           mHolder.getBoolParam(kCfgDataSet, kComponent, kFallback, isFallback, kSingleInstance) ==
               FC_OK &&
           name == rowId && !isFallback;
}

/// Peers read one property at a time, and must not take the default channels for a configuration
/// that has their name.
void RunningConfiguration::write(const std::string& name, bool isFallback)
{
    if (!exists())
        return;
    if (isFallback)
        mHolder.initBoolParam(kCfgDataSet, kComponent, kFallback, true, kSingleInstance);
    mHolder.initTextParam(kCfgDataSet, kComponent, kName, name, kSingleInstance);
    if (!isFallback)
        mHolder.initBoolParam(kCfgDataSet, kComponent, kFallback, false, kSingleInstance);
}
