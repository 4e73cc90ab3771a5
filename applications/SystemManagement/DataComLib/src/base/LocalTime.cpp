#include "base/LocalTime.h"

#include <array>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>
#include <sys/stat.h>

namespace
{

constexpr std::string_view kVariable = "TZ=";
constexpr std::size_t kMaxZone = 255; // bytes

std::mutex setterMutex; // taken before the other, and while the file system is looked at
std::mutex zoneMutex;   // guards the zone and the text below
std::atomic<unsigned> zoneGeneration{0};

/// The path with its links and ".." resolved, and `end`; empty where it leads to nothing.
std::string resolve(const std::string& path, const char* end = "")
{
    std::array<char, PATH_MAX> resolved;
    return realpath(path.c_str(), resolved.data()) == nullptr ? ""
                                                              : resolved.data() + std::string(end);
}

/// The file that the C library opens for a zone without its colon, before it takes it for a rule.
std::string zoneFile(const std::string& zone)
{
    const char* directory = std::getenv("TZDIR");
    if (directory == nullptr || *directory == '\0')
        directory = "/usr/share/zoneinfo";
    return zone.starts_with('/') ? zone : std::string(directory) + '/' + zone;
}

/// `zones` ends in a slash, or is empty.
bool isBelowZones(const std::string& path, const std::string& zones)
{
    return (!zones.empty() && path.starts_with(zones)) || path.starts_with("/etc/");
}

bool isRegularFile(const std::string& path)
{
    struct stat status {
    };
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/// Replaces `zone` by what the C library may be given, which opens whatever the zone names and
/// would wait there for a FIFO's writer; false when it names a file that is no zone of this device.
bool makeSafe(std::string& zone)
{
    if (zone.size() > kMaxZone)
        return false;
    zone.resize(std::strlen(zone.c_str()));
    const std::string name = zone.substr(zone.starts_with(':') ? 1 : 0);
    if (name.empty())
        return true;

    const std::string named = zoneFile(name);
    const std::string file = resolve(named);
    // Only the device's owner changes what lies in the two directories. Elsewhere a FIFO may take
    // the name's place right after this look: the C library is not given the name itself.
    const bool leadsOut = named.find("/../") != std::string::npos || named.ends_with("/..") ||
                          !isBelowZones(named, zoneFile(""));
    if (file.empty()) {
        if (leadsOut)
            zone = "UTC0"; // as it takes a name that is neither a file nor a rule
        return true;
    }
    if (!isRegularFile(file) || !isBelowZones(file, resolve(zoneFile(""), "/")) ||
        file.size() > kMaxZone)
        return false;
    if (leadsOut)
        zone = file;
    return true;
}

/// The text of the second that was asked for last: events come several in a second.
struct KeptText {
    std::time_t time = 0;
    std::size_t length = 0; // 0: to be made
    std::array<char, 32> text{};
};
KeptText keptText;

/// Reads the zone again; the caller holds its lock.
void readZone()
{
    tzset();
    keptText.length = 0;
}

} // namespace

std::tm toLocalTime(std::time_t time)
{
    const std::lock_guard guard(zoneMutex);
    std::tm local{};
    localtime_r(&time, &local);
    return local;
}

std::string toLocalTimeText(std::time_t time)
{
    const std::lock_guard guard(zoneMutex);
    KeptText& kept = keptText;
    if (kept.length == 0 || kept.time != time) {
        std::tm local{};
        localtime_r(&time, &local);
        kept.length = std::strftime(kept.text.data(), kept.text.size(), "%d-%b-%y  %T", &local);
        kept.time = time;
    }
    return std::string(kept.text.data(), kept.length);
}

bool setTimeZone(std::string zone)
{
    const std::lock_guard setter(setterMutex);
    if (!makeSafe(zone))
        return false;

    const std::lock_guard guard(zoneMutex);
    // setenv() keeps every value it was ever given. Of two variables in turn the older one has no
    // reader left: tzset() ends behind every other reader in the C library.
    static std::array<std::array<char, kVariable.size() + kMaxZone + 1>, 2> variables;
    static std::size_t next = 0;
    std::array<char, kVariable.size() + kMaxZone + 1>& variable = variables[next++ % 2];
    variable[std::string(kVariable).append(zone).copy(variable.data(), variable.size() - 1)] = '\0';
    putenv(variable.data());
    readZone();
    zoneGeneration.fetch_add(1, std::memory_order_release);
    return true;
}

void refreshTimeZone()
{
    const std::lock_guard guard(zoneMutex);
    readZone();
}

unsigned timeZoneGeneration() { return zoneGeneration.load(std::memory_order_acquire); }
