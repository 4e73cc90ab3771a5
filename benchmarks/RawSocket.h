#pragma once

// Named datagram sockets with nothing around them: what a message costs the kernel, and the client
// with which the daemon is measured. A wait that lasts half a minute ends the benchmarks. One
// thread a socket.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <sys/un.h>
#include <vector>

sockaddr_un addressOf(const std::string& path);

class RawSocket
{
public:
    /// `takesCredentials` as the daemon's own receive socket does: the kernel tells who has sent.
    explicit RawSocket(const std::string& path, bool takesCredentials = false);
    ~RawSocket();

    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    /// False when the receiver is full; any other failure ends the benchmarks.
    bool send(const sockaddr_un& receiver, std::string_view text);

    /// select(), then recvmsg().
    std::string_view receive(sockaddr_un& sender);
    std::string_view receive();

    /// Takes what is there.
    void drain();

private:
    int mSocket;
    std::vector<char> mBuffer;
};

/// A process that runs `body`, and ends with the object. Its socket, if it has one, is there when
/// that is made, unless the process has ended or takes many seconds.
class Process
{
public:
    explicit Process(const std::function<void()>& body, const std::string& socketPath = "");
    ~Process();

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return mPid; }
    bool hasEnded() const { return mHasEnded; }

private:
    pid_t mPid;
    bool mHasEnded = false;
};

/// A process that answers each datagram with `answerSize` bytes, and does nothing else.
class RawPeer : public Process
{
public:
    RawPeer(const std::string& path, std::size_t answerSize);
};

/// A message prepared as one datagram; only its identifier changes from one use to the next.
class PreparedMessage
{
public:
    PreparedMessage(const std::string& type, const std::string& body);

    const std::string& next();

    /// Where the text stands in the message.
    std::size_t find(std::string_view text) const { return mText.find(text); }

    /// Overwrites digits that stand there, with zeros in front of the number.
    void overwrite(std::size_t at, std::size_t width, int number);

    /// True when the text is the answer to the last use.
    bool isAnsweredBy(std::string_view text) const;

private:
    int mId = 1000000; // of constant width
    std::string mText;
};

/// One round trip, whose answer is checked for its identifier and returned.
std::string_view request(RawSocket& client, const sockaddr_un& peer, PreparedMessage& message);

[[noreturn]] void abortBenchmarks(const std::string& why);
