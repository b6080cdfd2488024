#include "ZnUtil/ZnTime.h"

#include "ZnUtil/ZnPlatform.h"

ZnTime ZnTime::sGetCurrentTime()
{
    // The file time of the system, in 100 ns ticks since 1601, cut to whole microseconds.
    return ZnTime(static_cast<long long>(ZnPlatform::sGetSystemTimeAsFileTime() / 10));
}
