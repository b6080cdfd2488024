#include "ZnUtil/MD5.h"

#include <cstring>

namespace
{

inline uint32_t rotateLeft(uint32_t x, unsigned int s)
{
    return (x << s) | (x >> (32 - s));
}

inline uint32_t f(uint32_t x, uint32_t y, uint32_t z)
{
    // (x & y) | (~x & z), with one operation less.
    return z ^ (x & (y ^ z));
}

inline uint32_t g(uint32_t x, uint32_t y, uint32_t z)
{
    // (x & z) | (y & ~z): the halves share no bit, so they are added, and y & ~z is ready
    // before x, the result of the previous step.
    return (y & ~z) + (x & z);
}

inline uint32_t h(uint32_t x, uint32_t y, uint32_t z)
{
    // x is the result of the previous step: y ^ z is ready before it.
    return x ^ (y ^ z);
}

inline uint32_t i(uint32_t x, uint32_t y, uint32_t z)
{
    return y ^ (x | ~z);
}

/// One step of a round: a = b + ((a + fn(b, c, d) + word + constant) <<< s). What is known
/// before b is summed first, so that only fn waits for the previous step.
template <uint32_t (*Fn)(uint32_t, uint32_t, uint32_t)>
inline void step(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t word, uint32_t constant,
                 unsigned int s)
{
    a = b + rotateLeft((a + word + constant) + Fn(b, c, d), s);
}

/// The little-endian word at \p p.
inline uint32_t loadLittleEndian(const unsigned char* p)
{
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

inline void storeLittleEndian(unsigned char* p, uint32_t word)
{
    p[0] = static_cast<unsigned char>(word);
    p[1] = static_cast<unsigned char>(word >> 8);
    p[2] = static_cast<unsigned char>(word >> 16);
    p[3] = static_cast<unsigned char>(word >> 24);
}

const unsigned char kPadding[64] = {0x80};

} // namespace

MD5::MD5() : m_state{0, 0, 0, 0}, m_count{0, 0}, m_buffer{} {}

ZnHandle<ZnByteArray> MD5::digest(ZnHandle<ZnByteArray> bytes)
{
    init();
    const ZnByteArray* message = bytes;
    if (message != nullptr && message->length() != 0)
    {
        update(message->getBytes(), message->length());
    }
    unsigned char out[MD5_LENGTH];
    finish(out);
    return ZnByteArray::sCreate(MD5_LENGTH, out);
}

void MD5::init()
{
    m_count[0] = 0;
    m_count[1] = 0;
    m_state[0] = 0x67452301u;
    m_state[1] = 0xefcdab89u;
    m_state[2] = 0x98badcfeu;
    m_state[3] = 0x10325476u;
}

void MD5::update(const unsigned char* input, unsigned int length)
{
    // Bytes already waiting in the block buffer.
    unsigned int index = (m_count[0] >> 3) & 0x3F;

    const uint32_t addedBits = length << 3;
    m_count[0] += addedBits;
    if (m_count[0] < addedBits)
    {
        ++m_count[1];
    }
    m_count[1] += length >> 29;

    const unsigned int room = 64 - index;
    unsigned int done = 0;
    if (length >= room)
    {
        memcpy(&m_buffer[index], input, room);
        transform(m_state, m_buffer);
        for (done = room; done + 63 < length; done += 64)
        {
            transform(m_state, &input[done]);
        }
        index = 0;
    }
    memcpy(&m_buffer[index], &input[done], length - done);
}

void MD5::finish(unsigned char out[MD5_LENGTH])
{
    unsigned char bits[8];
    storeLittleEndian(bits, m_count[0]);
    storeLittleEndian(bits + 4, m_count[1]);

    // Pad to 56 bytes modulo 64, then append the bit count of the message before padding.
    const unsigned int index = (m_count[0] >> 3) & 0x3F;
    const unsigned int padLength = (index < 56) ? (56 - index) : (120 - index);
    update(kPadding, padLength);
    update(bits, 8);

    for (unsigned int word = 0; word < 4; ++word)
    {
        storeLittleEndian(out + 4 * word, m_state[word]);
    }

    // Nothing of the message stays behind in the instance.
    memset(m_state, 0, sizeof(m_state));
    memset(m_count, 0, sizeof(m_count));
    memset(m_buffer, 0, sizeof(m_buffer));
}

void MD5::transform(uint32_t state[4], const unsigned char block[64])
{
    uint32_t x[16];
    for (unsigned int word = 0; word < 16; ++word)
    {
        x[word] = loadLittleEndian(block + 4 * word);
    }
    uint32_t a = state[0];
    uint32_t b = state[1];
    uint32_t c = state[2];
    uint32_t d = state[3];

    // Round 1.
    step<f>(a, b, c, d, x[0], 0xd76aa478u, 7);
    step<f>(d, a, b, c, x[1], 0xe8c7b756u, 12);
    step<f>(c, d, a, b, x[2], 0x242070dbu, 17);
    step<f>(b, c, d, a, x[3], 0xc1bdceeeu, 22);
    step<f>(a, b, c, d, x[4], 0xf57c0fafu, 7);
    step<f>(d, a, b, c, x[5], 0x4787c62au, 12);
    step<f>(c, d, a, b, x[6], 0xa8304613u, 17);
    step<f>(b, c, d, a, x[7], 0xfd469501u, 22);
    step<f>(a, b, c, d, x[8], 0x698098d8u, 7);
    step<f>(d, a, b, c, x[9], 0x8b44f7afu, 12);
    step<f>(c, d, a, b, x[10], 0xffff5bb1u, 17);
    step<f>(b, c, d, a, x[11], 0x895cd7beu, 22);
    step<f>(a, b, c, d, x[12], 0x6b901122u, 7);
    step<f>(d, a, b, c, x[13], 0xfd987193u, 12);
    step<f>(c, d, a, b, x[14], 0xa679438eu, 17);
    step<f>(b, c, d, a, x[15], 0x49b40821u, 22);

    // Round 2.
    step<g>(a, b, c, d, x[1], 0xf61e2562u, 5);
    step<g>(d, a, b, c, x[6], 0xc040b340u, 9);
    step<g>(c, d, a, b, x[11], 0x265e5a51u, 14);
    step<g>(b, c, d, a, x[0], 0xe9b6c7aau, 20);
    step<g>(a, b, c, d, x[5], 0xd62f105du, 5);
    step<g>(d, a, b, c, x[10], 0x02441453u, 9);
    step<g>(c, d, a, b, x[15], 0xd8a1e681u, 14);
    step<g>(b, c, d, a, x[4], 0xe7d3fbc8u, 20);
    step<g>(a, b, c, d, x[9], 0x21e1cde6u, 5);
    step<g>(d, a, b, c, x[14], 0xc33707d6u, 9);
    step<g>(c, d, a, b, x[3], 0xf4d50d87u, 14);
    step<g>(b, c, d, a, x[8], 0x455a14edu, 20);
    step<g>(a, b, c, d, x[13], 0xa9e3e905u, 5);
    step<g>(d, a, b, c, x[2], 0xfcefa3f8u, 9);
    step<g>(c, d, a, b, x[7], 0x676f02d9u, 14);
    step<g>(b, c, d, a, x[12], 0x8d2a4c8au, 20);

    // Round 3.
    step<h>(a, b, c, d, x[5], 0xfffa3942u, 4);
    step<h>(d, a, b, c, x[8], 0x8771f681u, 11);
    step<h>(c, d, a, b, x[11], 0x6d9d6122u, 16);
    step<h>(b, c, d, a, x[14], 0xfde5380cu, 23);
    step<h>(a, b, c, d, x[1], 0xa4beea44u, 4);
    step<h>(d, a, b, c, x[4], 0x4bdecfa9u, 11);
    step<h>(c, d, a, b, x[7], 0xf6bb4b60u, 16);
    step<h>(b, c, d, a, x[10], 0xbebfbc70u, 23);
    step<h>(a, b, c, d, x[13], 0x289b7ec6u, 4);
    step<h>(d, a, b, c, x[0], 0xeaa127fau, 11);
    step<h>(c, d, a, b, x[3], 0xd4ef3085u, 16);
    step<h>(b, c, d, a, x[6], 0x04881d05u, 23);
    step<h>(a, b, c, d, x[9], 0xd9d4d039u, 4);
    step<h>(d, a, b, c, x[12], 0xe6db99e5u, 11);
    step<h>(c, d, a, b, x[15], 0x1fa27cf8u, 16);
    step<h>(b, c, d, a, x[2], 0xc4ac5665u, 23);

    // Round 4.
    step<i>(a, b, c, d, x[0], 0xf4292244u, 6);
    step<i>(d, a, b, c, x[7], 0x432aff97u, 10);
    step<i>(c, d, a, b, x[14], 0xab9423a7u, 15);
    step<i>(b, c, d, a, x[5], 0xfc93a039u, 21);
    step<i>(a, b, c, d, x[12], 0x655b59c3u, 6);
    step<i>(d, a, b, c, x[3], 0x8f0ccc92u, 10);
    step<i>(c, d, a, b, x[10], 0xffeff47du, 15);
    step<i>(b, c, d, a, x[1], 0x85845dd1u, 21);
    step<i>(a, b, c, d, x[8], 0x6fa87e4fu, 6);
    step<i>(d, a, b, c, x[15], 0xfe2ce6e0u, 10);
    step<i>(c, d, a, b, x[6], 0xa3014314u, 15);
    step<i>(b, c, d, a, x[13], 0x4e0811a1u, 21);
    step<i>(a, b, c, d, x[4], 0xf7537e82u, 6);
    step<i>(d, a, b, c, x[11], 0xbd3af235u, 10);
    step<i>(c, d, a, b, x[2], 0x2ad7d2bbu, 15);
    step<i>(b, c, d, a, x[9], 0xeb86d391u, 21);

    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}
