#include "SystemChecks.h"

#include "CfgPaths.h"
#include "ClientSocket.h"
#include "PolicyRules.h"
#include "base/Descriptor.h"
#include "base/RegularFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <json/json.h>
#include <pwd.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace
{

constexpr char kFifo[] = "/tmp/sockDbg";
constexpr char kQueueLength[] = "/proc/sys/net/unix/max_dgram_qlen";
constexpr int kLeastQueueLength = 64;
constexpr char kSetQueueLength[] = "sysctl -w " SYSMGT_QUEUE_LENGTH; // as the package does
constexpr unsigned long kLeastFree = 1 << 20; // bytes: a catalogue twice, and a configuration

std::string reason(int error) { return std::string(": ") + strerror(error); }

bool exists(const std::string& path, struct stat& status)
{
    return lstat(path.c_str(), &status) == 0;
}

/// A missing right is this user's trouble, not the device's.
Finding cannotAsk(const char* socket, int error)
{
    const bool isForbidden = error == EACCES || error == EPERM;
    return {!isForbidden, std::string("cannot ask on ") + socket + reason(error),
            isForbidden ? "run as root" : std::string("see who serves it: fuser ") + socket,
            std::string("ls -l ") + socket};
}

void checkDaemonSocket(Findings& found)
{
    struct stat status;
    const int error = probe(kCfgSocket);
    if (!exists(kCfgSocket, status))
        found.push_back({true, std::string("CfgManager does not run: there is no ") + kCfgSocket,
                         "start it: systemctl start cfgmanager", "systemctl start cfgmanager"});
    else if (!S_ISSOCK(status.st_mode))
        found.push_back({true, std::string(kCfgSocket) + " is no socket, CfgManager cannot start",
                         "remove it, then systemctl restart cfgmanager",
                         std::string("ls -ld ") + kCfgSocket});
    else if (error == ECONNREFUSED)
        found.push_back(
            {true, std::string(kCfgSocket) + " is stale: the CfgManager that made it has ended",
             "see why in the log (cfgctl log), then systemctl restart cfgmanager",
             "systemctl restart cfgmanager"});
    else if (error != 0)
        found.push_back(cannotAsk(kCfgSocket, error));
}

void checkChannelManager(Findings& found)
{
    const int error = probe(kChanSocket);
    if (error == EACCES)
        found.push_back(cannotAsk(kChanSocket, error));
    else if (error != 0)
        found.push_back({true,
                         std::string("no channel manager serves ") + kChanSocket +
                             ": nothing can be saved or started",
                         "start the channel manager", std::string("ls -l ") + kChanSocket});
}

/// A daemon that starts waits for a reader of the FIFO.
void checkLog(Findings& found)
{
    const Descriptor fifo(open(kFifo, O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
    const int error = errno;
    struct stat status;
    if (!exists(kFifo, status))
        found.push_back({false, std::string("nothing is logged: there is no ") + kFifo,
                         "start dbgcollect, then the daemons anew"});
    else if (!S_ISFIFO(status.st_mode))
        found.push_back({true, std::string(kFifo) + " is no FIFO, daemons that start write into it",
                         "remove it, start dbgcollect, then the daemons anew",
                         std::string("ls -ld ") + kFifo});
    else if (!fifo.isOpen() && error == ENXIO)
        found.push_back({true,
                         std::string("nobody reads ") + kFifo +
                             ": daemons that start wait for a "
                             "reader",
                         "start dbgcollect: systemctl start dbgcollect",
                         "systemctl start dbgcollect"});
    else if (!fifo.isOpen())
        found.push_back(
            {false, std::string("cannot look into ") + kFifo + reason(error), "run as root"});
}

/// The daemon's catalogue, or the factory's. A missing stored one is no fault: the first change
/// makes it.
void checkCatalogue(const std::string& path, bool isRequired, const char* advice, Findings& found)
{
    const Descriptor file(openRegularFile(path));
    const int error = errno;
    if (!file.isOpen() && error == ENOENT && !isRequired)
        return;
    if (!file.isOpen()) {
        found.push_back({error != EACCES, "cannot read " + path + reason(error),
                         error == EACCES ? "run as root" : advice, "ls -l " + path});
        return;
    }
    std::string text;
    readToEnd(file.get(), text);
    Json::Value catalogue;
    std::string errors;
    std::istringstream stream(text);
    bool isJson = false;
    try {
        isJson = Json::parseFromStream(Json::CharReaderBuilder(), stream, &catalogue, &errors);
    } catch (const Json::Exception&) { // nested too deeply
    }
    if (isJson && catalogue.isObject() && catalogue["dataset"] == "CfgDataSet" &&
        catalogue["components"].isObject() &&
        catalogue["components"].isMember("ConfigurationsTable"))
        return;
    found.push_back({true, path + " is no catalogue" + (isJson ? "" : ": it is no JSON"), advice,
                     "cfgctl validate " + path});
}

void checkCatalogues(Findings& found)
{
    checkCatalogue(kStoredCatalogue, false,
                   "restart CfgManager: it puts the file aside and takes the rows from the files; "
                   "or restore an archive",
                   found);
    checkCatalogue(kFactoryCatalogue, true, "install the package cfgmanager anew", found);
    struct stat status;
    if (exists(kDamagedCatalogue, status))
        found.push_back(
            {false, std::string("an earlier start found a bad catalogue: ") + kDamagedCatalogue,
             "take from it what is missing, and remove it"});
}

void checkDisk(Findings& found)
{
    if (const auto trouble = diskTrouble())
        found.push_back(*trouble);
}

/// Who the daemon is: the owner of its socket.
struct User {
    uid_t id;
    std::vector<gid_t> groups;

    bool mayWrite(const struct stat& status) const
    {
        if (id == 0)
            return true;
        if (status.st_uid == id)
            return (status.st_mode & S_IWUSR) != 0;
        if (std::ranges::count(groups, status.st_gid) > 0)
            return (status.st_mode & S_IWGRP) != 0;
        return (status.st_mode & S_IWOTH) != 0;
    }
};

User userOf(uid_t id)
{
    User user{id, {}};
    if (const passwd* const account = getpwuid(id)) {
        int count = 256;
        user.groups.resize(static_cast<std::size_t>(count));
        getgrouplist(account->pw_name, account->pw_gid, user.groups.data(), &count);
        user.groups.resize(static_cast<std::size_t>(std::clamp(count, 0, 256)));
    }
    return user;
}

/// The catalogue is replaced by a new file, or written in place where the directory takes none.
void checkRights(Findings& found)
{
    struct stat socket, directory, catalogue;
    if (!exists(kCfgSocket, socket) || !exists(kCfgDir, directory))
        return; // there are other findings
    const User daemon = userOf(socket.st_uid);
    const bool hasCatalogue = exists(kStoredCatalogue, catalogue);
    const bool isHeld = (directory.st_mode & S_ISVTX) != 0 && directory.st_uid != daemon.id &&
                        hasCatalogue && catalogue.st_uid != daemon.id && daemon.id != 0;
    const bool canReplace = daemon.mayWrite(directory) && !isHeld;
    if (canReplace || (hasCatalogue && daemon.mayWrite(catalogue)))
        return;
    const std::string owner = std::to_string(daemon.id);
    found.push_back(
        {true, "CfgManager (user " + owner + ") may not write " + kStoredCatalogue,
         "chown " + owner + ' ' + kCfgDir + (hasCatalogue ? ' ' + kStoredCatalogue : "")});
}

void checkQueue(Findings& found)
{
    std::ifstream file(kQueueLength);
    int length = 0;
    if (file >> length && length < kLeastQueueLength)
        found.push_back({false,
                         "a socket queues " + std::to_string(length) +
                             " datagrams only: requests of many clients wait, and events are lost",
                         kSetQueueLength});
}

std::optional<uid_t> findUser(const std::string& name)
{
    const passwd* const account = getpwnam(name.c_str());
    return account == nullptr ? std::nullopt : std::optional(account->pw_uid);
}

std::optional<GroupAccount> findGroup(const std::string& name)
{
    const group* const account = getgrnam(name.c_str());
    return account == nullptr
               ? std::nullopt
               : std::optional(GroupAccount{account->gr_gid, {}}); // members: no fault
}

/// The daemon lets in nobody but root while it cannot read or understand the file.
void checkPolicy(Findings& found)
{
    const Descriptor file(openRegularFile(kPolicyFile));
    const int error = errno;
    if (!file.isOpen() && error == ENOENT)
        return;
    std::string text, fault;
    if (!file.isOpen())
        fault = strerror(error);
    else if (readToEnd(file.get(), text) == 0)
        PolicyRules::parse(text, {findUser, findGroup}, fault);
    std::ranges::replace(fault, '\n', ' ');
    if (!fault.empty())
        found.push_back({error != EACCES || file.isOpen(),
                         std::string("the policy is broken, only root may do anything: ") +
                             kPolicyFile + ": " + fault,
                         std::string("mend it; it takes effect at once: ") + kPolicyFile,
                         std::string("vi ") + kPolicyFile});
}

constexpr void (*kChecks[])(Findings&) = {checkDaemonSocket, checkPolicy,     checkChannelManager,
                                          checkLog,          checkCatalogues, checkDisk,
                                          checkRights,       checkQueue};

} // namespace

Findings checkSystem()
{
    Findings found;
    for (const auto check : kChecks)
        check(found);
    return found;
}

std::optional<Finding> diskTrouble()
{
    struct statvfs disk;
    if (statvfs(kCfgDir, &disk) == -1)
        return Finding{errno != EACCES, std::string("cannot look at ") + kCfgDir + reason(errno),
                       errno == EACCES ? "run as root" : "mount the disk, restart CfgManager",
                       std::string("ls -ld ") + kCfgDir};
    if ((disk.f_flag & ST_RDONLY) != 0)
        return Finding{true, std::string(kCfgDir) + " is read-only: nothing can be saved",
                       "see why (dmesg), then mount it writable", "dmesg"};
    if (disk.f_bavail * disk.f_frsize < kLeastFree || (disk.f_files > 0 && disk.f_favail == 0))
        return Finding{true, std::string("the disk of ") + kCfgDir + " is full",
                       "remove what is not needed; CfgManager stores again by itself",
                       std::string("df -h ") + kCfgDir};
    return std::nullopt;
}

bool isCollecting()
{
    const Descriptor fifo(open(kFifo, O_WRONLY | O_NONBLOCK | O_CLOEXEC)); // not without a reader
    struct stat status;
    return fifo.isOpen() && fstat(fifo.get(), &status) == 0 && S_ISFIFO(status.st_mode);
}
