#include "ZnUtil/ZnOutputStream.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnString.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

ZnOutputStream::ZnOutputStream() = default;

ZnOutputStream::~ZnOutputStream() = default;

void ZnOutputStream::write(void const* aBuffer, unsigned int aLength, unsigned int aOffset)
{
    if (aBuffer == nullptr || aLength == 0)
    {
        return;
    }
    const unsigned char* bytes = static_cast<const unsigned char*>(aBuffer) + aOffset;
    for (unsigned int i = 0; i < aLength; ++i)
    {
        write(static_cast<int>(bytes[i]));
    }
}

void ZnOutputStream::flush() {}

void ZnOutputStream::write(ZnByteArray* aArray, unsigned int aOffset, unsigned int aLength)
{
    if (aArray == nullptr)
    {
        return;
    }
    const unsigned int arrayLength = aArray->length();
    if (aOffset >= arrayLength)
    {
        return;
    }
    if (aLength == 0 || aLength > arrayLength - aOffset)
    {
        aLength = arrayLength - aOffset;
    }
    write(aArray->getBytes(), aLength, aOffset);
}

void ZnOutputStream::writeText(const char* aText, int aLength)
{
    if (aLength > 0)
    {
        write(aText, static_cast<unsigned int>(aLength), 0);
    }
}

ZnOutputStream& ZnOutputStream::operator<<(char const* aText)
{
    if (aText != nullptr)
    {
        write(aText, static_cast<unsigned int>(strlen(aText)), 0);
    }
    return *this;
}

ZnOutputStream& ZnOutputStream::operator<<(unsigned char const* aText)
{
    return *this << reinterpret_cast<char const*>(aText);
}

ZnOutputStream& ZnOutputStream::operator<<(char aByte)
{
    write(static_cast<int>(static_cast<unsigned char>(aByte)));
    return *this;
}

ZnOutputStream& ZnOutputStream::operator<<(unsigned char aByte)
{
    write(static_cast<int>(aByte));
    return *this;
}

ZnOutputStream& ZnOutputStream::operator<<(short aValue)
{
    return *this << static_cast<int>(aValue);
}

ZnOutputStream& ZnOutputStream::operator<<(int aValue)
{
    char text[16];
    writeText(text, snprintf(text, sizeof text, "%d", aValue));
    return *this;
}

ZnOutputStream& ZnOutputStream::operator<<(long aValue)
{
    // A long is 64 bits here: printed whole, the same text as "%d" for every 32-bit value.
    char text[24];
    writeText(text, snprintf(text, sizeof text, "%ld", aValue));
    return *this;
}

ZnOutputStream& ZnOutputStream::operator<<(unsigned short aValue)
{
    return *this << static_cast<unsigned int>(aValue);
}

ZnOutputStream& ZnOutputStream::operator<<(unsigned int aValue)
{
    char text[16];
    writeText(text, snprintf(text, sizeof text, "%u", aValue));
    return *this;
}

ZnOutputStream& ZnOutputStream::operator<<(unsigned long aValue)
{
    char text[24];
    writeText(text, snprintf(text, sizeof text, "%lu", aValue));
    return *this;
}

ZnOutputStream& ZnOutputStream::operator<<(double aValue)
{
    char text[512];
    writeText(text, snprintf(text, sizeof text, "%f", aValue));
    return *this;
}

ZnOutputStream& ZnOutputStream::operator<<(float aValue)
{
    return *this << static_cast<double>(aValue);
}

ZnOutputStream& ZnOutputStream::operator<<(void const* aPointer)
{
    char text[16];
    const unsigned long low32 = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(aPointer));
    writeText(text, snprintf(text, sizeof text, "%08lX", low32));
    return *this;
}

ZnOutputStream& ZnOutputStream::operator<<(ZnOutputStream& (*aManipulator)(ZnOutputStream&))
{
    return aManipulator(*this);
}

ZnOutputStream& flush(ZnOutputStream& aOut)
{
    aOut.flush();
    return aOut;
}

ZnOutputStream& endl(ZnOutputStream& aOut)
{
    aOut.write(10);
    aOut.flush();
    return aOut;
}

ZnOutputStream& operator<<(ZnOutputStream& aOut, ZnString const& aText)
{
    return aOut << static_cast<const char*>(aText);
}
