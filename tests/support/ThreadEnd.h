// Waits for the end of a library thread, down to its main() letting go of the object.
#ifndef ZNUTIL_TESTS_THREADEND_H
#define ZNUTIL_TESTS_THREADEND_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnThread.h"

#include <vector>

#include "support/WaitUntil.h"

namespace ZnTest
{

/// True once \p thread has ended and its main() has let go of the object, so that the caller's
/// handle is the only one left; after that the thread logs nothing more.
inline bool hasEnded(const ZnThread& thread)
{
    return thread.getState() == ZnThread::STATE_DETACHED && thread.getRefCount() == 1;
}

/// Waits until hasEnded(\p thread), at most kLimit.
/// \return true when that happened within the limit.
inline bool waitUntilEnded(const ZnThread& thread)
{
    return waitUntil([&thread] { return hasEnded(thread); });
}

/// Tells \p thread to end and waits until it has, the caller holding the last reference.
/// \return true when that happened within the limit.
inline bool terminateAndWait(ZnThread& thread)
{
    thread.terminate();
    return waitUntilEnded(thread);
}

/// Tells every one of \p threads to end, then waits for each, the caller holding the last
/// reference to each.
/// \return true when all of them ended within the limit.
inline bool terminateAllAndWait(const std::vector<ZnHandle<ZnThread>>& threads)
{
    for (ZnThread* thread : threads)
    {
        thread->terminate();
    }
    bool allEnded = true;
    for (ZnThread* thread : threads)
    {
        allEnded = waitUntilEnded(*thread) && allEnded;
    }
    return allEnded;
}

} // namespace ZnTest

#endif // ZNUTIL_TESTS_THREADEND_H
