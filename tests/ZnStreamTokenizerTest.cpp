#include "ZnUtil/ZnStreamTokenizer.h"

#include "ZnUtil/ZnBufferedInputStream.h"
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnCppInputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnFileInputStream.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnString.h"

#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "support/CapturingAppender.h"
#include <unistd.h>

namespace
{

const char* const kLoggerName = "corvane.zn.ZnStreamTokenizer";
const char* const kMarkText = "Can only tokenize streams where mark supported";
const char* const kQuoteText = "quote ( \" ) expected";
const char* const kUnsignedText = "unsigned number expected";
const char* const kDoubleText = "floating-point value expected";
const char* const kMissingNewline = "ZnStreamTokenizer::sGetLine: Missing newline character at "
                                    "the end of a line in SIP message, ignoring";

/// A mark-capable memory stream over the bytes of \p text (NULs and 0xFF included).
ZnHandle<ZnByteArrayInputStream> streamOf(const std::string& text)
{
    ZnHandle<ZnByteArray> bytes =
        ZnByteArray::sCreate(static_cast<unsigned int>(text.size()), text.data());
    return ZnHandle<ZnByteArrayInputStream>(new ZnByteArrayInputStream(bytes));
}

/// Everything read() still gives, as text.
std::string rest(ZnInputStream& in)
{
    std::string text;
    for (int c = in.read(); c != -1; c = in.read())
    {
        text.push_back(static_cast<char>(c));
    }
    return text;
}

/// The message of the ZnException that \p action throws, or "<nothing thrown>".
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

/// A buffer of \p size + 4 bytes, all 'Z', so that what was not written shows.
std::vector<char> filled(unsigned int size)
{
    return std::vector<char>(size + 4, 'Z');
}

/// Checks one captured event against the line-end report from \p line.
void expectMissingNewlineEvent(const ZnTest::CapturedEvent& event, int line)
{
    EXPECT_EQ(kLoggerName, event.logger);
    EXPECT_EQ(Tavoris::DEBUG_LOG_LEVEL, event.level);
    EXPECT_EQ(kMissingNewline, event.message);
    EXPECT_EQ("ZnStreamTokenizer", event.file);
    EXPECT_EQ(line, event.line);
}

/// A stream without mark support: a std::istringstream read through ZnCppInputStream.
class UnmarkedStream
{
public:
    explicit UnmarkedStream(const std::string& text)
        : m_text(text), m_stream(new ZnCppInputStream(m_text))
    {
    }
    ZnCppInputStream& operator*() const { return *static_cast<ZnCppInputStream*>(m_stream); }

private:
    std::istringstream m_text;
    ZnHandle<ZnCppInputStream> m_stream;
};

// ---- sDiscardWhite ----

TEST(ZnStreamTokenizerTest, DiscardWhiteSkipsTabLineFeedReturnAndBlank)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \t\r\n x y");
    EXPECT_EQ('x', ZnStreamTokenizer::sDiscardWhite(*in));
    EXPECT_EQ("x y", rest(*in));
}

TEST(ZnStreamTokenizerTest, DiscardWhiteStopsAtVerticalTabAndFormFeed)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \vx");
    EXPECT_EQ(11, ZnStreamTokenizer::sDiscardWhite(*in));
    EXPECT_EQ("\vx", rest(*in));
    ZnHandle<ZnByteArrayInputStream> feed = streamOf("\t\fx");
    EXPECT_EQ(12, ZnStreamTokenizer::sDiscardWhite(*feed));
}

TEST(ZnStreamTokenizerTest, DiscardWhiteReturnsHighBytesAsUnsigned)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \xE9");
    EXPECT_EQ(0xE9, ZnStreamTokenizer::sDiscardWhite(*in));
}

TEST(ZnStreamTokenizerTest, DiscardWhiteAtEndReturnsMinusOne)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \r\n\t ");
    EXPECT_EQ(-1, ZnStreamTokenizer::sDiscardWhite(*in));
    EXPECT_EQ(0u, in->available());
    ZnHandle<ZnByteArrayInputStream> empty = streamOf("");
    EXPECT_EQ(-1, ZnStreamTokenizer::sDiscardWhite(*empty));
}

TEST(ZnStreamTokenizerTest, DiscardWhiteMemberForm)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  ab");
    ZnStreamTokenizer tokenizer(*in);
    EXPECT_EQ('a', tokenizer.discardWhite());
    EXPECT_EQ("ab", rest(*in));
}

// ---- sDiscardLine ----

TEST(ZnStreamTokenizerTest, DiscardLineReadsThroughLineFeed)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("Via: x\r\nTo: y\n");
    ZnStreamTokenizer::sDiscardLine(*in);
    EXPECT_EQ("To: y\n", rest(*in));
}

TEST(ZnStreamTokenizerTest, DiscardLineStopsAfterByteFF)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(std::string("ab\xFF"
                                                               "cd\nef"));
    ZnStreamTokenizer::sDiscardLine(*in);
    EXPECT_EQ("cd\nef", rest(*in));
}

TEST(ZnStreamTokenizerTest, DiscardLineStopsAtEndOfStream)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("no line end");
    ZnStreamTokenizer::sDiscardLine(*in);
    EXPECT_EQ(0u, in->available());
    ZnStreamTokenizer::sDiscardLine(*in);
    EXPECT_EQ(-1, in->read());
}

TEST(ZnStreamTokenizerTest, DiscardLineWorksWithoutMarks)
{
    UnmarkedStream in("first\nsecond");
    ZnStreamTokenizer::sDiscardLine(*in);
    EXPECT_EQ("second", rest(*in));
}

TEST(ZnStreamTokenizerTest, DiscardLineMemberForm)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("a\nb");
    ZnStreamTokenizer tokenizer(*in);
    tokenizer.discardLine();
    EXPECT_EQ("b", rest(*in));
}

// ---- sLookAhead ----

TEST(ZnStreamTokenizerTest, LookAheadAtEndOfStreamReturnsZero)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("");
    EXPECT_EQ(0u, ZnStreamTokenizer::sLookAhead(*in, ";"));
}

TEST(ZnStreamTokenizerTest, LookAheadAfterOnlyWhiteSpaceReturnsZeroAndConsumesIt)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  \r\n\t ");
    EXPECT_EQ(0u, ZnStreamTokenizer::sLookAhead(*in, ";"));
    EXPECT_EQ(0u, in->available());
}

TEST(ZnStreamTokenizerTest, LookAheadCountsToDelimiterAndConsumesOnlyWhiteSpace)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \t abc;def");
    EXPECT_EQ(3u, ZnStreamTokenizer::sLookAhead(*in, ";,"));
    EXPECT_EQ("abc;def", rest(*in));
}

TEST(ZnStreamTokenizerTest, LookAheadStopsAtAnyDelimiterOfTheSet)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("ab,cd;e");
    EXPECT_EQ(2u, ZnStreamTokenizer::sLookAhead(*in, ";,"));
}

TEST(ZnStreamTokenizerTest, LookAheadCountsWhiteSpaceInsideTheToken)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("a b\tc;");
    EXPECT_EQ(5u, ZnStreamTokenizer::sLookAhead(*in, ";"));
}

TEST(ZnStreamTokenizerTest, LookAheadCountsToEndWithoutDelimiter)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc");
    EXPECT_EQ(3u, ZnStreamTokenizer::sLookAhead(*in, ";"));
    EXPECT_EQ("abc", rest(*in));
}

TEST(ZnStreamTokenizerTest, LookAheadEmptyOrNullDelimitersNeverMatch)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("ab;c d");
    EXPECT_EQ(6u, ZnStreamTokenizer::sLookAhead(*in, ""));
    EXPECT_EQ(6u, ZnStreamTokenizer::sLookAhead(*in, nullptr));
}

TEST(ZnStreamTokenizerTest, LookAheadDelimiterAbove127NeverMatches)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("ab\xE9"
                                                   "cd");
    EXPECT_EQ(5u, ZnStreamTokenizer::sLookAhead(*in, "\xE9"));
}

TEST(ZnStreamTokenizerTest, LookAheadMemberForm)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  abcd:e");
    ZnStreamTokenizer tokenizer(*in);
    EXPECT_EQ(4u, tokenizer.lookAhead(":"));
    EXPECT_EQ("abcd:e", rest(*in));
}

// ---- sGetToken into a buffer ----

TEST(ZnStreamTokenizerTest, GetTokenReadsTokenAndLeavesDelimiter)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  abc;def");
    std::vector<char> buffer = filled(10);
    EXPECT_TRUE(ZnStreamTokenizer::sGetToken(*in, ";", buffer.data(), 10));
    EXPECT_STREQ("abc", buffer.data());
    EXPECT_EQ(";def", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetTokenExactlyFillingTheBufferHasNoTerminator)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc;x");
    std::vector<char> buffer = filled(3);
    EXPECT_TRUE(ZnStreamTokenizer::sGetToken(*in, ";", buffer.data(), 3));
    EXPECT_EQ("abcZ", std::string(buffer.data(), 4));
    EXPECT_EQ(";x", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetTokenSmallerBufferAnswersFalseAndLeavesTheRest)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" abcdef;x");
    std::vector<char> buffer = filled(4);
    EXPECT_FALSE(ZnStreamTokenizer::sGetToken(*in, ";", buffer.data(), 4));
    EXPECT_EQ("abcdZ", std::string(buffer.data(), 5));
    EXPECT_EQ("ef;x", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetTokenEmptyTokenWritesTerminator)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  ;x");
    std::vector<char> buffer = filled(4);
    EXPECT_TRUE(ZnStreamTokenizer::sGetToken(*in, ";", buffer.data(), 4));
    EXPECT_EQ('\0', buffer[0]);
    EXPECT_EQ(";x", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetTokenAtEndOfStreamGivesEmptyToken)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("   ");
    std::vector<char> buffer = filled(4);
    EXPECT_TRUE(ZnStreamTokenizer::sGetToken(*in, ";", buffer.data(), 4));
    EXPECT_EQ('\0', buffer[0]);
}

TEST(ZnStreamTokenizerTest, GetTokenLastTokenWithoutDelimiterIsRead)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("tail");
    std::vector<char> buffer = filled(8);
    EXPECT_TRUE(ZnStreamTokenizer::sGetToken(*in, ";", buffer.data(), 8));
    EXPECT_STREQ("tail", buffer.data());
    EXPECT_EQ(-1, in->read());
}

TEST(ZnStreamTokenizerTest, GetTokenNullBufferOfSizeZeroWritesNothing)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" abc;");
    EXPECT_FALSE(ZnStreamTokenizer::sGetToken(*in, ";", nullptr, 0));
    EXPECT_EQ("abc;", rest(*in));
    ZnHandle<ZnByteArrayInputStream> empty = streamOf(";");
    EXPECT_TRUE(ZnStreamTokenizer::sGetToken(*empty, ";", nullptr, 0));
    EXPECT_EQ(";", rest(*empty));
}

TEST(ZnStreamTokenizerTest, GetTokenMemberForm)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("INVITE sip:bob@example.com SIP/2.0");
    ZnStreamTokenizer tokenizer(*in);
    char buffer[16];
    EXPECT_TRUE(tokenizer.getToken(" ", buffer, sizeof buffer));
    EXPECT_STREQ("INVITE", buffer);
    EXPECT_FALSE(tokenizer.getToken(" ", buffer, 4));
    EXPECT_EQ(0, memcmp(buffer, "sip:", 4));
    EXPECT_EQ("bob@example.com SIP/2.0", rest(*in));
}

// ---- sGetToken into a string ----

TEST(ZnStreamTokenizerTest, GetTokenStringForm)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("\r\n Call-ID: a84b4c76e66710");
    ZnString token = ZnStreamTokenizer::sGetToken(*in, ":");
    EXPECT_EQ(token, "Call-ID");
    EXPECT_EQ(7u, token.length());
    EXPECT_EQ(": a84b4c76e66710", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetTokenStringFormAtEndIsEmptyNotNil)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \t");
    ZnString token = ZnStreamTokenizer::sGetToken(*in, ";");
    EXPECT_FALSE(token.isNil());
    EXPECT_TRUE(token.empty());
}

TEST(ZnStreamTokenizerTest, GetTokenStringMemberForm)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("branch=z9hG4bK776asdhds;rport");
    ZnStreamTokenizer tokenizer(*in);
    EXPECT_EQ(tokenizer.getToken("="), "branch");
    EXPECT_EQ('=', in->read());
    EXPECT_EQ(tokenizer.getToken(";"), "z9hG4bK776asdhds");
    EXPECT_EQ(";rport", rest(*in));
}

// ---- sPeekToken ----

TEST(ZnStreamTokenizerTest, PeekTokenCopiesTokenAndConsumesNothing)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \t abc;def");
    std::vector<char> buffer = filled(10);
    EXPECT_TRUE(ZnStreamTokenizer::sPeekToken(*in, ";", buffer.data(), 10));
    EXPECT_STREQ("abc", buffer.data());
    EXPECT_EQ(" \t abc;def", rest(*in));
}

TEST(ZnStreamTokenizerTest, PeekTokenLastTokenWithoutDelimiterAnswersFalse)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc");
    std::vector<char> buffer = filled(10);
    EXPECT_FALSE(ZnStreamTokenizer::sPeekToken(*in, ";", buffer.data(), 10));
    EXPECT_EQ("abcZ", std::string(buffer.data(), 4));
    EXPECT_EQ("abc", rest(*in));
}

TEST(ZnStreamTokenizerTest, PeekTokenFullBufferAnswersFalseWithoutTerminator)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc;");
    std::vector<char> buffer = filled(3);
    EXPECT_FALSE(ZnStreamTokenizer::sPeekToken(*in, ";", buffer.data(), 3));
    EXPECT_EQ("abcZ", std::string(buffer.data(), 4));
    std::vector<char> small = filled(2);
    EXPECT_FALSE(ZnStreamTokenizer::sPeekToken(*in, ";", small.data(), 2));
    EXPECT_EQ("abZ", std::string(small.data(), 3));
    EXPECT_EQ("abc;", rest(*in));
}

TEST(ZnStreamTokenizerTest, PeekTokenSizeZeroAlwaysAnswersFalse)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(";");
    char untouched = 'Z';
    EXPECT_FALSE(ZnStreamTokenizer::sPeekToken(*in, ";", &untouched, 0));
    EXPECT_EQ('Z', untouched);
    EXPECT_FALSE(ZnStreamTokenizer::sPeekToken(*in, ";", nullptr, 0));
    EXPECT_EQ(";", rest(*in));
}

TEST(ZnStreamTokenizerTest, PeekTokenEmptyTokenAnswersTrue)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  ;x");
    std::vector<char> buffer = filled(4);
    EXPECT_TRUE(ZnStreamTokenizer::sPeekToken(*in, ";", buffer.data(), 4));
    EXPECT_EQ('\0', buffer[0]);
    EXPECT_EQ("  ;x", rest(*in));
}

TEST(ZnStreamTokenizerTest, PeekTokenByteFFEndsTheTokenAsEndOfStream)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(std::string("ab\xFF"
                                                               "cd;"));
    std::vector<char> buffer = filled(10);
    EXPECT_FALSE(ZnStreamTokenizer::sPeekToken(*in, ";", buffer.data(), 10));
    EXPECT_EQ("abZ", std::string(buffer.data(), 3));
    EXPECT_EQ(std::string("ab\xFF"
                          "cd;"),
              rest(*in));
}

TEST(ZnStreamTokenizerTest, PeekTokenAtEndOfStreamAnswersFalse)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  ");
    std::vector<char> buffer = filled(4);
    EXPECT_FALSE(ZnStreamTokenizer::sPeekToken(*in, ";", buffer.data(), 4));
    EXPECT_EQ('Z', buffer[0]);
    EXPECT_EQ("  ", rest(*in));
}

TEST(ZnStreamTokenizerTest, PeekTokenMemberForm)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" SIP/2.0 200 OK");
    ZnStreamTokenizer tokenizer(*in);
    char buffer[16];
    EXPECT_TRUE(tokenizer.peekToken(" ", buffer, sizeof buffer));
    EXPECT_STREQ("SIP/2.0", buffer);
    EXPECT_EQ(" SIP/2.0 200 OK", rest(*in));
}

// ---- sGetLine into a buffer ----

TEST(ZnStreamTokenizerTest, GetLineCrLf)
{
    ZnTest::LogCapture cap(kLoggerName, Tavoris::DEBUG_LOG_LEVEL);
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc\r\ndef");
    std::vector<char> buffer = filled(10);
    EXPECT_TRUE(ZnStreamTokenizer::sGetLine(*in, buffer.data(), 10));
    EXPECT_STREQ("abc", buffer.data());
    EXPECT_EQ("def", rest(*in));
    EXPECT_TRUE(cap.events().empty());
}

TEST(ZnStreamTokenizerTest, GetLineLineFeedAlone)
{
    ZnTest::LogCapture cap(kLoggerName, Tavoris::DEBUG_LOG_LEVEL);
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc\ndef");
    std::vector<char> buffer = filled(10);
    EXPECT_TRUE(ZnStreamTokenizer::sGetLine(*in, buffer.data(), 10));
    EXPECT_STREQ("abc", buffer.data());
    EXPECT_EQ("def", rest(*in));
    EXPECT_TRUE(cap.events().empty());
}

TEST(ZnStreamTokenizerTest, GetLineLoneCrLogsAtDebugAndLosesTheNextCharacter)
{
    ZnTest::LogCapture cap(kLoggerName, Tavoris::DEBUG_LOG_LEVEL);
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc\rxyz");
    std::vector<char> buffer = filled(10);
    EXPECT_TRUE(ZnStreamTokenizer::sGetLine(*in, buffer.data(), 10));
    EXPECT_STREQ("abc", buffer.data());
    EXPECT_EQ("yz", rest(*in));
    const std::vector<ZnTest::CapturedEvent> events = cap.events();
    ASSERT_EQ(1u, events.size());
    expectMissingNewlineEvent(events[0], 166);
}

TEST(ZnStreamTokenizerTest, GetLineLoneCrAtEndOfStreamLogs)
{
    ZnTest::LogCapture cap(kLoggerName, Tavoris::DEBUG_LOG_LEVEL);
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc\r");
    char buffer[8];
    EXPECT_TRUE(ZnStreamTokenizer::sGetLine(*in, buffer, sizeof buffer));
    EXPECT_STREQ("abc", buffer);
    ASSERT_EQ(1u, cap.events().size());
    expectMissingNewlineEvent(cap.events()[0], 166);
}

TEST(ZnStreamTokenizerTest, GetLineLoneCrIsNotLoggedAboveDebug)
{
    ZnTest::LogCapture cap(kLoggerName, Tavoris::INFO_LOG_LEVEL);
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc\rxyz");
    char buffer[8];
    EXPECT_TRUE(ZnStreamTokenizer::sGetLine(*in, buffer, sizeof buffer));
    EXPECT_EQ("yz", rest(*in));
    EXPECT_TRUE(cap.events().empty());
}

TEST(ZnStreamTokenizerTest, GetLineSkipsWhiteSpaceAndEmptyLinesBefore)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("\r\n\r\n  \tabc def\r\nnext");
    char buffer[16];
    EXPECT_TRUE(ZnStreamTokenizer::sGetLine(*in, buffer, sizeof buffer));
    EXPECT_STREQ("abc def", buffer);
    EXPECT_EQ("next", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetLineLongerThanTheBufferAnswersFalseAndLeavesTheRest)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abcdef\r\nx");
    std::vector<char> buffer = filled(3);
    EXPECT_FALSE(ZnStreamTokenizer::sGetLine(*in, buffer.data(), 3));
    EXPECT_EQ("abcZ", std::string(buffer.data(), 4));
    EXPECT_EQ("def\r\nx", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetLineExactlyFillingTheBufferHasNoTerminator)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc\r\nx");
    std::vector<char> buffer = filled(3);
    EXPECT_TRUE(ZnStreamTokenizer::sGetLine(*in, buffer.data(), 3));
    EXPECT_EQ("abcZ", std::string(buffer.data(), 4));
    EXPECT_EQ("x", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetLineAtEndOfStreamGivesEmptyLine)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("\r\n");
    std::vector<char> buffer = filled(4);
    EXPECT_TRUE(ZnStreamTokenizer::sGetLine(*in, buffer.data(), 4));
    EXPECT_EQ('\0', buffer[0]);
}

TEST(ZnStreamTokenizerTest, GetLineLastLineWithoutLineEnd)
{
    ZnTest::LogCapture cap(kLoggerName, Tavoris::DEBUG_LOG_LEVEL);
    ZnHandle<ZnByteArrayInputStream> in = streamOf("Content-Length: 0");
    char buffer[32];
    EXPECT_TRUE(ZnStreamTokenizer::sGetLine(*in, buffer, sizeof buffer));
    EXPECT_STREQ("Content-Length: 0", buffer);
    EXPECT_TRUE(cap.events().empty());
}

TEST(ZnStreamTokenizerTest, GetLineNullBufferOfSizeZero)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc\r\n");
    EXPECT_FALSE(ZnStreamTokenizer::sGetLine(*in, nullptr, 0));
    EXPECT_EQ("abc\r\n", rest(*in));
    ZnHandle<ZnByteArrayInputStream> empty = streamOf("");
    EXPECT_TRUE(ZnStreamTokenizer::sGetLine(*empty, nullptr, 0));
}

TEST(ZnStreamTokenizerTest, GetLineMemberForm)
{
    ZnTest::LogCapture cap(kLoggerName, Tavoris::DEBUG_LOG_LEVEL);
    ZnHandle<ZnByteArrayInputStream> in = streamOf("SIP/2.0 180 Ringing\r\nTo: a\rTo: b\n");
    ZnStreamTokenizer tokenizer(*in);
    char buffer[32];
    EXPECT_TRUE(tokenizer.getLine(buffer, sizeof buffer));
    EXPECT_STREQ("SIP/2.0 180 Ringing", buffer);
    EXPECT_TRUE(tokenizer.getLine(buffer, sizeof buffer));
    EXPECT_STREQ("To: a", buffer);
    EXPECT_EQ("o: b\n", rest(*in));
    ASSERT_EQ(1u, cap.events().size());
    expectMissingNewlineEvent(cap.events()[0], 166);
}

// ---- sGetLine into a string ----

TEST(ZnStreamTokenizerTest, GetLineStringCrLf)
{
    ZnTest::LogCapture cap(kLoggerName, Tavoris::DEBUG_LOG_LEVEL);
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc\r\ndef");
    EXPECT_EQ(ZnStreamTokenizer::sGetLine(*in), "abc");
    EXPECT_EQ("def", rest(*in));
    EXPECT_TRUE(cap.events().empty());
}

TEST(ZnStreamTokenizerTest, GetLineStringLineFeedAlone)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc\ndef");
    EXPECT_EQ(ZnStreamTokenizer::sGetLine(*in), "abc");
    EXPECT_EQ("def", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetLineStringLoneCrLogsFromItsOwnLine)
{
    ZnTest::LogCapture cap(kLoggerName, Tavoris::DEBUG_LOG_LEVEL);
    ZnHandle<ZnByteArrayInputStream> in = streamOf("abc\rx");
    EXPECT_EQ(ZnStreamTokenizer::sGetLine(*in), "abc");
    EXPECT_EQ(-1, in->read());
    const std::vector<ZnTest::CapturedEvent> events = cap.events();
    ASSERT_EQ(1u, events.size());
    expectMissingNewlineEvent(events[0], 182);
}

TEST(ZnStreamTokenizerTest, GetLineStringAtEndIsEmptyNotNil)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \r\n");
    ZnString line = ZnStreamTokenizer::sGetLine(*in);
    EXPECT_FALSE(line.isNil());
    EXPECT_TRUE(line.empty());
}

TEST(ZnStreamTokenizerTest, GetLineStringOfAnyLength)
{
    const std::string text(5000, 'v');
    ZnHandle<ZnByteArrayInputStream> in = streamOf(text + "\r\nrest");
    ZnString line = ZnStreamTokenizer::sGetLine(*in);
    EXPECT_EQ(5000u, line.length());
    EXPECT_EQ(line, text.c_str());
    EXPECT_EQ("rest", rest(*in));
}

// ---- sGetQuote ----

TEST(ZnStreamTokenizerTest, GetQuoteKeepsQuotesAndBackSlashes)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \"a\\\"b\" <sip:x>");
    ZnString quote = ZnStreamTokenizer::sGetQuote(*in);
    EXPECT_EQ(6u, quote.length());
    EXPECT_EQ(quote, "\"a\\\"b\"");
    EXPECT_EQ(" <sip:x>", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetQuoteEscapedBackSlashBeforeClosingQuote)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("\"a\\\\\"b");
    EXPECT_EQ(ZnStreamTokenizer::sGetQuote(*in), "\"a\\\\\"");
    EXPECT_EQ("b", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetQuoteEmptyQuote)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("\"\"x");
    EXPECT_EQ(ZnStreamTokenizer::sGetQuote(*in), "\"\"");
    EXPECT_EQ("x", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetQuoteWithoutOpeningQuoteThrows)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  abc\"");
    EXPECT_EQ(kQuoteText, thrownText([&] { ZnStreamTokenizer::sGetQuote(*in); }));
}

TEST(ZnStreamTokenizerTest, GetQuoteUnterminatedThrowsAndPutsNothingBack)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("\"abc");
    EXPECT_EQ(kQuoteText, thrownText([&] { ZnStreamTokenizer::sGetQuote(*in); }));
    EXPECT_EQ(-1, in->read());
}

TEST(ZnStreamTokenizerTest, GetQuoteBackSlashAtEndThrows)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("\"ab\\");
    EXPECT_EQ(kQuoteText, thrownText([&] { ZnStreamTokenizer::sGetQuote(*in); }));
}

TEST(ZnStreamTokenizerTest, GetQuoteAtEndOfStreamThrows)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("   ");
    EXPECT_EQ(kQuoteText, thrownText([&] { ZnStreamTokenizer::sGetQuote(*in); }));
}

TEST(ZnStreamTokenizerTest, GetQuoteMemberForm)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("\"Bob\" <sip:bob@biloxi.com>");
    ZnStreamTokenizer tokenizer(*in);
    EXPECT_EQ(tokenizer.getQuote(), "\"Bob\"");
    EXPECT_EQ(" <sip:bob@biloxi.com>", rest(*in));
}

// ---- sGetUnsigned ----

TEST(ZnStreamTokenizerTest, GetUnsignedReadsDigitsAndLeavesTheNextCharacter)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("12a");
    EXPECT_EQ(12u, ZnStreamTokenizer::sGetUnsigned(*in));
    EXPECT_EQ("a", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetUnsignedWithoutDigitThrows)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("a");
    EXPECT_EQ(kUnsignedText, thrownText([&] { ZnStreamTokenizer::sGetUnsigned(*in); }));
    EXPECT_EQ("a", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetUnsignedSignIsNotADigit)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("-5");
    EXPECT_EQ(kUnsignedText, thrownText([&] { ZnStreamTokenizer::sGetUnsigned(*in); }));
    ZnHandle<ZnByteArrayInputStream> plus = streamOf("+5");
    EXPECT_EQ(kUnsignedText, thrownText([&] { ZnStreamTokenizer::sGetUnsigned(*plus); }));
}

TEST(ZnStreamTokenizerTest, GetUnsignedAtEndOfStreamThrows)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \r\n");
    EXPECT_EQ(kUnsignedText, thrownText([&] { ZnStreamTokenizer::sGetUnsigned(*in); }));
}

TEST(ZnStreamTokenizerTest, GetUnsignedSkipsWhiteSpaceAndReadsToEnd)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \t 314159");
    EXPECT_EQ(314159u, ZnStreamTokenizer::sGetUnsigned(*in));
    EXPECT_EQ(-1, in->read());
}

TEST(ZnStreamTokenizerTest, GetUnsignedWrapsSilentlyIn32Bits)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("4294967295 4294967296 4294967297");
    EXPECT_EQ(4294967295u, ZnStreamTokenizer::sGetUnsigned(*in));
    EXPECT_EQ(0u, ZnStreamTokenizer::sGetUnsigned(*in));
    EXPECT_EQ(1u, ZnStreamTokenizer::sGetUnsigned(*in));
}

TEST(ZnStreamTokenizerTest, GetUnsignedMemberForm)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("CSeq: 314159 INVITE");
    ZnStreamTokenizer tokenizer(*in);
    EXPECT_EQ(tokenizer.getToken(":"), "CSeq");
    EXPECT_EQ(':', in->read());
    EXPECT_EQ(314159u, tokenizer.getUnsigned());
    EXPECT_EQ(" INVITE", rest(*in));
}

// ---- sGetDouble ----

TEST(ZnStreamTokenizerTest, GetDoubleReadsFractionAndLeavesTheNextCharacter)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("1.25x");
    EXPECT_DOUBLE_EQ(1.25, ZnStreamTokenizer::sGetDouble(*in));
    EXPECT_EQ("x", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetDoubleSecondPointThrows)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("1.2.3");
    EXPECT_EQ(kDoubleText, thrownText([&] { ZnStreamTokenizer::sGetDouble(*in); }));
}

TEST(ZnStreamTokenizerTest, GetDoubleWithoutIntegerPart)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(".5");
    EXPECT_DOUBLE_EQ(0.5, ZnStreamTokenizer::sGetDouble(*in));
}

TEST(ZnStreamTokenizerTest, GetDoubleLonePointThrows)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" .;");
    EXPECT_EQ(kDoubleText, thrownText([&] { ZnStreamTokenizer::sGetDouble(*in); }));
}

TEST(ZnStreamTokenizerTest, GetDoubleWithoutDigitThrowsAndPutsTheCharacterBack)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("  x");
    EXPECT_EQ(kDoubleText, thrownText([&] { ZnStreamTokenizer::sGetDouble(*in); }));
    EXPECT_EQ("x", rest(*in));
    ZnHandle<ZnByteArrayInputStream> empty = streamOf("");
    EXPECT_EQ(kDoubleText, thrownText([&] { ZnStreamTokenizer::sGetDouble(*empty); }));
}

TEST(ZnStreamTokenizerTest, GetDoubleHasNoSignAndNoExponent)
{
    ZnHandle<ZnByteArrayInputStream> minus = streamOf("-1.5");
    EXPECT_EQ(kDoubleText, thrownText([&] { ZnStreamTokenizer::sGetDouble(*minus); }));
    ZnHandle<ZnByteArrayInputStream> in = streamOf("2e5");
    EXPECT_DOUBLE_EQ(2.0, ZnStreamTokenizer::sGetDouble(*in));
    EXPECT_EQ("e5", rest(*in));
}

TEST(ZnStreamTokenizerTest, GetDoubleIntegerAndTrailingPoint)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("12 3.");
    EXPECT_DOUBLE_EQ(12.0, ZnStreamTokenizer::sGetDouble(*in));
    EXPECT_DOUBLE_EQ(3.0, ZnStreamTokenizer::sGetDouble(*in));
    EXPECT_EQ(-1, in->read());
}

TEST(ZnStreamTokenizerTest, GetDoubleDivisorWrapsSilentlyIn32Bits)
{
    // The tenth fraction digit is divided by 10^10 taken modulo 2^32.
    ZnHandle<ZnByteArrayInputStream> in = streamOf("0.0000000001");
    EXPECT_DOUBLE_EQ(1.0 / 1410065408.0, ZnStreamTokenizer::sGetDouble(*in));
}

TEST(ZnStreamTokenizerTest, GetDoubleDivisorReachingZeroGivesInfinityOrNaN)
{
    const std::string zeros(31, '0');
    ZnHandle<ZnByteArrayInputStream> one = streamOf("0." + zeros + "1");
    EXPECT_TRUE(std::isinf(ZnStreamTokenizer::sGetDouble(*one)));
    ZnHandle<ZnByteArrayInputStream> zero = streamOf("0." + zeros + "0");
    EXPECT_TRUE(std::isnan(ZnStreamTokenizer::sGetDouble(*zero)));
}

TEST(ZnStreamTokenizerTest, GetDoubleMemberForm)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" 0.7;q");
    ZnStreamTokenizer tokenizer(*in);
    EXPECT_DOUBLE_EQ(0.7, tokenizer.getDouble());
    EXPECT_EQ(";q", rest(*in));
}

// ---- sIsEmptyLine ----

TEST(ZnStreamTokenizerTest, IsEmptyLineTrueAndConsumesNothing)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \t\r\nabc");
    EXPECT_TRUE(ZnStreamTokenizer::sIsEmptyLine(*in));
    EXPECT_EQ(' ', in->read());
    EXPECT_EQ("\t\r\nabc", rest(*in));
}

TEST(ZnStreamTokenizerTest, IsEmptyLineFalseBeforeOtherCharacters)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \t x\n");
    EXPECT_FALSE(ZnStreamTokenizer::sIsEmptyLine(*in));
    EXPECT_EQ(" \t x\n", rest(*in));
}

TEST(ZnStreamTokenizerTest, IsEmptyLineFalseAtEndOfStream)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \r ");
    EXPECT_FALSE(ZnStreamTokenizer::sIsEmptyLine(*in));
    EXPECT_EQ(" \r ", rest(*in));
    ZnHandle<ZnByteArrayInputStream> empty = streamOf("");
    EXPECT_FALSE(ZnStreamTokenizer::sIsEmptyLine(*empty));
}

TEST(ZnStreamTokenizerTest, IsEmptyLineLineFeedAtOnce)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("\nINVITE");
    EXPECT_TRUE(ZnStreamTokenizer::sIsEmptyLine(*in));
}

TEST(ZnStreamTokenizerTest, IsEmptyLineVerticalTabIsNotWhite)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf(" \v\n");
    EXPECT_FALSE(ZnStreamTokenizer::sIsEmptyLine(*in));
}

// ---- streams without mark support ----

TEST(ZnStreamTokenizerTest, StreamWithoutMarksFailsEveryLookAhead)
{
    const std::vector<std::pair<const char*, std::function<void(ZnInputStream&)>>> operations = {
        {"sDiscardWhite", [](ZnInputStream& in) { ZnStreamTokenizer::sDiscardWhite(in); }},
        {"sLookAhead", [](ZnInputStream& in) { ZnStreamTokenizer::sLookAhead(in, ";"); }},
        {"sGetToken",
         [](ZnInputStream& in)
         {
             char buffer[8];
             ZnStreamTokenizer::sGetToken(in, ";", buffer, sizeof buffer);
         }},
        {"sGetToken string", [](ZnInputStream& in) { ZnStreamTokenizer::sGetToken(in, ";"); }},
        {"sPeekToken",
         [](ZnInputStream& in)
         {
             char buffer[8];
             ZnStreamTokenizer::sPeekToken(in, ";", buffer, sizeof buffer);
         }},
        {"sGetLine",
         [](ZnInputStream& in)
         {
             char buffer[8];
             ZnStreamTokenizer::sGetLine(in, buffer, sizeof buffer);
         }},
        {"sGetLine string", [](ZnInputStream& in) { ZnStreamTokenizer::sGetLine(in); }},
        {"sGetQuote", [](ZnInputStream& in) { ZnStreamTokenizer::sGetQuote(in); }},
        {"sGetUnsigned", [](ZnInputStream& in) { ZnStreamTokenizer::sGetUnsigned(in); }},
        {"sGetDouble", [](ZnInputStream& in) { ZnStreamTokenizer::sGetDouble(in); }},
        {"sIsEmptyLine", [](ZnInputStream& in) { ZnStreamTokenizer::sIsEmptyLine(in); }},
    };
    for (const auto& operation : operations)
    {
        UnmarkedStream in("\"12\";\r\n");
        EXPECT_EQ(kMarkText, thrownText([&] { operation.second(*in); })) << operation.first;
        // Nothing was read before the refusal.
        EXPECT_EQ("\"12\";\r\n", rest(*in)) << operation.first;
    }
}

TEST(ZnStreamTokenizerTest, StreamWithoutMarksFailsEveryMemberLookAhead)
{
    const std::vector<std::pair<const char*, std::function<void(ZnStreamTokenizer&)>>> operations =
        {
            {"discardWhite", [](ZnStreamTokenizer& t) { t.discardWhite(); }},
            {"lookAhead", [](ZnStreamTokenizer& t) { t.lookAhead(";"); }},
            {"getToken",
             [](ZnStreamTokenizer& t)
             {
                 char buffer[8];
                 t.getToken(";", buffer, sizeof buffer);
             }},
            {"getToken string", [](ZnStreamTokenizer& t) { t.getToken(";"); }},
            {"peekToken",
             [](ZnStreamTokenizer& t)
             {
                 char buffer[8];
                 t.peekToken(";", buffer, sizeof buffer);
             }},
            {"getLine",
             [](ZnStreamTokenizer& t)
             {
                 char buffer[8];
                 t.getLine(buffer, sizeof buffer);
             }},
            {"getQuote", [](ZnStreamTokenizer& t) { t.getQuote(); }},
            {"getUnsigned", [](ZnStreamTokenizer& t) { t.getUnsigned(); }},
            {"getDouble", [](ZnStreamTokenizer& t) { t.getDouble(); }},
        };
    for (const auto& operation : operations)
    {
        UnmarkedStream in("12;\r\n");
        ZnStreamTokenizer tokenizer(*in);
        EXPECT_EQ(kMarkText, thrownText([&] { operation.second(tokenizer); })) << operation.first;
    }
}

TEST(ZnStreamTokenizerTest, PipeFileStreamIsRefused)
{
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    const char text[] = "  abc\r\n";
    ASSERT_EQ(static_cast<ssize_t>(sizeof text - 1), write(fds[1], text, sizeof text - 1));
    close(fds[1]);
    {
        ZnHandle<ZnFileInputStream> in(new ZnFileInputStream(fds[0]));
        ASSERT_FALSE(in->markSupported());
        EXPECT_EQ(kMarkText, thrownText([&] { ZnStreamTokenizer::sGetLine(*in); }));
        // sDiscardLine needs no mark.
        ZnStreamTokenizer::sDiscardLine(*in);
        EXPECT_EQ(-1, in->read());
    }
    close(fds[0]);
}

// ---- the tokenizer object ----

TEST(ZnStreamTokenizerTest, TokenizerHoldsACountedReferenceOnItsStream)
{
    ZnHandle<ZnByteArrayInputStream> in = streamOf("a b c");
    EXPECT_EQ(1u, in->getRefCount());
    {
        ZnStreamTokenizer tokenizer(*in);
        EXPECT_EQ(2u, in->getRefCount());
        EXPECT_EQ(static_cast<ZnInputStream*>(in), tokenizer.getInputStream().operator->());
        ZnStreamTokenizer copy(tokenizer);
        EXPECT_EQ(3u, in->getRefCount());
    }
    EXPECT_EQ(1u, in->getRefCount());
}

TEST(ZnStreamTokenizerTest, CopyAndAssignmentShareTheStream)
{
    ZnHandle<ZnByteArrayInputStream> first = streamOf("one two");
    ZnHandle<ZnByteArrayInputStream> second = streamOf("three four");
    ZnStreamTokenizer a(*first);
    ZnStreamTokenizer b(*second);
    ZnStreamTokenizer copy(a);
    EXPECT_EQ(copy.getToken(" "), "one");
    EXPECT_EQ(a.getToken(" "), "two");
    b = a;
    EXPECT_EQ(4u, first->getRefCount());
    EXPECT_EQ(1u, second->getRefCount());
    EXPECT_EQ(-1, b.discardWhite());
}

TEST(ZnStreamTokenizerTest, WorksOverABufferedStream)
{
    const std::string head = "INVITE sip:bob@biloxi.com SIP/2.0\r\n"
                             "CSeq: 314159 INVITE\r\n"
                             "\r\n";
    ZnHandle<ZnInputStream> source(streamOf(head));
    ZnHandle<ZnBufferedInputStream> in(new ZnBufferedInputStream(source, 0));
    ZnStreamTokenizer tokenizer(*in);
    EXPECT_EQ(tokenizer.getToken(" "), "INVITE");
    EXPECT_EQ(tokenizer.getToken(" "), "sip:bob@biloxi.com");
    EXPECT_EQ(ZnStreamTokenizer::sGetLine(*in), "SIP/2.0");
    EXPECT_EQ(tokenizer.getToken(":"), "CSeq");
    EXPECT_EQ(':', in->read());
    EXPECT_EQ(314159u, tokenizer.getUnsigned());
    EXPECT_EQ(ZnStreamTokenizer::sGetLine(*in), "INVITE");
    EXPECT_TRUE(ZnStreamTokenizer::sIsEmptyLine(*in));
}

TEST(ZnStreamTokenizerTest, ReadsASipRequestHead)
{
    const std::string head = "INVITE sip:bob@biloxi.com SIP/2.0\r\n"
                             "Via: SIP/2.0/UDP pc33.atlanta.com;branch=z9hG4bK776asdhds\r\n"
                             "From: \"Alice \\\"A\\\"\" <sip:alice@atlanta.com>;tag=1928301774\r\n"
                             "Content-Length: 142\r\n"
                             "\r\n"
                             "v=0";
    ZnHandle<ZnByteArrayInputStream> in = streamOf(head);
    ZnStreamTokenizer tokenizer(*in);
    char method[16];
    ASSERT_TRUE(tokenizer.getToken(" ", method, sizeof method));
    EXPECT_STREQ("INVITE", method);
    EXPECT_EQ(tokenizer.getToken(" "), "sip:bob@biloxi.com");
    EXPECT_EQ(ZnStreamTokenizer::sGetLine(*in), "SIP/2.0");
    EXPECT_FALSE(ZnStreamTokenizer::sIsEmptyLine(*in));
    EXPECT_EQ(ZnStreamTokenizer::sGetLine(*in),
              "Via: SIP/2.0/UDP pc33.atlanta.com;branch=z9hG4bK776asdhds");
    EXPECT_EQ(tokenizer.getToken(":"), "From");
    EXPECT_EQ(':', in->read());
    EXPECT_EQ(tokenizer.getQuote(), "\"Alice \\\"A\\\"\"");
    EXPECT_EQ(ZnStreamTokenizer::sGetLine(*in), "<sip:alice@atlanta.com>;tag=1928301774");
    EXPECT_EQ(tokenizer.getToken(":"), "Content-Length");
    EXPECT_EQ(':', in->read());
    EXPECT_EQ(142u, tokenizer.getUnsigned());
    tokenizer.discardLine();
    EXPECT_TRUE(ZnStreamTokenizer::sIsEmptyLine(*in));
    tokenizer.discardLine();
    EXPECT_EQ("v=0", rest(*in));
}

} // namespace
