#pragma once

// A local datagram socket named by a path, the address of a peer, and the three transfers on a
// descriptor: wait, receive, send. They leave the reason of a failure in errno and log nothing. An
// address is a plain value; a DatagramSocket belongs to one owner, who may let several
// threads use its descriptor.

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

/// Where a datagram goes or came from. A sender that never bound its socket has no address: nothing
/// can be sent to it.
class SocketAddress
{
public:
    SocketAddress() = default;

    /// A sender's address as the kernel returns it; the length may be more than was stored.
    SocketAddress(const sockaddr_un& raw, socklen_t length);

    /// Becomes the address of a path. False, with errno ENAMETOOLONG and nothing changed, when the
    /// path does not fit: it is never cut.
    bool assign(const std::string& path);

    /// The path as text; empty for a sender without an address or in the abstract name space.
    std::string path() const;

    /// The address as received: an answer goes to exactly these bytes.
    const sockaddr_un& address() const { return mRaw; }
    const sockaddr* raw() const { return reinterpret_cast<const sockaddr*>(&mRaw); }
    socklen_t length() const { return mLength; }

    /// What tells it from others; a view of this object.
    std::string_view bytes() const { return {reinterpret_cast<const char*>(&mRaw), mLength}; }

private:
    sockaddr_un mRaw{};
    socklen_t mLength = 0;
};

class DatagramSocket
{
public:
    DatagramSocket() = default;
    ~DatagramSocket() { close(); }

    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;

    /// The steps to a usable socket; open() comes first. bind() takes the path over from an earlier
    /// owner, and from whoever takes it meanwhile. False, with errno, on failure.
    bool open();
    bool bind(const std::string& path);
    bool setTimeout(int option, int seconds); ///< SO_RCVTIMEO or SO_SNDTIMEO
    bool passCredentials();                   ///< Each datagram then comes with its sender's.
    void close();

    int descriptor() const { return mDescriptor; }

    /// No datagram of more bytes than this can be sent.
    std::size_t sendLimit() const;

    /// How many bytes of what it sent have not been read, as the kernel counts them against the
    /// send buffer.
    std::size_t unreadBytes() const;

    /// Lets more bytes wait unread at receivers: as many as asked with the capability for it, else
    /// as many as the system allows.
    void growSendBuffer(int bytes);

private:
    int mDescriptor = -1;
};

enum class WaitResult { READABLE, TIMED_OUT, FAILED };

/// Waits until the descriptor is readable: -1 does not wait at all, 0 waits without limit, a
/// positive value is that many seconds, any other negative value fails.
WaitResult waitReadable(int descriptor, int timeout);

/// The same until a time of the steady clock; its greatest value is no limit.
WaitResult waitReadable(int descriptor, std::chrono::steady_clock::time_point until);

/// Takes one datagram, its first `size` bytes at most; the count, or -1 with errno, which is 0 when
/// a datagram came. With `waits` it waits as long as the socket's time-out, else not. Credentials
/// are to be asked for only on a socket that passes them: the kernel then names the sender, with
/// pid 0 for one in another name space.
ssize_t receiveDatagram(int socket, char* buffer, std::size_t size, SocketAddress& sender,
                        ucred* credentials = nullptr, bool waits = false);

/// Sends the text as one datagram; false with errno. Unless it may wait, a full receiver is EAGAIN
/// at once.
bool sendDatagram(int socket, std::string_view text, const SocketAddress& receiver, bool mayWait);
