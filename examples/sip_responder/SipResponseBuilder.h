// The SIP logic of the example responder: reads one request datagram and builds its final answer.
#ifndef ZNUTIL_EXAMPLES_SIPRESPONSEBUILDER_H
#define ZNUTIL_EXAMPLES_SIPRESPONSEBUILDER_H

#include <cstdint>
#include <string>

class ZnByteArray;

namespace ZnExample
{

/// What became of one datagram, and the response to send for it, if any.
struct SipReply
{
    enum Verdict
    {
        ANSWERED, ///< a well-formed request, answered with the configured final response
        REJECTED, ///< a malformed request that could still be answered: 400 (or 505)
        IGNORED,  ///< nothing to answer: an ACK, a response, or a keep-alive of blank lines
        DROPPED   ///< a malformed datagram that no response can be built for
    };

    Verdict verdict = DROPPED;
    /// The status code of the response; 0 when there is none.
    unsigned int statusCode = 0;
    /// The whole response message, head and (empty) body; empty when there is none.
    std::string response;
    /// Where the response goes: always the datagram's source address, at this port.
    unsigned int destinationPort = 0;
    /// The method of the request line, when one was read.
    std::string method;
    /// Why the datagram is malformed; empty for a well-formed one.
    std::string problem;

    /// True for the verdicts that count a datagram as malformed: REJECTED and DROPPED.
    bool isMalformed() const { return verdict == REJECTED || verdict == DROPPED; }
    /// True when a response is to be sent.
    bool hasResponse() const { return !response.empty(); }
};

/// A stateless user agent server's answer to each request, as RFC 3261 asks of it (8.2.6): the
/// response copies the Via header values in order, From, Call-ID and CSeq, and To with a tag added
/// when the request's To has none; Content-Length is 0. INVITE's 2xx carries a Contact of the
/// responder and the request's Record-Route values; REGISTER's 2xx echoes the request's Contact
/// values; OPTIONS's 2xx tells the methods in Allow. ACK gets no answer, and neither does a
/// response or a datagram of blank lines.
///
/// Parsing: the request line and the header lines are read with ZnStreamTokenizer off a stream
/// bounded by the datagram, so nothing past the datagram is ever read. Header names are compared
/// without regard to case, and the compact forms v, f, t, i, l and m are accepted; folded lines
/// are joined. The parameters of Via, From and To are read with ZnParameters, strictly. A
/// datagram without a request line, or without a valid Via, From, To, Call-ID or CSeq, is dropped;
/// one with those but something else wrong (a CSeq method other than the request's, a bad or too
/// large Content-Length, a header line without colon or with control characters, a header that
/// may appear once appearing twice, a head without the empty line that ends it) is answered
/// 400 Bad Request with a Warning that says why, and one of another SIP version 505.
///
/// Routing of the response (RFC 3261 18.2.2, RFC 3581): it goes to the datagram's source address;
/// to the source port when the top Via has rport, else to the top Via's sent-by port (5060 when it
/// has none). The top Via of the response gets received=<source address> when its sent-by host is
/// another text than that address or when rport is present, and rport gets the source port.
///
/// The To tag is stable per Call-ID: a hash of the Call-ID and the builder's seed, so that a
/// stateless responder gives every request of a dialog the same tag.
///
/// Thread safety: build() is const and touches no shared state; any number of threads may call it
/// on one builder at the same time.
class SipResponseBuilder
{
public:
    struct Options
    {
        /// The final response to every request but ACK: 200 to 699.
        unsigned int responseCode = 200;
        /// The host and port of the Contact that INVITE's 2xx carries.
        std::string contactHost = "127.0.0.1";
        unsigned int contactPort = 5060;
        /// Mixed into the To tags; a responder picks one at random when it starts.
        uint64_t tagSeed = 0;
    };

    /// \throws std::invalid_argument when the response code is not a final one (200 to 699).
    explicit SipResponseBuilder(const Options& options);

    /// Reads the request in \p length bytes of \p datagram from \p offset (both cut to what the
    /// array holds) and builds the reply. Never throws for what the datagram holds.
    /// \param datagram held by a ZnHandle of the caller: the streams that read it take counted
    ///        references of their own for a while.
    /// \param sourceAddress the dotted address the datagram came from.
    /// \param sourcePort the port it came from.
    /// \return the verdict and, unless IGNORED or DROPPED, the response and its port.
    SipReply build(const ZnByteArray& datagram, unsigned int offset, unsigned int length,
                   const char* sourceAddress, unsigned int sourcePort) const;

    /// \return the status code of the responses to well-formed requests.
    unsigned int getResponseCode() const { return m_options.responseCode; }

    /// The reason phrase of \p code: RFC 3261's for the codes it names, else one for the class
    /// ("Successful", "Redirection", "Client Error", "Server Error", "Global Failure").
    static const char* sReasonPhrase(unsigned int code);

    /// True for a final response code, 200 to 699.
    static bool sIsFinalCode(unsigned int code) { return code >= 200 && code <= 699; }

    /// The To tag given to requests of \p callId.
    std::string tagFor(const std::string& callId) const;

private:
    Options m_options;
};

} // namespace ZnExample

#endif // ZNUTIL_EXAMPLES_SIPRESPONSEBUILDER_H
