// The object that stands for the main thread of the process.
#ifndef ZNUTIL_ZNPROCESS_H
#define ZNUTIL_ZNPROCESS_H

#include "ZnUtil/ZnThread.h"

#include <cstddef>

/// The main thread of the process: the one object that the other threads report to when they
/// end. Made by the first ZnThread constructor or sGetCurrent(), and released at exit.
///
/// Thread safety: sGetCurrent() may be called from any thread; the first call makes the object
/// once.
class ZnProcess : public ZnThread
{
public:
    /// The process object, made on the calling thread, which becomes the process's thread.
    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure "There can only be one ZnProcess
    /// object") when one exists already.
    ZnProcess();
    ~ZnProcess() override;

    /// The process object, made on first use. Does not add a reference.
    static ZnProcess* sGetCurrent();

    /// Sets up the network library, sleeps until signalled, and closes it again.
    void run() override;

    static const char* getMemAccountName() { return "ZnProcess"; }
    static void* operator new(size_t size);
    static void operator delete(void* p);

private:
    friend class ZnThread;

    static void sCleanup(void* aProcess, void* aParam);

    static std::atomic<ZnProcess*> sm_pTheOneAndOnly;
};

#endif // ZNUTIL_ZNPROCESS_H
