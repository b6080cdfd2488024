#include "ZnUtil/ZnFileInputStream.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnSystemError.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/Descriptors.h"
#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

const unsigned int kEnd = 0xFFFFFFFFu;

/// What \p action threw, or nil.
template <class Action>
ZnHandle<ZnException> thrownBy(Action&& action)
{
    try
    {
        action();
    }
    catch (ZnHandle<ZnException>& e)
    {
        return e;
    }
    return ZnHandle<ZnException>();
}

/// The message of \p e, "" when nil or without a message.
std::string messageOf(const ZnHandle<ZnException>& e)
{
    if (e.isNil() || e->getExceptionMessage() == nullptr)
    {
        return std::string();
    }
    return e->getExceptionMessage();
}

/// The errno recorded by \p e when it is a ZnSystemError, else -1.
int errNoOf(const ZnHandle<ZnException>& e)
{
    const ZnSystemError* systemError =
        dynamic_cast<const ZnSystemError*>(static_cast<ZnException*>(e));
    return systemError == nullptr ? -1 : systemError->getErrNo();
}

using ZnTest::descriptorsOn;
using ZnTest::isOpen;

/// A pipe whose ends the test closes as it likes; what is left open is closed at the end.
class Pipe
{
public:
    Pipe()
    {
        if (pipe(m_fds) != 0)
        {
            m_fds[0] = m_fds[1] = -1;
        }
    }
    ~Pipe()
    {
        closeRead();
        closeWrite();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int readEnd() const { return m_fds[0]; }
    int writeEnd() const { return m_fds[1]; }
    bool valid() const { return m_fds[0] != -1; }

    void put(const std::string& bytes) const
    {
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::write(m_fds[1], bytes.data(), bytes.size()));
    }
    void closeRead()
    {
        if (m_fds[0] != -1)
        {
            ::close(m_fds[0]);
            m_fds[0] = -1;
        }
    }
    void closeWrite()
    {
        if (m_fds[1] != -1)
        {
            ::close(m_fds[1]);
            m_fds[1] = -1;
        }
    }

private:
    int m_fds[2];
};

/// Remembers every notification it gets.
class Recorder : public ZnObserver
{
public:
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override
    {
        sources.push_back(aSource);
        nilArguments.push_back(aArgument.isNil());
    }

    std::vector<ZnObservable*> sources;
    std::vector<bool> nilArguments;
};

/// A fresh directory for the test's files, removed with everything in it afterwards.
class ZnFileInputStreamTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const char* base = getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") +
                              "/ZnFileInputStreamTest.XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        ASSERT_NE(nullptr, mkdtemp(buffer.data()));
        m_dir = buffer.data();
    }

    void TearDown() override
    {
        if (m_dir.empty())
        {
            return;
        }
        if (DIR* dir = opendir(m_dir.c_str()))
        {
            for (dirent* entry = readdir(dir); entry != nullptr; entry = readdir(dir))
            {
                if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
                {
                    unlink((m_dir + "/" + entry->d_name).c_str());
                }
            }
            closedir(dir);
        }
        rmdir(m_dir.c_str());
    }

    /// Writes \p content to a new file \p name and gives its path.
    std::string makeFile(const std::string& name, const std::string& content)
    {
        const std::string path = m_dir + "/" + name;
        std::ofstream file(path, std::ios::binary);
        file.write(content.data(), static_cast<std::streamsize>(content.size()));
        return path;
    }

    std::string m_dir;
};

/// Everything read() gives until it answers -1.
std::string drain(ZnFileInputStream& in)
{
    std::string text;
    for (int c = in.read(); c != -1; c = in.read())
    {
        text.push_back(static_cast<char>(c));
    }
    return text;
}

// ---- files opened by path ----

TEST_F(ZnFileInputStreamTest, PathStreamReadsTheFileByteByByte)
{
    const std::string path = makeFile("a", std::string("ab\xFF\x00z", 5));
    ZnFileInputStream in(path.c_str());
    EXPECT_EQ('a', in.read());
    EXPECT_EQ('b', in.read());
    EXPECT_EQ(255, in.read());
    EXPECT_EQ(0, in.read());
    EXPECT_EQ('z', in.read());
    EXPECT_EQ(-1, in.read());
    EXPECT_EQ(-1, in.read());
}

TEST_F(ZnFileInputStreamTest, NullPathRaisesFilenameExpected)
{
    ZnHandle<ZnException> e =
        thrownBy([] { ZnFileInputStream in(static_cast<const char*>(nullptr)); });
    const ZnAssertionFailure* failure =
        dynamic_cast<const ZnAssertionFailure*>(static_cast<ZnException*>(e));
    ASSERT_NE(nullptr, failure);
    EXPECT_EQ("filename expected", messageOf(e));
    EXPECT_STREQ("ZnFileInputStream", failure->getFile());
}

TEST_F(ZnFileInputStreamTest, MissingFileRaisesSystemErrorWithThePath)
{
    const std::string path = m_dir + "/missing";
    ZnHandle<ZnException> e = thrownBy([&] { ZnFileInputStream in(path.c_str()); });
    EXPECT_EQ(path, messageOf(e));
    EXPECT_EQ(ENOENT, errNoOf(e));
}

TEST_F(ZnFileInputStreamTest, BlockReadGivesWhatTheSystemReturns)
{
    const std::string path = makeFile("a", "hello world");
    ZnFileInputStream in(path.c_str());
    char buffer[10] = {'.', '.', '.', '.', '.', '.', '.', '.', '.', '.'};
    EXPECT_EQ(5u, in.read(buffer, 5, 2));
    EXPECT_EQ("..hello...", std::string(buffer, 10));
    EXPECT_EQ(6u, in.read(buffer, 10, 0));
    EXPECT_EQ(" world", std::string(buffer, 6));
    EXPECT_EQ(kEnd, in.read(buffer, 10, 0));
}

TEST_F(ZnFileInputStreamTest, BlockReadOfLengthZeroIsEndOfStream)
{
    const std::string path = makeFile("a", "abc");
    ZnFileInputStream in(path.c_str());
    char buffer[1] = {};
    EXPECT_EQ(kEnd, in.read(buffer, 0, 0));
    EXPECT_EQ('a', in.read());
}

TEST_F(ZnFileInputStreamTest, BlockReadOfExactlyOneByteRaises)
{
    const std::string path = makeFile("a", "abcd");
    ZnFileInputStream in(path.c_str());
    char buffer[8] = {};
    ZnHandle<ZnException> e = thrownBy([&] { in.read(buffer, 1, 0); });
    EXPECT_EQ("ZnFileInputStream::read", messageOf(e));
    EXPECT_GE(errNoOf(e), 0);
    // The byte was consumed all the same; a last single byte raises too.
    EXPECT_EQ('a', buffer[0]);
    EXPECT_EQ(2u, in.read(buffer, 2, 0));
    e = thrownBy([&] { in.read(buffer, 8, 0); });
    EXPECT_EQ("ZnFileInputStream::read", messageOf(e));
    EXPECT_EQ('d', buffer[0]);
}

TEST_F(ZnFileInputStreamTest, FailedBlockReadComesBackAsEndOfStream)
{
    const std::string path = makeFile("a", "abc");
    const int fd = open(path.c_str(), O_WRONLY);
    ASSERT_NE(-1, fd);
    {
        ZnFileInputStream in(fd);
        char buffer[4] = {};
        EXPECT_EQ(kEnd, in.read(buffer, 4, 0));
    }
    close(fd);
}

TEST_F(ZnFileInputStreamTest, FailedByteReadRaisesReadError)
{
    const std::string path = makeFile("a", "abc");
    const int fd = open(path.c_str(), O_WRONLY);
    ASSERT_NE(-1, fd);
    {
        ZnFileInputStream in(fd);
        ZnHandle<ZnException> e = thrownBy([&] { in.read(); });
        EXPECT_EQ("ZnFileInputStream::read", messageOf(e));
        EXPECT_EQ(EBADF, errNoOf(e));
    }
    close(fd);
}

TEST_F(ZnFileInputStreamTest, BadDescriptorRaisesNothingUntilRead)
{
    ZnFileInputStream in(-1);
    EXPECT_FALSE(in.markSupported());
    ZnHandle<ZnException> e = thrownBy([&] { in.read(); });
    EXPECT_EQ("ZnFileInputStream::read", messageOf(e));
    EXPECT_EQ(EBADF, errNoOf(e));
}

TEST_F(ZnFileInputStreamTest, ArrayReadFormFillsTheArray)
{
    const std::string path = makeFile("a", "0123456789");
    ZnFileInputStream in(path.c_str());
    ZnHandle<ZnByteArray> target = ZnByteArray::sCreate("......");
    EXPECT_EQ(4u, in.read(target, 2, 0));
    EXPECT_EQ("..0123", std::string(reinterpret_cast<const char*>(target->getBytes()), 6));
}

TEST_F(ZnFileInputStreamTest, AvailableIsAlwaysZero)
{
    const std::string path = makeFile("a", "0123456789");
    ZnFileInputStream in(path.c_str());
    EXPECT_EQ(0u, in.available());
}

// ---- seeking on a regular file ----

TEST_F(ZnFileInputStreamTest, RegularFileSupportsMark)
{
    const std::string path = makeFile("a", "x");
    ZnFileInputStream in(path.c_str());
    EXPECT_TRUE(in.markSupported());
}

TEST_F(ZnFileInputStreamTest, SkipSeeksForward)
{
    const std::string path = makeFile("a", "0123456789");
    ZnFileInputStream in(path.c_str());
    EXPECT_EQ(3u, in.skip(3));
    EXPECT_EQ('3', in.read());
    EXPECT_EQ(0u, in.skip(0));
    EXPECT_EQ('4', in.read());
}

TEST_F(ZnFileInputStreamTest, SkipPastTheEndCountsInFull)
{
    const std::string path = makeFile("a", "0123456789");
    ZnFileInputStream in(path.c_str());
    EXPECT_EQ(100u, in.skip(100));
    EXPECT_EQ(-1, in.read());
}

TEST_F(ZnFileInputStreamTest, ResetReturnsToTheMarkOnce)
{
    const std::string path = makeFile("a", "0123456789");
    ZnFileInputStream in(path.c_str());
    in.skip(2);
    in.mark(0);
    EXPECT_EQ("23456789", drain(in));
    in.reset();
    EXPECT_EQ('2', in.read());
    // The mark was used up: a second reset stays where the stream is.
    in.reset();
    EXPECT_EQ('3', in.read());
}

TEST_F(ZnFileInputStreamTest, ResetWithoutMarkDoesNothing)
{
    const std::string path = makeFile("a", "0123456789");
    ZnFileInputStream in(path.c_str());
    in.skip(4);
    in.reset();
    EXPECT_EQ('4', in.read());
}

TEST_F(ZnFileInputStreamTest, MarkOnAClosedDescriptorRaisesMarkError)
{
    const std::string path = makeFile("a", "0123456789");
    const int fd = open(path.c_str(), O_RDONLY);
    ASSERT_NE(-1, fd);
    ZnFileInputStream in(fd);
    ASSERT_TRUE(in.markSupported());
    close(fd);
    ZnHandle<ZnException> e = thrownBy([&] { in.mark(0); });
    EXPECT_EQ("ZnFileInputStream::mark", messageOf(e));
    EXPECT_EQ(EBADF, errNoOf(e));
    e = thrownBy([&] { in.skip(1); });
    EXPECT_EQ("ZnFileInputStream::skip", messageOf(e));
    EXPECT_EQ(EBADF, errNoOf(e));
    // The mark counts as set even though its position could not be read.
    e = thrownBy([&] { in.reset(); });
    EXPECT_EQ("ZnFileInputStream::reset", messageOf(e));
    EXPECT_EQ(EBADF, errNoOf(e));
}

TEST_F(ZnFileInputStreamTest, BlockOnAFileNotifiesANilArgument)
{
    const std::string path = makeFile("a", "x");
    ZnHandle<ZnFileInputStream> in(new ZnFileInputStream(path.c_str()));
    ZnHandle<Recorder> recorder(new Recorder);
    in->attachObserver(recorder);
    EXPECT_TRUE(in->block());
    ASSERT_EQ(1u, recorder->sources.size());
    EXPECT_EQ(static_cast<ZnObservable*>(static_cast<ZnFileInputStream*>(in)),
              recorder->sources[0]);
    EXPECT_TRUE(recorder->nilArguments[0]);
    in->detachObserver(recorder);
}

// ---- pipes ----

TEST_F(ZnFileInputStreamTest, PipeReadsUntilTheWriterCloses)
{
    Pipe pipe;
    ASSERT_TRUE(pipe.valid());
    ZnFileInputStream in(pipe.readEnd());
    pipe.put("hello");
    char buffer[16] = {};
    EXPECT_EQ(4u, in.read(buffer, 4, 0));
    EXPECT_EQ("hell", std::string(buffer, 4));
    pipe.put("abc");
    EXPECT_EQ('o', in.read());
    EXPECT_EQ(3u, in.read(buffer, 16, 0));
    pipe.closeWrite();
    EXPECT_EQ(kEnd, in.read(buffer, 16, 0));
    EXPECT_EQ(-1, in.read());
}

TEST_F(ZnFileInputStreamTest, PipeIsNotSeekable)
{
    Pipe pipe;
    ASSERT_TRUE(pipe.valid());
    ZnFileInputStream in(pipe.readEnd());
    EXPECT_FALSE(in.markSupported());
}

TEST_F(ZnFileInputStreamTest, SkipOnAPipeReadsAndDiscards)
{
    Pipe pipe;
    ASSERT_TRUE(pipe.valid());
    ZnFileInputStream in(pipe.readEnd());
    pipe.put(std::string(100, 'x') + "after");
    EXPECT_EQ(100u, in.skip(100));
    EXPECT_EQ('a', in.read());
    pipe.put("zz");
    pipe.closeWrite();
    // Only what is there can be skipped.
    EXPECT_EQ(6u, in.skip(50));
    EXPECT_EQ(-1, in.read());
}

TEST_F(ZnFileInputStreamTest, MarkAndResetOnAPipeDoNothing)
{
    Pipe pipe;
    ASSERT_TRUE(pipe.valid());
    ZnFileInputStream in(pipe.readEnd());
    pipe.put("abcdef");
    EXPECT_EQ('a', in.read());
    in.mark(10);
    EXPECT_EQ('b', in.read());
    in.reset();
    EXPECT_EQ('c', in.read());
}

TEST_F(ZnFileInputStreamTest, BlockOnAPipeIsPending)
{
    Pipe pipe;
    ASSERT_TRUE(pipe.valid());
    ZnHandle<ZnFileInputStream> in(new ZnFileInputStream(pipe.readEnd()));
    ZnHandle<Recorder> recorder(new Recorder);
    in->attachObserver(recorder);
    ZnHandle<ZnException> e = thrownBy([&] { in->block(); });
    EXPECT_EQ("ZnFileInputStream::block implementation pending", messageOf(e));
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ("ZnException", e->getClassName());
    EXPECT_TRUE(recorder->sources.empty());
    in->detachObserver(recorder);
}

/// Counts deliveries of SIGUSR1.
std::atomic<int> g_interrupts{0};

void countInterrupt(int)
{
    g_interrupts.fetch_add(1);
}

/// The scheduler state letter of thread \p tid of this process ('S' while it sleeps in a call).
char threadState(pid_t tid)
{
    std::ifstream statFile("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string line;
    std::getline(statFile, line);
    const size_t nameEnd = line.rfind(')');
    return nameEnd != std::string::npos && nameEnd + 2 < line.size() ? line[nameEnd + 2] : '?';
}

TEST_F(ZnFileInputStreamTest, ReadInterruptedBySignalIsStartedAgain)
{
    Pipe pipe;
    ASSERT_TRUE(pipe.valid());
    struct sigaction action = {};
    struct sigaction previous = {};
    action.sa_handler = countInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: the blocked read() fails with EINTR
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, &previous));
    g_interrupts = 0;

    ZnFileInputStream in(pipe.readEnd());
    std::atomic<pid_t> readerTid{0};
    int result = -2;
    std::string failure;
    std::thread reader(
        [&]
        {
            readerTid = static_cast<pid_t>(syscall(SYS_gettid));
            try
            {
                result = in.read();
            }
            catch (ZnHandle<ZnException>& e)
            {
                failure = messageOf(e);
            }
        });
    while (readerTid == 0 || threadState(readerTid) != 'S')
    {
        std::this_thread::yield();
    }
    pthread_kill(reader.native_handle(), SIGUSR1);
    while (g_interrupts == 0)
    {
        std::this_thread::yield();
    }
    pipe.put("k");
    reader.join();
    sigaction(SIGUSR1, &previous, nullptr);

    EXPECT_EQ("", failure);
    EXPECT_EQ('k', result);
    EXPECT_EQ(1, g_interrupts.load());
}

// ---- the record of descriptors and who closes what ----

TEST_F(ZnFileInputStreamTest, DescriptorStreamLeavesTheDescriptorOpen)
{
    Pipe pipe;
    ASSERT_TRUE(pipe.valid());
    {
        ZnFileInputStream in(pipe.readEnd());
    }
    EXPECT_TRUE(isOpen(pipe.readEnd()));
}

TEST_F(ZnFileInputStreamTest, PathStreamClosesItsDescriptorAtDestruction)
{
    const std::string path = makeFile("a", "abc");
    std::vector<int> open;
    {
        ZnFileInputStream in(path.c_str());
        open = descriptorsOn(path);
        ASSERT_EQ(1u, open.size());
        EXPECT_TRUE(isOpen(open[0]));
        // Opened for the library alone: not inherited by programs the host starts.
        EXPECT_EQ(FD_CLOEXEC, fcntl(open[0], F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_TRUE(descriptorsOn(path).empty());
    EXPECT_FALSE(isOpen(open[0]));
}

TEST_F(ZnFileInputStreamTest, StreamsMadeAndDroppedOnManyThreadsLeaveNothingOpen)
{
    const std::string path = makeFile("a", "abcdef");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < 200; ++i)
                {
                    ZnFileInputStream in(path.c_str());
                    if (in.read() != 'a')
                    {
                        ++wrong;
                    }
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(0, wrong.load());
    EXPECT_TRUE(descriptorsOn(path).empty());
}

// sShutdown is one-way for the whole process: each case runs in a child of its own, which
// reports what went wrong on its error output and exits with 0 only when all was as expected.

/// Collects failed checks of a child process.
class ChildChecks
{
public:
    void expect(bool condition, const char* what)
    {
        if (!condition)
        {
            fprintf(stderr, "check failed: %s\n", what);
            m_ok = false;
        }
    }
    [[noreturn]] void finish()
    {
        if (m_ok)
        {
            fprintf(stderr, "all checks passed\n");
        }
        fflush(stderr);
        _exit(m_ok ? 0 : 1);
    }

private:
    bool m_ok = true;
};

void shutdownClosesRecordedDescriptors(const std::string& path)
{
    ChildChecks checks;
    int fds[2];
    checks.expect(pipe(fds) == 0, "pipe");
    ZnFileInputStream onPipe(fds[0]);
    ZnFileInputStream onFile(path.c_str());
    const std::vector<int> fileFds = descriptorsOn(path);
    checks.expect(fileFds.size() == 1, "one descriptor on the file");
    checks.expect(::write(fds[1], "data", 4) == 4, "write to pipe");

    ZnFileInputStream::sShutdown();

    checks.expect(!isOpen(fds[0]), "pipe read end closed");
    checks.expect(fileFds.size() == 1 && !isOpen(fileFds[0]), "file descriptor closed");
    checks.expect(isOpen(fds[1]), "unrecorded pipe write end still open");
    ZnHandle<ZnException> e = thrownBy([&] { onPipe.read(); });
    checks.expect(messageOf(e) == "ZnFileInputStream::read", "pipe read raises read error");
    checks.expect(errNoOf(e) == EBADF, "pipe read fails with EBADF");
    e = thrownBy([&] { onFile.read(); });
    checks.expect(messageOf(e) == "ZnFileInputStream::read", "file read raises read error");
    char buffer[4];
    checks.expect(onPipe.read(buffer, 4, 0) == kEnd, "failed block read is end of stream");
    checks.finish();
}

TEST_F(ZnFileInputStreamTest, ShutdownClosesEveryRecordedDescriptorAndLaterReadsFail)
{
    const std::string path = makeFile("a", "abc");
    EXPECT_EXIT(shutdownClosesRecordedDescriptors(path), ::testing::ExitedWithCode(0),
                "all checks passed");
}

void droppedDescriptorStreamStaysRecorded()
{
    ChildChecks checks;
    int fds[2];
    checks.expect(pipe(fds) == 0, "pipe");
    {
        ZnFileInputStream gone(fds[0]);
    }
    checks.expect(isOpen(fds[0]), "descriptor open after its stream is gone");
    ZnFileInputStream::sShutdown();
    checks.expect(!isOpen(fds[0]), "descriptor of a dropped stream closed by shutdown");
    checks.expect(isOpen(fds[1]), "unrecorded descriptor still open");
    checks.finish();
}

TEST_F(ZnFileInputStreamTest, DroppedDescriptorStreamStaysInTheRecord)
{
    EXPECT_EXIT(droppedDescriptorStreamStaysRecorded(), ::testing::ExitedWithCode(0),
                "all checks passed");
}

void droppedPathStreamLeavesTheRecord(const std::string& path)
{
    ChildChecks checks;
    int number = -1;
    {
        ZnFileInputStream owned(path.c_str());
        const std::vector<int> fds = descriptorsOn(path);
        checks.expect(fds.size() == 1, "one descriptor on the file");
        number = fds.empty() ? -1 : fds[0];
    }
    // Put an unrelated descriptor under the same number: shutdown must leave it alone.
    int fds[2];
    checks.expect(pipe(fds) == 0, "pipe");
    checks.expect(number >= 0 && dup2(fds[0], number) == number, "dup2 onto the old number");
    ZnFileInputStream::sShutdown();
    checks.expect(isOpen(number), "reused number not closed by shutdown");
    checks.finish();
}

TEST_F(ZnFileInputStreamTest, DroppedPathStreamLeavesTheRecord)
{
    const std::string path = makeFile("a", "abc");
    EXPECT_EXIT(droppedPathStreamLeavesTheRecord(path), ::testing::ExitedWithCode(0),
                "all checks passed");
}

void streamsStayUsableObjectsAfterShutdown(const std::string& path)
{
    ChildChecks checks;
    ZnFileInputStream::sShutdown();
    {
        ZnFileInputStream owned(path.c_str());
        ZnFileInputStream::sShutdown();
        checks.expect(owned.markSupported(), "seekability kept from construction");
        ZnHandle<ZnException> e = thrownBy([&] { owned.read(); });
        checks.expect(errNoOf(e) == EBADF, "read after shutdown fails with EBADF");
        // A second shutdown closes nothing new and does not fail.
        ZnFileInputStream::sShutdown();
    }
    checks.expect(descriptorsOn(path).empty(), "nothing left open on the file");
    checks.finish();
}

TEST_F(ZnFileInputStreamTest, StreamsStayUsableObjectsAfterShutdown)
{
    const std::string path = makeFile("a", "abc");
    EXPECT_EXIT(streamsStayUsableObjectsAfterShutdown(path), ::testing::ExitedWithCode(0),
                "all checks passed");
}

} // namespace
