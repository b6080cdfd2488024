#include "ZnUtil/ZnByteArray.h"

#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnOutputStream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace
{

/// An output stream that appends to a string and records each block write.
class RecordingStream : public ZnOutputStream
{
public:
    void write(void const* aBuffer, unsigned int aLength, unsigned int aOffset) override
    {
        blockWrites.push_back({aLength, aOffset});
        ZnOutputStream::write(aBuffer, aLength, aOffset);
    }
    void write(int aByte) override { text.push_back(static_cast<char>(aByte)); }
    using ZnOutputStream::write;

    struct Block
    {
        unsigned int length;
        unsigned int offset;
    };
    std::string text;
    std::vector<Block> blockWrites;
};

template <class Action>
ZnHandle<ZnException> catchThrown(Action&& action)
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

/// An array of the bytes 0, 1, ..., length - 1.
ZnHandle<ZnByteArray> counting(unsigned int length)
{
    std::vector<unsigned char> bytes(length);
    for (unsigned int i = 0; i < length; ++i)
    {
        bytes[i] = static_cast<unsigned char>(i);
    }
    return ZnByteArray::sCreate(length, bytes.data());
}

std::vector<unsigned char> contents(const ZnByteArray& array)
{
    return std::vector<unsigned char>(array.getBytes(), array.getBytes() + array.length());
}

std::vector<unsigned char> firstBytes(const ZnByteArray& array, unsigned int count)
{
    return std::vector<unsigned char>(array.getBytes(), array.getBytes() + count);
}

TEST(ZnByteArrayTest, CreateWithSourceCopiesBytes)
{
    unsigned char source[] = {9, 8, 7, 6, 5};
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(5, source);
    ASSERT_FALSE(array.isNil());
    source[0] = 0;
    EXPECT_EQ(array->length(), 5u);
    EXPECT_EQ(contents(*array), (std::vector<unsigned char>{9, 8, 7, 6, 5}));
    EXPECT_NE(array->getBytes(), source);
}

TEST(ZnByteArrayTest, CreateWithoutSourceHasLength)
{
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(12, nullptr);
    ASSERT_FALSE(array.isNil());
    EXPECT_EQ(array->length(), 12u);
}

TEST(ZnByteArrayTest, CreateZeroLengthIsEmptyNotNil)
{
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(0, nullptr);
    ASSERT_FALSE(array.isNil());
    EXPECT_EQ(array->length(), 0u);
}

TEST(ZnByteArrayTest, CreateFromNullTextIsNil)
{
    EXPECT_TRUE(ZnByteArray::sCreate(static_cast<const char*>(nullptr)).isNil());
}

TEST(ZnByteArrayTest, CreateFromEmptyTextIsEmpty)
{
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("");
    ASSERT_FALSE(array.isNil());
    EXPECT_EQ(array->length(), 0u);
}

TEST(ZnByteArrayTest, CreateFromTextLeavesOutTerminator)
{
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("abc");
    ASSERT_FALSE(array.isNil());
    EXPECT_EQ(array->length(), 3u);
    EXPECT_EQ(contents(*array), (std::vector<unsigned char>{'a', 'b', 'c'}));
}

TEST(ZnByteArrayTest, NewArrayIsHeldByItsHandleOnly)
{
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(4, nullptr);
    EXPECT_EQ(array->getRefCount(), 1u);
}

TEST(ZnByteArrayTest, SliceWithZeroLengthTakesRestFromOffset)
{
    ZnHandle<ZnByteArray> source = counting(10);
    ZnHandle<ZnByteArray> slice = ZnByteArray::sCreate(source, 0, 3);
    EXPECT_EQ(contents(*slice), (std::vector<unsigned char>{3, 4, 5, 6, 7, 8, 9}));
}

TEST(ZnByteArrayTest, SliceWithZeroLengthAtEndIsEmpty)
{
    ZnHandle<ZnByteArray> source = counting(10);
    ZnHandle<ZnByteArray> slice = ZnByteArray::sCreate(source, 0, 10);
    ASSERT_FALSE(slice.isNil());
    EXPECT_EQ(slice->length(), 0u);
}

TEST(ZnByteArrayTest, SliceWithZeroLengthPastEndIsEmpty)
{
    ZnHandle<ZnByteArray> source = counting(10);
    ZnHandle<ZnByteArray> slice = ZnByteArray::sCreate(source, 0, 25);
    ASSERT_FALSE(slice.isNil());
    EXPECT_EQ(slice->length(), 0u);
}

TEST(ZnByteArrayTest, SliceCopiesLengthFromOffset)
{
    ZnHandle<ZnByteArray> source = counting(10);
    ZnHandle<ZnByteArray> slice = ZnByteArray::sCreate(source, 4, 2);
    EXPECT_EQ(contents(*slice), (std::vector<unsigned char>{2, 3, 4, 5}));
    EXPECT_NE(slice->getBytes(), source->getBytes() + 2);
}

TEST(ZnByteArrayTest, SliceLongerThanSourceKeepsLengthAndCopiesWhatIsThere)
{
    ZnHandle<ZnByteArray> source = counting(10);
    ZnHandle<ZnByteArray> slice = ZnByteArray::sCreate(source, 20, 6);
    EXPECT_EQ(slice->length(), 20u);
    // Only the copied bytes are defined.
    EXPECT_EQ(firstBytes(*slice, 4), (std::vector<unsigned char>{6, 7, 8, 9}));
}

TEST(ZnByteArrayTest, SliceWithOffsetPastEndCopiesNothing)
{
    ZnHandle<ZnByteArray> source = counting(10);
    ZnHandle<ZnByteArray> slice = ZnByteArray::sCreate(source, 3, 12);
    EXPECT_EQ(slice->length(), 3u);
}

TEST(ZnByteArrayTest, SliceOfNullSourceIsUndefinedBytes)
{
    ZnHandle<ZnByteArray> slice =
        ZnByteArray::sCreate(static_cast<const ZnByteArray*>(nullptr), 5, 2);
    ASSERT_FALSE(slice.isNil());
    EXPECT_EQ(slice->length(), 5u);
    ZnHandle<ZnByteArray> none =
        ZnByteArray::sCreate(static_cast<const ZnByteArray*>(nullptr), 0, 0);
    EXPECT_EQ(none->length(), 0u);
}

TEST(ZnByteArrayTest, IndexReadsAndWritesBytes)
{
    ZnHandle<ZnByteArray> array = counting(4);
    EXPECT_EQ((*array)[2], 2);
    (*array)[2] = 200;
    EXPECT_EQ(array->getBytes()[2], 200);
    const ZnByteArray& constant = *array;
    EXPECT_EQ(constant[3], 3);
    EXPECT_EQ(&constant[0], array->getBytes());
}

TEST(ZnByteArrayTest, IndexAtLengthThrows)
{
    ZnHandle<ZnByteArray> array = counting(4);
    ZnHandle<ZnException> e = catchThrown([&] { (*array)[4] = 1; });
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getExceptionMessage(), "index out of bounds");
}

TEST(ZnByteArrayTest, ConstIndexAtLengthThrows)
{
    ZnHandle<ZnByteArray> array = counting(4);
    const ZnByteArray& constant = *array;
    ZnHandle<ZnException> e = catchThrown([&] { (void)constant[4]; });
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getExceptionMessage(), "index out of bounds");
    ZnHandle<ZnException> far = catchThrown([&] { (void)constant[0xFFFFFFFFu]; });
    EXPECT_FALSE(far.isNil());
}

TEST(ZnByteArrayTest, IndexOfEmptyArrayThrows)
{
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(0, nullptr);
    ZnHandle<ZnException> e = catchThrown([&] { (void)(*array)[0]; });
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getExceptionMessage(), "index out of bounds");
}

TEST(ZnByteArrayTest, CopyFromMemoryAtPosition)
{
    ZnHandle<ZnByteArray> array = counting(6);
    const unsigned char source[] = {90, 91, 92, 93, 94};
    array->copy(1, source, 2, 3);
    EXPECT_EQ(contents(*array), (std::vector<unsigned char>{0, 93, 94, 3, 4, 5}));
}

TEST(ZnByteArrayTest, CopyFromMemoryCutsCountAtDestinationEnd)
{
    ZnHandle<ZnByteArray> array = counting(6);
    const unsigned char source[] = {90, 91, 92, 93, 94};
    array->copy(4, source, 5, 0);
    EXPECT_EQ(contents(*array), (std::vector<unsigned char>{0, 1, 2, 3, 90, 91}));
}

TEST(ZnByteArrayTest, CopyFromMemoryAtOrPastEndCopiesNothing)
{
    ZnHandle<ZnByteArray> array = counting(6);
    const unsigned char source[] = {90, 91};
    array->copy(6, source, 2, 0);
    array->copy(100, source, 2, 0);
    EXPECT_EQ(contents(*array), (std::vector<unsigned char>{0, 1, 2, 3, 4, 5}));
}

TEST(ZnByteArrayTest, CopyFromArrayCutsAtSourceEnd)
{
    ZnHandle<ZnByteArray> array = counting(6);
    ZnHandle<ZnByteArray> source = ZnByteArray::sCreate(4, "wxyz");
    array->copy(0, static_cast<const ZnByteArray*>(source), 10, 2);
    EXPECT_EQ(contents(*array), (std::vector<unsigned char>{'y', 'z', 2, 3, 4, 5}));
}

TEST(ZnByteArrayTest, CopyFromArrayCutsAtDestinationEnd)
{
    ZnHandle<ZnByteArray> array = counting(6);
    ZnHandle<ZnByteArray> source = ZnByteArray::sCreate(4, "wxyz");
    array->copy(4, static_cast<const ZnByteArray*>(source), 4, 0);
    EXPECT_EQ(contents(*array), (std::vector<unsigned char>{0, 1, 2, 3, 'w', 'x'}));
}

TEST(ZnByteArrayTest, CopyFromArrayTakesCount)
{
    ZnHandle<ZnByteArray> array = counting(6);
    ZnHandle<ZnByteArray> source = ZnByteArray::sCreate(4, "wxyz");
    array->copy(1, static_cast<const ZnByteArray*>(source), 2, 1);
    EXPECT_EQ(contents(*array), (std::vector<unsigned char>{0, 'x', 'y', 3, 4, 5}));
}

TEST(ZnByteArrayTest, CopyFromArrayWithOffsetOrPositionAtEndCopiesNothing)
{
    ZnHandle<ZnByteArray> array = counting(6);
    ZnHandle<ZnByteArray> source = ZnByteArray::sCreate(4, "wxyz");
    array->copy(0, static_cast<const ZnByteArray*>(source), 4, 4);
    array->copy(0, static_cast<const ZnByteArray*>(source), 4, 9);
    array->copy(6, static_cast<const ZnByteArray*>(source), 4, 0);
    EXPECT_EQ(contents(*array), (std::vector<unsigned char>{0, 1, 2, 3, 4, 5}));
}

TEST(ZnByteArrayTest, HashOfOneTwoThreeIsThree)
{
    const unsigned char bytes[] = {1, 2, 3};
    EXPECT_EQ(ZnByteArray::sCreate(3, bytes)->hashCode(), 3u);
}

TEST(ZnByteArrayTest, HashOfEmptyIsZero)
{
    EXPECT_EQ(ZnByteArray::sCreate(0, nullptr)->hashCode(), 0u);
}

TEST(ZnByteArrayTest, HashTakesBytesUnsigned)
{
    const unsigned char bytes[] = {0xFF, 0x80};
    // (0xFF * 2) ^ 0x80 = 0x17E
    EXPECT_EQ(ZnByteArray::sCreate(2, bytes)->hashCode(), 0x17Eu);
}

TEST(ZnByteArrayTest, HashWrapsAtThirtyTwoBits)
{
    std::vector<unsigned char> bytes(33, 0);
    bytes[0] = 1;
    EXPECT_EQ(ZnByteArray::sCreate(32, bytes.data())->hashCode(), 0x80000000u);
    EXPECT_EQ(ZnByteArray::sCreate(33, bytes.data())->hashCode(), 0u);
}

TEST(ZnByteArrayTest, HashIsNotCached)
{
    ZnHandle<ZnByteArray> array = counting(3);
    const unsigned int before = array->hashCode();
    (*array)[2] = 9;
    EXPECT_NE(array->hashCode(), before);
    // 0, 1, 9: ((0 * 2 ^ 0) * 2 ^ 1) * 2 ^ 9 = 11
    EXPECT_EQ(array->hashCode(), 11u);
}

TEST(ZnByteArrayTest, CompareWithSelfIsZero)
{
    ZnHandle<ZnByteArray> array = counting(3);
    EXPECT_EQ(array->compareWith(array), 0);
    EXPECT_TRUE(array->equals(array));
}

TEST(ZnByteArrayTest, CompareWithEqualContentThrows)
{
    ZnHandle<ZnByteArray> a = counting(3);
    ZnHandle<ZnByteArray> b = counting(3);
    ZnHandle<ZnException> e = catchThrown([&] { a->compareWith(b); });
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getExceptionMessage(), "ZnByteArray::compareWith");
}

TEST(ZnByteArrayTest, CompareWithNullThrows)
{
    ZnHandle<ZnByteArray> a = counting(3);
    ZnHandle<ZnException> e = catchThrown([&] { a->compareWith(nullptr); });
    ASSERT_FALSE(e.isNil());
    EXPECT_STREQ(e->getExceptionMessage(), "ZnByteArray::compareWith");
}

TEST(ZnByteArrayTest, CloneHandsBackAnotherPointer)
{
    ZnHandle<ZnByteArray> array = counting(5);
    // The pointer refers to a copy that is already gone: it is compared, never followed.
    ZnObject* copy = array->clone();
    EXPECT_NE(copy, nullptr);
    EXPECT_NE(copy, static_cast<ZnObject*>(array));
    EXPECT_EQ(array->getRefCount(), 1u);
    EXPECT_EQ(contents(*array), (std::vector<unsigned char>{0, 1, 2, 3, 4}));
}

TEST(ZnByteArrayTest, DisplayWritesAllBytesInOneArrayWrite)
{
    const unsigned char bytes[] = {'a', 0, 0xFF, 'z'};
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(4, bytes);
    RecordingStream out;
    array->display(out);
    EXPECT_EQ(out.text, std::string("a\0\xff"
                                    "z",
                                    4));
    ASSERT_EQ(out.blockWrites.size(), 1u);
    EXPECT_EQ(out.blockWrites[0].length, 4u);
    EXPECT_EQ(out.blockWrites[0].offset, 0u);
}

TEST(ZnByteArrayTest, DisplayOfEmptyWritesNothing)
{
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(0, nullptr);
    RecordingStream out;
    array->display(out);
    EXPECT_TRUE(out.text.empty());
}

TEST(ZnByteArrayTest, DisplayDispatchesThroughObject)
{
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("xyz");
    RecordingStream out;
    const ZnByteArray& byteArray = *array;
    byteArray.display(out);
    EXPECT_EQ(out.text, "xyz");
}

TEST(ZnByteArrayTest, StdStreamGetsEveryByte)
{
    const unsigned char bytes[] = {'h', 0, 0x80, '!'};
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(4, bytes);
    std::ostringstream out;
    out << *array << '|';
    EXPECT_EQ(out.str(), std::string("h\0\x80!|", 5));
}

TEST(ZnByteArrayTest, StdStreamOfEmptyWritesNothing)
{
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("");
    std::ostringstream out;
    out << *array;
    EXPECT_TRUE(out.str().empty());
}

TEST(ZnByteArrayTest, ClassNameIsByteArray)
{
    EXPECT_STREQ(ZnByteArray::sCreate("a")->getClassName(), "ZnByteArray");
}

} // namespace
