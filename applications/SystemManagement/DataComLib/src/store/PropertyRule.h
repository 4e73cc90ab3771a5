#pragma once

// What a property's definition allows: which values it takes, what they are stored as, and what a
// new instance starts with. It refers to the definition in a component's "properties", which must
// outlive it. Takes no lock, never logs, never throws.

#include "Fcodes.h"

#include <json/value.h>
#include <string>
#include <string_view>

class PropertyRule
{
public:
    /// `definition` may be null or of any shape; then no value is allowed.
    explicit PropertyRule(const Json::Value* definition) : mDefinition(definition) {}

    /// Checks a new value against the definition and against the value that it would replace, and
    /// converts it to the form in which it is stored. FC_OK; FC_BAD_VALUE when an enumeration lacks
    /// it; FC_WRONG_TYPE when the definition's type or that of the current value differs.
    Fcodes accept(int value, const Json::Value& current, Json::Value& stored) const;
    Fcodes accept(bool value, const Json::Value& current, Json::Value& stored) const;
    Fcodes accept(const std::string& value, const Json::Value& current, Json::Value& stored) const;

    /// The same for a value from a JSON request, whose JSON type counts: no text is converted.
    Fcodes accept(const Json::Value& value, const Json::Value& current, Json::Value& stored) const;

    /// True when the definition's "access" is "RO". Only JSON requests check it.
    bool isReadOnly() const { return memberEquals("access", "RO"); }

    /// The definition's "type", of whatever JSON type; null when it has none.
    const Json::Value& type() const;

    /// What a new instance holds: the definition's "default", or the text "0" without one.
    Json::Value defaultValue() const;

    /// The same in the form of the definition's type, so that a typed write finds a value that it
    /// may overwrite: an integer or a boolean (texts converted as by accept(), 0 or false for what
    /// has no such form), a text for "string", the default as it stands for any other type.
    Json::Value typedDefault() const;

private:
    bool memberEquals(std::string_view name, std::string_view text) const;
    bool isType(std::string_view name) const { return memberEquals("type", name); }
    template <typename Value>
    bool isEnumerated(const Value& value) const;

    const Json::Value* mDefinition;
};
