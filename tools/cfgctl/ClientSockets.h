#pragma once

// The client's own two sockets, "receive" and "send" in a directory /tmp/sockCfgctl.UID.N, which it
// alone may write and lock. N is the first that no running client of this user has: numbers are
// used again, because the daemon never removes a subscriber from its list. Where others have taken
// them all, the directory has a name by chance. One object a process; it removes all three at its
// end, also on SIGINT, SIGTERM and SIGHUP; what a killed client left is removed by the next of its
// number.

#include <functional>
#include <string>

class ClientSockets
{
public:
    /// Takes the directory and calls `bindBoth` with the two paths. Throws std::runtime_error with
    /// a text for the user when no socket can be made.
    explicit ClientSockets(
        const std::function<void(const std::string& receive, const std::string& send)>& bindBoth);
    ~ClientSockets();

    ClientSockets(const ClientSockets&) = delete;
    ClientSockets& operator=(const ClientSockets&) = delete;

    const std::string& receivePath() const { return mReceivePath; }

private:
    std::string mReceivePath;
    int mDirectory; // locked as long as it is open
};

/// A datagram socket bound to the path, which it takes over; the caller closes it. Throws
/// std::runtime_error with a text for the user when it cannot be made.
int bindSocket(const std::string& path);

/// True when a process has bound the path and takes datagrams from this one.
bool isServed(const std::string& path);
