#include "ZnUtil/ZnProcess.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnPlatform.h"

#include "tavoris/Net.h"
#include "tavoris/NoSizeMemAllocator.h"
#include "tavoris/SourceName.h"

#include <ace/Object_Manager.h>

#include <mutex>

namespace
{

std::mutex s_processCreation;

} // namespace

std::atomic<ZnProcess*> ZnProcess::sm_pTheOneAndOnly{nullptr};

ZnProcess::ZnProcess() : ZnThread(static_cast<ZnThread*>(nullptr))
{
    ZnProcess* expected = nullptr;
    if (!sm_pTheOneAndOnly.compare_exchange_strong(expected, this))
    {
        ZnAssertionFailure::sThrow("There can only be one ZnProcess object", TAVORIS_SOURCE_NAME,
                                   __LINE__, ZN_COMPILED);
    }
    m_token.store(ZnPlatform::sGetCurrentThreadId());
    m_State.store(STATE_INITIALIZING);
}

ZnProcess::~ZnProcess()
{
    ZnProcess* self = this;
    sm_pTheOneAndOnly.compare_exchange_strong(self, nullptr);
}

ZnProcess* ZnProcess::sGetCurrent()
{
    ZnProcess* process = sm_pTheOneAndOnly.load();
    if (process != nullptr)
    {
        return process;
    }
    // Two threads making their first thread objects at once must not make two processes.
    std::lock_guard<std::mutex> guard(s_processCreation);
    process = sm_pTheOneAndOnly.load();
    if (process == nullptr)
    {
        process = new ZnProcess();
        ACE_Object_Manager::at_exit(process, &ZnProcess::sCleanup, nullptr, "ZnProcess");
    }
    return process;
}

void ZnProcess::sCleanup(void* aProcess, void*)
{
    ZnProcess* process = static_cast<ZnProcess*>(aProcess);
    // Threads still running at exit signal the process as they end: it is left to them then, as
    // it is while someone holds a handle on it.
    if (sGetThreadTableSize() == 0 && process->getRefCount() == 0)
    {
        delete process;
    }
}

void ZnProcess::run()
{
    // The network library lives exactly while the process object runs.
    Tavoris::Net::initializeLibrary();
    wait(kInfinite);
    Tavoris::Net::closeLibrary();
}

void* ZnProcess::operator new(size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnProcess::operator delete(void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
