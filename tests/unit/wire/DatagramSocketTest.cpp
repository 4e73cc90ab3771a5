#include "wire/DatagramSocket.h"
#include "ScriptedPeer.h"

#include <array>
#include <cerrno>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace
{

std::string pathOf(std::size_t length) { return "/tmp/" + std::string(length - 5, 'p'); }

TEST(DatagramSocketTest, APathThatFillsAnAddressWorksAndALongerOneIsRefused)
{
    ScriptedPeer longest(pathOf(108));
    ScriptedPeer peer("/tmp/peer");
    longest.send("/tmp/peer", "<HEADER ID=\"1\" Type=\"x\" Size=\"0\" >\n</HEADER>\n");
    peer.receive();
    peer.answer("ACK"); // the kernel reports such an address as longer than it is
    EXPECT_EQ("ACK", longest.receive().header.Type);

    SocketAddress address;
    ASSERT_TRUE(address.assign("/tmp/before"));
    EXPECT_FALSE(address.assign(pathOf(109)));
    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_EQ("/tmp/before", address.path());
    EXPECT_EQ(13u, address.length());
    EXPECT_FALSE(DatagramSocket().bind(pathOf(109)));
    EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST(DatagramSocketTest, BindTakesThePathOverFromItsEarlierOwner)
{
    ScriptedPeer earlier("/tmp/owned");
    ScriptedPeer later("/tmp/owned");
    ScriptedPeer().send("/tmp/owned", ScriptedPeer::answerText(1, "ACK", FC_OK, ""));
    later.receive();
    EXPECT_TRUE(earlier.nothingCame());
}

TEST(DatagramSocketTest, ATimeoutOfMinusOneDoesNotWaitAndZeroWaitsWithoutLimit)
{
    DatagramSocket socket;
    ASSERT_TRUE(socket.open() && socket.bind("/tmp/waiting"));
    EXPECT_EQ(WaitResult::TIMED_OUT, waitReadable(socket.descriptor(), -1));

    const std::jthread peer([] { ScriptedPeer().send("/tmp/waiting", "x"); });
    EXPECT_EQ(WaitResult::READABLE, waitReadable(socket.descriptor(), 0));

    EXPECT_EQ(WaitResult::FAILED, waitReadable(socket.descriptor(), -2));
    EXPECT_EQ(EINVAL, errno);
    for (const int noSocket : {-1, 987}) {
        EXPECT_EQ(WaitResult::FAILED, waitReadable(noSocket, 0));
        EXPECT_EQ(EBADF, errno);
    }
}

TEST(DatagramSocketTest, WaitsOnDescriptorsBeyondTheReachOfSelect)
{
    rlimit limit{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur <= 2000)
        GTEST_SKIP() << "no such descriptors here";

    DatagramSocket socket;
    ASSERT_TRUE(socket.open() && socket.bind("/tmp/high"));
    ASSERT_EQ(2000, dup2(socket.descriptor(), 2000));
    EXPECT_EQ(WaitResult::TIMED_OUT, waitReadable(2000, -1));
    ScriptedPeer().send("/tmp/high", "x");
    EXPECT_EQ(WaitResult::READABLE, waitReadable(2000, 0));
    close(2000);
}

TEST(DatagramSocketTest, SendersOutsideTheFileSystemHaveNoPath)
{
    DatagramSocket socket;
    ASSERT_TRUE(socket.open() && socket.bind("/tmp/named"));
    SocketAddress sender;
    ScriptedPeer abstract(std::string("\0sysmgt", 7));
    abstract.send("/tmp/named", "abstract");
    ScriptedPeer().send("/tmp/named", "unnamed");
    std::array<char, 64> buffer;
    for (const bool hasAddress : {true, false}) {
        EXPECT_GT(receiveDatagram(socket.descriptor(), buffer.data(), buffer.size(), sender), 0);
        EXPECT_EQ("", sender.path());
        EXPECT_EQ(hasAddress, sendDatagram(socket.descriptor(), "answer", sender, true));
    }
    EXPECT_EQ(ENOTCONN, errno);
    EXPECT_EQ("answer", abstract.receiveText());
}

} // namespace
