#include "store/InstancePlaces.h"

#include <bit>
#include <functional>
#include <limits>

namespace
{

/// With an eighth of them free at least, what is not there is seen after a few places.
constexpr std::size_t slotsFor(std::size_t count) { return std::bit_ceil(count + count / 7 + 8); }

} // namespace

InstancePlaces::InstancePlaces(std::size_t count) : mPlaces(slotsFor(count)) {}

const Json::Value* InstancePlaces::find(std::string_view key) const
{
    return mPlaces[slot(key)].instance;
}

void InstancePlaces::add(std::string_view key, const Json::Value& instance)
{
    if (key.size() > std::numeric_limits<std::uint32_t>::max() - mKeys.size())
        return;
    if (slotsFor(mCount + 1) > mPlaces.size())
        grow();
    mPlaces[slot(key)] = {static_cast<std::uint32_t>(mKeys.size()),
                          static_cast<std::uint32_t>(key.size()), &instance};
    mKeys += key;
    ++mCount;
}

std::size_t InstancePlaces::slot(std::string_view key) const
{
    const std::size_t mask = mPlaces.size() - 1;
    std::size_t at = std::hash<std::string_view>()(key) & mask;
    while (mPlaces[at].instance != nullptr && keyOf(mPlaces[at]) != key)
        at = (at + 1) & mask;
    return at;
}

std::string_view InstancePlaces::keyOf(const Place& place) const
{
    return {mKeys.data() + place.keyStart, place.keyLength};
}

void InstancePlaces::grow()
{
    std::vector<Place> old(mPlaces.size() * 2);
    old.swap(mPlaces);
    for (const Place& place : old)
        if (place.instance != nullptr)
            mPlaces[slot(keyOf(place))] = place;
}
