#include "base/LocalTime.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>

namespace
{

std::mutex zoneMutex;
std::atomic<unsigned> zoneGeneration{0};

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
    const std::tm local = toLocalTime(time);
    std::array<char, 32> text;
    const std::size_t length = std::strftime(text.data(), text.size(), "%d-%b-%y  %T", &local);
    return std::string(text.data(), length);
}

void setTimeZone(const std::string& zone)
{
    const std::lock_guard guard(zoneMutex);
    setenv("TZ", zone.c_str(), 1);
    tzset();
    zoneGeneration.fetch_add(1, std::memory_order_release);
}

void refreshTimeZone()
{
    const std::lock_guard guard(zoneMutex);
    tzset();
}

unsigned timeZoneGeneration() { return zoneGeneration.load(std::memory_order_acquire); }
