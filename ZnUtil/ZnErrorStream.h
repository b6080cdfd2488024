// The library's debug channel: an output stream with a debug level and named debug modes.
#ifndef ZNUTIL_ZNERRORSTREAM_H
#define ZNUTIL_ZNERRORSTREAM_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnString.h"

#include <cstddef>

class ZnKeyTable;
class ZnMutex;

/// Writes to a destination stream, or to the standard error stream when it has none, and decides
/// who hears debug output: getDebugStream() gives out a real stream or the shared ZnOutputSink,
/// so that code writes its reports unconditionally and the filtering costs only that choice.
///
/// A request of a level passes when the level is below the debug level (3 at construction); a
/// keyed request needs its key switched on as well. Debug modes are the switched-on keys, such as
/// ZnException::sDebugToken.
///
/// Ownership: the stream holds a reference on its destination. The default instance is a plain
/// pointer: whoever replaces it with sSetDefault owns the one given back.
/// Thread safety: level and modes are read without a lock, and the modes' table has locks of its
/// own. The stream does not lock by itself: a writer that wants its lines kept together brackets
/// them with synchronize() and release(). That is no guard for someone who writes to the
/// destination directly.
class ZnErrorStream : public ZnOutputStream
{
public:
    /// A stream on \p aDestination, or on the standard error stream for null; takes a reference
    /// on the destination.
    explicit ZnErrorStream(ZnOutputStream* aDestination = nullptr);
    ~ZnErrorStream() override;

    /// Passes the block on to the destination's block write with the same arguments, else writes
    /// \p aLength bytes from \p aBuffer + \p aOffset to the standard error stream (a null buffer
    /// writes nothing there).
    void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset) override;

    /// Passes the byte on to the destination, else puts it on the standard error stream.
    void write(int aByte) override;

    /// Flushes the destination, else the standard error stream.
    void flush() override;

    /// Writes the characters of \p aText and its terminating zero byte, to the destination with
    /// one block write at offset 0, else to the standard error stream. A null text writes nothing.
    virtual void write(char const* aText);

    using ZnOutputStream::write;

    /// The default instance, made on first use without a destination.
    static ZnErrorStream& sGetDefault();

    /// Makes \p aStream the default instance. Unguarded: a start-up operation.
    /// \return the previous default, null if none was made yet; the caller owns it.
    static ZnErrorStream* sSetDefault(ZnErrorStream* aStream);

    unsigned int getDebugLevel() const { return m_debugLevel; }
    void setDebugLevel(unsigned int aLevel) { m_debugLevel = aLevel; }

    /// \return whether \p aLevel is below the debug level.
    bool checkDebugLevel(unsigned int aLevel) const { return aLevel < m_debugLevel; }

    /// \return whether \p aLevel is below the debug level and \p aKey is switched on.
    bool checkDebugMode(ZnString const& aKey, unsigned int aLevel) const;

    /// Switches \p aKey on.
    /// \throws ZnHandle<ZnException> "NULL key value (ZnStringBuffer*)" for a nil or empty key.
    void setDebugMode(ZnString const& aKey);

    /// Switches \p aKey off; an unknown key is ignored.
    void clearDebugMode(ZnString const& aKey);

    /// \return the shared sink when \p aLevel is not below the debug level; otherwise the
    /// destination itself if there is one, else this stream.
    ZnOutputStream& getDebugStream(unsigned int aLevel);

    /// As getDebugStream(aLevel), with the sink also when \p aKey is not switched on.
    ZnOutputStream& getDebugStream(ZnString const& aKey, unsigned int aLevel);

    /// Takes the stream's lock, so that a writer keeps a multi-part message together.
    void synchronize();
    /// Gives the lock of synchronize() back.
    void release();

    /// "ZnErrorStream".
    static const char* getMemAccountName() { return "ZnErrorStream"; }

    static void* operator new(size_t size);
    /// Sized, so that a derived stream gives back the size it was allocated with.
    static void operator delete(void* p, size_t size);
    static void* operator new[](size_t size);
    static void operator delete[](void* p);

private:
    ZnErrorStream(const ZnErrorStream&) = delete;
    ZnErrorStream& operator=(const ZnErrorStream&) = delete;

    /// A request passes when its level is below this figure.
    unsigned int m_debugLevel;
    /// The keys switched on.
    ZnHandle<ZnKeyTable> m_debugModes;
    /// Nil: the standard error stream.
    ZnHandle<ZnOutputStream> m_destination;
    /// From ZnMutex::sAllocate; taken only by synchronize().
    ZnMutex* m_pMutex;
};

#endif // ZNUTIL_ZNERRORSTREAM_H
