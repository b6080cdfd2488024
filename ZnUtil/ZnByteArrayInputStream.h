// An input stream that reads a window of a ZnByteArray.
#ifndef ZNUTIL_ZNBYTEARRAYINPUTSTREAM_H
#define ZNUTIL_ZNBYTEARRAYINPUTSTREAM_H

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInputStream.h"

/// Reads the bytes of a ZnByteArray from a start offset up to an end index, with mark and reset.
///
/// Ownership: the stream holds the array through a counted handle, so the array lives at least as
/// long as the stream; the array is never written through it.
/// Thread safety: none of its own; one thread at a time, or guarded by the owner.
class ZnByteArrayInputStream : public ZnInputStream
{
public:
    /// Reads \p aArray from \p aOffset for \p aLength bytes. A nil array gives an empty stream;
    /// a length of 0, or one that would pass the array's end, reads up to the array's end.
    /// \param aArray the array to read; a reference is taken, null is allowed.
    explicit ZnByteArrayInputStream(ZnByteArray const* aArray, unsigned int aOffset = 0,
                                    unsigned int aLength = 0);
    ~ZnByteArrayInputStream() override;

    using ZnInputStream::read;

    /// Copies up to \p aLength bytes to \p aBuffer + \p aOffset and advances.
    /// \return the bytes copied (0 for a length of 0 before the end), or 0xFFFFFFFF when the
    /// position has reached the end, whatever the length.
    unsigned int read(void* aBuffer, unsigned int aLength, unsigned int aOffset) override;

    /// \return the next byte as 0 to 255, or -1 at the end.
    int read() override;

    /// Advances by up to \p aCount bytes.
    /// \return the number skipped, 0 at the end.
    unsigned int skip(unsigned int aCount) override;

    /// \return the bytes left before the end.
    unsigned int available() override;

    /// \return true.
    bool markSupported() override;

    /// Remembers the position; \p aLimit is ignored, as nothing is ever dropped.
    void mark(unsigned int aLimit) override;

    /// Goes back to the mark, or to index 0 of the array when no mark was set.
    void reset() override;

private:
    ZnHandle<ZnByteArray> m_array;
    unsigned int m_position; // next index to read
    unsigned int m_end;      // one past the last readable index
    unsigned int m_mark;     // position saved by mark(); 0 until then
};

#endif // ZNUTIL_ZNBYTEARRAYINPUTSTREAM_H
