// Live bytes and blocks per memory account name.
#ifndef TAVORIS_MEMACCOUNT_H
#define TAVORIS_MEMACCOUNT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Tavoris
{

/// The counters of one memory account, named after the class that allocates on it.
///
/// Accounts are made on first use and live until the process ends. The two allocators count on
/// them; hosts and tests read them. Each thread counts in a shard of its own, with plain stores
/// and no locked instruction, so that threads allocating on the same account do not contend; a
/// reading adds the shards up. Shards of ended threads are taken over by new ones.
/// Thread safety: any thread may count and read; a reading taken while other threads allocate is
/// momentary.
class MemAccount
{
public:
    /// One account as read at a moment.
    struct Reading
    {
        std::string name;
        int64_t liveBytes;
        int64_t liveBlocks;
        uint64_t totalBlocks;
    };

    /// The account of that name, made on first use. \p name is a static text (a literal, as a
    /// class's getMemAccountName() returns): each thread finds its account again by the text's
    /// address, and texts at other addresses with the same characters name the same account.
    /// A null name counts on the account "(unnamed)".
    static MemAccount& sGet(const char* name);

    /// Counts a block of \p size bytes as allocated on the account \p name (a static text).
    static void sAdded(const char* name, size_t size);
    /// Counts a block of \p size bytes as given back to the account \p name (a static text).
    static void sRemoved(const char* name, size_t size);

    /// Reads one account: zeros when it was never used.
    static Reading sRead(const char* name);

    /// Reads every account, in the order they were made.
    static std::vector<Reading> sReadAll();

    const std::string& getName() const { return m_name; }
    int64_t getLiveBytes() const;
    int64_t getLiveBlocks() const;
    uint64_t getTotalBlocks() const;

    /// Counts a block of \p size bytes as allocated, in the calling thread's shard.
    void added(size_t size);
    /// Counts a block of \p size bytes as given back, in the calling thread's shard.
    void removed(size_t size);

    /// The counters of one thread on one account. Only the owning thread writes them.
    struct alignas(64) Shard
    {
        std::atomic<int64_t> liveBytes{0};
        std::atomic<int64_t> liveBlocks{0};
        std::atomic<uint64_t> totalBlocks{0};
        std::atomic<bool> inUse{true};
        Shard* next = nullptr;
    };

private:
    explicit MemAccount(const char* name);
    MemAccount(const MemAccount&) = delete;
    MemAccount& operator=(const MemAccount&) = delete;

    /// The account \p name and the calling thread's shard of it.
    static Shard* sLookup(const char* name, MemAccount** account);
    /// The calling thread's shard of this account, or null when the thread has no room to keep
    /// one more; then the shared shard is counted with locked adds.
    Shard* threadShard();
    /// A shard of an ended thread, or a new one.
    Shard* acquireShard();

    std::string m_name;
    std::atomic<Shard*> m_shards; // pushed at the head, never removed
    Shard m_shared;               // for threads with no room for a shard of their own
};

} // namespace Tavoris

#endif // TAVORIS_MEMACCOUNT_H
