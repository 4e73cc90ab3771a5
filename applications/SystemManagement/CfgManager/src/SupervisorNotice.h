#pragma once

// Tells the supervisor that has started this process when the daemon serves, so that it starts
// what counts on the daemon only then. The supervisor names a datagram socket in NOTIFY_SOCKET, as
// systemd does for units of Type=notify; without that variable nothing is told.
//
// Made before threads run that may change the environment.

#include <string>

class SupervisorNotice
{
public:
    SupervisorNotice();

    /// Sends "READY=1". A supervisor that does not read holds the caller for five seconds at most.
    /// Failures are silent: the supervisor finds out by its own limit.
    void ready() const;

private:
    std::string mSocket; // a path, or "@" and a name in the abstract name space
};
