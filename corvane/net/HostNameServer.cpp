#include "tavoris/HostNameServer.h"

#include "tavoris/LogSite.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <system_error>
#include <thread>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

// ThreadSanitizer cannot follow the threads that getaddrinfo_a starts inside the C library (they
// bypass its thread start-up and fail in its allocator), so a build under it runs getaddrinfo on
// threads of its own, through the same time limit and release rules.
#if defined(__SANITIZE_THREAD__)
#define TAVORIS_HNS_OWN_LOOKUP_THREADS 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TAVORIS_HNS_OWN_LOOKUP_THREADS 1
#endif
#endif

namespace Tavoris
{

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(hostNameServerLogger, "corvane.net.HostNameServer")

/// One look-up: the control block and everything it points to. A look-up runs either in
/// getaddrinfo_a (no function) or on a thread of its own that calls the function; the four
/// operations below give both the contract of getaddrinfo_a's gai_error and gai_cancel.
struct LookupRequest
{
    gaicb cb;
    std::string name;
    addrinfo hints;
    HostNameServer::LookupFunction function;

    // Only for a look-up by a function:
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false; // guarded by mutex
    int error = 0;     // guarded by mutex
};

void releaseRequest(LookupRequest* request)
{
    if (request->cb.ar_result != nullptr)
    {
        freeaddrinfo(request->cb.ar_result);
    }
    delete request;
}

/// Starts \p request: 0, or an EAI_ code when it could not be started (it then needs no
/// cancellation).
int startRequest(LookupRequest* request)
{
    if (request->function == nullptr)
    {
        gaicb* list[1] = {&request->cb};
        return getaddrinfo_a(GAI_NOWAIT, list, 1, nullptr);
    }
    try
    {
        std::thread(
            [request]()
            {
                addrinfo* result = nullptr;
                const int error = request->function(request->cb.ar_name, request->cb.ar_service,
                                                    request->cb.ar_request, &result);
                std::lock_guard<std::mutex> lock(request->mutex);
                request->cb.ar_result = result;
                request->error = error;
                request->done = true;
                request->finished.notify_all();
            })
            .detach();
    }
    catch (const std::system_error&)
    {
        return EAI_AGAIN;
    }
    return 0;
}

/// EAI_INPROGRESS while \p request runs, else its result.
int requestError(LookupRequest* request)
{
    if (request->function == nullptr)
    {
        return gai_error(&request->cb);
    }
    std::lock_guard<std::mutex> lock(request->mutex);
    return request->done ? request->error : EAI_INPROGRESS;
}

/// Waits at most \p timeoutNs for \p request to end; may return early. \p pollNs is the pause
/// between two looks at a getaddrinfo_a request, which grows up to 2 ms.
void suspendRequest(LookupRequest* request, std::int64_t timeoutNs, std::int64_t& pollNs)
{
    if (request->function == nullptr)
    {
        // Polled rather than waited for with gai_suspend: in glibc, a time-out of gai_suspend that
        // meets the end of the request leaves the waiter's entry (on its stack) in the request's
        // list, and the resolver thread then writes through it.
        const std::int64_t pauseNs = pollNs < timeoutNs ? pollNs : timeoutNs;
        timespec pause;
        pause.tv_sec = static_cast<time_t>(pauseNs / 1000000000LL);
        pause.tv_nsec = static_cast<long>(pauseNs % 1000000000LL);
        nanosleep(&pause, nullptr);
        if (pollNs < 2000000LL)
        {
            pollNs *= 2;
        }
        return;
    }
    std::unique_lock<std::mutex> lock(request->mutex);
    request->finished.wait_for(lock, std::chrono::nanoseconds(timeoutNs),
                               [request]() { return request->done; });
}

/// EAI_CANCELED when \p request was stopped before it ran, EAI_NOTCANCELED when it runs on,
/// EAI_ALLDONE when it has ended.
int cancelRequest(LookupRequest* request)
{
    if (request->function == nullptr)
    {
        return gai_cancel(&request->cb);
    }
    // A thread running the function cannot be stopped.
    std::lock_guard<std::mutex> lock(request->mutex);
    return request->done ? EAI_ALLDONE : EAI_NOTCANCELED;
}

/// The cancelled look-ups that a resolver thread still works on. Their memory is released only
/// once they no longer answer EAI_INPROGRESS: until then that thread reads the name and the hints
/// and writes the result list.
class CancelledLookups
{
public:
    void add(LookupRequest* request)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.push_back(request);
    }

    std::size_t reap()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<LookupRequest*>::iterator it = m_requests.begin();
        while (it != m_requests.end())
        {
            if (requestError(*it) != EAI_INPROGRESS)
            {
                releaseRequest(*it);
                it = m_requests.erase(it);
            }
            else
            {
                ++it;
            }
        }
        return m_requests.size();
    }

private:
    std::mutex m_mutex;
    std::vector<LookupRequest*> m_requests; // guarded by m_mutex
};

/// Never destroyed: a resolver thread may still hold a cancelled look-up when the process ends.
CancelledLookups& cancelledLookups()
{
    static CancelledLookups* s_cancelled = new CancelledLookups;
    return *s_cancelled;
}

std::int64_t monotonicNs()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

/// The status of a getaddrinfo error code.
Hostent::GetHostByNameStatus statusOfGaiError(int error)
{
    switch (error)
    {
    case 0:
        return Hostent::GHBN_SUCCESS;
    case EAI_NONAME:
        return Hostent::GHBN_HOST_NOT_FOUND;
    case EAI_AGAIN:
        return Hostent::GHBN_TRY_AGAIN;
    case EAI_FAIL:
        return Hostent::GHBN_NO_RECOVERY;
#ifdef EAI_NODATA
    case EAI_NODATA:
        return Hostent::GHBN_NO_DATA;
#endif
#ifdef EAI_ADDRFAMILY
    case EAI_ADDRFAMILY:
        return Hostent::GHBN_NO_DATA;
#endif
    default:
        return Hostent::GHBN_NO_RECOVERY;
    }
}

std::string cacheKey(const char* name)
{
    std::string key(name);
    for (char& c : key)
    {
        if (c >= 'A' && c <= 'Z')
        {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return key;
}

/// The process's own resolver object.
class DefaultHostNameServer : public HostNameServer
{
public:
    DefaultHostNameServer() = default;
};

std::atomic<HostNameServer*> s_replacement{nullptr};

} // namespace

HostNameServer& HostNameServer::getInstance()
{
    HostNameServer* replacement = s_replacement.load(std::memory_order_acquire);
    if (replacement != nullptr)
    {
        return *replacement;
    }
    // Never destroyed: threads still resolving while the process ends keep finding it.
    static HostNameServer* s_default = new DefaultHostNameServer;
    return *s_default;
}

void HostNameServer::setLookupFunction(LookupFunction function)
{
    m_lookupFunction.store(function);
}

HostNameServer* HostNameServer::setInstance(HostNameServer* replacement)
{
    return s_replacement.exchange(replacement, std::memory_order_acq_rel);
}

HostNameServer::HostNameServer()
    : m_cacheSuccess(true), m_cacheFailures(false), m_flushTimeoutMs(60000)
{
}

HostNameServer::~HostNameServer() = default;

bool HostNameServer::resolve(const char* name, Hostent& result,
                             Hostent::GetHostByNameStatus& status, ACE_Time_Value timeout,
                             bool useCache)
{
    m_resolveCount.fetch_add(1);
    reapCancelled();

    if (name == nullptr || *name == '\0')
    {
        TAVORIS_LOG_DEBUG(hostNameServerLogger(), "resolve: invalid host name");
        status = Hostent::GHBN_INVALID_NAME;
        return false;
    }

    const std::string key = cacheKey(name);
    CacheEntry entry;
    if (useCache && findCached(key, entry))
    {
        m_cacheHitCount.fetch_add(1);
        TAVORIS_LOG_DEBUG(hostNameServerLogger(),
                          "resolve: " << name << " answered from the cache: "
                                      << Hostent::getGetHostByNameStatusString(entry.status));
    }
    else
    {
        entry.status = lookup(name, timeout, entry.canonicalName, entry.addresses);
        if (useCache)
        {
            storeCached(key, entry);
        }
    }

    if (entry.status != Hostent::GHBN_SUCCESS)
    {
        status = entry.status;
        return false;
    }
    result.assign(entry.canonicalName.empty() ? name : entry.canonicalName.c_str(),
                  entry.addresses);
    status = Hostent::GHBN_SUCCESS;
    return true;
}

Hostent::GetHostByNameStatus HostNameServer::lookup(const std::string& name,
                                                    const ACE_Time_Value& timeout,
                                                    std::string& canonicalName,
                                                    std::vector<std::uint32_t>& addresses)
{
    std::int64_t timeoutNs = static_cast<std::int64_t>(timeout.sec()) * 1000000000LL +
                             static_cast<std::int64_t>(timeout.usec()) * 1000LL;
    if (timeoutNs < 0)
    {
        timeoutNs = 0;
    }
    const std::int64_t deadlineNs = monotonicNs() + timeoutNs;

    LookupRequest* request = new LookupRequest();
    request->name = name;
    std::memset(&request->hints, 0, sizeof(request->hints));
    request->hints.ai_family = AF_INET;
    // One entry per address: the socket type only multiplies the answers.
    request->hints.ai_socktype = SOCK_STREAM;
    request->hints.ai_flags = AI_CANONNAME;
    std::memset(&request->cb, 0, sizeof(request->cb));
    request->cb.ar_name = request->name.c_str();
    request->cb.ar_service = nullptr;
    request->cb.ar_request = &request->hints;
    request->cb.ar_result = nullptr;
    request->function = m_lookupFunction.load();
#ifdef TAVORIS_HNS_OWN_LOOKUP_THREADS
    if (request->function == nullptr)
    {
        request->function = &getaddrinfo;
    }
#endif

    m_lookupCount.fetch_add(1);
    const int started = startRequest(request);
    if (started != 0)
    {
        releaseRequest(request);
        TAVORIS_LOG_DEBUG(hostNameServerLogger(),
                          "lookup: " << name << " could not be started: " << gai_strerror(started));
        return started == EAI_AGAIN ? Hostent::GHBN_TRY_AGAIN : Hostent::GHBN_NO_RECOVERY;
    }

    int error = requestError(request);
    std::int64_t pollNs = 50000;
    while (error == EAI_INPROGRESS)
    {
        const std::int64_t remainingNs = deadlineNs - monotonicNs();
        if (remainingNs <= 0)
        {
            break;
        }
        suspendRequest(request, remainingNs, pollNs);
        error = requestError(request);
    }

    if (error == EAI_INPROGRESS)
    {
        const int cancelled = cancelRequest(request);
        if (cancelled == EAI_CANCELED)
        {
            // Still queued: the C library has let go of it.
            releaseRequest(request);
        }
        else if (cancelled != EAI_ALLDONE)
        {
            // A resolver thread works on it: its memory must outlive that work.
            cancelledLookups().add(request);
        }
        if (cancelled != EAI_ALLDONE)
        {
            TAVORIS_LOG_DEBUG(hostNameServerLogger(), "lookup: " << name << " timed out after "
                                                                 << timeoutNs / 1000000LL << " ms");
            return Hostent::GHBN_TIMEOUT;
        }
        // Finished just now: the answer is there after all.
        error = requestError(request);
    }

    Hostent::GetHostByNameStatus status = statusOfGaiError(error);
    if (status == Hostent::GHBN_SUCCESS)
    {
        const addrinfo* first = request->cb.ar_result;
        if (first != nullptr && first->ai_canonname != nullptr)
        {
            canonicalName = first->ai_canonname;
        }
        for (const addrinfo* info = first; info != nullptr; info = info->ai_next)
        {
            if (info->ai_family != AF_INET || info->ai_addr == nullptr ||
                info->ai_addrlen < static_cast<socklen_t>(sizeof(sockaddr_in)))
            {
                continue;
            }
            sockaddr_in address;
            std::memcpy(&address, info->ai_addr, sizeof(address));
            bool seen = false;
            for (std::uint32_t known : addresses)
            {
                seen = seen || known == address.sin_addr.s_addr;
            }
            if (!seen)
            {
                addresses.push_back(address.sin_addr.s_addr);
            }
        }
        if (addresses.empty())
        {
            status = Hostent::GHBN_NO_DATA;
        }
    }
    TAVORIS_LOG_DEBUG(hostNameServerLogger(),
                      "lookup: " << name << ": " << Hostent::getGetHostByNameStatusString(status)
                                 << ", " << addresses.size() << " address(es)");
    releaseRequest(request);
    return status;
}

bool HostNameServer::findCached(const std::string& key, CacheEntry& entry)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::map<std::string, CacheEntry>::iterator it = m_cache.find(key);
    if (it == m_cache.end())
    {
        return false;
    }
    if (it->second.expiresAtNs <= monotonicNs())
    {
        m_cache.erase(it);
        return false;
    }
    entry = it->second;
    return true;
}

void HostNameServer::storeCached(const std::string& key, const CacheEntry& entry)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    bool keep = false;
    switch (entry.status)
    {
    case Hostent::GHBN_SUCCESS:
        keep = m_cacheSuccess;
        break;
    case Hostent::GHBN_HOST_NOT_FOUND:
    case Hostent::GHBN_NO_DATA:
    case Hostent::GHBN_NO_RECOVERY:
        keep = m_cacheFailures;
        break;
    default:
        // Time-outs and temporary failures say nothing lasting about the name.
        break;
    }
    if (!keep || m_flushTimeoutMs == 0)
    {
        return;
    }

    const std::int64_t now = monotonicNs();
    std::map<std::string, CacheEntry>::iterator it = m_cache.begin();
    while (it != m_cache.end())
    {
        if (it->second.expiresAtNs <= now)
        {
            it = m_cache.erase(it);
        }
        else
        {
            ++it;
        }
    }
    CacheEntry& stored = m_cache[key];
    stored = entry;
    stored.expiresAtNs = now + static_cast<std::int64_t>(m_flushTimeoutMs) * 1000000LL;
}

void HostNameServer::setCachePolicy(bool cacheSuccess, bool cacheFailures,
                                    unsigned int flushTimeoutMs)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_cacheSuccess = cacheSuccess;
    m_cacheFailures = cacheFailures;
    m_flushTimeoutMs = flushTimeoutMs;
}

bool HostNameServer::getCacheSuccess() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_cacheSuccess;
}

bool HostNameServer::getCacheFailures() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_cacheFailures;
}

unsigned int HostNameServer::getCacheFlushTimeoutMs() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_flushTimeoutMs;
}

void HostNameServer::flushCache()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_cache.clear();
}

std::size_t HostNameServer::getCacheSize() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_cache.size();
}

std::size_t HostNameServer::reapCancelled()
{
    return cancelledLookups().reap();
}

} // namespace Tavoris
