// A UDP load generator for SIP responders: OPTIONS requests at a steady rate from several
// sockets, answers matched by Call-ID, retransmissions like a SIP client's.
//
// One thread paces the requests (the n-th request leaves at n / rate seconds), wakes at most
// once a tick, sends what is due in batches with sendmmsg() and reads the answers with
// recvmmsg(), each stamped by the kernel on arrival. The tick is the time of --burst requests
// (4; between 10 us and 1 ms, or --tick-us): requests that leave together queue up in the
// responder, which shows in its response time and in its cost per request, so the bursts are
// kept small, close to requests from many independent clients. A request without a final
// answer is sent again after T1 (500 ms), then after 2*T1, 4*T1 ... (at most T2, 4 s apart) up
// to --retransmissions times, and counts as lost when the interval after its last
// retransmission ends with no answer. The response time runs from the first send to the first
// final answer. The run ends when every request is answered or lost, and prints one JSON line:
//   sent, answered, lost, errors (final answers other than 2xx), failed (lost + errors),
//   retransmitted (requests sent more than once), retransmissions (datagrams), duplicates,
//   late (answers after the request counted as lost), stray, no_tag (2xx whose To has no tag),
//   send_errors, send_rate (achieved), max_send_lag_ms, p50_us, p99_us, max_us, sut_cpu_s (utime +
//   stime of --cpu-pids over the run), gen_cpu_s.
//
//   zn-load-generator --port P [--address A] [--rate R] [--duration S] [--sockets K]
//                     [--retransmissions N] [--t1-ms MS] [--burst N | --tick-us US]
//                     [--cpu-pids PID,...]
//   zn-load-generator --port P --wait-ready SECONDS     exits 0 once one OPTIONS is answered

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

namespace
{

constexpr std::int64_t kNsPerSecond = 1000000000;
constexpr std::int64_t kT2Ns = 4 * kNsPerSecond;
constexpr unsigned kBatch = 64;
constexpr std::size_t kRequestMax = 1024;
constexpr std::size_t kAnswerMax = 4096;
constexpr std::int64_t kNotAnswered = -1;

std::int64_t now(clockid_t clock = CLOCK_MONOTONIC)
{
    timespec ts;
    ::clock_gettime(clock, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * kNsPerSecond + ts.tv_nsec;
}

void sleepUntil(std::int64_t monotonicNs)
{
    const timespec until{static_cast<time_t>(monotonicNs / kNsPerSecond),
                         static_cast<long>(monotonicNs % kNsPerSecond)};
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR)
    {
    }
}

double cpuSecondsSelf()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

/// utime + stime of the processes, in seconds; a process that is gone counts 0.
double cpuSecondsOf(const std::vector<int>& pids)
{
    static const long ticks = ::sysconf(_SC_CLK_TCK);
    double total = 0;
    for (const int pid : pids)
    {
        char path[64];
        std::snprintf(path, sizeof path, "/proc/%d/stat", pid);
        FILE* file = std::fopen(path, "r");
        if (file == nullptr)
        {
            continue;
        }
        char line[2048];
        const std::size_t n = std::fread(line, 1, sizeof line - 1, file);
        std::fclose(file);
        line[n] = '\0';
        // The command name may hold spaces and parentheses: the fields follow the last ')'.
        const char* p = std::strrchr(line, ')');
        if (p == nullptr)
        {
            continue;
        }
        unsigned long long utime = 0, stime = 0;
        if (std::sscanf(p + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu", &utime,
                        &stime) == 2)
        {
            total += static_cast<double>(utime + stime) / static_cast<double>(ticks);
        }
    }
    return total;
}

char lower(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsNoCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
    {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i)
    {
        if (lower(a[i]) != lower(b[i]))
        {
            return false;
        }
    }
    return true;
}

std::string_view trim(std::string_view s)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
    {
        s.remove_prefix(1);
    }
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
    {
        s.remove_suffix(1);
    }
    return s;
}

/// What the generator reads from an answer.
struct Answer
{
    int status = 0;
    std::string_view callId;
    bool toHasTag = false;
};

bool parseAnswer(std::string_view text, Answer& answer)
{
    if (text.size() < 12 || text.substr(0, 8) != "SIP/2.0 ")
    {
        return false;
    }
    answer.status = (text[8] - '0') * 100 + (text[9] - '0') * 10 + (text[10] - '0');
    std::size_t pos = text.find('\n');
    while (pos != std::string_view::npos && pos + 1 < text.size())
    {
        const std::size_t begin = pos + 1;
        std::size_t end = text.find('\n', begin);
        const std::string_view line =
            text.substr(begin, (end == std::string_view::npos ? text.size() : end) - begin);
        pos = end;
        const std::string_view body = trim(line);
        if (body.empty())
        {
            break;
        }
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos)
        {
            continue;
        }
        const std::string_view name = trim(line.substr(0, colon));
        const std::string_view value = trim(line.substr(colon + 1));
        if (equalsNoCase(name, "Call-ID") || equalsNoCase(name, "i"))
        {
            answer.callId = value;
        }
        else if (equalsNoCase(name, "To") || equalsNoCase(name, "t"))
        {
            // The tag parameter follows the address: after the closing '>' when there is one.
            const std::size_t close = value.rfind('>');
            std::string_view params =
                close == std::string_view::npos ? value : value.substr(close + 1);
            for (std::size_t i = 0; i + 4 < params.size(); ++i)
            {
                if (params[i] == ';' && equalsNoCase(trim(params.substr(i + 1, 3)), "tag"))
                {
                    answer.toHasTag = true;
                }
            }
        }
    }
    return answer.status >= 100 && answer.status <= 699;
}

struct Options
{
    std::string address = "127.0.0.1";
    int port = 0;
    double rate = 1000;
    double duration = 3;
    int sockets = 8;
    int retransmissions = 2;
    int t1Ms = 500;
    int burst = 4;
    int tickUs = 0; // 0: from burst and rate
    double waitReady = 0;
    std::vector<int> cpuPids;
};

[[noreturn]] void usage(const char* message)
{
    std::fprintf(stderr,
                 "zn-load-generator: %s\n"
                 "usage: zn-load-generator --port P [--address A] [--rate R] [--duration S]\n"
                 "         [--sockets K] [--retransmissions N] [--t1-ms MS]\n"
                 "         [--burst N | --tick-us US]\n"
                 "         [--cpu-pids P,P...]\n"
                 "       zn-load-generator --port P [--address A] --wait-ready SECONDS\n",
                 message);
    std::exit(2);
}

Options parseOptions(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i)
    {
        const std::string_view arg = argv[i];
        if (i + 1 >= argc)
        {
            usage("missing value");
        }
        const char* value = argv[++i];
        if (arg == "--address")
        {
            options.address = value;
        }
        else if (arg == "--port")
        {
            options.port = std::atoi(value);
        }
        else if (arg == "--rate")
        {
            options.rate = std::atof(value);
        }
        else if (arg == "--duration")
        {
            options.duration = std::atof(value);
        }
        else if (arg == "--sockets")
        {
            options.sockets = std::atoi(value);
        }
        else if (arg == "--retransmissions")
        {
            options.retransmissions = std::atoi(value);
        }
        else if (arg == "--t1-ms")
        {
            options.t1Ms = std::atoi(value);
        }
        else if (arg == "--burst")
        {
            options.burst = std::atoi(value);
        }
        else if (arg == "--tick-us")
        {
            options.tickUs = std::atoi(value);
        }
        else if (arg == "--wait-ready")
        {
            options.waitReady = std::atof(value);
        }
        else if (arg == "--cpu-pids")
        {
            for (const char* p = value; *p != '\0';)
            {
                char* end = nullptr;
                const long pid = std::strtol(p, &end, 10);
                if (end == p)
                {
                    usage("bad --cpu-pids");
                }
                options.cpuPids.push_back(static_cast<int>(pid));
                p = *end == ',' ? end + 1 : end;
            }
        }
        else
        {
            usage("unknown option");
        }
    }
    if (options.port <= 0 || options.port > 65535)
    {
        usage("--port is required");
    }
    if (options.rate <= 0 || options.duration <= 0 || options.sockets <= 0 ||
        options.retransmissions < 0 || options.retransmissions > 10 || options.t1Ms <= 0 ||
        options.tickUs < 0 || options.burst <= 0)
    {
        usage("bad value");
    }
    return options;
}

/// One client socket, bound to an ephemeral port on the target's side and connected to it.
struct ClientSocket
{
    int fd = -1;
    std::string localHost;
    int localPort = 0;
};

ClientSocket openSocket(const sockaddr_in& target)
{
    ClientSocket s;
    s.fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (s.fd < 0)
    {
        std::perror("zn-load-generator: socket");
        std::exit(1);
    }
    // Answers must not be lost here: a buffer larger than rmem_max when the process may.
    const int size = 8 << 20;
    if (::setsockopt(s.fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0)
    {
        ::setsockopt(s.fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    }
    if (::setsockopt(s.fd, SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof size) != 0)
    {
        ::setsockopt(s.fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    }
    // The kernel stamps each answer as it arrives: response times do not depend on when this
    // thread gets to read them.
    const int on = 1;
    ::setsockopt(s.fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    if (::connect(s.fd, reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0)
    {
        std::perror("zn-load-generator: connect");
        std::exit(1);
    }
    sockaddr_in local{};
    socklen_t length = sizeof local;
    ::getsockname(s.fd, reinterpret_cast<sockaddr*>(&local), &length);
    char host[INET_ADDRSTRLEN];
    ::inet_ntop(AF_INET, &local.sin_addr, host, sizeof host);
    s.localHost = host;
    s.localPort = ntohs(local.sin_port);
    return s;
}

/// The generator's state: requests by sequence number, retransmission queues by level.
class Generator
{
public:
    explicit Generator(const Options& options) : m_options(options)
    {
        m_target.sin_family = AF_INET;
        m_target.sin_port = htons(static_cast<std::uint16_t>(options.port));
        if (::inet_pton(AF_INET, options.address.c_str(), &m_target.sin_addr) != 1)
        {
            usage("bad --address");
        }
        char run[16];
        std::snprintf(run, sizeof run, "%08x",
                      static_cast<unsigned>(now() ^ (static_cast<std::int64_t>(::getpid()) << 20)));
        m_run = run;
        m_epoll = ::epoll_create1(0);
        for (int i = 0; i < options.sockets; ++i)
        {
            m_sockets.push_back(openSocket(m_target));
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.u32 = static_cast<std::uint32_t>(i);
            ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_sockets.back().fd, &event);
        }
        m_batches.resize(m_sockets.size());
        m_levels.resize(static_cast<std::size_t>(options.retransmissions) + 1);
        // Level k's deadline: T1 * (2^(k+1) - 1) after the first send, intervals at most T2.
        std::int64_t deadline = 0, interval = static_cast<std::int64_t>(options.t1Ms) * 1000000;
        for (auto& level : m_levels)
        {
            deadline += interval;
            level.offset = deadline;
            interval = std::min(interval * 2, kT2Ns);
        }
        m_recvBuffers.resize(kBatch * kAnswerMax);
    }

    ~Generator()
    {
        for (const auto& s : m_sockets)
        {
            ::close(s.fd);
        }
        ::close(m_epoll);
    }

    int waitReady()
    {
        const std::int64_t end = now() + static_cast<std::int64_t>(m_options.waitReady * 1e9);
        for (std::uint64_t seq = 0; now() < end; ++seq)
        {
            m_firstSend.push_back(now());
            m_firstSendReal.push_back(now(CLOCK_REALTIME));
            m_answerNs.push_back(kNotAnswered);
            m_sendCount.push_back(1);
            m_next = seq + 1;
            queueSend(seq);
            flush();
            pollOnce(100 * 1000000);
            if (m_answered > 0 || m_errors > 0)
            {
                return 0;
            }
        }
        return 1;
    }

    int run()
    {
        const std::uint64_t total =
            static_cast<std::uint64_t>(std::llround(m_options.rate * m_options.duration));
        m_firstSend.assign(total, 0);
        m_firstSendReal.assign(total, 0);
        m_answerNs.assign(total, kNotAnswered);
        m_sendCount.assign(total, 0);
        m_responseNs.reserve(total);

        const double cpuSutStart = cpuSecondsOf(m_options.cpuPids);
        const double cpuSelfStart = cpuSecondsSelf();
        const std::int64_t start = now();
        const double nsPerRequest = 1e9 / m_options.rate;
        std::int64_t lastFirstSend = start;
        std::int64_t maxLag = 0;

        const std::int64_t tick =
            m_options.tickUs > 0
                ? static_cast<std::int64_t>(m_options.tickUs) * 1000
                : std::clamp<std::int64_t>(
                      static_cast<std::int64_t>(m_options.burst * nsPerRequest), 10000, 1000000);
        for (;;)
        {
            // Answers first, then what is due: new requests, retransmissions, losses.
            pollOnce(0);
            const std::int64_t t = now();
            const std::int64_t tReal = now(CLOCK_REALTIME);
            // New requests: the n-th is due at start + n / rate.
            while (m_next < total)
            {
                const std::int64_t due =
                    start + static_cast<std::int64_t>(static_cast<double>(m_next) * nsPerRequest);
                if (due > t)
                {
                    break;
                }
                maxLag = std::max(maxLag, t - due);
                m_firstSend[m_next] = t;
                m_firstSendReal[m_next] = tReal;
                m_sendCount[m_next] = 1;
                m_levels[0].queue.push_back(static_cast<std::uint32_t>(m_next));
                queueSend(m_next);
                lastFirstSend = t;
                ++m_next;
                ++m_outstanding;
            }
            // Retransmissions and losses, oldest first in each level.
            for (std::size_t k = 0; k < m_levels.size(); ++k)
            {
                auto& queue = m_levels[k].queue;
                while (!queue.empty())
                {
                    const std::uint32_t seq = queue.front();
                    if (m_answerNs[seq] != kNotAnswered)
                    {
                        queue.pop_front();
                        continue;
                    }
                    if (m_firstSend[seq] + m_levels[k].offset > t)
                    {
                        break;
                    }
                    queue.pop_front();
                    if (k + 1 < m_levels.size())
                    {
                        if (m_sendCount[seq] == 1)
                        {
                            ++m_retransmitted;
                        }
                        ++m_sendCount[seq];
                        ++m_retransmissions;
                        m_levels[k + 1].queue.push_back(seq);
                        queueSend(seq);
                    }
                    else
                    {
                        m_answerNs[seq] = kLost;
                        ++m_lost;
                        --m_outstanding;
                    }
                }
            }
            flush();
            if (m_next == total && m_outstanding == 0)
            {
                break;
            }
            // Sleep until the next request or retransmission is due, at most 5 ms and at least
            // a tick: the answers wait in the sockets' buffers meanwhile.
            std::int64_t wake = t + 5 * 1000000;
            if (m_next < total)
            {
                wake = std::min(wake, start + static_cast<std::int64_t>(
                                                  static_cast<double>(m_next) * nsPerRequest));
            }
            for (const auto& level : m_levels)
            {
                if (!level.queue.empty())
                {
                    wake = std::min(wake, m_firstSend[level.queue.front()] + level.offset);
                }
            }
            sleepUntil(std::max(wake, t + tick));
        }

        const double elapsed = static_cast<double>(now() - start) / 1e9;
        const double sutCpu = cpuSecondsOf(m_options.cpuPids) - cpuSutStart;
        const double selfCpu = cpuSecondsSelf() - cpuSelfStart;
        const double sendSpan = static_cast<double>(lastFirstSend - start) / 1e9;
        const double sendRate =
            total > 1 && sendSpan > 0 ? static_cast<double>(total - 1) / sendSpan : 0;

        auto percentile = [this](double q) -> double
        {
            if (m_responseNs.empty())
            {
                return 0;
            }
            const std::size_t index =
                std::min(m_responseNs.size() - 1,
                         static_cast<std::size_t>(q * static_cast<double>(m_responseNs.size())));
            std::nth_element(m_responseNs.begin(),
                             m_responseNs.begin() + static_cast<std::ptrdiff_t>(index),
                             m_responseNs.end());
            return static_cast<double>(m_responseNs[index]) / 1000.0;
        };
        const double p50 = percentile(0.50);
        const double p99 = percentile(0.99);
        const double pmax =
            m_responseNs.empty()
                ? 0
                : static_cast<double>(*std::max_element(m_responseNs.begin(), m_responseNs.end())) /
                      1000.0;

        std::printf("{\"target\":\"%s:%d\",\"rate\":%.0f,\"duration_s\":%.3f,\"sockets\":%d,"
                    "\"tick_us\":%.1f,"
                    "\"sent\":%" PRIu64 ",\"answered\":%" PRIu64 ",\"lost\":%" PRIu64
                    ",\"errors\":%" PRIu64 ",\"failed\":%" PRIu64 ",\"retransmitted\":%" PRIu64
                    ",\"retransmissions\":%" PRIu64 ",\"duplicates\":%" PRIu64 ",\"late\":%" PRIu64
                    ",\"stray\":%" PRIu64 ",\"no_tag\":%" PRIu64 ",\"send_errors\":%" PRIu64
                    ",\"send_rate\":%.1f,\"max_send_lag_ms\":%.3f,\"p50_us\":%.1f,"
                    "\"p99_us\":%.1f,\"max_us\":%.1f,\"sut_cpu_s\":%.3f,\"gen_cpu_s\":%.3f,"
                    "\"wall_s\":%.3f}\n",
                    m_options.address.c_str(), m_options.port, m_options.rate, m_options.duration,
                    m_options.sockets, static_cast<double>(tick) / 1000.0, total, m_answered,
                    m_lost, m_errors, m_lost + m_errors, m_retransmitted, m_retransmissions,
                    m_duplicates, m_late, m_stray, m_noTag, m_sendErrors, sendRate,
                    static_cast<double>(maxLag) / 1e6, p50, p99, pmax, sutCpu, selfCpu, elapsed);
        return 0;
    }

private:
    static constexpr std::int64_t kLost = -2;

    struct Level
    {
        std::int64_t offset = 0;
        std::deque<std::uint32_t> queue;
    };

    struct Batch
    {
        unsigned count = 0;
        char buffers[kBatch][kRequestMax];
        iovec iov[kBatch];
        mmsghdr messages[kBatch];
    };

    /// The request of a sequence number; a retransmission is the same bytes.
    std::size_t buildRequest(std::uint64_t seq, const ClientSocket& s, char* out) const
    {
        const int n =
            std::snprintf(out, kRequestMax,
                          "OPTIONS sip:bench@%s:%d SIP/2.0\r\n"
                          "Via: SIP/2.0/UDP %s:%d;branch=z9hG4bK%s.%" PRIu64 ";rport\r\n"
                          "Max-Forwards: 70\r\n"
                          "From: <sip:load@%s:%d>;tag=%s%" PRIx64 "\r\n"
                          "To: <sip:bench@%s:%d>\r\n"
                          "Call-ID: %" PRIu64 ".%s@%s\r\n"
                          "CSeq: 1 OPTIONS\r\n"
                          "Contact: <sip:load@%s:%d>\r\n"
                          "Accept: application/sdp\r\n"
                          "User-Agent: zn-load-generator\r\n"
                          "Content-Length: 0\r\n"
                          "\r\n",
                          m_options.address.c_str(), m_options.port, s.localHost.c_str(),
                          s.localPort, m_run.c_str(), seq, s.localHost.c_str(), s.localPort,
                          m_run.c_str(), seq, m_options.address.c_str(), m_options.port, seq,
                          m_run.c_str(), s.localHost.c_str(), s.localHost.c_str(), s.localPort);
        return static_cast<std::size_t>(std::min<int>(n, static_cast<int>(kRequestMax) - 1));
    }

    void queueSend(std::uint64_t seq)
    {
        const std::size_t index = seq % m_sockets.size();
        Batch& batch = m_batches[index];
        if (batch.count == kBatch)
        {
            flushOne(index);
        }
        char* buffer = batch.buffers[batch.count];
        batch.iov[batch.count].iov_base = buffer;
        batch.iov[batch.count].iov_len = buildRequest(seq, m_sockets[index], buffer);
        ++batch.count;
    }

    void flushOne(std::size_t index)
    {
        Batch& batch = m_batches[index];
        unsigned done = 0;
        while (done < batch.count)
        {
            for (unsigned i = done; i < batch.count; ++i)
            {
                batch.messages[i] = mmsghdr{};
                batch.messages[i].msg_hdr.msg_iov = &batch.iov[i];
                batch.messages[i].msg_hdr.msg_iovlen = 1;
            }
            const int n =
                ::sendmmsg(m_sockets[index].fd, batch.messages + done, batch.count - done, 0);
            if (n < 0)
            {
                if (errno == EINTR)
                {
                    continue;
                }
                // ECONNREFUSED reports an ICMP error of an earlier datagram: the target was not
                // listening then. The datagram at hand was not sent; its timers run on.
                m_sendErrors += 1;
                ++done;
                continue;
            }
            done += static_cast<unsigned>(n);
        }
        batch.count = 0;
    }

    void flush()
    {
        for (std::size_t i = 0; i < m_batches.size(); ++i)
        {
            if (m_batches[i].count > 0)
            {
                flushOne(i);
            }
        }
    }

    void pollOnce(std::int64_t waitNs)
    {
        epoll_event events[64];
        timespec timeout{static_cast<time_t>(waitNs / kNsPerSecond),
                         static_cast<long>(waitNs % kNsPerSecond)};
        const int n = ::epoll_pwait2(m_epoll, events, 64, &timeout, nullptr);
        for (int i = 0; i < n; ++i)
        {
            receiveAll(m_sockets[events[i].data.u32].fd);
        }
    }

    void receiveAll(int fd)
    {
        mmsghdr messages[kBatch];
        iovec iov[kBatch];
        alignas(cmsghdr) char control[kBatch][CMSG_SPACE(sizeof(timespec))];
        for (;;)
        {
            for (unsigned i = 0; i < kBatch; ++i)
            {
                iov[i].iov_base = &m_recvBuffers[i * kAnswerMax];
                iov[i].iov_len = kAnswerMax;
                messages[i] = mmsghdr{};
                messages[i].msg_hdr.msg_iov = &iov[i];
                messages[i].msg_hdr.msg_iovlen = 1;
                messages[i].msg_hdr.msg_control = control[i];
                messages[i].msg_hdr.msg_controllen = sizeof control[i];
            }
            const int n = ::recvmmsg(fd, messages, kBatch, MSG_DONTWAIT, nullptr);
            if (n <= 0)
            {
                // EAGAIN: drained; ECONNREFUSED: an ICMP error, nothing to read.
                if (n < 0 && errno == ECONNREFUSED)
                {
                    continue;
                }
                return;
            }
            const std::int64_t read = now(CLOCK_REALTIME);
            for (int i = 0; i < n; ++i)
            {
                std::int64_t arrived = read;
                msghdr& header = messages[i].msg_hdr;
                for (cmsghdr* c = CMSG_FIRSTHDR(&header); c != nullptr; c = CMSG_NXTHDR(&header, c))
                {
                    if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS)
                    {
                        timespec stamp;
                        std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
                        arrived =
                            static_cast<std::int64_t>(stamp.tv_sec) * kNsPerSecond + stamp.tv_nsec;
                    }
                }
                onAnswer(std::string_view(static_cast<const char*>(iov[i].iov_base),
                                          messages[i].msg_len),
                         arrived);
            }
            if (static_cast<unsigned>(n) < kBatch)
            {
                return;
            }
        }
    }

    /// \param t when the answer arrived, on CLOCK_REALTIME (the clock of the kernel's stamps)
    void onAnswer(std::string_view text, std::int64_t t)
    {
        Answer answer;
        if (!parseAnswer(text, answer))
        {
            ++m_stray;
            return;
        }
        if (answer.status < 200)
        {
            return;
        }
        // Call-ID: <seq>.<run>@host
        std::uint64_t seq = 0;
        std::size_t i = 0;
        const std::string_view id = answer.callId;
        while (i < id.size() && id[i] >= '0' && id[i] <= '9')
        {
            seq = seq * 10 + static_cast<std::uint64_t>(id[i] - '0');
            ++i;
        }
        if (i == 0 || i + 1 + m_run.size() > id.size() || id[i] != '.' ||
            id.substr(i + 1, m_run.size()) != m_run || seq >= m_next)
        {
            ++m_stray;
            return;
        }
        std::int64_t& slot = m_answerNs[seq];
        if (slot == kLost)
        {
            ++m_late;
            return;
        }
        if (slot != kNotAnswered)
        {
            ++m_duplicates;
            return;
        }
        slot = std::max<std::int64_t>(0, t - m_firstSendReal[seq]);
        --m_outstanding;
        if (answer.status >= 300)
        {
            ++m_errors;
            return;
        }
        ++m_answered;
        m_responseNs.push_back(slot);
        if (!answer.toHasTag)
        {
            ++m_noTag;
        }
    }

    const Options& m_options;
    sockaddr_in m_target{};
    std::string m_run;
    int m_epoll = -1;
    std::vector<ClientSocket> m_sockets;
    std::vector<Batch> m_batches;
    std::vector<Level> m_levels;
    std::vector<char> m_recvBuffers;

    std::vector<std::int64_t> m_firstSend;     // CLOCK_MONOTONIC, for the timers
    std::vector<std::int64_t> m_firstSendReal; // CLOCK_REALTIME, for the response time
    std::vector<std::int64_t> m_answerNs;      // response time, kNotAnswered or kLost
    std::vector<std::uint8_t> m_sendCount;
    std::vector<std::int64_t> m_responseNs;
    std::uint64_t m_next = 0;
    std::uint64_t m_outstanding = 0;
    std::uint64_t m_answered = 0;
    std::uint64_t m_lost = 0;
    std::uint64_t m_errors = 0;
    std::uint64_t m_retransmitted = 0;
    std::uint64_t m_retransmissions = 0;
    std::uint64_t m_duplicates = 0;
    std::uint64_t m_stray = 0;
    std::uint64_t m_late = 0;
    std::uint64_t m_noTag = 0;
    std::uint64_t m_sendErrors = 0;
};

} // namespace

int main(int argc, char** argv)
{
    const Options options = parseOptions(argc, argv);
    Generator generator(options);
    return options.waitReady > 0 ? generator.waitReady() : generator.run();
}
