// Base64::decode and encode on arbitrary bytes, taken as a NUL-terminated text.
//
// Every input must decode without a fault into at most as many bytes as it has characters. The
// bytes of the input always survive encode then decode; and when the input is itself a canonical
// encoding of bytes with no zero among them, decode then encode gives it back.
#include "ZnUtil/Base64.h"
#include "ZnUtil/ZnString.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int valueOf(char c)
{
    const char* p = c != '\0' ? strchr(kAlphabet, c) : nullptr;
    return p != nullptr ? static_cast<int>(p - kAlphabet) : -1;
}

/// True for the one encoding that encode() gives for some bytes: whole groups, the alphabet,
/// at most two pads at the very end, and zero bits where a padded group has none to carry.
bool isCanonicalEncoding(const std::string& text)
{
    if (text.empty() || text.size() % 4 != 0)
    {
        return false;
    }
    size_t pads = 0;
    while (pads < 2 && text[text.size() - 1 - pads] == '=')
    {
        ++pads;
    }
    const size_t data = text.size() - pads;
    for (size_t i = 0; i < data; ++i)
    {
        if (valueOf(text[i]) < 0)
        {
            return false;
        }
    }
    if (pads == 1)
    {
        return (valueOf(text[data - 1]) & 0x03) == 0;
    }
    if (pads == 2)
    {
        return (valueOf(text[data - 1]) & 0x0F) == 0;
    }
    return true;
}

void fail(const char* what)
{
    fprintf(stderr, "Base64Fuzzer: %s\n", what);
    abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The input ends at its first zero byte, as for any caller's text.
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string text(input.c_str());

    unsigned int decodedLength = 0xFFFFFFFFu;
    const ZnString decoded = Base64::decode(input.c_str(), decodedLength);
    if (decodedLength > text.size())
    {
        fail("decode wrote more bytes than the text has characters");
    }
    if (decoded.c_str()[decodedLength] != '\0')
    {
        fail("decoded bytes not terminated");
    }
    if (decoded.length() != text.size())
    {
        fail("decoded length field is not the input length");
    }

    unsigned int encodedLength = 0xFFFFFFFFu;
    const ZnString encoded = Base64::encode(input.c_str(), encodedLength);
    if (encodedLength != (text.size() + 2) / 3 * 4 || strlen(encoded.c_str()) != encodedLength)
    {
        fail("encoded length is not four characters per three bytes");
    }
    unsigned int roundTripLength = 0;
    const ZnString roundTrip = Base64::decode(encoded.c_str(), roundTripLength);
    if (std::string(roundTrip.c_str(), roundTripLength) != text)
    {
        fail("decode(encode(x)) differs from x");
    }

    if (isCanonicalEncoding(text))
    {
        const std::string bytes(decoded.c_str(), decodedLength);
        if (bytes.size() != text.size() / 4 * 3 - (text.size() - text.find_last_not_of('=') - 1))
        {
            fail("canonical encoding decoded to the wrong number of bytes");
        }
        if (bytes.find('\0') == std::string::npos && Base64::encode(bytes.c_str()) != text.c_str())
        {
            fail("encode(decode(x)) differs from a canonical x");
        }
    }
    return 0;
}
