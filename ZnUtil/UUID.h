// Time-based unique identifiers in the text form of RFC 4122, version 1.
#ifndef ZNUTIL_UUID_H
#define ZNUTIL_UUID_H

#include <cstdint>

/// Makes identifiers of the form xxxxxxxx-xxxx-1xxx-yxxx-xxxxxxxxxxxx (lower-case hexadecimal,
/// y one of 8, 9, a, b): a 60-bit count of 100-ns ticks since 15 October 1582, a clock sequence
/// from rand(), and a node of six bytes that is not a network address but the first bytes of an
/// MD5 digest over a block of machine and clock readings, computed anew for every identifier.
///
/// Thread safety: none. uuid_create_string changes the time-stamp state of this class and the C
/// library's rand() state without a lock: callers that make identifiers from several threads
/// serialise every call themselves (one mutex around each call), and nothing else in the process
/// should reseed rand() if clock sequences are to stay unpredictable.
struct UUID
{
    /// Writes a new identifier: 36 characters and a terminator.
    /// \param buffer the caller's buffer of at least 37 bytes.
    static void uuid_create_string(char* const buffer);
};

/// The time stamps under uuid_create_string: readings of a clock of 100-ns ticks, made distinct
/// within one reading by a counter added to it, of at most 1024 per reading. When the counter is
/// spent, next() waits by reading the clock again until it changes.
///
/// uuid_create_string keeps one instance over the system clock; the class stands here so that the
/// rule can be run over any clock of the same unit.
/// Thread safety: none; an instance is for one thread at a time.
class ZnUUIDClock
{
public:
    /// A reading of a clock in 100-ns ticks.
    using ReadFunction = uint64_t (*)();

    /// Stamps per reading of the clock.
    static constexpr uint16_t UUIDS_PER_TICK = 1024;

    /// A stamper over \p aRead; its counter starts spent.
    constexpr explicit ZnUUIDClock(ReadFunction aRead)
        : m_read(aRead), m_last(0), m_ticksThisReading(0), m_initialised(false)
    {
    }

    /// The next stamp: the reading when it differs from the previous one, else the reading plus
    /// the counter, raised by one. Spins on the clock while the counter is at its limit.
    uint64_t next();

private:
    ReadFunction m_read;
    uint64_t m_last;
    uint16_t m_ticksThisReading;
    bool m_initialised;
};

#endif // ZNUTIL_UUID_H
