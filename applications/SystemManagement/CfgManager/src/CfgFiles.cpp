#include "CfgFiles.h"

#include "CfgPaths.h"
#include "base/AtomicFile.h"
#include "base/Descriptor.h"
#include "base/RegularFile.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace
{

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

std::string escaped(std::string_view text, std::string_view special)
{
    std::string out;
    for (const char c : text) {
        if (special.find(c) != std::string_view::npos)
            out += '\\';
        out += c;
    }
    return out;
}

/// What the shell acts on between double quotes, and outside of any.
std::string escapeQuoted(std::string_view path) { return '"' + escaped(path, "\\\"$`") + '"'; }
std::string escapeUnquoted(std::string_view path)
{
    return escaped(path, " \t\n|&;<>()$`\\\"'*?[{");
}

std::string moveCommand(const std::string& source, const std::string& target)
{
    // mv would take a source that begins with a dash for an option.
    const char* const options = source.starts_with('-') ? "mv -f -- " : "mv -f ";
    return options + escapeQuoted(source) + ' ' + target;
}

bool isCatalogue(std::string_view path)
{
    return path == kStoredCatalogue || path == kLegacyCatalogue;
}

/// False when nothing is there; a look that fails for the moment is repeated.
bool look(const std::string& path, struct stat& info)
{
    return persistently([&] { return lstat(path.c_str(), &info); }) == 0;
}

bool lookBehindLinks(const std::string& path, struct stat& info)
{
    return persistently([&] { return stat(path.c_str(), &info); }) == 0;
}

/// What tells a file from another that has replaced it.
struct Identity {
    explicit Identity(const std::string& path)
    {
        struct stat info {
        };
        if (look(path, info))
            *this = Identity(info);
    }

    explicit Identity(const struct stat& info)
        : device(info.st_dev), inode(info.st_ino), changed(info.st_ctim.tv_sec),
          changedNs(info.st_ctim.tv_nsec)
    {
    }

    bool isSameFile(const Identity& other) const
    {
        return inode != 0 && device == other.device && inode == other.inode;
    }

    bool operator==(const Identity&) const = default;

    dev_t device = 0;
    ino_t inode = 0; // 0: nothing there
    time_t changed = 0;
    long changedNs = 0;
};

} // namespace

bool isConfigurationName(std::string_view name)
{
    if (name == "." || name == ".." || name.size() > NAME_MAX)
        return false;
    if (name.find('/') != std::string_view::npos || std::ranges::any_of(name, isControl))
        return false;
    if (name.find_first_not_of(" \t") == std::string_view::npos)
        return false;
    const std::string path = configurationPath(name);
    return !isCatalogue(path) && path != kChangesInside && !isTempFileName(name);
}

std::string configurationPath(std::string_view name)
{
    return std::string(kCfgDir).append("/").append(name);
}

bool isInCfgDir(std::string_view path)
{
    const std::string directory = configurationPath("");
    if (!path.starts_with(directory) || isCatalogue(path))
        return false;
    const std::string_view name = path.substr(directory.size());
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

bool removeConfigurationFile(const std::string& path)
{
    if (!isInCfgDir(path)) {
        errno = EPERM;
        return false;
    }
    return persistently([&] { return unlink(path.c_str()); }) == 0;
}

bool pathExists(const std::string& path)
{
    struct stat info;
    return look(path, info);
}

bool findRegularFile(const std::string& path, std::time_t& modified)
{
    struct stat info;
    if (!lookBehindLinks(path, info) || !S_ISREG(info.st_mode))
        return false;
    modified = info.st_mtime;
    return true;
}

bool isRegularFile(const std::string& path)
{
    struct stat info;
    return look(path, info) && S_ISREG(info.st_mode);
}

bool isDirectory(const std::string& path)
{
    struct stat info;
    return look(path, info) && S_ISDIR(info.st_mode);
}

std::string bootId()
{
    std::string id;
    if (const Descriptor file(openRegularFile("/proc/sys/kernel/random/boot_id")); file.isOpen())
        readToEnd(file.get(), id);
    return id;
}

std::optional<FileStamp> stampOf(const std::string& path)
{
    struct stat info;
    if (!look(path, info))
        return std::nullopt;
    return FileStamp{info.st_size, info.st_mtim.tv_sec};
}

bool isSameFile(const std::string& left, const std::string& right)
{
    return Identity(left).isSameFile(Identity(right));
}

void syncFile(const std::string& path)
{
    const Descriptor file(
        persistently([&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    if (file.isOpen())
        persistently([&] { return fsync(file.get()); });
}

bool copyWhole(const std::string& path, const std::string& target)
{
    const std::string unfinished = target + ".new";
    std::error_code error;
    std::filesystem::copy_file(path, unfinished, std::filesystem::copy_options::overwrite_existing,
                               error);
    if (!error) {
        syncFile(unfinished);
        std::filesystem::rename(unfinished, target, error);
    }
    return !error;
}

std::string putAside(const std::string& path, const std::string& target, bool linkStays)
{
    struct stat info;
    if (linkStays && !lookBehindLinks(path, info)) // its target is not mounted yet
        return "";
    const bool isLink = linkStays && look(path, info) && S_ISLNK(info.st_mode);
    std::string aside = target;
    for (char number = '2'; number <= '9' && pathExists(aside); ++number)
        aside = target + '.' + number;
    if (!isLink && std::rename(path.c_str(), aside.c_str()) == 0)
        return aside;
    std::time_t modified = 0;
    return findRegularFile(path, modified) && copyWhole(path, aside) ? aside : "";
}

namespace
{

int openToRead(const std::string& path)
{
    return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
}

/// False for what would hold a copy up, like the kernel's own log or a file that another process
/// has a lease on, and for the records of changes and the suite's settings.
bool canBeRead(const std::string& path)
{
    struct statfs info;
    if (statfs(path.c_str(), &info) == 0)
        for (const auto magic : {PROC_SUPER_MAGIC, SYSFS_MAGIC, DEBUGFS_MAGIC, TRACEFS_MAGIC,
                                 CGROUP2_SUPER_MAGIC, SECURITYFS_MAGIC})
            if (info.f_type == magic)
                return false;
    std::error_code noPath;
    const auto directory = std::filesystem::canonical(path, noPath).parent_path();
    if (directory == kChangesBeside || directory == kChangesInside ||
        directory == std::filesystem::path(kPolicyFile).parent_path())
        return false;
    const Descriptor file(openToRead(path));
    return file.isOpen() || errno != EWOULDBLOCK;
}

/// Held by a move under way, also when it outlives the daemon that has begun it: the directory of
/// the records, of which each such move has one. Nobody else can open that, and so lock it.
int openMoveLock(int flags)
{
    for (const char* const place : {kChangesBeside, kChangesInside}) {
        const int lock = open(place, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | flags);
        struct stat info;
        if (lock != -1 && fstat(lock, &info) == 0 && info.st_uid == geteuid() &&
            (info.st_mode & (S_IRWXG | S_IRWXO)) == 0)
            return lock;
        if (lock != -1)
            close(lock);
    }
    return -1;
}

} // namespace

bool waitForMoves(std::chrono::milliseconds limit)
{
    const Descriptor lock(openMoveLock(O_CLOEXEC));
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (lock.isOpen() && flock(lock.get(), LOCK_EX | LOCK_NB) == -1 && errno != ENOSYS) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

bool FileMove::isAllowed() const
{
    struct stat info;
    if (!look(from, info))
        return false;
    std::time_t modified = 0;
    if (!S_ISREG(info.st_mode) && !(mayMoveLinks && findRegularFile(from, modified)))
        return false;
    if (!mayMoveLinks && !canBeRead(from))
        return false;
    return !look(to, info) || S_ISREG(info.st_mode) ||
           (S_ISLNK(info.st_mode) && !(lookBehindLinks(to, info) && S_ISDIR(info.st_mode)));
}

bool FileMove::run(std::time_t& modified) const
{
    if (!isAllowed())
        return false;
    // A file that is held open gets no lease any more, which would hold the command up.
    const Descriptor held(mayMoveLinks ? -1 : openToRead(from));
    if (!held.isOpen() && !mayMoveLinks && errno == EWOULDBLOCK)
        return false;
    const auto moved = stampOf(from);
    const Identity source(from);
    const Identity before(to);
    syncFile(from); // its name must not reach the disk before its bytes
    {
        const Descriptor lock(openMoveLock(0)); // the command inherits it
        if (lock.isOpen())
            flock(lock.get(), LOCK_SH | LOCK_NB);
        std::ignore = std::system(command.c_str()); // the files tell whether it worked
    }
    struct stat info;
    if (!look(to, info) || !(S_ISREG(info.st_mode) || mayMoveLinks) ||
        !findRegularFile(to, modified))
        return false;
    const Identity arrived(info);
    if (!before.isSameFile(source) && arrived == before)
        return false;
    // A copy to another file system was cut off when it is shorter and the source still there.
    if (!arrived.isSameFile(source) && Identity(from).isSameFile(source) &&
        (!moved || info.st_size != moved->size))
        return false;
    syncFile(to);
    syncFile(kCfgDir); // a row must not be there before its file
    return true;
}

FileMove importMove(const std::string& source, const std::string& name)
{
    const std::string target = configurationPath(name);
    return {source, target, moveCommand(source, escapeUnquoted(target)), false};
}

FileMove renameMove(const std::string& file, const std::string& newName)
{
    const std::string target = configurationPath(newName);
    return {file, target, moveCommand(file, escapeQuoted(target)), true};
}
