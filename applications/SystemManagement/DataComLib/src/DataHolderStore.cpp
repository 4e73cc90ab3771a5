// The holder's store: each operation is the store's of the same name.

#include "DataHolder.h"

#include "IDataSets.h"

Fcodes DataHolder::loadDataSet(const std::string& path) { return mStore->loadDataSet(path); }

Fcodes DataHolder::loadDataSet(const std::string& dataset, const std::string& path)
{
    return mStore->loadDataSet(dataset, path);
}

Fcodes DataHolder::storeDataSet(const std::string& dataset, const std::string& path)
{
    return mStore->storeDataSet(dataset, path);
}

int DataHolder::lastStoreError(const std::string& path) { return mStore->lastStoreError(path); }

Fcodes DataHolder::deleteDataSet(const std::string& dataset)
{
    return mStore->deleteDataSet(dataset);
}

Fcodes DataHolder::updateDataSet(const std::string& src, const std::string& ref, bool keepAbsent,
                                 bool mergeProperties, bool replaceInstances)
{
    return mStore->updateDataSet(src, ref, keepAbsent, mergeProperties, replaceInstances);
}

Fcodes DataHolder::findDataSetWithComponent(std::string& dataset, const std::string& component)
{
    return mStore->findDataSetWithComponent(dataset, component);
}

Fcodes DataHolder::addInstance(const std::string& dataset, const std::string& component,
                               const std::string& key)
{
    return mStore->addInstance(dataset, component, key);
}

Fcodes DataHolder::appendInstance(const std::string& dataset, const std::string& component,
                                  int& index)
{
    return mStore->appendInstance(dataset, component, index);
}

Fcodes DataHolder::removeInstance(const std::string& dataset, const std::string& component,
                                  int index)
{
    return mStore->removeInstance(dataset, component, index);
}

Fcodes DataHolder::removeInstance(const std::string& dataset, const std::string& component,
                                  const std::string& key)
{
    return mStore->removeInstance(dataset, component, key);
}

Fcodes DataHolder::clearComponent(const std::string& dataset, const std::string& component)
{
    return mStore->clearComponent(dataset, component);
}

bool DataHolder::hasInstance(const std::string& dataset, const std::string& component,
                             const std::string& key)
{
    return mStore->hasInstance(dataset, component, key);
}

bool DataHolder::hasInstance(const std::string& dataset, const std::string& component, int index)
{
    return mStore->hasInstance(dataset, component, index);
}

Fcodes DataHolder::getProperties(const std::string& dataset, const std::string& component,
                                 std::vector<std::string>& names)
{
    return mStore->getProperties(dataset, component, names);
}

Fcodes DataHolder::getInstances(const std::string& dataset, const std::string& component,
                                std::vector<std::string>& names)
{
    return mStore->getInstances(dataset, component, names);
}

Fcodes DataHolder::listStoredInstances(const std::string& dataset, const std::string& component,
                                       std::vector<std::string>& names, std::size_t perName,
                                       std::size_t limit)
{
    return mStore->listInstances(dataset, component, names, perName, limit);
}

std::vector<std::string> DataHolder::getInstancesByParameter(const std::string& dataset,
                                                             const std::string& component,
                                                             const std::string& property,
                                                             const std::string& condition,
                                                             const std::string& operand)
{
    return mStore->getInstancesByParameter(dataset, component, property, condition, operand);
}

std::vector<std::string> DataHolder::getInstancesByParameter(const std::string& dataset,
                                                             const std::string& component,
                                                             const std::string& property,
                                                             const std::string& condition,
                                                             int operand)
{
    return mStore->getInstancesByParameter(dataset, component, property, condition, operand);
}

std::vector<std::string> DataHolder::getInstancesByKey(const std::string& dataset,
                                                       const std::string& component,
                                                       const std::string& condition,
                                                       const std::string& operand)
{
    return mStore->getInstancesByKey(dataset, component, condition, operand);
}

Fcodes DataHolder::getComponentPropertyDefault(const std::string& dataset,
                                               const std::string& component,
                                               const std::string& property,
                                               std::string& defaultValue)
{
    return mStore->getComponentPropertyDefault(dataset, component, property, defaultValue);
}

Fcodes DataHolder::getIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int& value, int index)
{
    return mStore->getIntParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int& value, const std::string& key)
{
    return mStore->getIntParam(dataset, component, property, value, key);
}

Fcodes DataHolder::getTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, std::string& value, int index)
{
    return mStore->getTextParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, std::string& value,
                                const std::string& key)
{
    return mStore->getTextParam(dataset, component, property, value, key);
}

Fcodes DataHolder::getBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool& value, int index)
{
    return mStore->getBoolParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool& value, const std::string& key)
{
    return mStore->getBoolParam(dataset, component, property, value, key);
}

Fcodes DataHolder::getNewIntParam(const std::string& dataset, const std::string& component,
                                  const std::string& property, int& value, int index)
{
    return mStore->getNewIntParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getNewIntParam(const std::string& dataset, const std::string& component,
                                  const std::string& property, int& value, const std::string& key)
{
    return mStore->getNewIntParam(dataset, component, property, value, key);
}

Fcodes DataHolder::getNewTextParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, std::string& value, int index)
{
    return mStore->getNewTextParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getNewTextParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, std::string& value,
                                   const std::string& key)
{
    return mStore->getNewTextParam(dataset, component, property, value, key);
}

Fcodes DataHolder::getNewBoolParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, bool& value, int index)
{
    return mStore->getNewBoolParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getNewBoolParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, bool& value, const std::string& key)
{
    return mStore->getNewBoolParam(dataset, component, property, value, key);
}

Fcodes DataHolder::setIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int value, int index)
{
    return mStore->setIntParam(dataset, component, property, value, index);
}

Fcodes DataHolder::setIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int value, const std::string& key)
{
    return mStore->setIntParam(dataset, component, property, value, key);
}

Fcodes DataHolder::setTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, const std::string& value, int index)
{
    return mStore->setTextParam(dataset, component, property, value, index);
}

Fcodes DataHolder::setTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, const std::string& value,
                                const std::string& key)
{
    return mStore->setTextParam(dataset, component, property, value, key);
}

Fcodes DataHolder::setBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool value, int index)
{
    return mStore->setBoolParam(dataset, component, property, value, index);
}

Fcodes DataHolder::setBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool value, const std::string& key)
{
    return mStore->setBoolParam(dataset, component, property, value, key);
}

Fcodes DataHolder::initIntParam(const std::string& dataset, const std::string& component,
                                const std::string& property, int value, int index)
{
    return mStore->initIntParam(dataset, component, property, value, index);
}

Fcodes DataHolder::initIntParam(const std::string& dataset, const std::string& component,
                                const std::string& property, int value, const std::string& key)
{
    return mStore->initIntParam(dataset, component, property, value, key);
}

Fcodes DataHolder::initTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& value, int index)
{
    return mStore->initTextParam(dataset, component, property, value, index);
}

Fcodes DataHolder::initTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& value,
                                 const std::string& key)
{
    return mStore->initTextParam(dataset, component, property, value, key);
}

Fcodes DataHolder::initBoolParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, bool value, int index)
{
    return mStore->initBoolParam(dataset, component, property, value, index);
}

Fcodes DataHolder::initBoolParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, bool value, const std::string& key)
{
    return mStore->initBoolParam(dataset, component, property, value, key);
}

void DataHolder::touchDataSet(const std::string& dataset) { mStore->touchDataSet(dataset); }

void DataHolder::untouchDataSet(const std::string& dataset) { mStore->untouchDataSet(dataset); }

void DataHolder::touchComponent(const std::string& dataset, const std::string& component)
{
    mStore->touchComponent(dataset, component);
}

void DataHolder::untouchComponent(const std::string& dataset, const std::string& component)
{
    mStore->untouchComponent(dataset, component);
}

bool DataHolder::isChanged() { return mStore->isChanged(); }

bool DataHolder::isChangedDataSet(const std::string& dataset)
{
    return mStore->isChangedDataSet(dataset);
}

bool DataHolder::isChangedComponent(const std::string& dataset, const std::string& component)
{
    return mStore->isChangedComponent(dataset, component);
}

bool DataHolder::isChangedInstance(const std::string& dataset, const std::string& component,
                                   const std::string& key)
{
    return mStore->isChangedInstance(dataset, component, key);
}

bool DataHolder::isChangedInstance(const std::string& dataset, const std::string& component,
                                   int index)
{
    return mStore->isChangedInstance(dataset, component, index);
}

bool DataHolder::isChangedProperty(const std::string& dataset, const std::string& component,
                                   const std::string& property, const std::string& key)
{
    return mStore->isChangedProperty(dataset, component, property, key);
}

bool DataHolder::isChangedProperty(const std::string& dataset, const std::string& component,
                                   const std::string& property, int index)
{
    return mStore->isChangedProperty(dataset, component, property, index);
}

Fcodes DataHolder::commit() { return mStore->commit(); }

Fcodes DataHolder::commitComponent(const std::string& dataset, const std::string& component)
{
    return mStore->commitComponent(dataset, component);
}

Fcodes DataHolder::rollback() { return mStore->rollback(); }

Fcodes DataHolder::rollbackComponent(const std::string& dataset, const std::string& component)
{
    return mStore->rollbackComponent(dataset, component);
}
