#include "SipResponseBuilder.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnParameters.h"
#include "ZnUtil/ZnStreamTokenizer.h"
#include "ZnUtil/ZnString.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace ZnExample
{

namespace
{

const char* const kAllow = "INVITE, ACK, CANCEL, BYE, OPTIONS, REGISTER";
const char* const kAgent = "zn-sip-responder";

bool isWhite(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string trimmed(const std::string& text)
{
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isWhite(text[begin]))
    {
        ++begin;
    }
    while (end > begin && isWhite(text[end - 1]))
    {
        --end;
    }
    return text.substr(begin, end - begin);
}

bool equalsNoCase(const std::string& a, const char* b)
{
    const size_t n = std::strlen(b);
    if (a.size() != n)
    {
        return false;
    }
    for (size_t i = 0; i < n; ++i)
    {
        char x = a[i];
        char y = b[i];
        if (x >= 'A' && x <= 'Z')
        {
            x = static_cast<char>(x - 'A' + 'a');
        }
        if (y >= 'A' && y <= 'Z')
        {
            y = static_cast<char>(y - 'A' + 'a');
        }
        if (x != y)
        {
            return false;
        }
    }
    return true;
}

/// The characters of a SIP token (method, header name).
bool isTokenChar(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::strchr("-.!%*_+`'~", c) != nullptr;
}

bool isToken(const std::string& text)
{
    if (text.empty())
    {
        return false;
    }
    for (char c : text)
    {
        if (c == '\0' || !isTokenChar(c))
        {
            return false;
        }
    }
    return true;
}

bool isDigits(const std::string& text, size_t maxDigits)
{
    if (text.empty() || text.size() > maxDigits)
    {
        return false;
    }
    for (char c : text)
    {
        if (c < '0' || c > '9')
        {
            return false;
        }
    }
    return true;
}

/// True when \p text holds a control character other than tab (NUL included), or DEL.
bool hasControl(const std::string& text)
{
    for (char c : text)
    {
        const unsigned char u = static_cast<unsigned char>(c);
        if ((u < 32 && u != '\t') || u == 127)
        {
            return true;
        }
    }
    return false;
}

/// The characters of a string read by the tokenizer, embedded NULs kept.
std::string toStd(const ZnString& text)
{
    const char* data = text.c_str();
    return data != nullptr ? std::string(data, text.length()) : std::string();
}

/// A byte-array stream over \p text, for the tokenizer.
class TextStream
{
public:
    explicit TextStream(const std::string& text)
        : m_bytes(ZnByteArray::sCreate(static_cast<unsigned int>(text.size()), text.data())),
          m_in(m_bytes)
    {
    }

    ZnInputStream& in() { return m_in; }

    /// The bytes not read yet.
    std::string rest()
    {
        std::string left;
        for (int c = m_in.read(); c >= 0; c = m_in.read())
        {
            left.push_back(static_cast<char>(c));
        }
        return left;
    }

private:
    ZnHandle<ZnByteArray> m_bytes;
    ZnByteArrayInputStream m_in;
};

/// The header names the responder looks at, long and compact forms.
const char* canonicalName(const std::string& name)
{
    static const struct
    {
        const char* full;
        const char* compact;
    } names[] = {
        {"Via", "v"},      {"From", "f"},           {"To", "t"},      {"Call-ID", "i"},
        {"CSeq", nullptr}, {"Content-Length", "l"}, {"Contact", "m"}, {"Record-Route", nullptr}};
    for (const auto& n : names)
    {
        if (equalsNoCase(name, n.full) || (n.compact != nullptr && equalsNoCase(name, n.compact)))
        {
            return n.full;
        }
    }
    return nullptr;
}

/// Splits a header value at the commas that are not inside double quotes or angle brackets.
std::vector<std::string> splitValues(const std::string& value)
{
    std::vector<std::string> parts;
    std::string current;
    bool quoted = false;
    int angle = 0;
    for (size_t i = 0; i < value.size(); ++i)
    {
        const char c = value[i];
        if (quoted)
        {
            current.push_back(c);
            if (c == '\\' && i + 1 < value.size())
            {
                current.push_back(value[++i]);
            }
            else if (c == '"')
            {
                quoted = false;
            }
            continue;
        }
        if (c == '"')
        {
            quoted = true;
        }
        else if (c == '<')
        {
            ++angle;
        }
        else if (c == '>' && angle > 0)
        {
            --angle;
        }
        else if (c == ',' && angle == 0)
        {
            parts.push_back(trimmed(current));
            current.clear();
            continue;
        }
        current.push_back(c);
    }
    parts.push_back(trimmed(current));
    return parts;
}

/// Parses \p text with the strict SIP parameter parser.
/// \return false, with \p problem set, when the parser refuses it.
bool parseParameters(const std::string& text, ZnParameters& parameters, std::string& problem,
                     const char* what)
{
    try
    {
        parameters.parse(text.c_str());
        return true;
    }
    catch (ZnHandle<ZnException>&)
    {
        problem = std::string("bad parameters in ") + what;
        return false;
    }
}

/// One value of a Via header: "SIP/2.0/UDP host:port;params".
struct Via
{
    std::string text;     // as the request had it
    std::string protocol; // SIP/2.0/UDP
    std::string sentBy;   // host[:port]
    std::string host;
    unsigned int port = 0; // 0 when sent-by has none
    std::string params;    // after the first ';', empty when none
};

bool isHostText(const std::string& host)
{
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    {
        for (size_t i = 1; i + 1 < host.size(); ++i)
        {
            const char c = host[i];
            if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F') ||
                  c == ':' || c == '.'))
            {
                return false;
            }
        }
        return true;
    }
    if (host.empty())
    {
        return false;
    }
    for (char c : host)
    {
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '-' || c == '.'))
        {
            return false;
        }
    }
    return true;
}

bool parseVia(const std::string& text, Via& via, std::string& problem)
{
    via.text = text;
    TextStream stream(text);
    via.protocol = toStd(ZnStreamTokenizer::sGetToken(stream.in(), " \t;"));
    // sent-protocol: SIP / version / transport, without white space inside here.
    const size_t first = via.protocol.find('/');
    const size_t second = first == std::string::npos ? first : via.protocol.find('/', first + 1);
    if (second == std::string::npos || !equalsNoCase(via.protocol.substr(0, first), "SIP") ||
        second == first + 1 || second + 1 >= via.protocol.size() ||
        via.protocol.find('/', second + 1) != std::string::npos ||
        !isToken(via.protocol.substr(second + 1)))
    {
        problem = "bad Via protocol";
        return false;
    }
    via.sentBy = trimmed(toStd(ZnStreamTokenizer::sGetToken(stream.in(), ";")));
    std::string host = via.sentBy;
    std::string port;
    if (!host.empty() && host.front() == '[')
    {
        const size_t close = host.find(']');
        if (close != std::string::npos && close + 1 < host.size())
        {
            if (host[close + 1] != ':')
            {
                problem = "bad Via sent-by";
                return false;
            }
            port = host.substr(close + 2);
            host.erase(close + 1);
        }
    }
    else
    {
        const size_t colon = host.find(':');
        if (colon != std::string::npos)
        {
            port = host.substr(colon + 1);
            host.erase(colon);
        }
    }
    if (!isHostText(host))
    {
        problem = "bad Via sent-by";
        return false;
    }
    via.host = host;
    if (!port.empty() || via.sentBy.find(':') != std::string::npos)
    {
        if (!isDigits(port, 5) || std::stoul(port) == 0 || std::stoul(port) > 65535)
        {
            problem = "bad Via sent-by port";
            return false;
        }
        via.port = static_cast<unsigned int>(std::stoul(port));
    }
    const int next = stream.in().read();
    if (next == ';')
    {
        via.params = stream.rest();
        ZnParameters parameters;
        if (trimmed(via.params).empty() || !parseParameters(via.params, parameters, problem, "Via"))
        {
            problem = "bad Via parameters";
            return false;
        }
    }
    else if (next >= 0)
    {
        problem = "bad Via";
        return false;
    }
    return true;
}

/// Where the header parameters of a From or To value begin: after the closing '>' of a name-addr,
/// or at the first ';' of a bare address.
/// \return false when the address is not closed or something else follows it.
bool findHeaderParameters(const std::string& value, std::string& parameters, bool& hasParameters)
{
    hasParameters = false;
    size_t i = 0;
    bool quoted = false;
    size_t open = std::string::npos;
    for (; i < value.size(); ++i)
    {
        const char c = value[i];
        if (quoted)
        {
            if (c == '\\')
            {
                ++i;
            }
            else if (c == '"')
            {
                quoted = false;
            }
        }
        else if (c == '"')
        {
            quoted = true;
        }
        else if (c == '<')
        {
            open = i;
            break;
        }
    }
    if (quoted)
    {
        return false;
    }
    size_t pos;
    if (open != std::string::npos)
    {
        const size_t close = value.find('>', open);
        if (close == std::string::npos || close == open + 1)
        {
            return false;
        }
        pos = close + 1;
    }
    else
    {
        pos = value.find(';');
        if (pos == 0)
        {
            return false;
        }
        if (pos == std::string::npos)
        {
            pos = value.size();
        }
    }
    while (pos < value.size() && isWhite(value[pos]))
    {
        ++pos;
    }
    if (pos == value.size())
    {
        return true;
    }
    if (value[pos] != ';')
    {
        return false;
    }
    parameters = value.substr(pos + 1);
    hasParameters = true;
    return true;
}

/// Checks a From or To value.
/// \return false, with \p problem set, when it is empty or its parameters are bad; \p hasTag tells
/// whether it carries a tag.
bool checkAddress(const std::string& value, const char* what, bool& hasTag, std::string& problem)
{
    hasTag = false;
    std::string text;
    bool hasParameters = false;
    if (value.empty() || !findHeaderParameters(value, text, hasParameters))
    {
        problem = std::string("bad ") + what;
        return false;
    }
    if (hasParameters)
    {
        ZnParameters parameters;
        if (trimmed(text).empty() || !parseParameters(text, parameters, problem, what))
        {
            problem = std::string("bad parameters in ") + what;
            return false;
        }
        hasTag = parameters.isPresent("tag");
    }
    return true;
}

/// The head of a request, as far as the responder needs it.
struct Request
{
    std::string method;
    std::string version;
    std::vector<Via> vias;
    std::string from;
    std::string to;
    std::string callId;
    std::string cseq;
    std::string cseqMethod;
    bool toHasTag = false;
    std::vector<std::string> recordRoutes;
    std::vector<std::string> contacts;

    // What makes the request unanswerable.
    std::string fatal;
    // What makes it malformed but answerable with 400.
    std::string bad;
};

void noteBad(Request& request, const std::string& problem)
{
    if (request.bad.empty())
    {
        request.bad = problem;
    }
}

void noteFatal(Request& request, const std::string& problem)
{
    if (request.fatal.empty())
    {
        request.fatal = problem;
    }
}

void setOnce(Request& request, std::string& field, const std::string& value, const char* name)
{
    if (!field.empty())
    {
        noteBad(request, std::string("more than one ") + name);
        return;
    }
    field = value;
    if (value.empty())
    {
        noteFatal(request, std::string("empty ") + name);
    }
}

/// Reads the header lines up to the empty line. \return false when no empty line ends the head.
bool readHeaders(ZnInputStream& in, std::vector<std::pair<std::string, std::string>>& headers,
                 Request& request)
{
    for (;;)
    {
        if (ZnStreamTokenizer::sIsEmptyLine(in))
        {
            ZnStreamTokenizer::sDiscardLine(in);
            return true;
        }
        in.mark(1);
        const int c = in.read();
        in.reset();
        if (c < 0)
        {
            return false;
        }
        const std::string line = toStd(ZnStreamTokenizer::sGetLine(in));
        if (hasControl(line))
        {
            noteBad(request, "control character in a header line");
            continue;
        }
        if (c == ' ' || c == '\t')
        {
            // A folded line continues the header before it.
            if (headers.empty())
            {
                noteBad(request, "folded line before the first header");
            }
            else
            {
                headers.back().second += " " + line;
            }
            continue;
        }
        const size_t colon = line.find(':');
        if (colon == std::string::npos)
        {
            noteBad(request, "header line without colon");
            continue;
        }
        const std::string name = trimmed(line.substr(0, colon));
        if (!isToken(name))
        {
            noteBad(request, "bad header name");
            continue;
        }
        headers.emplace_back(name, line.substr(colon + 1));
    }
}

void readRequestHeaders(const std::vector<std::pair<std::string, std::string>>& headers,
                        Request& request, long& contentLength)
{
    bool viaBad = false;
    bool cseqSeen = false;
    bool lengthSeen = false;
    for (const auto& header : headers)
    {
        const char* name = canonicalName(header.first);
        if (name == nullptr)
        {
            continue;
        }
        const std::string value = trimmed(header.second);
        const std::string which(name);
        if (which == "Via")
        {
            for (const std::string& part : splitValues(value))
            {
                Via via;
                std::string problem;
                if (!viaBad && !parseVia(part, via, problem))
                {
                    viaBad = true;
                    noteFatal(request, problem);
                }
                request.vias.push_back(via);
            }
        }
        else if (which == "From")
        {
            setOnce(request, request.from, value, "From");
        }
        else if (which == "To")
        {
            setOnce(request, request.to, value, "To");
        }
        else if (which == "Call-ID")
        {
            setOnce(request, request.callId, value, "Call-ID");
        }
        else if (which == "CSeq")
        {
            if (cseqSeen)
            {
                noteBad(request, "more than one CSeq");
                continue;
            }
            cseqSeen = true;
            request.cseq = value;
            TextStream stream(value);
            const std::string number = toStd(ZnStreamTokenizer::sGetToken(stream.in(), " \t"));
            request.cseqMethod = toStd(ZnStreamTokenizer::sGetToken(stream.in(), " \t"));
            if (!isDigits(number, 10) || std::stoull(number) > 0x7FFFFFFFULL ||
                !isToken(request.cseqMethod) || ZnStreamTokenizer::sDiscardWhite(stream.in()) >= 0)
            {
                noteFatal(request, "bad CSeq");
            }
        }
        else if (which == "Content-Length")
        {
            if (lengthSeen)
            {
                noteBad(request, "more than one Content-Length");
                continue;
            }
            lengthSeen = true;
            if (!isDigits(value, 9))
            {
                noteBad(request, "bad Content-Length");
                continue;
            }
            contentLength = std::stol(value);
        }
        else if (which == "Record-Route")
        {
            request.recordRoutes.push_back(value);
        }
        else if (which == "Contact")
        {
            request.contacts.push_back(value);
        }
    }
    if (request.vias.empty())
    {
        noteFatal(request, "no Via");
    }
    if (request.from.empty())
    {
        noteFatal(request, "no From");
    }
    if (request.to.empty())
    {
        noteFatal(request, "no To");
    }
    if (request.callId.empty())
    {
        noteFatal(request, "no Call-ID");
    }
    if (!cseqSeen)
    {
        noteFatal(request, "no CSeq");
    }
}

/// The request line: method, Request-URI, version, and nothing else.
bool readRequestLine(const std::string& line, Request& request, std::string& uri)
{
    TextStream stream(line);
    request.method = toStd(ZnStreamTokenizer::sGetToken(stream.in(), " \t"));
    uri = toStd(ZnStreamTokenizer::sGetToken(stream.in(), " \t"));
    request.version = toStd(ZnStreamTokenizer::sGetToken(stream.in(), " \t"));
    if (ZnStreamTokenizer::sDiscardWhite(stream.in()) >= 0)
    {
        return false;
    }
    if (!isToken(request.method) || uri.empty() || uri.find(':') == std::string::npos)
    {
        return false;
    }
    // SIP-Version: "SIP/" digits "." digits, the name in any case.
    const std::string& v = request.version;
    const size_t dot = v.find('.');
    return v.size() > 4 && equalsNoCase(v.substr(0, 4), "SIP/") && dot != std::string::npos &&
           isDigits(v.substr(4, dot - 4), 3) && isDigits(v.substr(dot + 1), 3);
}

/// The top Via as the response carries it, with received and rport filled in.
std::string topViaOfResponse(const Via& via, const char* sourceAddress, unsigned int sourcePort,
                             bool& rport)
{
    ZnParameters parameters;
    std::string ignored;
    if (!via.params.empty())
    {
        parseParameters(via.params, parameters, ignored, "Via");
    }
    rport = parameters.isPresent("rport");
    const bool received = rport || via.host != sourceAddress;
    if (!received)
    {
        return via.text;
    }
    if (rport)
    {
        parameters.setValue("rport", std::to_string(sourcePort).c_str());
    }
    parameters.setValue("received", sourceAddress);
    // The list prints its newest item first; a copy of it prints them in the order they came.
    const ZnParameters inOrder(parameters);
    return via.protocol + " " + via.sentBy + ";" + toStd(inOrder.getString());
}

std::string withoutTrailingSemicolons(std::string value)
{
    while (!value.empty() && (value.back() == ';' || isWhite(value.back())))
    {
        value.pop_back();
    }
    return value;
}

} // namespace

SipResponseBuilder::SipResponseBuilder(const Options& options) : m_options(options)
{
    if (!sIsFinalCode(options.responseCode))
    {
        throw std::invalid_argument("the response code must be a final one, 200 to 699");
    }
}

const char* SipResponseBuilder::sReasonPhrase(unsigned int code)
{
    static const struct
    {
        unsigned int code;
        const char* phrase;
    } phrases[] = {{100, "Trying"},
                   {180, "Ringing"},
                   {181, "Call Is Being Forwarded"},
                   {182, "Queued"},
                   {183, "Session Progress"},
                   {200, "OK"},
                   {202, "Accepted"},
                   {300, "Multiple Choices"},
                   {301, "Moved Permanently"},
                   {302, "Moved Temporarily"},
                   {305, "Use Proxy"},
                   {380, "Alternative Service"},
                   {400, "Bad Request"},
                   {401, "Unauthorized"},
                   {402, "Payment Required"},
                   {403, "Forbidden"},
                   {404, "Not Found"},
                   {405, "Method Not Allowed"},
                   {406, "Not Acceptable"},
                   {407, "Proxy Authentication Required"},
                   {408, "Request Timeout"},
                   {410, "Gone"},
                   {413, "Request Entity Too Large"},
                   {414, "Request-URI Too Long"},
                   {415, "Unsupported Media Type"},
                   {416, "Unsupported URI Scheme"},
                   {420, "Bad Extension"},
                   {421, "Extension Required"},
                   {423, "Interval Too Brief"},
                   {480, "Temporarily Unavailable"},
                   {481, "Call/Transaction Does Not Exist"},
                   {482, "Loop Detected"},
                   {483, "Too Many Hops"},
                   {484, "Address Incomplete"},
                   {485, "Ambiguous"},
                   {486, "Busy Here"},
                   {487, "Request Terminated"},
                   {488, "Not Acceptable Here"},
                   {491, "Request Pending"},
                   {493, "Undecipherable"},
                   {500, "Server Internal Error"},
                   {501, "Not Implemented"},
                   {502, "Bad Gateway"},
                   {503, "Service Unavailable"},
                   {504, "Server Time-out"},
                   {505, "Version Not Supported"},
                   {513, "Message Too Large"},
                   {600, "Busy Everywhere"},
                   {603, "Decline"},
                   {604, "Does Not Exist Anywhere"},
                   {606, "Not Acceptable"}};
    for (const auto& p : phrases)
    {
        if (p.code == code)
        {
            return p.phrase;
        }
    }
    switch (code / 100)
    {
    case 1:
        return "Provisional";
    case 2:
        return "Successful";
    case 3:
        return "Redirection";
    case 4:
        return "Client Error";
    case 5:
        return "Server Error";
    default:
        return "Global Failure";
    }
}

std::string SipResponseBuilder::tagFor(const std::string& callId) const
{
    // FNV-1a over the seed and the Call-ID.
    uint64_t hash = 0xcbf29ce484222325ULL;
    auto mix = [&hash](unsigned char byte)
    {
        hash ^= byte;
        hash *= 0x100000001b3ULL;
    };
    for (int i = 0; i < 8; ++i)
    {
        mix(static_cast<unsigned char>(m_options.tagSeed >> (8 * i)));
    }
    for (char c : callId)
    {
        mix(static_cast<unsigned char>(c));
    }
    char text[24];
    std::snprintf(text, sizeof text, "zn%016llx", static_cast<unsigned long long>(hash));
    return text;
}

SipReply SipResponseBuilder::build(const ZnByteArray& datagram, unsigned int offset,
                                   unsigned int length, const char* sourceAddress,
                                   unsigned int sourcePort) const
{
    SipReply reply;
    if (offset >= datagram.length() || length == 0)
    {
        reply.problem = "empty datagram";
        return reply;
    }
    if (length > datagram.length() - offset)
    {
        length = datagram.length() - offset;
    }
    Request request;
    long contentLength = -1;
    bool headEnded = false;
    unsigned int bodyLength = 0;
    try
    {
        ZnByteArrayInputStream in(&datagram, offset, length);
        const std::string first = toStd(ZnStreamTokenizer::sGetLine(in));
        if (first.empty() && in.available() == 0)
        {
            reply.verdict = SipReply::IGNORED; // a keep-alive of blank lines
            return reply;
        }
        if (first.compare(0, 4, "SIP/") == 0)
        {
            reply.verdict = SipReply::IGNORED; // a response: a stateless responder drops it
            return reply;
        }
        std::string uri;
        if (hasControl(first) || !readRequestLine(first, request, uri))
        {
            reply.problem = "no request line";
            return reply;
        }
        reply.method = request.method;
        std::vector<std::pair<std::string, std::string>> headers;
        headEnded = readHeaders(in, headers, request);
        bodyLength = in.available();
        readRequestHeaders(headers, request, contentLength);
    }
    catch (ZnHandle<ZnException>&)
    {
        reply.problem = "unreadable head";
        return reply;
    }
    catch (const std::exception&)
    {
        reply.problem = "unreadable head";
        return reply;
    }

    if (request.fatal.empty())
    {
        std::string problem;
        bool fromTag = false;
        if (!checkAddress(request.from, "From", fromTag, problem) ||
            !checkAddress(request.to, "To", request.toHasTag, problem))
        {
            noteBad(request, problem);
        }
    }
    if (!headEnded)
    {
        noteBad(request, "no empty line after the head");
    }
    if (request.fatal.empty() && request.cseqMethod != request.method)
    {
        noteBad(request, "CSeq method does not match the request line");
    }
    if (contentLength >= 0 && static_cast<unsigned long>(contentLength) > bodyLength)
    {
        noteBad(request, "Content-Length larger than the body");
    }
    if (!request.fatal.empty())
    {
        reply.problem = request.fatal;
        return reply;
    }
    unsigned int code = m_options.responseCode;
    if (!request.bad.empty())
    {
        reply.problem = request.bad;
        code = 400;
    }
    else if (!equalsNoCase(request.version, "SIP/2.0"))
    {
        reply.problem = "SIP version not supported";
        code = 505;
    }
    if (request.method == "ACK")
    {
        // ACK is never answered; a malformed one is dropped.
        reply.verdict = reply.problem.empty() ? SipReply::IGNORED : SipReply::DROPPED;
        return reply;
    }

    bool rport = false;
    std::string response;
    response.reserve(512 + request.to.size() + request.from.size() + request.vias.size() * 128);
    response += "SIP/2.0 ";
    response += std::to_string(code);
    response += ' ';
    response += sReasonPhrase(code);
    response += "\r\n";
    for (size_t i = 0; i < request.vias.size(); ++i)
    {
        response += "Via: ";
        response += i == 0 ? topViaOfResponse(request.vias[0], sourceAddress, sourcePort, rport)
                           : request.vias[i].text;
        response += "\r\n";
    }
    response += "From: ";
    response += request.from;
    response += "\r\nTo: ";
    if (request.toHasTag)
    {
        response += request.to;
    }
    else
    {
        response += withoutTrailingSemicolons(request.to);
        response += ";tag=";
        response += tagFor(request.callId);
    }
    response += "\r\nCall-ID: ";
    response += request.callId;
    response += "\r\nCSeq: ";
    response += request.cseq;
    response += "\r\n";
    const bool success = code >= 200 && code < 300;
    if (success && request.method == "INVITE")
    {
        for (const std::string& route : request.recordRoutes)
        {
            response += "Record-Route: " + route + "\r\n";
        }
        response += "Contact: <sip:" + m_options.contactHost + ":" +
                    std::to_string(m_options.contactPort) + ">\r\n";
    }
    if (success && request.method == "REGISTER")
    {
        for (const std::string& contact : request.contacts)
        {
            if (contact != "*")
            {
                response += "Contact: " + contact + "\r\n";
            }
        }
    }
    if ((success && request.method == "OPTIONS") || code == 405)
    {
        response += "Allow: ";
        response += kAllow;
        response += "\r\n";
    }
    if (!reply.problem.empty())
    {
        response += "Warning: 399 ";
        response += kAgent;
        response += " \"" + reply.problem + "\"\r\n";
    }
    response += "Content-Length: 0\r\n\r\n";

    reply.verdict = reply.problem.empty() ? SipReply::ANSWERED : SipReply::REJECTED;
    reply.statusCode = code;
    reply.response = std::move(response);
    reply.destinationPort =
        rport ? sourcePort : (request.vias[0].port != 0 ? request.vias[0].port : 5060);
    return reply;
}

} // namespace ZnExample
