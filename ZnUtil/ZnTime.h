// A time stamp in microseconds since 1601, the time base of timers and socket activity.
#ifndef ZNUTIL_ZNTIME_H
#define ZNUTIL_ZNTIME_H

#include <type_traits>

/// A signed 64-bit count of microseconds since 1 January 1601 (UTC), with the few operations
/// that timers and idle checks need. The default value is 0.
/// Arithmetic wraps around in 64 bits instead of overflowing.
/// Ownership: a plain value; it is not a ZnObject.
/// Thread safety: none of its own; sGetCurrentTime may be called from any thread.
class ZnTime
{
public:
    /// The time 0, the first microsecond of 1601.
    ZnTime() : m_time(0) {}
    /// The time \p microseconds after the start of 1601.
    ZnTime(long long microseconds) : m_time(microseconds) {}
    ZnTime(const ZnTime&) = default;
    ZnTime& operator=(const ZnTime&) = default;

    /// The system's wall clock, in microseconds since 1601.
    static ZnTime sGetCurrentTime();

    /// The count of microseconds.
    long long getAsLong() const { return m_time; }

    /// Signed comparisons of the counts.
    bool operator<(const ZnTime& other) const { return m_time < other.m_time; }
    bool operator<=(const ZnTime& other) const { return m_time <= other.m_time; }
    bool operator==(const ZnTime& other) const { return m_time == other.m_time; }
    bool operator!=(const ZnTime& other) const { return m_time != other.m_time; }

    /// Moves the time by \p microseconds, which may be negative.
    ZnTime& operator+=(long long microseconds)
    {
        m_time = wrap(static_cast<unsigned long long>(m_time) +
                      static_cast<unsigned long long>(microseconds));
        return *this;
    }
    /// Moves the time back by \p microseconds, which may be negative.
    ZnTime& operator-=(long long microseconds)
    {
        m_time = wrap(static_cast<unsigned long long>(m_time) -
                      static_cast<unsigned long long>(microseconds));
        return *this;
    }
    /// Moves the time forward by \p microseconds, widened without sign: 0xFFFFFFFF is 4294967295.
    ZnTime& operator+=(unsigned int microseconds)
    {
        return *this += static_cast<long long>(microseconds);
    }
    /// Moves the time back by \p microseconds, widened without sign.
    ZnTime& operator-=(unsigned int microseconds)
    {
        return *this -= static_cast<long long>(microseconds);
    }
    /// Any other integer type (int, long, ...) converts to long long as the language does, so
    /// that a plain int or int64_t is not ambiguous between the two forms above.
    template <class Integer, class = std::enable_if_t<std::is_integral<Integer>::value>>
    ZnTime& operator+=(Integer microseconds)
    {
        return *this += static_cast<long long>(microseconds);
    }
    /// Any other integer type converts to long long as the language does.
    template <class Integer, class = std::enable_if_t<std::is_integral<Integer>::value>>
    ZnTime& operator-=(Integer microseconds)
    {
        return *this -= static_cast<long long>(microseconds);
    }

    /// \return this time minus \p other, in microseconds.
    long long operator-(const ZnTime& other) const
    {
        return wrap(static_cast<unsigned long long>(m_time) -
                    static_cast<unsigned long long>(other.m_time));
    }

private:
    /// Two's complement reading of a 64-bit pattern.
    static long long wrap(unsigned long long value)
    {
        return value <= 0x7FFFFFFFFFFFFFFFULL ? static_cast<long long>(value)
                                              : -static_cast<long long>(~value) - 1;
    }

    long long m_time;
};

#endif // ZNUTIL_ZNTIME_H
