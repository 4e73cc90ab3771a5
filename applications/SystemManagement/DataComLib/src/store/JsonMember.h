#pragma once

// Reading documents of any shape. They come from files, so an array may stand where an object
// belongs, and the JSON library throws when it is asked for a member of anything but an object.
// These helpers answer null instead: null in, null out, so that look-ups chain.

#include <json/value.h>
#include <string>
#include <string_view>

/// The member of that name, or null: no such member, or not an object.
inline const Json::Value* member(const Json::Value* value, std::string_view name)
{
    if (value == nullptr || !value->isObject())
        return nullptr;
    return value->find(name.data(), name.data() + name.size());
}

inline Json::Value* member(Json::Value* value, std::string_view name)
{
    return const_cast<Json::Value*>(member(static_cast<const Json::Value*>(value), name));
}

/// The member of that name, created as a null value where it is missing; a null `value` becomes an
/// object. Null when `value` is of another shape.
inline Json::Value* findOrCreateMember(Json::Value* value, std::string_view name)
{
    if (value == nullptr || !(value->isObject() || value->isNull()))
        return nullptr;
    return value->demand(name.data(), name.data() + name.size());
}

/// Removes the member of that name, if there is one. (The library's own function cuts a name at its
/// first NUL, and would remove another member.)
inline void removeMember(Json::Value* value, std::string_view name)
{
    Json::Value removed;
    if (value != nullptr && value->isObject())
        value->removeMember(name.data(), name.data() + name.size(), &removed);
}

/// The value as text; a missing one, or one that has no text form, is the empty text.
inline std::string textOf(const Json::Value* value)
{
    if (value == nullptr || !value->isConvertibleTo(Json::stringValue))
        return {};
    return value->asString();
}
