// A bare stateless SIP responder over UDP: one thread, one socket, plain recvfrom and sendto.
//
// It builds the same replies to OPTIONS as zn-sip-responder with no library under it, and so
// gives the practical limit of the machine in the UDP benchmark (scripts/bench-udp.sh): a final
// 200 OK carrying every Via (the top one with rport filled in and received added, as RFC 3581
// and RFC 3261 ask), From, To with a tag added when the request had none (the same tag for the
// same Call-ID), Call-ID, CSeq, Allow for OPTIONS and Content-Length: 0; nothing for ACK. The
// reply goes to the source port when the top Via has rport, else to the Via's port. Requests
// without the headers a reply needs are counted and dropped; the finer checks of
// zn-sip-responder (CSeq method, addresses, Content-Length) and the Contact and Record-Route it
// gives INVITE and REGISTER are left out.
//   zn-bare-responder [--address A] [--port P]
// SIGINT and SIGTERM end it with exit status 0 and a line of counters on stderr.

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

volatile std::sig_atomic_t fs_stop = 0;
int fs_socket = -1;

void onSignal(int)
{
    fs_stop = 1;
    // shutdown() wakes a thread blocked in recvfrom() even on an unconnected UDP socket, so a
    // signal that lands just before the call still ends the loop.
    if (fs_socket >= 0)
    {
        ::shutdown(fs_socket, SHUT_RDWR);
    }
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
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
    {
        s.remove_suffix(1);
    }
    return s;
}

/// True when a To or From value carries a tag parameter (outside its quoted display name and
/// its <...> address).
bool hasTag(std::string_view value)
{
    std::size_t i = 0;
    bool inAngle = false;
    while (i < value.size())
    {
        const char c = value[i];
        if (c == '"' && !inAngle)
        {
            for (++i; i < value.size() && value[i] != '"'; ++i)
            {
                if (value[i] == '\\')
                {
                    ++i;
                }
            }
            ++i;
            continue;
        }
        if (c == '<')
        {
            inAngle = true;
        }
        else if (c == '>')
        {
            inAngle = false;
        }
        else if (c == ';' && !inAngle)
        {
            std::size_t j = i + 1;
            while (j < value.size() && (value[j] == ' ' || value[j] == '\t'))
            {
                ++j;
            }
            std::size_t k = j;
            while (k < value.size() && value[k] != '=' && value[k] != ';' && value[k] != ' ' &&
                   value[k] != '\t')
            {
                ++k;
            }
            if (equalsNoCase(value.substr(j, k - j), "tag"))
            {
                return true;
            }
        }
        ++i;
    }
    return false;
}

/// The To tag of a Call-ID: FNV-1a (64 bits) over the process's seed and the Call-ID.
std::string_view tagFor(std::uint64_t seed, std::string_view callId, char (&text)[24])
{
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    auto mix = [&hash](unsigned char byte)
    {
        hash ^= byte;
        hash *= 0x100000001b3ULL;
    };
    for (int i = 0; i < 8; ++i)
    {
        mix(static_cast<unsigned char>(seed >> (8 * i)));
    }
    for (const char c : callId)
    {
        mix(static_cast<unsigned char>(c));
    }
    const int n =
        std::snprintf(text, sizeof text, "zn%016llx", static_cast<unsigned long long>(hash));
    return std::string_view(text, static_cast<std::size_t>(n));
}

/// Appends the value of the top Via in the reply: rport gets the source port, received the
/// source address when rport is there or the sent-by host is not the source. Sets port to where
/// the reply goes.
/// \return false when the Via has no sent-by
bool topVia(std::string_view via, std::string_view sourceAddress, unsigned sourcePort,
            std::string& out, unsigned& port)
{
    const std::size_t semicolon = via.find(';');
    const std::string_view head = trim(via.substr(0, semicolon));
    const std::string_view params =
        semicolon == std::string_view::npos ? std::string_view() : via.substr(semicolon + 1);
    // head: SIP/2.0/UDP host[:port]
    std::size_t space = head.find_first_of(" \t");
    const std::string_view sentBy =
        space == std::string_view::npos ? std::string_view() : trim(head.substr(space));
    if (sentBy.empty())
    {
        return false;
    }
    std::string_view host = sentBy;
    unsigned viaPort = 0;
    const std::size_t close = sentBy.rfind(']');
    const std::size_t colon = sentBy.rfind(':');
    if (colon != std::string_view::npos && (close == std::string_view::npos || colon > close))
    {
        host = trim(sentBy.substr(0, colon));
        viaPort = static_cast<unsigned>(std::atoi(std::string(sentBy.substr(colon + 1)).c_str()));
    }

    bool rport = false;
    for (std::size_t i = 0; i <= params.size();)
    {
        std::size_t end = params.find(';', i);
        if (end == std::string_view::npos)
        {
            end = params.size();
        }
        const std::string_view param = trim(params.substr(i, end - i));
        if (equalsNoCase(trim(param.substr(0, param.find('='))), "rport"))
        {
            rport = true;
        }
        i = end + 1;
    }
    port = rport ? sourcePort : (viaPort != 0 ? viaPort : 5060);
    if (!rport && host == sourceAddress)
    {
        out.append(via);
        return true;
    }
    out.append(head.substr(0, space)).append(" ").append(sentBy);
    bool received = false;
    for (std::size_t i = 0; i < params.size();)
    {
        std::size_t end = params.find(';', i);
        if (end == std::string_view::npos)
        {
            end = params.size();
        }
        const std::string_view param = trim(params.substr(i, end - i));
        const std::string_view name = trim(param.substr(0, param.find('=')));
        i = end + 1;
        if (param.empty())
        {
            continue;
        }
        out.append(";");
        if (equalsNoCase(name, "rport"))
        {
            out.append("rport=").append(std::to_string(sourcePort));
        }
        else if (equalsNoCase(name, "received"))
        {
            out.append("received=").append(sourceAddress);
            received = true;
        }
        else
        {
            out.append(param);
        }
    }
    if (!received)
    {
        out.append(";received=").append(sourceAddress);
    }
    return true;
}

enum class Outcome
{
    Answer,
    Ignore, // ACK, or a response
    Malformed
};

/// Builds the reply to one request. Header values are copied as they stand; a folded value
/// (continuation lines starting with a space or a tab) is unfolded to one line; a Via line with
/// several values gives a Via line each.
class ReplyBuilder
{
public:
    explicit ReplyBuilder(std::uint64_t tagSeed) : m_tagSeed(tagSeed)
    {
        m_out.reserve(4096);
        m_vias.reserve(2048);
        for (std::string* s : {&m_topVia, &m_scratch, &m_from, &m_to, &m_callId, &m_cseq})
        {
            s->reserve(1024);
        }
    }

    Outcome build(std::string_view datagram, std::string_view sourceAddress, unsigned sourcePort)
    {
        // The header block ends at the first empty line; a datagram without one is all head.
        std::size_t headEnd = datagram.find("\r\n\r\n");
        if (headEnd == std::string_view::npos)
        {
            headEnd = datagram.find("\n\n");
        }
        const std::string_view head =
            headEnd == std::string_view::npos ? datagram : datagram.substr(0, headEnd);

        std::size_t pos = 0;
        const std::string_view requestLine = nextLine(head, pos);
        const std::size_t sp1 = requestLine.find(' ');
        const std::size_t sp2 = requestLine.rfind(' ');
        if (sp1 == std::string_view::npos || sp2 == sp1 || sp1 == 0)
        {
            return Outcome::Malformed;
        }
        if (requestLine.substr(0, 4) == "SIP/")
        {
            return Outcome::Ignore;
        }
        if (requestLine.substr(sp2 + 1) != "SIP/2.0" || sp2 == sp1 + 1)
        {
            return Outcome::Malformed;
        }
        const std::string_view method = requestLine.substr(0, sp1);
        if (method == "ACK")
        {
            return Outcome::Ignore;
        }

        m_vias.clear();
        m_topVia.clear();
        bool haveFrom = false, haveTo = false, haveCallId = false, haveCSeq = false;
        while (pos < head.size())
        {
            std::string_view line = nextLine(head, pos);
            if (pos < head.size() && (head[pos] == ' ' || head[pos] == '\t'))
            {
                // Folded continuation lines belong to the header above.
                m_scratch.assign(line.data(), line.size());
                while (pos < head.size() && (head[pos] == ' ' || head[pos] == '\t'))
                {
                    m_scratch += ' ';
                    m_scratch += trim(nextLine(head, pos));
                }
                line = m_scratch;
            }
            if (line.empty())
            {
                break;
            }
            const std::size_t colon = line.find(':');
            if (colon == std::string_view::npos)
            {
                return Outcome::Malformed;
            }
            const std::string_view name = trim(line.substr(0, colon));
            const std::string_view value = trim(line.substr(colon + 1));
            if (equalsNoCase(name, "Via") || equalsNoCase(name, "v"))
            {
                for (std::size_t i = 0; i < value.size();)
                {
                    std::size_t comma = value.find(',', i);
                    if (comma == std::string_view::npos)
                    {
                        comma = value.size();
                    }
                    const std::string_view one = trim(value.substr(i, comma - i));
                    i = comma + 1;
                    if (m_topVia.empty())
                    {
                        m_topVia.assign(one);
                    }
                    else
                    {
                        m_vias.append("Via: ").append(one).append("\r\n");
                    }
                }
            }
            else if (equalsNoCase(name, "From") || equalsNoCase(name, "f"))
            {
                m_from.assign(value);
                haveFrom = true;
            }
            else if (equalsNoCase(name, "To") || equalsNoCase(name, "t"))
            {
                m_to.assign(value);
                haveTo = true;
            }
            else if (equalsNoCase(name, "Call-ID") || equalsNoCase(name, "i"))
            {
                m_callId.assign(value);
                haveCallId = true;
            }
            else if (equalsNoCase(name, "CSeq"))
            {
                m_cseq.assign(value);
                haveCSeq = true;
            }
        }
        if (m_topVia.empty() || !haveFrom || !haveTo || !haveCallId || !haveCSeq ||
            m_callId.empty())
        {
            return Outcome::Malformed;
        }

        m_out.assign("SIP/2.0 200 OK\r\nVia: ");
        if (!topVia(m_topVia, sourceAddress, sourcePort, m_out, m_port))
        {
            return Outcome::Malformed;
        }
        m_out.append("\r\n");
        m_out.append(m_vias);
        m_out.append("From: ").append(m_from).append("\r\n");
        if (hasTag(m_to))
        {
            m_out.append("To: ").append(m_to);
        }
        else
        {
            // A retransmission of the request gets the same tag.
            std::string_view to = m_to;
            while (!to.empty() && (to.back() == ';' || to.back() == ' ' || to.back() == '\t'))
            {
                to.remove_suffix(1);
            }
            char tag[24];
            m_out.append("To: ").append(to).append(";tag=").append(
                tagFor(m_tagSeed, m_callId, tag));
        }
        m_out.append("\r\n");
        m_out.append("Call-ID: ").append(m_callId).append("\r\n");
        m_out.append("CSeq: ").append(m_cseq).append("\r\n");
        if (method == "OPTIONS")
        {
            m_out.append("Allow: INVITE, ACK, CANCEL, BYE, OPTIONS, REGISTER\r\n");
        }
        m_out.append("Content-Length: 0\r\n\r\n");
        return Outcome::Answer;
    }

    const std::string& reply() const { return m_out; }

    /// Where the reply goes: the source port, or the top Via's.
    unsigned port() const { return m_port; }

private:
    static std::string_view nextLine(std::string_view text, std::size_t& pos)
    {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos)
        {
            end = text.size();
        }
        std::string_view line = text.substr(pos, end - pos);
        if (!line.empty() && line.back() == '\r')
        {
            line.remove_suffix(1);
        }
        pos = end < text.size() ? end + 1 : end;
        return line;
    }

    std::uint64_t m_tagSeed;
    unsigned m_port = 0;
    std::string m_out;
    std::string m_topVia;
    std::string m_vias;
    std::string m_scratch;
    std::string m_from;
    std::string m_to;
    std::string m_callId;
    std::string m_cseq;
};

void usage(const char* program)
{
    std::fprintf(stderr, "usage: %s [--address A] [--port P]\n", program);
}

} // namespace

int main(int argc, char** argv)
{
    const char* address = "127.0.0.1";
    int port = 5060;
    for (int i = 1; i < argc; ++i)
    {
        const std::string_view arg = argv[i];
        if (arg == "--address" && i + 1 < argc)
        {
            address = argv[++i];
        }
        else if (arg == "--port" && i + 1 < argc)
        {
            port = std::atoi(argv[++i]);
        }
        else if (arg == "--help")
        {
            usage(argv[0]);
            return 0;
        }
        else
        {
            usage(argv[0]);
            return 2;
        }
    }

    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<std::uint16_t>(port));
    if (port <= 0 || port > 65535 || ::inet_pton(AF_INET, address, &local.sin_addr) != 1)
    {
        std::fprintf(stderr, "zn-bare-responder: bad address %s:%d\n", address, port);
        return 2;
    }
    fs_socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (fs_socket < 0 || ::bind(fs_socket, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0)
    {
        std::fprintf(stderr, "zn-bare-responder: cannot listen on %s:%d: %s\n", address, port,
                     std::strerror(errno));
        return 1;
    }

    struct sigaction action
    {
    };
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: recvfrom() returns EINTR
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);

    std::random_device random;
    ReplyBuilder builder((static_cast<std::uint64_t>(random()) << 32) ^ random());
    static char buffer[65536];
    in_addr lastPeer{};
    char peerText[INET_ADDRSTRLEN] = "0.0.0.0";
    unsigned long long received = 0, answered = 0, malformed = 0, ignored = 0, sendErrors = 0;
    int status = 0;
    while (!fs_stop)
    {
        sockaddr_in peer{};
        socklen_t peerLength = sizeof peer;
        const ssize_t n = ::recvfrom(fs_socket, buffer, sizeof buffer, 0,
                                     reinterpret_cast<sockaddr*>(&peer), &peerLength);
        if (n <= 0)
        {
            if (n < 0 && errno != EINTR && errno != EAGAIN)
            {
                std::fprintf(stderr, "zn-bare-responder: recvfrom: %s\n", std::strerror(errno));
                status = 1;
                break;
            }
            continue;
        }
        ++received;
        if (peer.sin_addr.s_addr != lastPeer.s_addr)
        {
            lastPeer = peer.sin_addr;
            ::inet_ntop(AF_INET, &lastPeer, peerText, sizeof peerText);
        }
        switch (builder.build(std::string_view(buffer, static_cast<std::size_t>(n)), peerText,
                              ntohs(peer.sin_port)))
        {
        case Outcome::Answer:
        {
            const std::string& reply = builder.reply();
            peer.sin_port = htons(static_cast<std::uint16_t>(builder.port()));
            if (::sendto(fs_socket, reply.data(), reply.size(), 0,
                         reinterpret_cast<sockaddr*>(&peer), peerLength) < 0)
            {
                ++sendErrors;
            }
            else
            {
                ++answered;
            }
            break;
        }
        case Outcome::Ignore:
            ++ignored;
            break;
        case Outcome::Malformed:
            ++malformed;
            break;
        }
    }
    ::close(fs_socket);
    std::fprintf(stderr,
                 "zn-bare-responder: received %llu answered %llu malformed %llu ignored %llu "
                 "send errors %llu\n",
                 received, answered, malformed, ignored, sendErrors);
    return status;
}
