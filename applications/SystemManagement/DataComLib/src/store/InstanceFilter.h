#pragma once

// A condition by which instances are searched, for example "(Text) Starts with" and its operand.
// The type of the operand chooses between a text form and an integer form; unknown conditions
// select nothing. Takes no lock, never logs, never throws.

#include <json/value.h>
#include <string>

class InstanceFilter
{
public:
    InstanceFilter(const std::string& condition, const std::string& operand);
    InstanceFilter(const std::string& condition, int operand);

    /// Tests a property value; null means that the instance lacks the property.
    bool selects(const Json::Value* value) const;

    /// Tests the key of an instance.
    bool selectsText(const std::string& text) const;

private:
    using TextTest = bool (*)(const std::string& value, const std::string& operand);
    using NumberTest = bool (*)(int value, int operand);

    struct Condition;
    static const Condition* find(const std::string& name);

    const Condition* mCondition; // null: an unknown one
    bool mNumeric;
    std::string mText;
    int mNumber = 0;
};
