#include "tavoris/MemAccount.h"

#include <cstring>
#include <mutex>

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

/// A few recently used accounts of this thread, found by the address of the name text.
/// Account names are literals, so the same pointer comes back again and again and the table
/// lock is taken once per thread and name.
struct ThreadCache
{
    static const int kSize = 8;
    const char* names[kSize] = {};
    MemAccount* accounts[kSize] = {};
    int next = 0;
};

thread_local ThreadCache t_cache;

} // namespace

MemAccount::MemAccount(const char* name)
    : m_name(name), m_liveBytes(0), m_liveBlocks(0), m_totalBlocks(0)
{
}

MemAccount& MemAccount::sGet(const char* name)
{
    if (name == nullptr)
    {
        name = kUnnamed;
    }
    ThreadCache& cache = t_cache;
    for (int i = 0; i < ThreadCache::kSize; ++i)
    {
        // The address alone is not enough: a caller's buffer may hold another name by now.
        if (cache.names[i] == name && cache.accounts[i]->m_name == name)
        {
            return *cache.accounts[i];
        }
    }

    MemAccount* account = nullptr;
    {
        AccountTable& accounts = table();
        std::lock_guard<std::mutex> lock(accounts.mutex);
        for (MemAccount* candidate : accounts.accounts)
        {
            if (candidate->m_name == name)
            {
                account = candidate;
                break;
            }
        }
        if (account == nullptr)
        {
            account = new MemAccount(name);
            accounts.accounts.push_back(account);
        }
    }
    cache.names[cache.next] = name;
    cache.accounts[cache.next] = account;
    cache.next = (cache.next + 1) % ThreadCache::kSize;
    return *account;
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
