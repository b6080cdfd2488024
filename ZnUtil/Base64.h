// Base64 text form of NUL-terminated byte strings (the alphabet of RFC 4648, '=' padding).
#ifndef ZNUTIL_BASE64_H
#define ZNUTIL_BASE64_H

#include "ZnUtil/ZnString.h"

/// Converts between bytes and their Base64 text, with static operations only.
///
/// Both directions take a NUL-terminated text: the input ends at its first zero byte. The
/// returned strings are new ZnStrings whose characters end at a terminator; their length()
/// is not the number of characters produced (see each operation): take that from the
/// \p outLength argument, or for an encoding from the terminator.
/// Decoding never fails: characters outside the alphabet count as the value 255, so malformed
/// text gives malformed bytes rather than an error.
/// Thread safety: no state; any thread may call at any time.
class Base64
{
public:
    /// The Base64 text of the bytes of \p text up to its first zero byte, without line breaks.
    /// \param text the bytes to encode; null counts as empty.
    /// \param outLength set to the number of characters written.
    /// \return a new string whose length() is twice the input length, whatever was written;
    /// an empty string for an empty input.
    /// \throws ZnHandle<ZnException> when the text is too long for a string of twice its size.
    static ZnString encode(const char* text, unsigned int& outLength);

    /// As encode(text, outLength), without the length.
    static ZnString encode(const char* text);

    /// The bytes of the Base64 text \p text, read in groups of four characters. The first '='
    /// in the third or fourth place of a group ends the decoding.
    /// \param text the characters to decode; null counts as empty.
    /// \param outLength set to the number of bytes written, which may include zero bytes.
    /// \return a new string whose length() is the input length, whatever was written; an empty
    /// string with \p outLength 0 for an empty input.
    /// \throws ZnHandle<ZnException> when the text is too long for a string.
    static ZnString decode(const char* text, unsigned int& outLength);

    /// As decode(text, outLength), without the length.
    static ZnString decode(const char* text);

private:
    /// The index of \p c in cvt, or -1 when it is not in the alphabet.
    static char find(unsigned char c);

    /// The 64 characters of the alphabet in value order, and a terminator.
    static const char cvt[65];
};

#endif // ZNUTIL_BASE64_H
