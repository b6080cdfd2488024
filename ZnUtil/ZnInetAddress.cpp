#include "ZnUtil/ZnInetAddress.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnGhbnError.h"
#include "ZnUtil/ZnSocketError.h"

#include "tavoris/HostNameServer.h"
#include "tavoris/Hostent.h"
#include "tavoris/LogSite.h"
#include "tavoris/TraceScope.h"

#include <ace/Time_Value.h>

#include <cerrno>
#include <cstring>
#include <ios>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(inetAddressLogger, "corvane.zn.ZnInetAddress")

/// The source name that the class's log lines carry.
const char kSource[] = "ZnInetAddress";

/// The size of the buffer gethostname writes into.
const std::size_t kHostNameLength = 128;

} // namespace

ZnInetAddress::ZnInetAddress(const char* host, const char* preferredAddress, int timeoutMs)
{
    static const char kScope[] = "ZnInetAddress ctor";
    TAVORIS_TRACE_SCOPE(inetAddressLogger(), kScope);

    if (host[0] >= '0' && host[0] <= '9')
    {
        const in_addr_t numeric = inet_addr(host);
        if (numeric != INADDR_NONE)
        {
            m_Address = numeric;
            return;
        }
        // Digit-led text that is no dotted address ("3abc", "255.255.255.255") is a name.
    }

    Tavoris::Hostent lHostent;
    Tavoris::Hostent::GetHostByNameStatus status = Tavoris::Hostent::GHBN_SUCCESS;
    // ACE_Time_Value normalises what it is given.
    const ACE_Time_Value timeout(timeoutMs / 1000, (timeoutMs % 1000) * 1000);

    bool resolved =
        Tavoris::HostNameServer::getInstance().resolve(host, lHostent, status, timeout, true);
    if (resolved && lHostent.h_addr_list[0] == nullptr)
    {
        // A resolver that answers no address at all has answered no data.
        resolved = false;
        status = Tavoris::Hostent::GHBN_NO_DATA;
    }
    if (!resolved)
    {
        const std::string message = std::string("HostNameServer::resolve() failed on host ") + host;
        ZnGhbnError::sThrow(message.c_str(), status);
    }

    // The address list is read as a hostent's: four bytes, already in network order.
    std::uint32_t inetAddress = 0;
    std::memcpy(&inetAddress, lHostent.h_addr_list[0], sizeof(inetAddress));
    TAVORIS_LOG_AT(inetAddressLogger(), Tavoris::DEBUG_LOG_LEVEL, kSource, 85,
                   kScope << " : "
                          << "HostNameServer::resolve() returned inetAddress: 0x" << std::hex
                          << inetAddress);

    if (preferredAddress != nullptr)
    {
        std::string result;
        if (!lHostent.getPreferredAddressFirst(result, preferredAddress))
        {
            TAVORIS_LOG_AT(inetAddressLogger(), Tavoris::DEBUG_LOG_LEVEL, kSource, 93,
                           kScope << " : "
                                  << "lHostent.getPreferredAddressFirst failed");
        }
        else
        {
            TAVORIS_LOG_AT(inetAddressLogger(), Tavoris::DEBUG_LOG_LEVEL, kSource, 97,
                           kScope << " : "
                                  << "getPreferredAddressFirst OK, result: " << result
                                  << " Preferred Address: " << preferredAddress);
            inetAddress = inet_addr(result.c_str());
        }
    }

    m_Address = inetAddress;
}

ZnInetAddress ZnInetAddress::sGetByName(const char* host, int timeoutMs)
{
    TAVORIS_TRACE_SCOPE(inetAddressLogger(), "ZnInetAddress::sGetByName");
    return ZnInetAddress(host, nullptr, timeoutMs);
}

ZnInetAddress ZnInetAddress::sGetLocalHost(int timeoutMs)
{
    TAVORIS_TRACE_SCOPE(inetAddressLogger(), "ZnInetAddress::sGetLocalHost");
    const ZnString localHostName = sGetLocalHostName();
    return ZnInetAddress(localHostName.c_str(), nullptr, timeoutMs);
}

ZnString ZnInetAddress::sGetLocalHostName()
{
    TAVORIS_TRACE_SCOPE(inetAddressLogger(), "ZnInetAddress::sGetLocalHostName");
    char name[kHostNameLength];
    if (gethostname(name, sizeof(name)) != 0)
    {
        ZnSocketError::sThrow("gethostname", 0);
    }
    // gethostname need not terminate a name it had to cut.
    name[sizeof(name) - 1] = '\0';
    return ZnString(name);
}

bool ZnInetAddress::initFromAddress(const char* dottedText)
{
    TAVORIS_TRACE_SCOPE(inetAddressLogger(), "ZnInetAddress::initFromAddress");
    // Stored whatever it is: bad text leaves INADDR_NONE behind.
    m_Address = inet_addr(dottedText);
    return m_Address != INADDR_NONE;
}

const char* ZnInetAddress::getHostAddress() const
{
    static const char kScope[] = "ZnInetAddress::getHostAddress";
    TAVORIS_TRACE_SCOPE(inetAddressLogger(), kScope);
    in_addr address;
    address.s_addr = m_Address;
    // glibc's inet_ntoa writes into a buffer of the calling thread.
    const char* text = inet_ntoa(address);
    if (text == nullptr)
    {
        ZnSocketError::sThrow("getHostAddress", 0);
    }
    TAVORIS_LOG_AT(inetAddressLogger(), Tavoris::DEBUG_LOG_LEVEL, kSource, 136,
                   kScope << " : "
                          << "getHostAddress: " << text);
    return text;
}

ZnString ZnInetAddress::getHostName() const
{
    TAVORIS_TRACE_SCOPE(inetAddressLogger(), "ZnInetAddress::getHostName");
    TAVORIS_LOG_AT(inetAddressLogger(), Tavoris::DEBUG_LOG_LEVEL, kSource, 161,
                   "getHostName() m_Address=" << getHostAddress());

    // gethostbyaddr_r: the same look-up as gethostbyaddr, in buffers of this call.
    const std::uint32_t address = m_Address;
    hostent entry;
    hostent* found = nullptr;
    int lookupError = 0;
    std::vector<char> buffer(1024);
    int rc = 0;
    for (;;)
    {
        rc = gethostbyaddr_r(&address, sizeof(address), AF_INET, &entry, buffer.data(),
                             buffer.size(), &found, &lookupError);
        if (rc != ERANGE || buffer.size() >= 1024 * 1024)
        {
            break;
        }
        buffer.resize(buffer.size() * 2);
    }
    if (rc != 0 || found == nullptr || found->h_name == nullptr)
    {
        // A resolver status is reported as the socket error it stands for (11001 to 11004).
        int errNo = 0;
        if (lookupError > 0)
        {
            errNo = ZnSocketError::sFromHErrno(lookupError);
        }
        else if (rc != 0)
        {
            errNo = ZnSocketError::sFromErrno(rc);
        }
        ZnSocketError::sThrow("gethostbyaddr", errNo);
    }

    TAVORIS_LOG_AT(inetAddressLogger(), Tavoris::DEBUG_LOG_LEVEL, kSource, 194,
                   "getHostName() h_name=" << found->h_name);
    return ZnString(found->h_name);
}

bool ZnInetAddress::isMulticastAddress() const
{
    TAVORIS_TRACE_SCOPE(inetAddressLogger(), "ZnInetAddress::isMulticastAddress");
    ZnException::sThrow("Not yet implemented");
}
