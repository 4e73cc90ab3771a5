#pragma once

// The client's own two socket paths, /tmp/sockCfgctl.N and its send socket. N is the first that no
// running client has: numbers are used again, because the daemon never removes a subscriber from
// its list. One object a process; it removes the paths at its end, also on SIGINT, SIGTERM and
// SIGHUP.

#include <functional>
#include <string>

class ClientSockets
{
public:
    /// Finds a free N and calls `bindBoth` with the two paths, while no other client can look for
    /// one. Throws std::runtime_error with a text for the user when no socket can be made.
    explicit ClientSockets(
        const std::function<void(const std::string& receive, const std::string& send)>& bindBoth);
    ~ClientSockets();

    ClientSockets(const ClientSockets&) = delete;
    ClientSockets& operator=(const ClientSockets&) = delete;

    const std::string& receivePath() const { return mReceivePath; }

private:
    std::string mReceivePath;
    std::string mSendPath;
};

/// A datagram socket bound to the path, which it takes over; the caller closes it. Throws
/// std::runtime_error with a text for the user when it cannot be made.
int bindSocket(const std::string& path);

/// True when a process has bound the path and takes datagrams from this one.
bool isServed(const std::string& path);
