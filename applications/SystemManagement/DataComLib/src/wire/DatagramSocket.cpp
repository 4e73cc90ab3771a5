#include "wire/DatagramSocket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#ifndef SO_PASSRIGHTS
#define SO_PASSRIGHTS 83 // since Linux 6.16
#endif

namespace
{

constexpr std::size_t kFamilySize = sizeof(sa_family_t);
constexpr int kTakeOverTries = 100;
constexpr int kDatagramOverhead = 32; // what the kernel keeps of the send buffer

} // namespace

SocketAddress::SocketAddress(const sockaddr_un& raw, socklen_t length)
    : mRaw(raw), mLength(std::min<socklen_t>(length, sizeof raw))
{
}

bool SocketAddress::assign(const std::string& path)
{
    if (path.size() > sizeof mRaw.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    mRaw = {};
    mRaw.sun_family = AF_UNIX;
    path.copy(mRaw.sun_path, path.size());
    mLength = static_cast<socklen_t>(kFamilySize + path.size());
    return true;
}

std::string SocketAddress::path() const
{
    if (mLength <= kFamilySize)
        return {};
    return std::string(mRaw.sun_path, strnlen(mRaw.sun_path, mLength - kFamilySize));
}

bool DatagramSocket::open()
{
    close();
    mDescriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // Closing a descriptor that was sent along may take as long as its sender likes. Older kernels
    // cannot refuse them.
    const int off = 0;
    setsockopt(mDescriptor, SOL_SOCKET, SO_PASSRIGHTS, &off, sizeof off);
    return mDescriptor != -1;
}

bool DatagramSocket::bind(const std::string& path)
{
    SocketAddress address;
    if (!address.assign(path))
        return false;
    for (int tries = kTakeOverTries;; --tries) {
        // Left by an earlier run, or in use: the path is ours now. Somebody else may take it again
        // before we do, and could keep us from starting.
        const bool isFree = unlink(path.c_str()) == 0 || errno == ENOENT;
        if (::bind(mDescriptor, address.raw(), address.length()) == 0)
            return true;
        if (errno != EADDRINUSE || !isFree || tries == 1)
            return false;
    }
}

bool DatagramSocket::setTimeout(int option, int seconds)
{
    const timeval limit{.tv_sec = seconds, .tv_usec = 0};
    return setsockopt(mDescriptor, SOL_SOCKET, option, &limit, sizeof limit) == 0;
}

bool DatagramSocket::passCredentials()
{
    const int on = 1;
    return setsockopt(mDescriptor, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == 0;
}

void DatagramSocket::close()
{
    if (mDescriptor != -1)
        ::close(mDescriptor);
    mDescriptor = -1;
}

std::size_t DatagramSocket::sendLimit() const
{
    int size = 0;
    socklen_t length = sizeof size;
    if (getsockopt(mDescriptor, SOL_SOCKET, SO_SNDBUF, &size, &length) != 0 || size < 0)
        return std::numeric_limits<std::size_t>::max();
    return static_cast<std::size_t>(std::max(size - kDatagramOverhead, 0));
}

std::size_t DatagramSocket::unreadBytes() const
{
    int bytes = 0;
    return ioctl(mDescriptor, SIOCOUTQ, &bytes) == 0 ? static_cast<std::size_t>(bytes) : 0;
}

void DatagramSocket::growSendBuffer(int bytes)
{
    if (setsockopt(mDescriptor, SOL_SOCKET, SO_SNDBUFFORCE, &bytes, sizeof bytes) != 0)
        setsockopt(mDescriptor, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
}

namespace
{

WaitResult pollReadable(int descriptor, const timespec* limit)
{
    // poll() overlooks a negative descriptor, and would wait.
    if (descriptor < 0) {
        errno = EBADF;
        return WaitResult::FAILED;
    }
    pollfd watched{.fd = descriptor, .events = POLLIN, .revents = 0};
    const int ready = ppoll(&watched, 1, limit, nullptr);
    if (ready == 0)
        return WaitResult::TIMED_OUT;
    if (ready == -1)
        return WaitResult::FAILED;
    if ((watched.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return WaitResult::FAILED;
    }
    return WaitResult::READABLE; // or in error, which the read will tell
}

} // namespace

WaitResult waitReadable(int descriptor, int timeout)
{
    // Kept on purpose: callers count on 0 being no limit and -1 being no wait, not the other way.
    const timespec limit{.tv_sec = timeout == -1 ? 0 : timeout, .tv_nsec = 0};
    return pollReadable(descriptor, timeout == 0 ? nullptr : &limit);
}

WaitResult waitReadable(int descriptor, std::chrono::steady_clock::time_point until)
{
    using namespace std::chrono;
    if (until == steady_clock::time_point::max())
        return pollReadable(descriptor, nullptr);
    const nanoseconds left = std::max<nanoseconds>(until - steady_clock::now(), nanoseconds(0));
    const auto whole = duration_cast<seconds>(left);
    const timespec limit{.tv_sec = static_cast<time_t>(whole.count()),
                         .tv_nsec = static_cast<long>((left - whole).count())};
    return pollReadable(descriptor, &limit);
}

ssize_t receiveDatagram(int socket, char* buffer, std::size_t size, SocketAddress& sender,
                        ucred* credentials, bool waits)
{
    struct {
        sockaddr_un address;
        char terminator; // the kernel counts one behind the longest path
    } raw{};
    iovec text{.iov_base = buffer, .iov_len = size};
    // Room for what is asked for and no more: descriptors that somebody sends along are closed.
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    msghdr message{};
    message.msg_name = &raw;
    message.msg_namelen = sizeof raw;
    message.msg_iov = &text;
    message.msg_iovlen = 1;
    if (credentials != nullptr) {
        *credentials = {};
        message.msg_control = control;
        message.msg_controllen = sizeof control;
    }

    errno = 0; // so that an empty datagram is not reported with an old reason
    const ssize_t count = recvmsg(socket, &message, waits ? 0 : MSG_DONTWAIT);
    sender = count < 0 ? SocketAddress() : SocketAddress(raw.address, message.msg_namelen);
    const cmsghdr* const first = count < 0 ? nullptr : CMSG_FIRSTHDR(&message);
    if (first != nullptr && first->cmsg_level == SOL_SOCKET &&
        first->cmsg_type == SCM_CREDENTIALS && first->cmsg_len == CMSG_LEN(sizeof(ucred)))
        std::memcpy(credentials, CMSG_DATA(first), sizeof *credentials);
    return count;
}

bool sendDatagram(int socket, std::string_view text, const SocketAddress& receiver, bool mayWait)
{
    const int flags = MSG_NOSIGNAL | (mayWait ? 0 : MSG_DONTWAIT);
    return sendto(socket, text.data(), text.size(), flags, receiver.raw(), receiver.length()) != -1;
}
