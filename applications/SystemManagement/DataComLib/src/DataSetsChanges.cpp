// Change tracking: the part of DataSets that makes, drops and commits working copies.

#include "DataSets.h"
#include "DbgLine.h"
#include "store/CommittedTree.h"

#include <mutex>
#include <shared_mutex>

namespace
{

constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

} // namespace

void DataSets::touchDataSet(const std::string& dataset)
{
    const std::lock_guard guard(*this);
    const std::unique_lock changesGuard(mChangesMutex);
    if (const Json::Value* committed = member(&mDataSets->get(), dataset))
        mChanges[dataset] = *committed;
}

void DataSets::untouchDataSet(const std::string& dataset)
{
    const std::lock_guard guard(*this);
    const std::unique_lock changesGuard(mChangesMutex);
    removeMember(&mChanges, dataset);
}

void DataSets::touchComponent(const std::string& dataset, const std::string& component)
{
    const std::lock_guard guard(*this);
    const Json::Value* committed = findComponent(mDataSets->get(), dataset, component);
    if (committed == nullptr)
        return;
    const std::unique_lock changesGuard(mChangesMutex);
    if (Json::Value* copy = findOrCreateComponent(mChanges, dataset, component))
        *copy = *committed;
}

void DataSets::untouchComponent(const std::string& dataset, const std::string& component)
{
    const std::lock_guard guard(*this);
    const std::unique_lock changesGuard(mChangesMutex);
    removeMember(member(member(&mChanges, dataset), "components"), component);
}

// The queries do not wait for a thread that holds lock(); a caller that needs several consistent
// answers takes lock() itself.

bool DataSets::isChanged()
{
    const std::shared_lock guard(mChangesMutex);
    return !mChanges.empty();
}

bool DataSets::isChangedDataSet(const std::string& dataset)
{
    const std::shared_lock guard(mChangesMutex);
    return member(&mChanges, dataset) != nullptr;
}

bool DataSets::isChangedComponent(const std::string& dataset, const std::string& component)
{
    const std::shared_lock guard(mChangesMutex);
    return findComponent(mChanges, dataset, component) != nullptr;
}

bool DataSets::isChangedInstance(const std::string& dataset, const std::string& component,
                                 const std::string& key)
{
    const std::shared_lock guard(mChangesMutex);
    return InstanceRef(key).find(findComponent(mChanges, dataset, component)) != nullptr;
}

bool DataSets::isChangedInstance(const std::string& dataset, const std::string& component,
                                 int index)
{
    const std::shared_lock guard(mChangesMutex);
    return InstanceRef(index).find(findComponent(mChanges, dataset, component)) != nullptr;
}

bool DataSets::isChangedProperty(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& key)
{
    const std::shared_lock guard(mChangesMutex);
    return ParamRef{dataset, component, property, InstanceRef(key)}.find(mChanges) != nullptr;
}

bool DataSets::isChangedProperty(const std::string& dataset, const std::string& component,
                                 const std::string& property, int index)
{
    const std::shared_lock guard(mChangesMutex);
    return ParamRef{dataset, component, property, InstanceRef(index)}.find(mChanges) != nullptr;
}

Fcodes DataSets::commit()
{
    const std::lock_guard guard(*this);
    for (auto dataset = mChanges.begin(); dataset != mChanges.end(); ++dataset) {
        const Json::Value* components = member(&*dataset, "components");
        if (components == nullptr || !components->isObject())
            continue;
        for (auto copy = components->begin(); copy != components->end(); ++copy)
            commitWorkingCopy(dataset.name(), copy.name(), *copy);
    }
    const std::unique_lock changesGuard(mChangesMutex);
    mChanges.clear();
    return FC_OK;
}

Fcodes DataSets::commitComponent(const std::string& dataset, const std::string& component)
{
    const std::lock_guard guard(*this);
    const Json::Value* copy = findComponent(mChanges, dataset, component);
    if (copy == nullptr)
        return FC_OK;
    commitWorkingCopy(dataset, component, *copy);
    // Kept on purpose: callers count on the dataset still being changed, even with nothing left in
    // its working copy.
    untouchComponent(dataset, component);
    return FC_OK;
}

void DataSets::commitWorkingCopy(const std::string& dataset, const std::string& component,
                                 const Json::Value& copy)
{
    if (const Json::Value* single = member(&copy, "instance"))
        commitInstance(dataset, component, InstanceRef(kSingleInstance), *single);

    const Json::Value* instances = member(&copy, "instances");
    if (instances == nullptr)
        return;
    if (instances->isArray())
        for (Json::ArrayIndex index = 0; index < instances->size(); ++index)
            commitInstance(dataset, component, InstanceRef(static_cast<int>(index)),
                           (*instances)[index]);
    else if (instances->isObject())
        for (auto it = instances->begin(); it != instances->end(); ++it)
            commitInstance(dataset, component, InstanceRef(it.name()), *it);
}

/// Only what the working copy holds is copied, member by member: nothing is ever removed, and the
/// empty elements with which an array grew up to a written index change nothing.
void DataSets::commitInstance(const std::string& dataset, const std::string& component,
                              const InstanceRef& instance, const Json::Value& copy)
{
    if (!copy.isObject() || copy.empty())
        return;
    Json::Value* committed =
        instance.findOrCreate(findOrCreateComponent(mDataSets->grow(), dataset, component));
    for (auto it = copy.begin(); it != copy.end(); ++it) {
        Json::Value* value = findOrCreateMember(committed, it.name());
        if (value == nullptr) {
            DBG_LOG(SEV_ERROR) << "commit: Couldn't commit dataset=" << dataset
                               << " comp=" << component << " ind=" << instance
                               << ", the committed data has another shape";
            return;
        }
        *value = *it;
    }
}

Fcodes DataSets::rollback()
{
    const std::lock_guard guard(*this);
    const std::unique_lock changesGuard(mChangesMutex);
    mChanges.clear();
    return FC_OK;
}

Fcodes DataSets::rollbackComponent(const std::string& dataset, const std::string& component)
{
    untouchComponent(dataset, component);
    return FC_OK;
}

void DataSets::untouchProperty(const std::string& dataset, const std::string& component,
                               const std::string& property, const std::string& key)
{
    const std::lock_guard guard(*this);
    const std::unique_lock changesGuard(mChangesMutex);
    removeMember(InstanceRef(key).find(findComponent(mChanges, dataset, component)), property);
}

void DataSets::untouchProperty(const std::string& dataset, const std::string& component,
                               const std::string& property, int index)
{
    const std::lock_guard guard(*this);
    const std::unique_lock changesGuard(mChangesMutex);
    removeMember(InstanceRef(index).find(findComponent(mChanges, dataset, component)), property);
}
