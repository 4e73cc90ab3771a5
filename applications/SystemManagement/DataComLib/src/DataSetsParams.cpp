// Typed access to single properties: the part of DataSets behind the two dozen get, getNew, set and
// init operations.

#include "DataSets.h"
#include "DbgLine.h"
#include "store/CommittedTree.h"
#include "store/PropertyRule.h"

#include <json/writer.h>

namespace
{

constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

constexpr Json::ValueType jsonTypeOf(int) { return Json::intValue; }
constexpr Json::ValueType jsonTypeOf(bool) { return Json::booleanValue; }
Json::ValueType jsonTypeOf(const std::string&) { return Json::stringValue; }

template <typename Value>
void read(const Json::Value& current, Value& value)
{
    value = current.as<Value>();
}

void read(const Json::Value& current, std::string& value)
{
    const char* begin = nullptr;
    const char* end = nullptr;
    if (current.isString() && current.getString(&begin, &end))
        value.assign(begin, end); // into what it has
    else
        value = current.asString();
}

} // namespace

template <typename Value>
Fcodes DataSets::convert(const char* prefix, const ParamRef& at, const Json::Value& current,
                         Value& value)
{
    if (!current.isConvertibleTo(jsonTypeOf(value))) {
        DBG_LOG(SEV_ERROR) << prefix << at.dataset << " comp=" << at.component
                           << " param=" << at.property << " ind=" << at.instance << " wrong type.";
        return FC_WRONG_TYPE;
    }
    read(current, value);
    return FC_OK;
}

template <typename Value>
Fcodes DataSets::readParam(const char* prefix, const ParamRef& at, Value& value)
{
    const std::lock_guard guard(*this);
    const Json::Value* current = mDataSets->find(at);
    if (current == nullptr) {
        DBG_LOG(SEV_WARN) << prefix << at.dataset << " comp=" << at.component
                          << " param=" << at.property << " ind=" << at.instance << " No such name.";
        return FC_NO_SUCH_NAME;
    }
    return convert(prefix, at, *current, value);
}

template <typename Value, typename ReadCommitted>
Fcodes DataSets::readNewParam(const char* prefix, const ParamRef& at, Value& value,
                              ReadCommitted readCommitted)
{
    const std::lock_guard guard(*this);
    const Json::Value* pending = at.find(mChanges);
    return pending == nullptr ? readCommitted() : convert(prefix, at, *pending, value);
}

template <typename Value>
Fcodes DataSets::writeParam(const WriteOperation& operation, const ParamRef& at, const Value& value)
{
    const std::lock_guard guard(*this);
    Json::Value* current = mDataSets->findToOverwrite(at);
    if (current == nullptr)
        return logMissing(operation, at, value);

    const Json::Value* component = findComponent(mDataSets->get(), at.dataset, at.component);
    const PropertyRule rule(member(member(component, "properties"), at.property));
    Json::Value converted;
    if (const Fcodes result = rule.accept(value, *current, converted); result != FC_OK) {
        logRefusal(operation, at, value, result, rule.type());
        return result;
    }
    if (!operation.committed)
        return writePending(operation, at, converted);
    if (operation.logsConversion)
        logConversion(operation, at, value, converted);
    return writeCommitted(at, *current, converted);
}

template <typename Value>
Fcodes DataSets::logMissing(const WriteOperation& operation, const ParamRef& at, const Value& value)
{
    // Kept on purpose: log readers count on only some of the writers naming the instance.
    if (operation.logsIndex)
        DBG_LOG(SEV_ERROR) << operation.prefix << at.dataset << " comp=" << at.component
                           << " param=" << at.property << " val=" << value << " ind=" << at.instance
                           << " No such name.";
    else
        DBG_LOG(SEV_ERROR) << operation.prefix << at.dataset << " comp=" << at.component
                           << " param=" << at.property << " val=" << value << " No such name.";
    return FC_NO_SUCH_NAME;
}

template <typename Value>
void DataSets::logRefusal(const WriteOperation& operation, const ParamRef& at, const Value& value,
                          Fcodes result, const Json::Value& type)
{
    if (result == FC_BAD_VALUE)
        DBG_LOG(SEV_ERROR) << operation.prefix << at.dataset << " comp=" << at.component
                           << " param=" << at.property << " val=" << value << " absent in enum";
    else
        DBG_LOG(SEV_ERROR) << operation.prefix << at.dataset << " comp=" << at.component
                           << " param=" << at.property << " val=" << value
                           << " wrong expected type:" << type;
}

template <typename Value>
void DataSets::logConversion(const WriteOperation& operation, const ParamRef& at,
                             const Value& value, const Json::Value& stored)
{
    if (stored.isInt())
        DBG_LOG(SEV_WARN) << operation.prefix << at.dataset << " comp=" << at.component
                          << " param=" << at.property << " val=" << value
                          << " set as int=" << stored.asInt();
    else if (stored.isBool())
        DBG_LOG(SEV_WARN) << operation.prefix << at.dataset << " comp=" << at.component
                          << " param=" << at.property << " val=" << value
                          << " set as bool=" << stored.asBool();
}

Fcodes DataSets::writeCommitted(const ParamRef& at, Json::Value& current, Json::Value& value)
{
    current = std::move(value);
    if (at.instance.byIndex())
        untouchProperty(at.dataset, at.component, at.property, at.instance.index());
    else
        untouchProperty(at.dataset, at.component, at.property, at.instance.key());
    return FC_OK;
}

Fcodes DataSets::writePending(const WriteOperation& operation, const ParamRef& at,
                              Json::Value& value)
{
    const std::unique_lock changesGuard(mChangesMutex);
    Json::Value* pending = at.findOrCreate(mChanges);
    if (pending == nullptr) {
        DBG_LOG(SEV_ERROR) << operation.prefix << at.dataset << " comp=" << at.component
                           << " param=" << at.property << " ind=" << at.instance
                           << " doesn't fit the working copy";
        return FC_WRONG_TYPE;
    }
    *pending = std::move(value);
    return FC_OK;
}

Fcodes DataSets::getIntParam(const std::string& dataset, const std::string& component,
                             const std::string& property, int& value, int index)
{
    return readParam("getIntParam: dataset=", {dataset, component, property, InstanceRef(index)},
                     value);
}

Fcodes DataSets::getIntParam(const std::string& dataset, const std::string& component,
                             const std::string& property, int& value, const std::string& key)
{
    return readParam("getIntParam: dataset=", {dataset, component, property, InstanceRef(key)},
                     value);
}

Fcodes DataSets::getTextParam(const std::string& dataset, const std::string& component,
                              const std::string& property, std::string& value, int index)
{
    return readParam("getTextParam: dataset=", {dataset, component, property, InstanceRef(index)},
                     value);
}

Fcodes DataSets::getTextParam(const std::string& dataset, const std::string& component,
                              const std::string& property, std::string& value,
                              const std::string& key)
{
    return readParam("getTextParam: dataset=", {dataset, component, property, InstanceRef(key)},
                     value);
}

Fcodes DataSets::getBoolParam(const std::string& dataset, const std::string& component,
                              const std::string& property, bool& value, int index)
{
    return readParam("getBoolParam: dataset=", {dataset, component, property, InstanceRef(index)},
                     value);
}

Fcodes DataSets::getBoolParam(const std::string& dataset, const std::string& component,
                              const std::string& property, bool& value, const std::string& key)
{
    return readParam("getBoolParam: dataset=", {dataset, component, property, InstanceRef(key)},
                     value);
}

Fcodes DataSets::getNewIntParam(const std::string& dataset, const std::string& component,
                                const std::string& property, int& value, int index)
{
    return readNewParam(
        "getNewIntParam: dataset=", {dataset, component, property, InstanceRef(index)}, value,
        [&] { return getIntParam(dataset, component, property, value, index); });
}

Fcodes DataSets::getNewIntParam(const std::string& dataset, const std::string& component,
                                const std::string& property, int& value, const std::string& key)
{
    return readNewParam(
        "getNewIntParam: dataset=", {dataset, component, property, InstanceRef(key)}, value,
        [&] { return getIntParam(dataset, component, property, value, key); });
}

Fcodes DataSets::getNewTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, std::string& value, int index)
{
    return readNewParam(
        "getNewTextParam: dataset=", {dataset, component, property, InstanceRef(index)}, value,
        [&] { return getTextParam(dataset, component, property, value, index); });
}

Fcodes DataSets::getNewTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, std::string& value,
                                 const std::string& key)
{
    return readNewParam(
        "getNewTextParam: dataset=", {dataset, component, property, InstanceRef(key)}, value,
        [&] { return getTextParam(dataset, component, property, value, key); });
}

Fcodes DataSets::getNewBoolParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, bool& value, int index)
{
    return readNewParam(
        "getNewBoolParam: dataset=", {dataset, component, property, InstanceRef(index)}, value,
        [&] { return getBoolParam(dataset, component, property, value, index); });
}

Fcodes DataSets::getNewBoolParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, bool& value, const std::string& key)
{
    return readNewParam(
        "getNewBoolParam: dataset=", {dataset, component, property, InstanceRef(key)}, value,
        [&] { return getBoolParam(dataset, component, property, value, key); });
}

Fcodes DataSets::setIntParam(const std::string& dataset, const std::string& component,
                             const std::string& property, int value, int index)
{
    return writeParam({.prefix = "setIntParam: dataset="},
                      {dataset, component, property, InstanceRef(index)}, value);
}

Fcodes DataSets::setIntParam(const std::string& dataset, const std::string& component,
                             const std::string& property, int value, const std::string& key)
{
    return writeParam({.prefix = "setIntParam: dataset="},
                      {dataset, component, property, InstanceRef(key)}, value);
}

Fcodes DataSets::setTextParam(const std::string& dataset, const std::string& component,
                              const std::string& property, const std::string& value, int index)
{
    return writeParam({.prefix = "setTextParam: dataset=", .logsIndex = true},
                      {dataset, component, property, InstanceRef(index)}, value);
}

Fcodes DataSets::setTextParam(const std::string& dataset, const std::string& component,
                              const std::string& property, const std::string& value,
                              const std::string& key)
{
    return writeParam({.prefix = "setTextParam: dataset="},
                      {dataset, component, property, InstanceRef(key)}, value);
}

Fcodes DataSets::setBoolParam(const std::string& dataset, const std::string& component,
                              const std::string& property, bool value, int index)
{
    return writeParam({.prefix = "setBoolParam: dataset="},
                      {dataset, component, property, InstanceRef(index)}, value);
}

Fcodes DataSets::setBoolParam(const std::string& dataset, const std::string& component,
                              const std::string& property, bool value, const std::string& key)
{
    return writeParam({.prefix = "setBoolParam: dataset="},
                      {dataset, component, property, InstanceRef(key)}, value);
}

Fcodes DataSets::initIntParam(const std::string& dataset, const std::string& component,
                              const std::string& property, int value, int index)
{
    return writeParam({.prefix = "initIntParam: dataset=", .committed = true},
                      {dataset, component, property, InstanceRef(index)}, value);
}

Fcodes DataSets::initIntParam(const std::string& dataset, const std::string& component,
                              const std::string& property, int value, const std::string& key)
{
    return writeParam({.prefix = "initIntParam: dataset=", .committed = true},
                      {dataset, component, property, InstanceRef(key)}, value);
}

Fcodes DataSets::initTextParam(const std::string& dataset, const std::string& component,
                               const std::string& property, const std::string& value, int index)
{
    return writeParam({.prefix = "initTextParam: dataset=",
                       .committed = true,
                       .logsIndex = true,
                       .logsConversion = true},
                      {dataset, component, property, InstanceRef(index)}, value);
}

Fcodes DataSets::initTextParam(const std::string& dataset, const std::string& component,
                               const std::string& property, const std::string& value,
                               const std::string& key)
{
    return writeParam(
        {.prefix = "initTextParam: dataset=", .committed = true, .logsConversion = true},
        {dataset, component, property, InstanceRef(key)}, value);
}

Fcodes DataSets::initBoolParam(const std::string& dataset, const std::string& component,
                               const std::string& property, bool value, int index)
{
    return writeParam({.prefix = "initBoolParam: dataset=", .committed = true},
                      {dataset, component, property, InstanceRef(index)}, value);
}

Fcodes DataSets::initBoolParam(const std::string& dataset, const std::string& component,
                               const std::string& property, bool value, const std::string& key)
{
    return writeParam({.prefix = "initBoolParam: dataset=", .committed = true},
                      {dataset, component, property, InstanceRef(key)}, value);
}
