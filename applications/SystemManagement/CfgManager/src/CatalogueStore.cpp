#include "CatalogueStore.h"

#include "CfgPaths.h"
#include "ChangeJournal.h"
#include "ConfigurationsTable.h"
#include "DataHolder.h"
#include "DbgLine.h"

#include <algorithm>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <utility>

namespace
{

constexpr char kUnit[] = "ConfigurationManager"; // the catalogue is the manager's to log readers
constexpr std::chrono::seconds kRetryDelay{10};
constexpr std::chrono::milliseconds kLeastWait{10};

} // namespace

CatalogueStore& CatalogueStore::ofProcess()
{
    static CatalogueStore& store = *new CatalogueStore; // its thread runs to the very end
    return store;
}

Fcodes CatalogueStore::store(DataHolder& holder)
{
    const std::lock_guard storing(mStoring);
    ChangeJournal::ofProcess().writeAgain();
    const Fcodes result = holder.storeDataSet(kCfgDataSet, kStoredCatalogue);
    const int error = holder.lastStoreError(kStoredCatalogue);
    bool recovered = false;
    {
        const std::lock_guard guard(mMutex);
        mFile = identify();
        recovered = std::exchange(mFailedFor, error == 0 ? nullptr : &holder) != nullptr;
        if (error != 0 && !recovered)
            mRetryAt = std::chrono::steady_clock::now() + kRetryDelay;
    }
    if (error != 0) {
        startThread();
        return result;
    }
    if (recovered)
        DBG_LOG(SEV_INFO) << "storeCatalogue: Stored again file=" << kStoredCatalogue;
    ChangeJournal::ofProcess().stored();
    return result;
}

bool CatalogueStore::isOnDisk() const
{
    const std::lock_guard guard(mMutex);
    return mFailedFor == nullptr;
}

bool CatalogueStore::isChangedByOthers() const
{
    const std::lock_guard guard(mMutex);
    return identify() != mFile;
}

void CatalogueStore::watch()
{
    const std::lock_guard guard(mMutex);
    mFile = identify();
}

void CatalogueStore::tidyLater()
{
    {
        const std::lock_guard guard(mMutex);
        if (std::exchange(mTidy, true))
            return;
    }
    startThread();
}

CatalogueStore::Identity CatalogueStore::identify()
{
    struct stat info;
    if (stat(kStoredCatalogue.c_str(), &info) == -1)
        return {};
    return {info.st_dev, info.st_ino, info.st_size,
            info.st_mtim.tv_sec * 1000000000L + info.st_mtim.tv_nsec}; // not for a link or a mode
}

void CatalogueStore::startThread()
{
    {
        const std::lock_guard guard(mMutex);
        if (std::exchange(mHasThread, true)) {
            mWake.notify_one();
            return;
        }
    }
    try {
        std::thread(&CatalogueStore::work, this).detach();
    } catch (const std::system_error& error) {
        DBG_LOG(SEV_ERROR) << "storeCatalogue: Couldn't start a thread, tried again with the next"
                              " change errno="
                           << error.code().value();
        const std::lock_guard guard(mMutex);
        mHasThread = false;
    }
}

void CatalogueStore::work()
{
    setTaskName(currentTaskId(), "tCfgStore");
    prctl(PR_SET_NAME, "CatalogueStore");
    for (;;) {
        {
            const std::lock_guard guard(mMutex);
            mTidy = false;
        }
        const auto tidyIn = ChangeJournal::ofProcess().tidy();
        std::unique_lock guard(mMutex);
        mTidy |= tidyIn.count() != 0;
        if (mFailedFor == nullptr && !mTidy) {
            mWake.wait(guard);
            continue;
        }
        auto until = std::chrono::steady_clock::now() + std::max(tidyIn, kLeastWait);
        if (mFailedFor != nullptr)
            until = mTidy ? std::min(until, mRetryAt) : mRetryAt;
        mWake.wait_until(guard, until);
        DataHolder* const holder = mFailedFor;
        if (holder == nullptr || std::chrono::steady_clock::now() < mRetryAt)
            continue;
        mRetryAt += kRetryDelay;
        guard.unlock();
        retry(*holder);
    }
}

std::unique_lock<std::mutex> CatalogueStore::holdRetries() { return std::unique_lock(mRetrying); }

void CatalogueStore::retry(DataHolder& holder)
{
    const std::lock_guard retrying(mRetrying);
    {
        const std::lock_guard guard(mMutex);
        if (identify() != mFile) {
            mFailedFor = nullptr;
            DBG_LOG(SEV_ERROR) << "storeCatalogue: Not stored again, others have changed file="
                               << kStoredCatalogue;
            return;
        }
    }
    store(holder);
}
