// The library's thread: a counted, observable object with a run loop, a wake-up event, a state
// and a place in the process-wide table of running threads.
#ifndef ZNUTIL_ZNTHREAD_H
#define ZNUTIL_ZNTHREAD_H

#include "ZnUtil/ZnObservable.h"

#include <atomic>

class ZnAutoResetEvent;
class ZnOutputStream;
class ZnTokenTable;

/// A thread object. Subclasses supply run(); fork() starts a detached thread that enters main(),
/// which puts the object in the thread table, calls run(), and takes it out again.
///
/// Process-wide shutdown: sAsyncShutdown() or sShutdown() sets the shutdown flag, terminates every
/// thread in the table, wakes the takers of the library's event queues and closes the recorded
/// file descriptors; each thread that then ends signals the process, and sWaitUntilDone() waits
/// until the table is empty. Shutdown is one-way: the flag is never cleared, and no thread object
/// can be made afterwards.
///
/// Ownership: the table holds a reference on every thread whose main() runs, so that a forked
/// thread lives on after its creator dropped its handle.
/// Thread safety: signal(), terminate(), getState() and wait() may be called from any thread. The
/// state is one atomic field; an exit is never overwritten by another state.
class ZnThread : public ZnObservable
{
public:
    /// Where a thread object stands.
    enum State
    {
        STATE_DETACHED = 0,     ///< no thread runs it: before fork, and after main has ended
        STATE_INITIALIZING = 1, ///< forked, run not yet entered
        STATE_RUNNING = 2,      ///< in run, not in wait
        STATE_BLOCKED = 3,      ///< in wait
        STATE_EXITING = 4       ///< told to end; terminal until main ends
    };

    /// The key of the library's thread debug output: "ZnThread".
    static const char sDebugToken[];

    /// A time that never runs out, for wait().
    static constexpr unsigned int kInfinite = 0xFFFFFFFF;

    /// A detached thread object with no event yet; makes the process object first if there is
    /// none. The assertion "!fs_bShutDown" reports a thread made during shutdown.
    ZnThread();
    ~ZnThread() override;

    /// Starts the thread, which enters main().
    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure "ZnThread::fork() on already running
    /// thread") when the state is not STATE_DETACHED; (a ZnSystemError "CreateThread") when the
    /// system refuses a thread, the state then staying STATE_INITIALIZING.
    void fork();

    /// The body of the thread: enters the table, calls run() unless told to exit, and leaves the
    /// table again. The main thread calls it on the process object.
    /// \return 0, or -1 when run() raised a ZnHandle<ZnException>.
    int main();

    /// Waits on this object's event for \p aMilliSeconds (kInfinite: for ever), unless the state
    /// is STATE_EXITING, in which case it returns at once. A signal() before the wait makes it
    /// return immediately. The caller cannot tell a timeout from a signal. Any thread may wait on
    /// any thread object.
    void wait(unsigned int aMilliSeconds);

    /// The thread's work; loops until getState() is STATE_EXITING or sShuttingDown() is true.
    virtual void run() = 0;

    /// Tells the thread to end: STATE_EXITING, with a signal() when it is past
    /// STATE_INITIALIZING. Subclasses override it to interrupt whatever run() blocks in.
    virtual void terminate();

    /// Sets the thread's event, making it first if needed. Any thread may call it.
    /// \throws ZnHandle<ZnException> (a ZnSystemError "SetEvent") when the event fails.
    virtual void signal();

    using ZnObject::display;
    /// Prints the object, a tab, the token, a tab and the state's text, a newline, and flushes.
    virtual void display(ZnOutputStream& out) const;

    State getState() const { return m_State.load(); }

    /// The platform thread id of the thread that runs (or ran) this object, 0 before fork.
    unsigned int getToken() const { return m_token.load(); }

    /// The text of \p aState: "DETACHED", "INITIALIZING", "RUNNING", "BLOCKED", "EXITING", or
    /// "UNKNOWN STATE".
    static const char* sGetStateText(int aState);

    /// The thread object of the calling thread: null on the main thread and on threads the
    /// library did not start once a thread table exists; the process object before that.
    static ZnThread* sGetCurrent();

    /// The thread objects alive, the process included; never-forked objects count.
    static int getThreadNum() { return threadNum.load(); }

    /// Prints the thread table, if there is one.
    static void sDisplayThreads(ZnOutputStream& out);

    /// True once shutdown has begun.
    static bool sShuttingDown() { return fs_bShutDown.load(); }
    /// As sShuttingDown(), traced.
    static bool sIsShuttingdown();
    /// True when no thread is left in the table.
    static bool sIsShutdownCompleted();
    /// The threads in the table now.
    static unsigned int sGetThreadTableSize();

    /// Begins shutdown and returns.
    static void sAsyncShutdown();
    /// Begins shutdown and waits until every thread in the table has ended.
    /// \return true.
    static bool sShutdown();
    /// Waits, in steps of at most 100 ms on the process object, until the table is empty; no
    /// overall limit.
    /// \return true.
    static bool sWaitUntilDone();

protected:
    /// Stores \p aState. A move to STATE_EXITING before shutdown logs the warning "thread state
    /// changed to STATE_EXITING before shutdown was called." and still goes ahead.
    void setState(State aState);

    /// Threads are driven by run(), not by block().
    /// \throws ZnHandle<ZnException> "Not yet implemented" always.
    bool block() override;

    /// The thread object of the platform thread \p aToken: the process object when there is no
    /// table yet, null for a token not in the table.
    static ZnThread* sGetByToken(unsigned int aToken);

private:
    friend class ZnProcess;
    friend class ZnEventQueue;
    friend class ZnMonitorThread;

    /// The process object's form: makes the event and the table, and does not look for the
    /// process.
    explicit ZnThread(ZnThread* aProcess);

    ZnThread(const ZnThread&) = delete;
    ZnThread& operator=(const ZnThread&) = delete;

    /// Makes the event and the thread table where they are missing.
    void initialize();

    /// Moves from any state but STATE_EXITING to \p aState.
    /// \return false when the state was STATE_EXITING, which stays.
    bool mMoveUnlessExiting(State aState);

    static void* sEntry(void* aStart);
    static unsigned int sGetCurrentThreadToken();
    static void sAddThread(ZnThread* aThread);
    static void sRemoveThread(ZnThread* aThread);
    static void sInitiateShutdown();
    static void sTerminateAll();
    static void sWakeUpEventQueues();
    static void sReleaseThreadTable(void* aTable, void* aParam);

    std::atomic<unsigned int> m_token;
    std::atomic<State> m_State;
    std::atomic<ZnAutoResetEvent*> m_pEvent;

    static std::atomic<ZnTokenTable*> sm_pThreadTable;
    static std::atomic<bool> fs_bShutDown;
    static std::atomic<int> threadNum;
};

#endif // ZNUTIL_ZNTHREAD_H
