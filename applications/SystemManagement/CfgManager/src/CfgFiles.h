#pragma once

// The rules for configuration files: what may be a configuration's name, which files the daemon may
// delete, and how it moves one. No state: any thread may call. Nothing is logged here.

#include <ctime>
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

/// Deletes the file, or the empty directory, of a configuration; false, with errno, when that
/// fails. A path outside the configuration directory is refused with EPERM: the path comes from
/// the catalogue, which peers can write.
bool removeConfigurationFile(const std::string& path);

/// True when anything stands at `path`, a dangling link included.
bool pathExists(const std::string& path);

/// True when a regular file, or a link to one, stands at `path`; `modified` is then its time.
bool findRegularFile(const std::string& path, std::time_t& modified);

/// Where a file goes, and the shell command that brings it there. Ordinary paths stand in the
/// command as they are; in others every character that the shell would act on is escaped.
struct FileMove {
    std::string from;
    std::string to;
    std::string command;

    /// Runs the command and waits for its end. True when the file has arrived, or is the one that
    /// was there already; an older file of that name, which the move has left alone, does not
    /// count. `modified` is the time of the file that arrived.
    bool run(std::time_t& modified) const;
};
FileMove importMove(const std::string& source, const std::string& name);
FileMove renameMove(const std::string& file, const std::string& newName);
