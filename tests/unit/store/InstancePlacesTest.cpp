#include "store/InstancePlaces.h"

#include <gtest/gtest.h>
#include <json/value.h>

TEST(InstancePlacesTest, EachKeyIsFoundHoweverManyComeBehindIt)
{
    std::vector<Json::Value> instances(5000);
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < instances.size(); ++i)
        keys.push_back(std::string("k\0", 2) + std::to_string(i));
    keys[0] = "";
    keys[1] = "k"; // the start of the others

    InstancePlaces places(3);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        EXPECT_EQ(places.find(keys[i]), nullptr);
        places.add(keys[i], instances[i]);
        EXPECT_EQ(places.find(keys[i / 2]), &instances[i / 2]);
    }
    for (std::size_t i = 0; i < keys.size(); ++i)
        EXPECT_EQ(places.find(keys[i]), &instances[i]) << i;
}
