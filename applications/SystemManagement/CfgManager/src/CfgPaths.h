#pragma once

// The fixed places of the daemon: its files, its sockets and those of its siblings.

inline constexpr char kCfgDir[] = "/data/cfg";
inline constexpr char kStoredCatalogue[] = "/data/cfg/cfg_stored_set.json";
inline constexpr char kLegacyCatalogue[] = "/data/cfg/cfg_stored_set.xml";
inline constexpr char kFactoryCatalogue[] = "/etc/sysmgt/cfg_data_set.json";

inline constexpr char kCfgSocket[] = "/tmp/sockCfg";
inline constexpr char kCfgSendSocket[] = "/tmp/sockSendCfg";
inline constexpr char kChanSocket[] = "/tmp/sockChan";
inline constexpr char kDevSocket[] = "/tmp/sockDev";
