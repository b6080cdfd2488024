#include "ZnUtil/ZnSocketError.h"

#include "ZnUtil/ZnOutputStream.h"

#include <cerrno>

#include <netdb.h>

namespace
{

const int kFirstCode = 10004;
const int kLastCode = 10112;
const int kFirstResolverCode = 11001;
const int kLastResolverCode = 11004;

/// Texts of 10004 to 10112, indexed directly; null in the gaps.
const char* const kSocketErrorTexts[kLastCode - kFirstCode + 1] = {
    "Interrupted function call.", // 10004
    nullptr,
    nullptr,
    nullptr,
    nullptr,              // 10005-10008
    "Bad socket number.", // 10009
    nullptr,
    nullptr,
    nullptr,              // 10010-10012
    "Permission denied.", // 10013
    "Bad address.",       // 10014
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr, // 10015-10019
    nullptr,
    nullptr,                  // 10020-10021
    "Invalid argument.",      // 10022
    nullptr,                  // 10023
    "Too many open sockets.", // 10024
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr, // 10025-10029
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,                                            // 10030-10034
    "Resource temporarily unavailable.",                // 10035
    "Operation now in progress.",                       // 10036
    "Operation already in progress.",                   // 10037
    "Socket operation on non-socket.",                  // 10038
    "Destination address required.",                    // 10039
    "Message too long.",                                // 10040
    "Protocol wrong type for socket.",                  // 10041
    "Bad protocol option.",                             // 10042
    "Protocol not supported.",                          // 10043
    "Socket type not supported.",                       // 10044
    "Operation not supported.",                         // 10045
    "Protocol family not supported.",                   // 10046
    "Address family not supported by protocol family.", // 10047
    "Address already in use.",                          // 10048
    "Cannot assign requested address.",                 // 10049
    "Network is down.",                                 // 10050
    "Network is unreachable.",                          // 10051
    "Network dropped connection on reset.",             // 10052
    "Software caused connection abort.",                // 10053
    "Connection reset by peer.",                        // 10054
    "No buffer space available.",                       // 10055
    "Socket is already connected.",                     // 10056
    "Socket is not connected.",                         // 10057
    "Cannot send after socket shutdown.",               // 10058
    "WSAETOOMANYREFS",                                  // 10059
    "Connection timed out.",                            // 10060
    "Connection refused.",                              // 10061
    "WSAELOOP",                                         // 10062
    "Name too long.",                                   // 10063
    "Host is down.",                                    // 10064
    "No route to host.",                                // 10065
    "Not Empty",                                        // 10066
    "Too many processes.",                              // 10067
    "WSAEUSERS",                                        // 10068
    "WSAEDQUOT",                                        // 10069
    "WSAESTALE",                                        // 10070
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr, // 10071-10075
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr, // 10076-10080
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr, // 10081-10085
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,                             // 10086-10090
    "Network subsystem is unavailable.", // 10091
    "WINSOCK.DLL version out of range",  // 10092
    "Windows sockets not initialised.",  // 10093
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr, // 10094-10098
    nullptr,
    nullptr,                                          // 10099-10100
    "Graceful shutdown in progress.",                 // 10101
    "WSAENOMORE",                                     // 10102
    "WSAECANCELLED",                                  // 10103
    "Invalid procedure table from service provider.", // 10104
    "Invalid service provider version number.",       // 10105
    "Unable to initialize a service provider.",       // 10106
    "System call failure.",                           // 10107
    "WSASERVICE_NOT_FOUND",                           // 10108
    "Class type not found.",                          // 10109
    "WSA_E_NO_MORE",                                  // 10110
    "WSA_E_CANCELLED",                                // 10111
    "WSAEREFUSED",                                    // 10112
};

/// Texts of 11001 to 11004.
const char* const kResolverErrorTexts[kLastResolverCode - kFirstResolverCode + 1] = {
    "Host not found.",
    "Non-authoritative host not found.",
    "Non-recoverable error.",
    "Valid name, no data record of requested type.",
};

struct ErrnoMapping
{
    int errnoValue;
    int socketError;
};

/// errno values and the socket error numbers that stand for them. Where several errno values
/// share a number, the first is the one a number translates back to.
const ErrnoMapping kErrnoMappings[] = {
    {EINTR, 10004},        {EBADF, 10009},           {EACCES, 10013},
    {EPERM, 10013},        {EFAULT, 10014},          {EINVAL, 10022},
    {EMFILE, 10024},       {ENFILE, 10024},          {EWOULDBLOCK, 10035},
    {EINPROGRESS, 10036},  {EALREADY, 10037},        {ENOTSOCK, 10038},
    {EDESTADDRREQ, 10039}, {EMSGSIZE, 10040},        {EPROTOTYPE, 10041},
    {ENOPROTOOPT, 10042},  {EPROTONOSUPPORT, 10043}, {ESOCKTNOSUPPORT, 10044},
    {EOPNOTSUPP, 10045},   {EPFNOSUPPORT, 10046},    {EAFNOSUPPORT, 10047},
    {EADDRINUSE, 10048},   {EADDRNOTAVAIL, 10049},   {ENETDOWN, 10050},
    {ENETUNREACH, 10051},  {ENETRESET, 10052},       {ECONNABORTED, 10053},
    {ECONNRESET, 10054},   {ENOBUFS, 10055},         {EISCONN, 10056},
    {ENOTCONN, 10057},     {ESHUTDOWN, 10058},       {EPIPE, 10058},
    {ETOOMANYREFS, 10059}, {ETIMEDOUT, 10060},       {ECONNREFUSED, 10061},
    {ELOOP, 10062},        {ENAMETOOLONG, 10063},    {EHOSTDOWN, 10064},
    {EHOSTUNREACH, 10065}, {ENOTEMPTY, 10066},       {EUSERS, 10068},
    {EDQUOT, 10069},       {ESTALE, 10070},          {EREMOTE, 10071},
    {ECANCELED, 10103},
};

} // namespace

ZnSocketError::ZnSocketError() = default;

ZnSocketError::ZnSocketError(const char* message, int errNo) : ZnSystemError(message, errNo) {}

ZnSocketError::~ZnSocketError() = default;

void ZnSocketError::sThrow(const char* message, int errNo)
{
    if (errNo == 0)
    {
        errNo = sGetLastError();
    }
    ZnException::sThrow(new ZnSocketError(message, errNo));
}

int ZnSocketError::sGetLastError()
{
    return sFromErrno(errno);
}

int ZnSocketError::sFromErrno(int errnoValue)
{
    for (const ErrnoMapping& mapping : kErrnoMappings)
    {
        if (mapping.errnoValue == errnoValue)
        {
            return mapping.socketError;
        }
    }
    return errnoValue;
}

int ZnSocketError::sFromHErrno(int hErrnoValue)
{
    switch (hErrnoValue)
    {
    case HOST_NOT_FOUND:
        return 11001;
    case TRY_AGAIN:
        return 11002;
    case NO_RECOVERY:
        return 11003;
    case NO_DATA:
        return 11004;
    default:
        return hErrnoValue;
    }
}

int ZnSocketError::sToErrno(int socketError)
{
    for (const ErrnoMapping& mapping : kErrnoMappings)
    {
        if (mapping.socketError == socketError)
        {
            return mapping.errnoValue;
        }
    }
    return 0;
}

const char* ZnSocketError::sGetErrorText(int socketError)
{
    if (socketError >= kFirstCode && socketError <= kLastCode)
    {
        return kSocketErrorTexts[socketError - kFirstCode];
    }
    if (socketError >= kFirstResolverCode && socketError <= kLastResolverCode)
    {
        return kResolverErrorTexts[socketError - kFirstResolverCode];
    }
    return nullptr;
}

void ZnSocketError::display(ZnOutputStream& out) const
{
    const char* text = sGetErrorText(getErrNo());
    if (text == nullptr)
    {
        ZnSystemError::display(out);
        return;
    }
    out << getMessage() << ": " << text << " (" << getErrNo() << ")";
}
