// The transport protocols of SIP as the stack above the library numbers them.
#ifndef TAVORIS_SIPTRANSPORT_H
#define TAVORIS_SIPTRANSPORT_H

namespace Tavoris
{
namespace Sip
{

/// A SIP transport protocol. The numbers are shared with the stack and are fixed.
enum Transport : int
{
    UDP = 0,
    TCP = 1,
    TLS = 2
};

} // namespace Sip
} // namespace Tavoris

#endif // TAVORIS_SIPTRANSPORT_H
