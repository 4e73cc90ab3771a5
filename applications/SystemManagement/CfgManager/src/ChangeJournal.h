#pragma once

// Knows which changes are under way, and keeps their records on the disk (JournalFiles) from before
// their first effect to their end. The directory of the records is there while it holds one, and
// about a second longer: a burst of changes finds its file in place.
//
// Any thread may call. Nothing is logged here.

#include "ChangeRecord.h"
#include "JournalFiles.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

class ChangeJournal
{
public:
    /// The one of this process: a device has one daemon that owns the directory.
    static ChangeJournal& ofProcess();

    /// What an earlier run has left, in the order of the changes; and reserves the space. For the
    /// start-up, which settles what it gets before the first begin(). It stays until stored().
    std::vector<ChangeRecord> open();

    /// The directories whose records are not believed, and why not.
    static std::map<std::string, std::string> notBelieved() { return JournalFiles::notBelieved(); }

    /// Records a change under a new number, and before that a second link to the file at `replaced`
    /// if one is there; both are on the disk when it returns. Earlier changes of a name whose file
    /// is there have come to their end by that. `error` is an errno value when the record is not on
    /// the disk, and the change known to this process alone.
    struct Begun {
        std::uint64_t number;
        int error;
    };
    Begun begin(ChangeRecord record, const std::string& replaced = "");

    /// The channel manager has answered OK, and the row is now `row`; on the disk when it returns.
    void confirmAnswer(std::uint64_t number, const CatalogueRow& row);

    /// The save has failed: what the channel manager still writes stays.
    void confirmFailure(std::uint64_t number);

    /// The change is on the disk, with it every earlier one of its names, and needs no record. The
    /// record itself may still be found after a power cut: settling it changes nothing.
    void end(std::uint64_t number);

    /// The change has been refused or put back, and must not be settled by a later start.
    void cancel(std::uint64_t number);

    /// The change is acknowledged, but the catalogue could not be stored: the rows (none: removed)
    /// and the auto-start take the place of its record until stored(). False, with errno, when they
    /// are not on the disk either.
    using UnstoredRows = std::map<std::string, std::optional<CatalogueRow>>;
    bool endUnstored(std::uint64_t number, const UnstoredRows& rows, const std::string& autoStart);

    /// Before the catalogue is stored: what could not be recorded so far must not be found without.
    void writeAgain();

    /// The catalogue is on the disk, with all that open() found and that endUnstored() recorded.
    void stored();

    /// The second link could not be put back, and must not be thrown away with its record. Returns
    /// where the file is from now on; nobody takes it away.
    std::string spare(std::uint64_t number);

    /// The auto-start has been set by somebody since: no change puts it back.
    void forgetAutoStart();

    /// The record of a change that has not ended; one without a name when there is none. Its second
    /// link may be moved away.
    ChangeRecord find(std::uint64_t number) const;

    /// The save of a new name that has failed and has brought no file; one without a name when
    /// there is none.
    ChangeRecord findFailedSave(const std::string& name) const;

    /// The removal whose file could not be deleted.
    ChangeRecord findRefusedRemoval(const std::string& name) const;

    /// Removes the directory when it has held nothing for a second. How long until it should be
    /// called again; zero when there is nothing to remove.
    std::chrono::milliseconds tidy();

    /// Why the space could not be reserved as a whole, an errno value, or 0.
    int reserveError() const;

    /// True once a start: that nothing can be recorded is said once.
    bool isFirstFailure();

private:
    std::vector<std::string> supersede(ChangeRecord& record);
    bool followAutoStart(const ChangeRecord& change);
    void drop(std::uint64_t number);
    void dropOver();

    mutable std::mutex mMutex; // guards everything below
    std::vector<ChangeRecord> mRecords;
    std::set<std::uint64_t> mOver; // of those the ones that the disk must know as ended first
    std::uint64_t mLastNumber = 0;
    std::uint64_t mLastFound = 0; // by open()
    JournalFiles mFiles;
    bool mFailureReported = false;
    std::chrono::steady_clock::time_point mIdleSince;
};
