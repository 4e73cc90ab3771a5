#include "store/RequestRow.h"

std::optional<RequestRow> RequestRow::read(const Json::Value& element)
{
    const Json::Value* name = element.isObject() ? member(&element, "index") : &element;
    if (name != nullptr && name->isInt())
        return RequestRow(name->asInt());
    if (name != nullptr && name->isString())
        return RequestRow(name->asString());
    return std::nullopt;
}

const Json::Value* RequestRow::find(const Json::Value* instances) const
{
    if (!mByIndex)
        return member(instances, mKey);
    if (instances == nullptr || !instances->isArray() || mIndex < 0)
        return nullptr;
    const auto index = static_cast<Json::ArrayIndex>(mIndex);
    return instances->isValidIndex(index) ? &(*instances)[index] : nullptr;
}
