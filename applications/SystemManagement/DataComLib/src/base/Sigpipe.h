#pragma once

// write() to a FIFO whose reader has left raises SIGPIPE. The write is to be lost and not the
// process, whose disposition stays its own: the kernel raises none, or, where it cannot do that,
// the signal is held back in the calling thread and taken off again.

#include <csignal>
#include <string_view>
#include <sys/types.h>

/// write() that raises no signal; EOPNOTSUPP before Linux 6.18.
ssize_t writeWithoutSigpipe(int fd, std::string_view text);

/// Writes the thread's signal mask to `before`. True when a SIGPIPE was pending already: that one
/// belongs to the caller and must not be discarded.
bool holdSigpipe(sigset_t& before);

/// `discard`: a write has failed with EPIPE since. errno stays.
void releaseSigpipe(const sigset_t& before, bool discard);
