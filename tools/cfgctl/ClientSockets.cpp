#include "ClientSockets.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace
{

constexpr char kName[] = "/tmp/sockCfgctl.";
constexpr int kMaxClients = 1000;
constexpr mode_t kMode = 0711; // the manager, of any user, reaches the sockets; nobody else locks

// What the signal handler removes.
char gDirectory[sizeof(sockaddr_un::sun_path)];
char gReceivePath[sizeof(sockaddr_un::sun_path)];
char gSendPath[sizeof(sockaddr_un::sun_path)];

extern "C" void removeSockets()
{
    unlink(gReceivePath);
    unlink(gSendPath);
    rmdir(gDirectory);
}

extern "C" void removeSocketsAndExit(int signal)
{
    removeSockets();
    _exit(128 + signal);
}

/// Calls bind() or connect() on a new socket with the path: 0, or errno. The socket is left in
/// `descriptor`, to be closed in any case.
int openSocket(const std::string& path, int (*call)(int, const sockaddr*, socklen_t),
               int& descriptor)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return call(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
               ? 0
               : errno;
}

/// connect() to the path: 0, or errno.
int tryConnect(const std::string& path)
{
    int probe = -1;
    const int error = openSocket(path, connect, probe);
    close(probe);
    return error;
}

/// Makes the directory, or takes over one of this user's that no running client holds: locked until
/// the process ends, or -1.
int holdDirectory(const std::string& path)
{
    mkdir(path.c_str(), kMode);
    const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat held {
    };
    struct stat named {
    };
    if (fstat(directory, &held) == 0 && held.st_uid == geteuid() &&
        flock(directory, LOCK_EX | LOCK_NB) == 0 && fchmod(directory, kMode) == 0 &&
        // An ending client may have removed it before the lock was free.
        lstat(path.c_str(), &named) == 0 && named.st_ino == held.st_ino)
        return directory;
    close(directory);
    return -1;
}

/// The first free number's, or one with a name that nobody could foresee.
int holdDirectory(std::string& path)
{
    const std::string user = kName + std::to_string(geteuid()) + '.';
    for (int n = 0; n < kMaxClients; ++n) {
        path = user + std::to_string(n);
        if (const int directory = holdDirectory(std::as_const(path)); directory != -1)
            return directory;
    }
    path = user + "XXXXXX";
    return mkdtemp(path.data()) == nullptr ? -1 : holdDirectory(std::as_const(path));
}

} // namespace

ClientSockets::ClientSockets(
    const std::function<void(const std::string& receive, const std::string& send)>& bindBoth)
{
    std::string path;
    mDirectory = holdDirectory(path);
    if (mDirectory == -1)
        throw std::runtime_error("cannot make the directory " + path + ": " + std::strerror(errno));
    mReceivePath = path + "/receive";
    const std::string sendPath = path + "/send";
    path.copy(gDirectory, sizeof gDirectory - 1);
    mReceivePath.copy(gReceivePath, sizeof gReceivePath - 1);
    sendPath.copy(gSendPath, sizeof gSendPath - 1);
    for (const int ending : {SIGINT, SIGTERM, SIGHUP})
        std::signal(ending, removeSocketsAndExit);
    // Where it cannot bind, the communicator ends the process without a message: try first.
    close(bindSocket(mReceivePath));
    close(bindSocket(sendPath));
    bindBoth(mReceivePath, sendPath);
}

ClientSockets::~ClientSockets()
{
    removeSockets();
    close(mDirectory);
}

int bindSocket(const std::string& path)
{
    unlink(path.c_str());
    int descriptor = -1;
    const int error = openSocket(path, bind, descriptor);
    if (error == 0)
        return descriptor;
    close(descriptor);
    throw std::runtime_error("cannot make the socket " + path + ": " + std::strerror(error));
}

bool isServed(const std::string& path) { return tryConnect(path) == 0; }
