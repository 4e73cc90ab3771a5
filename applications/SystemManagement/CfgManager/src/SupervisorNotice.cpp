#include "SupervisorNotice.h"

#include "base/Descriptor.h"

#include <cstddef>
#include <cstdlib>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace
{

constexpr timeval kLimit{.tv_sec = 5, .tv_usec = 0};
constexpr std::string_view kReady = "READY=1";

} // namespace

SupervisorNotice::SupervisorNotice()
{
    if (const char* const socket = std::getenv("NOTIFY_SOCKET"))
        mSocket = socket;
}

void SupervisorNotice::ready() const
{
    sockaddr_un address{};
    if (mSocket.empty() || mSocket.size() > sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    mSocket.copy(address.sun_path, mSocket.size());
    if (mSocket.front() == '@')
        address.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + mSocket.size());

    const Descriptor out(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    setsockopt(out.get(), SOL_SOCKET, SO_SNDTIMEO, &kLimit, sizeof kLimit);
    uninterrupted([&] {
        return sendto(out.get(), kReady.data(), kReady.size(), MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&address), length);
    });
}
