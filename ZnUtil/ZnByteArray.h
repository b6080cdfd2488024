// A counted, fixed-size block of bytes whose payload follows its header in one allocation.
#ifndef ZNUTIL_ZNBYTEARRAY_H
#define ZNUTIL_ZNBYTEARRAY_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"

#include <cstddef>
#include <iosfwd>

/// The library's block of bytes: datagrams, stream buffers and digests travel in it.
///
/// Made only by the sCreate factories, with count 0: hold it in a ZnHandle<ZnByteArray> at once.
/// Its length is fixed at creation; nothing resizes it. No terminator is stored.
/// Thread safety: none of its own; an array shared by several handles is not to be written.
class ZnByteArray : public ZnObject
{
public:
    /// A new array of \p length bytes, copied from \p source when it is not null (else the bytes
    /// are undefined).
    static ZnHandle<ZnByteArray> sCreate(unsigned int length, const void* source);

    /// An array of the characters of \p text, without its terminator.
    /// \return nil for a null \p text; an empty array for "".
    static ZnHandle<ZnByteArray> sCreate(const char* text);

    /// A copy of a slice of \p source: \p length bytes from \p offset. A length of 0 takes the
    /// rest of the source from \p offset (nothing when \p offset is at or past its end). Bytes
    /// beyond what the source holds are left undefined.
    static ZnHandle<ZnByteArray> sCreate(const ZnByteArray* source, unsigned int length,
                                         unsigned int offset);

    unsigned int length() const { return m_length; }
    const unsigned char* getBytes() const { return bytes(); }

    /// \throws ZnHandle<ZnException> "index out of bounds" when \p index >= length().
    unsigned char& operator[](unsigned int index);
    const unsigned char& operator[](unsigned int index) const;

    /// Copies min(length() - pos, count) bytes from \p source + \p sourceOffset to \p pos;
    /// nothing when \p pos is at or past the end.
    void copy(unsigned int pos, const void* source, unsigned int count, unsigned int sourceOffset);

    /// Copies what fits of \p count bytes of \p source from \p sourceOffset to \p pos; nothing
    /// when \p sourceOffset or \p pos is at or past the end of its array.
    void copy(unsigned int pos, const ZnByteArray* source, unsigned int count,
              unsigned int sourceOffset);

    /// h = (h * 2) XOR byte over the bytes, not cached; 0 for an empty array.
    unsigned int hashCode() const override;

    /// 0 for this very object.
    /// \throws ZnHandle<ZnException> "ZnByteArray::compareWith" for any other object.
    int compareWith(const ZnObject* other) const override;

    /// A copy made in a temporary handle and handed back after that handle has gone: the
    /// pointer no longer refers to a live object. Copy arrays with sCreate.
    ZnObject* clone() const override;

    using ZnObject::display;
    /// Writes all the bytes to \p out.
    virtual void display(ZnOutputStream& out) const;

private:
    // The streams fill arrays in place.
    friend class ZnInputStream;
    friend class ZnBufferedInputStream;
    friend class ZnByteArrayOutputStream;

    explicit ZnByteArray(unsigned int length);
    ~ZnByteArray() override;
    ZnByteArray(const ZnByteArray&) = delete;
    ZnByteArray& operator=(const ZnByteArray&) = delete;

    /// Allocates the header and \p extra payload bytes from the plain heap.
    static void* operator new(size_t size, size_t extra);
    static void operator delete(void* p);
    static void operator delete(void* p, size_t extra);

    /// The payload for writing.
    unsigned char* rawBytes() { return bytes(); }

    unsigned char* bytes() const
    {
        return reinterpret_cast<unsigned char*>(const_cast<ZnByteArray*>(this) + 1);
    }

    unsigned int m_length;
};

/// Writes the bytes one at a time as characters; an empty array writes nothing.
std::ostream& operator<<(std::ostream& out, const ZnByteArray& array);

#endif // ZNUTIL_ZNBYTEARRAY_H
