#pragma once

// A command: it asks the peer's data holder to do something. A plain record with parameters; copy
// it freely, share it with a lock of your own.

#include "Fcodes.h"
#include "MessageParams.h"

#include <string>

/// The commands that every communicator takes.
inline constexpr char kCommandSubscribe[] = "SUBSCRIBE";
inline constexpr char kCommandAddRow[] = "Add Row";
inline constexpr char kCommandGetNextRow[] = "Get Next Row";
inline constexpr char kCommandStartDbgPrint[] = "StartDbgPrint";
inline constexpr char kCommandStopDbgPrint[] = "StopDbgPrint";

/// The parameter of kCommandSubscribe: the subscriber's receive socket.
inline constexpr char kParamSockName[] = "SockName";

class MessageCommand : public MessageParams
{
public:
    std::string ID = "NULL"; ///< The command's name, such as kCommandSubscribe.

    /// The same field.
    std::string getId() const { return ID; }
    void setId(const std::string& id) { ID = id; }

    /// Reads the element, or a text in which no other "...ID" attribute stands before it. FC_OK, or
    /// FC_BODY_ERROR when ID is missing; parameters are added to those already here. One without a
    /// name or value is skipped and logged, the first 32 of a text.
    Fcodes initFromString(const std::string& text);

    /// Replaces `out` with the element text, and returns `out`.
    std::string& toString(std::string& out) const;
};
