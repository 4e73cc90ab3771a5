#pragma once

// Reads a file that somebody else may have put there: what is no file does not hold the reader up.

#include <string>

/// Opens a regular file, or what a link to one leads to, for reading; the caller closes it. -1 with
/// errno on failure: EISDIR for a directory, ENXIO for a FIFO, a device or a socket, at once.
int openRegularFile(const std::string& path);

/// Replaces `text` by what there is to read from here on. 0, or an errno value: then `text` is what
/// could be read.
int readToEnd(int fd, std::string& text);
