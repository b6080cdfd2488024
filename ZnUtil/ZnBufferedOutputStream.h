// A writer that collects bytes in a fixed buffer and passes them on in blocks.
#ifndef ZNUTIL_ZNBUFFEREDOUTPUTSTREAM_H
#define ZNUTIL_ZNBUFFEREDOUTPUTSTREAM_H

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnOutputStream.h"

/// Holds written bytes in a buffer of fixed size and writes them to its destination in one block
/// when the buffer is full or flush() is called. A block too large for the buffer goes to the
/// destination directly, after what is held, so that the order of bytes is kept.
///
/// flush() does not flush the destination, and the destructor does not flush: what is still held
/// when the stream goes is lost.
/// Ownership: the stream holds a reference on its destination.
/// Thread safety: none; one thread writes to a stream.
class ZnBufferedOutputStream : public ZnOutputStream
{
public:
    /// A stream over \p aDestination with a buffer of \p aSize bytes; takes a reference on the
    /// destination.
    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure "No buffer in
    /// ZnBufferedOutputStream") when no buffer results, as for a size of 0.
    ZnBufferedOutputStream(ZnOutputStream* aDestination, unsigned int aSize);
    /// Drops what is held, unwritten.
    ~ZnBufferedOutputStream() override;

    /// Stores \p aLength bytes from \p aBuffer + \p aOffset, flushing first when they do not fit
    /// in the free space. A block longer than the whole buffer then goes straight to the
    /// destination's block write. A null buffer writes nothing.
    /// \throws what the destination's write throws.
    void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset) override;

    /// Stores one byte, flushing first when the buffer is full.
    /// \throws what the destination's write throws.
    void write(int aByte) override;

    /// Writes what is held to the destination in one block write, also when nothing is held, and
    /// empties the buffer. The destination itself is not flushed.
    /// \throws what the destination's write throws.
    void flush() override;

    using ZnOutputStream::write;

private:
    ZnBufferedOutputStream(const ZnBufferedOutputStream&) = delete;
    ZnBufferedOutputStream& operator=(const ZnBufferedOutputStream&) = delete;

    /// Fixed length, made at construction.
    ZnHandle<ZnByteArray> m_buffer;
    /// Bytes held.
    unsigned int m_count;
    ZnHandle<ZnOutputStream> m_destination;
};

#endif // ZNUTIL_ZNBUFFEREDOUTPUTSTREAM_H
