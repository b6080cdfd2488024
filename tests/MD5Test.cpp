#include "ZnUtil/MD5.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace
{

/// Lower-case hexadecimal of a digest, written here independently of the library.
std::string hexOf(const ZnHandle<ZnByteArray>& digest)
{
    const ZnByteArray* array = digest;
    std::string hex;
    char pair[3];
    for (unsigned int i = 0; i < array->length(); ++i)
    {
        snprintf(pair, sizeof(pair), "%02x", array->getBytes()[i]);
        hex += pair;
    }
    return hex;
}

std::string md5Hex(const std::string& message)
{
    MD5 md5;
    return hexOf(md5.digest(
        ZnByteArray::sCreate(static_cast<unsigned int>(message.size()), message.data())));
}

struct Vector
{
    const char* message;
    const char* digest;
};

// The test suite of RFC 1321, appendix A.5.
const Vector kRfc1321[] = {
    {"", "d41d8cd98f00b204e9800998ecf8427e"},
    {"a", "0cc175b9c0f1b6a831c399e269772661"},
    {"abc", "900150983cd24fb0d6963f7d28e17f72"},
    {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
    {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
    {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
     "d174ab98d277d9f5a5611c2c9f419d9f"},
    {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
     "57edf4a22be3c955ac49da2e2107b67a"},
};

TEST(MD5Test, DigestLengthIs16)
{
    EXPECT_EQ(MD5::MD5_LENGTH, 16u);
    MD5 md5;
    EXPECT_EQ(md5.digest(ZnByteArray::sCreate("abc"))->length(), MD5::MD5_LENGTH);
}

TEST(MD5Test, EmptyArrayGivesTheDigestOfTheEmptyMessage)
{
    MD5 md5;
    EXPECT_EQ(hexOf(md5.digest(ZnByteArray::sCreate(0, nullptr))),
              "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(MD5Test, NilArrayCountsAsTheEmptyMessage)
{
    MD5 md5;
    EXPECT_EQ(hexOf(md5.digest(ZnHandle<ZnByteArray>())), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(MD5Test, GivesTheRfc1321TestSuite)
{
    for (const Vector& vector : kRfc1321)
    {
        EXPECT_EQ(md5Hex(vector.message), vector.digest) << '"' << vector.message << '"';
    }
}

TEST(MD5Test, OneInstanceServesAnyNumberOfDigests)
{
    MD5 md5;
    for (int round = 0; round < 3; ++round)
    {
        for (const Vector& vector : kRfc1321)
        {
            const ZnHandle<ZnByteArray> message = ZnByteArray::sCreate(vector.message);
            EXPECT_EQ(hexOf(md5.digest(message)), vector.digest) << vector.message;
        }
    }
}

TEST(MD5Test, LengthsAroundTheBlockBoundaries)
{
    // Digests of runs of 'a', across the padding cases of 55, 56 and 64 bytes.
    const struct
    {
        size_t length;
        const char* digest;
    } cases[] = {
        {55, "ef1772b6dff9a122358552954ad0df65"},      {56, "3b0c8ac703f828b04c6c197006d17218"},
        {57, "652b906d60af96844ebd21b674f35e93"},      {63, "b06521f39153d618550606be297466d5"},
        {64, "014842d480b571495a4a0363793f7367"},      {65, "c743a45e0d2e6a95cb859adae0248435"},
        {119, "8a7bd0732ed6a28ce75f6dabc90e1613"},     {120, "5f61c0ccad4cac44c75ff505e1f1e537"},
        {128, "e510683b3f5ffe4093d021808bc6ff70"},     {1000, "cabe45dcc9ae5b66ba86600cca6b8ba8"},
        {1000000, "7707d6ae4e027c70eea2a935c2296f21"},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(md5Hex(std::string(c.length, 'a')), c.digest) << c.length;
    }
}

TEST(MD5Test, ZeroBytesAreDigestedLikeAnyOther)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
    {
        all.push_back(static_cast<char>(byte));
    }
    EXPECT_EQ(md5Hex(all), "e2c865db4162bed963bfaa9ef6ac18f0");
}

TEST(MD5Test, DigestLeavesItsInputAlone)
{
    const ZnHandle<ZnByteArray> message = ZnByteArray::sCreate("message digest");
    MD5 md5;
    const ZnHandle<ZnByteArray> digest = md5.digest(message);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(message->getBytes()), message->length()),
              "message digest");
    EXPECT_NE(static_cast<ZnByteArray*>(digest), static_cast<ZnByteArray*>(message));
}

TEST(MD5Test, CopiedAndAssignedInstancesDigestAlike)
{
    MD5 first;
    MD5 copy(first);
    MD5 assigned;
    assigned = first;
    const ZnHandle<ZnByteArray> message = ZnByteArray::sCreate("abc");
    EXPECT_EQ(hexOf(copy.digest(message)), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(hexOf(assigned.digest(message)), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(hexOf(first.digest(message)), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(MD5Test, DigestsDifferForOneChangedBit)
{
    EXPECT_NE(md5Hex("message digest"), md5Hex("message digesu"));
}

} // namespace
