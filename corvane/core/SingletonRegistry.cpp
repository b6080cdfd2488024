#include "tavoris/SingletonRegistry.h"

#include <cstring>

namespace Tavoris
{

namespace
{

/// The process's registry. A static object: it is made on first use and destroyed at exit in
/// the reverse order of the statics made before it, so the singletons go before the statics
/// that were there when they were registered.
class ProcessSingletonRegistry : public SingletonRegistry
{
public:
    ProcessSingletonRegistry() = default;
    ~ProcessSingletonRegistry() override { destroyAll(); }
};

} // namespace

SingletonRegistry& SingletonRegistry::getInstance()
{
    static ProcessSingletonRegistry s_registry;
    return s_registry;
}

SingletonRegistry::SingletonRegistry() = default;

SingletonRegistry::~SingletonRegistry() = default;

SingletonRegistry::Entry* SingletonRegistry::find(const char* key)
{
    for (Entry& entry : m_entries)
    {
        if (entry.key == key)
        {
            return &entry;
        }
    }
    return nullptr;
}

void* SingletonRegistry::lookup(const char* key)
{
    if (key == nullptr)
    {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const Entry* entry = find(key);
    return entry != nullptr ? entry->object : nullptr;
}

void* SingletonRegistry::registerSingleton(const char* key, void* object, CleanupFunction cleanup,
                                           bool destroyAtExit)
{
    if (key == nullptr)
    {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (const Entry* entry = find(key))
    {
        return entry->object;
    }
    m_entries.push_back(Entry{key, object, cleanup, destroyAtExit});
    return object;
}

void SingletonRegistry::destroyAll()
{
    std::vector<Entry> entries;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        entries.swap(m_entries);
    }
    // Clean-up functions run without the lock: a singleton's destructor may look others up.
    for (auto it = entries.rbegin(); it != entries.rend(); ++it)
    {
        if (it->destroyAtExit && it->cleanup != nullptr && it->object != nullptr)
        {
            it->cleanup(it->object);
        }
    }
}

} // namespace Tavoris
