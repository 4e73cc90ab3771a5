#include "store/DatasetUpdate.h"

#include "DbgLine.h"
#include "store/JsonMember.h"
#include "store/PropertyRule.h"

#include <algorithm>
#include <optional>

namespace
{

// The lines are part of the store's log.
constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

/// The instances of a component by the first shape that it has.
struct Instances {
    explicit Instances(Json::Value& component)
    {
        Json::Value* instances = member(&component, "instances");
        Json::Value* instance = member(&component, "instance");
        if (instances != nullptr && instances->isObject())
            keyed = instances;
        else if (instances != nullptr && instances->isArray())
            indexed = instances;
        else if (instance != nullptr && instance->isObject())
            single = instance;
    }

    Json::Value* keyed = nullptr;
    Json::Value* indexed = nullptr;
    Json::Value* single = nullptr;
};

std::vector<std::string> memberNames(const Json::Value& value)
{
    return value.isObject() ? value.getMemberNames() : std::vector<std::string>();
}

bool lacksProperty(const Json::Value& instance, const std::string& property)
{
    return instance.isObject() && member(&instance, property) == nullptr;
}

bool hasProperty(const Json::Value& instance, const std::string& property)
{
    return member(&instance, property) != nullptr;
}

bool anyInstanceLacks(Json::Value& component, const std::string& property)
{
    const Instances instances(component);
    if (instances.single != nullptr)
        return lacksProperty(*instances.single, property);
    const Json::Value* many = instances.keyed != nullptr ? instances.keyed : instances.indexed;
    return many != nullptr && std::any_of(many->begin(), many->end(), [&](const Json::Value& one) {
               return lacksProperty(one, property);
           });
}

/// The value in the form of a property type; nothing when it has no such form.
std::optional<Json::Value> inFormOf(const std::string& type, const Json::Value* value)
{
    if (value == nullptr || type == "enum")
        return value == nullptr ? std::nullopt : std::optional(*value);
    if (type == "integer" && value->isConvertibleTo(Json::intValue))
        return value->asInt();
    if (type == "boolean" && value->isConvertibleTo(Json::booleanValue))
        return value->asBool();
    if (type != "integer" && type != "boolean" && value->isConvertibleTo(Json::stringValue))
        return value->asString();
    return std::nullopt;
}

/// The line for a value that a keyed instance has been given.
void logAdded(const std::string& type, const Json::Value& value)
{
    if (type == "integer")
        DBG_LOG(SEV_ERROR) << "updateDataSet: Adding int value=" << value.asInt();
    else if (type == "boolean")
        DBG_LOG(SEV_ERROR) << "updateDataSet: Adding boolean value=" << value.asBool();
    else if (type == "enum")
        DBG_LOG(SEV_ERROR) << "updateDataSet: Adding enum value=" << textOf(&value);
    else
        DBG_LOG(SEV_ERROR) << "updateDataSet: Adding string value=" << textOf(&value);
}

} // namespace

bool DatasetUpdate::isReference(const Json::Value& components)
{
    return components.isObject() &&
           std::all_of(components.begin(), components.end(), [](const Json::Value& component) {
               const Json::Value* properties = member(&component, "properties");
               return component.isObject() && (properties == nullptr || properties->isObject());
           });
}

Fcodes DatasetUpdate::run(const Options& options)
{
    Fcodes result = FC_OK;
    for (const std::string& component : memberNames(mRef))
        result |= addOrUpdate(component, *member(&mRef, component), options);

    if (options.keepAbsent)
        return result;
    for (const std::string& component : memberNames(mSrc))
        if (const Json::Value* ref = member(&mRef, component))
            removeAbsentProperties(component, *member(&mSrc, component), *ref);
    removeAbsentComponents();
    return result;
}

Fcodes DatasetUpdate::addOrUpdate(const std::string& component, const Json::Value& ref,
                                  const Options& options)
{
    Json::Value* src = member(&mSrc, component);
    if (src == nullptr) {
        DBG_LOG(SEV_ERROR) << "updateDataSet: Adding comp=" << component
                           << " to src_dataset=" << mSrcName;
        Json::Value* slot = findOrCreateMember(&mSrc, component);
        if (slot == nullptr)
            return FC_WRONG_TYPE;
        *slot = ref;
        return FC_OK;
    }

    DBG_LOG(SEV_ERROR) << "updateDataSet: Updating existing comp=" << component
                       << " in src_dataset=" << mSrcName;
    Fcodes result = FC_OK;
    if (options.replaceInstances)
        result |= replaceInstances(*src, ref);
    if (options.mergeProperties)
        result |= mergeProperties(component, *src, ref);
    return result;
}

Fcodes DatasetUpdate::replaceInstances(Json::Value& src, const Json::Value& ref)
{
    for (const char* name : {"instances", "instance"}) {
        const Json::Value* replacement = member(&ref, name);
        if (replacement == nullptr || replacement->isNull())
            continue;
        Json::Value* slot = findOrCreateMember(&src, name);
        if (slot == nullptr)
            return FC_WRONG_TYPE;
        *slot = *replacement;
    }
    return FC_OK;
}

Fcodes DatasetUpdate::mergeProperties(const std::string& component, Json::Value& src,
                                      const Json::Value& ref)
{
    const Json::Value* definitions = member(&ref, "properties");
    if (definitions == nullptr || !definitions->isObject())
        return FC_OK;
    Json::Value* properties = findOrCreateMember(&src, "properties");
    if (properties == nullptr || !(properties->isObject() || properties->isNull()))
        return FC_WRONG_TYPE;

    const bool hadNone = properties->isNull();
    if (hadNone) {
        DBG_LOG(SEV_ERROR) << "updateDataSet: No properties in comp=" << component << ". Adding...";
        *properties = Json::Value(Json::objectValue);
    }
    for (auto definition = definitions->begin(); definition != definitions->end(); ++definition) {
        const std::string property = definition.name();
        const bool missing = member(properties, property) == nullptr;
        if (missing && !hadNone)
            DBG_LOG(SEV_ERROR) << "updateDataSet: Adding property=" << property;
        *findOrCreateMember(properties, property) = *definition;
        // Looking first keeps the log of a start with nothing to complete short.
        if (missing || anyInstanceLacks(src, property))
            completeInstances(component, property, src, ref);
    }
    return FC_OK;
}

void DatasetUpdate::completeInstances(const std::string& component, const std::string& property,
                                      Json::Value& src, const Json::Value& ref)
{
    const Instances instances(src);
    const PropertyRule rule(member(member(&ref, "properties"), property));
    if (instances.keyed != nullptr) {
        DBG_LOG(SEV_ERROR) << "updateDataSet: Values are objects with keys in comp=" << component;
        completeKeyed(property, *instances.keyed, ref);
    } else if (instances.indexed != nullptr) {
        for (Json::ArrayIndex index = 0; index < instances.indexed->size(); ++index) {
            Json::Value& instance = (*instances.indexed)[index];
            if (!lacksProperty(instance, property))
                continue;
            DBG_LOG(SEV_ERROR) << "updateDataSet: Adding default value ind=" << index;
            instance[property] = rule.typedDefault();
        }
    } else if (instances.single != nullptr) {
        DBG_LOG(SEV_ERROR) << "updateDataSet: Testing single instance in comp=" << component;
        if (!lacksProperty(*instances.single, property))
            return;
        DBG_LOG(SEV_ERROR) << "updateDataSet: Adding default single instance prop=" << property;
        (*instances.single)[property] = rule.typedDefault();
    } else {
        DBG_LOG(SEV_ERROR) << "updateDataSet: No values in comp=" << component;
    }
}

void DatasetUpdate::completeKeyed(const std::string& property, Json::Value& instances,
                                  const Json::Value& ref)
{
    const PropertyRule rule(member(member(&ref, "properties"), property));
    const std::string type = textOf(&rule.type());
    const Json::Value* refInstances = member(&ref, "instances");
    for (auto instance = instances.begin(); instance != instances.end(); ++instance) {
        const std::string key = instance.name();
        DBG_LOG(SEV_ERROR) << "updateDataSet: Testing value key=" << key;
        if (const Json::Value* present = member(&*instance, property)) {
            DBG_LOG(SEV_ERROR) << "updateDataSet: Found value=" << textOf(present);
        } else if (instance->isObject()) {
            const Json::Value* refValue = member(member(refInstances, key), property);
            if (refValue != nullptr)
                DBG_LOG(SEV_ERROR) << "updateDataSet: Found value=" << textOf(refValue);
            std::optional<Json::Value> converted = inFormOf(type, refValue);
            Json::Value& added = (*instance)[property];
            added = converted ? *converted : rule.typedDefault();
            logAdded(type, added);
            if (!converted)
                DBG_LOG(SEV_ERROR) << "updateDataSet: Adding default value key=" << key;
        }
    }
}

void DatasetUpdate::removeAbsentProperties(const std::string& component, Json::Value& src,
                                           const Json::Value& ref)
{
    DBG_LOG(SEV_ERROR) << "updateDataSet: Removing non-existent properties from comp=" << component;
    Json::Value* properties = member(&src, "properties");
    if (properties == nullptr)
        return;
    const Json::Value* kept = member(&ref, "properties");
    for (const std::string& property : memberNames(*properties)) {
        DBG_LOG(SEV_ERROR) << "updateDataSet: Testing property=" << property;
        if (member(kept, property) != nullptr)
            continue;
        DBG_LOG(SEV_ERROR) << "updateDataSet: Removing property=" << property;
        removeMember(properties, property);
        removeValues(property, src);
    }
}

void DatasetUpdate::removeValues(const std::string& property, Json::Value& src)
{
    DBG_LOG(SEV_ERROR) << "updateDataSet: Removing non-existent values prop=" << property
                       << " in ref_dataset=" << mRefName;
    const Instances instances(src);
    if (instances.keyed != nullptr) {
        for (auto instance = instances.keyed->begin(); instance != instances.keyed->end();
             ++instance) {
            if (!hasProperty(*instance, property))
                continue;
            DBG_LOG(SEV_ERROR) << "updateDataSet: Removing value from key=" << instance.name()
                               << " in ref_dataset=" << mRefName;
            removeMember(&*instance, property);
        }
    } else if (instances.indexed != nullptr) {
        for (Json::ArrayIndex index = 0; index < instances.indexed->size(); ++index) {
            Json::Value& instance = (*instances.indexed)[index];
            if (!hasProperty(instance, property))
                continue;
            DBG_LOG(SEV_ERROR) << "updateDataSet: Removing value from ind=" << index
                               << " in ref_dataset=" << mRefName;
            removeMember(&instance, property);
        }
    } else if (instances.single != nullptr && hasProperty(*instances.single, property)) {
        DBG_LOG(SEV_ERROR) << "updateDataSet: Removing value from single inst prop=" << property
                           << " in ref_dataset=" << mRefName;
        removeMember(instances.single, property);
    }
}

void DatasetUpdate::removeAbsentComponents()
{
    DBG_LOG(SEV_ERROR) << "updateDataSet: Looking for components to remove from src_dataset="
                       << mSrcName;
    for (const std::string& component : memberNames(mSrc)) {
        DBG_LOG(SEV_ERROR) << "updateDataSet: Looking to Remove comp=" << component;
        if (member(&mRef, component) != nullptr)
            continue;
        DBG_LOG(SEV_ERROR) << "updateDataSet: Removing comp=" << component;
        removeMember(&mSrc, component);
    }
}
