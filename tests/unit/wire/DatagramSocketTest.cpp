#include "wire/DatagramSocket.h"
#include "ScriptedPeer.h"

#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace
{

TEST(DatagramSocketTest, APathThatFillsAnAddressIsAnsweredAndALongerOneIsNotCut)
{
    ScriptedPeer longest("/tmp/" + std::string(103, 'p'));
    ScriptedPeer earlier("/tmp/peer");
    ScriptedPeer peer("/tmp/peer"); // takes the path over
    longest.send("/tmp/peer", "<HEADER ID=\"1\" Type=\"x\" Size=\"0\" >\n</HEADER>\n");
    peer.receive();
    peer.answer("ACK"); // the kernel reports such an address as longer than it is
    EXPECT_EQ("ACK", longest.receive().header.Type);
    EXPECT_FALSE(SocketAddress().assign("/tmp/" + std::string(104, 'p')));
}

TEST(DatagramSocketTest, APathIsTakenOverAlsoWhileAnotherTakesItAgainAndAgain)
{
    SocketAddress path;
    ASSERT_TRUE(path.assign("/tmp/raced"));
    std::atomic<int> taken = 0;
    const std::jthread other([&](const std::stop_token& stop) {
        for (DatagramSocket socket; !stop.stop_requested();)
            if (socket.descriptor() == -1)
                socket.open();
            else if (bind(socket.descriptor(), path.raw(), path.length()) == 0) {
                ++taken;
                socket.close();
            }
    });
    for (int i = 0; i < 200 || (taken < 50 && i < 100000); ++i) {
        DatagramSocket socket;
        ASSERT_TRUE(socket.open() && socket.bind("/tmp/raced")) << i << " errno=" << errno;
    }
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
    EXPECT_EQ(WaitResult::FAILED, waitReadable(987, 0));
    EXPECT_EQ(EBADF, errno);
}

TEST(DatagramSocketTest, WaitsOnDescriptorsBeyondTheReachOfSelect)
{
    constexpr int kHighDescriptor = 2000;
    const rlimit limit{.rlim_cur = kHighDescriptor + 1, .rlim_max = kHighDescriptor + 1};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    DatagramSocket socket;
    ASSERT_TRUE(socket.open() && socket.bind("/tmp/high"));
    ASSERT_EQ(kHighDescriptor, dup2(socket.descriptor(), kHighDescriptor));
    EXPECT_EQ(WaitResult::TIMED_OUT, waitReadable(kHighDescriptor, -1));
    ScriptedPeer().send("/tmp/high", "x");
    EXPECT_EQ(WaitResult::READABLE, waitReadable(kHighDescriptor, 0));
    close(kHighDescriptor);
}

} // namespace
