// Helpers of the interoperability tests: the responder program as a child process, other child
// processes (SIPp), a plain UDP client on loopback and SIP requests to send with it.
#ifndef ZNUTIL_TESTS_INTEROP_RESPONDERPROCESS_H
#define ZNUTIL_TESTS_INTEROP_RESPONDERPROCESS_H

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ZnInterop
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// The whole content of \p path; empty when it cannot be read.
inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

/// A directory of its own under $TMPDIR (or /tmp), removed with what it holds when destroyed.
class TempDir
{
public:
    TempDir()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/zn-interop-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (::mkdtemp(buffer.data()) == nullptr)
        {
            throw std::runtime_error("mkdtemp failed");
        }
        m_path = buffer.data();
    }
    ~TempDir()
    {
        const std::string command = "rm -rf '" + m_path + "'";
        if (std::system(command.c_str()) != 0)
        {
            std::fprintf(stderr, "could not remove %s\n", m_path.c_str());
        }
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

/// A child process running \p argv in \p directory, its stdout and stderr going to two files.
class ChildProcess
{
public:
    ChildProcess() = default;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Kills a child still running, and reaps it.
    ~ChildProcess()
    {
        if (m_pid > 0 && !m_exited)
        {
            ::kill(m_pid, SIGKILL);
            int status = 0;
            ::waitpid(m_pid, &status, 0);
        }
    }

    /// Starts the child. \return false when fork fails.
    bool start(const std::vector<std::string>& argv, const std::string& directory,
               const std::string& outFile, const std::string& errFile)
    {
        m_outFile = outFile;
        m_errFile = errFile;
        m_exited = false;
        m_pid = ::fork();
        if (m_pid < 0)
        {
            return false;
        }
        if (m_pid == 0)
        {
            const int out = ::open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            const int err = ::open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            const int in = ::open("/dev/null", O_RDONLY);
            if (out < 0 || err < 0 || in < 0 || ::dup2(out, 1) < 0 || ::dup2(err, 2) < 0 ||
                ::dup2(in, 0) < 0 || ::chdir(directory.c_str()) != 0)
            {
                ::_exit(127);
            }
            std::vector<char*> args;
            for (const std::string& a : argv)
            {
                args.push_back(const_cast<char*>(a.c_str()));
            }
            args.push_back(nullptr);
            ::execv(args[0], args.data());
            ::_exit(127);
        }
        return true;
    }

    pid_t pid() const { return m_pid; }

    /// True once the child has ended; reaps it without waiting.
    bool hasExited()
    {
        if (m_pid <= 0 || m_exited)
        {
            return true;
        }
        int status = 0;
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid)
        {
            m_exited = true;
            m_status = status;
        }
        return m_exited;
    }

    /// Waits at most \p limit for the child to end, polling every 20 ms.
    /// \return true when it ended.
    bool waitFor(milliseconds limit)
    {
        const auto deadline = Clock::now() + limit;
        while (!hasExited())
        {
            if (Clock::now() >= deadline)
            {
                return false;
            }
            std::this_thread::sleep_for(milliseconds(20));
        }
        return true;
    }

    /// Sends \p signal to the running child.
    void signal(int signal)
    {
        if (m_pid > 0 && !m_exited)
        {
            ::kill(m_pid, signal);
        }
    }

    /// The exit code, or -1 when the child did not exit normally (or has not exited).
    int exitCode() const { return m_exited && WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -1; }

    /// A description of how the child ended, for messages.
    std::string howItEnded() const
    {
        if (!m_exited)
        {
            return "still running";
        }
        if (WIFEXITED(m_status))
        {
            return "exit code " + std::to_string(WEXITSTATUS(m_status));
        }
        if (WIFSIGNALED(m_status))
        {
            return "killed by signal " + std::to_string(WTERMSIG(m_status));
        }
        return "ended oddly";
    }

    std::string output() const { return readFile(m_outFile); }
    std::string errors() const { return readFile(m_errFile); }

private:
    pid_t m_pid = -1;
    bool m_exited = false;
    int m_status = 0;
    std::string m_outFile;
    std::string m_errFile;
};

/// A UDP socket bound to an ephemeral port of 127.0.0.1.
class UdpClient
{
public:
    UdpClient()
    {
        m_fd = ::socket(AF_INET, SOCK_DGRAM, 0);
        if (m_fd < 0)
        {
            throw std::runtime_error("socket failed");
        }
        sockaddr_in self = loopback(0);
        if (::bind(m_fd, reinterpret_cast<sockaddr*>(&self), sizeof self) != 0)
        {
            throw std::runtime_error("bind failed");
        }
        socklen_t size = sizeof self;
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&self), &size);
        m_port = ntohs(self.sin_port);
    }
    ~UdpClient() { ::close(m_fd); }
    UdpClient(const UdpClient&) = delete;
    UdpClient& operator=(const UdpClient&) = delete;

    unsigned int port() const { return m_port; }

    /// Sends \p bytes to 127.0.0.1:\p port. \return true when the whole datagram went.
    bool send(const std::string& bytes, unsigned int port)
    {
        sockaddr_in peer = loopback(port);
        return ::sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&peer),
                        sizeof peer) == static_cast<ssize_t>(bytes.size());
    }

    /// Waits at most \p limit for a datagram. \return true with it in \p bytes, and the port it
    /// came from in \p fromPort when that is not null.
    bool receive(std::string& bytes, milliseconds limit, unsigned int* fromPort = nullptr)
    {
        pollfd p{m_fd, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(limit.count())) != 1)
        {
            return false;
        }
        std::vector<char> buffer(70000);
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        const ssize_t n = ::recvfrom(m_fd, buffer.data(), buffer.size(), 0,
                                     reinterpret_cast<sockaddr*>(&peer), &size);
        if (n < 0)
        {
            return false;
        }
        if (fromPort != nullptr)
        {
            *fromPort = ntohs(peer.sin_port);
        }
        bytes.assign(buffer.data(), static_cast<size_t>(n));
        return true;
    }

    /// Waits at most \p limit for a response whose Call-ID is \p callId, skipping others.
    /// \return true with it in \p response.
    bool receiveFor(const std::string& callId, std::string& response, milliseconds limit)
    {
        const auto deadline = Clock::now() + limit;
        for (;;)
        {
            const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
            if (left.count() <= 0 || !receive(response, left))
            {
                return false;
            }
            if (response.find("\r\nCall-ID: " + callId + "\r\n") != std::string::npos)
            {
                return true;
            }
        }
    }

    /// Collects responses for at most \p limit, until one for each of \p callIds has come, by
    /// Call-ID. Responses to other Call-IDs land in \p others.
    std::map<std::string, std::string> collect(const std::set<std::string>& callIds,
                                               milliseconds limit, std::vector<std::string>& others)
    {
        std::map<std::string, std::string> found;
        const auto deadline = Clock::now() + limit;
        while (found.size() < callIds.size())
        {
            const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
            std::string response;
            if (left.count() <= 0 || !receive(response, left))
            {
                break;
            }
            const std::string callId = callIdOf(response);
            if (callIds.count(callId) != 0)
            {
                found[callId] = response;
            }
            else
            {
                others.push_back(response);
            }
        }
        return found;
    }

    /// The Call-ID of a response, empty when it has none.
    static std::string callIdOf(const std::string& response)
    {
        const std::string label = "\r\nCall-ID: ";
        const size_t start = response.find(label);
        if (start == std::string::npos)
        {
            return "";
        }
        const size_t end = response.find("\r\n", start + label.size());
        return response.substr(start + label.size(), end - start - label.size());
    }

    static sockaddr_in loopback(unsigned int port)
    {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(port));
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return a;
    }

private:
    int m_fd = -1;
    unsigned int m_port = 0;
};

/// A UDP port of 127.0.0.1 for one test process alone, held until the object goes.
///
/// The responder binds with SO_REUSEADDR, and so may a client such as SIPp: two of them given the
/// same port would both bind it and take each other's datagrams. So the port is taken below the
/// kernel's ephemeral range, which no automatic bind hands out, and claimed among the tests running
/// at the same time by an abstract local socket named after it, which the system releases when
/// the claim is closed or the process ends.
class PortClaim
{
public:
    PortClaim()
    {
        unsigned int low = 32768;
        std::ifstream range("/proc/sys/net/ipv4/ip_local_port_range");
        range >> low;
        const unsigned int first = low > 11024 ? low - 10000 : 1024;
        const unsigned int count = low > first ? low - first : 1000;
        std::random_device seed;
        const unsigned int start = seed() % count;
        for (unsigned int i = 0; i < count; ++i)
        {
            const unsigned int port = first + (start + i) % count;
            if (claim(port))
            {
                m_port = port;
                return;
            }
        }
        throw std::runtime_error("no UDP port left to claim");
    }
    ~PortClaim()
    {
        if (m_lock >= 0)
        {
            ::close(m_lock);
        }
    }
    PortClaim(const PortClaim&) = delete;
    PortClaim& operator=(const PortClaim&) = delete;

    unsigned int port() const { return m_port; }

private:
    /// Takes the claim on \p port when no other test holds it and nothing is bound to it now.
    bool claim(unsigned int port)
    {
        const int lock = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (lock < 0)
        {
            return false;
        }
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        const std::string text = "zn-interop-udp-port-" + std::to_string(port);
        std::memcpy(name.sun_path + 1, text.data(), text.size()); // abstract: sun_path[0] is 0
        const socklen_t size =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
        if (::bind(lock, reinterpret_cast<sockaddr*>(&name), size) != 0)
        {
            ::close(lock);
            return false;
        }
        // Bound without SO_REUSEADDR, the probe fails when anything holds the port.
        const int probe = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const bool free =
            probe >= 0 && ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        if (probe >= 0)
        {
            ::close(probe);
        }
        if (!free)
        {
            ::close(lock);
            return false;
        }
        m_lock = lock;
        return true;
    }

    int m_lock = -1;
    unsigned int m_port = 0;
};

/// An OPTIONS request from \p client's port with Call-ID \p callId.
inline std::string optionsRequest(unsigned int clientPort, unsigned int serverPort,
                                  const std::string& callId, const std::string& extraHeaders = "")
{
    const std::string client = "127.0.0.1:" + std::to_string(clientPort);
    return "OPTIONS sip:responder@127.0.0.1:" + std::to_string(serverPort) + " SIP/2.0\r\n" +
           "Via: SIP/2.0/UDP " + client + ";branch=z9hG4bK-" + callId + "\r\n" +
           "Max-Forwards: 70\r\n" + "From: <sip:test@" + client + ">;tag=t-" + callId + "\r\n" +
           "To: <sip:responder@127.0.0.1>\r\n" + "Call-ID: " + callId + "\r\n" +
           "CSeq: 1 OPTIONS\r\n" + extraHeaders + "Content-Length: 0\r\n\r\n";
}

/// The responder program on a free port of 127.0.0.1, started and stopped by the tests.
class Responder
{
public:
    explicit Responder(const TempDir& dir) : m_dir(dir) {}

    /// Starts the responder with \p extra arguments on a free port (\p port 0) or on \p port, and
    /// waits until it answers an OPTIONS, for at most \p limit.
    /// \return an empty text when it answers; else what went wrong.
    std::string start(const std::vector<std::string>& extra = {}, unsigned int port = 0,
                      milliseconds limit = milliseconds(20000))
    {
        // A port that looked free can be taken by another program before the responder binds
        // it: try another.
        for (int attempt = 0; attempt < 5; ++attempt)
        {
            m_claim.reset(port != 0 ? nullptr : new PortClaim());
            m_port = port != 0 ? port : m_claim->port();
            std::vector<std::string> argv{ZN_SIP_RESPONDER, "--port", std::to_string(m_port)};
            argv.insert(argv.end(), extra.begin(), extra.end());
            m_process.reset(new ChildProcess());
            if (!m_process->start(argv, m_dir.path(), m_dir.file("responder.out"),
                                  m_dir.file("responder.err")))
            {
                return "fork failed";
            }
            const std::string problem = waitUntilAnswering(limit);
            if (problem.empty())
            {
                return problem;
            }
            if (!m_process->hasExited() || m_process->exitCode() != 1 || port != 0)
            {
                return problem;
            }
        }
        return "could not find a port to listen on";
    }

    /// Sends OPTIONS until one is answered, at most for \p limit.
    std::string waitUntilAnswering(milliseconds limit)
    {
        UdpClient client;
        const auto deadline = Clock::now() + limit;
        for (int n = 0; Clock::now() < deadline; ++n)
        {
            if (m_process->hasExited())
            {
                return "the responder ended at start (" + m_process->howItEnded() +
                       "): " + m_process->errors();
            }
            const std::string callId = "ready-" + std::to_string(n);
            client.send(optionsRequest(client.port(), m_port, callId), m_port);
            std::string response;
            if (client.receiveFor(callId, response, milliseconds(200)))
            {
                return "";
            }
        }
        return "the responder did not answer within the time limit";
    }

    /// Sends \p signal and waits at most \p limit for the end.
    /// \return the exit code, or -1 when it did not end normally in time.
    int stop(int signal = SIGTERM, milliseconds limit = milliseconds(20000))
    {
        m_process->signal(signal);
        if (!m_process->waitFor(limit))
        {
            return -1;
        }
        return m_process->exitCode();
    }

    unsigned int port() const { return m_port; }
    ChildProcess& process() { return *m_process; }

private:
    const TempDir& m_dir;
    std::unique_ptr<PortClaim> m_claim; // released after the child has ended
    std::unique_ptr<ChildProcess> m_process;
    unsigned int m_port = 0;
};

/// The last number that follows \p label in \p text; -1 when there is none.
inline long long lastNumberAfter(const std::string& text, const std::string& label)
{
    long long value = -1;
    for (size_t pos = text.find(label); pos != std::string::npos;
         pos = text.find(label, pos + label.size()))
    {
        size_t digits = pos + label.size();
        while (digits < text.size() && !(text[digits] >= '0' && text[digits] <= '9') &&
               text[digits] != '\n')
        {
            ++digits;
        }
        if (digits < text.size() && text[digits] >= '0' && text[digits] <= '9')
        {
            value = std::stoll(text.substr(digits, 18));
        }
    }
    return value;
}

} // namespace ZnInterop

#endif // ZNUTIL_TESTS_INTEROP_RESPONDERPROCESS_H
