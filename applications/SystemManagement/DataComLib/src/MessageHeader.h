#pragma once

// The header element that opens every message. A plain record: copy it freely, share it with a lock
// of your own.

#include "Fcodes.h"
#include "MessageText.h"

#include <string>

/// The values of MessageHeader::Type: requests, the event, and the answers.
inline constexpr char kTypeCommand[] = "COMMAND";
inline constexpr char kTypeGet[] = "GET";
inline constexpr char kTypeSet[] = "SET";
inline constexpr char kTypeEvent[] = "EVENT";
inline constexpr char kTypeResponse[] = "RESPONSE";
inline constexpr char kTypeAck[] = "ACK";
inline constexpr char kTypeNack[] = "NACK";
inline constexpr char kTypeNoReply[] = "NO_REPLY";

class MessageHeader
{
public:
    /// Length of the body text in bytes; 0 when no body follows. In an ACK with a text 13 less, see
    /// docs/kept-on-purpose.md.
    int Size = 0;
    Fcodes Fcode = FC_OK;
    int ID = 0;       ///< A response carries the identifier of its request.
    std::string Type; ///< One of the words above.

    /// Reads the header's attributes. FC_OK, or FC_HEADER_ERROR when ID, Type or Size is missing;
    /// fields read before the failure stay set, and a missing Fcode leaves Fcode as it was. A
    /// number without digits is 0.
    Fcodes initFromString(std::string_view text);

    /// Appends the header text to `out`, and returns `out`. The Fcode is printed only for kTypeAck,
    /// kTypeNack, kTypeResponse and kTypeEvent.
    std::string& toString(std::string& out) const;
};
