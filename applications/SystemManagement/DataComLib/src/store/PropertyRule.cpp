#include "store/PropertyRule.h"

#include "store/JsonMember.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace
{

constexpr Json::ValueType jsonTypeOf(int) { return Json::intValue; }
Json::ValueType jsonTypeOf(const std::string&) { return Json::stringValue; }

/// Base 0: "0x1F" and "017" are hexadecimal and octal, text that is no number is 0, and what
/// follows a number is ignored. Values out of range are cut to the range.
int toInt(const std::string& text)
{
    const long value = std::strtol(text.c_str(), nullptr, 0);
    return static_cast<int>(
        std::clamp<long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

bool toBool(const std::string& text) { return text == "true"; }

} // namespace

// Kept on purpose: callers count on both types being checked, that of the definition and that of
// the current value: a typed write never overwrites a value of another type.

Fcodes PropertyRule::accept(int value, const Json::Value& current, Json::Value& stored) const
{
    if (isType("integer") && current.isInt()) {
        stored = value;
        return FC_OK;
    }
    if (!isType("enum"))
        return FC_WRONG_TYPE;
    if (!isEnumerated(value))
        return FC_BAD_VALUE;
    stored = value;
    return FC_OK;
}

Fcodes PropertyRule::accept(bool value, const Json::Value& current, Json::Value& stored) const
{
    if (!isType("boolean") || !current.isBool())
        return FC_WRONG_TYPE;
    stored = value;
    return FC_OK;
}

Fcodes PropertyRule::accept(const std::string& value, const Json::Value& current,
                            Json::Value& stored) const
{
    if (isType("string") && current.isString()) {
        stored = value;
    } else if (isType("enum")) {
        if (!isEnumerated(value))
            return FC_BAD_VALUE;
        stored = value;
    } else if (isType("integer") && current.isInt()) {
        stored = toInt(value);
    } else if (isType("boolean") && current.isBool()) {
        stored = toBool(value);
    } else {
        return FC_WRONG_TYPE;
    }
    return FC_OK;
}

Fcodes PropertyRule::accept(const Json::Value& value, const Json::Value& current,
                            Json::Value& stored) const
{
    if (value.isBool())
        return accept(value.asBool(), current, stored);
    if (value.isInt())
        return accept(value.asInt(), current, stored);
    if (value.isString() && (isType("string") || isType("enum")))
        return accept(value.asString(), current, stored);
    return FC_WRONG_TYPE;
}

const Json::Value& PropertyRule::type() const
{
    const Json::Value* type = member(mDefinition, "type");
    return type == nullptr ? Json::Value::nullSingleton() : *type;
}

Json::Value PropertyRule::defaultValue() const
{
    const Json::Value* value = member(mDefinition, "default");
    return value == nullptr ? Json::Value("0") : *value;
}

Json::Value PropertyRule::typedDefault() const
{
    const Json::Value value = defaultValue();
    if (isType("integer")) {
        if (value.isString())
            return toInt(value.asString());
        return value.isConvertibleTo(Json::intValue) ? value.asInt() : 0;
    }
    if (isType("boolean")) {
        if (value.isString())
            return toBool(value.asString());
        return value.isConvertibleTo(Json::booleanValue) && value.asBool();
    }
    return isType("string") ? Json::Value(textOf(&value)) : value;
}

bool PropertyRule::memberEquals(std::string_view name, std::string_view text) const
{
    const Json::Value* value = member(mDefinition, name);
    const char* begin = nullptr;
    const char* end = nullptr;
    return value != nullptr && value->isString() && value->getString(&begin, &end) &&
           std::string_view(begin, static_cast<std::size_t>(end - begin)) == text;
}

template <typename Value>
bool PropertyRule::isEnumerated(const Value& value) const
{
    const Json::Value* values = member(mDefinition, "values");
    if (values == nullptr || !values->isArray())
        return false;
    return std::any_of(values->begin(), values->end(), [&value](const Json::Value& element) {
        return element.isConvertibleTo(jsonTypeOf(value)) && element.as<Value>() == value;
    });
}
