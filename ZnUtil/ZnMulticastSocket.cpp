#include "ZnUtil/ZnMulticastSocket.h"

#include "ZnUtil/ZnException.h"

#include <netinet/in.h>
#include <sys/socket.h>

namespace
{

/// Adds or drops the membership \p option of \p group on any interface.
void setMembership(uint64_t fd, int option, ZnInetAddress group)
{
    ip_mreq request{};
    request.imr_multiaddr.s_addr = static_cast<in_addr_t>(group.getAddress());
    request.imr_interface.s_addr = htonl(INADDR_ANY);
    if (::setsockopt(static_cast<int>(fd), IPPROTO_IP, option, &request, sizeof(request)) < 0)
    {
        ZnException::sThrow("error in setsockopt()");
    }
}

} // namespace

ZnMulticastSocket::ZnMulticastSocket(unsigned int port)
    : ZnDatagramSocket(port, ZnInetAddress(), false, 49152)
{
}

ZnMulticastSocket::~ZnMulticastSocket() = default;

// The options go by the system's own names: the numbers differ between platforms (12, 13 and 10
// elsewhere).

void ZnMulticastSocket::joinGroup(ZnInetAddress group)
{
    setMembership(getFd(), IP_ADD_MEMBERSHIP, group);
}

void ZnMulticastSocket::leaveGroup(ZnInetAddress group)
{
    setMembership(getFd(), IP_DROP_MEMBERSHIP, group);
}

void ZnMulticastSocket::setTimeToLive(unsigned char ttl)
{
    // One byte, as the option is documented; the result is ignored.
    ::setsockopt(static_cast<int>(getFd()), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof(ttl));
}

unsigned char ZnMulticastSocket::getTimeToLive()
{
    unsigned char ttl = 0;
    socklen_t length = sizeof(ttl);
    // The result is ignored: a refusal answers 0.
    ::getsockopt(static_cast<int>(getFd()), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, &length);
    return ttl;
}

void ZnMulticastSocket::send(ZnDatagramPacket* packet, unsigned char ttl)
{
    setTimeToLive(ttl);
    ZnDatagramSocket::send(packet);
}
