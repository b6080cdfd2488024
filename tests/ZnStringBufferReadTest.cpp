// The reading operations of ZnStringBuffer and ZnString: parse, peek, read and operator>>.
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnCppInputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnString.h"
#include "ZnUtil/ZnStringBuffer.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

namespace
{

const char* const kMarkText = "Can only tokenize streams where mark supported";

ZnHandle<ZnByteArrayInputStream> streamOf(const std::string& text)
{
    ZnHandle<ZnByteArray> bytes =
        ZnByteArray::sCreate(static_cast<unsigned int>(text.size()), text.data());
    return ZnHandle<ZnByteArrayInputStream>(new ZnByteArrayInputStream(bytes));
}

std::string rest(ZnInputStream& in)
{
    std::string text;
    for (int c = in.read(); c != -1; c = in.read())
    {
        text.push_back(static_cast<char>(c));
    }
    return text;
}

std::string thrownText(const std::function<void()>& action)
{
    try
    {
        action();
    }
    catch (ZnHandle<ZnException>& e)
    {
        const char* message = e->getExceptionMessage();
        return message != nullptr ? message : "<nil message>";
    }
    return "<nothing thrown>";
}

/// The characters of \p buffer as a std::string of its length (NULs kept).
std::string textOf(const ZnStringBuffer* buffer)
{
    return std::string(buffer->c_str(), buffer->length());
}

/// A null receiver hidden from the optimiser, as ZnString passes it.
ZnStringBuffer* nullReceiver()
{
    ZnStringBuffer* none = nullptr;
    asm("" : "+r"(none));
    return none;
}

// ---- parse ----

TEST(ZnStringBufferReadTest, ParseOnNullReceiverMakesBufferOfCapacityNPlusOne)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  \r\nabc def");
    ZnHandle<ZnStringBuffer> token(nullReceiver()->parse(*in, " "));
    ASSERT_FALSE(token.isNil());
    EXPECT_EQ("abc", textOf(token));
    EXPECT_EQ(3u, token->length());
    EXPECT_EQ(4u, token->capacity());
    EXPECT_EQ(" def", rest(*in));
}

TEST(ZnStringBufferReadTest, ParseNewBufferHasCountZero)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc");
    ZnStringBuffer* token = nullReceiver()->parse(*in, " ");
    ASSERT_NE(nullptr, token);
    EXPECT_EQ(0u, token->getRefCount());
    ZnHandle<ZnStringBuffer> owner(token);
}

TEST(ZnStringBufferReadTest, ParseReusesUnsharedReceiverWhenCapacityHoldsTheToken)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("ab;cdef");
    ZnHandle<ZnStringBuffer> held(ZnStringBuffer::sCreate("xxxxxxxx"));
    ASSERT_EQ(1u, held->getRefCount());
    ZnStringBuffer* result = held->parse(*in, ";");
    EXPECT_EQ(static_cast<ZnStringBuffer*>(held), result);
    EXPECT_EQ("ab", textOf(result));
    EXPECT_EQ(9u, result->capacity());
    EXPECT_EQ(";cdef", rest(*in));
}

TEST(ZnStringBufferReadTest, ParseReusesReceiverWithCountZero)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc");
    ZnStringBuffer* loose = ZnStringBuffer::sCreate(nullptr, 0, 8);
    ASSERT_EQ(0u, loose->getRefCount());
    EXPECT_EQ(loose, loose->parse(*in, ";"));
    ZnHandle<ZnStringBuffer> owner(loose);
    EXPECT_EQ("abc", textOf(owner));
}

TEST(ZnStringBufferReadTest, ParseCapacityEqualToTokenLengthMakesANewBuffer)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abcd");
    ZnHandle<ZnStringBuffer> held(ZnStringBuffer::sCreate("xyz"));
    ASSERT_EQ(4u, held->capacity());
    ZnHandle<ZnStringBuffer> result(held->parse(*in, ";"));
    EXPECT_NE(static_cast<ZnStringBuffer*>(held), static_cast<ZnStringBuffer*>(result));
    EXPECT_EQ("abcd", textOf(result));
    EXPECT_EQ(5u, result->capacity());
    EXPECT_EQ("xyz", textOf(held));
}

TEST(ZnStringBufferReadTest, ParseOnSharedReceiverLeavesTheOtherStringAlone)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("new");
    ZnString first("a longer old text");
    ZnString second(first);
    ASSERT_EQ(2u, first.buffer()->getRefCount());
    first.parse(*in, ";");
    EXPECT_NE(first.buffer(), second.buffer());
    EXPECT_EQ(first, "new");
    EXPECT_EQ(4u, first.buffer()->capacity());
    EXPECT_EQ(second, "a longer old text");
}

TEST(ZnStringBufferReadTest, ParseAtEndOfStreamGivesEmptyBufferNotNull)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \t\r\n");
    ZnHandle<ZnStringBuffer> token(nullReceiver()->parse(*in, ";"));
    ASSERT_FALSE(token.isNil());
    EXPECT_EQ(0u, token->length());
    EXPECT_EQ(1u, token->capacity());
    EXPECT_STREQ("", token->c_str());
}

TEST(ZnStringBufferReadTest, ParseInPlaceClearsTheHash)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("ab");
    ZnHandle<ZnStringBuffer> held(ZnStringBuffer::sCreate("zzzzzz"));
    const unsigned int oldHash = held->hashCode();
    ASSERT_NE(583u, oldHash);
    ASSERT_EQ(static_cast<ZnStringBuffer*>(held), held->parse(*in, ";"));
    EXPECT_EQ(583u, held->hashCode());
}

TEST(ZnStringBufferReadTest, ParseKeepsBytesAbove127AndNul)
{
    const std::string text("a\0\xE9"
                           "b;",
                           5);
    ZnHandle<ZnByteArrayInputStream> in = streamOf(text);
    ZnHandle<ZnStringBuffer> token(nullReceiver()->parse(*in, ";"));
    EXPECT_EQ(std::string("a\0\xE9"
                          "b",
                          4),
              textOf(token));
}

TEST(ZnStringBufferReadTest, ParseWithoutMarksThrows)
{
    std::istringstream text("abc");
    ZnHandle<ZnCppInputStream> in(new ZnCppInputStream(text));
    EXPECT_EQ(kMarkText, thrownText([&] { nullReceiver()->parse(*in, ";"); }));
}

// ---- peek ----

TEST(ZnStringBufferReadTest, PeekLeavesTheTokenInTheStream)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  abc def");
    ZnHandle<ZnStringBuffer> token(nullReceiver()->peek(*in, " "));
    EXPECT_EQ("abc", textOf(token));
    EXPECT_EQ(4u, token->capacity());
    // The white space before the token went with the look ahead.
    EXPECT_EQ("abc def", rest(*in));
}

TEST(ZnStringBufferReadTest, PeekTwiceGivesTheSameToken)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("tag=1928301774;x");
    ZnString first;
    ZnString second;
    first.peek(*in, "=;");
    second.peek(*in, "=;");
    EXPECT_EQ(first, "tag");
    EXPECT_EQ(second, "tag");
    EXPECT_EQ("tag=1928301774;x", rest(*in));
}

TEST(ZnStringBufferReadTest, PeekReusesUnsharedReceiver)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("ab");
    ZnHandle<ZnStringBuffer> held(ZnStringBuffer::sCreate("xyz"));
    EXPECT_EQ(static_cast<ZnStringBuffer*>(held), held->peek(*in, ";"));
    EXPECT_EQ("ab", textOf(held));
    EXPECT_EQ("ab", rest(*in));
}

TEST(ZnStringBufferReadTest, PeekOnSharedReceiverMakesANewBuffer)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("ab");
    ZnString first("longer");
    ZnString second(first);
    first.peek(*in, ";");
    EXPECT_NE(first.buffer(), second.buffer());
    EXPECT_EQ(first, "ab");
    EXPECT_EQ(3u, first.buffer()->capacity());
    EXPECT_EQ(second, "longer");
}

TEST(ZnStringBufferReadTest, PeekAtEndOfStreamGivesEmptyBuffer)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("");
    ZnHandle<ZnStringBuffer> token(nullReceiver()->peek(*in, ";"));
    ASSERT_FALSE(token.isNil());
    EXPECT_EQ(0u, token->length());
}

TEST(ZnStringBufferReadTest, PeekWithoutMarksThrows)
{
    std::istringstream text("abc");
    ZnHandle<ZnCppInputStream> in(new ZnCppInputStream(text));
    EXPECT_EQ(kMarkText, thrownText([&] { nullReceiver()->peek(*in, ";"); }));
    EXPECT_EQ("abc", rest(*in));
}

// ---- read ----

TEST(ZnStringBufferReadTest, ReadTakesCountRawBytes)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" ab\r\ncd");
    ZnHandle<ZnStringBuffer> bytes(nullReceiver()->read(*in, 5));
    EXPECT_EQ(" ab\r\n", textOf(bytes));
    EXPECT_EQ(6u, bytes->capacity());
    EXPECT_EQ("cd", rest(*in));
}

TEST(ZnStringBufferReadTest, ReadShortStreamGivesWhatCame)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc");
    ZnHandle<ZnStringBuffer> bytes(nullReceiver()->read(*in, 10));
    EXPECT_EQ("abc", textOf(bytes));
    EXPECT_EQ(11u, bytes->capacity());
}

TEST(ZnStringBufferReadTest, ReadAtEndOfStreamGivesEmptyBuffer)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("");
    ZnHandle<ZnStringBuffer> bytes(nullReceiver()->read(*in, 4));
    ASSERT_FALSE(bytes.isNil());
    EXPECT_EQ(0u, bytes->length());
    EXPECT_EQ(5u, bytes->capacity());
    EXPECT_STREQ("", bytes->c_str());
}

TEST(ZnStringBufferReadTest, ReadCountZeroGivesEmptyBufferOfCapacityOne)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc");
    ZnHandle<ZnStringBuffer> bytes(nullReceiver()->read(*in, 0));
    ASSERT_FALSE(bytes.isNil());
    EXPECT_EQ(0u, bytes->length());
    EXPECT_EQ(1u, bytes->capacity());
    EXPECT_EQ("abc", rest(*in));
}

TEST(ZnStringBufferReadTest, ReadCountWithoutRoomForTerminatorGivesNoBuffer)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc");
    EXPECT_EQ(nullptr, nullReceiver()->read(*in, 0xFFFFFFFFu));
    EXPECT_EQ("abc", rest(*in));
}

TEST(ZnStringBufferReadTest, ReadReusesUnsharedReceiverWhenCapacityExceedsCount)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abcdef");
    ZnHandle<ZnStringBuffer> held(ZnStringBuffer::sCreate("xyzw"));
    ASSERT_EQ(5u, held->capacity());
    EXPECT_EQ(static_cast<ZnStringBuffer*>(held), held->read(*in, 4));
    EXPECT_EQ("abcd", textOf(held));
    EXPECT_EQ("ef", rest(*in));
}

TEST(ZnStringBufferReadTest, ReadCapacityEqualToCountMakesANewBuffer)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abcdef");
    ZnHandle<ZnStringBuffer> held(ZnStringBuffer::sCreate("xyzw"));
    ZnHandle<ZnStringBuffer> bytes(held->read(*in, 5));
    EXPECT_NE(static_cast<ZnStringBuffer*>(held), static_cast<ZnStringBuffer*>(bytes));
    EXPECT_EQ("abcde", textOf(bytes));
    EXPECT_EQ(6u, bytes->capacity());
    EXPECT_EQ("xyzw", textOf(held));
}

TEST(ZnStringBufferReadTest, ReadOnSharedReceiverLeavesTheOtherStringAlone)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("ab");
    ZnString first("old text");
    ZnString second(first);
    first.read(*in, 2);
    EXPECT_NE(first.buffer(), second.buffer());
    EXPECT_EQ(first, "ab");
    EXPECT_EQ(3u, first.buffer()->capacity());
    EXPECT_EQ(second, "old text");
}

TEST(ZnStringBufferReadTest, ReadInPlaceClearsTheHash)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("ab");
    ZnHandle<ZnStringBuffer> held(ZnStringBuffer::sCreate("qqqq"));
    ASSERT_NE(583u, held->hashCode());
    ASSERT_EQ(static_cast<ZnStringBuffer*>(held), held->read(*in, 2));
    EXPECT_EQ(583u, held->hashCode());
}

TEST(ZnStringBufferReadTest, ReadWorksWithoutMarks)
{
    std::istringstream text("abcdef");
    ZnHandle<ZnCppInputStream> in(new ZnCppInputStream(text));
    ZnString bytes;
    bytes.read(*in, 3);
    EXPECT_EQ(bytes, "abc");
    EXPECT_EQ("def", rest(*in));
}

// ---- ZnString forms and operator>> ----

TEST(ZnStringBufferReadTest, StringParseReusesItsOwnBuffer)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("To: <sip:bob@biloxi.com>");
    ZnString token("placeholder");
    const ZnStringBuffer* before = token.buffer();
    token.parse(*in, ":");
    EXPECT_EQ(before, token.buffer());
    EXPECT_EQ(token, "To");
    EXPECT_EQ(1u, token.buffer()->getRefCount());
}

TEST(ZnStringBufferReadTest, ShiftOperatorReadsWhiteSpaceDelimitedWords)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  SIP/2.0\t200\r\nOK\n");
    ZnString version;
    ZnString code;
    ZnString reason;
    ZnInputStream& same = *in >> version >> code >> reason;
    EXPECT_EQ(static_cast<ZnInputStream*>(in), &same);
    EXPECT_EQ(version, "SIP/2.0");
    EXPECT_EQ(code, "200");
    EXPECT_EQ(reason, "OK");
    EXPECT_EQ("\n", rest(*in));
}

TEST(ZnStringBufferReadTest, ShiftOperatorAtEndGivesEmptyNotNil)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \r\n");
    ZnString word("previous");
    *in >> word;
    EXPECT_FALSE(word.isNil());
    EXPECT_TRUE(word.empty());
}

TEST(ZnStringBufferReadTest, ShiftOperatorDoesNotStopAtOtherCharacters)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("a;b,c\vd e");
    ZnString word;
    *in >> word;
    EXPECT_EQ(word, "a;b,c\vd");
}

TEST(ZnStringBufferReadTest, ShiftOperatorWithoutMarksThrows)
{
    std::istringstream text("abc");
    ZnHandle<ZnCppInputStream> in(new ZnCppInputStream(text));
    ZnString word;
    EXPECT_EQ(kMarkText, thrownText([&] { *in >> word; }));
    EXPECT_TRUE(word.isNil());
}

} // namespace
