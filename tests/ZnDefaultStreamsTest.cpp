#include "ZnUtil/ZnBufferedInputStream.h"
#include "ZnUtil/ZnBufferedOutputStream.h"
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnErrorStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnFileInputStream.h"
#include "ZnUtil/ZnFileOutputStream.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInputStream.h"
#include "ZnUtil/ZnOutputSink.h"
#include "ZnUtil/ZnOutputStream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <iostream>
#include <string>
#include <thread>

#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

const unsigned int kEndOfStream = 0xFFFFFFFFu;

/// Bytes waiting in the pipe \p fd.
int pending(int fd)
{
    int n = -1;
    ioctl(fd, FIONREAD, &n);
    return n;
}

/// Lets two threads start together, then runs \p action on both and gives back both results.
template <class Action>
std::pair<void*, void*> raceTwo(Action action)
{
    std::atomic<int> ready(0);
    void* results[2] = {nullptr, nullptr};
    auto run = [&](int i)
    {
        ready.fetch_add(1);
        while (ready.load() < 2)
        {
        }
        results[i] = action();
    };
    std::thread a(run, 0);
    std::thread b(run, 1);
    a.join();
    b.join();
    return {results[0], results[1]};
}

/// The checks of a process whose defaults were never made; the exit code names the first that
/// failed.
[[noreturn]] void setBeforeFirstUse()
{
    ZnHandle<ZnInputStream> mineIn(new ZnByteArrayInputStream(ZnByteArray::sCreate("in"), 0, 0));
    ZnHandle<ZnOutputStream> mineOut(&ZnOutputSink::sGetInstance());
    if (!ZnInputStream::sSetDefault(*mineIn).isNil())
    {
        _exit(1);
    }
    if (!ZnOutputStream::sSetDefault(*mineOut).isNil())
    {
        _exit(2);
    }
    // Nothing is built over the descriptors once a default was set.
    if (&ZnInputStream::sGetDefault() != static_cast<ZnInputStream*>(mineIn))
    {
        _exit(3);
    }
    if (&ZnOutputStream::sGetDefault() != static_cast<ZnOutputStream*>(mineOut))
    {
        _exit(4);
    }
    if (ZnInputStream::sGetDefault().read() != 'i')
    {
        _exit(5);
    }
    _exit(0);
}

TEST(ZnDefaultStreamsTest, SetDefaultBeforeFirstUseGivesNilAndIsKept)
{
    // Run by a fresh start of this program: the defaults of this process may exist already.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(setBeforeFirstUse(), ::testing::ExitedWithCode(0), "");
}

TEST(ZnDefaultStreamsTest, FirstUseFromTwoThreadsMakesOneInputStream)
{
    const auto results = raceTwo([] { return static_cast<void*>(&ZnInputStream::sGetDefault()); });
    EXPECT_NE(results.first, nullptr);
    EXPECT_EQ(results.first, results.second);
    EXPECT_EQ(results.first, static_cast<void*>(&ZnInputStream::sGetDefault()));
}

TEST(ZnDefaultStreamsTest, FirstUseFromTwoThreadsMakesOneOutputStream)
{
    const auto results = raceTwo([] { return static_cast<void*>(&ZnOutputStream::sGetDefault()); });
    EXPECT_NE(results.first, nullptr);
    EXPECT_EQ(results.first, results.second);
    EXPECT_EQ(results.first, static_cast<void*>(&ZnOutputStream::sGetDefault()));
}

TEST(ZnDefaultStreamsTest, FirstUseFromTwoThreadsMakesOneErrorStream)
{
    const auto results = raceTwo([] { return static_cast<void*>(&ZnErrorStream::sGetDefault()); });
    EXPECT_NE(results.first, nullptr);
    EXPECT_EQ(results.first, results.second);
    EXPECT_EQ(results.first, static_cast<void*>(&ZnErrorStream::sGetDefault()));
}

TEST(ZnDefaultStreamsTest, DefaultInputIsBufferedOverDescriptorZero)
{
    // Descriptor 0 becomes a pipe holding one line.
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_EQ(write(fds[1], "line one\n", 9), 9);
    close(fds[1]);
    const int savedIn = dup(0);
    ASSERT_GE(savedIn, 0);
    ASSERT_EQ(dup2(fds[0], 0), 0);
    close(fds[0]);

    ZnInputStream& in = ZnInputStream::sGetDefault();
    ZnBufferedInputStream* buffered = dynamic_cast<ZnBufferedInputStream*>(&in);
    ZnHandle<ZnInputStream> source =
        buffered != nullptr ? buffered->getInputStream() : ZnHandle<ZnInputStream>();
    char line[32] = {};
    const unsigned int got = in.read(line, sizeof line, 0);
    const unsigned int atEnd = in.read(line + 16, 8, 0);

    dup2(savedIn, 0);
    close(savedIn);

    ASSERT_NE(buffered, nullptr);
    EXPECT_NE(dynamic_cast<ZnFileInputStream*>(static_cast<ZnInputStream*>(source)), nullptr);
    EXPECT_EQ(got, 9u);
    EXPECT_EQ(std::string(line, 9), "line one\n");
    EXPECT_EQ(atEnd, kEndOfStream);
    EXPECT_EQ(&ZnInputStream::sGetDefault(), &in);
}

TEST(ZnDefaultStreamsTest, DefaultOutputIsBufferedOverDescriptorOneWith512Bytes)
{
    ZnOutputStream& out = ZnOutputStream::sGetDefault();
    out.flush();
    std::cout.flush();
    fflush(stdout);

    // Descriptor 1 becomes a pipe while the stream writes; nothing else may print meanwhile.
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const int savedOut = dup(1);
    ASSERT_GE(savedOut, 0);
    ASSERT_EQ(dup2(fds[1], 1), 1);
    close(fds[1]);

    const std::string full(512, 'x');
    out.write(full.data(), 512, 0);
    const int afterFull = pending(fds[0]);
    out.write('y');
    const int afterOneMore = pending(fds[0]);
    out << "z" << endl;
    const int afterEndl = pending(fds[0]);

    dup2(savedOut, 1);
    close(savedOut);
    std::string written(static_cast<size_t>(afterEndl > 0 ? afterEndl : 0), '\0');
    const ssize_t n = read(fds[0], &written[0], written.size());
    close(fds[0]);

    EXPECT_NE(dynamic_cast<ZnBufferedOutputStream*>(&out), nullptr);
    EXPECT_EQ(afterFull, 0);
    EXPECT_EQ(afterOneMore, 512);
    EXPECT_EQ(afterEndl, 515);
    EXPECT_EQ(n, 515);
    EXPECT_EQ(written, full + "yz\n");
}

TEST(ZnDefaultStreamsTest, SetDefaultInputGivesBackThePrevious)
{
    ZnInputStream& made = ZnInputStream::sGetDefault();
    ZnHandle<ZnInputStream> mine(new ZnByteArrayInputStream(ZnByteArray::sCreate("mine"), 0, 0));

    ZnHandle<ZnInputStream> previous = ZnInputStream::sSetDefault(*mine);
    EXPECT_EQ(static_cast<ZnInputStream*>(previous), &made);
    EXPECT_EQ(&ZnInputStream::sGetDefault(), static_cast<ZnInputStream*>(mine));
    EXPECT_EQ(ZnInputStream::sGetDefault().read(), 'm');

    ZnHandle<ZnInputStream> back = ZnInputStream::sSetDefault(*previous);
    EXPECT_EQ(static_cast<ZnInputStream*>(back), static_cast<ZnInputStream*>(mine));
    EXPECT_EQ(&ZnInputStream::sGetDefault(), &made);
}

TEST(ZnDefaultStreamsTest, SetDefaultOutputGivesBackThePrevious)
{
    ZnOutputStream& made = ZnOutputStream::sGetDefault();
    ZnHandle<ZnOutputStream> mine(&ZnOutputSink::sGetInstance());

    ZnHandle<ZnOutputStream> previous = ZnOutputStream::sSetDefault(*mine);
    EXPECT_EQ(static_cast<ZnOutputStream*>(previous), &made);
    EXPECT_EQ(&ZnOutputStream::sGetDefault(), static_cast<ZnOutputStream*>(mine));

    ZnHandle<ZnOutputStream> back = ZnOutputStream::sSetDefault(*previous);
    EXPECT_EQ(static_cast<ZnOutputStream*>(back), static_cast<ZnOutputStream*>(mine));
    EXPECT_EQ(&ZnOutputStream::sGetDefault(), &made);
}

TEST(ZnDefaultStreamsTest, DefaultErrorStreamHasLevelThreeAndNoDestination)
{
    ZnErrorStream& es = ZnErrorStream::sGetDefault();
    EXPECT_EQ(es.getDebugLevel(), 3u);
    EXPECT_EQ(&es.getDebugStream(2), static_cast<ZnOutputStream*>(&es));
    EXPECT_EQ(&es.getDebugStream(ZnException::sDebugToken, 0),
              static_cast<ZnOutputStream*>(&ZnOutputSink::sGetInstance()));
}

} // namespace
