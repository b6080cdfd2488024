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
/// them; hosts and tests read them. Thread safety: the counters are atomics, updated with one
/// relaxed add each, so readings taken while other threads allocate are momentary.
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

    /// The account of that name, made on first use; \p name need not outlive the call.
    /// A null name counts on the account "(unnamed)".
    static MemAccount& sGet(const char* name);

    /// Reads one account: zeros when it was never used.
    static Reading sRead(const char* name);

    /// Reads every account, in the order they were made.
    static std::vector<Reading> sReadAll();

    const std::string& getName() const { return m_name; }
    int64_t getLiveBytes() const { return m_liveBytes.load(std::memory_order_relaxed); }
    int64_t getLiveBlocks() const { return m_liveBlocks.load(std::memory_order_relaxed); }
    uint64_t getTotalBlocks() const { return m_totalBlocks.load(std::memory_order_relaxed); }

    /// Counts a block of \p size bytes as allocated.
    void added(size_t size)
    {
        m_liveBytes.fetch_add(static_cast<int64_t>(size), std::memory_order_relaxed);
        m_liveBlocks.fetch_add(1, std::memory_order_relaxed);
        m_totalBlocks.fetch_add(1, std::memory_order_relaxed);
    }

    /// Counts a block of \p size bytes as given back.
    void removed(size_t size)
    {
        m_liveBytes.fetch_sub(static_cast<int64_t>(size), std::memory_order_relaxed);
        m_liveBlocks.fetch_sub(1, std::memory_order_relaxed);
    }

private:
    explicit MemAccount(const char* name);
    MemAccount(const MemAccount&) = delete;
    MemAccount& operator=(const MemAccount&) = delete;

    std::string m_name;
    std::atomic<int64_t> m_liveBytes;
    std::atomic<int64_t> m_liveBlocks;
    std::atomic<uint64_t> m_totalBlocks;
};

} // namespace Tavoris

#endif // TAVORIS_MEMACCOUNT_H
