#include "store/CommittedTree.h"

Json::Value& CommittedTree::reshape()
{
    mPlaces.clear();
    return mTree;
}

const Json::Value* CommittedTree::find(const std::string& dataset, const std::string& component,
                                       const InstanceRef& instance)
{
    const bool isKeyed = !instance.byIndex() && !instance.key().empty();
    if (const Json::Value* const known =
            isKeyed ? remembered(dataset, component, instance.key()) : nullptr)
        return known;

    const Json::Value* const searched = findComponent(mTree, dataset, component);
    const Json::Value* const found = instance.find(searched);
    if (!isKeyed || found == nullptr)
        return found;
    Places& places = mPlaces[dataset][component];
    if (places.empty())
        places.reserve(member(searched, "instances")->size()); // else it would grow in large steps
    places.emplace(instance.key(), found);
    return found;
}

const Json::Value* CommittedTree::remembered(const std::string& dataset,
                                             const std::string& component,
                                             const std::string& key) const
{
    const auto components = mPlaces.find(dataset);
    if (components == mPlaces.end())
        return nullptr;
    const auto places = components->second.find(component);
    if (places == components->second.end())
        return nullptr;
    const auto place = places->second.find(key);
    return place == places->second.end() ? nullptr : place->second;
}
