// An output stream that appends to a string, for tests to read back what was printed.
#ifndef ZNUTIL_TESTS_STRINGOUTPUTSTREAM_H
#define ZNUTIL_TESTS_STRINGOUTPUTSTREAM_H

#include "ZnUtil/ZnOutputStream.h"

#include <string>

namespace ZnTest
{

/// Appends every byte to a string and counts flushes; it also notes whether anything was written
/// after the last flush. Not thread safe.
class StringOutputStream : public ZnOutputStream
{
public:
    using ZnOutputStream::write;

    void write(int aByte) override
    {
        text.push_back(static_cast<char>(aByte));
        writtenSinceFlush = true;
    }
    void flush() override
    {
        ++flushes;
        writtenSinceFlush = false;
    }

    std::string text;
    int flushes = 0;
    bool writtenSinceFlush = false;
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_STRINGOUTPUTSTREAM_H
