#pragma once

// Brings the catalogue to its file, and tries again when the disk has refused: every ten seconds
// until a store succeeds, with a line when it begins and one when it has come good. A catalogue
// that somebody else has put there meanwhile is left alone. The same thread removes the directory
// of the change records when it is empty.
//
// The thread starts with the first need for it and runs as long as the process. Any thread may
// call.

#include "Fcodes.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

class DataHolder;

class CatalogueStore
{
public:
    /// The one of this process: a device has one catalogue.
    static CatalogueStore& ofProcess();

    /// Stores the catalogue of the holder, which must live as long as the process. The result is
    /// the holder's: FC_OK also when the disk refuses, FC_NO_SUCH_NAME when there is no catalogue.
    Fcodes store(DataHolder& holder);

    /// While the caller holds it the catalogue is not stored again: for changes of several steps.
    std::unique_lock<std::mutex> holdRetries();

    /// Whether the last store reached the disk.
    bool isOnDisk() const;

    /// Whether somebody else has changed the file since it was loaded or stored.
    bool isChangedByOthers() const;

    /// Takes note of the file as it is, for telling it from one that others put there.
    void watch();

    /// Has the directory of the change records removed when its time has come.
    void tidyLater();

private:
    /// What tells a file from another in its place.
    struct Identity {
        std::uint64_t device = 0;
        std::uint64_t inode = 0; // 0: no file
        std::int64_t size = 0;
        std::int64_t changed = 0; // ns

        bool operator==(const Identity&) const = default;
    };

    static Identity identify();
    void startThread();
    void work();
    void retry(DataHolder& holder);

    std::mutex mRetrying;
    std::mutex mStoring; // one store at a time, with what is found out about it

    mutable std::mutex mMutex; // guards everything below
    std::condition_variable mWake;
    DataHolder* mFailedFor = nullptr; // while the last store has failed
    Identity mFile;
    std::chrono::steady_clock::time_point mRetryAt;
    bool mHasThread = false;
    bool mTidy = false;
};
