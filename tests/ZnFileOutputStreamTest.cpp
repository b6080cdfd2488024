#include "ZnUtil/ZnFileOutputStream.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnSystemError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "support/Descriptors.h"
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

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

/// True when \p e is a ZnAssertionFailure "filename expected" from ZnFileOutputStream.
bool isFilenameExpected(const ZnHandle<ZnException>& e)
{
    const ZnAssertionFailure* failure =
        dynamic_cast<const ZnAssertionFailure*>(static_cast<ZnException*>(e));
    return failure != nullptr && messageOf(e) == "filename expected" &&
           std::string(failure->getFile()) == "ZnFileOutputStream";
}

using ZnTest::descriptorsOn;
using ZnTest::isOpen;

/// The whole content of the file \p path.
std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/// Reads everything from \p fd until end of file.
std::string readAll(int fd)
{
    std::string text;
    char buffer[65536];
    for (;;)
    {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0)
        {
            return text;
        }
        text.append(buffer, static_cast<size_t>(n));
    }
}

/// A fresh directory for the test's files, removed with everything in it afterwards.
class ZnFileOutputStreamTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const char* base = getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") +
                              "/ZnFileOutputStreamTest.XXXXXX";
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

    std::string pathOf(const std::string& name) const { return m_dir + "/" + name; }

    /// Writes \p content to a new file \p name and gives its path.
    std::string makeFile(const std::string& name, const std::string& content)
    {
        const std::string path = pathOf(name);
        std::ofstream file(path, std::ios::binary);
        file.write(content.data(), static_cast<std::streamsize>(content.size()));
        return path;
    }

    std::string m_dir;
};

// ---- opening ----

TEST_F(ZnFileOutputStreamTest, PathStreamCreatesAMissingFileWithMode0600)
{
    const std::string path = pathOf("new");
    const mode_t oldMask = umask(0);
    {
        ZnFileOutputStream out(path.c_str());
    }
    umask(oldMask);
    struct stat info = {};
    ASSERT_EQ(0, stat(path.c_str(), &info));
    EXPECT_EQ(static_cast<mode_t>(0600), info.st_mode & 07777);
    EXPECT_EQ(0, info.st_size);
}

TEST_F(ZnFileOutputStreamTest, PathStreamKeepsTheContentAndWritesFromTheStart)
{
    const std::string path = makeFile("old", "abcdef");
    {
        ZnFileOutputStream out(path.c_str());
        out.write("XY", 2, 0);
    }
    EXPECT_EQ("XYcdef", contentOf(path));
}

TEST_F(ZnFileOutputStreamTest, PathStreamOpensForReadingToo)
{
    const std::string path = makeFile("old", "abc");
    ZnFileOutputStream out(path.c_str());
    const std::vector<int> fds = descriptorsOn(path);
    ASSERT_EQ(1u, fds.size());
    EXPECT_EQ(O_RDWR, fcntl(fds[0], F_GETFL) & O_ACCMODE);
    EXPECT_EQ(0, fcntl(fds[0], F_GETFL) & O_APPEND);
}

TEST_F(ZnFileOutputStreamTest, NullPathRaisesFilenameExpected)
{
    ZnHandle<ZnException> e =
        thrownBy([] { ZnFileOutputStream out(static_cast<const char*>(nullptr)); });
    EXPECT_TRUE(isFilenameExpected(e)) << messageOf(e);
}

TEST_F(ZnFileOutputStreamTest, UnopenablePathRaisesSystemErrorWithThePath)
{
    const std::string path = pathOf("no-such-dir/file");
    ZnHandle<ZnException> e = thrownBy([&] { ZnFileOutputStream out(path.c_str()); });
    EXPECT_EQ(path, messageOf(e));
    EXPECT_EQ(ENOENT, errNoOf(e));
}

// ---- writing ----

TEST_F(ZnFileOutputStreamTest, BlockWriteWritesFromTheOffset)
{
    const std::string path = pathOf("w");
    {
        ZnFileOutputStream out(path.c_str());
        out.write("--hello", 5, 2);
        out.write(" world", 6, 0);
    }
    EXPECT_EQ("hello world", contentOf(path));
}

TEST_F(ZnFileOutputStreamTest, ByteWriteKeepsTheLowEightBits)
{
    const std::string path = pathOf("w");
    {
        ZnFileOutputStream out(path.c_str());
        out.write(0x141);
        out.write(0xFF);
        out.write(0);
    }
    EXPECT_EQ(std::string("A\xFF\0", 3), contentOf(path));
}

TEST_F(ZnFileOutputStreamTest, LengthZeroWritesNothing)
{
    const std::string path = pathOf("w");
    {
        ZnFileOutputStream out(path.c_str());
        out.write("abc", 0, 0);
        // Nothing reaches the system: not even a null buffer is looked at.
        out.write(static_cast<const void*>(nullptr), 0, 0);
    }
    EXPECT_EQ("", contentOf(path));
}

TEST_F(ZnFileOutputStreamTest, ArrayFormAndOperatorsReachTheFile)
{
    const std::string path = pathOf("w");
    {
        ZnFileOutputStream out(path.c_str());
        ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123");
        out.write(static_cast<ZnByteArray*>(array), 2, 0);
        out << ":" << 42 << endl;
    }
    EXPECT_EQ("23:42\n", contentOf(path));
}

TEST_F(ZnFileOutputStreamTest, FailedWriteRaisesWriteError)
{
    const std::string path = makeFile("ro", "abc");
    const int fd = open(path.c_str(), O_RDONLY);
    ASSERT_NE(-1, fd);
    {
        ZnFileOutputStream out(fd);
        ZnHandle<ZnException> e = thrownBy([&] { out.write("x", 1, 0); });
        EXPECT_EQ("ZnFileOutputStream::write", messageOf(e));
        EXPECT_EQ(EBADF, errNoOf(e));
        e = thrownBy([&] { out.write('x'); });
        EXPECT_EQ("ZnFileOutputStream::write", messageOf(e));
    }
    close(fd);
    EXPECT_EQ("abc", contentOf(path));
}

TEST_F(ZnFileOutputStreamTest, FlushHasNothingToDo)
{
    // No buffer: flush() does not even reach the descriptor, which here is no descriptor at all.
    ZnFileOutputStream out(-1);
    out.flush();
    ZnHandle<ZnException> e = thrownBy([&] { out.write('x'); });
    EXPECT_EQ(EBADF, errNoOf(e));
}

TEST_F(ZnFileOutputStreamTest, WritesThroughAPipe)
{
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    {
        ZnFileOutputStream out(fds[1]);
        out.write("through", 7, 0);
        out.write('!');
    }
    EXPECT_TRUE(isOpen(fds[1]));
    close(fds[1]);
    EXPECT_EQ("through!", readAll(fds[0]));
    close(fds[0]);
}

TEST_F(ZnFileOutputStreamTest, LargeWriteThroughAPipeArrivesWhole)
{
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    std::string payload(1 << 20, '\0');
    for (size_t i = 0; i < payload.size(); ++i)
    {
        payload[i] = static_cast<char>(i * 31 + (i >> 9));
    }
    std::string received;
    std::thread reader([&] { received = readAll(fds[0]); });
    {
        ZnFileOutputStream out(fds[1]);
        out.write(payload.data(), static_cast<unsigned int>(payload.size()), 0);
    }
    close(fds[1]);
    reader.join();
    close(fds[0]);
    EXPECT_TRUE(received == payload) << "received " << received.size() << " bytes";
}

/// Writes past a file size limit: the first call goes through partly, the next one fails.
void writePastTheSizeLimit(const std::string& path)
{
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {1000, 1000};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
    {
        fprintf(stderr, "setrlimit failed\n");
        _exit(2);
    }
    ZnFileOutputStream out(path.c_str());
    const std::string payload(3000, 'p');
    ZnHandle<ZnException> e =
        thrownBy([&] { out.write(payload.data(), static_cast<unsigned int>(payload.size()), 0); });
    struct stat info = {};
    stat(path.c_str(), &info);
    fprintf(stderr, "message=%s errno=%d size=%ld\n", messageOf(e).c_str(), errNoOf(e),
            static_cast<long>(info.st_size));
    fflush(stderr);
    _exit(0);
}

TEST_F(ZnFileOutputStreamTest, WriteGoesOnAfterAPartialWrite)
{
    const std::string path = pathOf("limited");
    // The limit is process-wide: the write runs in a child process of its own.
    const std::string expected =
        "message=ZnFileOutputStream::write errno=" + std::to_string(EFBIG) + " size=1000";
    EXPECT_EXIT(writePastTheSizeLimit(path), ::testing::ExitedWithCode(0), expected);
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

TEST_F(ZnFileOutputStreamTest, WriteInterruptedBySignalIsStartedAgain)
{
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    // Fill the pipe, so that the next write waits.
    const int flags = fcntl(fds[1], F_GETFL);
    ASSERT_EQ(0, fcntl(fds[1], F_SETFL, flags | O_NONBLOCK));
    size_t filled = 0;
    const std::string chunk(4096, 'f');
    for (;;)
    {
        const ssize_t n = ::write(fds[1], chunk.data(), chunk.size());
        if (n <= 0)
        {
            break;
        }
        filled += static_cast<size_t>(n);
    }
    ASSERT_EQ(EAGAIN, errno);
    ASSERT_EQ(0, fcntl(fds[1], F_SETFL, flags));

    struct sigaction action = {};
    struct sigaction previous = {};
    action.sa_handler = countInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: the blocked write() fails with EINTR
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, &previous));
    g_interrupts = 0;

    ZnFileOutputStream out(fds[1]);
    std::atomic<pid_t> writerTid{0};
    std::string failure;
    std::thread writer(
        [&]
        {
            writerTid = static_cast<pid_t>(syscall(SYS_gettid));
            try
            {
                out.write("tail", 4, 0);
            }
            catch (ZnHandle<ZnException>& e)
            {
                failure = messageOf(e);
            }
        });
    while (writerTid == 0 || threadState(writerTid) != 'S')
    {
        std::this_thread::yield();
    }
    pthread_kill(writer.native_handle(), SIGUSR1);
    while (g_interrupts == 0)
    {
        std::this_thread::yield();
    }
    // Drain what filled the pipe: a write started again can now finish. Then everything the
    // writer managed to send is read after its end of the pipe is closed.
    std::string received;
    char buffer[65536];
    while (received.size() < filled)
    {
        const ssize_t n = ::read(fds[0], buffer, std::min(sizeof buffer, filled - received.size()));
        ASSERT_GT(n, 0);
        received.append(buffer, static_cast<size_t>(n));
    }
    writer.join();
    sigaction(SIGUSR1, &previous, nullptr);
    close(fds[1]);
    received += readAll(fds[0]);
    close(fds[0]);

    EXPECT_EQ("", failure);
    EXPECT_EQ(1, g_interrupts.load());
    EXPECT_EQ(filled + 4, received.size());
    EXPECT_EQ("tail", received.substr(filled));
}

// ---- empty() ----

TEST_F(ZnFileOutputStreamTest, EmptyTruncatesAndWritesTheNamedFile)
{
    const std::string first = pathOf("first");
    const std::string second = makeFile("second", "old content");
    {
        ZnFileOutputStream out(first.c_str());
        out.write("one", 3, 0);
        out.empty(second.c_str());
        EXPECT_EQ("", contentOf(second));
        out.write("two", 3, 0);
    }
    EXPECT_EQ("one", contentOf(first));
    EXPECT_EQ("two", contentOf(second));
}

TEST_F(ZnFileOutputStreamTest, EmptyOpensWriteOnlyAndLeavesThePreviousDescriptorOpen)
{
    const std::string first = pathOf("first");
    const std::string second = makeFile("second", "x");
    std::vector<int> left;
    std::vector<int> taken;
    {
        ZnFileOutputStream out(first.c_str());
        out.empty(second.c_str());
        left = descriptorsOn(first);
        taken = descriptorsOn(second);
        ASSERT_EQ(1u, left.size());
        ASSERT_EQ(1u, taken.size());
        EXPECT_EQ(O_WRONLY, fcntl(taken[0], F_GETFL) & O_ACCMODE);
    }
    // Ownership did not change: the stream closed the descriptor it holds, and the first one
    // is still open.
    EXPECT_FALSE(isOpen(taken[0]));
    EXPECT_TRUE(isOpen(left[0]));
    close(left[0]);
}

TEST_F(ZnFileOutputStreamTest, EmptyOnAMissingFileRaisesSystemErrorWithThePath)
{
    const std::string first = pathOf("first");
    const std::string missing = pathOf("missing");
    ZnFileOutputStream out(first.c_str());
    ZnHandle<ZnException> e = thrownBy([&] { out.empty(missing.c_str()); });
    EXPECT_EQ(missing, messageOf(e));
    EXPECT_EQ(ENOENT, errNoOf(e));
    // Nothing was created, and the stream still writes where it did.
    struct stat info = {};
    EXPECT_EQ(-1, stat(missing.c_str(), &info));
    out.write("still", 5, 0);
    EXPECT_EQ("still", contentOf(first));
}

TEST_F(ZnFileOutputStreamTest, EmptyWithNullPathRaisesFilenameExpected)
{
    const std::string first = pathOf("first");
    ZnFileOutputStream out(first.c_str());
    ZnHandle<ZnException> e = thrownBy([&] { out.empty(nullptr); });
    EXPECT_TRUE(isFilenameExpected(e)) << messageOf(e);
}

TEST_F(ZnFileOutputStreamTest, EmptyOnADescriptorStreamLeavesThatDescriptorToItsOwner)
{
    const std::string second = makeFile("second", "old");
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    std::vector<int> taken;
    {
        ZnFileOutputStream out(fds[1]);
        out.empty(second.c_str());
        out.write("new", 3, 0);
        taken = descriptorsOn(second);
        ASSERT_EQ(1u, taken.size());
    }
    EXPECT_TRUE(isOpen(fds[1]));
    // Not owned, so the new descriptor is not closed either.
    EXPECT_TRUE(isOpen(taken[0]));
    close(taken[0]);
    close(fds[0]);
    close(fds[1]);
    EXPECT_EQ("new", contentOf(second));
}

// ---- closing ----

TEST_F(ZnFileOutputStreamTest, PathStreamClosesItsDescriptorAtDestruction)
{
    const std::string path = pathOf("w");
    std::vector<int> fds;
    {
        ZnFileOutputStream out(path.c_str());
        fds = descriptorsOn(path);
        ASSERT_EQ(1u, fds.size());
        EXPECT_TRUE(isOpen(fds[0]));
        // Opened for the library alone: not inherited by programs the host starts.
        EXPECT_EQ(FD_CLOEXEC, fcntl(fds[0], F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_FALSE(isOpen(fds[0]));
    EXPECT_TRUE(descriptorsOn(path).empty());
}

TEST_F(ZnFileOutputStreamTest, DescriptorStreamLeavesTheDescriptorOpen)
{
    const std::string path = pathOf("w");
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_NE(-1, fd);
    {
        ZnFileOutputStream out(fd);
        out.write("kept", 4, 0);
    }
    EXPECT_TRUE(isOpen(fd));
    EXPECT_EQ(4, ::write(fd, "more", 4));
    close(fd);
    EXPECT_EQ("keptmore", contentOf(path));
}

} // namespace
