#pragma once

// What the JSON requests of the store have in common: how a request shows itself in the log, how it
// names a row, and how a reply ends. Requests come from callers and may be of any shape. Takes no
// lock, never logs, never throws for a shape.

#include "Fcodes.h"
#include "InstanceRef.h"

#include <cstddef>
#include <json/value.h>
#include <optional>
#include <ostream>
#include <string>

/// A request as it stands in the lines about it. It is written out when a line first wants it, and
/// once its lines have filled the largest of pipes they say "(as above)", so that a request of
/// thousands of bad rows costs what its length costs. The request must outlive it.
class RequestText
{
public:
    explicit RequestText(const Json::Value& request) : mRequest(request) {}

    friend std::ostream& operator<<(std::ostream& out, const RequestText& text);

private:
    const Json::Value& mRequest;
    mutable std::string mText;
    mutable std::size_t mShown = 0;
};

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

    /// The same row as the trees of the store address it; the empty key means another one there.
    InstanceRef instance() const { return mByIndex ? InstanceRef(mIndex) : InstanceRef(mKey); }

private:
    bool mByIndex;
    int mIndex = 0;
    std::string mKey;
};

/// Ends an answer with the result's "fcode" and "description", and gives it to the caller in place
/// of what `reply` held. Returns the result.
Fcodes conclude(Fcodes result, Json::Value& answer, Json::Value& reply);
