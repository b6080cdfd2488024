// An input stream over a standard library input stream.
#ifndef ZNUTIL_ZNCPPINPUTSTREAM_H
#define ZNUTIL_ZNCPPINPUTSTREAM_H

#include "ZnUtil/ZnInputStream.h"

#include <istream>

/// Reads a std::istream through the library's stream interface. Block reads take what the
/// wrapped buffer holds, waiting for at most one byte when it holds nothing.
///
/// Ownership: the wrapped stream is referenced, not owned; it must outlive this object.
/// Thread safety: none of its own; one thread at a time, or guarded by the owner.
class ZnCppInputStream : public ZnInputStream
{
public:
    /// Reads \p aIn, which stays the caller's.
    explicit ZnCppInputStream(std::istream& aIn);
    ~ZnCppInputStream() override;

    using ZnInputStream::read;

    /// Reads into \p aBuffer + \p aOffset what the wrapped buffer holds, up to \p aLength; when
    /// it holds nothing, one byte is read first (which may wait) and then what has come in.
    /// \return the bytes read (0 for a length of 0), or 0xFFFFFFFF at end of stream.
    unsigned int read(void* aBuffer, unsigned int aLength, unsigned int aOffset) override;

    /// \return the next character as 0 to 255, or -1 at end of stream.
    int read() override;

    /// \return the characters the wrapped buffer holds (its in_avail), 0 when it knows of none.
    unsigned int available() override;

    /// Waits for one character when none is buffered, then notifies the observer with a nil
    /// argument, in every case.
    /// \return false when the wrapped stream has ended, else true.
    bool block() override;

private:
    ZnCppInputStream(const ZnCppInputStream&) = delete;
    ZnCppInputStream& operator=(const ZnCppInputStream&) = delete;

    /// in_avail of the wrapped buffer; -1 ("nothing more will come") and a missing buffer
    /// count as 0.
    std::streamsize buffered() const;

    std::istream& m_in;
};

#endif // ZNUTIL_ZNCPPINPUTSTREAM_H
