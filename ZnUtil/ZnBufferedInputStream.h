// A buffered reader with mark and reset, whose buffer policy is made for socket sources.
#ifndef ZNUTIL_ZNBUFFEREDINPUTSTREAM_H
#define ZNUTIL_ZNBUFFEREDINPUTSTREAM_H

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInputStream.h"

/// Reads its source in pieces of at least 8192 bytes into one counted buffer, and hands the bytes
/// out from there. Stream sockets cut their messages out of this very buffer.
///
/// The buffer grows when a fill finds too little room: by 8192 bytes at first, later by a
/// sixteenth of its capacity, at most 49152 bytes, and always by at least what the fill asks for.
/// Consumed bytes are dropped lazily, only when all have been consumed or more than 8192 lie dead
/// in front. A buffer array that someone else holds as well is never filled again: the next fill
/// reads into a fresh copy.
///
/// Ownership: the stream holds a reference on its source and on its buffer.
/// Thread safety: none; one thread drives a stream.
class ZnBufferedInputStream : public ZnInputStream
{
public:
    /// A stream over \p aSource; takes a reference on it.
    /// \param aSize the buffer's first capacity; with 0 the buffer is made by the first fill.
    ZnBufferedInputStream(ZnInputStream* aSource, unsigned int aSize);
    ~ZnBufferedInputStream() override;

    /// Hands out up to \p aLength buffered bytes to \p aBuffer + \p aOffset, filling the buffer
    /// first when it holds fewer.
    /// \return bytes copied, which may be fewer than asked; or 0xFFFFFFFF when the buffer was
    /// empty and the source is at its end.
    /// \throws what the source's read throws.
    unsigned int read(void* aBuffer, unsigned int aLength, unsigned int aOffset) override;

    /// One byte, filling the buffer first when it is empty.
    /// \return the byte as 0 to 255, or -1 at end of stream. A fill of 0 bytes from a
    /// non-blocking source is not the end: check available() first with such a source.
    int read() override;

    /// Drops \p aCount bytes: buffered ones first, the rest through the source's skip().
    /// \return the bytes skipped. A mark is not considered.
    unsigned int skip(unsigned int aCount) override;

    /// \return the buffered bytes not yet read; the source is not asked.
    unsigned int available() override;

    /// \return true.
    bool markSupported() override;

    /// Remembers the position for one reset(). The mark stays valid while no more than
    /// \p aLimit bytes are read past it before the next fill; a limit of 0 sets no mark.
    void mark(unsigned int aLimit) override;

    /// Goes back to the mark, which is then used up.
    /// \throws ZnHandle<ZnException> "mark limit exceeded" without a valid mark.
    void reset() override;

    using ZnInputStream::read;

    // block() and onNotification() keep the defaults of ZnObservable here.
    // The message framing of stream sockets overrides these later.

    /// One read from the source into the buffer, at least 8192 bytes and at least \p aMinimum
    /// asked for, after dropping consumed bytes and growing the buffer as needed.
    /// \return the source's result: the bytes read, 0 from a non-blocking source with nothing
    /// to give, or 0xFFFFFFFF at end of stream.
    /// \throws what the source's read throws.
    unsigned int readIntoBuffer(unsigned int aMinimum);

    /// The source, held counted.
    ZnHandle<ZnInputStream> getInputStream() const { return m_source; }

    /// The first byte of the buffer, or null while there is no buffer. The pointer lasts until
    /// the next fill, which may replace the buffer.
    unsigned char* getBuffer() const;

private:
    ZnBufferedInputStream(const ZnBufferedInputStream&) = delete;
    ZnBufferedInputStream& operator=(const ZnBufferedInputStream&) = delete;

    /// Nil until needed; its length is the capacity.
    ZnHandle<ZnByteArray> m_buffer;
    /// Next index to be consumed; at most m_count.
    unsigned int m_position;
    /// One past the last valid byte; at most the capacity.
    unsigned int m_count;
    unsigned int m_markPosition;
    /// 0: no valid mark.
    unsigned int m_markLimit;
    ZnHandle<ZnInputStream> m_source;
    // The state of the message framing of stream sockets; all zero until it comes.
    [[maybe_unused]] unsigned int m_bodyStart;
    [[maybe_unused]] unsigned int m_contentLength;
    [[maybe_unused]] bool m_bContentLengthFound;
};

#endif // ZNUTIL_ZNBUFFEREDINPUTSTREAM_H
