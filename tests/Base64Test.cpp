#include "ZnUtil/Base64.h"

#include "ZnUtil/ZnString.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

namespace
{

/// The first \p length bytes of \p text as a std::string, zero bytes included.
std::string bytesOf(const ZnString& text, unsigned int length)
{
    return std::string(text.c_str(), length);
}

/// Four characters per three bytes, the last group padded.
unsigned int expectedEncodedLength(size_t n)
{
    return static_cast<unsigned int>((n + 2) / 3 * 4);
}

struct Vector
{
    const char* plain;
    const char* encoded;
};

// The test vectors of RFC 4648, section 10.
const Vector kRfc4648[] = {
    {"f", "Zg=="},        {"fo", "Zm8="},        {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
};

TEST(Base64Test, EncodeAbcGivesFourCharacters)
{
    EXPECT_STREQ(Base64::encode("abc").c_str(), "YWJj");
}

TEST(Base64Test, EncodeOneByteGivesTwoPadsAndLengthFour)
{
    unsigned int length = 99;
    const ZnString encoded = Base64::encode("a", length);
    EXPECT_STREQ(encoded.c_str(), "YQ==");
    EXPECT_EQ(length, 4u);
}

TEST(Base64Test, DecodeTwoPadsGivesOneByte)
{
    unsigned int length = 99;
    const ZnString decoded = Base64::decode("YQ==", length);
    EXPECT_STREQ(decoded.c_str(), "a");
    EXPECT_EQ(length, 1u);
}

TEST(Base64Test, DecodeEmptyGivesEmptyTextWithLengthZero)
{
    unsigned int length = 99;
    const ZnString decoded = Base64::decode("", length);
    EXPECT_STREQ(decoded.c_str(), "");
    EXPECT_EQ(length, 0u);
}

TEST(Base64Test, DecodeSingleCharacterReadsTheTerminatorAndStops)
{
    // 'Y' is 24; the terminator in second place counts as 255: (24 << 2) | 3.
    unsigned int length = 99;
    const ZnString decoded = Base64::decode("Y", length);
    ASSERT_EQ(length, 1u);
    EXPECT_EQ(static_cast<unsigned char>(decoded.c_str()[0]), 0x63);
    EXPECT_EQ(decoded.c_str()[1], '\0');
}

TEST(Base64Test, EncodeEmptyGivesEmptyTextWithLengthZero)
{
    unsigned int length = 99;
    const ZnString encoded = Base64::encode("", length);
    EXPECT_STREQ(encoded.c_str(), "");
    EXPECT_EQ(length, 0u);
}

TEST(Base64Test, NullTextCountsAsEmpty)
{
    unsigned int encodedLength = 99;
    unsigned int decodedLength = 99;
    EXPECT_STREQ(Base64::encode(nullptr, encodedLength).c_str(), "");
    EXPECT_STREQ(Base64::decode(nullptr, decodedLength).c_str(), "");
    EXPECT_EQ(encodedLength, 0u);
    EXPECT_EQ(decodedLength, 0u);
}

TEST(Base64Test, EncodeGivesTheRfc4648Vectors)
{
    for (const Vector& vector : kRfc4648)
    {
        unsigned int length = 0;
        const ZnString encoded = Base64::encode(vector.plain, length);
        EXPECT_STREQ(encoded.c_str(), vector.encoded) << vector.plain;
        EXPECT_EQ(length, strlen(vector.encoded)) << vector.plain;
    }
}

TEST(Base64Test, DecodeGivesTheRfc4648Vectors)
{
    for (const Vector& vector : kRfc4648)
    {
        unsigned int length = 0;
        const ZnString decoded = Base64::decode(vector.encoded, length);
        EXPECT_EQ(bytesOf(decoded, length), vector.plain) << vector.encoded;
    }
}

TEST(Base64Test, EncodedLengthFieldIsTwiceTheInput)
{
    // The string's own length is not the encoded length: callers use outLength.
    EXPECT_EQ(Base64::encode("abc").length(), 6u);
    EXPECT_EQ(Base64::encode("a").length(), 2u);
    EXPECT_EQ(Base64::encode("foobar").length(), 12u);
}

TEST(Base64Test, DecodedLengthFieldIsTheInputLength)
{
    EXPECT_EQ(Base64::decode("YWJj").length(), 4u);
    EXPECT_EQ(Base64::decode("YQ==").length(), 4u);
}

TEST(Base64Test, EncodeStopsAtTheFirstZeroByte)
{
    const char text[] = {'a', 'b', '\0', 'c', 'd', '\0'};
    unsigned int length = 0;
    EXPECT_STREQ(Base64::encode(text, length).c_str(), "YWI=");
    EXPECT_EQ(length, 4u);
}

TEST(Base64Test, DecodeKeepsZeroBytesAndCountsThem)
{
    unsigned int length = 0;
    const ZnString decoded = Base64::decode("AAEC", length);
    ASSERT_EQ(length, 3u);
    EXPECT_EQ(bytesOf(decoded, length), std::string("\x00\x01\x02", 3));
}

TEST(Base64Test, DecodeCharactersOutsideTheAlphabetCountAs255)
{
    unsigned int length = 0;
    const ZnString decoded = Base64::decode("@@@@", length);
    ASSERT_EQ(length, 3u);
    EXPECT_EQ(bytesOf(decoded, length), std::string("\xFF\xFF\xFF", 3));

    const ZnString mixed = Base64::decode("Y@==", length);
    ASSERT_EQ(length, 1u);
    EXPECT_EQ(static_cast<unsigned char>(mixed.c_str()[0]), 0x63);
}

TEST(Base64Test, DecodeBytesAbove127CountAs255)
{
    unsigned int length = 0;
    const ZnString decoded = Base64::decode("\xC3\xA9==", length);
    ASSERT_EQ(length, 1u);
    EXPECT_EQ(static_cast<unsigned char>(decoded.c_str()[0]), 0xFF);
}

TEST(Base64Test, DecodePadInThirdPlaceEndsTheWholeDecoding)
{
    unsigned int length = 0;
    const ZnString decoded = Base64::decode("YQ==YWJj", length);
    EXPECT_EQ(length, 1u);
    EXPECT_STREQ(decoded.c_str(), "a");
}

TEST(Base64Test, DecodePadInFourthPlaceEndsTheWholeDecoding)
{
    unsigned int length = 0;
    const ZnString decoded = Base64::decode("YWI=YWJj", length);
    EXPECT_EQ(length, 2u);
    EXPECT_STREQ(decoded.c_str(), "ab");
}

TEST(Base64Test, DecodePadInFirstOrSecondPlaceIsAnOrdinaryBadCharacter)
{
    // '=' first counts 255, 'A' 0: (255 << 2) | 0 as a byte; then the pad in third place ends.
    unsigned int length = 0;
    const ZnString decoded = Base64::decode("=A==", length);
    ASSERT_EQ(length, 1u);
    EXPECT_EQ(static_cast<unsigned char>(decoded.c_str()[0]), 0xFC);
}

TEST(Base64Test, DecodeShortLastGroupsWithoutPads)
{
    unsigned int length = 0;
    EXPECT_STREQ(Base64::decode("YQ", length).c_str(), "a");
    EXPECT_EQ(length, 1u);
    EXPECT_STREQ(Base64::decode("YWI", length).c_str(), "ab");
    EXPECT_EQ(length, 2u);
    EXPECT_STREQ(Base64::decode("YWJjYQ", length).c_str(), "abca");
    EXPECT_EQ(length, 4u);
}

TEST(Base64Test, DecodeSkipsNothingNotEvenALineBreak)
{
    // Groups "YWJj", "\nYWJ" and "j": the line feed shifts everything after it.
    unsigned int length = 0;
    const ZnString decoded = Base64::decode("YWJj\nYWJj", length);
    ASSERT_EQ(length, 7u);
    EXPECT_EQ(bytesOf(decoded, 3), "abc");
    // (255 << 2) | ('Y' = 24 >> 4) as a byte.
    EXPECT_EQ(static_cast<unsigned char>(decoded.c_str()[3]), 0xFD);
}

TEST(Base64Test, ResultsAreTerminatedAtTheirLength)
{
    unsigned int length = 0;
    const ZnString encoded = Base64::encode("hello, world", length);
    EXPECT_EQ(strlen(encoded.c_str()), length);
    const ZnString decoded = Base64::decode("aGVsbG8sIHdvcmxk", length);
    EXPECT_EQ(decoded.c_str()[length], '\0');
    EXPECT_STREQ(decoded.c_str(), "hello, world");
}

TEST(Base64Test, EveryOneByteTextEncodesToFourCharacters)
{
    for (int byte = 1; byte < 256; ++byte)
    {
        const char text[2] = {static_cast<char>(byte), '\0'};
        unsigned int length = 0;
        const ZnString encoded = Base64::encode(text, length);
        ASSERT_EQ(length, 4u) << byte;
        ASSERT_EQ(strlen(encoded.c_str()), 4u) << byte;
        EXPECT_EQ(encoded.c_str()[2], '=');
        EXPECT_EQ(encoded.c_str()[3], '=');
        unsigned int decodedLength = 0;
        const ZnString decoded = Base64::decode(encoded.c_str(), decodedLength);
        ASSERT_EQ(decodedLength, 1u);
        EXPECT_EQ(static_cast<unsigned char>(decoded.c_str()[0]), byte);
    }
}

TEST(Base64Test, RandomTextsOfEveryLengthUpTo64RoundTrip)
{
    std::mt19937 random(20240521);
    std::uniform_int_distribution<int> nonZeroByte(1, 255);
    for (int round = 0; round < 20; ++round)
    {
        for (size_t n = 0; n <= 64; ++n)
        {
            std::string text(n, ' ');
            for (char& c : text)
            {
                c = static_cast<char>(nonZeroByte(random));
            }
            unsigned int encodedLength = 0;
            const ZnString encoded = Base64::encode(text.c_str(), encodedLength);
            ASSERT_EQ(encodedLength, expectedEncodedLength(n)) << n;
            ASSERT_EQ(strlen(encoded.c_str()), encodedLength) << n;
            unsigned int decodedLength = 0;
            const ZnString decoded = Base64::decode(encoded.c_str(), decodedLength);
            ASSERT_EQ(decodedLength, n);
            EXPECT_EQ(bytesOf(decoded, decodedLength), text) << n;
        }
    }
}

TEST(Base64Test, EncodingUsesOnlyTheAlphabetAndPads)
{
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
    {
        all.push_back(static_cast<char>(byte));
    }
    unsigned int length = 0;
    const ZnString encoded = Base64::encode(all.c_str(), length);
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (unsigned int i = 0; i < length; ++i)
    {
        const char c = encoded.c_str()[i];
        EXPECT_TRUE(alphabet.find(c) != std::string::npos || (c == '=' && i + 2 >= length))
            << "character " << i;
    }
    EXPECT_STREQ(Base64::encode("\xFB\xFF").c_str(), "+/8=");
}

} // namespace
