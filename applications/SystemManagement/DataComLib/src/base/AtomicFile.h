#pragma once

// Writes a whole file durably: at every instant, whatever is killed and whenever, the file is the
// old one or the new one. Writers of the same file must not overlap: the caller serialises them.

#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

struct FileWrite {
    /// 0 once the new content has reached the disk; else an errno value: EIO when the caller's
    /// function left the stream bad.
    int error = 0;

    /// Why the file was written in place: the errno value with which its directory refused a new
    /// file; 0 when the file was replaced, or is no file.
    int inPlace = 0;
};

/// Replaces the file by what `write` writes to its stream. On failure the old file stays; only
/// where the directory could not be synced the new one may be there already. Owner, group and mode
/// are kept as far as this process may give them; where the group is another, it gets no rights
/// that others do not have. A new file gets 0666 less the umask. A symbolic link stays, and what it
/// leads to is replaced, there; not one that another user has put into a directory that all share
/// (EACCES). System calls that a signal interrupts are made again. An exception of `write` passes
/// through. `write` may be called more than once. Blocks until the disk has answered.
///
/// Where the directory accepts no new file, or the file is a mount point, it is written in place:
/// then only a crash can leave it cut short, as long as it can be read. A FIFO, a device or a
/// socket is never replaced either, and does not block: ENXIO for a FIFO without a reader, EAGAIN
/// for one that is full.
FileWrite replaceFileAtomically(const std::string& path,
                                const std::function<void(std::ostream&)>& write);

/// True for the hidden temporary name (".NAME.INODE.~storing") that a new file has for an instant
/// before it is renamed over the old one: in the parent directory where possible, so that no
/// listing of the file's own directory shows it, else beside the old file. Only a kill or a crash
/// in that instant leaves it there, until the next write of the file. `fileName` is without
/// directory.
bool isTempFileName(std::string_view fileName);

/// True for the temporary name of a file of this very directory.
bool isTempFileNameIn(const std::string& directory, std::string_view fileName);

/// Removes what writers of `path` that were cut off have left: regular files with the temporary
/// name of this very file, or of the one to which it links. In its directory any INODE counts,
/// because a restored directory has another; in the parent only that of the directory. Returns what
/// has been removed. Nobody may be writing the file meanwhile.
std::vector<std::string> removeStaleTempFiles(const std::string& path);
