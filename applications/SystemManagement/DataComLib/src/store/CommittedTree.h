#pragma once

// The committed documents of the store, by dataset name, and where their instances stand: finding
// one by its key costs the same in a component of a hundred thousand as in one of ten.
//
// Not for several threads at once: the store's lock is held around it.

#include "store/InstancePlaces.h"
#include "store/InstanceRef.h"

#include <map>
#include <string>

class CommittedTree
{
public:
    const Json::Value& get() const { return mTree; }

    /// For adding and overwriting values: an instance stays where it stands.
    Json::Value& grow() { return mTree; }

    /// For everything else. Forgets where instances stand.
    Json::Value& reshape();

    /// The instance, or the value in it, or null.
    const Json::Value* find(const std::string& dataset, const std::string& component,
                            const InstanceRef& instance);
    const Json::Value* find(const ParamRef& at)
    {
        return member(find(at.dataset, at.component, at.instance), at.property);
    }

    /// The same value, to be overwritten in its place.
    Json::Value* findToOverwrite(const ParamRef& at) { return const_cast<Json::Value*>(find(at)); }

private:
    InstancePlaces* placesOf(const std::string& dataset, const std::string& component);

    Json::Value mTree;

    /// Of the instances that have been asked for: by dataset and component.
    std::map<std::string, std::map<std::string, InstancePlaces>> mPlaces;
};
