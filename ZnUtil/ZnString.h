// The value-like string of the library: one counted handle on a ZnStringBuffer.
#ifndef ZNUTIL_ZNSTRING_H
#define ZNUTIL_ZNSTRING_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnStringBuffer.h"

#include <iosfwd>

class ZnInputStream;

/// A copy-on-write string. A copy costs one atomic increment; a change copies the characters
/// only when another string shares them. A nil string (no buffer) and an empty one are both
/// valid and mostly alike: length() is 0 and empty() true for both.
/// Thread safety: as ZnHandle; separate strings sharing one buffer may be used from separate
/// threads.
class ZnString
{
public:
    /// A nil string.
    ZnString() noexcept {}
    /// A copy of \p text; a null or empty text gives a nil string.
    ZnString(const char* text) : m_buffer(ZnStringBuffer::sCreate(text, 0, 0)) {}
    /// A copy of \p length bytes of \p text (0 means strlen).
    ZnString(const char* text, unsigned int length)
        : m_buffer(ZnStringBuffer::sCreate(text, length, 0))
    {
    }
    /// Shares \p buffer, which may be null.
    ZnString(ZnStringBuffer* buffer) : m_buffer(buffer) {}
    /// Shares the buffer of \p buffer.
    ZnString(const ZnHandle<ZnStringBuffer>& buffer) : m_buffer(buffer) {}

    ZnString(const ZnString&) = default;
    ZnString(ZnString&&) noexcept = default;
    ZnString& operator=(const ZnString&) = default;
    ZnString& operator=(ZnString&&) noexcept = default;

    /// Replaces the characters with \p text, in place when nobody else sees them.
    ZnString& operator=(const char* text)
    {
        m_buffer = receiver()->assign(text);
        return *this;
    }

    /// The buffer, or null for a nil string; it stays owned by the string.
    ZnStringBuffer* buffer() const { return m_buffer; }
    /// The handle on the buffer.
    const ZnHandle<ZnStringBuffer>& getHandle() const { return m_buffer; }

    /// The characters, or null for a nil string.
    operator const char*() const { return receiver()->c_str(); }
    /// The characters, or "" for a nil string.
    const char* c_str() const
    {
        const char* text = receiver()->c_str();
        return text != nullptr ? text : "";
    }
    bool isNil() const { return m_buffer.isNil(); }
    unsigned int length() const { return receiver()->length(); }
    bool empty() const { return receiver()->empty(); }

    ZnString& assign(const char* text) { return *this = text; }
    ZnString& append(const char* text, unsigned int length = 0)
    {
        m_buffer = receiver()->append(text, length);
        return *this;
    }
    ZnString& append(const ZnString& other)
    {
        m_buffer = receiver()->append(other.buffer());
        return *this;
    }
    ZnString& operator+=(const char* text) { return append(text); }
    ZnString& operator+=(const ZnString& other) { return append(other); }
    ZnString& trim()
    {
        m_buffer = receiver()->trim();
        return *this;
    }
    ZnString& toUpper()
    {
        m_buffer = receiver()->toUpper();
        return *this;
    }
    ZnString& toLower()
    {
        m_buffer = receiver()->toLower();
        return *this;
    }

    /// Reads the next token up to one of \p delimiters (ZnStringBuffer::parse), in place when
    /// nobody else sees the characters and they fit.
    ZnString& parse(ZnInputStream& in, const char* delimiters)
    {
        m_buffer = receiver()->parse(in, delimiters);
        return *this;
    }
    /// Looks at the next token without consuming it (ZnStringBuffer::peek).
    ZnString& peek(ZnInputStream& in, const char* delimiters)
    {
        m_buffer = receiver()->peek(in, delimiters);
        return *this;
    }
    /// Reads up to \p count raw bytes (ZnStringBuffer::read).
    ZnString& read(ZnInputStream& in, unsigned int count)
    {
        m_buffer = receiver()->read(in, count);
        return *this;
    }

    ZnString substr(unsigned int pos, unsigned int length = 0) const
    {
        return ZnString(receiver()->substr(pos, length));
    }
    int indexOf(const char* needle, int from = 0) const
    {
        return receiver()->indexOf(needle, from);
    }
    int compareWith(const char* text) const { return receiver()->compareWith(text); }
    int compareWith(const ZnString& other) const { return receiver()->compareWith(other.c_str()); }
    int compareNoCase(const char* text) const { return receiver()->compareNoCase(text); }
    int compareNoCase(const ZnString& other) const
    {
        return receiver()->compareNoCase(other.buffer());
    }
    /// The buffer's hash; 0 for a nil string.
    unsigned int hashCode() const
    {
        const ZnStringBuffer* b = buffer();
        return b != nullptr ? b->hashCode() : 0;
    }

private:
    /// The buffer as the receiver of its operations, null for a nil string. The operations accept
    /// a null receiver; the pointer is hidden from the optimiser so that a string known to be nil
    /// at compile time draws no null-'this' warning and keeps the operations' null tests.
    ZnStringBuffer* receiver() const
    {
        ZnStringBuffer* buffer = m_buffer;
        asm("" : "+r"(buffer));
        return buffer;
    }

    ZnHandle<ZnStringBuffer> m_buffer;
};

/// Equality of characters; nil equals empty.
inline bool operator==(const ZnString& a, const ZnString& b)
{
    return a.compareWith(b) == 0;
}
inline bool operator!=(const ZnString& a, const ZnString& b)
{
    return !(a == b);
}
inline bool operator==(const ZnString& a, const char* b)
{
    return a.compareWith(b != nullptr ? b : "") == 0;
}
inline bool operator!=(const ZnString& a, const char* b)
{
    return !(a == b);
}
inline bool operator<(const ZnString& a, const ZnString& b)
{
    return a.compareWith(b) < 0;
}

/// Writes the characters; a nil string writes nothing.
std::ostream& operator<<(std::ostream& out, const ZnString& text);

/// Reads the next white-space delimited word into \p text: parse with the delimiters
/// " \t\r\n".
/// \return \p in.
/// \throws ZnHandle<ZnException> "Can only tokenize streams where mark supported".
ZnInputStream& operator>>(ZnInputStream& in, ZnString& text);

#endif // ZNUTIL_ZNSTRING_H
