#include "ZnUtil/ZnMulticastSocket.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnDatagramPacket.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/UdpTestSupport.h"
#include <netinet/in.h>
#include <sys/socket.h>

namespace
{

using ZnUdpTest::boundPort;
using ZnUdpTest::Datagram;
using ZnUdpTest::loopback;
using ZnUdpTest::Peer;

ZnInetAddress address(const char* dotted)
{
    ZnInetAddress result;
    result.initFromAddress(dotted);
    return result;
}

ZnHandle<ZnDatagramPacket> packetFor(const std::string& text, unsigned int port)
{
    return new ZnDatagramPacket(ZnByteArray::sCreate(text.c_str()), 0, 0, loopback(), port,
                                ZnInetAddress(), 0);
}

/// The multicast time to live of descriptor \p fd as the system reports it in an int.
int systemTimeToLive(uint64_t fd)
{
    int ttl = -1;
    socklen_t length = sizeof(ttl);
    ::getsockopt(static_cast<int>(fd), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, &length);
    return ttl;
}

/// The message of the ZnException that \p action raises, or "" when it raises none.
template <class Action>
std::string raised(Action action)
{
    try
    {
        action();
    }
    catch (ZnHandle<ZnException>& e)
    {
        const char* message = e->getExceptionMessage();
        return message != nullptr ? message : "(nil)";
    }
    return std::string();
}

TEST(ZnMulticastSocketTest, ConstructorBindsAnUnconnectedDatagramSocket)
{
    ZnHandle<ZnMulticastSocket> socket(new ZnMulticastSocket(0));
    ASSERT_NE(~static_cast<uint64_t>(0), socket->getFd());
    EXPECT_FALSE(socket->isConnected());
    EXPECT_NE(0U, boundPort(socket->getFd()));
    EXPECT_TRUE(socket->getLocalAddress() == ZnInetAddress());

    // It receives as any datagram socket: its buffer takes 49152 bytes, and no more.
    Peer peer;
    ZnHandle<ZnByteArray> buffer = ZnByteArray::sCreate(60000, nullptr);
    ZnHandle<ZnDatagramPacket> packet(
        new ZnDatagramPacket(buffer, 0, 0, ZnInetAddress(), 0, ZnInetAddress(), 0));
    ASSERT_TRUE(peer.sendTo(boundPort(socket->getFd()), "multi"));
    socket->receive(packet);
    EXPECT_EQ(5U, packet->getLength());
    EXPECT_EQ(peer.port(), packet->getPort());
}

TEST(ZnMulticastSocketTest, LeavingAGroupNotJoinedRaises)
{
    ZnHandle<ZnMulticastSocket> socket(new ZnMulticastSocket(0));
    EXPECT_EQ("error in setsockopt()",
              raised([&] { socket->leaveGroup(address("239.255.42.99")); }));
}

TEST(ZnMulticastSocketTest, JoiningSomethingThatIsNoGroupRaises)
{
    ZnHandle<ZnMulticastSocket> socket(new ZnMulticastSocket(0));
    EXPECT_EQ("error in setsockopt()", raised([&] { socket->joinGroup(loopback()); }));
}

TEST(ZnMulticastSocketTest, JoinThenLeaveAGroupOnAnyInterface)
{
    // Needs an interface with a route for multicast; only the membership changes, nothing is
    // sent to the group.
    ZnHandle<ZnMulticastSocket> socket(new ZnMulticastSocket(0));
    const ZnInetAddress group = address("239.255.42.100");
    EXPECT_EQ("", raised([&] { socket->joinGroup(group); }));
    // A second join of the same group is refused by the system.
    EXPECT_EQ("error in setsockopt()", raised([&] { socket->joinGroup(group); }));
    EXPECT_EQ("", raised([&] { socket->leaveGroup(group); }));
    EXPECT_EQ("error in setsockopt()", raised([&] { socket->leaveGroup(group); }));
}

TEST(ZnMulticastSocketTest, TimeToLiveIsSetAndReadAsOneByte)
{
    ZnHandle<ZnMulticastSocket> socket(new ZnMulticastSocket(0));
    // The system's default for multicast.
    EXPECT_EQ(1, socket->getTimeToLive());
    socket->setTimeToLive(32);
    EXPECT_EQ(32, socket->getTimeToLive());
    EXPECT_EQ(32, systemTimeToLive(socket->getFd()));
    socket->setTimeToLive(255);
    EXPECT_EQ(255, socket->getTimeToLive());
    socket->setTimeToLive(0);
    EXPECT_EQ(0, socket->getTimeToLive());
}

TEST(ZnMulticastSocketTest, SendWithATimeToLiveLeavesItInForce)
{
    Peer peer;
    ZnHandle<ZnMulticastSocket> socket(new ZnMulticastSocket(0));
    ASSERT_EQ(1, socket->getTimeToLive());

    socket->send(packetFor("first", peer.port()), 7);
    Datagram got;
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ("first", got.bytes);
    EXPECT_EQ(7, socket->getTimeToLive());

    // A later plain send changes nothing.
    socket->send(packetFor("second", peer.port()));
    ASSERT_TRUE(peer.receive(got));
    EXPECT_EQ("second", got.bytes);
    EXPECT_EQ(boundPort(socket->getFd()), got.fromPort);
    EXPECT_EQ(7, socket->getTimeToLive());
    EXPECT_EQ(7, systemTimeToLive(socket->getFd()));
}

TEST(ZnMulticastSocketTest, AClosedSocketAnswersZeroAndRaisesOnMembership)
{
    ZnHandle<ZnMulticastSocket> socket(new ZnMulticastSocket(0));
    socket->setTimeToLive(9);
    socket->close();
    // The refusals of the system are ignored for the time to live.
    socket->setTimeToLive(3);
    EXPECT_EQ(0, socket->getTimeToLive());
    EXPECT_EQ("error in setsockopt()",
              raised([&] { socket->joinGroup(address("239.255.42.101")); }));
}

} // namespace
