#pragma once

// Reads a file that somebody else may have put there: what is no file does not hold the reader up.

#include <string>
#include <sys/types.h>

/// Opens a regular file, or what a link to one leads to, for reading; the caller closes it. -1 with
/// errno on failure: EISDIR for a directory, ENXIO for a FIFO, a device or a socket, at once.
int openRegularFile(const std::string& path);

/// More than that is not read: a damaged size must not cost a device its memory.
inline constexpr off_t kLargestFile = off_t{256} << 20;

/// Replaces `text` by what there is to read from here on. 0, or an errno value, EFBIG for a file of
/// more than kLargestFile bytes: then `text` is what could be read.
int readToEnd(int fd, std::string& text);
