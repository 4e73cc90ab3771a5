#pragma once

// What the kernel says of a datagram's sender, and how far that names anybody.

#include <sys/socket.h>
#include <sys/types.h>

/// Whether a number stands for users or groups that this process's user name space does not know.
bool isOverflowId(id_t id);

/// Whether the user is known. Pid 0 is somebody of another name space, or credentials that never
/// came.
bool isKnownSender(const ucred& sender);
