#include "ZnUtil/ZnStringBuffer.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInputStream.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnStreamTokenizer.h"

#include "tavoris/NoSizeMemAllocator.h"

#include <cstring>
#include <new>

namespace
{

const char* const kSource = "ZnStringBuffer";
const unsigned int kMaxCapacity = 0xFFFFFFFFu;

/// White space of the library's parsers: tab, line feed, carriage return and blank. Vertical tab,
/// form feed and bytes above 127 are not.
bool isWhite(char c)
{
    return c == 9 || c == 10 || c == 13 || c == 32;
}

/// A character taken as a signed byte, widened to 32 bits: bytes above 127 subtract.
unsigned int signedByte(char c)
{
    return static_cast<unsigned int>(static_cast<int>(static_cast<signed char>(c)));
}

char toLowerAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

char toUpperAscii(char c)
{
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}

/// compareNoCase on the characters of a receiver, null for a null receiver.
int compareNoCaseTexts(const char* data, const char* text)
{
    if (data == nullptr)
    {
        return (text == nullptr || *text == '\0') ? 0 : -1;
    }
    if (text == nullptr)
    {
        return static_cast<signed char>(data[0]);
    }
    const char* a = data;
    const char* b = text;
    while (*a != '\0' && *b != '\0' && toLowerAscii(*a) == toLowerAscii(*b))
    {
        ++a;
        ++b;
    }
    return static_cast<int>(static_cast<unsigned char>(toLowerAscii(*a))) -
           static_cast<int>(static_cast<unsigned char>(toLowerAscii(*b)));
}

/// length + 1, refusing a length whose terminator would not fit in 32 bits.
unsigned int roomFor(unsigned long long length)
{
    if (length >= kMaxCapacity)
    {
        ZnException::sThrow("ZnStringBuffer: string too long");
    }
    return static_cast<unsigned int>(length + 1);
}

} // namespace

void* ZnStringBuffer::operator new(size_t size, size_t extra)
{
    return Tavoris::NoSizeMemAllocator::allocate(size + extra, getMemAccountName());
}

void ZnStringBuffer::operator delete(void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}

void ZnStringBuffer::operator delete(void* p, size_t, size_t)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}

ZnStringBuffer::ZnStringBuffer(unsigned int length, unsigned int capacity)
    : m_pData(reinterpret_cast<char*>(this + 1)), m_length(length), m_capacity(capacity), m_hash(0)
{
}

ZnStringBuffer::~ZnStringBuffer() = default;

ZnStringBuffer* ZnStringBuffer::sCreate(const char* text, unsigned int length,
                                        unsigned int capacity)
{
    if (text == nullptr && capacity == 0)
    {
        return nullptr;
    }
    if (length == 0 && text != nullptr)
    {
        const size_t textLength = strlen(text);
        if (textLength >= kMaxCapacity)
        {
            ZnException::sThrow("ZnStringBuffer: string too long");
        }
        length = static_cast<unsigned int>(textLength);
        if (length == 0 && capacity == 0)
        {
            return nullptr;
        }
    }
    const unsigned int needed = roomFor(length);
    if (capacity < needed)
    {
        capacity = needed;
    }
    ZnStringBuffer* buffer = new (capacity) ZnStringBuffer(length, capacity);
    if (text != nullptr)
    {
        memcpy(buffer->m_pData, text, length);
    }
    buffer->m_pData[length] = '\0';
    return buffer;
}

ZnStringBuffer::operator const char*() const
{
    return sIsNullReceiver(this) ? nullptr : m_pData;
}

unsigned int ZnStringBuffer::length() const
{
    return sIsNullReceiver(this) ? 0 : m_length;
}

bool ZnStringBuffer::empty() const
{
    return sIsNullReceiver(this) || m_length == 0;
}

unsigned int ZnStringBuffer::capacity() const
{
    return sIsNullReceiver(this) ? 0 : m_capacity;
}

char* ZnStringBuffer::lockBuffer(unsigned int minSize)
{
    if (sIsNullReceiver(this) || getRefCount() != 0 || m_capacity < minSize)
    {
        ZnAssertionFailure::sThrow("ZnStringBuffer::lockBuffer", kSource, 357, ZN_COMPILED);
    }
    return m_pData;
}

void ZnStringBuffer::releaseBuffer(unsigned int newLength)
{
    if (sIsNullReceiver(this))
    {
        ZnAssertionFailure::sThrow("ZnStringBuffer::releaseBuffer", kSource, 366, ZN_COMPILED);
    }
    if (newLength == 0xFFFFFFFFu)
    {
        // Bounded by the capacity: a buffer filled to the brim without terminator stops there.
        const void* end = memchr(m_pData, '\0', m_capacity);
        newLength = end != nullptr
                        ? static_cast<unsigned int>(static_cast<const char*>(end) - m_pData)
                        : m_capacity;
    }
    if (m_capacity <= newLength)
    {
        ZnAssertionFailure::sThrow("ZnStringBuffer::releaseBuffer", kSource, 366, ZN_COMPILED);
    }
    // Neither a terminator nor a hash reset: the writer has put the characters in place.
    m_length = newLength;
}

ZnStringBuffer* ZnStringBuffer::assign(const char* text)
{
    const size_t textLength = text != nullptr ? strlen(text) : 0;
    if (!sIsNullReceiver(this) && isUnshared() && textLength < m_capacity)
    {
        // memmove: the text may lie inside this very buffer.
        memmove(m_pData, text != nullptr ? text : "", textLength);
        m_length = static_cast<unsigned int>(textLength);
        m_pData[m_length] = '\0';
        m_hash.store(0, std::memory_order_relaxed);
        return this;
    }
    if (textLength == 0)
    {
        return nullptr;
    }
    if (textLength >= kMaxCapacity)
    {
        ZnException::sThrow("ZnStringBuffer: string too long");
    }
    const unsigned int length = static_cast<unsigned int>(textLength);
    return sCreate(text, length, length + 1);
}

ZnStringBuffer* ZnStringBuffer::append(const char* text, unsigned int length)
{
    if (sIsNullReceiver(this))
    {
        if (text == nullptr)
        {
            return nullptr;
        }
        if (length == 0)
        {
            const size_t textLength = strlen(text);
            if (textLength == 0)
            {
                return nullptr;
            }
            if (textLength >= kMaxCapacity)
            {
                ZnException::sThrow("ZnStringBuffer: string too long");
            }
            length = static_cast<unsigned int>(textLength);
        }
        // On a null receiver a given length is taken as it is, past the text's end if need be.
        return sCreate(text, length, roomFor(length));
    }
    if (text == nullptr)
    {
        return this;
    }
    // On a buffer, a text that ends early wins over the given length.
    const size_t available = length == 0 ? strlen(text) : strnlen(text, length);
    if (available == 0)
    {
        return this;
    }
    if (available >= kMaxCapacity)
    {
        ZnException::sThrow("ZnStringBuffer: string too long");
    }
    length = static_cast<unsigned int>(available);
    const unsigned int needed = roomFor(static_cast<unsigned long long>(m_length) + length);
    ZnStringBuffer* target = this;
    if (!isUnshared() || m_capacity < needed)
    {
        // Exact growth: no reserve beyond what this append needs.
        target = sCreate(m_pData, m_length, needed);
    }
    memcpy(target->m_pData + target->m_length, text, length);
    target->m_length += length;
    target->m_pData[target->m_length] = '\0';
    target->m_hash.store(0, std::memory_order_relaxed);
    return target;
}

ZnStringBuffer* ZnStringBuffer::append(const ZnStringBuffer* other)
{
    if (sIsNullReceiver(this))
    {
        // The very buffer is returned, to be shared by the caller.
        return const_cast<ZnStringBuffer*>(other);
    }
    if (sIsNullReceiver(other))
    {
        return this;
    }
    return append(other->m_pData, other->m_length);
}

ZnStringBuffer* ZnStringBuffer::trim()
{
    if (sIsNullReceiver(this))
    {
        return nullptr;
    }
    ZnStringBuffer* target = isUnshared() ? this : sCreate(m_pData, m_length, m_capacity);
    char* data = target->m_pData;
    unsigned int length = target->m_length;
    while (length > 0 && isWhite(data[length - 1]))
    {
        --length;
    }
    data[length] = '\0';
    unsigned int skipped = 0;
    while (skipped < length && isWhite(data[skipped]))
    {
        ++skipped;
    }
    if (skipped > 0)
    {
        length -= skipped;
        memmove(data, data + skipped, length + 1);
    }
    target->m_length = length;
    target->m_hash.store(0, std::memory_order_relaxed);
    return target;
}

ZnStringBuffer* ZnStringBuffer::toUpper()
{
    if (sIsNullReceiver(this) || m_length == 0)
    {
        return this;
    }
    ZnStringBuffer* target = isUnshared() ? this : sCreate(m_pData, m_length, m_length + 1);
    for (unsigned int i = target->m_length; i > 0; --i)
    {
        target->m_pData[i - 1] = toUpperAscii(target->m_pData[i - 1]);
    }
    target->m_hash.store(0, std::memory_order_relaxed);
    return target;
}

ZnStringBuffer* ZnStringBuffer::toLower()
{
    if (sIsNullReceiver(this) || m_length == 0)
    {
        return this;
    }
    ZnStringBuffer* target = isUnshared() ? this : sCreate(m_pData, m_length, m_length + 1);
    for (unsigned int i = target->m_length; i > 0; --i)
    {
        target->m_pData[i - 1] = toLowerAscii(target->m_pData[i - 1]);
    }
    target->m_hash.store(0, std::memory_order_relaxed);
    return target;
}

ZnStringBuffer* ZnStringBuffer::substr(unsigned int pos, unsigned int length) const
{
    if (sIsNullReceiver(this) || pos > m_length)
    {
        return nullptr;
    }
    const unsigned int rest = m_length - pos;
    if (length == 0 || length > rest)
    {
        length = rest;
    }
    if (length == 0)
    {
        return nullptr;
    }
    return sCreate(m_pData + pos, length, length + 1);
}

int ZnStringBuffer::indexOf(const char* needle, int from) const
{
    if (sIsNullReceiver(this) || needle == nullptr || from < 0 ||
        static_cast<unsigned int>(from) >= m_length)
    {
        return -1;
    }
    const char* found = strstr(m_pData + from, needle);
    return found != nullptr ? static_cast<int>(found - m_pData) : -1;
}

int ZnStringBuffer::compareWith(const char* text) const
{
    if (sIsNullReceiver(this))
    {
        return (text == nullptr || *text == '\0') ? 0 : -1;
    }
    if (text == nullptr)
    {
        return static_cast<signed char>(m_pData[0]);
    }
    // strcmp compares the bytes as unsigned characters; only its sign is kept.
    const int order = strcmp(m_pData, text);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

int ZnStringBuffer::compareNoCase(const char* text) const
{
    return compareNoCaseTexts(sIsNullReceiver(this) ? nullptr : m_pData, text);
}

int ZnStringBuffer::compareNoCase(const ZnStringBuffer* other) const
{
    // Not forwarded through this: a null receiver must not be the object of a member call.
    return compareNoCaseTexts(sIsNullReceiver(this) ? nullptr : m_pData,
                              sIsNullReceiver(other) ? nullptr : other->m_pData);
}

int ZnStringBuffer::compareWith(const ZnObject* other) const
{
    if (other == this)
    {
        return 0;
    }
    const ZnStringBuffer* string = dynamic_cast<const ZnStringBuffer*>(other);
    if (string == nullptr)
    {
        return 1;
    }
    return compareWith(string->m_pData);
}

unsigned int ZnStringBuffer::hashCode() const
{
    const unsigned int cached = m_hash.load(std::memory_order_relaxed);
    if (cached != 0)
    {
        return cached;
    }
    // Computed aside and stored once, so that two threads hashing a shared string at the same
    // time both store the right value. A hash of 0 is not cached: it is computed again.
    // h = h * 5 + c, four characters at a step: h * 625 + c0 * 125 + c1 * 25 + c2 * 5 + c3 is the
    // same value with a shorter chain of dependent multiplications.
    const size_t count = strlen(m_pData);
    const char* p = m_pData;
    unsigned int hash = 0;
    size_t i = 0;
    for (; i + 4 <= count; i += 4)
    {
        hash = hash * 625u + signedByte(p[i]) * 125u + signedByte(p[i + 1]) * 25u +
               signedByte(p[i + 2]) * 5u + signedByte(p[i + 3]);
    }
    for (; i < count; ++i)
    {
        hash = hash * 5u + signedByte(p[i]);
    }
    m_hash.store(hash, std::memory_order_relaxed);
    return hash;
}

ZnObject* ZnStringBuffer::clone() const
{
    return sCreate(m_pData, m_length, m_capacity);
}

void ZnStringBuffer::display(ZnOutputStream& out) const
{
    ZnObject::display(out, true);
    out << m_pData;
}

namespace
{

/// One block read of up to \p count bytes into \p data, the stream's failure passing through.
/// \return the bytes stored, never more than \p count; 0 at end of stream.
unsigned int readInto(ZnInputStream& in, char* data, unsigned int count)
{
    if (count == 0)
    {
        return 0;
    }
    const unsigned int got = in.read(data, count, 0);
    // The end of stream (0xFFFFFFFF) stores nothing; a length beyond the block is not trusted.
    if (got == kMaxCapacity)
    {
        return 0;
    }
    return got < count ? got : count;
}

} // namespace

ZnStringBuffer* ZnStringBuffer::parse(ZnInputStream& in, const char* delimiters)
{
    const unsigned int n = ZnStreamTokenizer::sLookAhead(in, delimiters);
    if (n == kMaxCapacity)
    {
        return nullptr;
    }
    return sReadCounted(this, in, n, false);
}

ZnStringBuffer* ZnStringBuffer::peek(ZnInputStream& in, const char* delimiters)
{
    const unsigned int n = ZnStreamTokenizer::sLookAhead(in, delimiters);
    if (n == kMaxCapacity)
    {
        return nullptr;
    }
    // The white space before the token was consumed by the look ahead; the token is not.
    return sReadCounted(this, in, n, true);
}

ZnStringBuffer* ZnStringBuffer::read(ZnInputStream& in, unsigned int count)
{
    if (count == kMaxCapacity)
    {
        return nullptr;
    }
    return sReadCounted(this, in, count, false);
}

ZnStringBuffer* ZnStringBuffer::sReadCounted(ZnStringBuffer* receiver, ZnInputStream& in,
                                             unsigned int count, bool putBack)
{
    // In place at count 0 or 1, as for assign: nobody but the caller can see the buffer.
    ZnStringBuffer* target =
        (!sIsNullReceiver(receiver) && receiver->isUnshared() && receiver->m_capacity > count)
            ? receiver
            : sCreate(nullptr, 0, count + 1);
    try
    {
        if (putBack)
        {
            in.mark(0xFFFFFFFFu);
        }
        // A stream giving fewer bytes than it counted leaves a shorter text, never unread
        // characters.
        target->m_length = readInto(in, target->m_pData, count);
        if (putBack)
        {
            in.reset();
        }
    }
    catch (...)
    {
        if (target != receiver)
        {
            delete target;
        }
        throw;
    }
    target->m_pData[target->m_length] = '\0';
    target->m_hash.store(0, std::memory_order_relaxed);
    return target;
}
