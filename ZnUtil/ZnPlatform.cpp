#include "ZnUtil/ZnPlatform.h"

#include <csignal>
#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

namespace
{

/// Seconds from 1601-01-01 to 1970-01-01.
const uint64_t kSecondsFrom1601To1970 = 11644473600ULL;

thread_local uint32_t t_threadId = 0;

/// A peer that resets a connection must give a failed write, not end the process: SIGPIPE is
/// ignored unless the host has set it up itself. Socket sends also pass MSG_NOSIGNAL, but the
/// writes of OpenSSL and of file streams on pipes cannot.
bool ignoreBrokenPipeUnlessHandled()
{
    struct sigaction current = {};
    if (sigaction(SIGPIPE, nullptr, &current) != 0)
    {
        return false;
    }
    if ((current.sa_flags & SA_SIGINFO) == 0 && current.sa_handler == SIG_DFL)
    {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        sigemptyset(&ignore.sa_mask);
        return sigaction(SIGPIPE, &ignore, nullptr) == 0;
    }
    return false;
}

const bool s_brokenPipeIgnored = ignoreBrokenPipeUnlessHandled();

uint64_t readClockNs(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000ULL + static_cast<uint64_t>(now.tv_nsec);
}

} // namespace

bool ZnPlatform::sBrokenPipeIgnoredAtLoad()
{
    return s_brokenPipeIgnored;
}

uint32_t ZnPlatform::sGetCurrentThreadId()
{
    if (t_threadId == 0)
    {
        t_threadId = static_cast<uint32_t>(syscall(SYS_gettid));
    }
    return t_threadId;
}

uint64_t ZnPlatform::sGetMonotonicNs()
{
    return readClockNs(CLOCK_MONOTONIC);
}

uint64_t ZnPlatform::sGetTickCount()
{
    return sGetMonotonicNs() / 1000000ULL;
}

uint64_t ZnPlatform::sGetSystemTimeAsFileTime()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return (static_cast<uint64_t>(now.tv_sec) + kSecondsFrom1601To1970) * 10000000ULL +
           static_cast<uint64_t>(now.tv_nsec) / 100ULL;
}
