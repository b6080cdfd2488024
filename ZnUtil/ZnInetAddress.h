// The library's IPv4 address: four bytes in network byte order, copied by value.
#ifndef ZNUTIL_ZNINETADDRESS_H
#define ZNUTIL_ZNINETADDRESS_H

#include "ZnUtil/ZnString.h"

#include <cstdint>

/// An IPv4 address as the socket calls take it: one 32-bit value in network byte order.
///
/// A plain value class, not a ZnObject: copied, assigned and compared as its four bytes, and
/// passed by value through the socket layer. Numeric text becomes an address locally; any other
/// host name goes to the process-wide resolver (Tavoris::HostNameServer) with a time limit and
/// an optional preferred address.
///
/// Thread safety: an object has no shared state; distinct objects may be used from any threads.
/// getHostAddress() answers text in a buffer of the calling thread.
class ZnInetAddress
{
public:
    /// Address 0 (htonl(0)).
    ZnInetAddress() = default;

    /// The address of \p host: a dotted address is converted locally, without the resolver;
    /// anything else (a name, or digit-led text that is no valid address, such as "3abc" or
    /// "255.255.255.255") is resolved by the process's resolver within \p timeoutMs, and the first
    /// address of its answer is taken.
    /// \param host the host name or dotted address; must not be null.
    /// \param preferredAddress null, or a dotted address to take instead of the first one when the
    ///        resolver's answer holds it.
    /// \param timeoutMs the resolver's time limit in milliseconds.
    /// \throws ZnHandle<ZnException> (a ZnGhbnError "HostNameServer::resolve() failed on host "
    /// followed by \p host, with the resolver's status) when the resolver answers no address.
    ZnInetAddress(const char* host, const char* preferredAddress, int timeoutMs);

    ZnInetAddress(const ZnInetAddress&) = default;
    ZnInetAddress& operator=(const ZnInetAddress&) = default;

    /// The address of \p host, as ZnInetAddress(host, nullptr, timeoutMs).
    /// \throws ZnHandle<ZnException> (a ZnGhbnError) when the resolver answers no address.
    static ZnInetAddress sGetByName(const char* host, int timeoutMs);

    /// The address of this machine's name, as sGetByName(sGetLocalHostName(), timeoutMs).
    /// \throws ZnHandle<ZnException> (a ZnSocketError "gethostname", or a ZnGhbnError).
    static ZnInetAddress sGetLocalHost(int timeoutMs);

    /// This machine's host name (gethostname into a 128-byte buffer).
    /// \throws ZnHandle<ZnException> (a ZnSocketError "gethostname") when the call fails.
    static ZnString sGetLocalHostName();

    /// Stores inet_addr(\p dottedText), whatever it is.
    /// \return true, or false when the text is no address (0xFFFFFFFF, INADDR_NONE, is then
    /// stored; so is it for the text "255.255.255.255").
    bool initFromAddress(const char* dottedText);

    /// The address, in network byte order.
    unsigned long getAddress() const { return m_Address; }

    /// The address as dotted text, in a buffer of the calling thread that stays valid until the
    /// thread's next call.
    /// \throws ZnHandle<ZnException> (a ZnSocketError "getHostAddress") when no text is given.
    const char* getHostAddress() const;

    /// The host name of the address by a reverse look-up; no time limit and no cache.
    /// \throws ZnHandle<ZnException> (a ZnSocketError "gethostbyaddr") when there is no name.
    ZnString getHostName() const;

    /// Not available.
    /// \throws ZnHandle<ZnException> "Not yet implemented" always.
    bool isMulticastAddress() const;

    /// True when both hold the same four bytes.
    bool operator==(const ZnInetAddress& other) const { return m_Address == other.m_Address; }
    /// False when both hold the same four bytes.
    bool operator!=(const ZnInetAddress& other) const { return m_Address != other.m_Address; }

private:
    std::uint32_t m_Address = 0; // network byte order
};

#endif // ZNUTIL_ZNINETADDRESS_H
