#include "store/CommittedTree.h"

Json::Value& CommittedTree::reshape()
{
    mPlaces.clear();
    return mTree;
}

const Json::Value* CommittedTree::find(const std::string& dataset, const std::string& component,
                                       const InstanceRef& instance)
{
    if (instance.byIndex() || instance.key().empty())
        return instance.find(findComponent(mTree, dataset, component));

    InstancePlaces* places = placesOf(dataset, component);
    if (places != nullptr)
        if (const Json::Value* const known = places->find(instance.key()))
            return known;

    const Json::Value* const searched = findComponent(mTree, dataset, component);
    const Json::Value* const found = instance.find(searched);
    if (found == nullptr)
        return nullptr;
    if (places == nullptr)
        places = &mPlaces[dataset]
                      .try_emplace(component, member(searched, "instances")->size())
                      .first->second;
    places->add(instance.key(), *found);
    return found;
}

InstancePlaces* CommittedTree::placesOf(const std::string& dataset, const std::string& component)
{
    const auto components = mPlaces.find(dataset);
    if (components == mPlaces.end())
        return nullptr;
    const auto places = components->second.find(component);
    return places == components->second.end() ? nullptr : &places->second;
}
