// The accessor of a process-wide object made on first use, with a per-thread cache.
#ifndef TAVORIS_ONDEMANDSINGLETON_H
#define TAVORIS_ONDEMANDSINGLETON_H

#include "tavoris/Assertion.h"
#include "tavoris/OnDemandSingletonNoT.h"
#include "tavoris/SingletonRegistry.h"

#include <ace/Guard_T.h>
#include <ace/TSS_T.h>

#include <typeinfo>

namespace Tavoris
{

/// How OnDemandSingleton names, makes and destroys a T. Specialise it for a type that needs a
/// fixed key or another constructor.
template <class T>
struct OnDemandSingletonTraits
{
    static const char* key() { return typeid(T).name(); }
    static T* create() { return new T; }
    static void destroy(void* object) { delete static_cast<T*>(object); }
};

/// Gives the one T of the process, made on first use and registered in the SingletonRegistry,
/// which destroys it at exit.
///
/// Each thread keeps the pointer in a thread-specific slot, so only a thread's first access takes
/// the lock of OnDemandSingletonNoT. Thread safety: getInstance may be called from any thread.
template <class T>
class OnDemandSingleton
{
public:
    /// The one T; null only after a failed assertion.
    static T* getInstance()
    {
        Slot* slot = cell().ts_object();
        if (slot != nullptr)
        {
            T** ppSingleton = &slot->pointer;
            if (*ppSingleton == nullptr)
            {
                Assertion(false, "*ppSingleton != 0", OnDemandSingletonNoT::sGetLogger(),
                          "OnDemandSingleton", 69);
            }
            return *ppSingleton;
        }
        return firstAccess();
    }

    /// The registry key of the singleton.
    static const char* sGetKey() { return OnDemandSingletonTraits<T>::key(); }

private:
    /// The thread's cached pointer: 8 bytes.
    struct Slot
    {
        T* pointer = nullptr;
    };

    static ACE_TSS<Slot>& cell()
    {
        static ACE_TSS<Slot> s_cell;
        // ACE_TSS makes its key on the first store, under an unlocked flag; a first store of
        // nothing here, inside the guarded initialisation of a static, orders the making of
        // the key before every other use.
        static const bool s_keyMade = (s_cell.ts_object(nullptr), true);
        (void)s_keyMade;
        return s_cell;
    }

    static T* firstAccess()
    {
        T* pFound = nullptr;
        {
            ACE_Guard<ACE_Recursive_Thread_Mutex> guard(OnDemandSingletonNoT::sGetMutex());
            SingletonRegistry& registry = SingletonRegistry::getInstance();
            const char* key = OnDemandSingletonTraits<T>::key();
            pFound = static_cast<T*>(registry.lookup(key));
            if (pFound == nullptr)
            {
                T* pNewObj = OnDemandSingletonTraits<T>::create();
                pFound = static_cast<T*>(
                    registry.registerSingleton(key, pNewObj, &OnDemandSingletonTraits<T>::destroy));
                if (pFound != pNewObj)
                {
                    Assertion(false, "pFound == pNewObj", OnDemandSingletonNoT::sGetLogger(),
                              "OnDemandSingleton", 90);
                    // The registry kept another object: ours is nobody's, so it goes.
                    OnDemandSingletonTraits<T>::destroy(pNewObj);
                }
            }
        }
        if (pFound == nullptr)
        {
            Assertion(false, "pFound != 0", OnDemandSingletonNoT::sGetLogger(), "OnDemandSingleton",
                      97);
        }
        Slot* slot = new Slot;
        slot->pointer = pFound;
        cell().ts_object(slot);
        return pFound;
    }
};

} // namespace Tavoris

#endif // TAVORIS_ONDEMANDSINGLETON_H
