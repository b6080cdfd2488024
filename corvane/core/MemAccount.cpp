#include "tavoris/MemAccount.h"

#include <cstring>
#include <mutex>

#include <pthread.h>

namespace Tavoris
{

namespace
{

const char* const kUnnamed = "(unnamed)";

/// Every account ever made, in order. Accounts are never freed: blocks may be given back
/// by destructors that run after any clean-up could.
struct AccountTable
{
    std::mutex mutex;
    std::vector<MemAccount*> accounts; // guarded by mutex
};

AccountTable& table()
{
    static AccountTable* s_table = new AccountTable;
    return *s_table;
}

/// What one thread knows of the accounts: every shard it holds, and the last few accounts it
/// used, found by the address of the name text (account names are literals, so the same pointer
/// comes back again and again). Plain data, so it stays usable however late in a thread's life.
struct ThreadCache
{
    static const int kRecent = 8;
    static const int kHeld = 128;

    const char* recentNames[kRecent];
    MemAccount* recentAccounts[kRecent];
    MemAccount::Shard* recentShards[kRecent];
    int nextRecent;

    const MemAccount* heldAccounts[kHeld];
    MemAccount::Shard* heldShards[kHeld];
    int heldCount;
    bool registered;
};

thread_local ThreadCache t_cache;

/// Gives the shards of an ending thread back, for new threads to take over with their counts.
void releaseThreadShards(void* cachePointer)
{
    ThreadCache* cache = static_cast<ThreadCache*>(cachePointer);
    for (int i = 0; i < cache->heldCount; ++i)
    {
        cache->heldShards[i]->inUse.store(false, std::memory_order_release);
    }
    cache->heldCount = 0;
    // Anything counted later on this thread takes a shard again, and keeps it.
    for (int i = 0; i < ThreadCache::kRecent; ++i)
    {
        cache->recentNames[i] = nullptr;
        cache->recentAccounts[i] = nullptr;
        cache->recentShards[i] = nullptr;
    }
}

pthread_key_t threadEndKey()
{
    static const pthread_key_t s_key = []
    {
        pthread_key_t key;
        pthread_key_create(&key, &releaseThreadShards);
        return key;
    }();
    return s_key;
}

/// A plain add by a shard's one writer: no locked instruction.
template <class T>
void addOwned(std::atomic<T>& counter, T amount)
{
    counter.store(counter.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
}

template <class T>
void addShared(std::atomic<T>& counter, T amount)
{
    counter.fetch_add(amount, std::memory_order_relaxed);
}

template <class T>
T sumOf(const MemAccount::Shard* shards, const MemAccount::Shard& shared,
        std::atomic<T> MemAccount::Shard::*counter)
{
    T sum = (shared.*counter).load(std::memory_order_relaxed);
    for (const MemAccount::Shard* shard = shards; shard != nullptr; shard = shard->next)
    {
        sum += (shard->*counter).load(std::memory_order_relaxed);
    }
    return sum;
}

MemAccount* findOrMake(const char* name, MemAccount* (*make)(const char*))
{
    AccountTable& accounts = table();
    std::lock_guard<std::mutex> lock(accounts.mutex);
    for (MemAccount* candidate : accounts.accounts)
    {
        if (candidate->getName() == name)
        {
            return candidate;
        }
    }
    MemAccount* account = make(name);
    accounts.accounts.push_back(account);
    return account;
}

} // namespace

MemAccount::MemAccount(const char* name) : m_name(name), m_shards(nullptr) {}

MemAccount::Shard* MemAccount::sLookup(const char* name, MemAccount** account)
{
    if (name == nullptr)
    {
        name = kUnnamed;
    }
    ThreadCache& cache = t_cache;
    for (int i = 0; i < ThreadCache::kRecent; ++i)
    {
        // Account names are static texts: the address alone finds the account again.
        if (cache.recentNames[i] == name)
        {
            *account = cache.recentAccounts[i];
            return cache.recentShards[i];
        }
    }
    MemAccount* found =
        findOrMake(name, [](const char* text) -> MemAccount* { return new MemAccount(text); });
    Shard* shard = found->threadShard();
    const int slot = cache.nextRecent;
    cache.recentNames[slot] = name;
    cache.recentAccounts[slot] = found;
    cache.recentShards[slot] = shard;
    cache.nextRecent = (slot + 1) % ThreadCache::kRecent;
    *account = found;
    return shard;
}

MemAccount::Shard* MemAccount::threadShard()
{
    ThreadCache& cache = t_cache;
    for (int i = 0; i < cache.heldCount; ++i)
    {
        if (cache.heldAccounts[i] == this)
        {
            return cache.heldShards[i];
        }
    }
    if (cache.heldCount == ThreadCache::kHeld)
    {
        return nullptr;
    }
    if (!cache.registered)
    {
        cache.registered = true;
        pthread_setspecific(threadEndKey(), &cache);
    }
    Shard* shard = acquireShard();
    cache.heldAccounts[cache.heldCount] = this;
    cache.heldShards[cache.heldCount] = shard;
    ++cache.heldCount;
    return shard;
}

MemAccount::Shard* MemAccount::acquireShard()
{
    for (Shard* shard = m_shards.load(std::memory_order_acquire); shard != nullptr;
         shard = shard->next)
    {
        bool inUse = false;
        if (!shard->inUse.load(std::memory_order_relaxed) &&
            shard->inUse.compare_exchange_strong(inUse, true, std::memory_order_acq_rel))
        {
            return shard;
        }
    }
    Shard* shard = new Shard;
    Shard* head = m_shards.load(std::memory_order_relaxed);
    do
    {
        shard->next = head;
    } while (!m_shards.compare_exchange_weak(head, shard, std::memory_order_release,
                                             std::memory_order_relaxed));
    return shard;
}

MemAccount& MemAccount::sGet(const char* name)
{
    MemAccount* account = nullptr;
    sLookup(name, &account);
    return *account;
}

void MemAccount::sAdded(const char* name, size_t size)
{
    MemAccount* account = nullptr;
    Shard* shard = sLookup(name, &account);
    if (shard == nullptr)
    {
        account->added(size);
        return;
    }
    addOwned<int64_t>(shard->liveBytes, static_cast<int64_t>(size));
    addOwned<int64_t>(shard->liveBlocks, 1);
    addOwned<uint64_t>(shard->totalBlocks, 1);
}

void MemAccount::sRemoved(const char* name, size_t size)
{
    MemAccount* account = nullptr;
    Shard* shard = sLookup(name, &account);
    if (shard == nullptr)
    {
        account->removed(size);
        return;
    }
    addOwned<int64_t>(shard->liveBytes, -static_cast<int64_t>(size));
    addOwned<int64_t>(shard->liveBlocks, -1);
}

void MemAccount::added(size_t size)
{
    Shard* shard = threadShard();
    if (shard == nullptr)
    {
        addShared<int64_t>(m_shared.liveBytes, static_cast<int64_t>(size));
        addShared<int64_t>(m_shared.liveBlocks, 1);
        addShared<uint64_t>(m_shared.totalBlocks, 1);
        return;
    }
    addOwned<int64_t>(shard->liveBytes, static_cast<int64_t>(size));
    addOwned<int64_t>(shard->liveBlocks, 1);
    addOwned<uint64_t>(shard->totalBlocks, 1);
}

void MemAccount::removed(size_t size)
{
    Shard* shard = threadShard();
    if (shard == nullptr)
    {
        addShared<int64_t>(m_shared.liveBytes, -static_cast<int64_t>(size));
        addShared<int64_t>(m_shared.liveBlocks, -1);
        return;
    }
    addOwned<int64_t>(shard->liveBytes, -static_cast<int64_t>(size));
    addOwned<int64_t>(shard->liveBlocks, -1);
}

int64_t MemAccount::getLiveBytes() const
{
    return sumOf<int64_t>(m_shards.load(std::memory_order_acquire), m_shared, &Shard::liveBytes);
}

int64_t MemAccount::getLiveBlocks() const
{
    return sumOf<int64_t>(m_shards.load(std::memory_order_acquire), m_shared, &Shard::liveBlocks);
}

uint64_t MemAccount::getTotalBlocks() const
{
    return sumOf<uint64_t>(m_shards.load(std::memory_order_acquire), m_shared, &Shard::totalBlocks);
}

MemAccount::Reading MemAccount::sRead(const char* name)
{
    const std::string wanted(name != nullptr ? name : kUnnamed);
    AccountTable& accounts = table();
    std::lock_guard<std::mutex> lock(accounts.mutex);
    for (const MemAccount* account : accounts.accounts)
    {
        if (account->m_name == wanted)
        {
            return Reading{account->m_name, account->getLiveBytes(), account->getLiveBlocks(),
                           account->getTotalBlocks()};
        }
    }
    return Reading{wanted, 0, 0, 0};
}

std::vector<MemAccount::Reading> MemAccount::sReadAll()
{
    std::vector<Reading> readings;
    AccountTable& accounts = table();
    std::lock_guard<std::mutex> lock(accounts.mutex);
    readings.reserve(accounts.accounts.size());
    for (const MemAccount* account : accounts.accounts)
    {
        readings.push_back(Reading{account->m_name, account->getLiveBytes(),
                                   account->getLiveBlocks(), account->getTotalBlocks()});
    }
    return readings;
}

} // namespace Tavoris
