#pragma once

// Addresses inside the trees of the store. A component keeps its instances in one of three shapes:
// an array addressed by index, an object addressed by key, or one unnamed instance addressed by the
// empty key.
//
// Both types refer to the caller's names and must not outlive them. They take no lock and never
// throw, whatever shape the tree has.

#include "store/JsonMember.h"

#include <ostream>
#include <string>

class InstanceRef
{
public:
    explicit InstanceRef(int index) : mIndex(index) {}
    explicit InstanceRef(const std::string& key) : mKey(&key) {}

    bool byIndex() const { return mKey == nullptr; }
    int index() const { return mIndex; }
    const std::string& key() const { return *mKey; }

    /// The instance, or null. It may be of any JSON type.
    const Json::Value* find(const Json::Value* component) const;
    Json::Value* find(Json::Value* component) const;

    /// The same, created where it is missing; an array grows up to the index. Null for a negative
    /// index, and when a value of another shape is in the way; then nothing has been created.
    Json::Value* findOrCreate(Json::Value* component) const;

    /// Whether findOrCreate() would succeed in a component that is an object, null or missing;
    /// ParamRef::fits() checks that too.
    bool fits(const Json::Value* component) const;

    /// Prints the index or the key.
    friend std::ostream& operator<<(std::ostream& out, const InstanceRef& instance);

private:
    template <typename Value>
    Value* findIn(Value* component) const;

    const std::string* mKey = nullptr; // null: addressed by index
    int mIndex = 0;
};

/// A component of a tree of datasets, or null.
const Json::Value* findComponent(const Json::Value& tree, const std::string& dataset,
                                 const std::string& component);
Json::Value* findComponent(Json::Value& tree, const std::string& dataset,
                           const std::string& component);

/// The same, created where it is missing; null when a value of another shape is in the way.
Json::Value* findOrCreateComponent(Json::Value& tree, const std::string& dataset,
                                   const std::string& component);

/// The address of one property value.
struct ParamRef {
    const std::string& dataset;
    const std::string& component;
    const std::string& property;
    InstanceRef instance;

    /// The value in a tree of datasets, or null.
    const Json::Value* find(const Json::Value& tree) const
    {
        return member(instance.find(findComponent(tree, dataset, component)), property);
    }

    /// The value, created with everything above it where that is missing; null when a value of
    /// another shape is in the way, and then nothing has been created.
    Json::Value* findOrCreate(Json::Value& tree) const
    {
        return findOrCreateMember(
            instance.findOrCreate(findOrCreateComponent(tree, dataset, component)), property);
    }

    /// Whether findOrCreate() would succeed.
    bool fits(const Json::Value& tree) const;
};
