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

/// Puts a stream's text out to a descriptor through one small buffer, and keeps the first error.
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
int writeThrough(int fd, const std::function<void(std::ostream&)>& write)
{
    FdBuffer buffer(fd);
    std::ostream stream(&buffer);
    write(stream);
    stream.flush();
    if (buffer.error() != 0)
        return buffer.error();
    if (!stream.good())
        return EIO;
    return fsync(fd) == 0 || errno == EINVAL ? 0 : errno; // a device may know no sync
}

/// The directory and the name in it that a path stands for.
struct Place {
    explicit Place(const std::string& path)
    {
        const std::size_t slash = path.rfind('/');
        directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        name = slash == std::string::npos ? path : path.substr(slash + 1);
    }

    std::string directory;
    std::string name;
};

/// The short-lived name of a file. It tells the directory by its inode, since it may stand outside
/// of it, and it is always the same, so that a left-over is found by the next store.
std::string tempFileName(int directory, const std::string& name)
{
    struct stat status {
    };
    fstat(directory, &status);
    const std::string end = "." + std::to_string(status.st_ino) + std::string(kTempSuffix);
    return "." + name.substr(0, NAME_MAX - 1 - end.size()) + end;
}

/// What it takes to give an unnamed file a name and to rename it over the old file.
struct Placing {
    int file;
    const char* path; // of the unnamed file, under /proc
    int staging;      // where the name stands meanwhile, if it can: the parent directory
    int directory;
    const char* tempName;
    const char* name;
    int error;
};

#define NO_SANITIZE __attribute__((no_sanitize("address", "thread", "undefined")))

/// The direct way needs a capability, the way through /proc needs /proc.
NO_SANITIZE long linkUnnamed(const Placing& placing, int into)
{
    if (syscall(SYS_linkat, placing.file, "", into, placing.tempName, AT_EMPTY_PATH) == 0)
        return 0;
    if (errno == EEXIST)
        return -1;
    return syscall(SYS_linkat, AT_FDCWD, placing.path, into, placing.tempName, AT_SYMLINK_FOLLOW);
}

NO_SANITIZE bool nameIn(const Placing& placing, int into)
{
    if (linkUnnamed(placing, into) == 0)
        return true;
    if (errno != EEXIST)
        return false;
    syscall(SYS_unlinkat, into, placing.tempName, 0); // left by a crash
    return linkUnnamed(placing, into) == 0;
}

/// Only system calls: it runs on the memory of a process whose other threads run on.
NO_SANITIZE int putInPlace(Placing& placing)
{
    int through = placing.staging;
    if (!nameIn(placing, through)) {
        through = placing.directory;
        if (!nameIn(placing, through))
            return placing.error = errno;
    }
    if (syscall(SYS_renameat, through, placing.tempName, placing.directory, placing.name) == 0)
        return placing.error = 0;
    placing.error = errno;
    syscall(SYS_unlinkat, through, placing.tempName, 0);
    return placing.error;
}

/// False when the child has been taken away, by a process that ignores its children.
bool waitForChild(pid_t child, int& status)
{
    while (waitpid(child, &status, 0) == -1)
        if (errno != EINTR)
            return false;
    return true;
}

/// A SIGKILL between the two steps would leave the short-lived name. So a child takes them, which
/// lives on and finishes. It shares the memory instead of copying it, and this thread stands still
/// until it has ended. And because somebody may look into the directory before that, the name
/// stands in the parent directory where the two are one file system.
int putInPlaceByChild(Placing& placing)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // the child must not run our signal handlers
    const pid_t child = vfork();
    if (child == 0)
        syscall(SYS_exit_group, putInPlace(placing)); // _exit() itself may be more than a call
    int status = 0;
    if (child == -1)
        putInPlace(placing);
    else if (waitForChild(child, status) && WIFEXITED(status))
        placing.error = WEXITSTATUS(status);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return placing.error;
}

/// The new file on its way: without a name where the file system can do that, else under the
/// short-lived one. It vanishes unless it is put in place.
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

    int takePlace()
    {
        if (mNamed) {
            if (renameat(mDirectory, mTempName.c_str(), mDirectory, mName.c_str()) != 0)
                return errno;
            mNamed = false;
            return 0;
        }
        const std::string path = "/proc/self/fd/" + std::to_string(mFd);
        const Descriptor staging(openat(mDirectory, "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
        Placing placing{mFd,           path.c_str(), staging.get(), mDirectory, mTempName.c_str(),
                        mName.c_str(), ECHILD};
        return putInPlaceByChild(placing);
    }

private:
    int mDirectory;
    std::string mName;
    std::string mTempName;
    int mFd;
    bool mNamed = false;
};

/// `old` is the file to be replaced, null when there is none.
int replaceFile(const Place& place, const struct stat* old,
                const std::function<void(std::ostream&)>& write)
{
    const Descriptor directory(open(place.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.isOpen())
        return errno;
    NewFile file(directory.get(), place.name);
    if (file.fd() == -1)
        return errno;
    if (old != nullptr && (fchown(file.fd(), old->st_uid, old->st_gid) != 0 ||
                           fchmod(file.fd(), old->st_mode & 07777) != 0))
        return errno;
    if (const int error = writeThrough(file.fd(), write); error != 0)
        return error;
    if (const int error = file.takePlace(); error != 0)
        return error;
    fsync(directory.get()); // not every file system can; the new file stands all the same
    return 0;
}

int writeInPlace(const std::string& path, const Place& place,
                 const std::function<void(std::ostream&)>& write)
{
    const Descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kNewFileMode));
    if (!file.isOpen())
        return errno;
    const int error = writeThrough(file.get(), write);
    const Descriptor directory(open(place.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.isOpen())
        fsync(directory.get());
    return error;
}

/// Errors that say that the file cannot be replaced, but perhaps written.
bool forbidsReplacing(int error) { return error == EACCES || error == EPERM || error == EBUSY; }

} // namespace

int replaceFileAtomically(const std::string& path, const std::function<void(std::ostream&)>& write)
{
    const Place place(path);
    struct stat old {
    };
    const bool exists = lstat(path.c_str(), &old) == 0;
    if (exists && !S_ISREG(old.st_mode))
        return writeInPlace(path, place, write);
    const int error = replaceFile(place, exists ? &old : nullptr, write);
    return forbidsReplacing(error) ? writeInPlace(path, place, write) : error;
}

bool isTempFileName(std::string_view fileName)
{
    return fileName.size() > 1 + kTempSuffix.size() && fileName.starts_with('.') &&
           fileName.ends_with(kTempSuffix);
}
