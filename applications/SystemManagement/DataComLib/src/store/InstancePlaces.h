#pragma once

// Where the instances of one component stand, by their keys: a device holds one for each of its
// large components, so it is small. Beside the bytes of the keys it takes sixteen a place, of which
// up to half are free.
//
// Not for several threads at once.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Json
{
class Value;
}

class InstancePlaces
{
public:
    /// For so many without growing.
    explicit InstancePlaces(std::size_t count);

    /// Null for a key that has not been added.
    const Json::Value* find(std::string_view key) const;

    /// Of a key that is not there yet. Up to 4 GB of keys; what is beyond is not kept.
    void add(std::string_view key, const Json::Value& instance);

private:
    struct Place {
        std::uint32_t keyStart = 0; // in mKeys
        std::uint32_t keyLength = 0;
        const Json::Value* instance = nullptr; // null: free
    };

    /// That of the key, or the free one where it belongs.
    std::size_t slot(std::string_view key) const;
    std::string_view keyOf(const Place& place) const;
    void grow();

    std::vector<Place> mPlaces; // by the key's hash; of a taken one the next that is free. 2^n
    std::size_t mCount = 0;
    std::string mKeys;
};
