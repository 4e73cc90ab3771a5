#pragma once

// How a JSON request is printed in the log lines about it.

#include <cstddef>
#include <json/value.h>
#include <ostream>
#include <string>

/// A request as printed in the lines about it. It is converted to text at the first line. After
/// 1 MiB, the capacity of the largest pipe, lines print "(as above)" instead, so that the log of a
/// request with thousands of bad rows stays in proportion to its length. The request must outlive
/// this object.
class RequestText
{
public:
    explicit RequestText(const Json::Value& request) : mRequest(request) {}

    friend std::ostream& operator<<(std::ostream& out, const RequestText& text);

private:
    const Json::Value& mRequest;
    mutable std::string mText;
    mutable std::size_t mPrinted = 0;
};
