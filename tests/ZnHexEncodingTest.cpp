#include "ZnUtil/ZnHexEncoding.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnString.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

ZnHandle<ZnByteArray> arrayOf(const std::vector<unsigned char>& bytes)
{
    return ZnByteArray::sCreate(static_cast<unsigned int>(bytes.size()), bytes.data());
}

std::vector<unsigned char> bytesOf(const ZnHandle<ZnByteArray>& array)
{
    const ZnByteArray* a = array;
    return std::vector<unsigned char>(a->getBytes(), a->getBytes() + a->length());
}

TEST(ZnHexEncodingTest, ToHexWritesLowerCase)
{
    EXPECT_STREQ(ZnHexEncoding::toHex(arrayOf({0xAB, 0x01})).c_str(), "ab01");
}

TEST(ZnHexEncodingTest, FromHexReadsUpperCase)
{
    const ZnHandle<ZnByteArray> bytes = ZnHexEncoding::fromHex(ZnString("AB01"));
    EXPECT_EQ(bytesOf(bytes), (std::vector<unsigned char>{0xAB, 0x01}));
}

TEST(ZnHexEncodingTest, FromHexLowerCaseDoesNotGiveTheBytes)
{
    // 'a' counts 'a' - '7' = 42 and 'b' 43: 42 * 16 + 43 is 0x2CB, kept as 0xCB.
    const ZnHandle<ZnByteArray> bytes = ZnHexEncoding::fromHex(ZnString("ab01"));
    EXPECT_NE(bytesOf(bytes), (std::vector<unsigned char>{0xAB, 0x01}));
    EXPECT_EQ(bytesOf(bytes), (std::vector<unsigned char>{0xCB, 0x01}));
}

TEST(ZnHexEncodingTest, FromTwoDigitsGivesTheirByte)
{
    char sevenF[] = "7F";
    char zero[] = "00";
    char all[] = "FF";
    char nine[] = "09";
    EXPECT_EQ(ZnHexEncoding::fromHex(sevenF), 0x7F);
    EXPECT_EQ(ZnHexEncoding::fromHex(zero), 0);
    EXPECT_EQ(static_cast<unsigned char>(ZnHexEncoding::fromHex(all)), 0xFF);
    EXPECT_EQ(ZnHexEncoding::fromHex(nine), 9);
}

TEST(ZnHexEncodingTest, FromTwoDigitsReadsOnlyTwoCharacters)
{
    char text[] = "12FF";
    EXPECT_EQ(ZnHexEncoding::fromHex(text), 0x12);
}

TEST(ZnHexEncodingTest, NonHexCharactersGiveWrongValuesWithoutError)
{
    // 'G' counts 16, 'Z' 35: no character is refused.
    char g0[] = "G0";
    char zz[] = "ZZ";
    EXPECT_EQ(ZnHexEncoding::fromHex(g0), 0x00);
    EXPECT_EQ(ZnHexEncoding::fromHex(zz), static_cast<char>(35 * 16 + 35));
}

TEST(ZnHexEncodingTest, FromTwoDigitsAcceptsTheTerminatorSecond)
{
    // 'A' counts 10 and the terminator 0 - '7' = -55: 160 - 55 = 105.
    char a[] = "A";
    EXPECT_EQ(ZnHexEncoding::fromHex(a), 105);
}

TEST(ZnHexEncodingTest, FromHexOfNilOrEmptyGivesAnEmptyArray)
{
    const ZnHandle<ZnByteArray> fromNil = ZnHexEncoding::fromHex(ZnString());
    ASSERT_FALSE(fromNil.isNil());
    EXPECT_EQ(fromNil->length(), 0u);
    const ZnHandle<ZnByteArray> fromEmpty = ZnHexEncoding::fromHex(ZnString(""));
    ASSERT_FALSE(fromEmpty.isNil());
    EXPECT_EQ(fromEmpty->length(), 0u);
}

TEST(ZnHexEncodingTest, FromHexOfOddLengthLeavesTheLastDigitOut)
{
    const ZnHandle<ZnByteArray> bytes = ZnHexEncoding::fromHex(ZnString("ABC"));
    EXPECT_EQ(bytesOf(bytes), (std::vector<unsigned char>{0xAB}));
    const ZnHandle<ZnByteArray> one = ZnHexEncoding::fromHex(ZnString("7"));
    EXPECT_EQ(one->length(), 0u);
}

TEST(ZnHexEncodingTest, FromHexGivesHalfTheLength)
{
    const ZnHandle<ZnByteArray> bytes =
        ZnHexEncoding::fromHex(ZnString("D41D8CD98F00B204E9800998ECF8427E"));
    EXPECT_EQ(bytes->length(), 16u);
    EXPECT_EQ(bytesOf(bytes)[0], 0xD4);
    EXPECT_EQ(bytesOf(bytes)[15], 0x7E);
}

TEST(ZnHexEncodingTest, ToHexOfNilOrEmptyGivesAnEmptyText)
{
    const ZnString fromNil = ZnHexEncoding::toHex(ZnHandle<ZnByteArray>());
    EXPECT_STREQ(fromNil.c_str(), "");
    EXPECT_EQ(fromNil.length(), 0u);
    EXPECT_STREQ(ZnHexEncoding::toHex(ZnByteArray::sCreate(0, nullptr)).c_str(), "");
}

TEST(ZnHexEncodingTest, ToHexWritesEveryByteAsTwoDigits)
{
    std::vector<unsigned char> all(256);
    std::string expected;
    const char digits[] = "0123456789abcdef";
    for (unsigned int i = 0; i < 256; ++i)
    {
        all[i] = static_cast<unsigned char>(i);
        expected.push_back(digits[i >> 4]);
        expected.push_back(digits[i & 15]);
    }
    const ZnString hex = ZnHexEncoding::toHex(arrayOf(all));
    EXPECT_EQ(hex.length(), 512u);
    EXPECT_EQ(std::string(hex.c_str()), expected);
}

TEST(ZnHexEncodingTest, RoundTripKeepsDecimalDigits)
{
    const ZnString digits("0123456789");
    EXPECT_STREQ(ZnHexEncoding::toHex(ZnHexEncoding::fromHex(digits)).c_str(), "0123456789");
}

TEST(ZnHexEncodingTest, RoundTripTurnsUpperCaseToLowerCase)
{
    const ZnString hex("DEADBEEF00FF");
    EXPECT_STREQ(ZnHexEncoding::toHex(ZnHexEncoding::fromHex(hex)).c_str(), "deadbeef00ff");
}

TEST(ZnHexEncodingTest, RoundTripOfLowerCaseLettersChangesThem)
{
    const ZnString hex("deadbeef");
    EXPECT_STRNE(ZnHexEncoding::toHex(ZnHexEncoding::fromHex(hex)).c_str(), "deadbeef");
}

TEST(ZnHexEncodingTest, EveryByteSurvivesToHexUpperCasedAndBack)
{
    for (unsigned int i = 0; i < 256; ++i)
    {
        const ZnHandle<ZnByteArray> one = arrayOf({static_cast<unsigned char>(i)});
        ZnString hex = ZnHexEncoding::toHex(one);
        hex.toUpper();
        EXPECT_EQ(bytesOf(ZnHexEncoding::fromHex(hex)), bytesOf(one)) << i;
    }
}

TEST(ZnHexEncodingTest, IsAnObjectWithCountZero)
{
    ZnHandle<ZnHexEncoding> encoding(new ZnHexEncoding());
    EXPECT_EQ(encoding->getRefCount(), 1u);
    EXPECT_STREQ(encoding->getClassName(), "ZnHexEncoding");
}

} // namespace
