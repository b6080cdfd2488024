#include "ZnUtil/ZnCppInputStream.h"

#include <algorithm>
#include <limits>
#include <streambuf>

namespace
{

const unsigned int kEndOfStream = 0xFFFFFFFFu;

using Traits = std::istream::traits_type;

} // namespace

ZnCppInputStream::ZnCppInputStream(std::istream& aIn) : m_in(aIn) {}

ZnCppInputStream::~ZnCppInputStream() = default;

std::streamsize ZnCppInputStream::buffered() const
{
    std::streambuf* buffer = m_in.rdbuf();
    if (buffer == nullptr)
    {
        return 0;
    }
    return std::max<std::streamsize>(buffer->in_avail(), 0);
}

unsigned int ZnCppInputStream::read(void* aBuffer, unsigned int aLength, unsigned int aOffset)
{
    if (aLength == 0)
    {
        return 0;
    }
    unsigned char* cursor = static_cast<unsigned char*>(aBuffer) + aOffset;
    unsigned int count = 0;
    std::streamsize inBuffer = buffered();
    if (inBuffer == 0)
    {
        // Nothing is buffered: one byte is waited for, then whatever came in with it is taken.
        const int byte = read();
        if (byte == -1)
        {
            return kEndOfStream;
        }
        cursor[count++] = static_cast<unsigned char>(byte);
        if (count == aLength)
        {
            return aLength;
        }
        inBuffer = buffered();
    }
    const std::streamsize wanted =
        std::min<std::streamsize>(inBuffer, static_cast<std::streamsize>(aLength - count));
    if (wanted > 0)
    {
        m_in.read(reinterpret_cast<char*>(cursor + count), wanted);
        count += static_cast<unsigned int>(m_in.gcount());
    }
    return count;
}

int ZnCppInputStream::read()
{
    const Traits::int_type c = m_in.get();
    return Traits::eq_int_type(c, Traits::eof()) ? -1 : static_cast<int>(c);
}

unsigned int ZnCppInputStream::available()
{
    const std::streamsize inBuffer = buffered();
    return static_cast<unsigned int>(std::min<std::streamsize>(
        inBuffer, static_cast<std::streamsize>(std::numeric_limits<unsigned int>::max())));
}

bool ZnCppInputStream::block()
{
    bool result = true;
    if (available() == 0)
    {
        const Traits::int_type c = m_in.get();
        if (Traits::eq_int_type(c, Traits::eof()))
        {
            result = false;
        }
        else
        {
            m_in.putback(Traits::to_char_type(c));
        }
    }
    notifyObservers(ZnHandle<ZnObject>());
    return result;
}
