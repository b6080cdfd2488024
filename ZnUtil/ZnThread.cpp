#include "ZnUtil/ZnThread.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnAutoResetEvent.h"
#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnEventQueue.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnFileInputStream.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnPlatform.h"
#include "ZnUtil/ZnProcess.h"
#include "ZnUtil/ZnSystemError.h"
#include "ZnUtil/ZnTimerDispatcher.h"
#include "ZnUtil/ZnTokenTable.h"
#include "ZnUtil/ZnUDPIDispatcher.h"
#include "ZnUtil/ZnUDPODispatcher.h"

#include "tavoris/Assertion.h"
#include "tavoris/LogSite.h"
#include "tavoris/TraceScope.h"

#include <ace/Object_Manager.h>

#include <chrono>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include <pthread.h>

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(threadLogger, "corvane.zn.ZnThread")

/// What fork hands to the new thread: the object, and the promise of its thread id.
struct StartBlock
{
    ZnThread* thread;
    std::promise<unsigned int> token;
};

std::mutex s_tableCreation;

/// Forked threads not yet out of their start function: a thread still runs library code (its
/// exit lines, its own release) after it has left the table.
std::atomic<int> s_threadsInEntry{0};

/// True on a thread that the library started.
thread_local bool t_inEntry = false;

} // namespace

const char ZnThread::sDebugToken[] = "ZnThread";

std::atomic<ZnTokenTable*> ZnThread::sm_pThreadTable{nullptr};
std::atomic<bool> ZnThread::fs_bShutDown{false};
std::atomic<int> ZnThread::threadNum{0};

ZnThread::ZnThread() : m_token(0), m_State(STATE_DETACHED), m_pEvent(nullptr)
{
    TAVORIS_TRACE_SCOPE(threadLogger(), "ZnThread::ZnThread()");
    Tavoris::Assertion(!fs_bShutDown.load(), "!fs_bShutDown", threadLogger(), TAVORIS_SOURCE_NAME,
                       __LINE__);
    // The process object comes into being before any other thread object.
    ZnProcess::sGetCurrent();
    threadNum.fetch_add(1);
}

ZnThread::ZnThread(ZnThread*) : m_token(0), m_State(STATE_DETACHED), m_pEvent(nullptr)
{
    TAVORIS_TRACE_SCOPE(threadLogger(), "ZnThread::ZnThread()");
    Tavoris::Assertion(!fs_bShutDown.load(), "!fs_bShutDown", threadLogger(), TAVORIS_SOURCE_NAME,
                       __LINE__);
    initialize();
    threadNum.fetch_add(1);
}

ZnThread::~ZnThread()
{
    delete m_pEvent.load();
    threadNum.fetch_sub(1);
}

const char* ZnThread::sGetStateText(int aState)
{
    switch (aState)
    {
    case STATE_DETACHED:
        return "DETACHED";
    case STATE_INITIALIZING:
        return "INITIALIZING";
    case STATE_RUNNING:
        return "RUNNING";
    case STATE_BLOCKED:
        return "BLOCKED";
    case STATE_EXITING:
        return "EXITING";
    default:
        return "UNKNOWN STATE";
    }
}

void ZnThread::initialize()
{
    TAVORIS_TRACE_SCOPE(threadLogger(), "ZnThread::initialize");
    if (m_pEvent.load() == nullptr)
    {
        // Two threads may get here at once (a signal() from outside while main() starts): one
        // event wins, the other is dropped.
        ZnAutoResetEvent* made = new ZnAutoResetEvent();
        ZnAutoResetEvent* expected = nullptr;
        if (!m_pEvent.compare_exchange_strong(expected, made))
        {
            delete made;
        }
    }
    if (sm_pThreadTable.load() == nullptr)
    {
        std::lock_guard<std::mutex> guard(s_tableCreation);
        if (sm_pThreadTable.load() == nullptr)
        {
            ZnTokenTable* table = new ZnTokenTable();
            table->AddRef(); // kept for good, given back at exit
            sm_pThreadTable.store(table);
            ACE_Object_Manager::at_exit(table, &ZnThread::sReleaseThreadTable, nullptr,
                                        "ZnThread thread table");
        }
    }
}

void ZnThread::sReleaseThreadTable(void* aTable, void*)
{
    ZnTokenTable* table = static_cast<ZnTokenTable*>(aTable);
    // Threads still running at exit read the table as they end: it is left to them then.
    if (table->size() == 0)
    {
        sm_pThreadTable.store(nullptr);
        table->Release();
    }
}

void ZnThread::fork()
{
    if (m_State.load() != STATE_DETACHED)
    {
        ZnAssertionFailure::sThrow("ZnThread::fork() on already running thread",
                                   TAVORIS_SOURCE_NAME, __LINE__, ZN_COMPILED);
    }
    m_State.store(STATE_INITIALIZING);

    StartBlock start;
    start.thread = this;
    std::future<unsigned int> token = start.token.get_future();
    // The new thread holds the object until main() has ended, also before main() puts it in the
    // table.
    AddRef();

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t id;
    s_threadsInEntry.fetch_add(1);
    int error = pthread_create(&id, &attributes, &ZnThread::sEntry, &start);
    pthread_attr_destroy(&attributes);
    if (error != 0)
    {
        s_threadsInEntry.fetch_sub(1);
        Release(false);
        ZnSystemError::sThrow("CreateThread", error);
    }
    // Like the original start call, fork returns with the new thread's id in place.
    m_token.store(token.get());
}

void* ZnThread::sEntry(void* aStart)
{
    StartBlock* start = static_cast<StartBlock*>(aStart);
    ZnThread* thread = start->thread;
    unsigned int token = ZnPlatform::sGetCurrentThreadId();
    // main() reads the token: it is stored before main() starts, and before fork() returns.
    thread->m_token.store(token);
    start->token.set_value(token); // the start block is gone after this
    t_inEntry = true;
    thread->main();
    thread->Release();
    s_threadsInEntry.fetch_sub(1); // nothing of the library is touched after this
    return nullptr;
}

bool ZnThread::mMoveUnlessExiting(State aState)
{
    State current = m_State.load();
    while (current != STATE_EXITING)
    {
        if (m_State.compare_exchange_weak(current, aState))
        {
            return true;
        }
    }
    return false;
}

int ZnThread::main()
{
    int result = 0;
    TAVORIS_TRACE_SCOPE(threadLogger(), "ZnThread::main");
    ZnThread* const process = ZnProcess::sm_pTheOneAndOnly.load();
    const bool isProcess = this == process;
    // The token this run enters the table under, and leaves it under: once STATE_DETACHED is
    // stored, a new fork() may write the next run's token before this one has left the table.
    const unsigned int token = getToken();
    if (!isProcess)
    {
        sAddThread(this);
    }
    try
    {
        if (m_State.load() != STATE_EXITING)
        {
            initialize();
        }
        if (m_State.load() != STATE_EXITING)
        {
            TAVORIS_TRACE_SCOPE(threadLogger(), "Invoking run");
            // A terminate() that came first keeps STATE_EXITING, and run() is skipped.
            if (mMoveUnlessExiting(STATE_RUNNING))
            {
                run();
            }
        }
    }
    catch (ZnHandle<ZnException>& e)
    {
        result = -1;
        // The text names block(), as it always has.
        ZnOutputStream& out =
            ZnErrorStream::sGetDefault().getDebugStream(ZnException::sDebugToken, 0);
        out << "catch exception in ZnThread::block(): " << e->getMessage() << "\n";
        out.flush();
    }
    TAVORIS_LOG_DEBUG(threadLogger(), "1");
    if (isProcess)
    {
        TAVORIS_TRACE_SCOPE(threadLogger(), "this == ZnProcess::sm_pTheOneAndOnly");
        sShutdown();
    }
    m_State.store(STATE_DETACHED);
    TAVORIS_LOG_DEBUG(threadLogger(), "3");
    if (!isProcess)
    {
        TAVORIS_TRACE_SCOPE(threadLogger(), "this != ZnProcess::sm_pTheOneAndOnly");
        // The object may be gone after this; only the copies taken above are used below. (The
        // start function still holds one reference here, but the process's main() does not.)
        if (ZnTokenTable* table = sm_pThreadTable.load())
        {
            table->remove(token);
        }
    }
    if (fs_bShutDown.load() && !isProcess && process != nullptr)
    {
        TAVORIS_TRACE_SCOPE(threadLogger(), "fs_bShutDown && this != ZnProcess::sm_pTheOneAndOnly");
        // Removal came first, so the process finds the smaller table when it wakes.
        process->signal();
    }
    TAVORIS_LOG_DEBUG(threadLogger(), "ZnThread Exiting main");
    return result;
}

void ZnThread::wait(unsigned int aMilliSeconds)
{
    TAVORIS_TRACE_SCOPE(threadLogger(), "ZnThread::wait");
    TAVORIS_LOG_DEBUG(threadLogger(), "aMilliSeconds=" << aMilliSeconds);
    if (!mMoveUnlessExiting(STATE_BLOCKED))
    {
        return;
    }
    if (m_pEvent.load() == nullptr)
    {
        initialize();
    }
    unsigned int waited = m_pEvent.load()->wait(aMilliSeconds);
    if (waited != 0 && waited != ZnAutoResetEvent::kWaitTimeout)
    {
        ZnSystemError::sThrow("WaitForSingleObject", 0);
    }
    // Back to running unless an exit was stored meanwhile, which must stay.
    State blocked = STATE_BLOCKED;
    m_State.compare_exchange_strong(blocked, STATE_RUNNING);
}

void ZnThread::signal()
{
    if (m_pEvent.load() == nullptr)
    {
        initialize();
    }
    m_pEvent.load()->set();
}

void ZnThread::terminate()
{
    State state = m_State.load();
    TAVORIS_LOG_DEBUG(threadLogger(), "m_State=" << static_cast<int>(state));
    setState(STATE_EXITING);
    // The exit is stored before the signal, so the woken thread sees it.
    if (state > STATE_INITIALIZING)
    {
        signal();
    }
}

void ZnThread::setState(State aState)
{
    if (aState == STATE_EXITING && !fs_bShutDown.load())
    {
        TAVORIS_LOG_WARN(threadLogger(),
                         "thread state changed to STATE_EXITING before shutdown was called.");
    }
    m_State.store(aState);
}

bool ZnThread::block()
{
    ZnException::sThrow("Not yet implemented");
}

void ZnThread::display(ZnOutputStream& out) const
{
    ZnObject::display(out, true);
    out << "\t" << reinterpret_cast<void const*>(static_cast<uintptr_t>(m_token.load())) << "\t"
        << sGetStateText(m_State.load()) << "\n";
    out.flush();
}

unsigned int ZnThread::sGetCurrentThreadToken()
{
    return ZnPlatform::sGetCurrentThreadId();
}

ZnThread* ZnThread::sGetCurrent()
{
    return sGetByToken(sGetCurrentThreadToken());
}

ZnThread* ZnThread::sGetByToken(unsigned int aToken)
{
    ZnTokenTable* table = sm_pThreadTable.load();
    if (table == nullptr)
    {
        return ZnProcess::sGetCurrent();
    }
    // The table's reference keeps the object alive while its thread runs; a caller asks about
    // a thread that runs (its own, as a rule).
    ZnHandle<ZnObject> found = table->get(aToken);
    return static_cast<ZnThread*>(static_cast<ZnObject*>(found));
}

void ZnThread::sAddThread(ZnThread* aThread)
{
    sm_pThreadTable.load()->put(aThread->getToken(), aThread);
}

void ZnThread::sRemoveThread(ZnThread* aThread)
{
    ZnTokenTable* table = sm_pThreadTable.load();
    if (table != nullptr)
    {
        table->remove(aThread->getToken());
    }
}

void ZnThread::sDisplayThreads(ZnOutputStream& out)
{
    ZnTokenTable* table = sm_pThreadTable.load();
    if (table != nullptr)
    {
        table->display(out);
    }
}

bool ZnThread::sIsShuttingdown()
{
    TAVORIS_TRACE_SCOPE(threadLogger(), "ZnThread:::sIsShuttingdown");
    return fs_bShutDown.load();
}

bool ZnThread::sIsShutdownCompleted()
{
    TAVORIS_TRACE_SCOPE(threadLogger(), "ZnThread::sIsShutdownCompleted");
    return sGetThreadTableSize() == 0;
}

unsigned int ZnThread::sGetThreadTableSize()
{
    ZnTokenTable* table = sm_pThreadTable.load();
    return table == nullptr ? 0 : table->size();
}

void ZnThread::sInitiateShutdown()
{
    TAVORIS_TRACE_SCOPE(threadLogger(), "ZnThread::sInitiateShutdown");
    fs_bShutDown.store(true);
    sTerminateAll();
    sWakeUpEventQueues();
    // A thread blocked in a file read is released by closing its descriptor.
    ZnFileInputStream::sShutdown();
}

void ZnThread::sTerminateAll()
{
    ZnTokenTable* table = sm_pThreadTable.load();
    if (table == nullptr)
    {
        return;
    }
    // The threads are taken out of the table under its locks and terminated outside them: a
    // thread that ends meanwhile leaves the table without waiting for this walk.
    std::vector<ZnHandle<ZnObject>> threads;
    table->collectElements(threads);
    ZnThread* const process = ZnProcess::sm_pTheOneAndOnly.load();
    for (ZnHandle<ZnObject>& object : threads)
    {
        ZnThread* thread = static_cast<ZnThread*>(static_cast<ZnObject*>(object));
        if (thread != process)
        {
            thread->terminate();
        }
    }
}

void ZnThread::sWakeUpEventQueues()
{
    // Every event queue's taker, in this order: the timer dispatcher; the input dispatchers of
    // UDP, TCP and TLS; the output dispatchers of UDP, TCP and TLS. The timer and UDP queues are
    // skipped when their dispatcher was never made; the TCP and TLS dispatchers are made here if
    // need be.
    if (ZnEventQueue* timerQueue = ZnTimerDispatcher::getTimerEventQueue())
    {
        timerQueue->WakeUpAll();
    }
    if (ZnEventQueue* udpInputQueue = ZnUDPIDispatcher::getUDPEventQueue())
    {
        udpInputQueue->WakeUpAll();
    }
    if (ZnEventQueue* udpOutputQueue = ZnUDPODispatcher::getUDPEventQueue())
    {
        udpOutputQueue->WakeUpAll();
    }
}

void ZnThread::sAsyncShutdown()
{
    sInitiateShutdown();
}

bool ZnThread::sShutdown()
{
    sInitiateShutdown();
    TAVORIS_LOG_DEBUG(threadLogger(), "threadNum=" << threadNum.load());
    return sWaitUntilDone();
}

bool ZnThread::sWaitUntilDone()
{
    TAVORIS_TRACE_SCOPE(threadLogger(), "ZnThread::sWaitUntilDone");
    ZnProcess* process = ZnProcess::sGetCurrent();
    for (;;)
    {
        while (!sIsShutdownCompleted())
        {
            TAVORIS_LOG_DEBUG(threadLogger(), "Waiting 100ms for ZnProcess. Thread table size = "
                                                  << sGetThreadTableSize());
            process->wait(100);
        }
        // Threads that left the table are still on their last few steps; the process may end
        // only after them, or its exit would take the objects they still touch. The caller, when
        // it is a library thread itself, does not wait for itself.
        const int self = t_inEntry ? 1 : 0;
        while (s_threadsInEntry.load() > self && sGetThreadTableSize() == 0)
        {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        if (sGetThreadTableSize() == 0)
        {
            return true;
        }
    }
}
