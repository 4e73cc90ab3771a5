#pragma once

// The named text parameters that events and commands carry, with the element text they share. Base
// of MessageEvent and MessageCommand, not a payload of its own. Not locked.

#include "MessageText.h"

#include <map>
#include <string>

class MessageParams
{
public:
    /// Values by name.
    using ParamMap = std::map<std::string, std::string>;

    /// Adds the parameter, or overwrites the value of the one that has that name. Neither text may
    /// hold a double quote or a ">": the format has no escaping, and reading back ends there.
    void addParam(const std::string& name, const std::string& value) { mParams[name] = value; }

    /// False when there is no such parameter; `value` is then untouched.
    bool getParam(const std::string& name, std::string& value) const;

    void removeParam(const std::string& name) { mParams.erase(name); }
    void clearParams() { mParams.clear(); }
    void cleanUpRelations() { clearParams(); }

    /// All parameters, in byte-wise name order. Removing one ends only its own iterator.
    ParamMap::iterator getParamsBegin() { return mParams.begin(); }
    ParamMap::iterator getParamsEnd() { return mParams.end(); }
    ParamMap::const_iterator getParamsBegin() const { return mParams.begin(); }
    ParamMap::const_iterator getParamsEnd() const { return mParams.end(); }

protected:
    ~MessageParams() = default;

    /// Adds an element for each parameter, a line each.
    void appendParams(std::string& out, std::string_view indent) const;

    /// Adds every complete "Parameter" element of the text to those already here. An incomplete
    /// one is skipped, and `report` is called with the attribute, "Name" or "Value", that is
    /// missing, at most kMaxReports times: each report repeats the whole text, and a text of
    /// thousands of incomplete elements would keep the responder busy with logging.
    template <typename Report>
    void readParams(const std::string& text, Report report)
    {
        SegmentIterator elements(text, "Parameter");
        std::string_view element;
        auto reportSome = [&report, left = kMaxReports](const char* missing) mutable {
            if (left-- > 0)
                report(missing);
        };
        while (elements.next(element)) {
            std::string_view name;
            std::string_view value;
            if (findPropertyValue(element, 0, "Name", name) == std::string::npos)
                reportSome("Name");
            else if (findPropertyValue(element, 0, "Value", value) == std::string::npos)
                reportSome("Value");
            else
                addParam(std::string(name), std::string(value));
        }
    }

private:
    static constexpr int kMaxReports = 32;

    ParamMap mParams;
};
