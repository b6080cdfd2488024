// The abstract byte source of the library: one pure byte read, everything else built on it.
#ifndef ZNUTIL_ZNINPUTSTREAM_H
#define ZNUTIL_ZNINPUTSTREAM_H

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObservable.h"

/// A stream of bytes to read. Memory, files, sockets, buffers, the tokenizer and the parameter
/// parser all read through it. Every stream is an observable, so that it can sit in an observer
/// chain and report readiness with block().
///
/// Results: a block read gives the number of bytes read, or 0xFFFFFFFF at end of stream; read()
/// gives the byte as 0 to 255, or -1 at end of stream.
/// Thread safety: a stream is used by one thread at a time, or guarded by its owner.
class ZnInputStream : public ZnObservable
{
public:
    ZnInputStream();
    ~ZnInputStream() override;

    /// Reads up to \p aLength bytes into \p aBuffer + \p aOffset. Here: byte by byte with read().
    /// \return bytes read (0 for a length of 0), or 0xFFFFFFFF at end of stream.
    /// \throws what read() throws when it fails before the first byte.
    virtual unsigned int read(void* aBuffer, unsigned int aLength, unsigned int aOffset);

    /// Reads one byte.
    /// \return the byte as 0 to 255, or -1 at end of stream.
    virtual int read() = 0;

    /// Reads and drops up to \p aCount bytes.
    /// \return the number skipped.
    virtual unsigned int skip(unsigned int aCount);

    /// \return the bytes obtainable without blocking; 0 here.
    virtual unsigned int available();

    /// \return whether mark() and reset() work; false here.
    virtual bool markSupported();

    /// Remembers the position for reset(); does nothing here.
    virtual void mark(unsigned int aLimit);

    /// Goes back to the mark.
    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure "ZnInputStream::reset()") here.
    virtual void reset();

    /// Reads into \p aArray at \p aOffset; a length of 0, or one past the array's end, means up
    /// to the end of the array. Note the order (array, offset, length).
    /// \return as the virtual block read.
    unsigned int read(ZnHandle<ZnByteArray> aArray, unsigned int aOffset, unsigned int aLength);

    /// The process's default input stream, made on first use over descriptor 0.
    static ZnInputStream& sGetDefault();

    /// Makes \p aStream the default.
    /// \return the previous default, nil if none was made yet.
    static ZnHandle<ZnInputStream> sSetDefault(ZnInputStream& aStream);
};

#endif // ZNUTIL_ZNINPUTSTREAM_H
