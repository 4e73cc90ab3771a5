#pragma once

// The rules for configuration files: what may be a configuration's name, which files the daemon may
// delete, and how it moves one. No state: any thread may call. Nothing is logged here.

#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

/// True when `name` can be a configuration's name, and so the name of its file: not empty, not
/// only blanks, no "/", no control characters, short enough for a file, and none of the names that
/// the directory keeps for other things (".", "..", the catalogue files, a store in progress).
bool isConfigurationName(std::string_view name);

/// The path of the file of the configuration `name`, which is not checked.
std::string configurationPath(std::string_view name);

/// True when `path` names something directly in the configuration directory that is neither of the
/// catalogue files. Wider than the rule for names: files that were dropped in by hand count too.
bool isInCfgDir(std::string_view path);

/// Deletes the file of a configuration; false, with errno, when that fails. A directory is none: it
/// stays. A path outside the configuration directory is refused with EPERM: the path comes from the
/// catalogue, which peers can write.
bool removeConfigurationFile(const std::string& path);

/// True when anything stands at `path`, a dangling link included.
bool pathExists(const std::string& path);

/// True when a regular file, or a link to one, stands at `path`; `modified` is then its time.
bool findRegularFile(const std::string& path, std::time_t& modified);

/// True when a regular file, or a directory, itself stands at `path`.
bool isRegularFile(const std::string& path);
bool isDirectory(const std::string& path);

/// What stays of a file when it is moved, also to another file system: its size in bytes, and when
/// it was last changed, in seconds.
struct FileStamp {
    std::int64_t size = -1;
    std::int64_t modified = 0;

    bool operator==(const FileStamp&) const = default;
};

/// Another one each time that the system comes up; "" where it has none.
std::string bootId();

/// The stamp of the file, or of the link itself, at `path`; nothing when there is none.
std::optional<FileStamp> stampOf(const std::string& path);

/// True when both names are links to one file.
bool isSameFile(const std::string& left, const std::string& right);

/// Waits until the content of the regular file at `path` is on the disk. What cannot be opened is
/// left to those who read it.
void syncFile(const std::string& path);

/// Copies a regular file; `target` is the old one or the whole copy, which is on the disk.
bool copyWhole(const std::string& path, const std::string& target);

/// Moves what stands at `path` out of the way: to `target`, or `target` with ".2" to ".9" behind it
/// where that is taken; the last one is replaced. A file that cannot be moved there is copied; with
/// `linkStays` so is what a link leads to. The path it has got; "" when there is nothing at `path`
/// or no way to keep it.
std::string putAside(const std::string& path, const std::string& target, bool linkStays = false);

/// Returns when no move of an earlier run of the daemon is under way; false when one still is after
/// the limit.
bool waitForMoves(std::chrono::milliseconds limit);

/// Where a file goes, and the shell command that brings it there. Ordinary paths stand in the
/// command as they are; in others every character that the shell would act on is escaped.
struct FileMove {
    std::string from;
    std::string to;
    std::string command;

    /// True when there is something to move, which the command would move to `to` and nowhere else:
    /// an import takes a regular file that is stored on a disk and can be read at once, and none of
    /// the suite's own, a rename what the scan takes for a configuration, and at the target there
    /// may be a file or link, but nothing else.
    bool isAllowed() const;

    /// Where it is allowed, runs the command, waits for its end and until the file is on the disk.
    /// True when it has arrived whole, or is the one that was there already; an older file of that
    /// name, which the move has left alone, does not count, nor for an import what was put in the
    /// place of the file meanwhile. `modified` is the time of the file that arrived.
    bool run(std::time_t& modified) const;

    bool mayMoveLinks = false;
};
FileMove importMove(const std::string& source, const std::string& name);
FileMove renameMove(const std::string& file, const std::string& newName);
