// Instances and property definitions: the part of DataSets that adds, removes, lists and searches
// them, always in the committed tree.

#include "DataSets.h"
#include "DbgLine.h"
#include "store/CommittedTree.h"
#include "store/InstanceFilter.h"
#include "store/PropertyRule.h"

#include <limits>

namespace
{

constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

/// An instance that carries every defined property, at its default.
Json::Value newInstance(const Json::Value& component)
{
    Json::Value instance(Json::objectValue);
    const Json::Value* properties = member(&component, "properties");
    if (properties != nullptr && properties->isObject())
        for (auto it = properties->begin(); it != properties->end(); ++it)
            instance[it.name()] = PropertyRule(&*it).defaultValue();
    return instance;
}

/// Calls visit(text, instance) for each instance. The text is its key (ascending), its index in
/// decimal, or empty for the single one; visit() returns whether it goes on. False when the
/// component has no instances of any shape.
template <typename Visit>
bool forEachInstance(const Json::Value* component, Visit visit)
{
    const Json::Value* instances = member(component, "instances");
    if (instances != nullptr && instances->isObject()) {
        for (auto it = instances->begin(); it != instances->end(); ++it)
            if (!visit(it.name(), *it))
                break;
        return true;
    }
    if (instances != nullptr && instances->isArray()) {
        for (Json::ArrayIndex index = 0; index < instances->size(); ++index)
            if (!visit(std::to_string(index), (*instances)[index]))
                break;
        return true;
    }
    const Json::Value* single = member(component, "instance");
    if (single == nullptr || !single->isObject())
        return false;
    visit(std::string(), *single);
    return true;
}

} // namespace

Fcodes DataSets::addInstance(const std::string& dataset, const std::string& component,
                             const std::string& key)
{
    const std::lock_guard guard(*this);
    Json::Value* found = findComponent(mDataSets->grow(), dataset, component);
    if (found == nullptr) {
        DBG_LOG(SEV_ERROR) << "addInstance: No such name dataset=" << dataset
                           << " comp=" << component;
        return FC_NO_SUCH_NAME;
    }
    Json::Value* slot = InstanceRef(key).findOrCreate(found);
    const bool wrongShape = key.empty() && slot != nullptr && !slot->isObject() && !slot->isNull();
    if (slot == nullptr || wrongShape) {
        DBG_LOG(SEV_ERROR) << "addInstance: Couldn't add to comp=" << component
                           << " instances those are not an object (by key)";
        return FC_WRONG_TYPE;
    }
    *slot = newInstance(*found);
    return FC_OK;
}

Fcodes DataSets::appendInstance(const std::string& dataset, const std::string& component,
                                int& index)
{
    const std::lock_guard guard(*this);
    Json::Value* found = findComponent(mDataSets->grow(), dataset, component);
    if (found == nullptr)
        return FC_NO_SUCH_NAME;
    Json::Value* instances = findOrCreateMember(found, "instances");
    if (instances == nullptr || !(instances->isArray() || instances->isNull())) {
        // Kept on purpose: log readers count on the prefix of addInstance in this line.
        DBG_LOG(SEV_ERROR) << "addInstance: Couldn't append to comp=" << component
                           << " values those are not an array (by index)";
        return FC_WRONG_TYPE;
    }
    instances->append(newInstance(*found));
    index = static_cast<int>(instances->size()) - 1;
    return FC_OK;
}

Fcodes DataSets::removeInstance(const std::string& dataset, const std::string& component, int index)
{
    const std::lock_guard guard(*this);
    Json::Value* found = findComponent(mDataSets->reshape(), dataset, component);
    if (InstanceRef(index).find(found) == nullptr)
        return FC_NO_SUCH_NAME;
    Json::Value& instances = *member(found, "instances");
    const Json::ArrayIndex last = instances.size() - 1;
    for (auto place = static_cast<Json::ArrayIndex>(index); place < last; ++place)
        instances[place].swap(instances[place + 1]);
    instances.resize(last);
    return FC_OK;
}

Fcodes DataSets::removeInstance(const std::string& dataset, const std::string& component,
                                const std::string& key)
{
    const std::lock_guard guard(*this);
    Json::Value* found = findComponent(mDataSets->reshape(), dataset, component);
    if (found == nullptr) {
        DBG_LOG(SEV_ERROR) << "removeInstance: No such name dataset=" << dataset
                           << " comp=" << component;
        return FC_NO_SUCH_NAME;
    }
    if (InstanceRef(key).find(found) == nullptr) {
        DBG_LOG(SEV_ERROR) << "removeInstance: No such instance name dataset=" << dataset
                           << " comp=" << component << " inst=" << key;
        return FC_NO_SUCH_NAME;
    }
    if (key.empty())
        removeMember(found, "instance");
    else
        removeMember(member(found, "instances"), key);
    return FC_OK;
}

Fcodes DataSets::clearComponent(const std::string& dataset, const std::string& component)
{
    const std::lock_guard guard(*this);
    Json::Value* found = findComponent(mDataSets->reshape(), dataset, component);
    if (found == nullptr) {
        DBG_LOG(SEV_ERROR) << "clearComponent: No such name dataset=" << dataset
                           << " comp=" << component;
        return FC_NO_SUCH_NAME;
    }
    removeMember(found, "instances");
    removeMember(found, "instance");
    return FC_OK;
}

bool DataSets::hasInstance(const std::string& dataset, const std::string& component,
                           const std::string& key)
{
    const std::lock_guard guard(*this);
    const Json::Value* instance = mDataSets->find(dataset, component, InstanceRef(key));
    return instance != nullptr && (key.empty() ? instance->isObject() : !instance->isNull());
}

bool DataSets::hasInstance(const std::string& dataset, const std::string& component, int index)
{
    const std::lock_guard guard(*this);
    const Json::Value* instance = mDataSets->find(dataset, component, InstanceRef(index));
    return instance != nullptr && !instance->isNull();
}

Fcodes DataSets::getProperties(const std::string& dataset, const std::string& component,
                               std::vector<std::string>& names)
{
    const std::lock_guard guard(*this);
    const Json::Value* properties =
        member(findComponent(mDataSets->get(), dataset, component), "properties");
    if (properties == nullptr || !(properties->isObject() || properties->isNull()))
        return FC_NO_SUCH_NAME;
    names = properties->getMemberNames();
    return FC_OK;
}

Fcodes DataSets::getInstances(const std::string& dataset, const std::string& component,
                              std::vector<std::string>& names)
{
    constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
    return doListInstances(dataset, component, names, 0, kNoLimit);
}

Fcodes DataSets::doListInstances(const std::string& dataset, const std::string& component,
                                 std::vector<std::string>& names, std::size_t perName,
                                 std::size_t limit)
{
    const std::lock_guard guard(*this);
    std::size_t size = 0;
    const bool any = forEachInstance(findComponent(mDataSets->get(), dataset, component),
                                     [&](const std::string& text, const Json::Value&) {
                                         names.push_back(text);
                                         size += text.size() + perName;
                                         return size <= limit;
                                     });
    return any ? FC_OK : FC_NO_SUCH_NAME;
}

std::vector<std::string> DataSets::getInstancesByParameter(const std::string& dataset,
                                                           const std::string& component,
                                                           const std::string& property,
                                                           const std::string& condition,
                                                           const std::string& operand)
{
    return findInstances(dataset, component, property, InstanceFilter(condition, operand));
}

std::vector<std::string> DataSets::getInstancesByParameter(const std::string& dataset,
                                                           const std::string& component,
                                                           const std::string& property,
                                                           const std::string& condition,
                                                           int operand)
{
    return findInstances(dataset, component, property, InstanceFilter(condition, operand));
}

std::vector<std::string> DataSets::findInstances(const std::string& dataset,
                                                 const std::string& component,
                                                 const std::string& property,
                                                 const InstanceFilter& filter)
{
    const std::lock_guard guard(*this);
    std::vector<std::string> found;
    forEachInstance(findComponent(mDataSets->get(), dataset, component),
                    [&](const std::string& text, const Json::Value& instance) {
                        if (filter.selects(member(&instance, property)))
                            found.push_back(text);
                        return true;
                    });
    return found;
}

std::vector<std::string> DataSets::getInstancesByKey(const std::string& dataset,
                                                     const std::string& component,
                                                     const std::string& condition,
                                                     const std::string& operand)
{
    const InstanceFilter filter(condition, operand);
    const std::lock_guard guard(*this);
    std::vector<std::string> found;
    forEachInstance(findComponent(mDataSets->get(), dataset, component),
                    [&](const std::string& text, const Json::Value&) {
                        if (filter.selectsText(text))
                            found.push_back(text);
                        return true;
                    });
    return found;
}

Fcodes DataSets::getComponentProperty(const std::string& dataset, const std::string& component,
                                      const std::string& property, std::string& access,
                                      std::string& type, std::string& defaultValue,
                                      std::list<std::string>& values)
{
    const std::lock_guard guard(*this);
    const Json::Value* definition =
        member(member(findComponent(mDataSets->get(), dataset, component), "properties"), property);
    if (definition == nullptr)
        return FC_NO_SUCH_NAME;
    access = textOf(member(definition, "access"));
    type = textOf(member(definition, "type"));
    defaultValue = textOf(member(definition, "default"));
    values.clear();
    if (const Json::Value* allowed = member(definition, "values");
        allowed != nullptr && allowed->isArray())
        for (const Json::Value& value : *allowed)
            values.push_back(textOf(&value));
    return FC_OK;
}

Fcodes DataSets::getComponentPropertyDefault(const std::string& dataset,
                                             const std::string& component,
                                             const std::string& property, std::string& defaultValue)
{
    const std::lock_guard guard(*this);
    const Json::Value* value = member(
        member(member(findComponent(mDataSets->get(), dataset, component), "properties"), property),
        "default");
    if (value == nullptr)
        return FC_NO_SUCH_NAME;
    defaultValue = textOf(value);
    return FC_OK;
}
