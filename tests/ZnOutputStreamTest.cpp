#include "ZnUtil/ZnOutputStream.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnString.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

/// An output stream that appends each byte to a string and keeps a log of the calls it gets:
/// "b<length>@<offset>" for a block write, "w<byte>" for a byte write, "flush".
class RecordingStream : public ZnOutputStream
{
public:
    void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset) override
    {
        calls.push_back("b" + std::to_string(aLength) + "@" + std::to_string(aOffset));
        ++blockWrites;
        ZnOutputStream::write(aBuffer, aLength, aOffset);
    }
    void write(int aByte) override
    {
        calls.push_back("w" + std::to_string(aByte));
        text.push_back(static_cast<char>(aByte));
    }
    void flush() override
    {
        calls.push_back("flush");
        ++flushes;
    }
    using ZnOutputStream::write;

    std::string text;
    std::vector<std::string> calls;
    int blockWrites = 0;
    int flushes = 0;
};

/// A stream that keeps its bytes until it is flushed.
class BufferingStream : public ZnOutputStream
{
public:
    void write(int aByte) override { pending.push_back(static_cast<char>(aByte)); }
    void flush() override
    {
        delivered += pending;
        pending.clear();
    }
    using ZnOutputStream::write;

    std::string pending;
    std::string delivered;
};

/// A stream that keeps every default but the byte write.
class PlainStream : public ZnOutputStream
{
public:
    void write(int aByte) override { text.push_back(static_cast<char>(aByte)); }
    using ZnOutputStream::write;

    std::string text;
};

ZnOutputStream& star(ZnOutputStream& out)
{
    return out << '*';
}

template <class T>
std::string printed(T value)
{
    RecordingStream out;
    out << value;
    EXPECT_EQ(out.blockWrites, 1);
    return out.text;
}

std::string printedPointer(uintptr_t value)
{
    return printed(reinterpret_cast<const void*>(value));
}

TEST(ZnOutputStreamTest, BlockWriteGivesEachByteFromOffset)
{
    PlainStream out;
    const char bytes[] = "0123456";
    out.write(bytes, 3, 2);
    EXPECT_EQ(out.text, "234");
}

TEST(ZnOutputStreamTest, BlockWriteOfNullBufferWritesNothing)
{
    PlainStream out;
    out.write(static_cast<const void*>(nullptr), 5, 0);
    EXPECT_TRUE(out.text.empty());
}

TEST(ZnOutputStreamTest, BlockWriteOfZeroLengthWritesNothing)
{
    PlainStream out;
    out.write("abc", 0, 0);
    EXPECT_TRUE(out.text.empty());
}

TEST(ZnOutputStreamTest, BlockWriteKeepsHighBytesUnsigned)
{
    RecordingStream out;
    const unsigned char bytes[] = {0xFF, 0x80};
    out.write(bytes, 2, 0);
    EXPECT_EQ(out.calls, (std::vector<std::string>{"b2@0", "w255", "w128"}));
}

TEST(ZnOutputStreamTest, DefaultFlushWritesNothing)
{
    PlainStream out;
    out.flush();
    out << flush;
    EXPECT_TRUE(out.text.empty());
}

TEST(ZnOutputStreamTest, ArrayWriteOfZeroLengthWritesWholeTail)
{
    RecordingStream out;
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123456789");
    out.write(array, 4, 0);
    EXPECT_EQ(out.text, "456789");
    EXPECT_EQ(out.calls.front(), "b6@4");
}

TEST(ZnOutputStreamTest, ArrayWriteTakesOffsetThenLength)
{
    RecordingStream out;
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123456789");
    out.write(array, 2, 3);
    EXPECT_EQ(out.text, "234");
    EXPECT_EQ(out.calls.front(), "b3@2");
}

TEST(ZnOutputStreamTest, ArrayWriteWithExcessiveLengthWritesTail)
{
    RecordingStream out;
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123456789");
    out.write(array, 7, 50);
    EXPECT_EQ(out.text, "789");
}

TEST(ZnOutputStreamTest, ArrayWriteFromStartWritesAll)
{
    RecordingStream out;
    const unsigned char bytes[] = {'a', 0, 'b'};
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(3, bytes);
    out.write(array, 0, 0);
    EXPECT_EQ(out.text, std::string("a\0b", 3));
}

TEST(ZnOutputStreamTest, ArrayWriteAtOrPastEndWritesNothing)
{
    RecordingStream out;
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("0123");
    out.write(array, 4, 0);
    out.write(array, 9, 2);
    EXPECT_TRUE(out.text.empty());
}

TEST(ZnOutputStreamTest, ArrayWriteOfNullArrayWritesNothing)
{
    RecordingStream out;
    out.write(static_cast<ZnByteArray*>(nullptr), 0, 0);
    EXPECT_TRUE(out.calls.empty());
}

TEST(ZnOutputStreamTest, TextIsOneBlockWrite)
{
    RecordingStream out;
    out << "hello";
    EXPECT_EQ(out.text, "hello");
    EXPECT_EQ(out.calls.front(), "b5@0");
    EXPECT_EQ(out.blockWrites, 1);
}

TEST(ZnOutputStreamTest, UnsignedTextIsOneBlockWrite)
{
    RecordingStream out;
    const unsigned char text[] = {'h', 0xE9, 0};
    out << text;
    EXPECT_EQ(out.text, "h\xe9");
    EXPECT_EQ(out.blockWrites, 1);
}

TEST(ZnOutputStreamTest, NullTextWritesNothing)
{
    RecordingStream out;
    out << static_cast<const char*>(nullptr) << static_cast<const unsigned char*>(nullptr);
    EXPECT_TRUE(out.calls.empty());
}

TEST(ZnOutputStreamTest, CharIsOneByteWrite)
{
    RecordingStream out;
    out << 'x' << static_cast<char>(-23);
    EXPECT_EQ(out.calls, (std::vector<std::string>{"w120", "w233"}));
}

TEST(ZnOutputStreamTest, UnsignedCharIsOneByteWrite)
{
    RecordingStream out;
    out << static_cast<unsigned char>(200);
    EXPECT_EQ(out.calls, (std::vector<std::string>{"w200"}));
}

TEST(ZnOutputStreamTest, SignedNumbersAreDecimal)
{
    EXPECT_EQ(printed(static_cast<short>(-32768)), "-32768");
    EXPECT_EQ(printed(0), "0");
    EXPECT_EQ(printed(INT_MIN), "-2147483648");
    EXPECT_EQ(printed(INT_MAX), "2147483647");
    EXPECT_EQ(printed(-7L), "-7");
    EXPECT_EQ(printed(2147483647L), "2147483647");
}

TEST(ZnOutputStreamTest, UnsignedNumbersAreDecimal)
{
    EXPECT_EQ(printed(static_cast<unsigned short>(65535)), "65535");
    EXPECT_EQ(printed(4294967295u), "4294967295");
    EXPECT_EQ(printed(42UL), "42");
    EXPECT_EQ(printed(4294967295UL), "4294967295");
}

TEST(ZnOutputStreamTest, DoubleIsFixedWithSixDecimals)
{
    EXPECT_EQ(printed(1.5), "1.500000");
    EXPECT_EQ(printed(-0.0000004), "-0.000000");
    EXPECT_EQ(printed(2.0 / 3.0), "0.666667");
}

TEST(ZnOutputStreamTest, HugeDoubleIsWrittenWhole)
{
    char expected[400];
    snprintf(expected, sizeof expected, "%f", DBL_MAX);
    EXPECT_EQ(printed(DBL_MAX), expected);
    EXPECT_EQ(printed(DBL_MAX).size(), 316u);
}

TEST(ZnOutputStreamTest, FloatWidensToDouble)
{
    EXPECT_EQ(printed(0.25f), "0.250000");
    EXPECT_EQ(printed(FLT_MAX), "340282346638528859811704183484516925440.000000");
}

TEST(ZnOutputStreamTest, PointerIsEightUpperCaseHexDigitsOfLowBits)
{
    EXPECT_EQ(printedPointer(0x1F), "0000001F");
    EXPECT_EQ(printedPointer(0xDEADBEEF), "DEADBEEF");
    EXPECT_EQ(printedPointer(static_cast<uintptr_t>(0x12345678ABCDEF01ULL)), "ABCDEF01");
    EXPECT_EQ(printed(static_cast<const void*>(nullptr)), "00000000");
}

TEST(ZnOutputStreamTest, FlushManipulatorFlushes)
{
    RecordingStream out;
    out << "a" << flush;
    EXPECT_EQ(out.flushes, 1);
    EXPECT_EQ(out.text, "a");
    EXPECT_EQ(out.calls.back(), "flush");
}

TEST(ZnOutputStreamTest, EndlWritesLineFeedThenFlushes)
{
    RecordingStream out;
    out << endl;
    EXPECT_EQ(out.calls, (std::vector<std::string>{"w10", "flush"}));
    EXPECT_EQ(out.text, "\n");
}

TEST(ZnOutputStreamTest, FreeManipulatorsReturnTheStream)
{
    RecordingStream out;
    EXPECT_EQ(&flush(out), &out);
    EXPECT_EQ(&endl(out), &out);
    EXPECT_EQ(out.flushes, 2);
}

TEST(ZnOutputStreamTest, EndlPushesBufferedLineOut)
{
    BufferingStream out;
    out << "line";
    EXPECT_TRUE(out.delivered.empty());
    out << endl;
    EXPECT_EQ(out.delivered, "line\n");
    EXPECT_TRUE(out.pending.empty());
}

TEST(ZnOutputStreamTest, ManipulatorIsCalledWithStream)
{
    RecordingStream out;
    out << star << star;
    EXPECT_EQ(out.text, "**");
}

TEST(ZnOutputStreamTest, StringWritesItsCharacters)
{
    RecordingStream out;
    ZnString text("value");
    out << text;
    EXPECT_EQ(out.text, "value");
    EXPECT_EQ(out.blockWrites, 1);
}

TEST(ZnOutputStreamTest, NilStringWritesNothing)
{
    RecordingStream out;
    ZnString nil;
    ASSERT_TRUE(nil.isNil());
    out << nil;
    EXPECT_TRUE(out.calls.empty());
}

TEST(ZnOutputStreamTest, OperatorsChainOnSameStream)
{
    RecordingStream out;
    ZnOutputStream& result = out << "n=" << 5 << ',' << 2u << ' ' << ZnString("s") << endl;
    EXPECT_EQ(&result, &out);
    EXPECT_EQ(out.text, "n=5,2 s\n");
}

} // namespace
