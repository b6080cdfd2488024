// The answer of a host name look-up.
#ifndef TAVORIS_HOSTENT_H
#define TAVORIS_HOSTENT_H

namespace Tavoris
{

/// The result of a look-up of a host name by the process's resolver.
class Hostent
{
public:
    /// How a look-up ended.
    enum GetHostByNameStatus
    {
        GHBN_SUCCESS = 0,
        GHBN_HOST_NOT_FOUND = 1,
        GHBN_TRY_AGAIN = 2,
        GHBN_NO_RECOVERY = 3,
        GHBN_NO_DATA = 4,
        GHBN_TIMEOUT = 5,
        GHBN_INVALID_NAME = 6
    };

    /// The text of a status, for reports; an unknown value gives "Unknown status".
    static const char* getGetHostByNameStatusString(GetHostByNameStatus status);
};

} // namespace Tavoris

#endif // TAVORIS_HOSTENT_H
