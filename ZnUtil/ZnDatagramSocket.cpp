#include "ZnUtil/ZnDatagramSocket.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnUDPEvent.h"
#include "ZnUtil/ZnUDPIDispatcher.h"

#include "tavoris/LogSite.h"
#include "tavoris/TraceScope.h"

#include <cstdint>
#include <ios>

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(datagramLogger, "corvane.zn.ZnDatagramSocket")

const unsigned int kFailure = 0xFFFFFFFFu;

} // namespace

ZnDatagramSocket::ZnDatagramSocket(unsigned int port, ZnInetAddress address, bool connect,
                                   unsigned int maxPacketSize)
    : m_bConnected(false), m_maxPacketSize(maxPacketSize),
      m_packet(ZnByteArray::sCreate(maxPacketSize, nullptr), 0, 0, ZnInetAddress(), 0,
               ZnInetAddress(), 0)
{
    if (connect)
    {
        ZnSocketImpl::connect(address, port, false);
        m_bConnected = true;
    }
    else
    {
        ZnSocketImpl::bind(port, address, false);
    }
}

ZnDatagramSocket::~ZnDatagramSocket() = default;

void ZnDatagramSocket::connect(ZnInetAddress address, unsigned int port)
{
    ZnSocketImpl::connect(address, port, false);
    m_bConnected = true;
}

unsigned int ZnDatagramSocket::available()
{
    return ZnSocketImpl::available();
}

void ZnDatagramSocket::send(ZnDatagramPacket* packet)
{
    // Only a packet for the connected peer goes by send(), which dumps it as "TCP" like any
    // stream message; the rest go by sendTo(). The result is not reported.
    if (m_bConnected && packet->getPort() == getRemotePort() &&
        packet->getAddress() == getRemoteAddress())
    {
        ZnSocketImpl::send(packet->payload(), packet->getLength());
    }
    else
    {
        sendTo(packet->payload(), packet->getLength(), packet->getAddress(), packet->getPort());
    }
}

void ZnDatagramSocket::receive(ZnDatagramPacket* packet)
{
    // A failure is stored as it is: the packet then asks for 0xFFFFFFFF bytes next time.
    packet->m_length =
        receiveFrom(packet->payload(), packet->m_length, &packet->m_address, &packet->m_port);
}

bool ZnDatagramSocket::block()
{
    TAVORIS_TRACE_SCOPE(datagramLogger(), "ZnDatagramSocket::block");
    TAVORIS_LOG_DEBUG(datagramLogger(), "ZnDatagramSocket::block"
                                            << " : "
                                            << "this=0x" << std::hex
                                            << reinterpret_cast<uintptr_t>(this) << std::dec
                                            << ", local_addr=" << getLocalAddress().getHostAddress()
                                            << ", local_port=" << getLocalPort());

    // Blocks without time limit; unblock() or close() from another thread makes it fail.
    m_packet.m_length = m_maxPacketSize;
    m_packet.m_length =
        receiveFrom(m_packet.payload(), m_packet.m_length, &m_packet.m_address, &m_packet.m_port);
    if (m_packet.m_length == kFailure)
    {
        // Not the end of the loop: the caller simply calls block() again.
        TAVORIS_LOG_DEBUG(datagramLogger(), "ZnDatagramSocket::block"
                                                << " : "
                                                << "recvfrom failure");
        return true;
    }

    try
    {
        // The receive packet is reused for the next datagram: the bytes go into an array of
        // their own length, in a packet that nothing else refers to.
        ZnHandle<ZnByteArray> bytes = ZnByteArray::sCreate(m_packet.m_length, m_packet.payload());
        ZnHandle<ZnDatagramPacket> packet(new ZnDatagramPacket(bytes, 0, m_packet.m_length,
                                                               m_packet.m_address, m_packet.m_port,
                                                               getLocalAddress(), getLocalPort()));
        if (ZnThread::sShuttingDown())
        {
            TAVORIS_LOG_DEBUG(datagramLogger(), "Not adding an event because shutting down");
            return true;
        }
        // From here on the event holds the only reference on the packet.
        ZnUDPIDispatcher::getInstance()->addEvent(new ZnUDPEvent(this, packet));
        return true;
    }
    catch (ZnHandle<ZnException>& e)
    {
        // The exception object's address is logged, not its text.
        TAVORIS_LOG_ERROR(datagramLogger(), static_cast<const void*>(static_cast<ZnException*>(e)));
        close();
        if (!ZnThread::sShuttingDown())
        {
            ZnUDPIDispatcher::getInstance()->addEvent(new ZnUDPEvent(this, e));
        }
        return false;
    }
}

void ZnDatagramSocket::onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument)
{
    ZnObservable::onNotification(aSource, aArgument);
}
