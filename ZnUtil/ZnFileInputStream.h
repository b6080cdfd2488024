// An input stream on a file descriptor, with a process-wide record of the descriptors read.
#ifndef ZNUTIL_ZNFILEINPUTSTREAM_H
#define ZNUTIL_ZNFILEINPUTSTREAM_H

#include "ZnUtil/ZnInputStream.h"

#include <sys/types.h>

/// Reads a file, pipe or terminal through its descriptor.
///
/// Every stream enters its descriptor in a process-wide record, so that sShutdown() can close
/// them all at process end. Mark, reset and seeking skip work when the descriptor was seekable at
/// construction; elsewhere skip reads and discards.
/// Ownership: a stream made from a path opened the file and closes it (and leaves the record) at
/// destruction; a stream made on a descriptor closes nothing and stays in the record.
/// Thread safety: a stream is used by one thread at a time; the record is guarded by the
/// process-wide ZnCriticalSection, so streams may be made and destroyed on any thread.
class ZnFileInputStream : public ZnInputStream
{
public:
    /// Reads \p aDescriptor, which stays the caller's. Nothing is checked: a bad descriptor
    /// shows on the first read.
    explicit ZnFileInputStream(int aDescriptor);

    /// Opens \p aPath read-only; the stream owns the descriptor.
    /// \throws ZnHandle<ZnException>: a ZnAssertionFailure "filename expected" for a null path; a
    /// ZnSystemError whose text is the path when the file cannot be opened.
    explicit ZnFileInputStream(char const* aPath);

    /// An owned stream leaves the record and closes its descriptor; others do neither.
    ~ZnFileInputStream() override;

    using ZnInputStream::read;

    /// Reads once from the descriptor into \p aBuffer + \p aOffset.
    /// \return the count the system gave, or 0xFFFFFFFF both at end of file and when the read
    /// failed.
    /// \throws ZnHandle<ZnException> (a ZnSystemError "ZnFileInputStream::read") when exactly one
    /// byte came back.
    unsigned int read(void* aBuffer, unsigned int aLength, unsigned int aOffset) override;

    /// \return the next byte as 0 to 255, or -1 at end of file.
    /// \throws ZnHandle<ZnException> (a ZnSystemError "ZnFileInputStream::read") when the read
    /// fails.
    int read() override;

    /// Seeks forward by \p aCount when seekable (past the end too), else reads and discards.
    /// \return the number skipped; a seek past the end counts in full.
    /// \throws ZnHandle<ZnException> (a ZnSystemError "ZnFileInputStream::skip") when a seek fails.
    unsigned int skip(unsigned int aCount) override;

    /// \return whether the descriptor was seekable at construction.
    bool markSupported() override;

    /// Remembers the file position when seekable; does nothing otherwise. \p aLimit is ignored.
    /// \throws ZnHandle<ZnException> (a ZnSystemError "ZnFileInputStream::mark") when the
    /// position cannot be read.
    void mark(unsigned int aLimit) override;

    /// Seeks back to the mark and forgets it, when seekable and marked; nothing otherwise.
    /// \throws ZnHandle<ZnException> (a ZnSystemError "ZnFileInputStream::reset") when the seek
    /// fails.
    void reset() override;

    /// Notifies the observer with a nil argument.
    /// \return true.
    /// \throws ZnHandle<ZnException> "ZnFileInputStream::block implementation pending" when the
    /// descriptor is not seekable.
    bool block() override;

    /// Closes every recorded descriptor; the record keeps them, and their streams stay usable
    /// objects whose reads then fail.
    static void sShutdown();

private:
    ZnFileInputStream(const ZnFileInputStream&) = delete;
    ZnFileInputStream& operator=(const ZnFileInputStream&) = delete;

    /// Tests seekability and enters the descriptor in the record.
    void enterInRecord();

    int m_fd;
    off_t m_markPosition; // a full file offset, so that marks past 4 GiB come back right
    bool m_markSet;
    bool m_seekable;
    bool m_owned;
};

#endif // ZNUTIL_ZNFILEINPUTSTREAM_H
