#pragma once

// The files of the change journal, and nothing of what they mean: in "/data/.cfg_changes", or in
// "/data/cfg/.cfg_changes" where the other is not on the same file system or cannot be written. The
// directory is made with the first need and stays until remove(). Beside the file of the records it
// holds second links to files that changes replace ("kept.NUMBER"), and what of those nobody may
// throw away ("spared.NUMBER"). Every other name in it stays.
//
// The file of the records has two halves, which are overwritten in turn, each with all records, a
// number and a checksum: a write that is cut off leaves the other half. Its blocks are allocated
// before, so that a write costs one synchronous write and no new metadata; as many are held in
// reserve for the day on which the disk is full.
//
// Where an operation says so, what it has done is on the disk when it returns. One thread at a
// time: the lock is the journal's. Nothing is logged here.

#include "ChangeRecord.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class JournalFiles
{
public:
    JournalFiles() = default;
    JournalFiles(const JournalFiles&) = delete;
    JournalFiles& operator=(const JournalFiles&) = delete;
    ~JournalFiles();

    /// The records that an earlier run has left, in no order, and the highest number that one of
    /// them or a file has. Second links that no record of a whole file knows of are removed.
    std::vector<ChangeRecord> read(std::uint64_t& lastNumber);

    /// The directories whose records are not believed, and why not.
    static std::map<std::string, std::string> notBelieved();

    /// Makes these the records that read() will give; on the disk when it returns, or false with
    /// errno. A disk that is full gets the reserve first. Without records and a directory there is
    /// nothing to do.
    bool write(const std::vector<ChangeRecord>& records);

    /// Whether the last write() has failed.
    bool wasRefused() const { return mWasRefused; }

    /// Gives the file at `replaced`, if one is there, a second link, which is then `record.kept`;
    /// on the disk when it returns, or false with errno. Of a SAVE it names a place to move the
    /// file to where links are refused.
    bool keep(ChangeRecord& record, const std::string& replaced);

    /// Gives the second link a name under which nobody takes it away, and returns its path.
    static std::string spare(const ChangeRecord& record);

    static void removeLinks(const std::vector<std::string>& links);

    /// Removes the directory, with all that this class gives names to, but neither what is spared
    /// nor a second link whose file has no other name.
    void remove();

    /// Whether this run has the file of the records open.
    bool isOpen() const { return mFile != -1; }

    /// Whether there is nothing to remove().
    bool isClean() const { return mIsClean; }

    /// Allocates the reserve unless it is there.
    void reserve();

    /// Why it could not be allocated as a whole, an errno value, or 0.
    int reserveError() const { return mReserveError; }

private:
    bool tryToWrite(const std::vector<ChangeRecord>& records, std::size_t room);
    bool overwrite(const std::string& half);
    void reopen();
    bool create(const std::string& half, std::size_t capacity);
    bool makeDirectory();
    void releaseReserve();

    std::string mDirectory; // empty until one is needed
    bool mIsClean = true;
    int mFile = -1;
    std::size_t mCapacity = 0; // bytes of a half
    std::size_t mNextHalf = 0; // to be written, 0 or 1
    std::uint64_t mLastWrite = 0;
    bool mWasRefused = false;
    int mReserve = -1;
    int mReserveError = 0;
};

/// What one half of the file holds, from its beginning; nothing for one that was cut off. `write`
/// is the number of the write.
std::string journalHalf(std::uint64_t write, std::string_view records);
std::optional<std::string_view> readJournalHalf(std::string_view half, std::uint64_t& write);
