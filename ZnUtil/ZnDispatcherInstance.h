// The one process-wide instance of a dispatcher class: made and started on first use, released
// at exit.
#ifndef ZNUTIL_ZNDISPATCHERINSTANCE_H
#define ZNUTIL_ZNDISPATCHERINSTANCE_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnThread.h"

#include <ace/Object_Manager.h>

#include <atomic>
#include <mutex>

/// Holds the instance of dispatcher class D (a ZnDispatcherThread with a private default
/// constructor that befriends this class).
///
/// Ownership: the instance is kept with one extra reference, so that its queue stays valid for
/// the shutdown walk of the event queues; at exit it is released only after a completed
/// shutdown, since before that its thread or its pool's workers may still run and would log
/// through loggers that exit is taking down.
/// Thread safety: getOrMake() may be called from any thread and makes one instance only.
template <class D>
class ZnDispatcherInstance
{
public:
    /// \param aExitName the name of the release at exit, a static text.
    explicit constexpr ZnDispatcherInstance(const char* aExitName)
        : m_pInstance(nullptr), m_exitName(aExitName)
    {
    }

    /// The instance, or null when there is none.
    D* get() const { return m_pInstance.load(); }

    /// The instance, made and forked on first use.
    /// \throws ZnHandle<ZnException> (a ZnSystemError "CreateThread") when no thread can be
    /// started; no instance is kept then.
    D* getOrMake()
    {
        D* instance = m_pInstance.load();
        if (instance != nullptr)
        {
            return instance;
        }
        std::lock_guard<std::mutex> guard(m_creation);
        instance = m_pInstance.load();
        if (instance == nullptr)
        {
            instance = new D();
            instance->AddRef();
            m_pInstance.store(instance);
            try
            {
                instance->fork();
            }
            catch (...)
            {
                m_pInstance.store(nullptr);
                // The pool's hold on its dispatcher would otherwise keep it alive for good.
                instance->getThreadPool()->setSignalThread(ZnHandle<ZnThread>());
                instance->Release();
                throw;
            }
            ACE_Object_Manager::at_exit(instance, &ZnDispatcherInstance::sRelease, this,
                                        m_exitName);
        }
        return instance;
    }

    /// Forgets the instance, if it is \p aDispatcher.
    void forget(D* aDispatcher)
    {
        D* expected = aDispatcher;
        m_pInstance.compare_exchange_strong(expected, nullptr);
    }

private:
    static void sRelease(void* aDispatcher, void* aHolder)
    {
        D* dispatcher = static_cast<D*>(aDispatcher);
        if (dispatcher->getState() == ZnThread::STATE_DETACHED && ZnThread::sShuttingDown() &&
            ZnThread::sGetThreadTableSize() == 0)
        {
            static_cast<ZnDispatcherInstance*>(aHolder)->forget(dispatcher);
            dispatcher->Release();
        }
    }

    std::atomic<D*> m_pInstance;
    std::mutex m_creation;
    const char* m_exitName;
};

#endif // ZNUTIL_ZNDISPATCHERINSTANCE_H
