#pragma once

// Decides who may have a communicator carry out what, and whose sockets it asks. A communicator
// without a policy serves everybody and asks everybody.

#include <string>
#include <string_view>
#include <sys/socket.h>

class IAccessPolicy
{
public:
    virtual ~IAccessPolicy() = default;

    /// Whether the sender of a message may have it carried out. `type` is that of its header,
    /// kTypeCommand, kTypeSet or kTypeEvent; `command` is a command's ID, empty for the others and
    /// for a text that is no command. The kernel names the sender: see isKnownSender(). Called on
    /// the responder, which serves nobody else meanwhile.
    virtual bool mayRequest(const ucred& sender, std::string_view type,
                            std::string_view command) = 0;

    /// Whether the owner of the socket at this path may be asked; no, too, when there is none.
    /// Called before each try of a request, on its thread.
    virtual bool mayBeAsked(const std::string& responderPath) = 0;
};
