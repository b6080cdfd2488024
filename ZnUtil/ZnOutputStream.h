// The abstract byte sink of the library, with its text insertion operators.
#ifndef ZNUTIL_ZNOUTPUTSTREAM_H
#define ZNUTIL_ZNOUTPUTSTREAM_H

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObservable.h"

class ZnString;

/// A stream of bytes to write. One byte write is the pure operation; the block write and the
/// formatted insertion operators are built on it. Every object prints itself on one.
/// Thread safety: a stream is used by one thread at a time, or guarded by its owner.
class ZnOutputStream : public ZnObservable
{
public:
    ZnOutputStream();
    ~ZnOutputStream() override;

    /// Writes \p aLength bytes from \p aBuffer + \p aOffset; a null buffer or a length of 0 does
    /// nothing. Here: one write(int) per byte.
    virtual void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset);

    /// Writes one byte.
    virtual void write(int aByte) = 0;

    /// Pushes buffered bytes on; does nothing here.
    virtual void flush();

    /// Writes \p aArray from \p aOffset; a length of 0, or one past the array's end, means up to
    /// the end of the array. Note the order (array, offset, length). A null array writes nothing.
    void write(ZnByteArray* aArray, unsigned int aOffset, unsigned int aLength);

    /// The characters up to the terminator, in one block write; a null pointer writes nothing.
    ZnOutputStream& operator<<(char const* aText);
    ZnOutputStream& operator<<(unsigned char const* aText);
    /// One byte.
    ZnOutputStream& operator<<(char aByte);
    ZnOutputStream& operator<<(unsigned char aByte);
    /// Decimal text ("%d").
    ZnOutputStream& operator<<(short aValue);
    ZnOutputStream& operator<<(int aValue);
    ZnOutputStream& operator<<(long aValue);
    /// Decimal text ("%u").
    ZnOutputStream& operator<<(unsigned short aValue);
    ZnOutputStream& operator<<(unsigned int aValue);
    ZnOutputStream& operator<<(unsigned long aValue);
    /// "%f".
    ZnOutputStream& operator<<(double aValue);
    ZnOutputStream& operator<<(float aValue);
    /// Eight upper-case hexadecimal digits of the low 32 bits ("%08lX").
    ZnOutputStream& operator<<(void const* aPointer);
    /// A manipulator: calls \p aManipulator with this stream.
    ZnOutputStream& operator<<(ZnOutputStream& (*aManipulator)(ZnOutputStream&));

    /// The process's default output stream, made on first use over descriptor 1.
    static ZnOutputStream& sGetDefault();

    /// Makes \p aStream the default.
    /// \return the previous default, nil if none was made yet.
    static ZnHandle<ZnOutputStream> sSetDefault(ZnOutputStream& aStream);

private:
    /// Writes a formatted number, for the insertion operators.
    void writeText(const char* aText, int aLength);
};

/// Calls flush() on \p aOut.
ZnOutputStream& flush(ZnOutputStream& aOut);

/// Writes a line feed (10), then flushes.
ZnOutputStream& endl(ZnOutputStream& aOut);

/// The string's characters; a nil string writes nothing.
ZnOutputStream& operator<<(ZnOutputStream& aOut, ZnString const& aText);

#endif // ZNUTIL_ZNOUTPUTSTREAM_H
