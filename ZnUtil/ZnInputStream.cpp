#include "ZnUtil/ZnInputStream.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"

#include <algorithm>

namespace
{

const unsigned int kEndOfStream = 0xFFFFFFFFu;
const unsigned int kSkipChunk = 64;

} // namespace

ZnInputStream::ZnInputStream() = default;

ZnInputStream::~ZnInputStream() = default;

unsigned int ZnInputStream::read(void* aBuffer, unsigned int aLength, unsigned int aOffset)
{
    unsigned char* cursor = static_cast<unsigned char*>(aBuffer) + aOffset;
    unsigned int count = 0;
    try
    {
        while (count < aLength)
        {
            const int byte = read();
            if (byte == -1)
            {
                return count > 0 ? count : kEndOfStream;
            }
            *cursor++ = static_cast<unsigned char>(byte);
            ++count;
        }
    }
    catch (ZnHandle<ZnException>& e)
    {
        // Every failure caught is reported. Bytes already stored are then delivered and the
        // failure is dropped; with none stored it goes on to the caller.
        ZnOutputStream& debug =
            ZnErrorStream::sGetDefault().getDebugStream(ZnException::sDebugToken, 0);
        debug << "catch exception in ZnInputStream::read(): " << e->getMessage() << "\n";
        debug.flush();
        if (count == 0)
        {
            throw;
        }
    }
    return count;
}

unsigned int ZnInputStream::skip(unsigned int aCount)
{
    if (aCount == 0)
    {
        return 0;
    }
    unsigned char scratch[kSkipChunk];
    unsigned int skipped = 0;
    while (skipped < aCount)
    {
        const unsigned int wanted = std::min(kSkipChunk, aCount - skipped);
        const unsigned int got = read(scratch, wanted, 0);
        if (got == kEndOfStream)
        {
            break;
        }
        skipped += got;
    }
    return skipped;
}

unsigned int ZnInputStream::available()
{
    return 0;
}

bool ZnInputStream::markSupported()
{
    return false;
}

void ZnInputStream::mark(unsigned int) {}

void ZnInputStream::reset()
{
    ZnAssertionFailure::sThrow("ZnInputStream::reset()", "ZnInputStream", __LINE__, ZN_COMPILED);
}

unsigned int ZnInputStream::read(ZnHandle<ZnByteArray> aArray, unsigned int aOffset,
                                 unsigned int aLength)
{
    const unsigned int arrayLength = aArray->length();
    if (aLength == 0 || aOffset > arrayLength || aLength > arrayLength - aOffset)
    {
        aLength = aOffset <= arrayLength ? arrayLength - aOffset : 0;
    }
    return read(aArray->rawBytes(), aLength, aOffset);
}
