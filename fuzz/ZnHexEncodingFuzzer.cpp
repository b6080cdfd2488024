// ZnHexEncoding::fromHex and toHex on arbitrary bytes.
//
// fromHex is fed the even-length part of the input (an odd input loses its last byte), any
// bytes at all, zero bytes included; it must give half as many bytes without a fault. When that
// text is hexadecimal in the form fromHex reads (digits and upper-case A to F), toHex gives it
// back in lower case. The whole input is also passed as it is, odd lengths included, which must
// stay memory-safe.
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnHexEncoding.h"
#include "ZnUtil/ZnString.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

bool isUpperHex(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

std::string lowerCased(std::string text)
{
    for (char& c : text)
    {
        if (c >= 'A' && c <= 'Z')
        {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return text;
}

void fail(const char* what)
{
    fprintf(stderr, "ZnHexEncodingFuzzer: %s\n", what);
    abort();
}

/// A string of exactly the bytes of \p text, zero bytes included; nil when empty.
ZnString stringOf(const std::string& text)
{
    return text.empty() ? ZnString()
                        : ZnString(text.data(), static_cast<unsigned int>(text.size()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string whole(reinterpret_cast<const char*>(data), size);
    const std::string even = whole.substr(0, size - size % 2);

    const ZnHandle<ZnByteArray> bytes = ZnHexEncoding::fromHex(stringOf(even));
    if (bytes.isNil() || bytes->length() != even.size() / 2)
    {
        fail("fromHex did not give half the length");
    }
    const ZnString hex = ZnHexEncoding::toHex(bytes);
    if (hex.length() != even.size() || strlen(hex.c_str()) != even.size())
    {
        fail("toHex did not give two digits per byte");
    }

    bool upperHex = true;
    for (char c : even)
    {
        upperHex = upperHex && isUpperHex(c);
    }
    if (upperHex && std::string(hex.c_str()) != lowerCased(even))
    {
        fail("toHex(fromHex(x)) is not x in lower case");
    }

    // What toHex writes, upper-cased, is what fromHex reads.
    ZnString upper = hex;
    upper.toUpper();
    const ZnHandle<ZnByteArray> again = ZnHexEncoding::fromHex(upper);
    if (again->length() != bytes->length() ||
        memcmp(again->getBytes(), bytes->getBytes(), bytes->length()) != 0)
    {
        fail("fromHex(upper(toHex(b))) differs from b");
    }

    if (size % 2 != 0)
    {
        const ZnHandle<ZnByteArray> odd = ZnHexEncoding::fromHex(stringOf(whole));
        if (odd->length() != size / 2 ||
            memcmp(odd->getBytes(), bytes->getBytes(), bytes->length()) != 0)
        {
            fail("an odd length did not give the bytes of its even part");
        }
    }
    return 0;
}
