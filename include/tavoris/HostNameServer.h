// The process's resolver of host names to IPv4 addresses, with a time limit and a cache.
#ifndef TAVORIS_HOSTNAMESERVER_H
#define TAVORIS_HOSTNAMESERVER_H

#include "tavoris/Hostent.h"

#include <ace/Time_Value.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Tavoris
{

/// Turns host names into IPv4 addresses for the whole process.
///
/// A look-up goes to the system resolver (getaddrinfo_a, IPv4 only) and is waited for up to the
/// caller's time limit; a look-up still running then is cancelled and answered GHBN_TIMEOUT. A
/// cancelled look-up that the system resolver has already begun keeps its request and buffers
/// until the resolver's thread has let go of them; they are released by a later resolve(), by
/// reapCancelled(), or stay until the process ends. (Built under ThreadSanitizer, which cannot
/// follow getaddrinfo_a's own threads, each look-up runs getaddrinfo on a thread of its own under
/// the same rules.)
///
/// Answers are cached by name (ASCII case does not matter) for the flush time: successes by
/// default, failures only when asked (HOST_NOT_FOUND, NO_DATA and NO_RECOVERY; a time-out or a
/// TRY_AGAIN is never cached). Hosts set the policy with setCachePolicy(), usually from the
/// parameters "corvane.net.HostNameServer.cacheSuccess", "corvane.net.HostNameServer.cacheFailures"
/// and "corvane.net.HostNameServer.cacheFlushTimeoutMs".
///
/// Ownership: getInstance() gives the process's object, made on first use and never destroyed, so
/// that a thread still resolving while the process ends finds it. A host may install an object of
/// its own (a subclass) with setInstance(); it stays the host's.
/// Thread safety: every operation may be called from any thread; look-ups of several threads run
/// side by side, each blocking only its caller.
class HostNameServer
{
public:
    /// The process's resolver: the one installed by setInstance(), else the default object, made
    /// on first use.
    static HostNameServer& getInstance();

    /// Installs \p replacement as the object getInstance() answers; null goes back to the default
    /// object. Does not take ownership: the caller keeps \p replacement alive while installed.
    /// \return the object installed before, or null when it was the default one.
    static HostNameServer* setInstance(HostNameServer* replacement);

    virtual ~HostNameServer();

    /// Looks up the IPv4 addresses of \p name within \p timeout.
    /// \param name the host name, or a dotted address (which the system resolver converts).
    /// \param result on success: the canonical name and the addresses, in the resolver's order
    ///        with duplicates left out; untouched on failure.
    /// \param status GHBN_SUCCESS, or why there is no answer: GHBN_INVALID_NAME for a null or
    ///        empty name, GHBN_HOST_NOT_FOUND, GHBN_TRY_AGAIN, GHBN_NO_RECOVERY, GHBN_NO_DATA (the
    ///        name exists but has no IPv4 address), GHBN_TIMEOUT.
    /// \param timeout the time limit, relative; zero or less only takes what is ready at once.
    /// \param useCache true lets the answer come from the cache and go into it; false asks the
    ///        system resolver and leaves the cache alone.
    /// \return true with \p result filled in, false with \p status set.
    virtual bool resolve(const char* name, Hostent& result, Hostent::GetHostByNameStatus& status,
                         ACE_Time_Value timeout, bool useCache);

    /// Sets what the cache keeps and for how long; entries kept under the old policy stay until
    /// their own time runs out or flushCache().
    /// \param cacheSuccess keep answers with addresses (default true).
    /// \param cacheFailures keep HOST_NOT_FOUND, NO_DATA and NO_RECOVERY answers (default false).
    /// \param flushTimeoutMs how long an entry is served, in milliseconds (default 60000); 0
    ///        serves none.
    void setCachePolicy(bool cacheSuccess, bool cacheFailures, unsigned int flushTimeoutMs);

    bool getCacheSuccess() const;
    bool getCacheFailures() const;
    unsigned int getCacheFlushTimeoutMs() const;

    /// Empties the cache.
    void flushCache();

    /// The entries in the cache now, expired ones included until they are next looked at.
    std::size_t getCacheSize() const;

    /// Calls of resolve() on this object so far, cache answers and failures included.
    unsigned long getResolveCount() const { return m_resolveCount.load(); }

    /// Look-ups handed to the system resolver so far (those the cache did not answer).
    unsigned long getLookupCount() const { return m_lookupCount.load(); }

    /// Answers served from the cache so far.
    unsigned long getCacheHitCount() const { return m_cacheHitCount.load(); }

    /// A blocking look-up of the form of getaddrinfo.
    typedef int (*LookupFunction)(const char* name, const char* service, const addrinfo* hints,
                                  addrinfo** result);

    /// Puts \p function in place of the system resolver for the look-ups this object starts from
    /// now on; null (the default) goes back to getaddrinfo_a. Each look-up then runs \p function
    /// on a thread of its own, under the same time limit, cancellation and release rules as the
    /// system resolver's look-ups. Meant for tests (a look-up that answers late on purpose) and
    /// for hosts with a resolver of their own. \p function must be callable from any thread; a
    /// result list it answers is released with freeaddrinfo.
    void setLookupFunction(LookupFunction function);

    /// Releases the cancelled look-ups that the system resolver has finished with.
    /// \return the cancelled look-ups of the process still running.
    static std::size_t reapCancelled();

protected:
    /// A resolver with the default cache policy. For subclasses; the process's object comes
    /// from getInstance().
    HostNameServer();

private:
    struct CacheEntry
    {
        Hostent::GetHostByNameStatus status;
        std::string canonicalName;
        std::vector<std::uint32_t> addresses; // network byte order
        std::int64_t expiresAtNs;             // monotonic clock
    };

    HostNameServer(const HostNameServer&) = delete;
    HostNameServer& operator=(const HostNameServer&) = delete;

    /// The look-up by the system resolver, waited for until \p timeout has passed.
    Hostent::GetHostByNameStatus lookup(const std::string& name, const ACE_Time_Value& timeout,
                                        std::string& canonicalName,
                                        std::vector<std::uint32_t>& addresses);

    /// The cache's answer for \p key, if it has one still valid.
    bool findCached(const std::string& key, CacheEntry& entry);
    /// Keeps an answer as the cache policy says.
    void storeCached(const std::string& key, const CacheEntry& entry);

    mutable std::mutex m_mutex;
    bool m_cacheSuccess;                       // guarded by m_mutex
    bool m_cacheFailures;                      // guarded by m_mutex
    unsigned int m_flushTimeoutMs;             // guarded by m_mutex
    std::map<std::string, CacheEntry> m_cache; // guarded by m_mutex

    std::atomic<LookupFunction> m_lookupFunction{nullptr};
    std::atomic<unsigned long> m_resolveCount{0};
    std::atomic<unsigned long> m_lookupCount{0};
    std::atomic<unsigned long> m_cacheHitCount{0};
};

} // namespace Tavoris

#endif // TAVORIS_HOSTNAMESERVER_H
