#include "ZnUtil/ZnConstString.h"

#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/NoSizeMemAllocator.h"

#include <cstring>

namespace
{

/// The text of every empty string. It owns no block and is never written: the case folding
/// leaves empty strings alone.
char s_emptyText[1] = {'\0'};

/// True when \p p is null. The operations that accept a null receiver test `this` here: the
/// compiler would drop a plain `this == nullptr` test as always false.
inline bool isNullReceiver(const void* p)
{
    const void* hidden = p;
    asm("" : "+r"(hidden));
    return hidden == nullptr;
}

/// A block of \p length + 1 bytes on the account, holding the first \p length bytes of \p text
/// and a terminator; the static empty text for a length of 0.
char* copyText(const char* text, unsigned int length)
{
    if (length == 0)
    {
        return s_emptyText;
    }
    char* copy = static_cast<char*>(Tavoris::DefaultStaticMemAllocator::allocate(
        static_cast<size_t>(length) + 1, ZnConstString::getMemAccountName()));
    memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

} // namespace

ZnConstString::ZnConstString() : m_length(0), m_pText(nullptr) {}

ZnConstString::ZnConstString(const char* text) : m_length(0), m_pText(nullptr)
{
    m_pText = assign(text);
}

ZnConstString::ZnConstString(const char* text, unsigned int n) : m_length(0), m_pText(nullptr)
{
    if (text == nullptr)
    {
        return;
    }
    // Exactly n bytes: embedded NULs stay, and nothing past them is read.
    m_pText = copyText(text, n);
    m_length = n;
}

ZnConstString::ZnConstString(const ZnConstString& other) : m_length(0), m_pText(nullptr)
{
    m_pText = assign(other.m_pText);
}

ZnConstString::~ZnConstString()
{
    releaseBuffer();
}

ZnConstString& ZnConstString::operator=(const char* text)
{
    m_pText = assign(text);
    return *this;
}

ZnConstString& ZnConstString::operator=(const ZnConstString& other)
{
    if (&other != this)
    {
        m_pText = assign(other.m_pText);
    }
    return *this;
}

char* ZnConstString::assign(const char* text)
{
    if (text == nullptr)
    {
        releaseBuffer();
        return nullptr;
    }
    const unsigned int length = static_cast<unsigned int>(strlen(text));
    // The copy is made before the old text goes back, so that a text lying inside this very
    // string is still readable while it is copied.
    char* copy = copyText(text, length);
    releaseBuffer();
    m_length = length;
    return copy;
}

void ZnConstString::releaseBuffer()
{
    // Length 0 owns nothing: the text is null or the static empty text.
    if (m_length != 0)
    {
        Tavoris::DefaultStaticMemAllocator::deallocate(m_pText, static_cast<size_t>(m_length) + 1,
                                                       getMemAccountName());
    }
    m_length = 0;
    m_pText = nullptr;
}

void ZnConstString::toUpper()
{
    if (isNullReceiver(this) || m_length == 0)
    {
        return;
    }
    for (unsigned int i = m_length; i > 0; --i)
    {
        char& c = m_pText[i - 1];
        if (c >= 'a' && c <= 'z')
        {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
}

void ZnConstString::toLower()
{
    if (isNullReceiver(this) || m_length == 0)
    {
        return;
    }
    for (unsigned int i = m_length; i > 0; --i)
    {
        char& c = m_pText[i - 1];
        if (c >= 'A' && c <= 'Z')
        {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
}

int ZnConstString::indexOf(const char* needle, int from) const
{
    // A negative offset counts as past the end, as it does when compared unsigned.
    if (isNullReceiver(this) || needle == nullptr || from < 0 ||
        static_cast<unsigned int>(from) >= m_length)
    {
        return -1;
    }
    const char* found = strstr(m_pText + from, needle);
    return found != nullptr ? static_cast<int>(found - m_pText) : -1;
}

bool ZnConstString::operator==(const char* other) const
{
    return compare(other);
}

bool ZnConstString::operator==(const ZnConstString& other) const
{
    return compare(other.m_pText);
}

bool ZnConstString::compare(const char* other) const
{
    if (isNullReceiver(this))
    {
        return other == nullptr || other[0] == '\0';
    }
    if (other == nullptr)
    {
        return m_pText == nullptr;
    }
    // Comparing a null text with a real one is the caller's error; it reads as empty here
    // rather than through the null pointer.
    const char* own = m_pText != nullptr ? m_pText : s_emptyText;
    return strcmp(own, other) == 0;
}

void* ZnConstString::operator new(size_t size)
{
    return Tavoris::DefaultStaticMemAllocator::allocate(size, getMemAccountName());
}

void ZnConstString::operator delete(void* p)
{
    Tavoris::DefaultStaticMemAllocator::deallocate(p, sizeof(ZnConstString), getMemAccountName());
}

void* ZnConstString::operator new[](size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnConstString::operator delete[](void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
