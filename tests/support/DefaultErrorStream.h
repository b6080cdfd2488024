// Makes a stream of the test's the default error stream for a while.
#ifndef ZNUTIL_TESTS_DEFAULTERRORSTREAM_H
#define ZNUTIL_TESTS_DEFAULTERRORSTREAM_H

#include "ZnUtil/ZnErrorStream.h"

namespace ZnTest
{

/// Makes a stream the default error stream for the life of the object, then puts the previous
/// one back and deletes the stream, which it owns.
class DefaultErrorStreamScope
{
public:
    explicit DefaultErrorStreamScope(ZnErrorStream* stream)
        : m_stream(stream), m_previous(ZnErrorStream::sSetDefault(stream))
    {
    }
    ~DefaultErrorStreamScope()
    {
        ZnErrorStream::sSetDefault(m_previous);
        delete m_stream;
    }

    DefaultErrorStreamScope(const DefaultErrorStreamScope&) = delete;
    DefaultErrorStreamScope& operator=(const DefaultErrorStreamScope&) = delete;

    ZnErrorStream* get() const { return m_stream; }

private:
    ZnErrorStream* m_stream;
    ZnErrorStream* m_previous;
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_DEFAULTERRORSTREAM_H
