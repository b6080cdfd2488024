#include "ZnUtil/ZnHexEncoding.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnStringBuffer.h"

#include <memory>

namespace
{

const char kLowerDigits[] = "0123456789abcdef";

/// The value of one digit: '0' to '9' as such, anything else as c - '7'.
int digitValue(char c)
{
    // Everything that is not a decimal digit counts as c - '7', lower-case letters and non-hex
    // characters included: intended, only upper case is read.
    return (c >= '0' && c <= '9') ? c - '0' : c - '7';
}

} // namespace

ZnHexEncoding::ZnHexEncoding() = default;

char ZnHexEncoding::fromHex(char* twoDigits)
{
    return static_cast<char>(digitValue(twoDigits[0]) * 16 + digitValue(twoDigits[1]));
}

ZnHandle<ZnByteArray> ZnHexEncoding::fromHex(ZnString text)
{
    const unsigned int length = text.length();
    const unsigned int count = length / 2;
    if (count == 0)
    {
        return ZnByteArray::sCreate(0, nullptr);
    }
    // n / 2 rounds: the half digit of an odd length has no byte of its own in the array and is
    // left out, where one more round would write past its end.
    const char* digits = text.c_str();
    std::unique_ptr<unsigned char[]> bytes(new unsigned char[count]);
    for (unsigned int i = 0; i < count; ++i)
    {
        char pair[2] = {digits[2 * i], digits[2 * i + 1]};
        bytes[i] = static_cast<unsigned char>(fromHex(pair));
    }
    return ZnByteArray::sCreate(count, bytes.get());
}

ZnString ZnHexEncoding::toHex(ZnHandle<ZnByteArray> bytes)
{
    const ZnByteArray* array = bytes;
    const unsigned int length = array != nullptr ? array->length() : 0;
    if (length > (0xFFFFFFFFu - 1) / 2)
    {
        ZnException::sThrow("ZnHexEncoding::toHex: array too long");
    }
    const unsigned int capacity = 2 * length + 1;
    // Written in place while no handle holds the buffer yet, then handed to the result.
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, 0, capacity);
    char* out = buffer->lockBuffer(capacity);
    const unsigned char* in = length != 0 ? array->getBytes() : nullptr;
    for (unsigned int i = 0; i < length; ++i)
    {
        // "%02x" of each byte, from a table.
        out[2 * i] = kLowerDigits[in[i] >> 4];
        out[2 * i + 1] = kLowerDigits[in[i] & 0x0F];
    }
    out[2 * length] = '\0';
    buffer->releaseBuffer(2 * length);
    return ZnString(buffer);
}
