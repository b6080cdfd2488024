#include "ZnUtil/Base64.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnStringBuffer.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

const char Base64::cvt[65] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

namespace
{

const char kPad = '=';

/// Base64 character values by byte, -1 for bytes outside the alphabet.
struct DecodeTable
{
    std::array<signed char, 256> values;

    constexpr DecodeTable() : values()
    {
        const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (unsigned int c = 0; c < 256; ++c)
        {
            values[c] = -1;
        }
        for (unsigned int index = 0; index < 64; ++index)
        {
            values[static_cast<unsigned char>(alphabet[index])] = static_cast<signed char>(index);
        }
    }
};

constexpr DecodeTable kDecodeTable;

/// The two characters of every 12-bit value, so that three bytes take two look-ups.
struct PairTable
{
    std::array<char, 2 * 4096> pairs;

    constexpr PairTable() : pairs()
    {
        const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (unsigned int value = 0; value < 4096; ++value)
        {
            pairs[2 * value] = alphabet[value >> 6];
            pairs[2 * value + 1] = alphabet[value & 0x3F];
        }
    }
};

constexpr PairTable kPairTable;

/// A new empty, non-nil string: what both directions answer for an empty input.
ZnString emptyResult()
{
    return ZnString(ZnStringBuffer::sCreate(nullptr, 0, 1));
}

} // namespace

char Base64::find(unsigned char c)
{
    return static_cast<char>(kDecodeTable.values[c]);
}

ZnString Base64::encode(const char* text, unsigned int& outLength)
{
    const size_t n = text != nullptr ? strlen(text) : 0;
    outLength = 0;
    if (n == 0)
    {
        return emptyResult();
    }
    if (n > (0xFFFFFFFFu - 2) / 2)
    {
        ZnException::sThrow("Base64::encode: text too long");
    }
    const unsigned int length = static_cast<unsigned int>(2 * n);
    // Twice the input and a terminator hold every encoding from two bytes up; one byte still
    // gives four characters, so it gets five bytes of room.
    const unsigned int capacity = std::max(length + 1, 5u);
    // Written in place while no handle holds the buffer yet, then handed to the result.
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, length, capacity);
    char* out = buffer->lockBuffer(capacity);

    const unsigned char* in = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const fullEnd = in + (n / 3) * 3;
    char* o = out;
    for (; in != fullEnd; in += 3, o += 4)
    {
        const uint32_t group = (static_cast<uint32_t>(in[0]) << 16) |
                               (static_cast<uint32_t>(in[1]) << 8) | static_cast<uint32_t>(in[2]);
        memcpy(o, &kPairTable.pairs[2 * (group >> 12)], 2);
        memcpy(o + 2, &kPairTable.pairs[2 * (group & 0xFFF)], 2);
    }
    switch (n % 3)
    {
    case 1:
    {
        const uint32_t group = static_cast<uint32_t>(in[0]) << 16;
        o[0] = cvt[group >> 18];
        o[1] = cvt[(group >> 12) & 0x3F];
        o[2] = kPad;
        o[3] = kPad;
        o += 4;
        break;
    }
    case 2:
    {
        const uint32_t group =
            (static_cast<uint32_t>(in[0]) << 16) | (static_cast<uint32_t>(in[1]) << 8);
        o[0] = cvt[group >> 18];
        o[1] = cvt[(group >> 12) & 0x3F];
        o[2] = cvt[(group >> 6) & 0x3F];
        o[3] = kPad;
        o += 4;
        break;
    }
    default:
        break;
    }
    const unsigned int written = static_cast<unsigned int>(o - out);
    // The rest of the room is zeroed so that the whole length field reads defined bytes.
    memset(o, 0, capacity - written);
    // The length field stays at twice the input, not at the characters written: intended.
    buffer->releaseBuffer(length);
    outLength = written;
    return ZnString(buffer);
}

ZnString Base64::encode(const char* text)
{
    unsigned int ignored = 0;
    return encode(text, ignored);
}

ZnString Base64::decode(const char* text, unsigned int& outLength)
{
    const size_t n = text != nullptr ? strlen(text) : 0;
    outLength = 0;
    if (n == 0)
    {
        return emptyResult();
    }
    if (n >= 0xFFFFFFFFu)
    {
        ZnException::sThrow("Base64::decode: text too long");
    }
    const unsigned int length = static_cast<unsigned int>(n);
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, length, length + 1);
    // A group of four characters gives at most three bytes and a last group of one to three
    // characters at most two, so n bytes and a terminator always hold the result.
    char* out = buffer->lockBuffer(length + 1);
    const unsigned char* in = reinterpret_cast<const unsigned char*>(text);

    unsigned int o = 0;
    for (unsigned int i = 0; i < length; i += 4)
    {
        // Values outside the alphabet are -1, taken here as the byte 255. The second character
        // of a last group of one is the terminator, which counts as such a value.
        const uint32_t c0 = static_cast<unsigned char>(find(in[i]));
        const uint32_t c1 = static_cast<unsigned char>(find(in[i + 1]));
        out[o++] = static_cast<char>((c0 << 2) | ((c1 >> 4) & 0x03));
        if (i + 2 >= length || in[i + 2] == kPad)
        {
            break;
        }
        const uint32_t c2 = static_cast<unsigned char>(find(in[i + 2]));
        out[o++] = static_cast<char>((c1 << 4) | ((c2 >> 2) & 0x0F));
        if (i + 3 >= length || in[i + 3] == kPad)
        {
            break;
        }
        const uint32_t c3 = static_cast<unsigned char>(find(in[i + 3]));
        out[o++] = static_cast<char>((c2 << 6) | c3);
    }
    memset(out + o, 0, length + 1 - o);
    // The length field stays at the input length, not at the bytes written: intended.
    buffer->releaseBuffer(length);
    outLength = o;
    return ZnString(buffer);
}

ZnString Base64::decode(const char* text)
{
    unsigned int ignored = 0;
    return decode(text, ignored);
}
