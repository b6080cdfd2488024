// An output stream on a file descriptor, with no buffer of its own.
#ifndef ZNUTIL_ZNFILEOUTPUTSTREAM_H
#define ZNUTIL_ZNFILEOUTPUTSTREAM_H

#include "ZnUtil/ZnOutputStream.h"

/// Writes a file, pipe or terminal through its descriptor; every write goes straight to the
/// system, so flush() has nothing to do.
///
/// Ownership: a stream made from a path opened the file and closes it at destruction; a stream
/// made on a descriptor never closes it.
/// Thread safety: none of its own; one thread at a time, or guarded by the owner.
class ZnFileOutputStream : public ZnOutputStream
{
public:
    /// Writes \p aDescriptor, which stays the caller's.
    explicit ZnFileOutputStream(int aDescriptor);

    /// Opens \p aPath for reading and writing, creating it with mode 0600 when it is missing and
    /// keeping its content when it exists; the stream owns the descriptor.
    /// \throws ZnHandle<ZnException>: a ZnAssertionFailure "filename expected" for a null path; a
    /// ZnSystemError whose text is the path when the file cannot be opened.
    explicit ZnFileOutputStream(char const* aPath);

    /// Closes the descriptor when the stream owns it.
    ~ZnFileOutputStream() override;

    using ZnOutputStream::write;

    /// Writes all \p aLength bytes from \p aBuffer + \p aOffset, calling the system again after
    /// a partial write. A length of 0 does nothing.
    /// \throws ZnHandle<ZnException> (a ZnSystemError "ZnFileOutputStream::write") when a write
    /// fails.
    void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset) override;

    /// Writes one byte, the low 8 bits of \p aByte.
    /// \throws as the block write.
    void write(int aByte) override;

    /// Switches to a new descriptor on \p aPath, opened write-only and truncated; the file must
    /// exist. The previous descriptor is not closed and ownership does not change.
    /// \throws ZnHandle<ZnException>: a ZnAssertionFailure "filename expected" for a null path; a
    /// ZnSystemError whose text is the path when the file cannot be opened.
    void empty(char const* aPath);

private:
    ZnFileOutputStream(const ZnFileOutputStream&) = delete;
    ZnFileOutputStream& operator=(const ZnFileOutputStream&) = delete;

    int m_fd;
    bool m_owned;
};

#endif // ZNUTIL_ZNFILEOUTPUTSTREAM_H
