// What the datagram socket and UDP dispatcher tests share: a plain peer socket on the loopback
// address, an observer that records its notifications, and bounded waits.
#ifndef ZNUTIL_TESTS_UDPTESTSUPPORT_H
#define ZNUTIL_TESTS_UDPTESTSUPPORT_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnWorkerThread.h"

#include <gtest/gtest.h>

#include "support/WaitUntil.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace ZnUdpTest
{

using ZnTest::kLimit;
using ZnTest::waitUntil;

/// 127.0.0.1.
inline ZnInetAddress loopback()
{
    ZnInetAddress address;
    address.initFromAddress("127.0.0.1");
    return address;
}

/// The port the system gave descriptor \p fd, host order; 0 when it cannot tell.
inline unsigned int boundPort(uint64_t fd)
{
    sockaddr_in local{};
    socklen_t length = sizeof(local);
    if (::getsockname(static_cast<int>(fd), reinterpret_cast<sockaddr*>(&local), &length) != 0)
    {
        return 0;
    }
    return ntohs(local.sin_port);
}

/// True when descriptor \p fd has a datagram waiting, within \p limit.
inline bool readable(uint64_t fd, std::chrono::milliseconds limit = kLimit)
{
    pollfd entry{static_cast<int>(fd), POLLIN, 0};
    return ::poll(&entry, 1, static_cast<int>(limit.count())) == 1 && (entry.revents & POLLIN) != 0;
}

/// One datagram as a peer got it.
struct Datagram
{
    std::string bytes;
    std::string fromHost;
    unsigned int fromPort = 0;
};

/// A plain UDP socket bound to 127.0.0.1 on a port of the system's choice, outside the library.
class Peer
{
public:
    explicit Peer(int receiveBuffer = 0) : m_fd(::socket(AF_INET, SOCK_DGRAM, 0))
    {
        if (receiveBuffer != 0)
        {
            ::setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
        }
        sockaddr_in local = address(0);
        if (::bind(m_fd, reinterpret_cast<sockaddr*>(&local), sizeof(local)) == 0)
        {
            m_port = boundPort(static_cast<uint64_t>(m_fd));
        }
    }

    ~Peer() { ::close(m_fd); }

    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    int fd() const { return m_fd; }
    unsigned int port() const { return m_port; }

    /// Sends \p bytes to 127.0.0.1:\p port.
    /// \return true when the whole datagram went out.
    bool sendTo(unsigned int port, const std::string& bytes) const
    {
        sockaddr_in to = address(port);
        return ::sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to),
                        sizeof(to)) == static_cast<ssize_t>(bytes.size());
    }

    /// Waits at most \p limit for a datagram and takes it.
    /// \return false when none came.
    bool receive(Datagram& datagram, std::chrono::milliseconds limit = kLimit) const
    {
        if (!readable(static_cast<uint64_t>(m_fd), limit))
        {
            return false;
        }
        char buffer[65536];
        sockaddr_in from{};
        socklen_t length = sizeof(from);
        ssize_t n = ::recvfrom(m_fd, buffer, sizeof(buffer), 0, reinterpret_cast<sockaddr*>(&from),
                               &length);
        if (n < 0)
        {
            return false;
        }
        char host[INET_ADDRSTRLEN] = {};
        ::inet_ntop(AF_INET, &from.sin_addr, host, sizeof(host));
        datagram.bytes.assign(buffer, static_cast<size_t>(n));
        datagram.fromHost = host;
        datagram.fromPort = ntohs(from.sin_port);
        return true;
    }

    /// True when a datagram waits now.
    bool hasDatagram() const
    {
        return readable(static_cast<uint64_t>(m_fd), std::chrono::milliseconds(0));
    }

private:
    static sockaddr_in address(unsigned int port)
    {
        sockaddr_in result{};
        result.sin_family = AF_INET;
        result.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        result.sin_port = htons(static_cast<uint16_t>(port));
        return result;
    }

    int m_fd;
    unsigned int m_port = 0;
};

/// The library's threads that ran notifications of this program. Before the program ends each
/// worker among them is to be back in its wait: a worker on its way there still uses the
/// loggers, which go away at exit.
class SettlingEnvironment : public ::testing::Environment
{
public:
    static void sNote(ZnThread* aThread)
    {
        // Only workers go back to a wait: a dispatcher that ran a notification itself went back
        // to its queue, and the main thread may stand for the process object.
        if (dynamic_cast<ZnWorkerThread*>(aThread) == nullptr)
        {
            return;
        }
        std::lock_guard<std::mutex> lock(sm_mutex);
        sm_threads.insert(aThread);
    }

    /// Waits until every noted worker is back in its wait. After a shutdown there is nothing to
    /// wait for: the workers ended, and the waiter for that was sWaitUntilDone().
    static bool sSettle()
    {
        std::set<ZnThread*> threads;
        {
            std::lock_guard<std::mutex> lock(sm_mutex);
            if (ZnThread::sShuttingDown())
            {
                sm_threads.clear();
            }
            threads = sm_threads;
        }
        bool settled = true;
        for (ZnThread* thread : threads)
        {
            settled =
                waitUntil([thread] { return thread->getState() == ZnThread::STATE_BLOCKED; }) &&
                settled;
        }
        return settled;
    }

    void TearDown() override { EXPECT_TRUE(sSettle()); }

private:
    static inline std::mutex sm_mutex;
    static inline std::set<ZnThread*> sm_threads; // workers live until a shutdown
};

inline ::testing::Environment* const s_settling =
    ::testing::AddGlobalTestEnvironment(new SettlingEnvironment());

/// What one notification brought, and on which thread.
struct Notification
{
    ZnObservable* source; // compared, never used
    ZnHandle<ZnObject> argument;
    ZnThread* thread; // compared, never used
};

/// Records every notification it gets. With the gate closed, each notification waits (bounded)
/// until it opens.
class RecordingObserver : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        Notification notification{aSource, aArgument, ZnThread::sGetCurrent()};
        SettlingEnvironment::sNote(notification.thread);
        std::unique_lock<std::mutex> lock(m_mutex);
        m_notifications.push_back(notification);
        m_changed.notify_all();
        if (!m_changed.wait_for(lock, kLimit, [this] { return m_gateOpen; }))
        {
            m_gateTimedOut = true;
        }
    }

    /// Waits until \p count notifications have come.
    bool waitForCount(size_t count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [&] { return m_notifications.size() >= count; });
    }

    std::vector<Notification> notifications() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_notifications;
    }

    size_t count() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_notifications.size();
    }

    void closeGate()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_gateOpen = false;
    }

    void openGate()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_gateOpen = true;
        m_changed.notify_all();
    }

    /// True when a notification gave up waiting for the gate.
    bool gateTimedOut() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_gateTimedOut;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Notification> m_notifications;
    bool m_gateOpen = true;
    bool m_gateTimedOut = false;
};

/// An argument that can be told apart from others by its name.
class Tag : public ZnObject
{
public:
    explicit Tag(std::string name) : m_name(std::move(name)) {}
    const std::string& getName() const { return m_name; }

private:
    std::string m_name;
};

/// Runs this program again with \p filter as its only test, in a process of its own.
/// \return the child's exit status, or -1 when it could not be run.
inline int runAlone(const std::string& filter)
{
    std::string filterArgument = "--gtest_filter=" + filter;
    char program[] = "/proc/self/exe";
    char* argv[] = {program, &filterArgument[0], nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, program, nullptr, nullptr, argv, environ) != 0)
    {
        return -1;
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status))
    {
        return -1;
    }
    return WEXITSTATUS(status);
}

} // namespace ZnUdpTest

#endif // ZNUTIL_TESTS_UDPTESTSUPPORT_H
