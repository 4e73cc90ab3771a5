#pragma once

// Writes a whole file durably: at every instant, whatever is killed and whenever, the file is the
// old one or the new one. Writers of the same file must not overlap: the caller serialises them.

#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

/// Replaces the file by what `write` puts out, and returns 0 once that has reached the disk. Else
/// an errno value, and the old file stays. Owner and mode are kept; a new file gets 0666 less the
/// umask.
///
/// Where the file cannot be replaced (it is no regular file, or its directory takes no new file)
/// it is written in place, and only then may a crash leave it cut short. `write` may be called
/// twice.
int replaceFileAtomically(const std::string& path, const std::function<void(std::ostream&)>& write);

/// True for the hidden name under which a new file stands for an instant before it takes the place
/// of the old one: in the parent directory if that can be, so that no listing of the file's own
/// directory shows it, else beside the old one. A file of such a name is a left-over of a crash.
bool isTempFileName(std::string_view fileName);
