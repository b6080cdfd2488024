#include "ZnUtil/ZnByteArrayInputStream.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

const unsigned int kEnd = 0xFFFFFFFFu;

/// An array holding the characters '0' to '9'.
ZnHandle<ZnByteArray> digits()
{
    return ZnByteArray::sCreate("0123456789");
}

/// Everything read() gives until it answers -1, as text.
std::string drain(ZnByteArrayInputStream& in)
{
    std::string text;
    for (int c = in.read(); c != -1; c = in.read())
    {
        text.push_back(static_cast<char>(c));
    }
    return text;
}

TEST(ZnByteArrayInputStreamTest, ReadsFromOffsetForLength)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 2, 3);
    EXPECT_EQ("234", drain(in));
    EXPECT_EQ(-1, in.read());
}

TEST(ZnByteArrayInputStreamTest, OffsetFiveLengthZeroReadsFiveToNine)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 5, 0);
    EXPECT_EQ(5u, in.available());
    EXPECT_EQ("56789", drain(in));
}

TEST(ZnByteArrayInputStreamTest, LengthPastTheEndReadsToTheArrayEnd)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 7, 100);
    EXPECT_EQ("789", drain(in));
}

TEST(ZnByteArrayInputStreamTest, HugeLengthDoesNotWrapTheEnd)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 4, 0xFFFFFFFEu);
    EXPECT_EQ("456789", drain(in));
}

TEST(ZnByteArrayInputStreamTest, DefaultsReadTheWholeArray)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array);
    EXPECT_EQ("0123456789", drain(in));
}

TEST(ZnByteArrayInputStreamTest, NilArrayReadsEndAtOnce)
{
    ZnByteArrayInputStream in(nullptr, 0, 0);
    EXPECT_EQ(-1, in.read());
    unsigned char buffer[4] = {};
    EXPECT_EQ(kEnd, in.read(buffer, 4, 0));
    EXPECT_EQ(0u, in.available());
    EXPECT_EQ(0u, in.skip(3));
}

TEST(ZnByteArrayInputStreamTest, NilArrayWithOffsetReadsEndAtOnce)
{
    ZnByteArrayInputStream in(nullptr, 3, 4);
    EXPECT_EQ(-1, in.read());
    EXPECT_EQ(0u, in.available());
}

TEST(ZnByteArrayInputStreamTest, OffsetPastTheArrayReadsNothing)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 12, 2);
    EXPECT_EQ(-1, in.read());
    EXPECT_EQ(0u, in.available());
    EXPECT_EQ(0u, in.skip(1));
}

TEST(ZnByteArrayInputStreamTest, ReadGivesBytesAsUnsigned)
{
    const unsigned char bytes[] = {0xFF, 0x80, 0x00};
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(3, bytes);
    ZnByteArrayInputStream in(array, 0, 0);
    EXPECT_EQ(255, in.read());
    EXPECT_EQ(128, in.read());
    EXPECT_EQ(0, in.read());
    EXPECT_EQ(-1, in.read());
}

TEST(ZnByteArrayInputStreamTest, BlockReadCopiesTheLesserOfLengthAndRemainderAtOffset)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 6, 0);
    char buffer[8] = {'.', '.', '.', '.', '.', '.', '.', '.'};
    EXPECT_EQ(3u, in.read(buffer, 3, 2));
    EXPECT_EQ("..678...", std::string(buffer, 8));
    EXPECT_EQ(1u, in.read(buffer, 5, 0));
    EXPECT_EQ('9', buffer[0]);
    EXPECT_EQ(kEnd, in.read(buffer, 5, 0));
}

TEST(ZnByteArrayInputStreamTest, BlockReadOfLengthZeroAtTheEndIsEndOfStream)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 10, 0);
    char buffer[1] = {};
    EXPECT_EQ(kEnd, in.read(buffer, 0, 0));
}

TEST(ZnByteArrayInputStreamTest, BlockReadOfLengthZeroBeforeTheEndReadsNothing)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 0, 0);
    char buffer[1] = {};
    EXPECT_EQ(0u, in.read(buffer, 0, 0));
    EXPECT_EQ(10u, in.available());
}

TEST(ZnByteArrayInputStreamTest, ArrayReadFormFillsTheTargetArray)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 3, 4);
    ZnHandle<ZnByteArray> target = ZnByteArray::sCreate("abcdef");
    EXPECT_EQ(4u, in.read(target, 1, 0));
    EXPECT_EQ("a3456f", std::string(reinterpret_cast<const char*>(target->getBytes()), 6));
}

TEST(ZnByteArrayInputStreamTest, SkipAdvancesByTheLesserOfCountAndRemainder)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 0, 0);
    EXPECT_EQ(3u, in.skip(3));
    EXPECT_EQ('3', in.read());
    EXPECT_EQ(6u, in.skip(50));
    EXPECT_EQ(0u, in.skip(1));
    EXPECT_EQ(-1, in.read());
}

TEST(ZnByteArrayInputStreamTest, AvailableIsWhatRemains)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 2, 5);
    EXPECT_EQ(5u, in.available());
    in.read();
    EXPECT_EQ(4u, in.available());
    in.skip(10);
    EXPECT_EQ(0u, in.available());
}

TEST(ZnByteArrayInputStreamTest, MarkIsSupported)
{
    ZnByteArrayInputStream in(nullptr, 0, 0);
    EXPECT_TRUE(in.markSupported());
}

TEST(ZnByteArrayInputStreamTest, ResetReturnsToTheMarkRepeatedly)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 0, 0);
    in.skip(4);
    in.mark(1);
    // The limit is ignored: reading far past it still lets reset() return.
    EXPECT_EQ("456789", drain(in));
    in.reset();
    EXPECT_EQ('4', in.read());
    in.reset();
    EXPECT_EQ('4', in.read());
}

TEST(ZnByteArrayInputStreamTest, ResetBeforeAnyMarkGoesToIndexZero)
{
    ZnHandle<ZnByteArray> array = digits();
    ZnByteArrayInputStream in(array, 5, 3);
    EXPECT_EQ('5', in.read());
    in.reset();
    EXPECT_EQ(8u, in.available());
    EXPECT_EQ("01234567", drain(in));
}

TEST(ZnByteArrayInputStreamTest, HoldsTheArrayCounted)
{
    ZnByteArray* raw = nullptr;
    ZnByteArrayInputStream* in = nullptr;
    {
        ZnHandle<ZnByteArray> array = digits();
        raw = array;
        in = new ZnByteArrayInputStream(array, 0, 0);
        EXPECT_EQ(2u, raw->getRefCount());
    }
    // The caller's handle is gone; the stream keeps the array alive.
    EXPECT_EQ(1u, raw->getRefCount());
    EXPECT_EQ('0', in->read());
    delete in;
}

} // namespace
