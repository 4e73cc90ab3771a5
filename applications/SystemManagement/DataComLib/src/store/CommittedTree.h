#pragma once

// The committed documents of the store, by dataset name, and where their instances stand: finding
// one by its key costs the same in a component of a hundred thousand as in one of ten.
//
// Not for several threads at once: the store's lock is held around it.

#include "store/InstanceRef.h"

#include <map>
#include <string>
#include <unordered_map>

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

private:
    using Places = std::unordered_map<std::string, const Json::Value*>;

    const Json::Value* remembered(const std::string& dataset, const std::string& component,
                                  const std::string& key) const;

    Json::Value mTree;

    /// Of the instances that have been asked for: by dataset, component and key.
    std::map<std::string, std::map<std::string, Places>> mPlaces;
};
