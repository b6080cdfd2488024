#include "ZnUtil/ZnUDPODispatcher.h"

#include "ZnUtil/ZnDatagramPacket.h"
#include "ZnUtil/ZnDatagramSocket.h"
#include "ZnUtil/ZnDispatcherInstance.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnUDPEvent.h"

#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/NoSizeMemAllocator.h"

#include <atomic>
#include <vector>

namespace
{

/// The receive buffer of the socket the dispatcher makes for itself.
const unsigned int kSocketBufferSize = 49152;

ZnDispatcherInstance<ZnUDPODispatcher> s_instance("ZnUDPODispatcher");

std::mutex s_retiredMutex;
/// Sockets let go by a dispatcher, each with the extra reference that keeps it alive. Never
/// freed, so that they stay reachable to the end of the process.
std::vector<ZnDatagramSocket*>* s_retired = nullptr; // guarded by s_retiredMutex

} // namespace

ZnUDPODispatcher::ZnUDPODispatcher()
    : ZnDispatcherThread(this, 0, ZnEventQueue::POLICY_MULTI_PRODUCER)
{
}

ZnUDPODispatcher::~ZnUDPODispatcher()
{
    sRetire(m_hSocket);
}

ZnUDPODispatcher* ZnUDPODispatcher::getInstance()
{
    return s_instance.getOrMake();
}

ZnEventQueue* ZnUDPODispatcher::getUDPEventQueue()
{
    ZnUDPODispatcher* instance = s_instance.get();
    return instance != nullptr ? instance->getEventQueue() : nullptr;
}

void ZnUDPODispatcher::sRetire(ZnDatagramSocket* aSocket)
{
    if (aSocket == nullptr)
    {
        return;
    }
    // The extra reference is never given back: a socket let go of here may still be in use on
    // another thread, so it is deliberately not destroyed.
    aSocket->AddRef();
    std::lock_guard<std::mutex> guard(s_retiredMutex);
    if (s_retired == nullptr)
    {
        s_retired = new std::vector<ZnDatagramSocket*>();
    }
    s_retired->push_back(aSocket);
}

void ZnUDPODispatcher::setDatagramSocket(ZnDatagramSocket* aSocket)
{
    if (aSocket == nullptr)
    {
        return;
    }
    std::lock_guard<std::mutex> guard(m_socketMutex);
    sRetire(m_hSocket);
    m_hSocket = aSocket;
}

void ZnUDPODispatcher::process(ZnBaseEvent* aEvent)
{
    ZnUDPEvent* event = static_cast<ZnUDPEvent*>(aEvent);
    // Data of another type raises the failed cast of the handle, and so ends the dispatcher.
    ZnHandle<ZnDatagramPacket> packet(event->getData());
    ZnHandle<ZnDatagramSocket> socket;
    {
        std::lock_guard<std::mutex> guard(m_socketMutex);
        if (m_hSocket.isNil())
        {
            m_hSocket = new ZnDatagramSocket(0, ZnInetAddress(), false, kSocketBufferSize);
        }
        socket = m_hSocket;
    }
    if (!packet.isNil())
    {
        socket->send(packet);
    }
}

void ZnUDPODispatcher::atExit()
{
    s_instance.forget(this);
}

void* ZnUDPODispatcher::operator new(size_t size)
{
    return Tavoris::DefaultStaticMemAllocator::allocate(size, getMemAccountName());
}

void ZnUDPODispatcher::operator delete(void* p, size_t size)
{
    Tavoris::DefaultStaticMemAllocator::deallocate(p, size, getMemAccountName());
}

void* ZnUDPODispatcher::operator new[](size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnUDPODispatcher::operator delete[](void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
