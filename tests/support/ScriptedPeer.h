#pragma once

// A peer that does what a test scripts: a datagram socket, bound to a path or to none, that
// receives and sends any text.

#include "MessageHeader.h"
#include "wire/DatagramSocket.h"

#include <string>

class ScriptedPeer
{
public:
    struct Message {
        MessageHeader header;
        std::string body; ///< All that follows the header.
        std::string text; ///< The whole datagram.
    };

    /// An empty path leaves the socket without an address; one that begins with a NUL byte is in
    /// the abstract name space.
    explicit ScriptedPeer(const std::string& path = {});

    /// The next datagram; the test fails when none comes within the limit.
    Message receive();
    std::string receiveText(); ///< Of any form.
    bool nothingCame() const;

    void send(const std::string& path, const std::string& text);
    void sendIfThereIsRoom(const std::string& path, const std::string& text);
    void reply(const std::string& text); ///< To the sender of the last datagram received.

    /// An answer's header and body, and the same sent in reply to the last request, numbered so.
    static std::string answerText(int id, const std::string& type, Fcodes fcode,
                                  const std::string& body);
    void answer(const std::string& type, Fcodes fcode = FC_OK, const std::string& body = {});
    void answerIfThere(Fcodes fcode); ///< An ACK to one that may have gone.

    /// Lets nothing more into the receive queue of `path`; the count of datagrams that went in.
    static int fill(const std::string& path);

private:
    DatagramSocket mSocket;
    SocketAddress mSender;
    int mLastId = 0;
};
