#include "tavoris/Hostent.h"

namespace Tavoris
{

const char* Hostent::getGetHostByNameStatusString(GetHostByNameStatus status)
{
    switch (status)
    {
    case GHBN_SUCCESS:
        return "Success";
    case GHBN_HOST_NOT_FOUND:
        return "Host not found";
    case GHBN_TRY_AGAIN:
        return "Temporary failure, try again";
    case GHBN_NO_RECOVERY:
        return "Non-recoverable failure";
    case GHBN_NO_DATA:
        return "No address for this name";
    case GHBN_TIMEOUT:
        return "Time limit reached";
    case GHBN_INVALID_NAME:
        return "Invalid host name";
    }
    return "Unknown status";
}

} // namespace Tavoris
