#include "base/AtomicFile.h"

#include "base/Descriptor.h"
#include "base/RegularFile.h"
#include "base/Sigpipe.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <ostream>
#include <streambuf>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Write = std::function<void(std::ostream&)>;

constexpr mode_t kNewFileMode = 0666; // less the umask
constexpr mode_t kAccess = 0777;
constexpr mode_t kSetIds = S_ISUID | S_ISGID;
constexpr mode_t kOfGroup = S_IRWXG;
constexpr uid_t kAsItIs = static_cast<uid_t>(-1);
constexpr std::string_view kTempSuffix = ".~storing";
constexpr int kMostLinks = 40;
constexpr off_t kLargestKept = 64 << 20; // what is kept in memory while it is overwritten

/// Writes a stream to a descriptor through one small buffer and keeps the first error.
class FdBuffer : public std::streambuf
{
public:
    explicit FdBuffer(int fd) : mFd(fd) { setp(mBuffer.data(), mBuffer.data() + mBuffer.size()); }

    int error() const { return mError; }

protected:
    int_type overflow(int_type next) override
    {
        if (sync() != 0)
            return traits_type::eof();
        if (!traits_type::eq_int_type(next, traits_type::eof()))
            sputc(traits_type::to_char_type(next));
        return traits_type::not_eof(next);
    }

    int sync() override
    {
        for (const char* from = pbase(); from < pptr() && mError == 0;) {
            const auto left = static_cast<std::size_t>(pptr() - from);
            const ssize_t put = uninterrupted([&] { return ::write(mFd, from, left); });
            if (put == -1)
                mError = errno;
            else
                from += put;
        }
        setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
        return mError == 0 ? 0 : -1;
    }

private:
    int mFd;
    int mError = 0;
    std::array<char, 1 << 16> mBuffer;
};

int writeAll(int fd, const Write& write)
{
    FdBuffer buffer(fd);
    std::ostream stream(&buffer);
    write(stream);
    stream.flush();
    if (buffer.error() != 0)
        return buffer.error();
    return stream.good() ? 0 : EIO;
}

/// Waits until what was written is on the disk. Not everything that can be written can be synced.
int syncToDisk(int fd)
{
    return uninterrupted([&] { return fsync(fd); }) == 0 || errno == EINVAL ? 0 : errno;
}

int writeAndSync(int fd, const Write& write)
{
    const int error = writeAll(fd, write);
    return error == 0 ? syncToDisk(fd) : error;
}

int openFile(const std::string& path, int flags)
{
    return uninterrupted([&] { return open(path.c_str(), flags | O_CLOEXEC); });
}

void removeEntry(int directory, const char* name)
{
    uninterrupted([&] { return unlinkat(directory, name, 0); });
}

/// The directory, with its slash, and the file name of a path.
struct PathParts {
    explicit PathParts(const std::string& path)
    {
        const std::size_t slash = path.rfind('/');
        directory = slash == std::string::npos ? "./" : path.substr(0, slash + 1);
        name = slash == std::string::npos ? path : path.substr(slash + 1);
    }

    std::string directory;
    std::string name;
};

/// The file that a path leads to in the end.
struct Target {
    std::string path;
    struct stat status {
    };
    bool exists = false;
};

/// A link that somebody has put where all may put something, for others to fall into.
bool isForeignLink(const struct stat& link, const std::string& directory)
{
    struct stat shared {
    };
    constexpr mode_t kShared = S_ISVTX | S_IWOTH;
    return uninterrupted([&] { return stat(directory.c_str(), &shared); }) != 0 ||
           ((shared.st_mode & kShared) == kShared && link.st_uid != geteuid() &&
            link.st_uid != shared.st_uid);
}

/// Follows the links at the end of the path, one by one; those before are the kernel's business.
int followLinks(Target& target)
{
    for (int links = 0; links <= kMostLinks; ++links) {
        const Descriptor entry(openFile(target.path, O_PATH | O_NOFOLLOW));
        if (!entry.isOpen() && errno == ENOENT)
            return 0;
        if (!entry.isOpen() ||
            uninterrupted([&] { return fstat(entry.get(), &target.status); }) != 0)
            return errno;
        target.exists = !S_ISLNK(target.status.st_mode);
        if (target.exists)
            return 0;
        const std::string directory = PathParts(target.path).directory;
        if (isForeignLink(target.status, directory))
            return EACCES;
        std::array<char, PATH_MAX> text;
        const ssize_t length =
            uninterrupted([&] { return readlinkat(entry.get(), "", text.data(), text.size()); });
        if (length == -1)
            return errno;
        const std::string link(text.data(), static_cast<std::size_t>(length));
        target.path = link.starts_with('/') ? link : directory + link;
    }
    return ELOOP;
}

bool isSame(const Target& target, const struct stat& other)
{
    return target.exists && target.status.st_dev == other.st_dev &&
           target.status.st_ino == other.st_ino;
}

/// The temporary name of a file. It contains the inode of the directory, because the name may be
/// used in the parent directory, and it is always the same, so that the next write of the file
/// finds and replaces a stale one.
std::string tempFileName(const std::string& name, std::string_view inode)
{
    const std::string end = "." + std::string(inode) + std::string(kTempSuffix);
    return "." + name.substr(0, NAME_MAX - 1 - std::min<std::size_t>(end.size(), NAME_MAX - 1)) +
           end;
}

std::string tempFileName(const std::string& name, int directory)
{
    struct stat status {
    };
    fstat(directory, &status);
    return tempFileName(name, std::to_string(status.st_ino));
}

/// The new file before it replaces the old one. It is removed unless it is moved into place.
class NewFile
{
public:
    enum class Form {
        Unnamed, // a kill leaves nothing of it while it is written; not every file system has it
        Named    // has the temporary name from the beginning
    };

    NewFile(Form form, int directory, const std::string& name, mode_t mode)
        : mDirectory(directory), mName(name), mTempName(tempFileName(name, directory))
    {
        const auto create = [&](const char* path, int flags) {
            return uninterrupted(
                [&] { return openat(directory, path, flags | O_WRONLY | O_CLOEXEC, mode); });
        };
        if (form == Form::Unnamed) {
            mFd = create(".", O_TMPFILE);
        } else {
            removeEntry(directory, mTempName.c_str()); // left by a crash
            mFd = create(mTempName.c_str(), O_CREAT | O_EXCL);
            mNamed = mFd != -1;
        }
    }

    ~NewFile()
    {
        if (mNamed)
            removeEntry(mDirectory, mTempName.c_str());
        if (mFd != -1)
            close(mFd);
    }

    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    int fd() const { return mFd; }

    /// True when the unnamed file got a name, and only the renaming can have failed.
    bool wasLinked() const { return mLinked; }

    /// A kill between the two steps of an unnamed file leaves it under its temporary name. Because
    /// the directory may be listed at any time, that is in the parent directory where the two are
    /// on one file system.
    int moveIntoPlace()
    {
        if (mNamed)
            return rename(mDirectory);
        const Descriptor parent(uninterrupted(
            [&] { return openat(mDirectory, "..", O_PATH | O_DIRECTORY | O_CLOEXEC); }));
        if (linkIn(parent.get()))
            return rename(parent.get());
        return linkIn(mDirectory) ? rename(mDirectory) : errno;
    }

private:
    /// AT_EMPTY_PATH needs a capability; the link through /proc needs a mounted /proc.
    bool linkOnceIn(int directory) const
    {
        const auto link = [&](int from, const char* path, int flag) {
            return uninterrupted(
                       [&] { return linkat(from, path, directory, mTempName.c_str(), flag); }) == 0;
        };
        const std::string path = "/proc/self/fd/" + std::to_string(mFd);
        return link(mFd, "", AT_EMPTY_PATH) ||
               (errno != EEXIST && link(AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW));
    }

    bool linkIn(int directory)
    {
        mLinked = linkOnceIn(directory);
        if (!mLinked && errno == EEXIST) {
            removeEntry(directory, mTempName.c_str()); // left by a kill
            mLinked = linkOnceIn(directory);
        }
        return mLinked;
    }

    int rename(int from)
    {
        if (uninterrupted([&] {
                return renameat(from, mTempName.c_str(), mDirectory, mName.c_str());
            }) == 0) {
            mNamed = false;
            return 0;
        }
        const int error = errno;
        removeEntry(from, mTempName.c_str());
        return error;
    }

    int mDirectory;
    std::string mName;
    std::string mTempName;
    int mFd;
    bool mNamed = false; // has its temporary name from the beginning
    bool mLinked = false;
};

/// Gives the file what the old one has, as far as this process may. Rights that were meant for
/// another group or owner are left out.
void keepOwnerAndMode(int fd, const struct stat& old)
{
    mode_t mode = old.st_mode & 07777;
    const auto give = [fd](uid_t owner, gid_t group) {
        return uninterrupted([&] { return fchown(fd, owner, group); }) == 0;
    };
    struct stat given {
    };
    if (!give(old.st_uid, old.st_gid) && fstat(fd, &given) == 0) {
        const bool hasGroup = given.st_gid == old.st_gid || give(kAsItIs, old.st_gid);
        if (!hasGroup)
            mode &= ~kOfGroup | (mode & S_IRWXO) << 3;
        if (!hasGroup || given.st_uid != old.st_uid)
            mode &= ~kSetIds;
    }
    uninterrupted([&] { return fchmod(fd, mode); });
}

/// A directory that may be written but not listed cannot be opened for syncing.
int openDirectory(const std::string& path)
{
    const int fd = openFile(path, O_RDONLY | O_DIRECTORY);
    return fd == -1 && errno == EACCES ? openFile(path, O_PATH | O_DIRECTORY) : fd;
}

int syncDirectory(int directory, int file)
{
    const int error = syncToDisk(directory);
    if (error != EBADF)
        return error;
    return uninterrupted([&] { return syncfs(file); }) == 0 ? 0 : errno;
}

/// What a directory answers that accepts no new file, or not in this place. A full disk is not
/// among it: the old file would be lost on it.
bool isRefusal(int error)
{
    return error == EACCES || error == EPERM || error == EBUSY || error == EROFS || error == EEXIST;
}

/// Where `inPlace` is set the target can only be written in place; that is not done yet.
FileWrite replaceFile(const Target& target, const Write& write)
{
    const PathParts parts(target.path);
    const Descriptor directory(openDirectory(parts.directory));
    if (!directory.isOpen())
        return {errno, isRefusal(errno) ? errno : 0};
    const mode_t mode = target.exists ? target.status.st_mode & kAccess : kNewFileMode;
    int error = 0;
    for (const auto form : {NewFile::Form::Unnamed, NewFile::Form::Named}) {
        NewFile file(form, directory.get(), parts.name, mode);
        error = file.fd() == -1 ? errno : 0;
        if (error != 0)
            continue;
        if (target.exists)
            keepOwnerAndMode(file.fd(), target.status);
        error = writeAndSync(file.fd(), write);
        if (error != 0)
            return {error, 0};
        error = file.moveIntoPlace();
        if (error == 0)
            return {syncDirectory(directory.get(), file.fd()), 0};
        if (file.wasLinked())
            break;
    }
    return {error, isRefusal(error) ? error : 0};
}

/// Overwrites from the beginning and cuts off what is left of a longer text.
int overwrite(int fd, const Write& write)
{
    if (lseek(fd, 0, SEEK_SET) == -1)
        return errno;
    if (const int error = writeAll(fd, write); error != 0)
        return error;
    const off_t length = lseek(fd, 0, SEEK_CUR);
    if (uninterrupted([&] { return ftruncate(fd, length); }) != 0)
        return errno;
    return syncToDisk(fd);
}

int writeInPlace(const std::string& path, const Write& write)
{
    const Descriptor file(openFile(path, O_WRONLY | O_NONBLOCK | O_NOCTTY));
    struct stat status {
    };
    if (!file.isOpen() || uninterrupted([&] { return fstat(file.get(), &status); }) != 0)
        return errno;
    if (!S_ISREG(status.st_mode)) {
        sigset_t before;
        const bool pendingBefore = holdSigpipe(before);
        const int error = writeAndSync(file.get(), write);
        releaseSigpipe(before, error == EPIPE && !pendingBefore);
        return error;
    }
    std::string old;
    const Descriptor reading(openRegularFile(path));
    const bool kept =
        status.st_size <= kLargestKept && reading.isOpen() && readToEnd(reading.get(), old) == 0;
    const int error = overwrite(file.get(), write);
    if (error != 0 && kept)
        overwrite(file.get(), [&old](std::ostream& out) { out << old; });
    return error;
}

bool isTempFileNameOf(const std::string& name, std::string_view fileName)
{
    if (!isTempFileName(fileName))
        return false;
    const std::string_view stem = fileName.substr(0, fileName.size() - kTempSuffix.size());
    const std::string_view inode = stem.substr(stem.rfind('.') + 1);
    return !inode.empty() && inode.find_first_not_of("0123456789") == std::string_view::npos &&
           fileName == tempFileName(name, inode);
}

} // namespace

FileWrite replaceFileAtomically(const std::string& path, const Write& write)
{
    struct stat reached {
    };
    const bool exists = uninterrupted([&] { return stat(path.c_str(), &reached); }) == 0;
    if (exists && !S_ISREG(reached.st_mode))
        return {writeInPlace(path, write)};
    Target target{path};
    if (const int error = followLinks(target); error != 0)
        return {error};
    if (target.exists && !S_ISREG(target.status.st_mode))
        return {writeInPlace(path, write)};
    // A link of the kernel's own, as those of open files are, does not lead to what it reads.
    if (exists && target.path != path && !isSame(target, reached))
        return {writeInPlace(path, write)};
    FileWrite result = replaceFile(target, write);
    if (!target.exists)
        result.inPlace = 0;
    if (result.inPlace != 0)
        result.error = writeInPlace(target.path, write);
    if (result.error == EROFS)
        result.inPlace = 0; // not even that was possible
    return result;
}

bool isTempFileName(std::string_view fileName)
{
    return fileName.size() > 1 + kTempSuffix.size() && fileName.starts_with('.') &&
           fileName.ends_with(kTempSuffix);
}

bool isTempFileNameIn(const std::string& directory, std::string_view fileName)
{
    struct stat status {
    };
    return isTempFileName(fileName) &&
           uninterrupted([&] { return stat(directory.c_str(), &status); }) == 0 &&
           fileName.ends_with('.' + std::to_string(status.st_ino) + std::string(kTempSuffix));
}

std::vector<std::string> removeStaleTempFiles(const std::string& path)
{
    std::vector<std::string> removed;
    const auto remove = [&removed](const std::string& file) {
        struct stat status {
        };
        if (lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
            unlink(file.c_str()) == 0)
            removed.push_back(file);
    };
    Target target{path};
    const PathParts parts(followLinks(target) == 0 ? target.path : path);
    DIR* const listing = opendir(parts.directory.c_str());
    if (listing == nullptr)
        return removed;
    const std::string ownName = tempFileName(parts.name, dirfd(listing));
    while (const dirent* entry = readdir(listing))
        if (isTempFileNameOf(parts.name, entry->d_name))
            remove(parts.directory + entry->d_name);
    closedir(listing);

    std::array<char, PATH_MAX> parent;
    if (realpath((parts.directory + "..").c_str(), parent.data()) != nullptr)
        remove(std::string(parent.data()) + '/' + ownName);
    return removed;
}
