// An output stream that swallows everything.
#ifndef ZNUTIL_ZNOUTPUTSINK_H
#define ZNUTIL_ZNOUTPUTSINK_H

#include "ZnUtil/ZnOutputStream.h"

/// Everything written to it disappears. One process-wide instance exists, made when the library
/// is loaded; the error stream hands it out for debug output that is switched off.
class ZnOutputSink : public ZnOutputStream
{
public:
    ZnOutputSink();
    ~ZnOutputSink() override;

    void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset) override;
    void write(int aByte) override;
    void flush() override;
    using ZnOutputStream::write;

    /// The process-wide sink.
    static ZnOutputSink& sGetInstance();
};

#endif // ZNUTIL_ZNOUTPUTSINK_H
