#include "ClientSockets.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace
{

using namespace std::chrono_literals;

constexpr char kDir[] = "/tmp";
constexpr int kMaxClients = 1000;
constexpr auto kLockLimit = 5s;

// What the signal handler removes.
char gReceivePath[sizeof(sockaddr_un::sun_path)];
char gSendPath[sizeof(sockaddr_un::sun_path)];

extern "C" void removeSocketsAndExit(int signal)
{
    unlink(gReceivePath);
    unlink(gSendPath);
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

/// True when no process uses the path and it can be bound: what a killed client left is removed,
/// unless it is another user's.
bool isFree(const std::string& path)
{
    const int error = tryConnect(path);
    if (error == ENOENT)
        return true;
    return error == ECONNREFUSED && unlink(path.c_str()) == 0;
}

/// Clients look for their paths one after the other: they lock the directory itself, so that no
/// lock file is left and a lock never outlives its holder.
class DirectoryLock
{
public:
    DirectoryLock() : mFd(open(kDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        const auto deadline = std::chrono::steady_clock::now() + kLockLimit;
        while (flock(mFd, LOCK_EX | LOCK_NB) == -1) {
            if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error(std::string("cannot lock ") + kDir + ": " +
                                         std::strerror(errno));
            std::this_thread::sleep_for(1ms);
        }
    }
    ~DirectoryLock() { close(mFd); }

    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

private:
    int mFd;
};

} // namespace

ClientSockets::ClientSockets(
    const std::function<void(const std::string& receive, const std::string& send)>& bindBoth)
{
    const DirectoryLock lock;
    for (int n = 0; n < kMaxClients; ++n) {
        mReceivePath = std::string(kDir) + "/sockCfgctl." + std::to_string(n);
        mSendPath = std::string(kDir) + "/sockSendCfgctl." + std::to_string(n);
        if (!isFree(mReceivePath) || !isFree(mSendPath))
            continue;

        mReceivePath.copy(gReceivePath, sizeof gReceivePath - 1);
        mSendPath.copy(gSendPath, sizeof gSendPath - 1);
        for (const int ending : {SIGINT, SIGTERM, SIGHUP})
            std::signal(ending, removeSocketsAndExit);
        // Where it cannot bind, the communicator ends the process without a message: try first.
        close(bindSocket(mReceivePath));
        close(bindSocket(mSendPath));
        bindBoth(mReceivePath, mSendPath);
        return;
    }
    throw std::runtime_error(std::string("no free socket path in ") + kDir);
}

ClientSockets::~ClientSockets()
{
    unlink(mReceivePath.c_str());
    unlink(mSendPath.c_str());
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
