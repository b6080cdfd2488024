// An output stream that collects what is written in a growing ZnByteArray.
#ifndef ZNUTIL_ZNBYTEARRAYOUTPUTSTREAM_H
#define ZNUTIL_ZNBYTEARRAYOUTPUTSTREAM_H

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnOutputStream.h"

/// Collects written bytes in memory, for message assembly.
///
/// The store is a ZnByteArray whose length is the capacity; it is made on the first write that
/// needs it and grows additively, by the length of the overflowing write rounded up to the next
/// multiple of 256 (a full 256 more when the length already is one). A store that another handle
/// shares is never written: the next write goes to a fresh copy.
/// Ownership: the stream holds its store; toByteArray() hands out copies.
/// Thread safety: none of its own; one thread at a time, or guarded by the owner.
class ZnByteArrayOutputStream : public ZnOutputStream
{
public:
    /// A stream with a store of \p aCapacity bytes; none is made for 0.
    explicit ZnByteArrayOutputStream(unsigned int aCapacity = 0);
    ~ZnByteArrayOutputStream() override;

    using ZnOutputStream::write;

    /// Appends \p aLength bytes from \p aBuffer + \p aOffset, growing the store when they do not
    /// fit. A length of 0 or a null buffer writes nothing. Traced on the logger
    /// "corvane.zn.ZnByteArrayOutputStream", with the capacity figures at debug level.
    void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset) override;

    /// Appends one byte, the low 8 bits of \p aByte.
    void write(int aByte) override;

    /// Forgets what was written; the store and its capacity stay.
    void reset();

    /// \return the number of bytes written since construction or the last reset().
    unsigned int size() const;

    /// Writes the collected bytes to \p aOut with one array write; nothing when there are none.
    /// \param aOut the target; no reference is taken.
    void writeTo(ZnOutputStream* aOut);

    /// A new array holding a copy of the collected bytes. A stream without a store gives an empty
    /// array; a stream that has a store but holds no bytes gives a copy of the whole store.
    ZnHandle<ZnByteArray> toByteArray() const;

protected:
    /// The store, nil until needed; subclasses may read it and even share it, since a shared
    /// store is never written again.
    ZnHandle<ZnByteArray> m_store;
    /// Bytes written so far.
    unsigned int m_count;
};

#endif // ZNUTIL_ZNBYTEARRAYOUTPUTSTREAM_H
