// Tests of ZnString: construction, sharing of the buffer, copy on write through the mutators,
// comparison operators, stream output, and strings sharing one buffer across threads.
#include "ZnUtil/ZnString.h"

#include "ZnUtil/ZnStringBuffer.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

namespace
{

/// Live bytes and blocks of the buffers' memory account.
struct AccountState
{
    int64_t bytes;
    int64_t blocks;
};

AccountState readAccount()
{
    const Tavoris::MemAccount::Reading reading =
        Tavoris::MemAccount::sRead(ZnStringBuffer::getMemAccountName());
    return AccountState{reading.liveBytes, reading.liveBlocks};
}

/// The count of the buffer under \p text, 0 for a nil string.
unsigned long countOf(const ZnString& text)
{
    return text.isNil() ? 0 : text.buffer()->getRefCount();
}

/// h = h * 5 + c over the characters taken as signed bytes, written out independently.
unsigned int expectedHash(const char* text)
{
    uint32_t hash = 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != 0; ++p)
    {
        const int32_t signedByte =
            *p < 128 ? static_cast<int32_t>(*p) : static_cast<int32_t>(*p) - 256;
        hash = hash * 5u + static_cast<uint32_t>(signedByte);
    }
    return hash;
}

// ---- construction ----

TEST(ZnStringTest, DefaultIsNil)
{
    ZnString text;
    EXPECT_TRUE(text.isNil());
    EXPECT_EQ(text.buffer(), nullptr);
    EXPECT_EQ(static_cast<const char*>(text), nullptr);
    EXPECT_STREQ(text.c_str(), "");
    EXPECT_EQ(text.length(), 0u);
    EXPECT_TRUE(text.empty());
}

TEST(ZnStringTest, ConstructFromTextCopiesIntoExactBuffer)
{
    const char source[] = "hello";
    ZnString text(source);
    ASSERT_FALSE(text.isNil());
    EXPECT_NE(static_cast<const char*>(text), source);
    EXPECT_STREQ(text.c_str(), "hello");
    EXPECT_EQ(text.length(), 5u);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text.buffer()->capacity(), 6u);
    EXPECT_EQ(countOf(text), 1u);
}

TEST(ZnStringTest, ConstructFromEmptyTextIsNil)
{
    const AccountState before = readAccount();
    ZnString text("");
    EXPECT_TRUE(text.isNil());
    EXPECT_EQ(readAccount().blocks, before.blocks);
}

TEST(ZnStringTest, ConstructFromNullTextIsNil)
{
    ZnString text(static_cast<const char*>(nullptr));
    EXPECT_TRUE(text.isNil());
}

TEST(ZnStringTest, ConstructFromTextAndLengthTakesThatMany)
{
    ZnString text("hello", 3);
    EXPECT_STREQ(text.c_str(), "hel");
    EXPECT_EQ(text.buffer()->capacity(), 4u);
}

TEST(ZnStringTest, ConstructFromBufferTakesAReference)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate("abc", 0, 0);
    ZnString text(buffer);
    EXPECT_EQ(text.buffer(), buffer);
    EXPECT_EQ(buffer->getRefCount(), 1u);
}

TEST(ZnStringTest, NilAndEmptyAreDifferentStates)
{
    ZnString nil;
    ZnString empty(ZnStringBuffer::sCreate("", 0, 4));
    EXPECT_TRUE(nil.isNil());
    EXPECT_FALSE(empty.isNil());
    EXPECT_EQ(nil.length(), empty.length());
    EXPECT_EQ(nil.empty(), empty.empty());
    EXPECT_EQ(static_cast<const char*>(nil), nullptr);
    EXPECT_STREQ(static_cast<const char*>(empty), "");
}

// ---- sharing ----

TEST(ZnStringTest, CopySharesTheBuffer)
{
    ZnString first("abc");
    ZnString second(first);
    EXPECT_EQ(second.buffer(), first.buffer());
    EXPECT_EQ(countOf(first), 2u);
}

TEST(ZnStringTest, DroppingACopyReleasesItsReference)
{
    ZnString first("abc");
    {
        ZnString second(first);
        EXPECT_EQ(countOf(first), 2u);
    }
    EXPECT_EQ(countOf(first), 1u);
}

TEST(ZnStringTest, CopyAssignmentSharesTheBuffer)
{
    ZnString first("abc");
    ZnString second("xyz");
    const AccountState before = readAccount();
    second = first;
    EXPECT_EQ(second.buffer(), first.buffer());
    EXPECT_EQ(countOf(first), 2u);
    EXPECT_EQ(readAccount().blocks, before.blocks - 1);
}

TEST(ZnStringTest, MoveTakesTheBufferWithoutCounting)
{
    ZnString first("abc");
    ZnStringBuffer* buffer = first.buffer();
    ZnString second(std::move(first));
    EXPECT_EQ(second.buffer(), buffer);
    EXPECT_EQ(buffer->getRefCount(), 1u);
}

// ---- mutators: copy on write ----

TEST(ZnStringTest, AppendOnUnsharedStringWorksInPlace)
{
    ZnString text(ZnStringBuffer::sCreate("ab", 0, 16));
    ZnStringBuffer* before = text.buffer();
    text.append("cd");
    EXPECT_EQ(text.buffer(), before);
    EXPECT_STREQ(text.c_str(), "abcd");
}

TEST(ZnStringTest, AppendOnSharedStringLeavesTheOtherUnchanged)
{
    ZnString first(ZnStringBuffer::sCreate("ab", 0, 16));
    ZnString second(first);
    second.append("cd");
    EXPECT_NE(second.buffer(), first.buffer());
    EXPECT_STREQ(second.c_str(), "abcd");
    EXPECT_STREQ(first.c_str(), "ab");
    EXPECT_EQ(countOf(first), 1u);
    EXPECT_EQ(countOf(second), 1u);
}

TEST(ZnStringTest, AppendToNilStringMakesABuffer)
{
    ZnString text;
    text.append("abc");
    EXPECT_FALSE(text.isNil());
    EXPECT_STREQ(text.c_str(), "abc");
    EXPECT_EQ(countOf(text), 1u);
}

TEST(ZnStringTest, AppendWithLengthToNilStringCopiesThatMany)
{
    const char source[6] = "ab\0cd";
    ZnString text;
    text.append(source, 5);
    EXPECT_EQ(text.length(), 5u);
    EXPECT_EQ(memcmp(static_cast<const char*>(text), source, 6), 0);
}

TEST(ZnStringTest, AppendStringToNilStringSharesItsBuffer)
{
    ZnString other("abc");
    ZnString text;
    text.append(other);
    EXPECT_EQ(text.buffer(), other.buffer());
    EXPECT_EQ(countOf(other), 2u);
}

TEST(ZnStringTest, AppendNilStringKeepsTheString)
{
    ZnString text("abc");
    ZnStringBuffer* before = text.buffer();
    text.append(ZnString());
    EXPECT_EQ(text.buffer(), before);
    EXPECT_STREQ(text.c_str(), "abc");
}

TEST(ZnStringTest, PlusEqualsAppends)
{
    ZnString text("ab");
    text += "cd";
    text += ZnString("ef");
    EXPECT_STREQ(text.c_str(), "abcdef");
}

TEST(ZnStringTest, AssignOnUnsharedStringWorksInPlace)
{
    ZnString text("hello");
    ZnStringBuffer* before = text.buffer();
    text = "abc";
    EXPECT_EQ(text.buffer(), before);
    EXPECT_STREQ(text.c_str(), "abc");
}

TEST(ZnStringTest, AssignOnSharedStringLeavesTheOtherUnchanged)
{
    ZnString first("hello");
    ZnString second(first);
    second.assign("abc");
    EXPECT_NE(second.buffer(), first.buffer());
    EXPECT_STREQ(second.c_str(), "abc");
    EXPECT_STREQ(first.c_str(), "hello");
}

TEST(ZnStringTest, AssignEmptyOnSharedStringGivesNil)
{
    ZnString first("hello");
    ZnString second(first);
    second = "";
    EXPECT_TRUE(second.isNil());
    EXPECT_STREQ(first.c_str(), "hello");
    EXPECT_EQ(countOf(first), 1u);
}

TEST(ZnStringTest, AssignEmptyOnUnsharedStringEmptiesIt)
{
    ZnString text("hello");
    ZnStringBuffer* before = text.buffer();
    text = "";
    EXPECT_FALSE(text.isNil());
    EXPECT_EQ(text.buffer(), before);
    EXPECT_TRUE(text.empty());
}

TEST(ZnStringTest, AssignToNilStringMakesABuffer)
{
    ZnString text;
    text = "abc";
    EXPECT_STREQ(text.c_str(), "abc");
    EXPECT_EQ(text.buffer()->capacity(), 4u);
}

TEST(ZnStringTest, TrimOnSharedStringLeavesTheOtherUnchanged)
{
    ZnString first("  ab  ");
    ZnString second(first);
    second.trim();
    EXPECT_STREQ(second.c_str(), "ab");
    EXPECT_STREQ(first.c_str(), "  ab  ");
}

TEST(ZnStringTest, TrimOnUnsharedStringWorksInPlace)
{
    ZnString text("  ab  ");
    ZnStringBuffer* before = text.buffer();
    text.trim();
    EXPECT_EQ(text.buffer(), before);
    EXPECT_STREQ(text.c_str(), "ab");
}

TEST(ZnStringTest, ToUpperOnSharedStringLeavesTheOtherUnchanged)
{
    ZnString first("abc");
    ZnString second(first);
    second.toUpper();
    EXPECT_STREQ(second.c_str(), "ABC");
    EXPECT_STREQ(first.c_str(), "abc");
}

TEST(ZnStringTest, ToLowerOnSharedStringLeavesTheOtherUnchanged)
{
    ZnString first("ABC");
    ZnString second(first);
    second.toLower();
    EXPECT_STREQ(second.c_str(), "abc");
    EXPECT_STREQ(first.c_str(), "ABC");
}

TEST(ZnStringTest, ToUpperOnUnsharedStringWorksInPlace)
{
    ZnString text("abc");
    ZnStringBuffer* before = text.buffer();
    text.toUpper();
    EXPECT_EQ(text.buffer(), before);
    EXPECT_STREQ(text.c_str(), "ABC");
}

TEST(ZnStringTest, MutatorsOnNilStringKeepItNil)
{
    ZnString text;
    text.trim();
    EXPECT_TRUE(text.isNil());
    text.toUpper();
    EXPECT_TRUE(text.isNil());
    text.toLower();
    EXPECT_TRUE(text.isNil());
    text.append("");
    EXPECT_TRUE(text.isNil());
}

// ---- queries ----

TEST(ZnStringTest, SubstrGivesNewString)
{
    ZnString text("abcdef");
    ZnString part = text.substr(2, 3);
    EXPECT_STREQ(part.c_str(), "cde");
    EXPECT_NE(part.buffer(), text.buffer());
    EXPECT_EQ(countOf(part), 1u);
    EXPECT_EQ(countOf(text), 1u);
}

TEST(ZnStringTest, SubstrAtTheEndIsNil)
{
    ZnString text("abc");
    EXPECT_TRUE(text.substr(3).isNil());
    EXPECT_TRUE(ZnString().substr(0).isNil());
}

TEST(ZnStringTest, IndexOfForwardsToTheBuffer)
{
    ZnString text("abcabc");
    EXPECT_EQ(text.indexOf("ca"), 2);
    EXPECT_EQ(text.indexOf("bc", 2), 4);
    EXPECT_EQ(text.indexOf("x"), -1);
    EXPECT_EQ(ZnString().indexOf("a"), -1);
}

TEST(ZnStringTest, CompareNoCaseForwardsToTheBuffer)
{
    ZnString abc("abc");
    EXPECT_EQ(abc.compareNoCase("ABD"), -1);
    EXPECT_EQ(ZnString("abf").compareNoCase(ZnString("ABD")), 2);
    EXPECT_EQ(ZnString().compareNoCase("a"), -1);
    EXPECT_EQ(ZnString().compareNoCase(ZnString()), 0);
}

TEST(ZnStringTest, CompareWithForwardsToTheBuffer)
{
    ZnString abc("abc");
    EXPECT_EQ(abc.compareWith("abd"), -1);
    EXPECT_EQ(abc.compareWith(ZnString("abb")), 1);
    EXPECT_EQ(abc.compareWith(static_cast<const char*>(nullptr)), 'a');
    EXPECT_EQ(ZnString().compareWith("a"), -1);
}

TEST(ZnStringTest, HashCodeOfNilIsZero)
{
    EXPECT_EQ(ZnString().hashCode(), 0u);
}

TEST(ZnStringTest, HashCodeIsTheBuffersHash)
{
    ZnString text("ab");
    EXPECT_EQ(text.hashCode(), 97u * 5 + 98);
    EXPECT_EQ(text.hashCode(), text.buffer()->hashCode());
}

TEST(ZnStringTest, HashCodeFollowsChanges)
{
    ZnString text(ZnStringBuffer::sCreate("a", 0, 8));
    EXPECT_EQ(text.hashCode(), 97u);
    text.append("b");
    EXPECT_EQ(text.hashCode(), 583u);
    text.toUpper();
    EXPECT_EQ(text.hashCode(), expectedHash("AB"));
}

// ---- operators ----

TEST(ZnStringTest, EqualityComparesCharacters)
{
    ZnString first("abc");
    ZnString second("abc");
    ZnString third("abd");
    EXPECT_NE(first.buffer(), second.buffer());
    EXPECT_TRUE(first == second);
    EXPECT_FALSE(first != second);
    EXPECT_FALSE(first == third);
    EXPECT_TRUE(first != third);
}

TEST(ZnStringTest, NilEqualsEmpty)
{
    ZnString nil;
    ZnString empty(ZnStringBuffer::sCreate("", 0, 4));
    EXPECT_TRUE(nil == empty);
    EXPECT_TRUE(empty == nil);
    EXPECT_TRUE(nil == ZnString());
    EXPECT_FALSE(nil != empty);
    EXPECT_FALSE(nil == ZnString("a"));
}

TEST(ZnStringTest, EqualityWithText)
{
    ZnString text("abc");
    EXPECT_TRUE(text == "abc");
    EXPECT_FALSE(text == "abd");
    EXPECT_TRUE(text != "ab");
    EXPECT_TRUE(ZnString() == "");
    EXPECT_TRUE(ZnString() == static_cast<const char*>(nullptr));
    EXPECT_FALSE(text == static_cast<const char*>(nullptr));
}

TEST(ZnStringTest, LessOrdersByUnsignedBytes)
{
    EXPECT_TRUE(ZnString("abc") < ZnString("abd"));
    EXPECT_FALSE(ZnString("abd") < ZnString("abc"));
    EXPECT_FALSE(ZnString("abc") < ZnString("abc"));
    EXPECT_TRUE(ZnString("ab") < ZnString("abc"));
    EXPECT_TRUE(ZnString("z") < ZnString("\xE9"));
    EXPECT_TRUE(ZnString() < ZnString("a"));
    EXPECT_FALSE(ZnString("a") < ZnString());
    EXPECT_FALSE(ZnString() < ZnString());
}

TEST(ZnStringTest, StreamOutputWritesTheCharacters)
{
    std::ostringstream out;
    out << ZnString("Via: SIP/2.0") << '|';
    EXPECT_EQ(out.str(), "Via: SIP/2.0|");
    EXPECT_TRUE(out.good());
}

TEST(ZnStringTest, StreamOutputOfNilWritesNothing)
{
    std::ostringstream out;
    out << '[' << ZnString() << ']';
    EXPECT_EQ(out.str(), "[]");
    EXPECT_TRUE(out.good());
}

// ---- memory ----

TEST(ZnStringTest, StringsLeaveNoBlockBehind)
{
    const AccountState before = readAccount();
    {
        ZnString first("  Contact: <sip:alice@pc33.example.com>  ");
        ZnString second(first);
        second.trim();
        ZnString third = second.substr(9);
        third.toUpper();
        first = third;
        first += ";expires=3600";
        second = "";
        EXPECT_STREQ(first.c_str(), "<SIP:ALICE@PC33.EXAMPLE.COM>;expires=3600");
    }
    const AccountState after = readAccount();
    EXPECT_EQ(after.blocks, before.blocks);
    EXPECT_EQ(after.bytes, before.bytes);
}

TEST(ZnStringTest, OneBufferIsOneBlockOfHeaderAndCapacity)
{
    const AccountState before = readAccount();
    ZnString text("abcdefgh");
    ZnString copy(text);
    const AccountState after = readAccount();
    EXPECT_EQ(after.blocks - before.blocks, 1);
    EXPECT_EQ(after.bytes - before.bytes, static_cast<int64_t>(sizeof(ZnStringBuffer)) + 9);
}

// ---- concurrency ----

TEST(ZnStringTest, ConcurrentWorkOnCopiesLeavesTheSharedOriginalUnchanged)
{
    const int kThreads = 4;
    const int kIterations = 300;
    const char* const kOriginal = "  From: Alice <sip:alice@atlanta.example.com>;tag=1928301774  ";
    const ZnString shared(ZnStringBuffer::sCreate(kOriginal, 0, 128));
    const ZnStringBuffer* sharedBuffer = shared.buffer();
    const unsigned int sharedHash = expectedHash(kOriginal);
    const AccountState before = readAccount();
    std::atomic<int> ready(0);
    std::atomic<int> wrong(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back(
            [&]()
            {
                ready.fetch_add(1);
                while (ready.load() < kThreads)
                {
                    std::this_thread::yield();
                }
                for (int i = 0; i < kIterations; ++i)
                {
                    ZnString copy(shared);
                    if (copy.buffer() != sharedBuffer || copy.hashCode() != sharedHash)
                    {
                        wrong.fetch_add(1);
                    }
                    copy.append(";x");
                    copy.trim();
                    copy.toLower();
                    if (copy != "from: alice <sip:alice@atlanta.example.com>;tag=1928301774  ;x")
                    {
                        wrong.fetch_add(1);
                    }
                    ZnString other(shared);
                    other = "replaced";
                    if (other != "replaced" || !(copy < other))
                    {
                        wrong.fetch_add(1);
                    }
                    if (shared != kOriginal || shared.compareNoCase(kOriginal) != 0)
                    {
                        wrong.fetch_add(1);
                    }
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(shared.buffer(), sharedBuffer);
    EXPECT_STREQ(shared.c_str(), kOriginal);
    EXPECT_EQ(shared.buffer()->capacity(), 128u);
    EXPECT_EQ(countOf(shared), 1u);
    EXPECT_EQ(shared.hashCode(), sharedHash);
    const AccountState after = readAccount();
    EXPECT_EQ(after.blocks, before.blocks);
    EXPECT_EQ(after.bytes, before.bytes);
}

TEST(ZnStringTest, ConcurrentHashOfSharedStringIsRight)
{
    const int kThreads = 4;
    const int kRounds = 100;
    const char* const kText = "Max-Forwards: 70 \xC3\xA9\xFF";
    const unsigned int expected = expectedHash(kText);
    for (int round = 0; round < kRounds; ++round)
    {
        // A fresh buffer each round: the threads race on computing the cached hash.
        const ZnString shared(kText);
        std::atomic<int> ready(0);
        std::atomic<int> wrong(0);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
        {
            threads.emplace_back(
                [&]()
                {
                    ZnString copy(shared);
                    ready.fetch_add(1);
                    while (ready.load() < kThreads)
                    {
                        std::this_thread::yield();
                    }
                    if (copy.hashCode() != expected)
                    {
                        wrong.fetch_add(1);
                    }
                });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        ASSERT_EQ(wrong.load(), 0) << "round " << round;
        EXPECT_EQ(shared.hashCode(), expected);
    }
}

} // namespace
