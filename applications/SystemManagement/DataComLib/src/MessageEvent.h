#pragma once

// An event: it tells subscribers that something happened. A plain record with parameters; copy it
// freely, share it with a lock of your own.

#include "Fcodes.h"
#include "MessageParams.h"

#include <string>

class MessageEvent : public MessageParams
{
public:
    std::string Description;       ///< For people; may be empty.
    Fcodes Fcode = FC_OK;          ///< Travels in the message header, not in the element.
    std::string ID = "NULL";       ///< What has happened: the name that handlers compare.
    std::string Severity = "None"; ///< "Info" for what is no fault.
    std::string Source = "Source"; ///< To what, or where, it has happened.
    std::string Status = "None";   ///< For the application's own use.
    std::string Time = "2011-01-06  12:06:11"; ///< A placeholder until DataCommunicator::notify().

    /// Reads the element, or a text in which no other "...ID" attribute stands before it. FC_OK, or
    /// FC_BODY_ERROR when ID is missing. Other missing attributes keep their values; parameters are
    /// added to those already here. A parameter without a name or value is skipped and logged, the
    /// first 32 of a text.
    Fcodes initFromString(const std::string& text);

    /// Replaces `out` with the element text, and returns `out`. No field may hold a double quote or
    /// a ">": the format has no escaping.
    std::string& toString(std::string& out) const;
};
