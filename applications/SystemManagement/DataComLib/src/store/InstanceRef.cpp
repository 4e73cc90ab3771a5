#include "store/InstanceRef.h"

namespace
{

template <typename Value>
Value* componentIn(Value* tree, const std::string& dataset, const std::string& component)
{
    return member(member(member(tree, dataset), "components"), component);
}

/// Whether the value is of that type or could become one.
bool canBe(Json::ValueType type, const Json::Value* value)
{
    return value == nullptr || value->isNull() || value->type() == type;
}

} // namespace

template <typename Value>
Value* InstanceRef::findIn(Value* component) const
{
    if (!byIndex())
        return mKey->empty() ? member(component, "instance")
                             : member(member(component, "instances"), *mKey);

    Value* instances = member(component, "instances");
    if (instances == nullptr || !instances->isArray() || mIndex < 0)
        return nullptr;
    const auto index = static_cast<Json::ArrayIndex>(mIndex);
    return instances->isValidIndex(index) ? &(*instances)[index] : nullptr;
}

const Json::Value* InstanceRef::find(const Json::Value* component) const
{
    return findIn(component);
}

Json::Value* InstanceRef::find(Json::Value* component) const { return findIn(component); }

Json::Value* InstanceRef::findOrCreate(Json::Value* component) const
{
    if (!byIndex())
        return mKey->empty()
                   ? findOrCreateMember(component, "instance")
                   : findOrCreateMember(findOrCreateMember(component, "instances"), *mKey);

    Json::Value* instances = mIndex < 0 ? nullptr : findOrCreateMember(component, "instances");
    if (instances == nullptr || !(instances->isArray() || instances->isNull()))
        return nullptr;
    const auto index = static_cast<Json::ArrayIndex>(mIndex);
    if (!instances->isValidIndex(index))
        instances->resize(index + 1);
    return &(*instances)[index];
}

bool InstanceRef::fits(const Json::Value* component) const
{
    if (byIndex())
        return mIndex >= 0 && canBe(Json::arrayValue, member(component, "instances"));
    return mKey->empty() || canBe(Json::objectValue, member(component, "instances"));
}

std::ostream& operator<<(std::ostream& out, const InstanceRef& instance)
{
    if (instance.byIndex())
        return out << instance.index();
    return out << instance.key();
}

const Json::Value* findComponent(const Json::Value& tree, const std::string& dataset,
                                 const std::string& component)
{
    return componentIn(&tree, dataset, component);
}

Json::Value* findComponent(Json::Value& tree, const std::string& dataset,
                           const std::string& component)
{
    return componentIn(&tree, dataset, component);
}

Json::Value* findOrCreateComponent(Json::Value& tree, const std::string& dataset,
                                   const std::string& component)
{
    return findOrCreateMember(findOrCreateMember(findOrCreateMember(&tree, dataset), "components"),
                              component);
}

bool ParamRef::fits(const Json::Value& tree) const
{
    const Json::Value* document = member(&tree, dataset);
    const Json::Value* components = member(document, "components");
    const Json::Value* found = member(components, component);
    return canBe(Json::objectValue, document) && canBe(Json::objectValue, components) &&
           canBe(Json::objectValue, found) && instance.fits(found) &&
           canBe(Json::objectValue, instance.find(found));
}
