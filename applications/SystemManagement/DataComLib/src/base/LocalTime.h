#pragma once

// Local time and the process's time zone. The zone changes while other threads format times, and
// neither setenv() nor tzset() may run beside localtime_r(): everything here shares one lock, and
// nobody else in the suite touches "TZ". Any thread may call.

#include <ctime>
#include <string>

/// The local broken-down time of `time`.
std::tm toLocalTime(std::time_t time);

/// The local form "05-Mar-24  14:07:09" (two blanks), as catalogue rows and events carry it.
std::string toLocalTimeText(std::time_t time);

/// Makes `zone` (a TZ value such as "CET-1CEST", ":Europe/Rome", or "" for UTC) the zone of this
/// process and its children. False, and the zone as it was, for one of more than 255 bytes, or that
/// names an existing file which is no regular one below the zone directory ($TZDIR, or
/// /usr/share/zoneinfo) or /etc. A path that leads elsewhere is kept as the file to which it leads,
/// or as "UTC0" where it leads nowhere.
bool setTimeZone(std::string zone);

/// Reads the device's own zone again: where no TZ is set, it may have been changed.
void refreshTimeZone();

/// Counts the calls of setTimeZone(): a broken-down time kept from an older count is stale.
unsigned timeZoneGeneration();
