#include "ZnUtil/ZnDatagramPacket.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using Tavoris::MemAccount;

ZnInetAddress address(const char* dotted)
{
    ZnInetAddress result;
    result.initFromAddress(dotted);
    return result;
}

ZnHandle<ZnByteArray> bytes(const char* text)
{
    return ZnByteArray::sCreate(text);
}

/// The packet's window as text.
std::string payload(const ZnDatagramPacket& packet)
{
    ZnHandle<ZnByteArray> data = packet.getData();
    if (data.isNil())
    {
        return std::string();
    }
    return std::string(reinterpret_cast<const char*>(data->getBytes()) + packet.getOffset(),
                       packet.getLength());
}

TEST(ZnDatagramPacketTest, ConstructorStoresEndpointsAndWindow)
{
    ZnHandle<ZnByteArray> data = bytes("0123456789");
    ZnHandle<ZnDatagramPacket> packet(
        new ZnDatagramPacket(data, 2, 5, address("10.1.2.3"), 5060, address("127.0.0.1"), 5070));

    EXPECT_EQ(static_cast<ZnByteArray*>(data), static_cast<ZnByteArray*>(packet->getData()));
    EXPECT_EQ(2U, packet->getOffset());
    EXPECT_EQ(5U, packet->getLength());
    EXPECT_EQ("23456", payload(*packet));
    EXPECT_TRUE(packet->getAddress() == address("10.1.2.3"));
    EXPECT_EQ(5060U, packet->getPort());
    EXPECT_TRUE(packet->getLocalAddress() == address("127.0.0.1"));
    EXPECT_EQ(5070U, packet->getLocalPort());
}

TEST(ZnDatagramPacketTest, ConstructorAppliesTheRulesOfSetData)
{
    // Offset beyond the end and a length of 0 go through setData in the constructor too.
    ZnDatagramPacket clipped(bytes("abc"), 7, 2, ZnInetAddress(), 0, ZnInetAddress(), 0);
    EXPECT_EQ(3U, clipped.getOffset());
    EXPECT_EQ(0U, clipped.getLength());

    ZnDatagramPacket whole(bytes("abcdef"), 1, 0, ZnInetAddress(), 0, ZnInetAddress(), 0);
    EXPECT_EQ(1U, whole.getOffset());
    EXPECT_EQ(5U, whole.getLength());
    EXPECT_EQ("bcdef", payload(whole));
}

TEST(ZnDatagramPacketTest, SetDataOffsetBeyondEndGivesOffsetAtEndAndLengthZero)
{
    ZnDatagramPacket packet(nullptr, 0, 0, ZnInetAddress(), 0, ZnInetAddress(), 0);
    packet.setData(bytes("0123456789"), 25, 4);
    EXPECT_EQ(10U, packet.getOffset());
    EXPECT_EQ(0U, packet.getLength());

    // Exactly at the end is the same.
    packet.setData(bytes("0123456789"), 10, 0);
    EXPECT_EQ(10U, packet.getOffset());
    EXPECT_EQ(0U, packet.getLength());
}

TEST(ZnDatagramPacketTest, SetDataLengthZeroTakesEverythingAfterTheOffset)
{
    ZnDatagramPacket packet(nullptr, 0, 0, ZnInetAddress(), 0, ZnInetAddress(), 0);
    packet.setData(bytes("0123456789"), 4, 0);
    EXPECT_EQ(4U, packet.getOffset());
    EXPECT_EQ(6U, packet.getLength());
    EXPECT_EQ("456789", payload(packet));

    packet.setData(bytes("0123456789"), 0, 0);
    EXPECT_EQ(0U, packet.getOffset());
    EXPECT_EQ(10U, packet.getLength());
}

TEST(ZnDatagramPacketTest, SetDataLengthPastTheEndIsCut)
{
    ZnDatagramPacket packet(nullptr, 0, 0, ZnInetAddress(), 0, ZnInetAddress(), 0);
    packet.setData(bytes("0123456789"), 6, 100);
    EXPECT_EQ(6U, packet.getOffset());
    EXPECT_EQ(4U, packet.getLength());
    EXPECT_EQ("6789", payload(packet));

    // All ones, the length of a failed receive, is cut the same way.
    packet.setData(bytes("0123456789"), 3, 0xFFFFFFFFU);
    EXPECT_EQ(7U, packet.getLength());

    // A length that fits is kept as it is.
    packet.setData(bytes("0123456789"), 3, 2);
    EXPECT_EQ(2U, packet.getLength());
    EXPECT_EQ("34", payload(packet));
}

TEST(ZnDatagramPacketTest, NoArrayGivesAnEmptyWindow)
{
    ZnDatagramPacket packet(nullptr, 5, 9, address("1.2.3.4"), 7, ZnInetAddress(), 8);
    EXPECT_TRUE(packet.getData().isNil());
    EXPECT_EQ(0U, packet.getOffset());
    EXPECT_EQ(0U, packet.getLength());
    // The endpoints are stored all the same.
    EXPECT_TRUE(packet.getAddress() == address("1.2.3.4"));
    EXPECT_EQ(7U, packet.getPort());
    EXPECT_EQ(8U, packet.getLocalPort());

    // Taking an array away leaves an empty window too.
    packet.setData(bytes("abc"), 1, 1);
    EXPECT_EQ(1U, packet.getLength());
    packet.setData(nullptr, 1, 1);
    EXPECT_TRUE(packet.getData().isNil());
    EXPECT_EQ(0U, packet.getOffset());
    EXPECT_EQ(0U, packet.getLength());
}

TEST(ZnDatagramPacketTest, TheArrayIsSharedByCountedReference)
{
    ZnHandle<ZnByteArray> first = bytes("shared buffer");
    ZnHandle<ZnByteArray> second = bytes("other");
    EXPECT_EQ(1U, first->getRefCount());
    {
        ZnDatagramPacket one(first, 0, 6, ZnInetAddress(), 0, ZnInetAddress(), 0);
        ZnDatagramPacket two(first, 7, 0, ZnInetAddress(), 0, ZnInetAddress(), 0);
        EXPECT_EQ(3U, first->getRefCount());
        EXPECT_EQ("shared", payload(one));
        EXPECT_EQ("buffer", payload(two));

        // Replacing the array gives the old one's reference back.
        two.setData(second, 0, 0);
        EXPECT_EQ(2U, first->getRefCount());
        EXPECT_EQ(2U, second->getRefCount());
    }
    EXPECT_EQ(1U, first->getRefCount());
    EXPECT_EQ(1U, second->getRefCount());
}

TEST(ZnDatagramPacketTest, SetAddressAndPortChangeOnlyTheRemoteEnd)
{
    ZnDatagramPacket packet(bytes("x"), 0, 0, address("1.1.1.1"), 1, address("2.2.2.2"), 2);
    packet.setAddress(address("3.3.3.3"));
    packet.setPort(65535);
    EXPECT_TRUE(packet.getAddress() == address("3.3.3.3"));
    EXPECT_EQ(65535U, packet.getPort());
    EXPECT_TRUE(packet.getLocalAddress() == address("2.2.2.2"));
    EXPECT_EQ(2U, packet.getLocalPort());
    EXPECT_EQ("x", payload(packet));
}

TEST(ZnDatagramPacketTest, PacketsLiveOnTheirMemoryAccount)
{
    EXPECT_STREQ("ZnDatagramPacket", ZnDatagramPacket::getMemAccountName());
    const MemAccount::Reading before = MemAccount::sRead("ZnDatagramPacket");
    {
        ZnHandle<ZnDatagramPacket> packet(
            new ZnDatagramPacket(bytes("abc"), 0, 0, ZnInetAddress(), 0, ZnInetAddress(), 0));
        const MemAccount::Reading during = MemAccount::sRead("ZnDatagramPacket");
        EXPECT_EQ(before.liveBlocks + 1, during.liveBlocks);
        EXPECT_EQ(before.totalBlocks + 1, during.totalBlocks);
        EXPECT_EQ(before.liveBytes + static_cast<int64_t>(sizeof(ZnDatagramPacket)),
                  during.liveBytes);
    }
    const MemAccount::Reading after = MemAccount::sRead("ZnDatagramPacket");
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
}

} // namespace
