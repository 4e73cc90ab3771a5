#pragma once

// What can be wrong on a device, seen from its files and sockets: nothing is asked of a daemon, and
// nothing changes. No state; any thread.

#include <optional>
#include <string>
#include <vector>

/// One thing that is wrong. A warning is what a device works with.
struct Finding {
    bool isFault;
    std::string what;
    std::string advice; ///< what to do
    std::string next{}; ///< a command that helps; "" where the advice is one
};
using Findings = std::vector<Finding>;

/// Everything that this process can see; what it may not look at is a warning.
Findings checkSystem();

/// What keeps the manager from storing files; nothing when it is not the disk.
std::optional<Finding> diskTrouble();

/// True when somebody reads the daemons' log.
bool isCollecting();
