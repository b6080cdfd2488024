// Tests of ZnStringBuffer: creation, direct writing, copy on write, exact growth, comparison,
// hashing, memory accounting and concurrent hashing of a shared buffer.
#include "ZnUtil/ZnStringBuffer.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace
{

using BufferHandle = ZnHandle<ZnStringBuffer>;

const char* const kAccount = "ZnStringBuffer";

/// Live bytes and blocks of the buffers' memory account.
struct AccountState
{
    int64_t bytes;
    int64_t blocks;
};

AccountState readAccount()
{
    const Tavoris::MemAccount::Reading reading = Tavoris::MemAccount::sRead(kAccount);
    return AccountState{reading.liveBytes, reading.liveBlocks};
}

/// What one buffer of \p capacity characters costs on the account.
int64_t blockBytes(unsigned int capacity)
{
    return static_cast<int64_t>(sizeof(ZnStringBuffer)) + capacity;
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

/// A null buffer pointer, the receiver that stands for no string. It is read from a volatile so
/// that the compiler takes the calls made on it as they are written, without a null-'this'
/// warning.
ZnStringBuffer* nullReceiver()
{
    static ZnStringBuffer* volatile s_null = nullptr;
    return s_null;
}

/// Runs \p action and checks that it throws the assertion failure \p message at \p line.
template <class Action>
void expectAssertionFailure(Action&& action, const char* message, unsigned int line)
{
    try
    {
        action();
        ADD_FAILURE() << "no assertion failure thrown, expected " << message;
    }
    catch (const ZnHandle<ZnException>& caught)
    {
        const ZnException* exception = caught;
        ASSERT_NE(exception, nullptr);
        const ZnAssertionFailure* failure = dynamic_cast<const ZnAssertionFailure*>(exception);
        ASSERT_NE(failure, nullptr) << "thrown: " << exception->getClassName();
        EXPECT_STREQ(failure->getExceptionMessage(), message);
        EXPECT_STREQ(failure->getFile(), "ZnStringBuffer");
        EXPECT_EQ(failure->getLine(), line);
    }
}

// ---- sCreate ----

TEST(ZnStringBufferTest, CreateFromNullTextWithoutCapacityIsNull)
{
    const AccountState before = readAccount();
    EXPECT_EQ(ZnStringBuffer::sCreate(nullptr, 0, 0), nullptr);
    EXPECT_EQ(readAccount().blocks, before.blocks);
}

TEST(ZnStringBufferTest, CreateFromEmptyTextIsNull)
{
    const AccountState before = readAccount();
    EXPECT_EQ(ZnStringBuffer::sCreate("", 0, 0), nullptr);
    EXPECT_EQ(readAccount().blocks, before.blocks);
}

TEST(ZnStringBufferTest, CreateFromNullTextWithLengthButNoCapacityIsNull)
{
    EXPECT_EQ(ZnStringBuffer::sCreate(nullptr, 4, 0), nullptr);
}

TEST(ZnStringBufferTest, CreateFromEmptyTextWithCapacityGivesEmptyBuffer)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("", 0, 16));
    ASSERT_FALSE(buffer.isNil());
    EXPECT_EQ(buffer->length(), 0u);
    EXPECT_EQ(buffer->capacity(), 16u);
    EXPECT_TRUE(buffer->empty());
    EXPECT_STREQ(buffer->c_str(), "");
}

TEST(ZnStringBufferTest, CreateFromNullTextWithCapacityGivesEmptyBuffer)
{
    BufferHandle buffer(ZnStringBuffer::sCreate(nullptr, 0, 8));
    ASSERT_FALSE(buffer.isNil());
    EXPECT_EQ(buffer->length(), 0u);
    EXPECT_EQ(buffer->capacity(), 8u);
    EXPECT_STREQ(buffer->c_str(), "");
}

TEST(ZnStringBufferTest, CreateTakesStrlenWhenLengthIsZero)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("hello", 0, 0));
    EXPECT_EQ(buffer->length(), 5u);
    EXPECT_EQ(buffer->capacity(), 6u);
    EXPECT_STREQ(buffer->c_str(), "hello");
}

TEST(ZnStringBufferTest, CreateKeepsLargerRequestedCapacity)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("hello", 0, 32));
    EXPECT_EQ(buffer->length(), 5u);
    EXPECT_EQ(buffer->capacity(), 32u);
}

TEST(ZnStringBufferTest, CreateRaisesSmallCapacityToLengthPlusOne)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("hello", 0, 3));
    EXPECT_EQ(buffer->capacity(), 6u);
    EXPECT_STREQ(buffer->c_str(), "hello");
}

TEST(ZnStringBufferTest, CreateTrustsGivenLengthAndCutsText)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("hello", 3, 0));
    EXPECT_EQ(buffer->length(), 3u);
    EXPECT_EQ(buffer->capacity(), 4u);
    EXPECT_STREQ(buffer->c_str(), "hel");
}

TEST(ZnStringBufferTest, CreateWithGivenLengthCopiesEmbeddedNul)
{
    const char text[6] = "ab\0cd";
    BufferHandle buffer(ZnStringBuffer::sCreate(text, 5, 0));
    EXPECT_EQ(buffer->length(), 5u);
    EXPECT_EQ(memcmp(buffer->c_str(), text, 6), 0);
}

TEST(ZnStringBufferTest, CreateFromNullTextWithLengthLeavesCharactersToFill)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, 4, 10);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->length(), 4u);
    EXPECT_EQ(buffer->capacity(), 10u);
    EXPECT_EQ(buffer->c_str()[4], '\0');
    memcpy(buffer->lockBuffer(5), "wxyz", 4);
    buffer->releaseBuffer(4);
    BufferHandle owner(buffer);
    EXPECT_STREQ(owner->c_str(), "wxyz");
}

TEST(ZnStringBufferTest, CreateGivesCountZero)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate("abc", 0, 0);
    EXPECT_EQ(buffer->getRefCount(), 0u);
    BufferHandle owner(buffer);
    EXPECT_EQ(buffer->getRefCount(), 1u);
}

TEST(ZnStringBufferTest, CreateAllocatesHeaderPlusCapacityOnItsAccount)
{
    EXPECT_STREQ(ZnStringBuffer::getMemAccountName(), kAccount);
    const AccountState before = readAccount();
    {
        BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 50));
        const AccountState during = readAccount();
        EXPECT_EQ(during.blocks - before.blocks, 1);
        EXPECT_EQ(during.bytes - before.bytes, blockBytes(50));
    }
    const AccountState after = readAccount();
    EXPECT_EQ(after.blocks, before.blocks);
    EXPECT_EQ(after.bytes, before.bytes);
}

TEST(ZnStringBufferTest, CharactersLiveInsideTheObject)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    const char* object = reinterpret_cast<const char*>(static_cast<ZnStringBuffer*>(buffer));
    const char* characters = *buffer;
    EXPECT_EQ(characters, object + sizeof(ZnStringBuffer));
}

// ---- access on a null receiver ----

TEST(ZnStringBufferTest, NullReceiverReadsAsNoString)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->operator const char*(), nullptr);
    EXPECT_EQ(nullBuffer->c_str(), nullptr);
    EXPECT_EQ(nullBuffer->length(), 0u);
    EXPECT_TRUE(nullBuffer->empty());
    EXPECT_EQ(nullBuffer->capacity(), 0u);
}

TEST(ZnStringBufferTest, EmptyIsFalseForCharacters)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("x", 0, 0));
    EXPECT_FALSE(buffer->empty());
}

// ---- lockBuffer and releaseBuffer ----

TEST(ZnStringBufferTest, LockBufferHandsOutTheCharactersOfAFreshBuffer)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, 0, 10);
    char* characters = buffer->lockBuffer(10);
    EXPECT_EQ(characters, buffer->c_str());
    memcpy(characters, "abc", 4);
    buffer->releaseBuffer(3);
    BufferHandle owner(buffer);
    EXPECT_EQ(owner->length(), 3u);
    EXPECT_STREQ(owner->c_str(), "abc");
}

TEST(ZnStringBufferTest, LockBufferBeyondCapacityFails)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, 0, 10);
    expectAssertionFailure([&] { buffer->lockBuffer(11); }, "ZnStringBuffer::lockBuffer", 357);
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, LockBufferOnHeldBufferFails)
{
    BufferHandle owner(ZnStringBuffer::sCreate(nullptr, 0, 10));
    expectAssertionFailure([&] { owner->lockBuffer(1); }, "ZnStringBuffer::lockBuffer", 357);
}

TEST(ZnStringBufferTest, LockBufferOnNullReceiverFails)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    expectAssertionFailure([&] { nullBuffer->lockBuffer(0); }, "ZnStringBuffer::lockBuffer", 357);
}

TEST(ZnStringBufferTest, LockBufferSucceedsAgainOnceCountIsBackToZero)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate("abc", 0, 0);
    EXPECT_EQ(buffer->AddRef(), 1u);
    expectAssertionFailure([&] { buffer->lockBuffer(4); }, "ZnStringBuffer::lockBuffer", 357);
    EXPECT_EQ(buffer->Release(false), 0u);
    EXPECT_EQ(buffer->lockBuffer(4), buffer->c_str());
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, ReleaseBufferAtCapacityFails)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, 0, 5);
    memcpy(buffer->lockBuffer(5), "abcd", 5);
    expectAssertionFailure([&] { buffer->releaseBuffer(5); }, "ZnStringBuffer::releaseBuffer", 366);
    EXPECT_EQ(buffer->length(), 0u);
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, ReleaseBufferBelowCapacitySucceeds)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, 0, 6);
    memcpy(buffer->lockBuffer(6), "abcde", 6);
    buffer->releaseBuffer(5);
    EXPECT_EQ(buffer->length(), 5u);
    BufferHandle owner(buffer);
    EXPECT_STREQ(owner->c_str(), "abcde");
}

TEST(ZnStringBufferTest, ReleaseBufferOfAllOnesTakesStrlen)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, 0, 10);
    memcpy(buffer->lockBuffer(10), "wxyz", 5);
    buffer->releaseBuffer(0xFFFFFFFFu);
    EXPECT_EQ(buffer->length(), 4u);
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, ReleaseBufferDefaultsToStrlen)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, 0, 10);
    memcpy(buffer->lockBuffer(10), "ab", 3);
    buffer->releaseBuffer();
    EXPECT_EQ(buffer->length(), 2u);
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, ReleaseBufferOfAllOnesWithoutTerminatorFails)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate(nullptr, 0, 4);
    memset(buffer->lockBuffer(4), 'x', 4);
    expectAssertionFailure([&] { buffer->releaseBuffer(0xFFFFFFFFu); },
                           "ZnStringBuffer::releaseBuffer", 366);
    buffer->lockBuffer(4)[0] = '\0';
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, ReleaseBufferWritesNoTerminator)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate("hello", 0, 0);
    buffer->lockBuffer(6);
    buffer->releaseBuffer(2);
    EXPECT_EQ(buffer->length(), 2u);
    // The characters behind the new length are left as they were, terminator included.
    EXPECT_STREQ(buffer->c_str(), "hello");
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, ReleaseBufferKeepsCachedHash)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate("ab", 0, 0);
    const unsigned int before = buffer->hashCode();
    EXPECT_EQ(before, 583u);
    memcpy(buffer->lockBuffer(3), "xy", 3);
    buffer->releaseBuffer(2);
    EXPECT_STREQ(buffer->c_str(), "xy");
    EXPECT_EQ(buffer->hashCode(), before);
    EXPECT_NE(expectedHash("xy"), before);
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, ReleaseBufferOnNullReceiverFails)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    expectAssertionFailure([&] { nullBuffer->releaseBuffer(0); }, "ZnStringBuffer::releaseBuffer",
                           366);
}

// ---- clone ----

TEST(ZnStringBufferTest, CloneGivesNewBufferWithCountZeroAndSameCapacity)
{
    BufferHandle original(ZnStringBuffer::sCreate("abc", 0, 20));
    const AccountState before = readAccount();
    ZnObject* copy = original->clone();
    ZnStringBuffer* buffer = dynamic_cast<ZnStringBuffer*>(copy);
    ASSERT_NE(buffer, nullptr);
    EXPECT_NE(buffer, static_cast<ZnStringBuffer*>(original));
    EXPECT_EQ(buffer->getRefCount(), 0u);
    EXPECT_EQ(buffer->capacity(), 20u);
    EXPECT_EQ(buffer->length(), 3u);
    EXPECT_STREQ(buffer->c_str(), "abc");
    EXPECT_EQ(readAccount().bytes - before.bytes, blockBytes(20));
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, CloneIsIndependentOfTheOriginal)
{
    BufferHandle original(ZnStringBuffer::sCreate("abc", 0, 20));
    BufferHandle copy(dynamic_cast<ZnStringBuffer*>(original->clone()));
    copy = copy->append("def");
    EXPECT_STREQ(copy->c_str(), "abcdef");
    EXPECT_STREQ(original->c_str(), "abc");
}

// ---- assign ----

TEST(ZnStringBufferTest, AssignOnUnsharedBufferWorksInPlace)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("hello", 0, 0));
    ZnStringBuffer* receiver = buffer;
    ZnStringBuffer* result = buffer->assign("abc");
    EXPECT_EQ(result, receiver);
    EXPECT_STREQ(result->c_str(), "abc");
    EXPECT_EQ(result->length(), 3u);
    EXPECT_EQ(result->capacity(), 6u);
}

TEST(ZnStringBufferTest, AssignOnCountZeroBufferWorksInPlace)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate("hello", 0, 0);
    EXPECT_EQ(buffer->assign("world"), buffer);
    EXPECT_EQ(buffer->getRefCount(), 0u);
    EXPECT_STREQ(buffer->c_str(), "world");
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, AssignFillingCapacityExactlyWorksInPlace)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("a", 0, 5));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->assign("abcd"), receiver);
    EXPECT_STREQ(buffer->c_str(), "abcd");
}

TEST(ZnStringBufferTest, AssignBeyondCapacityMakesBufferOfExactSize)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("a", 0, 5));
    ZnStringBuffer* result = buffer->assign("abcde");
    ASSERT_NE(result, static_cast<ZnStringBuffer*>(buffer));
    BufferHandle owner(result);
    EXPECT_EQ(result->capacity(), 6u);
    EXPECT_STREQ(result->c_str(), "abcde");
    EXPECT_STREQ(buffer->c_str(), "a");
}

TEST(ZnStringBufferTest, AssignOnSharedBufferMakesBufferOfExactSize)
{
    BufferHandle first(ZnStringBuffer::sCreate("hello", 0, 40));
    BufferHandle second(first);
    const AccountState before = readAccount();
    ZnStringBuffer* result = second->assign("xyz");
    ASSERT_NE(result, static_cast<ZnStringBuffer*>(first));
    EXPECT_EQ(result->capacity(), 4u);
    EXPECT_EQ(readAccount().bytes - before.bytes, blockBytes(4));
    second = result;
    EXPECT_STREQ(second->c_str(), "xyz");
    EXPECT_STREQ(first->c_str(), "hello");
    EXPECT_EQ(first->getRefCount(), 1u);
}

TEST(ZnStringBufferTest, AssignEmptyOnSharedBufferIsNull)
{
    BufferHandle first(ZnStringBuffer::sCreate("hello", 0, 0));
    BufferHandle second(first);
    EXPECT_EQ(second->assign(""), nullptr);
    EXPECT_STREQ(first->c_str(), "hello");
}

TEST(ZnStringBufferTest, AssignEmptyOnUnsharedBufferEmptiesIt)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("hello", 0, 0));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->assign(""), receiver);
    EXPECT_EQ(buffer->length(), 0u);
    EXPECT_STREQ(buffer->c_str(), "");
    EXPECT_EQ(buffer->capacity(), 6u);
}

TEST(ZnStringBufferTest, AssignNullOnUnsharedBufferEmptiesIt)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("hello", 0, 0));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->assign(nullptr), receiver);
    EXPECT_EQ(buffer->length(), 0u);
    EXPECT_STREQ(buffer->c_str(), "");
}

TEST(ZnStringBufferTest, AssignNullOnSharedBufferIsNull)
{
    BufferHandle first(ZnStringBuffer::sCreate("hello", 0, 0));
    BufferHandle second(first);
    EXPECT_EQ(second->assign(nullptr), nullptr);
    EXPECT_STREQ(first->c_str(), "hello");
}

TEST(ZnStringBufferTest, AssignOnNullReceiverMakesBufferOfExactSize)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    BufferHandle result(nullBuffer->assign("hello"));
    ASSERT_FALSE(result.isNil());
    EXPECT_EQ(result->capacity(), 6u);
    EXPECT_STREQ(result->c_str(), "hello");
}

TEST(ZnStringBufferTest, AssignEmptyOrNullOnNullReceiverIsNull)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->assign(""), nullptr);
    EXPECT_EQ(nullBuffer->assign(nullptr), nullptr);
}

TEST(ZnStringBufferTest, AssignFromItsOwnCharactersWorksInPlace)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abcde", 0, 0));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->assign(buffer->c_str() + 2), receiver);
    EXPECT_STREQ(buffer->c_str(), "cde");
    EXPECT_EQ(buffer->length(), 3u);
}

TEST(ZnStringBufferTest, AssignClearsTheHash)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("ab", 0, 0));
    EXPECT_EQ(buffer->hashCode(), 583u);
    ZnStringBuffer* receiver = buffer;
    ASSERT_EQ(buffer->assign("ba"), receiver);
    EXPECT_EQ(buffer->hashCode(), 98u * 5 + 97);
}

// ---- append(text, length) ----

TEST(ZnStringBufferTest, AppendOnNullReceiverCopiesText)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    BufferHandle result(nullBuffer->append("abc", 0));
    ASSERT_FALSE(result.isNil());
    EXPECT_STREQ(result->c_str(), "abc");
    EXPECT_EQ(result->capacity(), 4u);
    EXPECT_EQ(result->getRefCount(), 1u);
}

TEST(ZnStringBufferTest, AppendNullTextOnNullReceiverIsNull)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->append(static_cast<const char*>(nullptr), 3), nullptr);
}

TEST(ZnStringBufferTest, AppendEmptyTextOnNullReceiverIsNull)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->append("", 0), nullptr);
}

TEST(ZnStringBufferTest, AppendOnNullReceiverTakesGivenLengthAsIs)
{
    const char text[6] = "ab\0cd";
    ZnStringBuffer* nullBuffer = nullReceiver();
    BufferHandle result(nullBuffer->append(text, 5));
    ASSERT_FALSE(result.isNil());
    EXPECT_EQ(result->length(), 5u);
    EXPECT_EQ(result->capacity(), 6u);
    EXPECT_EQ(memcmp(result->c_str(), text, 6), 0);
}

TEST(ZnStringBufferTest, AppendOnNullReceiverWithShorterLengthTakesPrefix)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    BufferHandle result(nullBuffer->append("abcdef", 2));
    EXPECT_STREQ(result->c_str(), "ab");
    EXPECT_EQ(result->capacity(), 3u);
}

TEST(ZnStringBufferTest, AppendOnBufferCutsLengthToTheText)
{
    const char text[6] = "ab\0cd";
    BufferHandle buffer(ZnStringBuffer::sCreate("xy", 0, 0));
    buffer = buffer->append(text, 5);
    EXPECT_EQ(buffer->length(), 4u);
    EXPECT_STREQ(buffer->c_str(), "xyab");
    EXPECT_EQ(buffer->capacity(), 5u);
}

TEST(ZnStringBufferTest, AppendOnBufferWithShorterLengthTakesPrefix)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("xy", 0, 0));
    buffer = buffer->append("abcdef", 2);
    EXPECT_STREQ(buffer->c_str(), "xyab");
}

TEST(ZnStringBufferTest, AppendNullTextReturnsTheReceiver)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("xy", 0, 0));
    BufferHandle other(buffer);
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->append(static_cast<const char*>(nullptr), 4), receiver);
    EXPECT_STREQ(buffer->c_str(), "xy");
}

TEST(ZnStringBufferTest, AppendEmptyTextReturnsSharedReceiverUnchanged)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("xy", 0, 0));
    BufferHandle other(buffer);
    ZnStringBuffer* receiver = buffer;
    const AccountState before = readAccount();
    EXPECT_EQ(buffer->append("", 0), receiver);
    EXPECT_EQ(buffer->append("", 7), receiver);
    EXPECT_EQ(readAccount().blocks, before.blocks);
    EXPECT_STREQ(buffer->c_str(), "xy");
}

TEST(ZnStringBufferTest, AppendWithRoomOnUnsharedBufferWorksInPlace)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("ab", 0, 10));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->append("cd"), receiver);
    EXPECT_STREQ(buffer->c_str(), "abcd");
    EXPECT_EQ(buffer->length(), 4u);
    EXPECT_EQ(buffer->capacity(), 10u);
}

TEST(ZnStringBufferTest, AppendFillingCapacityExactlyWorksInPlace)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("ab", 0, 5));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->append("cd"), receiver);
    EXPECT_STREQ(buffer->c_str(), "abcd");
}

TEST(ZnStringBufferTest, AppendOnCountZeroBufferWorksInPlace)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate("ab", 0, 10);
    EXPECT_EQ(buffer->append("cd"), buffer);
    EXPECT_EQ(buffer->getRefCount(), 0u);
    EXPECT_STREQ(buffer->c_str(), "abcd");
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, AppendBeyondCapacityGrowsToExactlyTheNeededSize)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("ab", 0, 0));
    ZnStringBuffer* receiver = buffer;
    const AccountState before = readAccount();
    ZnStringBuffer* result = buffer->append("cde");
    ASSERT_NE(result, receiver);
    EXPECT_EQ(result->capacity(), 2u + 3u + 1u);
    EXPECT_EQ(result->getRefCount(), 0u);
    EXPECT_EQ(readAccount().bytes - before.bytes, blockBytes(6));
    buffer = result;
    EXPECT_STREQ(buffer->c_str(), "abcde");
    // The old block went with its last handle.
    EXPECT_EQ(readAccount().bytes - before.bytes, blockBytes(6) - blockBytes(3));
}

TEST(ZnStringBufferTest, AppendOnSharedBufferCopiesEvenWithRoom)
{
    BufferHandle first(ZnStringBuffer::sCreate("ab", 0, 40));
    BufferHandle second(first);
    ZnStringBuffer* result = second->append("cd");
    ASSERT_NE(result, static_cast<ZnStringBuffer*>(first));
    second = result;
    EXPECT_EQ(second->capacity(), 5u);
    EXPECT_STREQ(second->c_str(), "abcd");
    EXPECT_STREQ(first->c_str(), "ab");
    EXPECT_EQ(first->length(), 2u);
    EXPECT_EQ(first->getRefCount(), 1u);
}

TEST(ZnStringBufferTest, RepeatedAppendsKeepNoReserve)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("a", 0, 0));
    for (int i = 0; i < 5; ++i)
    {
        ZnStringBuffer* before = buffer;
        buffer = buffer->append("b");
        EXPECT_NE(static_cast<ZnStringBuffer*>(buffer), before);
        EXPECT_EQ(buffer->capacity(), buffer->length() + 1);
    }
    EXPECT_STREQ(buffer->c_str(), "abbbbb");
}

TEST(ZnStringBufferTest, AppendClearsTheHash)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("a", 0, 10));
    EXPECT_EQ(buffer->hashCode(), 97u);
    ZnStringBuffer* receiver = buffer;
    ASSERT_EQ(buffer->append("b"), receiver);
    EXPECT_EQ(buffer->hashCode(), 583u);
}

TEST(ZnStringBufferTest, AppendOfItsOwnCharactersInPlace)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("ab", 0, 10));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->append(buffer->c_str()), receiver);
    EXPECT_STREQ(buffer->c_str(), "abab");
}

// ---- append(other) ----

TEST(ZnStringBufferTest, AppendBufferOnNullReceiverReturnsThatSameBuffer)
{
    BufferHandle other(ZnStringBuffer::sCreate("abc", 0, 0));
    ZnStringBuffer* nullBuffer = nullReceiver();
    const AccountState before = readAccount();
    ZnStringBuffer* result = nullBuffer->append(static_cast<const ZnStringBuffer*>(other));
    EXPECT_EQ(result, static_cast<ZnStringBuffer*>(other));
    EXPECT_EQ(readAccount().blocks, before.blocks);
    BufferHandle shared(result);
    EXPECT_EQ(other->getRefCount(), 2u);
}

TEST(ZnStringBufferTest, AppendNullBufferReturnsTheReceiver)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->append(static_cast<const ZnStringBuffer*>(nullptr)), receiver);
    EXPECT_STREQ(buffer->c_str(), "abc");
}

TEST(ZnStringBufferTest, AppendBufferOnNullReceiverWithNullBufferIsNull)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->append(static_cast<const ZnStringBuffer*>(nullptr)), nullptr);
}

TEST(ZnStringBufferTest, AppendBufferAppendsItsCharacters)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("ab", 0, 0));
    BufferHandle other(ZnStringBuffer::sCreate("cd", 0, 0));
    buffer = buffer->append(static_cast<const ZnStringBuffer*>(other));
    EXPECT_STREQ(buffer->c_str(), "abcd");
    EXPECT_EQ(buffer->capacity(), 5u);
    EXPECT_STREQ(other->c_str(), "cd");
}

TEST(ZnStringBufferTest, AppendBufferToItselfDoublesIt)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("ab", 0, 0));
    buffer = buffer->append(static_cast<const ZnStringBuffer*>(buffer));
    EXPECT_STREQ(buffer->c_str(), "abab");
    EXPECT_EQ(buffer->capacity(), 5u);
}

// ---- trim ----

TEST(ZnStringBufferTest, TrimOnNullReceiverIsNull)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->trim(), nullptr);
}

TEST(ZnStringBufferTest, TrimRemovesLeadingAndTrailingWhiteSpace)
{
    BufferHandle buffer(ZnStringBuffer::sCreate(" \t\r\nab c\n\r\t ", 0, 0));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->trim(), receiver);
    EXPECT_STREQ(buffer->c_str(), "ab c");
    EXPECT_EQ(buffer->length(), 4u);
}

TEST(ZnStringBufferTest, TrimOfOnlyWhiteSpaceGivesEmptyBufferNotNull)
{
    BufferHandle buffer(ZnStringBuffer::sCreate(" \t\r\n", 0, 0));
    ZnStringBuffer* result = buffer->trim();
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->length(), 0u);
    EXPECT_STREQ(result->c_str(), "");
}

TEST(ZnStringBufferTest, TrimKeepsVerticalTabAndFormFeed)
{
    BufferHandle buffer(ZnStringBuffer::sCreate(" \v x \f ", 0, 0));
    buffer = buffer->trim();
    EXPECT_STREQ(buffer->c_str(), "\v x \f");
}

TEST(ZnStringBufferTest, TrimKeepsBytesAbove127)
{
    BufferHandle buffer(ZnStringBuffer::sCreate(" \xA0x\x85 ", 0, 0));
    buffer = buffer->trim();
    EXPECT_STREQ(buffer->c_str(), "\xA0x\x85");
}

TEST(ZnStringBufferTest, TrimWithNothingToRemoveKeepsTheText)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("a b", 0, 0));
    buffer = buffer->trim();
    EXPECT_STREQ(buffer->c_str(), "a b");
    EXPECT_EQ(buffer->length(), 3u);
}

TEST(ZnStringBufferTest, TrimOnSharedBufferCopiesKeepingCapacity)
{
    BufferHandle first(ZnStringBuffer::sCreate("  ab  ", 0, 30));
    BufferHandle second(first);
    ZnStringBuffer* result = second->trim();
    ASSERT_NE(result, static_cast<ZnStringBuffer*>(first));
    second = result;
    EXPECT_STREQ(second->c_str(), "ab");
    EXPECT_EQ(second->capacity(), 30u);
    EXPECT_STREQ(first->c_str(), "  ab  ");
    EXPECT_EQ(first->length(), 6u);
}

TEST(ZnStringBufferTest, TrimOnCountZeroBufferWorksInPlace)
{
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate("  ab", 0, 0);
    EXPECT_EQ(buffer->trim(), buffer);
    EXPECT_STREQ(buffer->c_str(), "ab");
    BufferHandle owner(buffer);
}

TEST(ZnStringBufferTest, TrimClearsTheHash)
{
    BufferHandle buffer(ZnStringBuffer::sCreate(" ab", 0, 0));
    EXPECT_EQ(buffer->hashCode(), expectedHash(" ab"));
    ZnStringBuffer* receiver = buffer;
    ASSERT_EQ(buffer->trim(), receiver);
    EXPECT_EQ(buffer->hashCode(), 583u);
}

// ---- toUpper and toLower ----

TEST(ZnStringBufferTest, ToUpperOnNullReceiverIsNull)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->toUpper(), nullptr);
    EXPECT_EQ(nullBuffer->toLower(), nullptr);
}

TEST(ZnStringBufferTest, ToUpperOnEmptySharedBufferReturnsItUnchanged)
{
    BufferHandle first(ZnStringBuffer::sCreate("", 0, 8));
    BufferHandle second(first);
    ZnStringBuffer* receiver = first;
    EXPECT_EQ(second->toUpper(), receiver);
    EXPECT_EQ(second->toLower(), receiver);
}

TEST(ZnStringBufferTest, ToUpperChangesAsciiLettersOnly)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("azAZ09-@[`{\xE9\xFF", 0, 0));
    buffer = buffer->toUpper();
    EXPECT_STREQ(buffer->c_str(), "AZAZ09-@[`{\xE9\xFF");
}

TEST(ZnStringBufferTest, ToLowerChangesAsciiLettersOnly)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("azAZ09-@[`{\xC9\xDE", 0, 0));
    buffer = buffer->toLower();
    EXPECT_STREQ(buffer->c_str(), "azaz09-@[`{\xC9\xDE");
}

TEST(ZnStringBufferTest, ToUpperOnUnsharedBufferWorksInPlace)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 20));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->toUpper(), receiver);
    EXPECT_STREQ(buffer->c_str(), "ABC");
    EXPECT_EQ(buffer->capacity(), 20u);
}

TEST(ZnStringBufferTest, ToLowerOnUnsharedBufferWorksInPlace)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("ABC", 0, 20));
    ZnStringBuffer* receiver = buffer;
    EXPECT_EQ(buffer->toLower(), receiver);
    EXPECT_STREQ(buffer->c_str(), "abc");
}

TEST(ZnStringBufferTest, ToUpperOnSharedBufferCopiesWithTightCapacity)
{
    BufferHandle first(ZnStringBuffer::sCreate("abc", 0, 20));
    BufferHandle second(first);
    ZnStringBuffer* result = second->toUpper();
    ASSERT_NE(result, static_cast<ZnStringBuffer*>(first));
    second = result;
    EXPECT_STREQ(second->c_str(), "ABC");
    EXPECT_EQ(second->capacity(), 4u);
    EXPECT_STREQ(first->c_str(), "abc");
}

TEST(ZnStringBufferTest, ToLowerOnSharedBufferCopiesWithTightCapacity)
{
    BufferHandle first(ZnStringBuffer::sCreate("ABC", 0, 20));
    BufferHandle second(first);
    ZnStringBuffer* result = second->toLower();
    ASSERT_NE(result, static_cast<ZnStringBuffer*>(first));
    second = result;
    EXPECT_STREQ(second->c_str(), "abc");
    EXPECT_EQ(second->capacity(), 4u);
    EXPECT_STREQ(first->c_str(), "ABC");
}

TEST(ZnStringBufferTest, ToUpperClearsTheHash)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("ab", 0, 0));
    EXPECT_EQ(buffer->hashCode(), 583u);
    ZnStringBuffer* receiver = buffer;
    ASSERT_EQ(buffer->toUpper(), receiver);
    EXPECT_EQ(buffer->hashCode(), 65u * 5 + 66);
}

TEST(ZnStringBufferTest, ToLowerClearsTheHash)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("AB", 0, 0));
    EXPECT_EQ(buffer->hashCode(), 65u * 5 + 66);
    ZnStringBuffer* receiver = buffer;
    ASSERT_EQ(buffer->toLower(), receiver);
    EXPECT_EQ(buffer->hashCode(), 583u);
}

// ---- substr ----

TEST(ZnStringBufferTest, SubstrOnNullReceiverIsNull)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->substr(0, 0), nullptr);
}

TEST(ZnStringBufferTest, SubstrAtTheEndIsNull)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(buffer->substr(3, 0), nullptr);
    EXPECT_EQ(buffer->substr(3, 5), nullptr);
}

TEST(ZnStringBufferTest, SubstrPastTheEndIsNull)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(buffer->substr(4, 0), nullptr);
}

TEST(ZnStringBufferTest, SubstrLongerThanTheRestTakesTheRest)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    BufferHandle part(buffer->substr(1, 99));
    EXPECT_STREQ(part->c_str(), "bc");
    EXPECT_EQ(part->capacity(), 3u);
}

TEST(ZnStringBufferTest, SubstrOfLengthZeroTakesTheRest)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    BufferHandle part(buffer->substr(1, 0));
    EXPECT_STREQ(part->c_str(), "bc");
}

TEST(ZnStringBufferTest, SubstrHasCapacityOfLengthPlusOne)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abcdef", 0, 40));
    BufferHandle part(buffer->substr(1, 3));
    EXPECT_STREQ(part->c_str(), "bcd");
    EXPECT_EQ(part->length(), 3u);
    EXPECT_EQ(part->capacity(), 4u);
}

TEST(ZnStringBufferTest, SubstrNeverShares)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    ZnStringBuffer* whole = buffer->substr(0, 0);
    ASSERT_NE(whole, nullptr);
    EXPECT_NE(whole, static_cast<ZnStringBuffer*>(buffer));
    EXPECT_EQ(whole->getRefCount(), 0u);
    EXPECT_EQ(buffer->getRefCount(), 1u);
    BufferHandle owner(whole);
    EXPECT_STREQ(owner->c_str(), "abc");
}

// ---- indexOf ----

TEST(ZnStringBufferTest, IndexOfGivesOffsetFromTheStart)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abcabc", 0, 0));
    EXPECT_EQ(buffer->indexOf("bc", 0), 1);
    EXPECT_EQ(buffer->indexOf("bc", 1), 1);
    EXPECT_EQ(buffer->indexOf("bc", 2), 4);
    EXPECT_EQ(buffer->indexOf("c", 5), 5);
}

TEST(ZnStringBufferTest, IndexOfMissingNeedleIsMinusOne)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abcabc", 0, 0));
    EXPECT_EQ(buffer->indexOf("abd", 0), -1);
    EXPECT_EQ(buffer->indexOf("ab", 4), -1);
}

TEST(ZnStringBufferTest, IndexOfOnNullReceiverIsMinusOne)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->indexOf("a", 0), -1);
}

TEST(ZnStringBufferTest, IndexOfNullNeedleIsMinusOne)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(buffer->indexOf(nullptr, 0), -1);
}

TEST(ZnStringBufferTest, IndexOfFromAtOrPastTheLengthIsMinusOne)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(buffer->indexOf("", 3), -1);
    EXPECT_EQ(buffer->indexOf("c", 3), -1);
    EXPECT_EQ(buffer->indexOf("c", 4), -1);
}

TEST(ZnStringBufferTest, IndexOfOnEmptyBufferIsMinusOne)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("", 0, 4));
    EXPECT_EQ(buffer->indexOf("", 0), -1);
}

TEST(ZnStringBufferTest, IndexOfEmptyNeedleFindsTheStartPosition)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(buffer->indexOf("", 1), 1);
}

TEST(ZnStringBufferTest, IndexOfNegativeFromIsMinusOne)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(buffer->indexOf("a", -1), -1);
}

// ---- compareWith(const char*) ----

TEST(ZnStringBufferTest, CompareNullReceiverWithNullOrEmptyTextIsZero)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->compareWith(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(nullBuffer->compareWith(""), 0);
}

TEST(ZnStringBufferTest, CompareNullReceiverWithTextIsMinusOne)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->compareWith("a"), -1);
    EXPECT_EQ(nullBuffer->compareWith("\xFF"), -1);
}

TEST(ZnStringBufferTest, CompareWithNullTextGivesTheFirstCharacter)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("Abc", 0, 0));
    EXPECT_EQ(buffer->compareWith(static_cast<const char*>(nullptr)), 65);
}

TEST(ZnStringBufferTest, CompareEmptyBufferWithNullTextIsZero)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("", 0, 4));
    EXPECT_EQ(buffer->compareWith(static_cast<const char*>(nullptr)), 0);
}

TEST(ZnStringBufferTest, CompareWithNullTextTakesTheFirstCharacterAsSigned)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("\xE9x", 0, 0));
    EXPECT_EQ(buffer->compareWith(static_cast<const char*>(nullptr)), 0xE9 - 256);
}

TEST(ZnStringBufferTest, CompareWithEqualTextIsZero)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(buffer->compareWith("abc"), 0);
}

TEST(ZnStringBufferTest, CompareWithGivesOnlyMinusOneOrOne)
{
    BufferHandle abc(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(abc->compareWith("abd"), -1);
    EXPECT_EQ(abc->compareWith("abz"), -1);
    EXPECT_EQ(abc->compareWith("aba"), 1);
    EXPECT_EQ(abc->compareWith("A"), 1);
}

TEST(ZnStringBufferTest, CompareWithPrefixOrderShorterFirst)
{
    BufferHandle abc(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(abc->compareWith("ab"), 1);
    EXPECT_EQ(abc->compareWith("abcd"), -1);
    EXPECT_EQ(abc->compareWith(""), 1);
}

TEST(ZnStringBufferTest, CompareWithTakesBytesAsUnsigned)
{
    BufferHandle high(ZnStringBuffer::sCreate("\xE9", 0, 0));
    BufferHandle low(ZnStringBuffer::sCreate("a", 0, 0));
    EXPECT_EQ(high->compareWith("a"), 1);
    EXPECT_EQ(low->compareWith("\xE9"), -1);
    EXPECT_EQ(high->compareWith("\xFF"), -1);
}

// ---- compareNoCase ----

TEST(ZnStringBufferTest, CompareNoCaseNullReceiver)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    EXPECT_EQ(nullBuffer->compareNoCase(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(nullBuffer->compareNoCase(""), 0);
    EXPECT_EQ(nullBuffer->compareNoCase("a"), -1);
}

TEST(ZnStringBufferTest, CompareNoCaseWithNullTextGivesFirstCharacterUnfolded)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("Abc", 0, 0));
    EXPECT_EQ(buffer->compareNoCase(static_cast<const char*>(nullptr)), 65);
}

TEST(ZnStringBufferTest, CompareNoCaseWithNullTextTakesFirstCharacterAsSigned)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("\xFF", 0, 0));
    EXPECT_EQ(buffer->compareNoCase(static_cast<const char*>(nullptr)), -1);
}

TEST(ZnStringBufferTest, CompareNoCaseFoldsAsciiLetters)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("HeLLo-Z", 0, 0));
    EXPECT_EQ(buffer->compareNoCase("hEllO-z"), 0);
}

TEST(ZnStringBufferTest, CompareNoCaseGivesTheDifferenceOfFoldedCharacters)
{
    BufferHandle abc(ZnStringBuffer::sCreate("abc", 0, 0));
    BufferHandle abf(ZnStringBuffer::sCreate("abf", 0, 0));
    EXPECT_EQ(abc->compareNoCase("ABD"), -1);
    EXPECT_EQ(abf->compareNoCase("ABD"), 2);
    EXPECT_EQ(abc->compareNoCase("AZ"), 'b' - 'z');
}

TEST(ZnStringBufferTest, CompareNoCaseAtTheEndOfEitherText)
{
    BufferHandle ab(ZnStringBuffer::sCreate("ab", 0, 0));
    BufferHandle abc(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(ab->compareNoCase("ABC"), -'c');
    EXPECT_EQ(abc->compareNoCase("AB"), 'c');
    EXPECT_EQ(ab->compareNoCase("AB"), 0);
}

TEST(ZnStringBufferTest, CompareNoCaseTakesBytesAsUnsigned)
{
    BufferHandle high(ZnStringBuffer::sCreate("\xE9", 0, 0));
    EXPECT_EQ(high->compareNoCase("a"), 0xE9 - 'a');
    BufferHandle low(ZnStringBuffer::sCreate("a", 0, 0));
    EXPECT_EQ(low->compareNoCase("\xE9"), 'a' - 0xE9);
}

TEST(ZnStringBufferTest, CompareNoCaseFoldsOnlyAsciiLetters)
{
    BufferHandle latin(ZnStringBuffer::sCreate("\xC9", 0, 0));
    EXPECT_EQ(latin->compareNoCase("\xE9"), 0xC9 - 0xE9);
    BufferHandle bracket(ZnStringBuffer::sCreate("[", 0, 0));
    EXPECT_EQ(bracket->compareNoCase("{"), '[' - '{');
    BufferHandle at(ZnStringBuffer::sCreate("@", 0, 0));
    EXPECT_EQ(at->compareNoCase("`"), '@' - '`');
}

TEST(ZnStringBufferTest, CompareNoCaseWithBuffer)
{
    BufferHandle abc(ZnStringBuffer::sCreate("abc", 0, 0));
    BufferHandle upper(ZnStringBuffer::sCreate("ABD", 0, 0));
    EXPECT_EQ(abc->compareNoCase(static_cast<const ZnStringBuffer*>(upper)), -1);
    EXPECT_EQ(upper->compareNoCase(static_cast<const ZnStringBuffer*>(abc)), 1);
}

TEST(ZnStringBufferTest, CompareNoCaseWithNullBufferGivesFirstCharacter)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("Abc", 0, 0));
    EXPECT_EQ(buffer->compareNoCase(static_cast<const ZnStringBuffer*>(nullptr)), 65);
}

TEST(ZnStringBufferTest, CompareNoCaseNullReceiverWithBuffer)
{
    ZnStringBuffer* nullBuffer = nullReceiver();
    BufferHandle text(ZnStringBuffer::sCreate("a", 0, 0));
    BufferHandle empty(ZnStringBuffer::sCreate("", 0, 2));
    EXPECT_EQ(nullBuffer->compareNoCase(static_cast<const ZnStringBuffer*>(text)), -1);
    EXPECT_EQ(nullBuffer->compareNoCase(static_cast<const ZnStringBuffer*>(empty)), 0);
    EXPECT_EQ(nullBuffer->compareNoCase(static_cast<const ZnStringBuffer*>(nullptr)), 0);
}

// ---- compareWith(const ZnObject*) ----

TEST(ZnStringBufferTest, CompareWithItselfAsObjectIsZero)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    const ZnObject* self = buffer;
    EXPECT_EQ(buffer->compareWith(self), 0);
}

TEST(ZnStringBufferTest, CompareWithNullObjectIsOne)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("abc", 0, 0));
    EXPECT_EQ(buffer->compareWith(static_cast<const ZnObject*>(nullptr)), 1);
}

TEST(ZnStringBufferTest, CompareWithObjectOfAnotherClassIsOne)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("", 0, 1));
    ZnObject plain;
    EXPECT_EQ(buffer->compareWith(&plain), 1);
}

TEST(ZnStringBufferTest, CompareWithOtherBufferIsByteWise)
{
    BufferHandle abc(ZnStringBuffer::sCreate("abc", 0, 0));
    BufferHandle sameText(ZnStringBuffer::sCreate("abc", 0, 0));
    BufferHandle abd(ZnStringBuffer::sCreate("abd", 0, 0));
    BufferHandle high(ZnStringBuffer::sCreate("\xE9", 0, 0));
    EXPECT_EQ(abc->compareWith(static_cast<const ZnObject*>(sameText)), 0);
    EXPECT_EQ(abc->compareWith(static_cast<const ZnObject*>(abd)), -1);
    EXPECT_EQ(abd->compareWith(static_cast<const ZnObject*>(abc)), 1);
    EXPECT_EQ(high->compareWith(static_cast<const ZnObject*>(abc)), 1);
}

TEST(ZnStringBufferTest, EqualsComparesTheCharacters)
{
    BufferHandle abc(ZnStringBuffer::sCreate("abc", 0, 0));
    BufferHandle sameText(ZnStringBuffer::sCreate("abc", 0, 10));
    BufferHandle other(ZnStringBuffer::sCreate("abd", 0, 0));
    EXPECT_TRUE(abc->equals(sameText));
    EXPECT_FALSE(abc->equals(other));
    EXPECT_EQ(abc->compare(sameText), 0);
}

// ---- hashCode ----

TEST(ZnStringBufferTest, HashOfAbIsWeightedSum)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("ab", 0, 0));
    EXPECT_EQ(buffer->hashCode(), 97u * 5 + 98);
}

TEST(ZnStringBufferTest, HashTakesBytesAsSigned)
{
    BufferHandle ff(ZnStringBuffer::sCreate("\xFF", 0, 0));
    EXPECT_EQ(ff->hashCode(), 0xFFFFFFFFu);
    BufferHandle aff(ZnStringBuffer::sCreate("a\xFF", 0, 0));
    EXPECT_EQ(aff->hashCode(), 97u * 5 - 1);
    BufferHandle x80(ZnStringBuffer::sCreate("\x80", 0, 0));
    EXPECT_EQ(x80->hashCode(), 0xFFFFFF80u);
}

TEST(ZnStringBufferTest, HashWrapsInThirtyTwoBits)
{
    const std::string text(200, 'z');
    BufferHandle buffer(ZnStringBuffer::sCreate(text.c_str(), 0, 0));
    EXPECT_EQ(buffer->hashCode(), expectedHash(text.c_str()));
    const char* mixed = "Via: SIP/2.0/UDP \xC3\xA9t\xC3\xA9.example.com;branch=z9hG4bK776asdhds";
    BufferHandle other(ZnStringBuffer::sCreate(mixed, 0, 0));
    EXPECT_EQ(other->hashCode(), expectedHash(mixed));
}

TEST(ZnStringBufferTest, HashOfEmptyBufferIsZero)
{
    BufferHandle buffer(ZnStringBuffer::sCreate("", 0, 4));
    EXPECT_EQ(buffer->hashCode(), 0u);
}

TEST(ZnStringBufferTest, HashStopsAtTheTerminator)
{
    const char text[6] = "ab\0cd";
    BufferHandle buffer(ZnStringBuffer::sCreate(text, 5, 0));
    EXPECT_EQ(buffer->hashCode(), 583u);
}

TEST(ZnStringBufferTest, HashOfZeroIsComputedAgain)
{
    // 1 * 5 + (-5) == 0: a non-empty string whose hash is 0, so nothing is cached.
    ZnStringBuffer* buffer = ZnStringBuffer::sCreate("\x01\xFB", 0, 0);
    EXPECT_EQ(buffer->hashCode(), 0u);
    memcpy(buffer->lockBuffer(3), "ab", 3);
    buffer->releaseBuffer(2);
    EXPECT_EQ(buffer->hashCode(), 583u);
    BufferHandle owner(buffer);
}

// ---- memory ----

TEST(ZnStringBufferTest, OperationsLeaveNoBlockBehind)
{
    const AccountState before = readAccount();
    {
        BufferHandle buffer(ZnStringBuffer::sCreate("  Hello", 0, 0));
        BufferHandle shared(buffer);
        buffer = buffer->append(" World  ");
        buffer = buffer->trim();
        BufferHandle upper(buffer);
        upper = upper->toUpper();
        upper = upper->toLower();
        BufferHandle part(buffer->substr(2, 3));
        BufferHandle copy(dynamic_cast<ZnStringBuffer*>(part->clone()));
        copy = copy->assign("a longer text than before");
        // The append copied, so shared is the last holder of the first block: emptied in place.
        shared = shared->assign("");
        EXPECT_FALSE(shared.isNil());
        EXPECT_TRUE(shared->empty());
        EXPECT_STREQ(buffer->c_str(), "Hello World");
        EXPECT_STREQ(upper->c_str(), "hello world");
        EXPECT_STREQ(part->c_str(), "llo");
    }
    const AccountState after = readAccount();
    EXPECT_EQ(after.blocks, before.blocks);
    EXPECT_EQ(after.bytes, before.bytes);
}

TEST(ZnStringBufferTest, FailedLockLeavesNoBlockBehind)
{
    const AccountState before = readAccount();
    {
        BufferHandle owner(ZnStringBuffer::sCreate("abc", 0, 0));
        expectAssertionFailure([&] { owner->lockBuffer(1); }, "ZnStringBuffer::lockBuffer", 357);
    }
    const AccountState after = readAccount();
    EXPECT_EQ(after.blocks, before.blocks);
    EXPECT_EQ(after.bytes, before.bytes);
}

// ---- concurrency ----

TEST(ZnStringBufferTest, ConcurrentHashOfSharedBufferIsRight)
{
    const int kThreads = 4;
    const int kRounds = 100;
    const char* text = "INVITE sip:bob@biloxi.example.com SIP/2.0 \xE9\xFF";
    const unsigned int expected = expectedHash(text);
    for (int round = 0; round < kRounds; ++round)
    {
        // A fresh buffer each round, so that the threads race on the first computation.
        BufferHandle shared(ZnStringBuffer::sCreate(text, 0, 0));
        std::atomic<int> ready(0);
        std::atomic<int> wrong(0);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
        {
            threads.emplace_back(
                [&, copy = shared]()
                {
                    ready.fetch_add(1);
                    while (ready.load() < kThreads)
                    {
                        std::this_thread::yield();
                    }
                    for (int i = 0; i < 20; ++i)
                    {
                        if (copy->hashCode() != expected)
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
        ASSERT_EQ(wrong.load(), 0) << "round " << round;
        EXPECT_EQ(shared->hashCode(), expected);
        EXPECT_EQ(shared->getRefCount(), 1u);
    }
}

TEST(ZnStringBufferTest, ConcurrentReadersSeeSharedBufferUnchanged)
{
    const int kThreads = 4;
    BufferHandle shared(ZnStringBuffer::sCreate("Call-ID: a84b4c76e66710", 0, 64));
    const AccountState before = readAccount();
    std::atomic<int> wrong(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back(
            [&, copy = shared]() mutable
            {
                for (int i = 0; i < 200; ++i)
                {
                    BufferHandle mine(copy);
                    mine = mine->append("-x");
                    mine = mine->toUpper();
                    if (mine->compareWith("CALL-ID: A84B4C76E66710-X") != 0)
                    {
                        wrong.fetch_add(1);
                    }
                    if (copy->compareWith("Call-ID: a84b4c76e66710") != 0)
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
    EXPECT_STREQ(shared->c_str(), "Call-ID: a84b4c76e66710");
    EXPECT_EQ(shared->getRefCount(), 1u);
    const AccountState after = readAccount();
    EXPECT_EQ(after.blocks, before.blocks);
    EXPECT_EQ(after.bytes, before.bytes);
}

} // namespace
