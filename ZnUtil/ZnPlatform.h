// The few operating system services the library reads directly: thread ids and clocks.
#ifndef ZNUTIL_ZNPLATFORM_H
#define ZNUTIL_ZNPLATFORM_H

#include <cstdint>

/// Thread ids and clocks, as the library's classes use them.
class ZnPlatform
{
public:
    /// The kernel id of the calling thread (gettid), read once per thread.
    static uint32_t sGetCurrentThreadId();

    /// CLOCK_MONOTONIC in nanoseconds.
    static uint64_t sGetMonotonicNs();

    /// CLOCK_MONOTONIC in milliseconds.
    static uint64_t sGetTickCount();

    /// CLOCK_REALTIME as 100-ns ticks since 1601-01-01.
    static uint64_t sGetSystemTimeAsFileTime();

    /// True when loading the library set SIGPIPE to ignored (the host had left it at its
    /// default); false when the host handles or ignores it itself.
    static bool sBrokenPipeIgnoredAtLoad();
};

#endif // ZNUTIL_ZNPLATFORM_H
