#include "base/AtomicFile.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <ostream>
#include <streambuf>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr mode_t kNewFileMode = 0666; // less the umask
constexpr std::string_view kTempSuffix = ".~storing";

class Descriptor
{
public:
    explicit Descriptor(int fd) : mFd(fd) {}
    ~Descriptor()
    {
        if (mFd >= 0)
            close(mFd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return mFd; }
    bool isOpen() const { return mFd >= 0; }

private:
    int mFd;
};

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
            const ssize_t put = ::write(mFd, from, static_cast<std::size_t>(pptr() - from));
            if (put >= 0)
                from += put;
            else if (errno != EINTR)
                mError = errno;
        }
        setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
        return mError == 0 ? 0 : -1;
    }

private:
    int mFd;
    int mError = 0;
    std::array<char, 1 << 16> mBuffer;
};

/// Writes everything and waits until it is on the disk.
int writeAndSync(int fd, const std::function<void(std::ostream&)>& write)
{
    FdBuffer buffer(fd);
    std::ostream stream(&buffer);
    write(stream);
    stream.flush();
    if (buffer.error() != 0)
        return buffer.error();
    if (!stream.good())
        return EIO;
    return fsync(fd) == 0 || errno == EINVAL ? 0 : errno; // not every device can sync
}

/// The directory and the file name of a path.
struct PathParts {
    explicit PathParts(const std::string& path)
    {
        const std::size_t slash = path.rfind('/');
        directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        name = slash == std::string::npos ? path : path.substr(slash + 1);
    }

    std::string directory;
    std::string name;
};

/// The temporary name of a file. It contains the inode of the directory, because the name may be
/// used in the parent directory, and it is always the same, so that the next write of the file
/// finds and replaces a stale one.
std::string tempFileName(int directory, const std::string& name)
{
    struct stat status {
    };
    fstat(directory, &status);
    const std::string end = "." + std::to_string(status.st_ino) + std::string(kTempSuffix);
    return "." + name.substr(0, NAME_MAX - 1 - end.size()) + end;
}

/// What is needed to link an unnamed file under a temporary name and to rename it over the old
/// file. Plain pointers and descriptors, because a vfork() child works on it.
struct Replacement {
    int file;
    const char* path; // of the unnamed file, under /proc
    int staging;      // directory in which the new file gets its name first: the parent
    int directory;    // of the old file; takes the place of `staging` where that cannot be used
    const char* tempName;
    const char* name;
    int error;
};

#define NO_SANITIZE __attribute__((no_sanitize("address", "thread", "undefined")))

/// AT_EMPTY_PATH needs a capability; the link through /proc needs a mounted /proc.
NO_SANITIZE long linkUnnamed(const Replacement& replacement, int into)
{
    if (syscall(SYS_linkat, replacement.file, "", into, replacement.tempName, AT_EMPTY_PATH) == 0)
        return 0;
    if (errno == EEXIST)
        return -1;
    return syscall(SYS_linkat, AT_FDCWD, replacement.path, into, replacement.tempName,
                   AT_SYMLINK_FOLLOW);
}

NO_SANITIZE bool linkIn(const Replacement& replacement, int into)
{
    if (linkUnnamed(replacement, into) == 0)
        return true;
    if (errno != EEXIST)
        return false;
    syscall(SYS_unlinkat, into, replacement.tempName, 0); // left by a crash
    return linkUnnamed(replacement, into) == 0;
}

/// Only system calls: it runs in a vfork() child, which shares its memory with running threads.
NO_SANITIZE int linkAndRename(Replacement& replacement)
{
    int linkedIn = replacement.staging;
    if (!linkIn(replacement, linkedIn)) {
        linkedIn = replacement.directory;
        if (!linkIn(replacement, linkedIn))
            return replacement.error = errno;
    }
    if (syscall(SYS_renameat, linkedIn, replacement.tempName, replacement.directory,
                replacement.name) == 0)
        return replacement.error = 0;
    replacement.error = errno;
    syscall(SYS_unlinkat, linkedIn, replacement.tempName, 0);
    return replacement.error;
}

/// False when there is no status: a process that ignores SIGCHLD has its children reaped.
bool waitForChild(pid_t child, int& status)
{
    while (waitpid(child, &status, 0) == -1)
        if (errno != EINTR)
            return false;
    return true;
}

/// A SIGKILL between link and rename would leave the temporary name behind. So a child does both:
/// it survives its parent and finishes. It comes from vfork(), which copies no memory and suspends
/// this thread until the child has ended. Because the directory may be listed before that, the
/// temporary name is in the parent directory where the two are on one file system.
int linkAndRenameInChild(Replacement& replacement)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // the child must not run our signal handlers
    const pid_t child = vfork();
    if (child == 0)
        syscall(SYS_exit_group,
                linkAndRename(replacement)); // _exit() itself may be more than a call
    int status = 0;
    if (child == -1)
        linkAndRename(replacement);
    else if (waitForChild(child, status) && WIFEXITED(status))
        replacement.error = WEXITSTATUS(status);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return replacement.error;
}

/// The new file before it replaces the old one: without a name where the file system supports that,
/// else under the temporary name. It is removed unless it is moved into place.
class NewFile
{
public:
    NewFile(int directory, const std::string& name)
        : mDirectory(directory), mName(name), mTempName(tempFileName(directory, name)),
          mFd(openat(directory, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, kNewFileMode))
    {
        if (mFd != -1 || (errno != EOPNOTSUPP && errno != EISDIR))
            return;
        unlinkat(directory, mTempName.c_str(), 0); // left by a crash
        mFd = openat(directory, mTempName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                     kNewFileMode);
        mNamed = mFd != -1;
    }

    ~NewFile()
    {
        if (mNamed)
            unlinkat(mDirectory, mTempName.c_str(), 0);
        if (mFd != -1)
            close(mFd);
    }

    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    int fd() const { return mFd; }

    int moveIntoPlace()
    {
        if (mNamed) {
            if (renameat(mDirectory, mTempName.c_str(), mDirectory, mName.c_str()) != 0)
                return errno;
            mNamed = false;
            return 0;
        }
        const std::string path = "/proc/self/fd/" + std::to_string(mFd);
        const Descriptor staging(openat(mDirectory, "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
        Replacement replacement{
            mFd, path.c_str(), staging.get(), mDirectory, mTempName.c_str(), mName.c_str(), ECHILD};
        return linkAndRenameInChild(replacement);
    }

private:
    int mDirectory;
    std::string mName;
    std::string mTempName;
    int mFd;
    bool mNamed = false;
};

/// `old` is the file to be replaced, null when there is none.
int replaceFile(const PathParts& parts, const struct stat* old,
                const std::function<void(std::ostream&)>& write)
{
    const Descriptor directory(open(parts.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.isOpen())
        return errno;
    NewFile file(directory.get(), parts.name);
    if (file.fd() == -1)
        return errno;
    if (old != nullptr && (fchown(file.fd(), old->st_uid, old->st_gid) != 0 ||
                           fchmod(file.fd(), old->st_mode & 07777) != 0))
        return errno;
    if (const int error = writeAndSync(file.fd(), write); error != 0)
        return error;
    if (const int error = file.moveIntoPlace(); error != 0)
        return error;
    fsync(directory.get()); // not every file system can; the new file is in place nevertheless
    return 0;
}

int writeInPlace(const std::string& path, const PathParts& parts,
                 const std::function<void(std::ostream&)>& write)
{
    const Descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kNewFileMode));
    if (!file.isOpen())
        return errno;
    const int error = writeAndSync(file.get(), write);
    const Descriptor directory(open(parts.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.isOpen())
        fsync(directory.get());
    return error;
}

/// Errors after which the file may still be writable in place.
bool forbidsReplacing(int error) { return error == EACCES || error == EPERM || error == EBUSY; }

} // namespace

int replaceFileAtomically(const std::string& path, const std::function<void(std::ostream&)>& write)
{
    const PathParts parts(path);
    struct stat old {
    };
    const bool exists = lstat(path.c_str(), &old) == 0;
    if (exists && !S_ISREG(old.st_mode))
        return writeInPlace(path, parts, write);
    const int error = replaceFile(parts, exists ? &old : nullptr, write);
    return forbidsReplacing(error) ? writeInPlace(path, parts, write) : error;
}

bool isTempFileName(std::string_view fileName)
{
    return fileName.size() > 1 + kTempSuffix.size() && fileName.starts_with('.') &&
           fileName.ends_with(kTempSuffix);
}
