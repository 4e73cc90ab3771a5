#include "ScriptedPeer.h"

#include "ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>

ScriptedPeer::ScriptedPeer(const std::string& path)
{
    EXPECT_TRUE(mSocket.open());
    EXPECT_TRUE(path.empty() || mSocket.bind(path)) << path << " errno=" << errno;
}

std::string ScriptedPeer::receiveText()
{
    if (waitReadable(mSocket.descriptor(), static_cast<int>(kLimit.count())) !=
        WaitResult::READABLE) {
        ADD_FAILURE() << "no datagram came";
        return {};
    }
    constexpr std::size_t kRoom = 300000;
    std::string text(kRoom, '\0');
    const ssize_t count = receiveDatagram(mSocket.descriptor(), text.data(), kRoom, mSender);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return text;
}

ScriptedPeer::Message ScriptedPeer::receive()
{
    Message message;
    message.text = receiveText();
    std::string header;
    const std::size_t end = getSegment(message.text, 0, "HEADER", header);
    EXPECT_EQ(FC_OK, message.header.initFromString(header)) << message.text;
    if (end != std::string::npos)
        message.body = message.text.substr(end + 1); // behind the header's line end
    mLastId = message.header.ID;
    return message;
}

bool ScriptedPeer::nothingCame() const
{
    return waitReadable(mSocket.descriptor(), -1) == WaitResult::TIMED_OUT;
}

void ScriptedPeer::send(const std::string& path, const std::string& text)
{
    SocketAddress receiver;
    ASSERT_TRUE(receiver.assign(path));
    EXPECT_TRUE(sendDatagram(mSocket.descriptor(), text, receiver, true))
        << path << " errno=" << errno;
}

void ScriptedPeer::sendIfThereIsRoom(const std::string& path, const std::string& text)
{
    SocketAddress receiver;
    ASSERT_TRUE(receiver.assign(path));
    sendDatagram(mSocket.descriptor(), text, receiver, false);
}

void ScriptedPeer::reply(const std::string& text)
{
    EXPECT_TRUE(sendDatagram(mSocket.descriptor(), text, mSender, true)) << "errno=" << errno;
}

std::string ScriptedPeer::answerText(int id, const std::string& type, Fcodes fcode,
                                     const std::string& body)
{
    const MessageHeader header{static_cast<int>(body.size()), fcode, id, type};
    std::string text;
    return header.toString(text) + body;
}

void ScriptedPeer::answer(const std::string& type, Fcodes fcode, const std::string& body)
{
    reply(answerText(mLastId, type, fcode, body));
}

void ScriptedPeer::answerIfThere(Fcodes fcode)
{
    sendDatagram(mSocket.descriptor(), answerText(mLastId, "ACK", fcode, {}), mSender, true);
}

int ScriptedPeer::fill(const std::string& path)
{
    DatagramSocket sender;
    SocketAddress receiver;
    EXPECT_TRUE(sender.open() && receiver.assign(path));
    int sent = 0;
    while (sendDatagram(sender.descriptor(), "x", receiver, false))
        ++sent;
    EXPECT_EQ(EAGAIN, errno) << path;
    return sent;
}
