#pragma once

// write() to a FIFO whose reader has left raises SIGPIPE. Between these two the signal is held back
// in the calling thread and taken off again, so that the write is lost and not the process; the
// process's disposition stays its own.

#include <csignal>

/// Writes the thread's signal mask to `before`. True when a SIGPIPE was pending already: that one
/// belongs to the caller and must not be discarded.
bool holdSigpipe(sigset_t& before);

/// `discard`: a write has failed with EPIPE since. errno stays.
void releaseSigpipe(const sigset_t& before, bool discard);
