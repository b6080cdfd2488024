#include "ZnUtil/ZnParameters.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnByteArrayOutputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnString.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/CapturingAppender.h"
#include "support/RunTogether.h"

namespace
{

using Items = std::vector<std::pair<std::string, std::string>>;

/// Live bytes and blocks of one account, read at construction, compared with a later reading.
class AccountDelta
{
public:
    explicit AccountDelta(const char* account)
        : m_account(account), m_start(Tavoris::MemAccount::sRead(account))
    {
    }

    int64_t bytes() const
    {
        return Tavoris::MemAccount::sRead(m_account).liveBytes - m_start.liveBytes;
    }
    int64_t blocks() const
    {
        return Tavoris::MemAccount::sRead(m_account).liveBlocks - m_start.liveBlocks;
    }
    uint64_t allocations() const
    {
        return Tavoris::MemAccount::sRead(m_account).totalBlocks - m_start.totalBlocks;
    }

private:
    const char* m_account;
    Tavoris::MemAccount::Reading m_start;
};

/// A byte-array stream over \p text (embedded NULs kept), which can tell what is left unread.
class TextStream
{
public:
    explicit TextStream(const std::string& text)
        : m_bytes(ZnByteArray::sCreate(static_cast<unsigned int>(text.size()), text.data())),
          m_in(m_bytes)
    {
    }

    ZnInputStream& in() { return m_in; }

    /// Reads and returns everything not read yet.
    std::string rest()
    {
        std::string left;
        for (int c = m_in.read(); c >= 0; c = m_in.read())
        {
            left.push_back(static_cast<char>(c));
        }
        return left;
    }

private:
    ZnHandle<ZnByteArray> m_bytes;
    ZnByteArrayInputStream m_in;
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

/// The message of what \p action throws; "(nothing thrown)" when it returns.
template <class Action>
std::string thrownMessage(Action&& action)
{
    ZnHandle<ZnException> e = catchThrown(action);
    if (e.isNil())
    {
        return "(nothing thrown)";
    }
    const char* text = e->getExceptionMessage();
    return text != nullptr ? text : "";
}

/// The items from the head, with a missing value as "".
Items items(const ZnParameters& parameters)
{
    Items found;
    for (ZnParameters::ParIterator it(&parameters); it; it.next())
    {
        found.emplace_back(it.key(), it.value() != nullptr ? it.value() : "");
    }
    return found;
}

std::string str(const ZnString& s)
{
    return s.c_str();
}

/// A list parsed from \p text.
struct Parsed
{
    explicit Parsed(const char* text) { list.parse(text); }
    ZnParameters list;
};

// The edge cases of the parser.

TEST(ZnParametersTest, ParseTwoParametersPrintsThemNewestFirst)
{
    ZnParameters p;
    p.parse("a=1;b=2");
    EXPECT_EQ(p.size(), 2u);
    EXPECT_EQ(str(p.getString()), "b=2;a=1");
    ZnParameters copy(p);
    EXPECT_EQ(str(copy.getString()), "a=1;b=2");
}

TEST(ZnParametersTest, ParseKeyWithoutValueStoresEmptyValue)
{
    ZnParameters p;
    p.parse("a;b=2");
    EXPECT_EQ(items(p), (Items{{"b", "2"}, {"a", ""}}));
    EXPECT_TRUE(p.isPresent("a"));
    EXPECT_TRUE(p.getValue("a").isNil());
    EXPECT_EQ(str(p.getString()), "b=2;a");
}

TEST(ZnParametersTest, ParseKeyWithoutValueHasNullValueText)
{
    ZnParameters p;
    p.parse("lr");
    ZnParameters::ParIterator it(&p);
    ASSERT_TRUE(static_cast<bool>(it));
    EXPECT_STREQ(it.key(), "lr");
    EXPECT_EQ(it.value(), nullptr);
}

TEST(ZnParametersTest, ParseSecondEqualsSignBelongsToValue)
{
    ZnParameters p;
    p.parse("a=b=c");
    EXPECT_EQ(items(p), (Items{{"a", "b=c"}}));
}

TEST(ZnParametersTest, ParseQuotedValueKeepsQuotesAndSeparator)
{
    ZnParameters p;
    p.parse("a=\"x;y\"");
    EXPECT_EQ(p.size(), 1u);
    EXPECT_EQ(str(p.getValue("a")), "\"x;y\"");
}

TEST(ZnParametersTest, ParseStopsAtCommaAndLeavesItInStream)
{
    TextStream text("a=1,b=2");
    ZnParameters p;
    p.parse(text.in());
    EXPECT_EQ(items(p), (Items{{"a", "1"}}));
    EXPECT_EQ(text.rest(), ",b=2");
}

TEST(ZnParametersTest, ParseOfLeadingCommaAddsNothingAndLeavesIt)
{
    TextStream text(",x");
    ZnParameters p;
    p.parse(text.in());
    EXPECT_EQ(p.size(), 0u);
    EXPECT_TRUE(p.empty());
    EXPECT_EQ(text.rest(), ",x");
}

TEST(ZnParametersTest, ParseOfCommaAfterCarriageReturnAddsNothing)
{
    TextStream text("\r,x");
    ZnParameters p;
    p.parse(text.in());
    EXPECT_EQ(p.size(), 0u);
    EXPECT_EQ(text.rest(), ",x");
}

TEST(ZnParametersTest, ParseOfCommaAfterTrailingSeparatorAddsEmptyKey)
{
    TextStream text("a=1;,b");
    ZnParameters p;
    p.parse(text.in());
    EXPECT_EQ(items(p), (Items{{"", ""}, {"a", "1"}}));
    EXPECT_EQ(text.rest(), ",b");
}

TEST(ZnParametersTest, ParseEmptyValueAtEndThrowsNoKeyValuePair)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse("a="); }), "Parameter doesn't have Key/Value pair\n");
    EXPECT_EQ(p.size(), 0u);
}

TEST(ZnParametersTest, ParseEmptyValueMidListIsAccepted)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse("a=;b"); }), "(nothing thrown)");
    EXPECT_EQ(items(p), (Items{{"b", ""}, {"a", ""}}));
    EXPECT_EQ(str(p.getString()), "b;a");
}

TEST(ZnParametersTest, ParseEmptyKeyAtEndThrowsNoKeyValuePair)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse("=b"); }), "Parameter doesn't have Key/Value pair\n");
}

TEST(ZnParametersTest, ParseEmptyKeyMidListIsAccepted)
{
    ZnParameters p;
    p.parse("=b;c");
    EXPECT_EQ(items(p), (Items{{"c", ""}, {"", "b"}}));
}

TEST(ZnParametersTest, ParseLeadingSeparatorThrowsInvalidParameter)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse(";a"); }), "Invalid Parameter\n");
    EXPECT_EQ(p.size(), 0u);
}

TEST(ZnParametersTest, ParseDoubleSeparatorThrowsAndKeepsEarlierItems)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse("a;;b"); }), "Invalid Parameter\n");
    EXPECT_EQ(items(p), (Items{{"a", ""}}));
}

TEST(ZnParametersTest, ParseTrailingSeparatorAddsEmptyKeyItem)
{
    ZnParameters p;
    p.parse("a=b;");
    EXPECT_EQ(p.size(), 2u);
    EXPECT_EQ(items(p), (Items{{"", ""}, {"a", "b"}}));
    EXPECT_EQ(str(p.getString()), ";a=b");
}

TEST(ZnParametersTest, ParseEmptyTextAddsOneEmptyItem)
{
    ZnParameters p;
    p.parse("");
    EXPECT_EQ(items(p), (Items{{"", ""}}));
    ZnParameters q;
    q.parse(static_cast<const char*>(nullptr));
    EXPECT_EQ(items(q), (Items{{"", ""}}));
    EXPECT_EQ(str(q.getString()), "");
}

TEST(ZnParametersTest, ParseSpaceThrowsInvalidCharacter)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse("a b"); }), "Invalid Character ( ) in SIP parameter\n");
}

TEST(ZnParametersTest, ParseTabThrowsInvalidCharacter)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse("a=1\t"); }),
              "Invalid Character (\t) in SIP parameter\n");
}

TEST(ZnParametersTest, ParseByteAbove127ThrowsInvalidCharacter)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse("a=\xC3\xA9"); }),
              "Invalid Character (\xC3) in SIP parameter\n");
}

TEST(ZnParametersTest, ParseNulByteOutsideQuotesThrowsInvalidCharacter)
{
    TextStream text(std::string("a=1\0b", 5));
    ZnParameters p;
    // The message is a C text, so it ends at the NUL it reports.
    EXPECT_EQ(thrownMessage([&] { p.parse(text.in()); }), "Invalid Character (");
}

TEST(ZnParametersTest, ParseErrorKeepsItemsAddedBefore)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse("a=1;b=2;c d"); }),
              "Invalid Character ( ) in SIP parameter\n");
    EXPECT_EQ(items(p), (Items{{"b", "2"}, {"a", "1"}}));
}

TEST(ZnParametersTest, ParseAcceptsEveryLegalMark)
{
    ZnParameters p;
    p.parse("k=[]/:&+$-_.!~*')(%`Az09");
    EXPECT_EQ(str(p.getValue("k")), "[]/:&+$-_.!~*')(%`Az09");
}

TEST(ZnParametersTest, ParseRejectsMarksOutsideTheLegalSet)
{
    const char* const rejected[] = {"<", ">", "@", "?",  "#",    "{",
                                    "}", "|", "^", "\\", "\x7F", "\v"};
    for (const char* mark : rejected)
    {
        ZnParameters p;
        const std::string text = std::string("k=v") + mark;
        EXPECT_EQ(thrownMessage([&] { p.parse(text.c_str()); }),
                  std::string("Invalid Character (") + mark + ") in SIP parameter\n")
            << "mark " << static_cast<int>(static_cast<unsigned char>(mark[0]));
    }
}

TEST(ZnParametersTest, FoldedLineContinuesTheValue)
{
    ZnParameters p;
    p.parse("a=1\r\n b=2");
    EXPECT_EQ(items(p), (Items{{"a", "1b=2"}}));
}

TEST(ZnParametersTest, FoldedLineWithTabContinuesTheList)
{
    ZnParameters p;
    p.parse("a=1;\n\tb=2");
    EXPECT_EQ(items(p), (Items{{"b", "2"}, {"a", "1"}}));
}

TEST(ZnParametersTest, UnfoldedLineEndStopsAfterTheLineFeed)
{
    TextStream text("a=1\r\nX");
    ZnParameters p;
    p.parse(text.in());
    EXPECT_EQ(items(p), (Items{{"a", "1"}}));
    EXPECT_EQ(text.rest(), "X");
}

TEST(ZnParametersTest, LineFeedAtEndOfStreamEndsTheList)
{
    TextStream text("a=1\n");
    ZnParameters p;
    p.parse(text.in());
    EXPECT_EQ(items(p), (Items{{"a", "1"}}));
    EXPECT_EQ(text.rest(), "");
}

TEST(ZnParametersTest, LineFeedFirstAddsOneEmptyItem)
{
    TextStream text("\nX");
    ZnParameters p;
    p.parse(text.in());
    EXPECT_EQ(items(p), (Items{{"", ""}}));
    EXPECT_EQ(text.rest(), "X");
}

TEST(ZnParametersTest, CarriageReturnIsIgnored)
{
    ZnParameters p;
    p.parse("a\r=1\r;b\r");
    EXPECT_EQ(items(p), (Items{{"b", ""}, {"a", "1"}}));
}

TEST(ZnParametersTest, QuoteMismatchAtEndOfStreamThrows)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse("a=\"xy"); }), "Parameters: Double quote mismatch");
}

TEST(ZnParametersTest, QuoteMismatchAfterBackslashThrows)
{
    ZnParameters p;
    EXPECT_EQ(thrownMessage([&] { p.parse("a=\"x\\"); }), "Parameters: Double quote mismatch");
    ZnParameters q;
    EXPECT_EQ(thrownMessage([&] { q.parse("a=\"x\\\""); }), "Parameters: Double quote mismatch");
}

TEST(ZnParametersTest, EscapedQuoteStaysInsideQuotes)
{
    ZnParameters p;
    p.parse("a=\"x\\\"y;z\";b=1");
    EXPECT_EQ(items(p), (Items{{"b", "1"}, {"a", "\"x\\\"y;z\""}}));
}

TEST(ZnParametersTest, QuotedTextKeepsWhiteSpaceCommaAndLineEnds)
{
    TextStream text("a=\"x, y\r\n\tz\",rest");
    ZnParameters p;
    p.parse(text.in());
    EXPECT_EQ(items(p), (Items{{"a", "\"x, y\r\n\tz\""}}));
    EXPECT_EQ(text.rest(), ",rest");
}

TEST(ZnParametersTest, QuotedKeyKeepsItsEqualsSign)
{
    ZnParameters p;
    p.parse("\"k=1\"=v");
    EXPECT_EQ(items(p), (Items{{"\"k=1\"", "v"}}));
}

TEST(ZnParametersTest, ParseKeepsDuplicateKeysNewestFirst)
{
    ZnParameters p;
    p.parse("a=1;A=2");
    // The parser never looks for an earlier key: both stay, and the newer one is found first.
    EXPECT_EQ(items(p), (Items{{"A", "2"}, {"a", "1"}}));
    EXPECT_EQ(str(p.getValue("a")), "2");
}

TEST(ZnParametersTest, ParseAppendsToTheList)
{
    ZnParameters p;
    p.setValue("x", "0");
    p.parse("a=1");
    p.parse("b=2");
    EXPECT_EQ(str(p.getString()), "b=2;a=1;x=0");
}

TEST(ZnParametersTest, CustomSeparatorSplitsOnEitherCharacter)
{
    ZnParameters p;
    p.setSeparator(";&");
    p.parse("a=1&b=2;c=3");
    EXPECT_EQ(items(p), (Items{{"c", "3"}, {"b", "2"}, {"a", "1"}}));
    EXPECT_EQ(str(p.getString()), "c=3;&b=2;&a=1");
}

TEST(ZnParametersTest, CustomSeparatorTakesAmpersandOutOfValues)
{
    ZnParameters p;
    p.setSeparator(";&");
    p.parse("a=x&y");
    EXPECT_EQ(str(p.getValue("a")), "x");
    EXPECT_TRUE(p.isPresent("y"));

    ZnParameters plain;
    plain.parse("a=x&y");
    EXPECT_EQ(str(plain.getValue("a")), "x&y");
}

TEST(ZnParametersTest, CommaOrEqualsInSeparatorTextSeparatesNothing)
{
    TextStream text("a=1,b");
    ZnParameters p;
    p.setSeparator(",");
    p.parse(text.in());
    EXPECT_EQ(items(p), (Items{{"a", "1"}}));
    EXPECT_EQ(text.rest(), ",b");

    ZnParameters q;
    q.setSeparator("=;");
    q.parse("a=1;b");
    EXPECT_EQ(items(q), (Items{{"b", ""}, {"a", "1"}}));
}

TEST(ZnParametersTest, ConstructorWithSeparatorsParses)
{
    ZnParameters p("a=1&b=2", "&");
    EXPECT_EQ(items(p), (Items{{"b", "2"}, {"a", "1"}}));
    EXPECT_EQ(str(p.getString()), "b=2&a=1");
}

TEST(ZnParametersTest, EmptySeparatorTextMakesSemicolonInvalid)
{
    ZnParameters p;
    p.setSeparator("");
    EXPECT_EQ(thrownMessage([&] { p.parse("a=1;b"); }), "Invalid Character (;) in SIP parameter\n");
    ZnParameters q;
    q.setSeparator(nullptr);
    q.setValue("a", "1");
    q.setValue("b", "2");
    EXPECT_EQ(str(q.getString()), "b=2a=1");
}

// Look-up.

TEST(ZnParametersTest, LookupIgnoresAsciiCaseAndKeepsStoredKey)
{
    ZnParameters p;
    p.setValue("a", "1");
    EXPECT_TRUE(p.isPresent("A"));
    p.setValue("A", "2");
    EXPECT_EQ(items(p), (Items{{"a", "2"}}));
    EXPECT_EQ(str(p.getValue("a")), "2");
}

TEST(ZnParametersTest, LookupFoldsOnlyAsciiLetters)
{
    ZnParameters p;
    p.setValue("\xE9t\xE9", "1");
    EXPECT_TRUE(p.isPresent("\xE9T\xE9"));
    EXPECT_FALSE(p.isPresent("\xC9T\xC9"));
    p.setValue("[", "2");
    // '[' and '{' differ by 32 as 'A' and 'a' do; only letters fold.
    EXPECT_FALSE(p.isPresent("{"));
}

TEST(ZnParametersTest, LookupTrimsTheCallersKey)
{
    ZnParameters p;
    p.parse("tag=1928301774");
    EXPECT_TRUE(p.isPresent(" \tTAG\r\n"));
    EXPECT_EQ(str(p.getValue(" tag ")), "1928301774");
    p.removeValue("  Tag ");
    EXPECT_TRUE(p.empty());
}

TEST(ZnParametersTest, LookupDoesNotMatchPrefixes)
{
    ZnParameters p;
    p.setValue("branch", "1");
    EXPECT_FALSE(p.isPresent("bran"));
    EXPECT_FALSE(p.isPresent("branches"));
}

TEST(ZnParametersTest, SetValueTrimsKeyAndValue)
{
    ZnParameters p;
    p.setValue("  k ", " v ");
    EXPECT_EQ(items(p), (Items{{"k", "v"}}));
}

TEST(ZnParametersTest, SetValueAddsNewKeysAtTheHead)
{
    ZnParameters p;
    p.setValue("a", "1");
    p.setValue("b", "2");
    p.setValue("a", "3");
    EXPECT_EQ(p.size(), 2u);
    EXPECT_EQ(str(p.getString()), "b=2;a=3");
}

TEST(ZnParametersTest, SetValueWithNullValueOrEmptyKeyDoesNothing)
{
    ZnParameters p;
    p.setValue("a", nullptr);
    p.setValue("", "1");
    p.setValue(nullptr, "1");
    EXPECT_TRUE(p.empty());
}

TEST(ZnParametersTest, SetValueWithEmptyValueStoresKeyAlone)
{
    ZnParameters p;
    p.setValue("rport", "");
    p.setValue("a", "1");
    p.setValue("a", "  ");
    EXPECT_EQ(str(p.getString()), "a;rport");
    ZnParameters::ParIterator it(&p);
    EXPECT_EQ(it.value(), nullptr);
    EXPECT_TRUE(p.getValue("a").isNil());
    EXPECT_TRUE(p.isPresent("a"));
}

TEST(ZnParametersTest, SetValueWithTheItemsOwnValueText)
{
    ZnParameters p;
    p.setValue("a", "long enough value");
    ZnParameters::ParIterator it(&p);
    p.setValue("a", it.value());
    EXPECT_EQ(str(p.getValue("a")), "long enough value");
}

TEST(ZnParametersTest, GetValueOfMissingKeyIsNil)
{
    ZnParameters p;
    p.setValue("a", "1");
    EXPECT_TRUE(p.getValue("k").isNil());
    EXPECT_TRUE(p.getValue(nullptr).isNil());
}

TEST(ZnParametersTest, GetValueReturnsAnIndependentCopy)
{
    ZnParameters p;
    p.setValue("a", "1");
    ZnString value = p.getValue("a");
    value.append("x");
    EXPECT_EQ(str(p.getValue("a")), "1");
}

TEST(ZnParametersTest, IsPresentIsFalseForNullOrEmptyKey)
{
    ZnParameters p;
    p.parse("a=b;");
    EXPECT_FALSE(p.isPresent(nullptr));
    EXPECT_FALSE(p.isPresent(""));
}

TEST(ZnParametersTest, RemoveValueRemovesFirstMatchOnly)
{
    ZnParameters p;
    p.parse("a=1;b=2;a=3;c=4");
    p.removeValue("A");
    EXPECT_EQ(items(p), (Items{{"c", "4"}, {"b", "2"}, {"a", "1"}}));
    EXPECT_EQ(p.size(), 3u);
    p.removeValue("c");
    p.removeValue("a");
    EXPECT_EQ(items(p), (Items{{"b", "2"}}));
    p.removeValue("b");
    EXPECT_TRUE(p.empty());
    EXPECT_EQ(str(p.getString()), "");
}

TEST(ZnParametersTest, RemoveValueOfMissingNullOrEmptyKeyDoesNothing)
{
    ZnParameters p;
    p.parse("a=1;b");
    p.removeValue("x");
    p.removeValue(nullptr);
    p.removeValue("");
    EXPECT_EQ(p.size(), 2u);
}

TEST(ZnParametersTest, ClearRemovesEverything)
{
    ZnParameters p;
    p.parse("a=1;b=2;c");
    p.clear();
    EXPECT_TRUE(p.empty());
    EXPECT_FALSE(static_cast<bool>(ZnParameters::ParIterator(&p)));
    p.parse("d=4");
    EXPECT_EQ(str(p.getString()), "d=4");
}

// Printing.

TEST(ZnParametersTest, EmptyListPrintsEmptyString)
{
    ZnParameters p;
    ZnString text = p.getString();
    EXPECT_FALSE(text.isNil());
    EXPECT_EQ(text.length(), 0u);
    EXPECT_EQ(text.buffer()->capacity(), 80u);
}

TEST(ZnParametersTest, LongListPrintsEveryItem)
{
    ZnParameters p;
    std::string expected;
    for (int i = 0; i < 500; ++i)
    {
        const std::string key = "k" + std::to_string(i);
        const std::string value = "v" + std::to_string(i * 7);
        p.setValue(key.c_str(), value.c_str());
        expected = key + "=" + value + (expected.empty() ? "" : ";") + expected;
    }
    EXPECT_EQ(str(p.getString()), expected);
}

TEST(ZnParametersTest, SerializeWritesTheString)
{
    ZnParameters p;
    p.parse("branch=z9hG4bK776asdhds;rport");
    ZnByteArrayOutputStream out;
    p.serialize(out);
    ZnHandle<ZnByteArray> bytes = out.toByteArray();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes->getBytes()), bytes->length()),
              "rport;branch=z9hG4bK776asdhds");
}

TEST(ZnParametersTest, SerializeOfEmptyListWritesNothing)
{
    ZnParameters p;
    ZnByteArrayOutputStream out;
    p.serialize(out);
    EXPECT_EQ(out.size(), 0u);
}

// Iteration.

TEST(ZnParametersTest, IteratorWalksNewestFirstAndStaysAtTheEnd)
{
    ZnParameters p;
    p.parse("a=1;b");
    ZnParameters::ParIterator it(&p);
    ASSERT_TRUE(static_cast<bool>(it));
    EXPECT_STREQ(it.key(), "b");
    EXPECT_EQ(it.value(), nullptr);
    EXPECT_TRUE(static_cast<bool>(it.next()));
    EXPECT_STREQ(it.key(), "a");
    EXPECT_STREQ(it.value(), "1");
    EXPECT_FALSE(static_cast<bool>(it.next()));
    EXPECT_EQ(it.key(), nullptr);
    EXPECT_EQ(it.value(), nullptr);
    EXPECT_FALSE(static_cast<bool>(it.next()));
    EXPECT_EQ(it.key(), nullptr);
}

TEST(ZnParametersTest, IteratorOverNullListIsAtTheEnd)
{
    ZnParameters::ParIterator it(nullptr);
    EXPECT_FALSE(static_cast<bool>(it));
    EXPECT_EQ(it.key(), nullptr);
}

TEST(ZnParametersTest, LockIsRecursiveForTheWalker)
{
    ZnParameters p;
    p.parse("a=1;b=2");
    p.lock();
    // The look-ups take the same mutex again on this thread.
    Items walked;
    for (ZnParameters::ParIterator it(&p); it; it.next())
    {
        walked.emplace_back(it.key(), str(p.getValue(it.key())));
    }
    p.unlock();
    EXPECT_EQ(walked, (Items{{"b", "2"}, {"a", "1"}}));
}

// Copies.

TEST(ZnParametersTest, CopyReversesOrderAndKeepsCountAndSeparator)
{
    ZnParameters p;
    p.setSeparator(";&");
    p.parse("a=1;b;c=3");
    ZnParameters copy(p);
    EXPECT_EQ(copy.size(), 3u);
    EXPECT_EQ(str(copy.getString()), "a=1;&b;&c=3");
    ZnParameters copyOfCopy(copy);
    EXPECT_EQ(str(copyOfCopy.getString()), str(p.getString()));
}

TEST(ZnParametersTest, CopyIsIndependentOfItsSource)
{
    ZnParameters p;
    p.parse("a=1");
    ZnParameters copy(p);
    copy.setValue("a", "2");
    copy.setSeparator("&");
    copy.setValue("b", "3");
    EXPECT_EQ(str(p.getString()), "a=1");
    EXPECT_EQ(str(copy.getString()), "b=3&a=2");
}

TEST(ZnParametersTest, CopyKeepsItemsWithoutValue)
{
    ZnParameters p;
    p.parse("lr;x=1");
    ZnParameters copy(p);
    EXPECT_EQ(items(copy), (Items{{"lr", ""}, {"x", "1"}}));
    ZnParameters::ParIterator it(&copy);
    EXPECT_EQ(it.value(), nullptr);
}

TEST(ZnParametersTest, CloneIsAReversedCopyWithCountZero)
{
    ZnParameters p;
    p.parse("a=1;b=2");
    ZnObject* object = p.clone();
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->getRefCount(), 0u);
    ZnHandle<ZnParameters> copy(dynamic_cast<ZnParameters*>(object));
    ASSERT_FALSE(copy.isNil());
    EXPECT_EQ(str(copy->getString()), "a=1;b=2");
}

TEST(ZnParametersTest, CopyIsTracedAtTraceLevel)
{
    ZnParameters p;
    p.parse("a=1");
    ZnTest::LogCapture capture("corvane.zn.ZnParameters", Tavoris::TRACE_LOG_LEVEL);
    ZnParameters copy(p);
    const std::vector<ZnTest::CapturedEvent> events = capture.find("ZnParameters copy ctor");
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].message, "ENTER: ZnParameters copy ctor");
    EXPECT_EQ(events[0].level, Tavoris::TRACE_LOG_LEVEL);
    EXPECT_EQ(events[0].logger, "corvane.zn.ZnParameters");
    EXPECT_EQ(events[1].message, "EXIT: ZnParameters copy ctor");
}

TEST(ZnParametersTest, CopyLogsNothingAboveTraceLevel)
{
    ZnParameters p;
    p.parse("a=1");
    ZnTest::LogCapture capture("corvane.zn.ZnParameters", Tavoris::DEBUG_LOG_LEVEL);
    ZnParameters copy(p);
    ZnParameters other;
    other.parse("a=\"x\";b;c=d");
    other.setValue("e", "f");
    (void)other.getString();
    EXPECT_TRUE(capture.events().empty());
}

// Memory.

TEST(ZnParametersTest, ListAndItemsHaveMemoryAccounts)
{
    AccountDelta lists("ZnParameters");
    AccountDelta itemBlocks("ZnParameters::Item");
    {
        ZnHandle<ZnParameters> p(new ZnParameters);
        EXPECT_EQ(lists.blocks(), 1);
        EXPECT_EQ(lists.bytes(), static_cast<int64_t>(sizeof(ZnParameters)));
        p->parse("a=1;b;c=3");
        EXPECT_EQ(itemBlocks.blocks(), 3);
        EXPECT_EQ(itemBlocks.bytes(), static_cast<int64_t>(3 * sizeof(ZnParameters::Item)));
        p->removeValue("b");
        EXPECT_EQ(itemBlocks.blocks(), 2);
        ZnHandle<ZnObject> copy(p->clone());
        EXPECT_EQ(lists.blocks(), 2);
        EXPECT_EQ(itemBlocks.blocks(), 4);
    }
    EXPECT_EQ(lists.blocks(), 0);
    EXPECT_EQ(itemBlocks.blocks(), 0);
    EXPECT_EQ(itemBlocks.bytes(), 0);
}

TEST(ZnParametersTest, ArrayFormsUseTheAccounts)
{
    AccountDelta lists("ZnParameters");
    ZnParameters* array = new ZnParameters[3];
    EXPECT_EQ(lists.blocks(), 1);
    array[1].setValue("a", "1");
    delete[] array;
    EXPECT_EQ(lists.blocks(), 0);
}

TEST(ZnParametersTest, ItemTextsAreFreedWithTheList)
{
    AccountDelta texts("ZnConstString");
    AccountDelta mutexes("ZnMutex");
    {
        ZnParameters p;
        p.parse("branch=z9hG4bK776asdhds;received=192.0.2.1;rport");
        p.setValue("ttl", "1");
        EXPECT_GT(texts.blocks(), 0);
        EXPECT_EQ(mutexes.blocks(), 1);
    }
    EXPECT_EQ(texts.blocks(), 0);
    EXPECT_EQ(mutexes.blocks(), 0);
}

TEST(ZnParametersTest, FailedConstructionLeavesNothingAllocated)
{
    AccountDelta itemBlocks("ZnParameters::Item");
    AccountDelta mutexes("ZnMutex");
    AccountDelta texts("ZnConstString");
    EXPECT_EQ(thrownMessage([] { ZnParameters p("a=1;;b", ";"); }), "Invalid Parameter\n");
    EXPECT_EQ(itemBlocks.blocks(), 0);
    EXPECT_EQ(mutexes.blocks(), 0);
    EXPECT_EQ(texts.blocks(), 0);
}

TEST(ZnParametersTest, FailedHeapConstructionLeavesNothingAllocated)
{
    AccountDelta lists("ZnParameters");
    AccountDelta itemBlocks("ZnParameters::Item");
    EXPECT_EQ(thrownMessage([] { delete new ZnParameters("a=1;b=\"x", ";"); }),
              "Parameters: Double quote mismatch");
    EXPECT_EQ(lists.blocks(), 0);
    EXPECT_EQ(itemBlocks.blocks(), 0);
}

TEST(ZnParametersTest, TokensOf256BytesNeedNoHeap)
{
    AccountDelta heap("FastStringAccount");
    ZnParameters p;
    // 253 key bytes and a NUL, one value byte and a NUL: 256 bytes, which fit; one more key
    // byte would not.
    const std::string key(253, 'k');
    p.parse((key + "=v").c_str());
    EXPECT_EQ(heap.allocations(), 0u);
    EXPECT_EQ(p.getString().length(), 255u);
}

TEST(ZnParametersTest, TokensBeyond256BytesContinueOnTheHeap)
{
    AccountDelta heap("FastStringAccount");
    ZnParameters p;
    const std::string key(254, 'k');
    p.parse((key + "=v").c_str());
    EXPECT_GT(heap.allocations(), 0u);
    EXPECT_EQ(heap.blocks(), 0);
    EXPECT_EQ(str(p.getValue(key.c_str())), "v");
}

TEST(ZnParametersTest, LongTokensSurviveTheMoveToTheHeap)
{
    AccountDelta heap("FastStringAccount");
    ZnParameters p;
    std::string text;
    std::vector<std::string> values;
    for (int i = 0; i < 40; ++i)
    {
        values.push_back(
            std::string(static_cast<size_t>(10 + i * 13), static_cast<char>('a' + i % 26)));
        text += (i == 0 ? "" : ";") + std::string("key") + std::to_string(i) + "=" + values.back();
    }
    p.parse(text.c_str());
    ASSERT_EQ(p.size(), 40u);
    for (int i = 0; i < 40; ++i)
    {
        EXPECT_EQ(str(p.getValue(("key" + std::to_string(i)).c_str())),
                  values[static_cast<size_t>(i)]);
    }
    EXPECT_GT(heap.allocations(), 0u);
    EXPECT_EQ(heap.blocks(), 0);
}

TEST(ZnParametersTest, FailedParseFreesTheHeapBuffer)
{
    AccountDelta heap("FastStringAccount");
    ZnParameters p;
    const std::string text = "a=" + std::string(1000, 'x') + " ";
    EXPECT_EQ(thrownMessage([&] { p.parse(text.c_str()); }),
              "Invalid Character ( ) in SIP parameter\n");
    EXPECT_GT(heap.allocations(), 0u);
    EXPECT_EQ(heap.blocks(), 0);
}

// Round trips: one parse or one copy reverses the order, a second one restores it.

TEST(ZnParametersTest, RoundTripThroughTwoParsesRestoresText)
{
    const char* const texts[] = {
        "branch=z9hG4bK776asdhds;received=192.0.2.1;rport=5060;ttl=1",
        "tag=a6c85cf;x=\"quoted; text, with \\\" escapes\"",
        "lr;maddr=[2001:db8::1];transport=tls",
        "a=b=c;d;e=f",
        "single",
    };
    for (const char* text : texts)
    {
        Parsed once(text);
        const ZnString first = once.list.getString();
        Parsed twice(first);
        EXPECT_EQ(str(twice.list.getString()), text);
        EXPECT_EQ(twice.list.size(), once.list.size());
    }
}

TEST(ZnParametersTest, RoundTripThroughTwoCopiesRestoresOrder)
{
    Parsed original("branch=z9hG4bK776asdhds;received=192.0.2.1;rport=5060;ttl=1");
    ZnParameters once(original.list);
    ZnParameters twice(once);
    EXPECT_EQ(str(once.getString()), "branch=z9hG4bK776asdhds;received=192.0.2.1;rport=5060;ttl=1");
    EXPECT_EQ(str(twice.getString()), str(original.list.getString()));
    EXPECT_EQ(items(twice), items(original.list));
}

TEST(ZnParametersTest, RoundTripOfCopyAndParseGivesTheSameList)
{
    Parsed original("expires=3600;q=0.7;+sip.instance=\"<urn:uuid:f81d4fae-7dec-11d0-a765>\"");
    ZnParameters copy(original.list);
    // The copy prints in the parsed order, so parsing that print reverses it back.
    Parsed reparsed(copy.getString());
    EXPECT_EQ(items(reparsed.list), items(original.list));
}

// Header values as the SIP stack sees them.

TEST(ZnParametersTest, ViaParameters)
{
    ZnParameters p;
    p.parse("branch=z9hG4bK776asdhds;received=192.0.2.1;rport=5060;ttl=1");
    EXPECT_EQ(p.size(), 4u);
    EXPECT_EQ(str(p.getValue("branch")), "z9hG4bK776asdhds");
    EXPECT_EQ(str(p.getValue("received")), "192.0.2.1");
    EXPECT_EQ(str(p.getValue("RPORT")), "5060");
    EXPECT_EQ(str(p.getValue("ttl")), "1");
    EXPECT_EQ(str(p.getString()), "ttl=1;rport=5060;received=192.0.2.1;branch=z9hG4bK776asdhds");
}

TEST(ZnParametersTest, ViaOfRequestWithEmptyRport)
{
    ZnParameters p;
    p.parse("branch=z9hG4bKnashds8;rport");
    // A proxy fills rport in as the request passes.
    p.setValue("rport", "5060");
    p.setValue("received", "192.0.2.1");
    EXPECT_EQ(str(p.getString()), "received=192.0.2.1;rport=5060;branch=z9hG4bKnashds8");
}

TEST(ZnParametersTest, ViaParametersFoldedOverTwoLines)
{
    TextStream text("branch=z9hG4bK776asdhds;\r\n received=192.0.2.1\r\nMax-Forwards: 70");
    ZnParameters p;
    p.parse(text.in());
    EXPECT_EQ(items(p), (Items{{"received", "192.0.2.1"}, {"branch", "z9hG4bK776asdhds"}}));
    EXPECT_EQ(text.rest(), "Max-Forwards: 70");
}

TEST(ZnParametersTest, ContactParametersWithQuotedValue)
{
    ZnParameters p;
    p.parse("expires=3600;q=0.7;+sip.instance=\"<urn:uuid:00000000-0000-1000-8000-AABBCCDDEEFF>\"");
    EXPECT_EQ(str(p.getValue("+SIP.INSTANCE")),
              "\"<urn:uuid:00000000-0000-1000-8000-AABBCCDDEEFF>\"");
    EXPECT_EQ(str(p.getValue("q")), "0.7");
    EXPECT_EQ(str(p.getValue("expires")), "3600");
}

TEST(ZnParametersTest, FromAndToTags)
{
    ZnParameters from;
    from.parse("tag=1928301774");
    EXPECT_EQ(str(from.getValue("tag")), "1928301774");
    ZnParameters to;
    to.parse("tag=a6c85cf;x-name=\"Bob \\\"the builder\\\"\"");
    EXPECT_EQ(str(to.getValue("TAG")), "a6c85cf");
    EXPECT_EQ(str(to.getValue("x-name")), "\"Bob \\\"the builder\\\"\"");
}

TEST(ZnParametersTest, ContactParametersStopBeforeTheNextValue)
{
    // What follows "<sip:alice@pc33.example.com>;" in a Contact header with three values.
    TextStream text("expires=60;q=0.5, <sip:b@example.com>;expires=30,<sip:c@example.com>");
    ZnParameters first;
    first.parse(text.in());
    EXPECT_EQ(items(first), (Items{{"q", "0.5"}, {"expires", "60"}}));
    EXPECT_EQ(text.rest(), ", <sip:b@example.com>;expires=30,<sip:c@example.com>");
}

TEST(ZnParametersTest, HeaderParserLoopOverCommaSeparatedValues)
{
    TextStream text("a=1;b,c=3,d=\"x,y\";e\r\nNext: header");
    ZnInputStream& in = text.in();
    std::vector<std::string> printed;
    for (;;)
    {
        ZnParameters p;
        p.parse(in);
        printed.push_back(str(p.getString()));
        in.mark(1);
        if (in.read() != ',')
        {
            in.reset();
            break;
        }
    }
    EXPECT_EQ(printed, (std::vector<std::string>{"b;a=1", "c=3", "e;d=\"x,y\""}));
    EXPECT_EQ(text.rest(), "Next: header");
}

TEST(ZnParametersTest, QuotedValueWithCommaFollowedByNextValue)
{
    TextStream text("tag=9fxced76sl;reason=\"busy, try later\", <sip:next@example.com>");
    ZnParameters p;
    p.parse(text.in());
    EXPECT_EQ(str(p.getValue("reason")), "\"busy, try later\"");
    EXPECT_EQ(text.rest(), ", <sip:next@example.com>");
}

// Concurrency.

TEST(ZnParametersTest, ConcurrentSetValueLosesNoItem)
{
    ZnParameters p;
    const int kThreads = 8;
    const int kKeys = 200;
    ZnTest::runTogether(kThreads,
                        [&](int thread)
                        {
                            for (int i = 0; i < kKeys; ++i)
                            {
                                const std::string key =
                                    "t" + std::to_string(thread) + "k" + std::to_string(i);
                                p.setValue(key.c_str(), "1");
                                // Every thread also sets one shared key.
                                p.setValue("shared", key.c_str());
                                (void)p.getString();
                            }
                        });
    EXPECT_EQ(p.size(), static_cast<unsigned int>(kThreads * kKeys + 1));
    unsigned int walked = 0;
    for (ZnParameters::ParIterator it(&p); it; it.next())
    {
        ++walked;
    }
    EXPECT_EQ(walked, p.size());
}

TEST(ZnParametersTest, ConcurrentAddAndRemoveLeaveAnEmptyList)
{
    ZnParameters p;
    p.setValue("fixed", "1");
    const int kThreads = 4;
    const int kRounds = 20000;
    ZnTest::runTogether(kThreads,
                        [&](int thread)
                        {
                            const std::string key = "t" + std::to_string(thread);
                            for (int i = 0; i < kRounds; ++i)
                            {
                                p.setValue(key.c_str(), "v");
                                p.removeValue(key.c_str());
                            }
                        });
    // An add or a remove lost to a race would leave an item, or a count that is off.
    EXPECT_EQ(items(p), (Items{{"fixed", "1"}}));
    EXPECT_EQ(p.size(), 1u);
}

TEST(ZnParametersTest, ConcurrentRemoveAndCopyStayConsistent)
{
    ZnParameters p;
    const int kKeys = 400;
    for (int i = 0; i < kKeys; ++i)
    {
        p.setValue(("k" + std::to_string(i)).c_str(), "v");
    }
    ZnTest::runTogether(4,
                        [&](int thread)
                        {
                            if (thread < 2)
                            {
                                for (int i = thread; i < kKeys; i += 2)
                                {
                                    p.removeValue(("k" + std::to_string(i)).c_str());
                                }
                            }
                            else
                            {
                                for (int i = 0; i < 50; ++i)
                                {
                                    ZnParameters copy(p);
                                    unsigned int walked = 0;
                                    for (ZnParameters::ParIterator it(&copy); it; it.next())
                                    {
                                        ++walked;
                                    }
                                    EXPECT_EQ(walked, copy.size());
                                }
                            }
                        });
    EXPECT_TRUE(p.empty());
    EXPECT_FALSE(static_cast<bool>(ZnParameters::ParIterator(&p)));
}

} // namespace
