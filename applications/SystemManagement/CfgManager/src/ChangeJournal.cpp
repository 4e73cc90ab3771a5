#include "ChangeJournal.h"

#include "CfgFiles.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>
#include <utility>

namespace
{

constexpr std::chrono::seconds kIdleTime{1};

/// What else stands at its path has not come by a save.
bool hasConfigurationFile(const std::string& name)
{
    std::time_t modified = 0;
    return findRegularFile(configurationPath(name), modified);
}

} // namespace

ChangeJournal& ChangeJournal::ofProcess()
{
    static ChangeJournal& journal = *new ChangeJournal; // threads may use it to the very end
    return journal;
}

std::vector<ChangeRecord> ChangeJournal::open()
{
    const std::lock_guard guard(mMutex);
    mRecords = mFiles.read(mLastNumber);
    std::ranges::sort(mRecords, {}, &ChangeRecord::number);
    mLastFound = mRecords.empty() ? 0 : mRecords.back().number;
    mFiles.reserve();
    return mRecords;
}

ChangeJournal::Begun ChangeJournal::begin(ChangeRecord record, const std::string& replaced)
{
    const std::lock_guard guard(mMutex);
    const std::uint64_t number = record.number = ++mLastNumber;
    const int linkError = mFiles.keep(record, replaced) ? 0 : errno;
    const std::vector<std::string> links = supersede(record);
    mRecords.push_back(std::move(record));
    if (!mFiles.write(mRecords)) {
        const int error = errno;
        if (access(mRecords.back().kept.c_str(), F_OK) == -1)
            mRecords.back().kept.clear(); // nothing is moved where no record tells of it
        return {number, error};
    }
    JournalFiles::removeLinks(links);
    dropOver();
    return {number, linkError};
}

/// Earlier changes that the new one takes the place of: of a name that has a file now, and saves of
/// new names, whose rows may not outlive the next start and are no auto-start to go back to.
/// Returns the links that nothing will be put back from.
std::vector<std::string> ChangeJournal::supersede(ChangeRecord& record)
{
    std::vector<std::string> links;
    std::erase_if(mRecords, [&record, &links](const ChangeRecord& earlier) {
        if (earlier.kind == ChangeRecord::Kind::UNSTORED)
            return false;
        const bool isNewSave = earlier.kind == ChangeRecord::Kind::SAVE && !earlier.replaces();
        if (isNewSave && !earlier.answered && record.autoStartBefore == earlier.name &&
            record.autoStartAfter != record.autoStartBefore)
            record.autoStartBefore = earlier.autoStartBefore;
        if (!record.kept.empty()) {
            const bool isOver =
                earlier.concerns(record.name) && (earlier.kind != ChangeRecord::Kind::REMOVE ||
                                                  record.kind == ChangeRecord::Kind::SAVE);
            if (isOver && earlier.answered)
                links.push_back(earlier.kept);
            return isOver;
        }
        if (!isNewSave || record.name != earlier.name)
            return false;
        if (hasConfigurationFile(earlier.name))
            return true; // its file has come after all
        if (record.kind != earlier.kind)
            return false;
        if (record.autoStartAfter == record.autoStartBefore && !earlier.answered) {
            record.autoStartBefore = earlier.autoStartBefore;
            record.autoStartAfter = earlier.autoStartAfter;
        }
        return true;
    });
    return links;
}

void ChangeJournal::confirmAnswer(std::uint64_t number, const CatalogueRow& row)
{
    const std::lock_guard guard(mMutex);
    const auto found = std::ranges::find(mRecords, number, &ChangeRecord::number);
    if (found == mRecords.end())
        return;
    found->answered = true;
    found->after = row;
    mFiles.write(mRecords);
}

void ChangeJournal::confirmFailure(std::uint64_t number)
{
    const std::lock_guard guard(mMutex);
    const auto found = std::ranges::find(mRecords, number, &ChangeRecord::number);
    if (found == mRecords.end())
        return;
    found->boot.clear();
    mFiles.write(mRecords);
}

void ChangeJournal::end(std::uint64_t number)
{
    const std::lock_guard guard(mMutex);
    const auto found = std::ranges::find(mRecords, number, &ChangeRecord::number);
    if (found == mRecords.end())
        return;
    const ChangeRecord change = *found;
    std::vector<std::uint64_t> ended{number};
    for (const ChangeRecord& earlier : mRecords)
        if (earlier.kind != ChangeRecord::Kind::UNSTORED && earlier.number < number &&
            (earlier.concerns(change.name) || earlier.concerns(change.newName)))
            ended.push_back(earlier.number);
    mOver.insert(ended.begin(), ended.end());
    const bool followed = followAutoStart(change);
    if (ended.size() == 1 && !followed)
        drop(number);
    else
        dropOver();
}

/// Takes out what has ended. Others' records go before their files: what would be put back without
/// them is no longer the old.
void ChangeJournal::dropOver()
{
    if (mOver.empty())
        return;
    std::vector<std::string> links;
    std::erase_if(mRecords, [this, &links](const ChangeRecord& record) {
        if (!mOver.contains(record.number))
            return false;
        links.push_back(record.kept);
        return true;
    });
    mOver.clear();
    if (mRecords.empty())
        mIdleSince = std::chrono::steady_clock::now();
    mFiles.write(mRecords);
    JournalFiles::removeLinks(links);
}

/// An auto-start that is to come back goes along with its name, and with its configuration. One
/// that a refused removal has cleared does not come back when another has been set since.
bool ChangeJournal::followAutoStart(const ChangeRecord& change)
{
    bool followed = false;
    for (ChangeRecord& other : mRecords) {
        const bool isGone = !change.newName.empty() || change.kind == ChangeRecord::Kind::REMOVE;
        const bool isSet = change.autoStartBefore != change.autoStartAfter &&
                           other.kind == ChangeRecord::Kind::REMOVE;
        if (other.number == change.number || other.autoStartBefore == other.autoStartAfter ||
            !(isSet || (isGone && other.autoStartBefore == change.name)))
            continue;
        other.autoStartBefore = isSet ? other.autoStartAfter : change.newName;
        followed = true;
    }
    return followed;
}

void ChangeJournal::cancel(std::uint64_t number)
{
    const std::lock_guard guard(mMutex);
    drop(number);
    mFiles.write(mRecords);
}

bool ChangeJournal::endUnstored(std::uint64_t number, const UnstoredRows& rows,
                                const std::string& autoStart)
{
    const std::lock_guard guard(mMutex);
    for (const auto& row : rows) {
        std::erase_if(mRecords, [&row](const ChangeRecord& earlier) {
            return earlier.kind == ChangeRecord::Kind::UNSTORED && earlier.name == row.first;
        });
        ChangeRecord record;
        record.kind = ChangeRecord::Kind::UNSTORED;
        record.number = ++mLastNumber;
        record.name = row.first;
        record.after = row.second;
        record.autoStartAfter = autoStart;
        mRecords.push_back(std::move(record));
    }
    const auto change = std::ranges::find(mRecords, number, &ChangeRecord::number);
    if (change != mRecords.end())
        followAutoStart(ChangeRecord(*change));
    if (number != 0)
        for (const ChangeRecord& earlier : mRecords)
            if (earlier.kind != ChangeRecord::Kind::UNSTORED && earlier.number <= number &&
                std::ranges::any_of(
                    rows, [&earlier](const auto& row) { return earlier.concerns(row.first); }))
                mOver.insert(earlier.number);
    if (!mFiles.write(mRecords)) // before the second links go with the changes
        return false;
    dropOver();
    return true;
}

void ChangeJournal::writeAgain()
{
    const std::lock_guard guard(mMutex);
    if (mFiles.wasRefused())
        mFiles.write(mRecords);
}

void ChangeJournal::stored()
{
    const std::lock_guard guard(mMutex);
    std::vector<std::uint64_t> ended;
    for (const ChangeRecord& record : mRecords)
        if (record.kind == ChangeRecord::Kind::UNSTORED || record.number <= mLastFound ||
            mOver.contains(record.number))
            ended.push_back(record.number);
    for (const std::uint64_t each : ended)
        drop(each);
    // A later start must not settle them again, on top of what comes after.
    if (mRecords.empty() && !mFiles.isOpen() && !mFiles.isClean())
        mFiles.remove();
    else if (!ended.empty())
        mFiles.write(mRecords);
    mFiles.reserve(); // for there is space again
}

void ChangeJournal::forgetAutoStart()
{
    const std::lock_guard guard(mMutex);
    for (ChangeRecord& record : mRecords)
        record.autoStartBefore = record.autoStartAfter;
    if (mRecords.empty() && !mFiles.isClean()) // changes that have ended are still in the file
        mFiles.remove();
    else if (!mRecords.empty())
        mFiles.write(mRecords);
}

ChangeRecord ChangeJournal::find(std::uint64_t number) const
{
    const std::lock_guard guard(mMutex);
    const auto found = std::ranges::find(mRecords, number, &ChangeRecord::number);
    return found == mRecords.end() ? ChangeRecord{} : *found;
}

ChangeRecord ChangeJournal::findFailedSave(const std::string& name) const
{
    const std::lock_guard guard(mMutex);
    for (const ChangeRecord& record : mRecords)
        if (record.kind == ChangeRecord::Kind::SAVE && record.name == name && !record.replaces() &&
            !record.answered && !hasConfigurationFile(name))
            return record;
    return {};
}

ChangeRecord ChangeJournal::findRefusedRemoval(const std::string& name) const
{
    const std::lock_guard guard(mMutex);
    for (const ChangeRecord& record : mRecords)
        if (record.kind == ChangeRecord::Kind::REMOVE && record.name == name &&
            !mOver.contains(record.number) && hasConfigurationFile(name))
            return record;
    return {};
}

std::chrono::milliseconds ChangeJournal::tidy()
{
    const std::lock_guard guard(mMutex);
    if (!mRecords.empty() || mFiles.isClean())
        return {};
    const auto idle = std::chrono::steady_clock::now() - mIdleSince;
    if (idle < kIdleTime)
        return std::chrono::ceil<std::chrono::milliseconds>(kIdleTime - idle);
    mFiles.remove();
    mFiles.reserve();
    return {};
}

bool ChangeJournal::isFirstFailure()
{
    const std::lock_guard guard(mMutex);
    return !std::exchange(mFailureReported, true);
}

void ChangeJournal::drop(std::uint64_t number)
{
    const auto found = std::ranges::find(mRecords, number, &ChangeRecord::number);
    if (found == mRecords.end())
        return;
    JournalFiles::removeLinks({found->kept});
    mOver.erase(number);
    mRecords.erase(found);
    if (mRecords.empty())
        mIdleSince = std::chrono::steady_clock::now();
}

std::string ChangeJournal::spare(std::uint64_t number)
{
    const std::lock_guard guard(mMutex);
    const auto found = std::ranges::find(mRecords, number, &ChangeRecord::number);
    if (found == mRecords.end() || found->kept.empty())
        return "";
    return JournalFiles::spare(*found);
}

int ChangeJournal::reserveError() const
{
    const std::lock_guard guard(mMutex);
    return mFiles.reserveError();
}
