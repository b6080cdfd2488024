#include "ZnUtil/ZnFileOutputStream.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnSystemError.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

ZnFileOutputStream::ZnFileOutputStream(int aDescriptor) : m_fd(aDescriptor), m_owned(false) {}

ZnFileOutputStream::ZnFileOutputStream(char const* aPath) : m_fd(-1), m_owned(true)
{
    if (aPath == nullptr)
    {
        ZnAssertionFailure::sThrow("filename expected", "ZnFileOutputStream", __LINE__,
                                   ZN_COMPILED);
    }
    // O_CLOEXEC: a descriptor the library opened for itself is not handed to programs the host
    // starts. There is no binary mode to ask for here.
    m_fd = ::open(aPath, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_fd == -1)
    {
        ZnSystemError::sThrow(aPath, 0);
    }
}

ZnFileOutputStream::~ZnFileOutputStream()
{
    if (m_owned)
    {
        ::close(m_fd);
    }
}

void ZnFileOutputStream::write(void const* aBuffer, unsigned int aLength, unsigned int aOffset)
{
    const unsigned char* cursor = static_cast<const unsigned char*>(aBuffer) + aOffset;
    size_t remaining = aLength;
    while (remaining > 0)
    {
        const ssize_t written = ::write(m_fd, cursor, remaining);
        if (written == -1)
        {
            // Interrupted by a signal before anything went: not a failure, so the call is made
            // again.
            if (errno == EINTR)
            {
                continue;
            }
            ZnSystemError::sThrow("ZnFileOutputStream::write", 0);
        }
        cursor += written;
        remaining -= static_cast<size_t>(written);
    }
}

void ZnFileOutputStream::write(int aByte)
{
    const unsigned char byte = static_cast<unsigned char>(aByte);
    write(&byte, 1, 0);
}

void ZnFileOutputStream::empty(char const* aPath)
{
    if (aPath == nullptr)
    {
        ZnAssertionFailure::sThrow("filename expected", "ZnFileOutputStream", __LINE__,
                                   ZN_COMPILED);
    }
    const int fd = ::open(aPath, O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (fd == -1)
    {
        ZnSystemError::sThrow(aPath, 0);
    }
    // Intended: the previous descriptor is left open, and ownership does not change.
    m_fd = fd;
}
