#include "ZnUtil/ZnCriticalSection.h"

#include "ZnUtil/ZnSystemError.h"

#include <new>

namespace
{

std::atomic<ZnCriticalSection*> s_freeHead{nullptr}; // written under the process-wide section
std::atomic<int> s_freeCount{0};
std::atomic<int> s_aliveCount{0};
std::atomic<int> s_allocateCount{0};
std::atomic<int> s_recycleCount{0};

void initRecursive(pthread_mutex_t& mutex)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    const int result = pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (result != 0)
    {
        ZnSystemError::sThrow("ZnCriticalSection", result);
    }
}

void spinThenLock(pthread_mutex_t& mutex)
{
    for (int attempt = 0; attempt < ZnCriticalSection::kSpinCount; ++attempt)
    {
        if (pthread_mutex_trylock(&mutex) == 0)
        {
            return;
        }
    }
    pthread_mutex_lock(&mutex);
}

} // namespace

/// The process-wide section. A plain constant-initialised mutex, so that it works for code that
/// runs before this file's statics are made.
static pthread_mutex_t s_processMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

/// Empties the free list when the library is unloaded.
class ZnCriticalSectionProcessLock
{
public:
    ~ZnCriticalSectionProcessLock()
    {
        ZnCriticalSection* section = s_freeHead.exchange(nullptr);
        while (section != nullptr)
        {
            ZnCriticalSection* next = section->m_pNext;
            delete section;
            section = next;
        }
    }
};

namespace
{

ZnCriticalSectionProcessLock s_freeListCleanup;

} // namespace

ZnCriticalSection::ZnCriticalSection() : m_pNext(nullptr)
{
    initRecursive(m_mutex);
}

ZnCriticalSection::~ZnCriticalSection()
{
    pthread_mutex_destroy(&m_mutex);
}

void ZnCriticalSection::enter()
{
    spinThenLock(m_mutex);
}

void ZnCriticalSection::leave()
{
    pthread_mutex_unlock(&m_mutex);
}

void ZnCriticalSection::sEnter()
{
    spinThenLock(s_processMutex);
}

void ZnCriticalSection::sLeave()
{
    pthread_mutex_unlock(&s_processMutex);
}

ZnCriticalSection* ZnCriticalSection::sAllocate()
{
    s_allocateCount.fetch_add(1, std::memory_order_relaxed);
    // The first look at the head is unlocked; the pop itself is done under the process lock,
    // and an emptied list just means a new section after all.
    if (s_freeHead.load(std::memory_order_acquire) != nullptr)
    {
        sEnter();
        ZnCriticalSection* head = s_freeHead.load(std::memory_order_relaxed);
        if (head != nullptr)
        {
            s_freeHead.store(head->m_pNext, std::memory_order_relaxed);
            head->m_pNext = nullptr;
            s_freeCount.fetch_sub(1, std::memory_order_relaxed);
        }
        sLeave();
        if (head != nullptr)
        {
            return head;
        }
    }
    s_aliveCount.fetch_add(1, std::memory_order_relaxed);
    ZnCriticalSection* section = new (std::nothrow) ZnCriticalSection;
    if (section == nullptr)
    {
        s_aliveCount.fetch_sub(1, std::memory_order_relaxed);
    }
    return section;
}

void ZnCriticalSection::sRecycle(ZnCriticalSection* section)
{
    s_recycleCount.fetch_add(1, std::memory_order_relaxed);
    if (section == nullptr)
    {
        return;
    }
    if (s_aliveCount.load(std::memory_order_relaxed) >= kRecycleCeiling)
    {
        s_aliveCount.fetch_sub(1, std::memory_order_relaxed);
        delete section;
        return;
    }
    sEnter();
    section->m_pNext = s_freeHead.load(std::memory_order_relaxed);
    s_freeHead.store(section, std::memory_order_release);
    s_freeCount.fetch_add(1, std::memory_order_relaxed);
    sLeave();
}

long ZnCriticalSection::sIncrement(long* value)
{
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}

long ZnCriticalSection::sDecrement(long* value)
{
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}

long ZnCriticalSection::sExchange(long* target, long value)
{
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

int ZnCriticalSection::sGetAliveCount()
{
    return s_aliveCount.load(std::memory_order_relaxed);
}

int ZnCriticalSection::sGetAllocateCount()
{
    return s_allocateCount.load(std::memory_order_relaxed);
}

int ZnCriticalSection::sGetRecycleCount()
{
    return s_recycleCount.load(std::memory_order_relaxed);
}

int ZnCriticalSection::sGetFreeCount()
{
    return s_freeCount.load(std::memory_order_relaxed);
}
