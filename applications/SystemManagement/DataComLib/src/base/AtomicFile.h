#pragma once

// Writes a whole file durably: at every instant, whatever is killed and whenever, the file is the
// old one or the new one. Writers of the same file must not overlap: the caller serialises them.

#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

/// Replaces the file by what `write` writes to its stream, and returns 0 once that has reached the
/// disk. Else an errno value (EIO when `write` left the stream bad), and the old file stays. Owner
/// and mode are kept; a new file gets 0666 less the umask. An exception of `write` passes through.
///
/// Where the file cannot be replaced (it is no regular file, it is a mount point, its owner cannot
/// be kept, or its directory accepts no new file) it is written in place, and then a crash or a
/// full disk may leave it cut short. `write` may be called twice. Blocks until the disk has
/// answered.
int replaceFileAtomically(const std::string& path, const std::function<void(std::ostream&)>& write);

/// True for the hidden temporary name (".NAME.INODE.~storing") that a new file has for an instant
/// before it is renamed over the old one: in the parent directory where possible, so that no
/// listing of the file's own directory shows it, else beside the old file. `fileName` is without
/// directory. A file of such a name that stays was left by a crash and may be removed.
bool isTempFileName(std::string_view fileName);
