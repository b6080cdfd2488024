#include "SipStatistics.h"

#include <cmath>
#include <cstdio>

namespace ZnExample
{

void SipStatistics::countReply(const SipReply& reply, bool sent)
{
    if (sent && reply.hasResponse())
    {
        m_answered.fetch_add(1, std::memory_order_relaxed);
    }
    if (reply.isMalformed())
    {
        m_malformed.fetch_add(1, std::memory_order_relaxed);
    }
}

SipStatistics::Snapshot SipStatistics::snapshot() const
{
    Snapshot now;
    now.received = m_received.load(std::memory_order_relaxed);
    now.answered = m_answered.load(std::memory_order_relaxed);
    now.malformed = m_malformed.load(std::memory_order_relaxed);
    return now;
}

std::string SipStatistics::sFormatLine(const Snapshot& now, const Snapshot& before, double seconds)
{
    const uint64_t delta = now.received >= before.received ? now.received - before.received : 0;
    const unsigned long long rate =
        seconds > 0.0 ? static_cast<unsigned long long>(std::llround(delta / seconds)) : 0ULL;
    char line[160];
    std::snprintf(line, sizeof line, "received=%llu answered=%llu malformed=%llu rate=%llu/s",
                  static_cast<unsigned long long>(now.received),
                  static_cast<unsigned long long>(now.answered),
                  static_cast<unsigned long long>(now.malformed), rate);
    return line;
}

} // namespace ZnExample
