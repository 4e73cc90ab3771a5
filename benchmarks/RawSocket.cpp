#include "RawSocket.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr std::size_t kBufferSize = 300000;
constexpr char kIdStart[] = "<HEADER ID=\"";
constexpr std::size_t kIdAt = sizeof kIdStart - 1;
constexpr std::size_t kIdWidth = 7;

[[noreturn]] void answerForever(const std::string& path, std::size_t size)
{
    RawSocket socket(path, true);
    const std::string answer(size, 'a');
    for (sockaddr_un sender{};;) {
        socket.receive(sender);
        socket.send(sender, answer);
    }
}

} // namespace

void abortBenchmarks(const std::string& why)
{
    if (errno != 0)
        std::fprintf(stderr, "bench: %s (%s)\n", why.c_str(), std::strerror(errno));
    else
        std::fprintf(stderr, "bench: %s\n", why.c_str());
    std::exit(1);
}

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

RawSocket::RawSocket(const std::string& path, bool takesCredentials)
    : mSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)), mBuffer(kBufferSize)
{
    const sockaddr_un address = addressOf(path);
    unlink(path.c_str());
    if (bind(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1)
        abortBenchmarks("cannot bind " + path);
    const int on = takesCredentials ? 1 : 0;
    setsockopt(mSocket, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
}

RawSocket::~RawSocket() { close(mSocket); }

bool RawSocket::send(const sockaddr_un& receiver, std::string_view text)
{
    if (sendto(mSocket, text.data(), text.size(), MSG_DONTWAIT,
               reinterpret_cast<const sockaddr*>(&receiver), sizeof receiver) != -1)
        return true;
    if (errno != EAGAIN)
        abortBenchmarks(std::string("cannot send to ") + receiver.sun_path);
    return false;
}

std::string_view RawSocket::receive(sockaddr_un& sender)
{
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(mSocket, &readable);
    timeval limit{30, 0};
    if (select(mSocket + 1, &readable, nullptr, nullptr, &limit) != 1)
        abortBenchmarks("no datagram came");
    iovec text{.iov_base = mBuffer.data(), .iov_len = mBuffer.size()};
    alignas(cmsghdr) char credentials[CMSG_SPACE(sizeof(ucred))];
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &text;
    message.msg_iovlen = 1;
    message.msg_control = credentials;
    message.msg_controllen = sizeof credentials;
    const ssize_t size = recvmsg(mSocket, &message, 0);
    if (size == -1)
        abortBenchmarks("cannot receive");
    return {mBuffer.data(), static_cast<std::size_t>(size)};
}

std::string_view RawSocket::receive()
{
    sockaddr_un sender{};
    return receive(sender);
}

void RawSocket::drain()
{
    while (recv(mSocket, mBuffer.data(), mBuffer.size(), MSG_DONTWAIT) != -1) {
    }
}

Process::Process(const std::function<void()>& body, const std::string& socketPath)
{
    unlink(socketPath.c_str());
    mPid = fork();
    if (mPid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        _exit(1);
    }
    constexpr int kMaxTries = 100'000; // ten seconds and more
    for (int tries = 0; !socketPath.empty() && access(socketPath.c_str(), F_OK) == -1; ++tries) {
        usleep(100);
        mHasEnded = waitpid(mPid, nullptr, WNOHANG) != 0;
        if (mHasEnded || tries == kMaxTries)
            return;
    }
}

Process::~Process()
{
    if (mHasEnded)
        return;
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
}

RawPeer::RawPeer(const std::string& path, std::size_t answerSize)
    : Process([&] { answerForever(path, answerSize); }, path)
{
}

PreparedMessage::PreparedMessage(const std::string& type, const std::string& body)
    : mText(kIdStart + std::to_string(mId) + "\" Type=\"" + type + "\" Size=\"" +
            std::to_string(body.size()) + "\" >\n</HEADER>\n" + body)
{
}

const std::string& PreparedMessage::next()
{
    overwrite(kIdAt, kIdWidth, ++mId);
    return mText;
}

void PreparedMessage::overwrite(std::size_t at, std::size_t width, int number)
{
    for (std::size_t i = width; i-- > 0; number /= 10)
        mText[at + i] = static_cast<char>('0' + number % 10);
}

bool PreparedMessage::isAnsweredBy(std::string_view text) const
{
    return text.size() > kIdAt + kIdWidth &&
           std::memcmp(text.data() + kIdAt, mText.data() + kIdAt, kIdWidth) == 0;
}

std::string_view request(RawSocket& client, const sockaddr_un& peer, PreparedMessage& message)
{
    client.send(peer, message.next());
    const std::string_view answer = client.receive();
    if (!message.isAnsweredBy(answer))
        abortBenchmarks("a foreign answer came");
    return answer;
}
