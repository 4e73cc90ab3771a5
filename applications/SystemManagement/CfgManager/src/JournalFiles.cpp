#include "JournalFiles.h"

#include "CfgFiles.h"
#include "CfgPaths.h"
#include "base/Descriptor.h"
#include "base/RegularFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace
{

constexpr std::size_t kHalfSize = std::size_t{32} << 10;
constexpr off_t kReserveSize = 24 * kHalfSize; // two files with two rows as long as a message
constexpr std::size_t kRoomToGrow = 25;        // percent of a half
constexpr std::string_view kMagic = "cfg-changes 1 ";
constexpr char kJournal[] = "/journal";
constexpr char kNewJournal[] = "/journal.new";
constexpr char kKept[] = "/kept.";
constexpr char kSpared[] = "/spared.";
constexpr std::string_view kUnfinished = ".new"; // of a copy

/// Never destroyed, as the journal: a thread may tidy until the process has gone.
const auto& kPlaces = *new std::array<std::string, 2>{kChangesBeside, kChangesInside};

std::uint64_t checksum(std::string_view text)
{
    std::uint64_t sum = 14695981039346656037U; // FNV-1a
    for (const char c : text)
        sum = (sum ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return sum;
}

bool writeAll(int file, std::string_view text, off_t offset)
{
    while (!text.empty()) {
        const ssize_t put = pwrite(file, text.data(), text.size(), offset);
        if (put < 0 && errno != EINTR)
            return false;
        if (put > 0) {
            text.remove_prefix(static_cast<std::size_t>(put));
            offset += put;
        }
    }
    return true;
}

/// On the disk, or on a file system that has none.
bool isSynced(int result) { return result == 0 || errno == EINVAL; }

bool syncDirectory(const std::string& path)
{
    const Descriptor directory(
        persistently([&] { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    return directory.isOpen() && isSynced(persistently([&] { return fsync(directory.get()); }));
}

std::string parentOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

/// Links reach from one to the other. The same device may be mounted twice.
bool isOneMount(const std::string& left, const std::string& right)
{
    const auto look = [](const std::string& path, struct statx& info) {
        return statx(AT_FDCWD, path.c_str(), 0, STATX_MNT_ID, &info) == 0;
    };
    struct statx one {
    }, other{};
    return look(left, one) && look(right, other) && one.stx_dev_major == other.stx_dev_major &&
           one.stx_dev_minor == other.stx_dev_minor && one.stx_mnt_id == other.stx_mnt_id;
}

/// Who may write here may have root move files.
bool isOurs(const std::string& directory)
{
    struct stat info;
    return persistently([&] { return lstat(directory.c_str(), &info); }) == 0 &&
           S_ISDIR(info.st_mode) && info.st_uid == geteuid() &&
           (info.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

std::vector<std::string> filesIn(const std::string& place, std::string_view prefix)
{
    std::vector<std::string> paths;
    DIR* const directory = opendir(place.c_str());
    if (directory == nullptr)
        return paths;
    while (const dirent* const entry = readdir(directory))
        if (const std::string name = std::string("/") + entry->d_name; name.starts_with(prefix))
            paths.push_back(place + name);
    closedir(directory);
    return paths;
}

std::uint64_t numberOf(const std::string& path)
{
    const char* const number = path.c_str() + path.rfind('.') + 1;
    return std::strtoull(number, nullptr, 10);
}

/// True for a record that no daemon has written.
bool isUnsound(const ChangeRecord& record)
{
    using Kind = ChangeRecord::Kind;
    const auto isKept = [&record](const std::string& place) {
        return record.kept == place + kKept + std::to_string(record.number);
    };
    const bool isMove = record.kind == Kind::IMPORT || record.kind == Kind::RENAME;
    return !(record.kept.empty() || std::ranges::any_of(kPlaces, isKept)) ||
           record.name.find('/') != std::string::npos ||
           record.newName.find('/') != std::string::npos ||
           (isMove && !(record.after && record.after->contains("Description")));
}

/// The newer of the two halves that is whole; where none is, its write has the number 0.
struct NewestHalf {
    std::vector<ChangeRecord> records;
    std::uint64_t write = 0;
    std::size_t index = 0;
};

NewestHalf readJournal(const std::string& place)
{
    if (!isOurs(place))
        return {};
    const std::string path = place + kJournal;
    std::string text;
    if (const Descriptor file(openRegularFile(path)); file.isOpen())
        readToEnd(file.get(), text);
    NewestHalf newest;
    for (const std::size_t index : {std::size_t{0}, std::size_t{1}}) {
        std::uint64_t write = 0;
        const auto half =
            readJournalHalf(std::string_view(text).substr(index * (text.size() / 2)), write);
        auto records = half ? readChangeRecords(*half) : std::nullopt;
        if (records && write > newest.write)
            newest = {std::move(*records), write, index};
    }
    return newest;
}

/// Links whose end a power cut has undone: no record of a whole journal knows of them.
void removeEnded(const std::string& place, const std::vector<ChangeRecord>& records)
{
    for (const std::string& path : filesIn(place, kKept))
        if (std::ranges::find(records, path, &ChangeRecord::kept) == records.end())
            unlink(path.c_str());
}

} // namespace

std::string journalHalf(std::uint64_t write, std::string_view records)
{
    std::string body = std::to_string(write) + ' ' + std::to_string(records.size()) + '\n';
    body += records;
    return std::string(kMagic) + std::to_string(checksum(body)) + ' ' + body;
}

std::optional<std::string_view> readJournalHalf(std::string_view half, std::uint64_t& write)
{
    const auto number = [&half](char end, std::uint64_t& value) {
        const auto [at, error] = std::from_chars(half.data(), half.data() + half.size(), value);
        const auto length = static_cast<std::size_t>(at - half.data());
        if (error != std::errc() || length >= half.size() || *at != end)
            return false;
        half.remove_prefix(length + 1);
        return true;
    };
    std::uint64_t sum = 0;
    std::uint64_t size = 0;
    if (!half.starts_with(kMagic))
        return std::nullopt;
    half.remove_prefix(kMagic.size());
    if (!number(' ', sum))
        return std::nullopt;
    const std::string_view body = half;
    if (!number(' ', write) || !number('\n', size) || size > half.size())
        return std::nullopt;
    const std::string_view records = half.substr(0, static_cast<std::size_t>(size));
    if (checksum(body.substr(0, body.size() - half.size() + records.size())) != sum)
        return std::nullopt;
    return records;
}

JournalFiles::~JournalFiles()
{
    releaseReserve();
    if (mFile != -1)
        close(mFile);
}

std::vector<ChangeRecord> JournalFiles::read(std::uint64_t& lastNumber)
{
    std::vector<ChangeRecord> all;
    lastNumber = 0;
    for (const std::string& place : kPlaces) {
        NewestHalf newest = readJournal(place);
        std::vector<ChangeRecord>& records = newest.records;
        const bool isWhole = newest.write != 0 && std::erase_if(records, isUnsound) == 0;
        if (isWhole)
            removeEnded(place, records);
        for (const char* const prefix : {kKept, kSpared})
            for (const std::string& path : filesIn(place, prefix))
                lastNumber = std::max(lastNumber, numberOf(path));
        for (const ChangeRecord& record : records)
            lastNumber = std::max(lastNumber, record.number);
        std::ranges::move(records, std::back_inserter(all));
        mLastWrite = std::max(mLastWrite, newest.write);
    }
    mIsClean = std::ranges::none_of(
        kPlaces, [](const std::string& place) { return access(place.c_str(), F_OK) == 0; });
    return all;
}

std::map<std::string, std::string> JournalFiles::notBelieved()
{
    std::map<std::string, std::string> reasons;
    struct stat info;
    for (const std::string& place : kPlaces)
        if (!isOurs(place) && lstat(place.c_str(), &info) == 0)
            reasons[place] = !S_ISDIR(info.st_mode)     ? "no directory"
                             : info.st_uid != geteuid() ? "another user's"
                                                        : "open to others";
    return reasons;
}

/// Twice at most: what the disk refuses once it may take in a new file.
bool JournalFiles::write(const std::vector<ChangeRecord>& records)
{
    mWasRefused = false;
    if (records.empty() && mDirectory.empty())
        return true;
    if (mFile == -1 && makeDirectory())
        reopen();
    if (tryToWrite(records, kRoomToGrow))
        return true;
    if (mFile != -1)
        close(std::exchange(mFile, -1));
    releaseReserve();
    mWasRefused = !tryToWrite(records, 0);
    return !mWasRefused;
}

bool JournalFiles::tryToWrite(const std::vector<ChangeRecord>& records, std::size_t room)
{
    if (!makeDirectory())
        return false;
    const std::string half = journalHalf(++mLastWrite, toText(records));
    if (mFile != -1 && half.size() <= mCapacity)
        return overwrite(half);
    return create(half, std::max(kHalfSize, half.size() + half.size() * room / 100));
}

bool JournalFiles::overwrite(const std::string& half)
{
    if (!writeAll(mFile, half, static_cast<off_t>(mNextHalf * mCapacity)) ||
        !isSynced(fdatasync(mFile)))
        return false;
    mNextHalf = 1 - mNextHalf;
    return true;
}

/// The file of an earlier run goes on: its blocks are there, also on a disk that has no more.
void JournalFiles::reopen()
{
    const std::string path = mDirectory + kJournal;
    const Descriptor file(openRegularFile(path));
    struct stat info;
    if (!file.isOpen() || fstat(file.get(), &info) == -1 || info.st_nlink != 1 ||
        info.st_size % 2 != 0 || info.st_blocks * 512 < info.st_size)
        return;
    const NewestHalf newest = readJournal(mDirectory);
    if (newest.write == 0)
        return;
    mFile = ::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC);
    mCapacity = static_cast<std::size_t>(info.st_size) / 2;
    mNextHalf = 1 - newest.index;
}

bool JournalFiles::create(const std::string& half, std::size_t capacity)
{
    const std::string path = mDirectory + kNewJournal;
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file == -1)
        return false;
    // Zeros, not holes: a block that has been written before is overwritten in place.
    if (writeAll(file, std::string(2 * capacity, '\0'), 0) && writeAll(file, half, 0) &&
        isSynced(fsync(file)) && rename(path.c_str(), (mDirectory + kJournal).c_str()) == 0 &&
        syncDirectory(mDirectory)) {
        if (mFile != -1)
            close(mFile);
        mFile = file;
        mCapacity = capacity;
        mNextHalf = 1;
        return true;
    }
    const int error = errno;
    close(file);
    unlink(path.c_str());
    errno = error;
    return false;
}

bool JournalFiles::makeDirectory()
{
    if (!mDirectory.empty())
        return true;
    for (const std::string& place : kPlaces) {
        if (!isOneMount(parentOf(place), kCfgDir))
            continue;
        int made = mkdir(place.c_str(), 0700);
        if (made == -1 && errno != EEXIST) {
            releaseReserve(); // for the disk may be full
            made = mkdir(place.c_str(), 0700);
        }
        if ((made == 0 || errno == EEXIST) && isOurs(place) &&
            access(place.c_str(), W_OK | X_OK) == 0 && syncDirectory(parentOf(place))) {
            mDirectory = place;
            mIsClean = false;
            return true;
        }
    }
    return false;
}

/// A file that is not there needs no link, and a directory has no content to lose. Where links are
/// refused a save moves the file there in place of its deletion, and an import has it copied.
bool JournalFiles::keep(ChangeRecord& record, const std::string& replaced)
{
    if (!makeDirectory())
        return false;
    struct stat info;
    const auto look = [&] { return lstat(replaced.c_str(), &info); };
    if (replaced.empty() || persistently(look) == -1 ||
        !(S_ISREG(info.st_mode) || S_ISLNK(info.st_mode)))
        return true;
    record.kept = mDirectory + kKept + std::to_string(record.number);
    unlink(record.kept.c_str());
    if (persistently([&] { return link(replaced.c_str(), record.kept.c_str()); }) == -1) {
        if (record.kind == ChangeRecord::Kind::SAVE)
            return true;
        if (!copyWhole(replaced, record.kept)) {
            record.kept.clear();
            return false;
        }
    }
    return syncDirectory(mDirectory);
}

std::string JournalFiles::spare(const ChangeRecord& record)
{
    const std::string spared = parentOf(record.kept) + kSpared + std::to_string(record.number);
    const auto move = [&] { return rename(record.kept.c_str(), spared.c_str()); };
    return persistently(move) == 0 ? spared : record.kept;
}

void JournalFiles::removeLinks(const std::vector<std::string>& links)
{
    for (const std::string& link : links)
        if (!link.empty())
            unlink(link.c_str());
}

/// Only what the journal gives names to; a directory that holds more stays. A second link whose
/// file has no other name is not thrown away: no record says what it was.
void JournalFiles::remove()
{
    if (mFile != -1)
        close(std::exchange(mFile, -1));
    mDirectory.clear();
    mIsClean = true;
    const auto removeFile = [this](const std::string& path) {
        mIsClean &= persistently([&] { return unlink(path.c_str()); }) == 0;
    };
    for (const std::string& place : kPlaces) {
        if (!isOurs(place))
            continue;
        struct stat info;
        for (const std::string& path : filesIn(place, kKept))
            if (path.ends_with(kUnfinished) ||
                (lstat(path.c_str(), &info) == 0 && info.st_nlink > 1))
                removeFile(path);
        syncDirectory(place); // before the journal, which says that those links have ended
        for (const std::string& path : filesIn(place, kJournal))
            removeFile(path);
        syncDirectory(place); // what has been settled must not come back
        rmdir(place.c_str());
    }
}

void JournalFiles::reserve()
{
    if (mReserve != -1)
        return;
    for (const std::string& place : kPlaces) {
        if (!isOneMount(parentOf(place), kCfgDir))
            continue;
        mReserve = ::open(parentOf(place).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        mReserveError = mReserve == -1 ? errno : posix_fallocate(mReserve, 0, kReserveSize);
        if (mReserveError == 0)
            return;
        // What there is.
        for (off_t size = kReserveSize / 2; mReserve != -1 && size >= kReserveSize / 8; size /= 2)
            if (posix_fallocate(mReserve, 0, size) == 0)
                return;
        releaseReserve();
    }
}

void JournalFiles::releaseReserve()
{
    if (mReserve != -1)
        close(std::exchange(mReserve, -1));
}
