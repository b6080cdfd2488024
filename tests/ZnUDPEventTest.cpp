#include "ZnUtil/ZnUDPEvent.h"

#include "ZnUtil/ZnBaseEvent.h"
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnDatagramPacket.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

namespace
{

using Tavoris::MemAccount;

ZnHandle<ZnDatagramPacket> makePacket()
{
    return new ZnDatagramPacket(ZnByteArray::sCreate("datagram"), 0, 0, ZnInetAddress(), 5060,
                                ZnInetAddress(), 0);
}

TEST(ZnUDPEventTest, HoldsTheObserverAndTheDataByHandles)
{
    ZnHandle<ZnObservable> socket(new ZnObservable());
    ZnHandle<ZnDatagramPacket> packet = makePacket();
    {
        ZnUDPEvent event(socket, packet);
        EXPECT_EQ(static_cast<ZnObserver*>(socket), static_cast<ZnObserver*>(event.getObserver()));
        EXPECT_EQ(static_cast<ZnObject*>(packet), static_cast<ZnObject*>(event.getData()));
        EXPECT_EQ(2U, socket->getRefCount());
        EXPECT_EQ(2U, packet->getRefCount());
    }
    EXPECT_EQ(1U, socket->getRefCount());
    EXPECT_EQ(1U, packet->getRefCount());
}

TEST(ZnUDPEventTest, TheEventKeepsAnObjectNobodyElseHolds)
{
    // A packet handed over with count 0 lives as long as the event.
    ZnDatagramPacket* packet = new ZnDatagramPacket(ZnByteArray::sCreate("only"), 0, 0,
                                                    ZnInetAddress(), 0, ZnInetAddress(), 0);
    ZnUDPEvent event(nullptr, packet);
    EXPECT_EQ(1U, packet->getRefCount());
    ZnHandle<ZnDatagramPacket> read(event.getData());
    EXPECT_EQ(packet, static_cast<ZnDatagramPacket*>(read));
    EXPECT_EQ(4U, read->getLength());
}

TEST(ZnUDPEventTest, NullObserverAndDataAreAccepted)
{
    ZnUDPEvent event(nullptr, nullptr);
    EXPECT_TRUE(event.getObserver().isNil());
    EXPECT_TRUE(event.getData().isNil());
}

TEST(ZnUDPEventTest, AnExceptionCanBeTheData)
{
    ZnHandle<ZnException> failure(new ZnException("read failed"));
    ZnUDPEvent event(nullptr, failure);
    ZnHandle<ZnObject> data = event.getData();
    ZnHandle<ZnException> back(data);
    EXPECT_EQ(static_cast<ZnException*>(failure), static_cast<ZnException*>(back));
    EXPECT_STREQ("read failed", back->getExceptionMessage());
}

TEST(ZnUDPEventTest, ACopyHoldsTheSameObjects)
{
    ZnHandle<ZnObservable> socket(new ZnObservable());
    ZnHandle<ZnDatagramPacket> packet = makePacket();
    ZnUDPEvent original(socket, packet);
    {
        ZnUDPEvent copy(original);
        EXPECT_EQ(static_cast<ZnObserver*>(socket), static_cast<ZnObserver*>(copy.getObserver()));
        EXPECT_EQ(static_cast<ZnObject*>(packet), static_cast<ZnObject*>(copy.getData()));
        EXPECT_EQ(3U, socket->getRefCount());
        EXPECT_EQ(3U, packet->getRefCount());
    }
    EXPECT_EQ(2U, socket->getRefCount());
    EXPECT_EQ(2U, packet->getRefCount());
}

TEST(ZnUDPEventTest, AssignmentReplacesBothAndReleasesTheOldOnes)
{
    ZnHandle<ZnObservable> firstSocket(new ZnObservable());
    ZnHandle<ZnObservable> secondSocket(new ZnObservable());
    ZnHandle<ZnDatagramPacket> firstPacket = makePacket();
    ZnHandle<ZnDatagramPacket> secondPacket = makePacket();
    ZnUDPEvent target(firstSocket, firstPacket);
    ZnUDPEvent source(secondSocket, secondPacket);

    target = source;
    EXPECT_EQ(static_cast<ZnObserver*>(secondSocket),
              static_cast<ZnObserver*>(target.getObserver()));
    EXPECT_EQ(static_cast<ZnObject*>(secondPacket), static_cast<ZnObject*>(target.getData()));
    EXPECT_EQ(1U, firstSocket->getRefCount());
    EXPECT_EQ(1U, firstPacket->getRefCount());
    EXPECT_EQ(3U, secondSocket->getRefCount());
    EXPECT_EQ(3U, secondPacket->getRefCount());

    // Assigning an event to itself keeps what it holds.
    ZnUDPEvent& same = target;
    target = same;
    EXPECT_EQ(3U, secondSocket->getRefCount());
    EXPECT_EQ(static_cast<ZnObject*>(secondPacket), static_cast<ZnObject*>(target.getData()));
}

TEST(ZnUDPEventTest, EventsLiveOnTheirMemoryAccountAndGoThroughTheBase)
{
    EXPECT_STREQ("ZnUDPEvent", ZnUDPEvent::getMemAccountName());
    ZnHandle<ZnDatagramPacket> packet = makePacket();
    const MemAccount::Reading before = MemAccount::sRead("ZnUDPEvent");
    ZnBaseEvent* event = new ZnUDPEvent(nullptr, packet);
    const MemAccount::Reading during = MemAccount::sRead("ZnUDPEvent");
    EXPECT_EQ(before.liveBlocks + 1, during.liveBlocks);
    EXPECT_EQ(before.totalBlocks + 1, during.totalBlocks);
    EXPECT_EQ(before.liveBytes + static_cast<int64_t>(sizeof(ZnUDPEvent)), during.liveBytes);
    EXPECT_EQ(2U, packet->getRefCount());

    // Deleted as a queue deletes it: through the base.
    delete event;
    const MemAccount::Reading after = MemAccount::sRead("ZnUDPEvent");
    EXPECT_EQ(before.liveBlocks, after.liveBlocks);
    EXPECT_EQ(before.liveBytes, after.liveBytes);
    EXPECT_EQ(1U, packet->getRefCount());
}

} // namespace
