#pragma once

// The header element that opens every message. A plain record: copy it freely, share it with a lock
// of your own.

#include "Fcodes.h"

#include <string>

class MessageHeader
{
public:
    int Size = 0; ///< Length of the body text in bytes; 0 when no body follows.
    Fcodes Fcode = FC_OK;
    int ID = 0; ///< A response carries the identifier of its request.
    std::string Type;

    /// Reads the header's attributes. FC_OK, or FC_HEADER_ERROR when ID, Type or Size is missing;
    /// fields read before the failure stay set, and a missing Fcode leaves Fcode as it was.
    Fcodes initFromString(const std::string& text);

    /// Appends the header text to `out`, and returns `out`.
    std::string& toString(std::string& out) const;
};
