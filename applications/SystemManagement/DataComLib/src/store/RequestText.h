#pragma once

// How a JSON request shows itself in the log lines about it.

#include <cstddef>
#include <json/value.h>
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
