#include "ZnUtil/ZnFileInputStream.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnCriticalSection.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnSystemError.h"

#include <cerrno>
#include <set>

#include <fcntl.h>
#include <unistd.h>

namespace
{

const unsigned int kEndOfStream = 0xFFFFFFFFu;

/// The descriptors entered by streams; guarded by the process-wide ZnCriticalSection. Made on
/// first use and never destroyed, so that streams destroyed during exit can still reach it.
std::set<int>& record()
{
    static std::set<int>* const s_record = new std::set<int>;
    return *s_record;
}

/// Holds the process-wide ZnCriticalSection for a scope.
class ProcessLock
{
public:
    ProcessLock() { ZnCriticalSection::sEnter(); }
    ~ProcessLock() { ZnCriticalSection::sLeave(); }
    ProcessLock(const ProcessLock&) = delete;
    ProcessLock& operator=(const ProcessLock&) = delete;
};

/// read(2), started again when a signal interrupts it before anything was read: an interrupted
/// call is not a failure of the descriptor.
ssize_t readRetryingInterrupts(int aFd, void* aBuffer, size_t aLength)
{
    ssize_t result;
    do
    {
        result = ::read(aFd, aBuffer, aLength);
    } while (result == -1 && errno == EINTR);
    return result;
}

} // namespace

ZnFileInputStream::ZnFileInputStream(int aDescriptor)
    : m_fd(aDescriptor), m_markPosition(0), m_markSet(false), m_seekable(false), m_owned(false)
{
    enterInRecord();
}

ZnFileInputStream::ZnFileInputStream(char const* aPath)
    : m_fd(-1), m_markPosition(0), m_markSet(false), m_seekable(false), m_owned(true)
{
    if (aPath == nullptr)
    {
        ZnAssertionFailure::sThrow("filename expected", "ZnFileInputStream", __LINE__, ZN_COMPILED);
    }
    // O_CLOEXEC: a descriptor the library opened for itself is not handed to programs the host
    // starts. There is no binary mode to ask for here.
    m_fd = ::open(aPath, O_RDONLY | O_CLOEXEC);
    if (m_fd == -1)
    {
        ZnSystemError::sThrow(aPath, 0);
    }
    try
    {
        enterInRecord();
    }
    catch (...)
    {
        // No destructor runs for a constructor that throws: the descriptor is closed here.
        ::close(m_fd);
        throw;
    }
}

ZnFileInputStream::~ZnFileInputStream()
{
    // Intended: a stream on a caller's descriptor stays in the record after it is gone.
    if (m_owned)
    {
        ProcessLock lock;
        record().erase(m_fd);
        ::close(m_fd);
    }
}

void ZnFileInputStream::enterInRecord()
{
    m_seekable = ::lseek(m_fd, 0, SEEK_CUR) != -1;
    ProcessLock lock;
    record().insert(m_fd);
}

unsigned int ZnFileInputStream::read(void* aBuffer, unsigned int aLength, unsigned int aOffset)
{
    const ssize_t result =
        readRetryingInterrupts(m_fd, static_cast<unsigned char*>(aBuffer) + aOffset, aLength);
    if (result == 0)
    {
        return kEndOfStream;
    }
    // Intended: a failed read comes back as -1, that is end of stream, and a single byte is
    // what raises.
    if (result == 1)
    {
        ZnSystemError::sThrow("ZnFileInputStream::read", 0);
    }
    return static_cast<unsigned int>(result);
}

int ZnFileInputStream::read()
{
    unsigned char byte = 0;
    const ssize_t result = readRetryingInterrupts(m_fd, &byte, 1);
    if (result == -1)
    {
        ZnSystemError::sThrow("ZnFileInputStream::read", 0);
    }
    if (result == 0)
    {
        return -1;
    }
    return byte;
}

unsigned int ZnFileInputStream::skip(unsigned int aCount)
{
    if (!m_seekable)
    {
        return ZnInputStream::skip(aCount);
    }
    const off_t from = ::lseek(m_fd, 0, SEEK_CUR);
    if (from == -1)
    {
        ZnSystemError::sThrow("ZnFileInputStream::skip", 0);
    }
    const off_t to = ::lseek(m_fd, static_cast<off_t>(aCount), SEEK_CUR);
    if (to == -1)
    {
        ZnSystemError::sThrow("ZnFileInputStream::skip", 0);
    }
    return static_cast<unsigned int>(to - from);
}

bool ZnFileInputStream::markSupported()
{
    return m_seekable;
}

void ZnFileInputStream::mark(unsigned int)
{
    if (!m_seekable)
    {
        return;
    }
    m_markSet = true;
    m_markPosition = ::lseek(m_fd, 0, SEEK_CUR);
    if (m_markPosition == -1)
    {
        ZnSystemError::sThrow("ZnFileInputStream::mark", 0);
    }
}

void ZnFileInputStream::reset()
{
    if (!m_seekable || !m_markSet)
    {
        return;
    }
    if (::lseek(m_fd, m_markPosition, SEEK_SET) == -1)
    {
        ZnSystemError::sThrow("ZnFileInputStream::reset", 0);
    }
    m_markSet = false;
}

bool ZnFileInputStream::block()
{
    if (!m_seekable)
    {
        ZnException::sThrow("ZnFileInputStream::block implementation pending");
    }
    notifyObservers(ZnHandle<ZnObject>());
    return true;
}

void ZnFileInputStream::sShutdown()
{
    // close() alone does not wake a thread blocked in read() on a pipe or terminal here; what it
    // gives is that every later read fails.
    ProcessLock lock;
    for (const int fd : record())
    {
        ::close(fd);
    }
}
