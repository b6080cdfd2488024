// An output stream that keeps what another thread writes to it, for tests to read back.
#ifndef ZNUTIL_TESTS_LOCKEDRECORDINGSTREAM_H
#define ZNUTIL_TESTS_LOCKEDRECORDINGSTREAM_H

#include "ZnUtil/ZnOutputStream.h"

#include <mutex>
#include <string>

namespace ZnTest
{

/// Keeps the text written to it and counts the flushes. Thread safe: everything is done under
/// its lock, as the writer is another thread than the reader.
class LockedRecordingStream : public ZnOutputStream
{
public:
    using ZnOutputStream::write;

    void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (aBuffer != nullptr)
        {
            m_text.append(static_cast<const char*>(aBuffer) + aOffset, aLength);
        }
    }

    void write(int aByte) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_text.push_back(static_cast<char>(aByte));
    }

    void flush() override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_flushes;
    }

    std::string text() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_text;
    }

    int flushes() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_flushes;
    }

private:
    mutable std::mutex m_mutex;
    std::string m_text; // guarded by m_mutex
    int m_flushes = 0;  // guarded by m_mutex
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_LOCKEDRECORDINGSTREAM_H
