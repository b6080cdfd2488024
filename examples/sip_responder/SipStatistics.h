// The counters of the example responder and the line of statistics it writes every second.
#ifndef ZNUTIL_EXAMPLES_SIPSTATISTICS_H
#define ZNUTIL_EXAMPLES_SIPSTATISTICS_H

#include <atomic>
#include <cstdint>
#include <string>

#include "SipResponseBuilder.h"

namespace ZnExample
{

/// Counts what the responder did: datagrams received, responses sent, malformed datagrams (those
/// answered 400 or 505 and those dropped).
///
/// Thread safety: the counters are atomic; pool workers count while the timer reads.
class SipStatistics
{
public:
    /// The counters at one moment.
    struct Snapshot
    {
        uint64_t received = 0;
        uint64_t answered = 0;
        uint64_t malformed = 0;
    };

    /// Counts one datagram received.
    void countReceived() { m_received.fetch_add(1, std::memory_order_relaxed); }

    /// Counts the outcome of one datagram: a response sent (when \p reply has one and \p sent is
    /// true), a malformed datagram, or both.
    void countReply(const SipReply& reply, bool sent = true);

    /// \return the counters now.
    Snapshot snapshot() const;

    /// The line of statistics: "received=R answered=A malformed=M rate=N/s", where the rate is
    /// the datagrams received between \p before and \p now per second of \p seconds, rounded to
    /// the nearest whole number (0 when \p seconds is not positive).
    static std::string sFormatLine(const Snapshot& now, const Snapshot& before, double seconds);

private:
    std::atomic<uint64_t> m_received{0};
    std::atomic<uint64_t> m_answered{0};
    std::atomic<uint64_t> m_malformed{0};
};

} // namespace ZnExample

#endif // ZNUTIL_EXAMPLES_SIPSTATISTICS_H
