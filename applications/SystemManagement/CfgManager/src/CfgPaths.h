#pragma once

// The fixed paths of the daemon: its files, its sockets and those of its siblings.

#include <string>

inline constexpr char kCfgDir[] = "/data/cfg";
// Never destroyed: a thread may store until the process has gone.
inline const std::string& kStoredCatalogue =
    *new std::string(std::string(kCfgDir) + "/cfg_stored_set.json");
inline const std::string& kLegacyCatalogue =
    *new std::string(std::string(kCfgDir) + "/cfg_stored_set.xml");
inline constexpr char kDamagedCatalogue[] = "/data/cfg_stored_set.json.damaged"; // copies
inline constexpr char kObstacle[] = "/data/cfg_obstacle";      // what stood in the way of a file
inline constexpr char kChangesBeside[] = "/data/.cfg_changes"; // records of changes under way
inline constexpr char kChangesInside[] = "/data/cfg/.cfg_changes"; // where the other cannot be used
inline constexpr char kFactoryCatalogue[] = "/etc/sysmgt/cfg_data_set.json";
inline constexpr char kPolicyFile[] = "/etc/sysmgt/cfg_policy.json"; // who may do what; optional

inline constexpr char kCfgSocket[] = "/tmp/sockCfg";
inline constexpr char kCfgSendSocket[] = "/tmp/sockSendCfg";
inline constexpr char kChanSocket[] = "/tmp/sockChan";
inline constexpr char kDevSocket[] = "/tmp/sockDev";
