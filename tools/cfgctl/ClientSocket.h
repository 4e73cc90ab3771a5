#pragma once

// The client's own socket, in a directory /tmp/sockCfgctl.UID.N, which it alone may write and lock.
// N is the first that no running client of this user has: numbers are used again, because a daemon
// never removes a subscriber from its list. Where others have taken them all, the directory has a
// name by chance. One object a process; it removes both at its end, also on SIGINT, SIGTERM, SIGHUP
// and SIGPIPE; what a killed client left is removed by the next of its number.

#include "Leftover.h"

#include <optional>
#include <string>

class ClientSocket
{
public:
    /// Throws Failure when no socket can be made.
    ClientSocket();
    ~ClientSocket();

    ClientSocket(const ClientSocket&) = delete;
    ClientSocket& operator=(const ClientSocket&) = delete;

    int descriptor() const { return mSocket; }
    const std::string& path() const { return mPath; }

    /// From here on it sends to the socket at `path`, and takes datagrams from nobody else. 0, or
    /// errno.
    int connectTo(const std::string& path) const;

private:
    std::string mPath;
    int mDirectory; // locked as long as it is open
    int mSocket = -1;
    std::optional<Leftover> mDirectoryName;
    std::optional<Leftover> mSocketName;
};

/// 0 when a process has bound the path and takes datagrams from this one; else errno: ECONNREFUSED
/// for a socket that a process has left, EACCES where this user may not ask.
int probe(const std::string& path);
inline bool isServed(const std::string& path) { return probe(path) == 0; }
