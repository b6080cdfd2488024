#include "ZnUtil/ZnMutex.h"

#include "ZnUtil/ZnPlatform.h"
#include "ZnUtil/ZnSystemError.h"

#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/NoSizeMemAllocator.h"

#include <mutex>
#include <new>

int ZnMutex::fs_MutexInitializationCounter = 0;
ZnMutex* ZnMutex::sm_pMutex[ZnMutex::kPoolSize] = {};
std::atomic<long> ZnMutex::m_tryLockCount{0};
std::atomic<long> ZnMutex::m_lockCount{0};

namespace
{

/// A plain increment: a load and a store, no locked instruction. Statistics only.
void countOne(std::atomic<long>& counter)
{
    counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

} // namespace

ZnMutex::ZnMutex()
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    const int result = pthread_mutex_init(&m_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (result != 0)
    {
        ZnSystemError::sThrow("ZnMutex", result);
    }
}

ZnMutex::~ZnMutex()
{
    pthread_mutex_destroy(&m_mutex);
}

void ZnMutex::lock()
{
    countOne(m_tryLockCount);
    for (int attempt = 0; attempt < kSpinCount; ++attempt)
    {
        if (pthread_mutex_trylock(&m_mutex) == 0)
        {
            return;
        }
    }
    countOne(m_lockCount);
    pthread_mutex_lock(&m_mutex);
}

void ZnMutex::unlock()
{
    pthread_mutex_unlock(&m_mutex);
}

ZnMutex* ZnMutex::sAllocate()
{
    try
    {
        return new ZnMutex;
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

void ZnMutex::sRecycle(ZnMutex* mutex)
{
    delete mutex;
}

void ZnMutex::sInitialize()
{
    // Filled once, also when two threads make the first call together.
    static std::once_flag s_filled;
    std::call_once(s_filled,
                   []
                   {
                       for (ZnMutex*& member : sm_pMutex)
                       {
                           member = sAllocate();
                       }
                       fs_MutexInitializationCounter = 1;
                   });
}

ZnMutex* ZnMutex::sAllocateFromPool()
{
    sInitialize();
    return sm_pMutex[ZnPlatform::sGetCurrentThreadId() & (kPoolSize - 1)];
}

void ZnMutex::sReleaseToPool(ZnMutex*) {}

void* ZnMutex::operator new(size_t size)
{
    return Tavoris::DefaultStaticMemAllocator::allocate(size, getMemAccountName());
}

void ZnMutex::operator delete(void* p)
{
    Tavoris::DefaultStaticMemAllocator::deallocate(p, sizeof(ZnMutex), getMemAccountName());
}

void* ZnMutex::operator new[](size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnMutex::operator delete[](void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
