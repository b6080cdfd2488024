#include "ZnUtil/ZnByteArrayOutputStream.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnSerializable.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/CapturingAppender.h"

namespace
{

const char kLogger[] = "corvane.zn.ZnByteArrayOutputStream";
const std::string kPrefix = "ZnByteArrayOutputStream::write : ";

/// A stream whose store the test can look at and share.
class ViewedStream : public ZnByteArrayOutputStream
{
public:
    explicit ViewedStream(unsigned int aCapacity = 0) : ZnByteArrayOutputStream(aCapacity) {}

    ZnHandle<ZnByteArray> store() const { return m_store; }
    unsigned int capacity() const { return m_store.isNil() ? 0 : m_store->length(); }
};

/// The text of an array.
std::string textOf(const ZnHandle<ZnByteArray>& array)
{
    return std::string(reinterpret_cast<const char*>(array->getBytes()), array->length());
}

/// The collected bytes of \p out.
std::string collected(const ZnByteArrayOutputStream& out)
{
    ZnHandle<ZnByteArray> bytes = out.toByteArray();
    return std::string(reinterpret_cast<const char*>(bytes->getBytes()), out.size());
}

/// Messages of the captured events, in order.
std::vector<std::string> messages(const ZnTest::LogCapture& cap)
{
    std::vector<std::string> texts;
    for (const ZnTest::CapturedEvent& event : cap.events())
    {
        texts.push_back(event.message);
    }
    return texts;
}

/// Counts the calls of each write operation and keeps the bytes.
class CountingStream : public ZnOutputStream
{
public:
    using ZnOutputStream::write;
    void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset) override
    {
        ++blockWrites;
        bytes.append(static_cast<const char*>(aBuffer) + aOffset, aLength);
    }
    void write(int aByte) override
    {
        ++byteWrites;
        bytes.push_back(static_cast<char>(aByte));
    }

    int blockWrites = 0;
    int byteWrites = 0;
    std::string bytes;
};

TEST(ZnByteArrayOutputStreamTest, CapacityZeroMakesNoStore)
{
    ViewedStream out;
    EXPECT_TRUE(out.store().isNil());
    EXPECT_EQ(0u, out.size());
    ViewedStream explicitZero(0);
    EXPECT_TRUE(explicitZero.store().isNil());
}

TEST(ZnByteArrayOutputStreamTest, CapacityMakesAStoreOfThatLength)
{
    ViewedStream out(40);
    EXPECT_EQ(40u, out.capacity());
    EXPECT_EQ(0u, out.size());
}

TEST(ZnByteArrayOutputStreamTest, WritesAppendInOrderFromTheOffset)
{
    ZnByteArrayOutputStream out(16);
    out.write("xxabc", 3, 2);
    out.write('d');
    out.write("efg", 3, 0);
    EXPECT_EQ(7u, out.size());
    EXPECT_EQ("abcdefg", collected(out));
}

TEST(ZnByteArrayOutputStreamTest, ByteWriteKeepsTheLowEightBits)
{
    ZnByteArrayOutputStream out;
    out.write(0x141);
    out.write(-1);
    ZnHandle<ZnByteArray> bytes = out.toByteArray();
    ASSERT_EQ(2u, bytes->length());
    EXPECT_EQ(0x41, (*bytes)[0]);
    EXPECT_EQ(0xFF, (*bytes)[1]);
}

TEST(ZnByteArrayOutputStreamTest, LengthZeroAndNullBufferWriteNothing)
{
    ViewedStream out;
    out.write("abc", 0, 0);
    out.write(static_cast<const void*>(nullptr), 5, 0);
    EXPECT_EQ(0u, out.size());
    EXPECT_TRUE(out.store().isNil());
}

TEST(ZnByteArrayOutputStreamTest, WriteThatFitsKeepsTheStore)
{
    ViewedStream out(16);
    ZnByteArray* before = out.store();
    out.write("0123456789abcdef", 16, 0);
    EXPECT_EQ(before, static_cast<ZnByteArray*>(out.store()));
    EXPECT_EQ(16u, out.capacity());
}

TEST(ZnByteArrayOutputStreamTest, OverflowOf300WithTenUsedGrowsBy512To768)
{
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    ViewedStream out(256);
    out.write("0123456789", 10, 0);
    cap.clear();
    const std::string big(300, 'z');
    out.write(big.data(), 300, 0);

    EXPECT_EQ(768u, out.capacity());
    EXPECT_EQ(310u, out.size());
    EXPECT_EQ("0123456789" + big, collected(out));
    const std::vector<std::string> expected = {
        kPrefix + ": Capacity left in buffer = 246",
        kPrefix + ": length to write (300) more than remaining capacity of current buffer. "
                  "New capacity for buffer = 512",
        kPrefix + ": length of current buffer = 256"};
    EXPECT_EQ(expected, messages(cap));
}

TEST(ZnByteArrayOutputStreamTest, WriteOfExactly256WithNoStoreGrowsBy512)
{
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    ViewedStream out;
    const std::string block(256, 'q');
    out.write(block.data(), 256, 0);

    EXPECT_EQ(512u, out.capacity());
    EXPECT_EQ(256u, out.size());
    const std::vector<std::string> expected = {
        kPrefix + ": Capacity left in buffer = 0",
        kPrefix + ": length to write (256) more than remaining capacity of current buffer. "
                  "New capacity for buffer = 512",
        kPrefix + ": length of current buffer = 0"};
    EXPECT_EQ(expected, messages(cap));
}

TEST(ZnByteArrayOutputStreamTest, GrowthIsAdditiveNotDoubling)
{
    ViewedStream out;
    out.write('a');
    EXPECT_EQ(256u, out.capacity());
    const std::string fill(255, 'b');
    out.write(fill.data(), 255, 0);
    EXPECT_EQ(256u, out.capacity());
    out.write('c');
    EXPECT_EQ(512u, out.capacity());
    const std::string more(1000, 'd');
    out.write(more.data(), 1000, 0);
    // 257 used of 512: 255 left, so 1000 rounds up to 1024 more.
    EXPECT_EQ(1536u, out.capacity());
    EXPECT_EQ(1257u, out.size());
}

TEST(ZnByteArrayOutputStreamTest, SharedStoreIsCopiedAndTheHolderKeepsItsBytes)
{
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    ViewedStream out(8);
    out.write("abcdefgh", 8, 0);
    out.reset();
    ZnHandle<ZnByteArray> held = out.store();
    EXPECT_EQ(2u, held->getRefCount());
    cap.clear();

    out.write('Z');

    EXPECT_NE(static_cast<ZnByteArray*>(held), static_cast<ZnByteArray*>(out.store()));
    EXPECT_EQ("abcdefgh", textOf(held));
    EXPECT_EQ(1u, held->getRefCount());
    EXPECT_EQ(8u + 256u, out.capacity());
    EXPECT_EQ("Z", collected(out));
    // The old bytes travelled with the copy.
    EXPECT_EQ('b', (*out.store())[1]);
    const std::vector<std::string> expected = {
        kPrefix + ": Capacity left in buffer = 0",
        kPrefix + ": length to write (1) more than remaining capacity of current buffer. "
                  "New capacity for buffer = 256",
        kPrefix + ": length of current buffer = 8"};
    EXPECT_EQ(expected, messages(cap));
}

TEST(ZnByteArrayOutputStreamTest, UnsharedStoreIsWrittenInPlace)
{
    ViewedStream out(8);
    out.write("abcdefgh", 8, 0);
    out.reset();
    ZnByteArray* before = out.store();
    out.write('Z');
    EXPECT_EQ(before, static_cast<ZnByteArray*>(out.store()));
    EXPECT_EQ('Z', (*out.store())[0]);
}

TEST(ZnByteArrayOutputStreamTest, ResetKeepsTheStoreAndStartsOver)
{
    ViewedStream out(4);
    out.write("wxyz", 4, 0);
    out.reset();
    EXPECT_EQ(0u, out.size());
    EXPECT_EQ(4u, out.capacity());
    out.write("ab", 2, 0);
    EXPECT_EQ("ab", collected(out));
}

TEST(ZnByteArrayOutputStreamTest, ToByteArrayAfterResetGivesTheFullCapacity)
{
    ViewedStream out(256);
    out.write("0123456789", 10, 0);
    const std::string big(300, 'z');
    out.write(big.data(), 300, 0);
    out.reset();
    ZnHandle<ZnByteArray> bytes = out.toByteArray();
    EXPECT_EQ(768u, bytes->length());
    EXPECT_EQ("0123456789", textOf(bytes).substr(0, 10));
}

TEST(ZnByteArrayOutputStreamTest, ToByteArrayWithoutStoreIsEmpty)
{
    ZnByteArrayOutputStream out;
    ZnHandle<ZnByteArray> bytes = out.toByteArray();
    ASSERT_FALSE(bytes.isNil());
    EXPECT_EQ(0u, bytes->length());
}

TEST(ZnByteArrayOutputStreamTest, ToByteArrayIsAPrivateCopyOfTheCount)
{
    ViewedStream out(64);
    out.write("hello", 5, 0);
    ZnHandle<ZnByteArray> bytes = out.toByteArray();
    EXPECT_EQ("hello", textOf(bytes));
    EXPECT_EQ(1u, bytes->getRefCount());
    EXPECT_NE(static_cast<ZnByteArray*>(bytes), static_cast<ZnByteArray*>(out.store()));
    out.reset();
    out.write("HELLO", 5, 0);
    EXPECT_EQ("hello", textOf(bytes));
}

TEST(ZnByteArrayOutputStreamTest, WriteToSendsTheBytesInOneBlockWrite)
{
    ZnByteArrayOutputStream out(64);
    out.write("payload", 7, 0);
    CountingStream target;
    out.writeTo(&target);
    EXPECT_EQ(1, target.blockWrites);
    EXPECT_EQ(0, target.byteWrites);
    EXPECT_EQ("payload", target.bytes);
}

TEST(ZnByteArrayOutputStreamTest, WriteToWithNothingCollectedWritesNothing)
{
    ZnByteArrayOutputStream out(64);
    CountingStream target;
    out.writeTo(&target);
    ZnByteArrayOutputStream empty;
    empty.writeTo(&target);
    EXPECT_EQ(0, target.blockWrites);
    EXPECT_EQ(0, target.byteWrites);
}

TEST(ZnByteArrayOutputStreamTest, WriteToAnotherByteArrayStream)
{
    ZnByteArrayOutputStream out;
    out.write("abc", 3, 0);
    ZnByteArrayOutputStream target;
    out.writeTo(&target);
    EXPECT_EQ("abc", collected(target));
}

TEST(ZnByteArrayOutputStreamTest, ArrayWriteFormAndInsertionOperatorsReachTheStore)
{
    ZnByteArrayOutputStream out;
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123");
    out.write(static_cast<ZnByteArray*>(array), 1, 0);
    out << " n=" << 42 << ' ' << 7u;
    EXPECT_EQ("123 n=42 7", collected(out));
}

TEST(ZnByteArrayOutputStreamTest, WriteIsTracedAtTraceLevel)
{
    ZnTest::LogCapture cap(kLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnByteArrayOutputStream out(16);
    out.write("ab", 2, 0);
    const std::vector<ZnTest::CapturedEvent> events = cap.events();
    ASSERT_EQ(3u, events.size());
    EXPECT_EQ("ENTER: ZnByteArrayOutputStream::write", events[0].message);
    EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, events[0].level);
    EXPECT_EQ(kPrefix + ": Capacity left in buffer = 16", events[1].message);
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, events[1].level);
    EXPECT_EQ("EXIT: ZnByteArrayOutputStream::write", events[2].message);
    EXPECT_EQ(Tavoris::TRACE_LOG_LEVEL, events[2].level);
    for (const ZnTest::CapturedEvent& event : events)
    {
        EXPECT_EQ(kLogger, event.logger);
        EXPECT_EQ("ZnByteArrayOutputStream", event.file);
    }
}

TEST(ZnByteArrayOutputStreamTest, LengthZeroIsTracedButLogsNothingElse)
{
    ZnTest::LogCapture cap(kLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnByteArrayOutputStream out;
    out.write("ab", 0, 0);
    const std::vector<std::string> expected = {"ENTER: ZnByteArrayOutputStream::write",
                                               "EXIT: ZnByteArrayOutputStream::write"};
    EXPECT_EQ(expected, messages(cap));
}

TEST(ZnByteArrayOutputStreamTest, ByteWriteIsOneTracedBlockWrite)
{
    ZnTest::LogCapture cap(kLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnByteArrayOutputStream out(4);
    out.write('x');
    EXPECT_EQ(1u, cap.find("ENTER: ZnByteArrayOutputStream::write").size());
    EXPECT_EQ(1u, cap.find("Capacity left in buffer = 4").size());
}

TEST(ZnByteArrayOutputStreamTest, DebugLevelLogsNoTraceLines)
{
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    ZnByteArrayOutputStream out;
    out.write("ab", 2, 0);
    EXPECT_TRUE(cap.find("ENTER").empty());
    EXPECT_TRUE(cap.find("EXIT").empty());
    EXPECT_EQ(3u, cap.events().size());
    for (const ZnTest::CapturedEvent& event : cap.events())
    {
        EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, event.level);
    }
}

TEST(ZnByteArrayOutputStreamTest, InfoLevelLogsNothing)
{
    ZnTest::LogCapture cap(kLogger, Tavoris::INFO_LOG_LEVEL);
    ZnByteArrayOutputStream out;
    const std::string big(1000, 'x');
    out.write(big.data(), 1000, 0);
    EXPECT_TRUE(cap.events().empty());
    EXPECT_EQ(1000u, out.size());
}

/// Writes a fixed text and some binary bytes when asked to serialise itself.
class Greeting : public ZnSerializable
{
public:
    void serialize(ZnOutputStream* out) const override
    {
        *out << "hi " << 42;
        const unsigned char binary[] = {0x00, 0xFF, 0x0A};
        out->write(binary, 3, 0);
    }
};

/// Writes nothing at all.
class Silent : public ZnSerializable
{
public:
    void serialize(ZnOutputStream*) const override {}
};

TEST(ZnByteArrayOutputStreamTest, SerializablePrintsItsSerialisedBytes)
{
    std::ostringstream printed;
    printed << Greeting() << '|';
    EXPECT_EQ(std::string("hi 42\0\xFF\n|", 9), printed.str());
}

TEST(ZnByteArrayOutputStreamTest, SerializableThatWritesNothingPrintsNothing)
{
    std::ostringstream printed;
    printed << Silent();
    EXPECT_EQ("", printed.str());
}

} // namespace
