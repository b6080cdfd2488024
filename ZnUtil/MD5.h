// The MD5 message digest of RFC 1321, over the bytes of a ZnByteArray.
#ifndef ZNUTIL_MD5_H
#define ZNUTIL_MD5_H

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"

#include <cstdint>

/// Computes 16-byte MD5 digests.
///
/// The running state (four chaining words, a 64-bit bit count in two words and a 64-byte block)
/// lives in the instance while a digest is computed; it is set up at the start of each digest
/// and wiped to zero at its end, so one instance serves any number of digests. Instances can be
/// copied and assigned as plain values.
/// Thread safety: an instance is for one thread at a time; separate instances are independent.
class MD5
{
public:
    /// Bytes in a digest.
    static constexpr unsigned int MD5_LENGTH = 16;

    /// An instance with all state at zero.
    MD5();
    MD5(const MD5&) = default;
    MD5& operator=(const MD5&) = default;

    /// The MD5 digest of the bytes of \p bytes.
    /// \param bytes the message; a nil handle counts as the empty message.
    /// \return a new array of MD5_LENGTH bytes.
    ZnHandle<ZnByteArray> digest(ZnHandle<ZnByteArray> bytes);

private:
    /// Loads the initial chaining values and clears the bit count.
    void init();
    /// Adds \p length bytes from \p input to the message.
    void update(const unsigned char* input, unsigned int length);
    /// Pads the message, writes the digest to \p out and wipes the state.
    void finish(unsigned char out[MD5_LENGTH]);
    /// The compression function over one 64-byte block.
    static void transform(uint32_t state[4], const unsigned char block[64]);

    uint32_t m_state[4];
    uint32_t m_count[2]; // bits of the message so far, low word first
    unsigned char m_buffer[64];
};

#endif // ZNUTIL_MD5_H
