#include "ClientSocket.h"

#include "Failure.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
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
constexpr mode_t kMode = 0711; // the manager, of any user, reaches the socket; nobody else locks

/// Calls bind() or connect() with the path: 0, or errno.
int callWith(const std::string& path, int descriptor, int (*call)(int, const sockaddr*, socklen_t))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return ENAMETOOLONG;
    path.copy(address.sun_path, path.size());
    return call(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
               ? 0
               : errno;
}

int openSocket() { return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

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

ClientSocket::ClientSocket()
{
    std::string path;
    mDirectory = holdDirectory(path);
    if (mDirectory == -1)
        throw Failure(EXIT_INTERNAL,
                      "cannot make the directory " + path + ": " + std::strerror(errno),
                      "ls -la /tmp");
    mPath = path + "/socket";
    mDirectoryName.emplace(path);
    mSocketName.emplace(mPath);
    unlink(mPath.c_str());
    mSocket = openSocket();
    if (const int error = callWith(mPath, mSocket, bind); error != 0)
        throw Failure(EXIT_INTERNAL,
                      "cannot make the socket " + mPath + ": " + std::strerror(error),
                      "df -h /tmp");
    chmod(mPath.c_str(), 0777); // the daemon may run as another user
}

ClientSocket::~ClientSocket()
{
    mSocketName.reset(); // before the lock is free for another client
    mDirectoryName.reset();
    close(mSocket);
    close(mDirectory);
}

int ClientSocket::connectTo(const std::string& path) const
{
    return callWith(path, mSocket, connect);
}

int probe(const std::string& path)
{
    const int socket = openSocket();
    const int error = callWith(path, socket, connect);
    close(socket);
    return error;
}
