#pragma once

// How a JSON request names a row. Requests come from callers and may be of any shape. Takes no
// lock, never logs, never throws for a shape.

#include "store/InstanceRef.h"

#include <json/value.h>
#include <optional>
#include <string>

/// A row that a request names: by an index into an indexed component, or by a key of a keyed one.
class RequestRow
{
public:
    explicit RequestRow(int index) : mByIndex(true), mIndex(index) {}
    explicit RequestRow(std::string key) : mByIndex(false), mKey(std::move(key)) {}

    /// Reads an element of "rows": an integer, a string, or an object whose "index" is either.
    static std::optional<RequestRow> read(const Json::Value& element);

    bool byIndex() const { return mByIndex; }
    int index() const { return mIndex; }
    const std::string& key() const { return mKey; }

    /// The row in a component's "instances", or null.
    const Json::Value* find(const Json::Value* instances) const;

    /// The row as InstanceRef addresses it. Not for the empty key: there it is the single instance.
    InstanceRef instance() const { return mByIndex ? InstanceRef(mIndex) : InstanceRef(mKey); }

private:
    bool mByIndex;
    int mIndex = 0;
    std::string mKey;
};
