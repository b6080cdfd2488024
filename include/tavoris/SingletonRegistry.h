// The process-wide table of named singletons, which destroys them at exit.
#ifndef TAVORIS_SINGLETONREGISTRY_H
#define TAVORIS_SINGLETONREGISTRY_H

#include <mutex>
#include <string>
#include <vector>

namespace Tavoris
{

/// Keys and objects of the process's singletons, with the function that destroys each.
///
/// The first registration of a key wins: later ones get the registered object back and keep
/// their own. A key registered with a null object stays taken, and later registrations get null.
/// At exit the registry destroys the objects whose registration asked for it, newest first.
/// Thread safety: every operation locks the registry.
class SingletonRegistry
{
public:
    /// Destroys a registered object.
    typedef void (*CleanupFunction)(void* object);

    /// The process-wide registry, made on first use.
    static SingletonRegistry& getInstance();

    virtual ~SingletonRegistry();

    /// \return the object registered under \p key, or null when there is none.
    virtual void* lookup(const char* key);

    /// Registers \p object under \p key with the function that destroys it; \p destroyAtExit
    /// false leaves the object alive at exit.
    /// \return the object now registered under \p key: \p object when the key was free, else the
    /// one registered before (then \p object stays the caller's).
    virtual void* registerSingleton(const char* key, void* object, CleanupFunction cleanup,
                                    bool destroyAtExit = true);

    /// Destroys every object whose registration asked for it, newest first, and empties the
    /// registry. Runs at exit; hosts may call it earlier.
    void destroyAll();

protected:
    SingletonRegistry();

private:
    struct Entry
    {
        std::string key;
        void* object;
        CleanupFunction cleanup;
        bool destroyAtExit;
    };

    SingletonRegistry(const SingletonRegistry&) = delete;
    SingletonRegistry& operator=(const SingletonRegistry&) = delete;

    Entry* find(const char* key); // caller holds m_mutex

    std::mutex m_mutex;
    std::vector<Entry> m_entries; // guarded by m_mutex
};

} // namespace Tavoris

#endif // TAVORIS_SINGLETONREGISTRY_H
