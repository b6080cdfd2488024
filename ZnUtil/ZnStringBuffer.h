// The library's string representation: counted, characters inline, shared and copied on write.
#ifndef ZNUTIL_ZNSTRINGBUFFER_H
#define ZNUTIL_ZNSTRINGBUFFER_H

#include "ZnUtil/ZnObject.h"

#include <atomic>
#include <cstddef>

class ZnInputStream;

/// A NUL-terminated byte string whose characters live in the same allocation as the object.
///
/// A null ZnStringBuffer* is a legal receiver of every non-virtual operation: it stands for no
/// string at all, with length 0. A mutating operation returns the buffer that now holds the
/// result, which is the receiver when nobody else can see it (count 0 or 1) and a new buffer
/// otherwise; the caller stores what it gets back. New buffers have count 0.
/// Capacity is exact: nothing is rounded up beyond what is asked for.
/// Thread safety: a buffer with count above 1 is immutable through this interface and can be read
/// from several threads; the cached hash is computed without a lock and stored in one write.
class ZnStringBuffer : public ZnObject
{
public:
    /// Makes a buffer.
    /// \param text characters to copy, or null for a buffer to fill.
    /// \param length characters of \p text to take, trusted as given; 0 means strlen(text).
    /// \param capacity room to reserve including the terminator; at least length + 1 is taken.
    /// \return a new buffer with count 0, or null when \p text is null or empty and \p capacity 0.
    static ZnStringBuffer* sCreate(const char* text, unsigned int length = 0,
                                   unsigned int capacity = 0);

    /// The memory account of every buffer block: "ZnStringBuffer".
    static const char* getMemAccountName() { return "ZnStringBuffer"; }

    /// The characters; null for a null receiver.
    operator const char*() const;
    /// The characters; null for a null receiver.
    // Tested here rather than forwarded: no member is called through a null receiver.
    const char* c_str() const { return sIsNullReceiver(this) ? nullptr : m_pData; }
    /// The number of characters; 0 for a null receiver.
    unsigned int length() const;
    /// True for a null receiver or a length of 0.
    bool empty() const;
    /// Room for characters including the terminator; 0 for a null receiver.
    unsigned int capacity() const;

    /// Hands out the characters for direct writing, on a buffer held by no handle yet.
    /// \throws ZnHandle<ZnException> "ZnStringBuffer::lockBuffer" for a null receiver, a count
    /// other than 0, or a capacity below \p minSize.
    char* lockBuffer(unsigned int minSize);

    /// Ends direct writing: sets the length to \p newLength, or to strlen of the characters for
    /// 0xFFFFFFFF. Writes no terminator and does not clear the hash.
    /// \throws ZnHandle<ZnException> "ZnStringBuffer::releaseBuffer" when the capacity is not
    /// above \p newLength.
    void releaseBuffer(unsigned int newLength = 0xFFFFFFFF);

    /// Replaces the characters with \p text; null or empty empties the buffer.
    /// \return the receiver when it is unshared and big enough, else a new buffer of exactly
    /// strlen(text) + 1, or null for a null or empty text.
    ZnStringBuffer* assign(const char* text);

    /// Appends \p text. On a null receiver \p length is taken as given (0 meaning strlen); on a
    /// buffer a length of 0 or beyond strlen(text) is cut to strlen(text).
    /// \return the buffer that holds the result.
    ZnStringBuffer* append(const char* text, unsigned int length = 0);

    /// Appends \p other. On a null receiver this returns \p other itself, to be shared.
    ZnStringBuffer* append(const ZnStringBuffer* other);

    /// Removes leading and trailing white space (characters 9, 10, 13 and 32).
    /// \return the buffer that holds the result, empty rather than null when all was white.
    ZnStringBuffer* trim();

    /// Upper-cases ASCII letters; other bytes stay.
    ZnStringBuffer* toUpper();
    /// Lower-cases ASCII letters; other bytes stay.
    ZnStringBuffer* toLower();

    /// Reads the next token: skips white space, then takes the characters up to one of
    /// \p delimiters (which stays unread) or the end of the stream.
    /// \return the receiver when it is unshared (count 0 or 1) and its capacity exceeds the
    /// token's length, else a new buffer of capacity length + 1 (count 0); an empty buffer when
    /// there is no token; null only for a count of 0xFFFFFFFF from the look ahead.
    /// \throws ZnHandle<ZnException> "Can only tokenize streams where mark supported"; what the
    /// stream throws.
    ZnStringBuffer* parse(ZnInputStream& in, const char* delimiters);

    /// As parse, but the token is put back with the stream's mark and reset: the stream is left
    /// at the token's first character (the white space before it is consumed).
    ZnStringBuffer* peek(ZnInputStream& in, const char* delimiters);

    /// Reads up to \p count raw bytes with one block read of the stream.
    /// \return the receiver when it is unshared (count 0 or 1) and its capacity exceeds
    /// \p count, else a new buffer of capacity \p count + 1 (count 0), holding the bytes read:
    /// empty at end of stream; null for a \p count of 0xFFFFFFFF, which leaves no room for the
    /// terminator. Works on any stream.
    /// \throws what the stream throws.
    ZnStringBuffer* read(ZnInputStream& in, unsigned int count);

    /// A new buffer with \p length characters from \p pos; a length of 0 or beyond the end takes
    /// the rest. \return null for a null receiver, \p pos past the end, or an empty result.
    ZnStringBuffer* substr(unsigned int pos, unsigned int length) const;

    /// The offset of the first \p needle at or after \p from.
    /// \return -1 when not found, for a null receiver or needle, or when \p from is past the end.
    int indexOf(const char* needle, int from = 0) const;

    /// Byte-wise comparison with \p text as unsigned bytes.
    /// \return -1, 0 or 1; a null receiver gives 0 against a null or empty text and -1 otherwise;
    /// a null \p text gives the receiver's first character as a signed value.
    int compareWith(const char* text) const;

    /// Comparison with ASCII letters folded to lower case.
    /// \return the difference of the first two differing folded characters (not just -1 or 1);
    /// null cases as for compareWith(const char*).
    int compareNoCase(const char* text) const;
    int compareNoCase(const ZnStringBuffer* other) const;

    /// 0 for this very object, 1 for null or a non-string, else the byte-wise comparison.
    int compareWith(const ZnObject* other) const override;

    /// h = h * 5 + c over the characters taken as signed bytes, cached until the next change.
    unsigned int hashCode() const override;

    /// A new buffer with the same characters and capacity, count 0.
    ZnObject* clone() const override;

    using ZnObject::display;
    /// Prints the object part with its address, then the characters.
    virtual void display(ZnOutputStream& out) const;

private:
    ZnStringBuffer(unsigned int length, unsigned int capacity);
    ~ZnStringBuffer() override;
    ZnStringBuffer(const ZnStringBuffer&) = delete;
    ZnStringBuffer& operator=(const ZnStringBuffer&) = delete;

    /// Allocates the object and \p extra bytes of characters behind it.
    static void* operator new(size_t size, size_t extra);
    static void operator delete(void* p);
    /// Matches the allocation above should a constructor throw.
    static void operator delete(void* p, size_t size, size_t extra);

    /// Reads \p count bytes of \p in into \p receiver (possibly null) when it may be changed in
    /// place and holds them, else into a new buffer; with \p putBack the stream is left where it
    /// was. Static, so that a null receiver is never called through.
    static ZnStringBuffer* sReadCounted(ZnStringBuffer* receiver, ZnInputStream& in,
                                        unsigned int count, bool putBack);

    /// True when a change may be made in place: nobody but the caller holds the buffer.
    bool isUnshared() const { return getRefCount() <= 1; }

    char* m_pData;
    unsigned int m_length;
    unsigned int m_capacity;
    mutable std::atomic<unsigned int> m_hash; // 0 until computed; see hashCode
};

#endif // ZNUTIL_ZNSTRINGBUFFER_H
