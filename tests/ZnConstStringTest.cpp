#include "ZnUtil/ZnConstString.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

namespace
{

const char* const kAccount = "ZnConstString";

/// Live bytes and blocks of the account, read at construction, compared with a later reading.
class AccountDelta
{
public:
    AccountDelta() : m_start(Tavoris::MemAccount::sRead(kAccount)) {}

    int64_t bytes() const
    {
        return Tavoris::MemAccount::sRead(kAccount).liveBytes - m_start.liveBytes;
    }
    int64_t blocks() const
    {
        return Tavoris::MemAccount::sRead(kAccount).liveBlocks - m_start.liveBlocks;
    }

private:
    Tavoris::MemAccount::Reading m_start;
};

/// \p p, hidden from the optimiser, so that a null receiver reaches the member function.
template <class T>
T* hidden(T* p)
{
    asm("" : "+r"(p));
    return p;
}

ZnConstString* nullString()
{
    return hidden(static_cast<ZnConstString*>(nullptr));
}

TEST(ZnConstStringTest, DefaultHasLengthZeroAndNullText)
{
    ZnConstString s;
    EXPECT_EQ(s.length(), 0u);
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(static_cast<const char*>(s), nullptr);
}

TEST(ZnConstStringTest, DefaultOwnsNothing)
{
    AccountDelta delta;
    {
        ZnConstString s;
        EXPECT_EQ(delta.bytes(), 0);
    }
    EXPECT_EQ(delta.bytes(), 0);
    EXPECT_EQ(delta.blocks(), 0);
}

TEST(ZnConstStringTest, FromTextMakesPrivateCopy)
{
    char text[] = "hello";
    ZnConstString s(text);
    text[0] = 'J';
    EXPECT_NE(static_cast<const char*>(s), text);
    EXPECT_STREQ(s, "hello");
    EXPECT_EQ(s.length(), 5u);
    EXPECT_FALSE(s.empty());
}

TEST(ZnConstStringTest, FromNullTextHasNullText)
{
    ZnConstString s(static_cast<const char*>(nullptr));
    EXPECT_EQ(static_cast<const char*>(s), nullptr);
    EXPECT_EQ(s.length(), 0u);
}

TEST(ZnConstStringTest, FromEmptyTextSharesStaticEmptyText)
{
    AccountDelta delta;
    ZnConstString a("");
    ZnConstString b("");
    ASSERT_NE(static_cast<const char*>(a), nullptr);
    EXPECT_EQ(static_cast<const char*>(a), static_cast<const char*>(b));
    EXPECT_STREQ(a, "");
    EXPECT_TRUE(a.empty());
    EXPECT_EQ(delta.blocks(), 0);
}

TEST(ZnConstStringTest, TextTakesLengthPlusOneOnAccountAndGivesItBack)
{
    AccountDelta delta;
    {
        ZnConstString s("abcdef");
        EXPECT_EQ(delta.bytes(), 7);
        EXPECT_EQ(delta.blocks(), 1);
    }
    EXPECT_EQ(delta.bytes(), 0);
    EXPECT_EQ(delta.blocks(), 0);
}

TEST(ZnConstStringTest, CountedCopyTakesFirstNBytes)
{
    ZnConstString s("abc", 2);
    EXPECT_STREQ(s, "ab");
    EXPECT_EQ(s.length(), 2u);
}

TEST(ZnConstStringTest, CountedCopyKeepsEmbeddedNul)
{
    const char bytes[] = {'a', '\0', 'b'};
    AccountDelta delta;
    {
        ZnConstString s(bytes, 3);
        EXPECT_EQ(s.length(), 3u);
        const char* text = s;
        EXPECT_EQ(text[0], 'a');
        EXPECT_EQ(text[1], '\0');
        EXPECT_EQ(text[2], 'b');
        EXPECT_EQ(text[3], '\0');
        EXPECT_EQ(delta.bytes(), 4);
    }
    EXPECT_EQ(delta.bytes(), 0);
}

TEST(ZnConstStringTest, CountedCopyReadsNothingPastN)
{
    // No terminator in the source: only the n bytes may be read.
    std::unique_ptr<char[]> bytes(new char[3]{'x', 'y', 'z'});
    ZnConstString s(bytes.get(), 3);
    EXPECT_STREQ(s, "xyz");
    EXPECT_EQ(s.length(), 3u);
}

TEST(ZnConstStringTest, CountedCopyOfNullTextIsNull)
{
    ZnConstString s(static_cast<const char*>(nullptr), 5);
    EXPECT_EQ(static_cast<const char*>(s), nullptr);
    EXPECT_EQ(s.length(), 0u);
}

TEST(ZnConstStringTest, CountedCopyOfZeroHasStaticEmptyTextAndFreesNothing)
{
    const ZnConstString reference("");
    AccountDelta delta;
    {
        ZnConstString s("", 0);
        EXPECT_EQ(static_cast<const char*>(s), static_cast<const char*>(reference));
        EXPECT_EQ(delta.blocks(), 0);
    }
    EXPECT_EQ(delta.bytes(), 0);
    EXPECT_EQ(delta.blocks(), 0);
    ZnConstString t("abc", 0);
    EXPECT_EQ(static_cast<const char*>(t), static_cast<const char*>(reference));
    EXPECT_TRUE(t.empty());
}

TEST(ZnConstStringTest, CopyConstructorMakesPrivateCopy)
{
    ZnConstString a("copy me");
    ZnConstString b(a);
    EXPECT_NE(static_cast<const char*>(a), static_cast<const char*>(b));
    EXPECT_STREQ(b, "copy me");
    EXPECT_EQ(b.length(), 7u);
}

TEST(ZnConstStringTest, CopyConstructorStopsAtEmbeddedNul)
{
    const char bytes[] = {'a', '\0', 'b'};
    ZnConstString a(bytes, 3);
    ZnConstString b(a);
    EXPECT_EQ(b.length(), 1u);
    EXPECT_STREQ(b, "a");
}

TEST(ZnConstStringTest, CopyOfDefaultHasNullText)
{
    ZnConstString a;
    ZnConstString b(a);
    EXPECT_EQ(static_cast<const char*>(b), nullptr);
}

TEST(ZnConstStringTest, AssignTextReplacesAndGivesBackOld)
{
    AccountDelta delta;
    {
        ZnConstString s("first text");
        EXPECT_EQ(delta.bytes(), 11);
        s = "2nd";
        EXPECT_STREQ(s, "2nd");
        EXPECT_EQ(s.length(), 3u);
        EXPECT_EQ(delta.bytes(), 4);
        EXPECT_EQ(delta.blocks(), 1);
    }
    EXPECT_EQ(delta.bytes(), 0);
}

TEST(ZnConstStringTest, AssignNullGivesNullText)
{
    AccountDelta delta;
    ZnConstString s("something");
    s = static_cast<const char*>(nullptr);
    EXPECT_EQ(static_cast<const char*>(s), nullptr);
    EXPECT_EQ(s.length(), 0u);
    EXPECT_EQ(delta.bytes(), 0);
}

TEST(ZnConstStringTest, AssignEmptyGivesStaticEmptyText)
{
    const ZnConstString reference("");
    AccountDelta delta;
    ZnConstString s("something");
    s = "";
    EXPECT_EQ(static_cast<const char*>(s), static_cast<const char*>(reference));
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(delta.bytes(), 0);
}

TEST(ZnConstStringTest, AssignConstStringCopies)
{
    ZnConstString a("source");
    ZnConstString b("target text");
    b = a;
    EXPECT_STREQ(b, "source");
    EXPECT_NE(static_cast<const char*>(a), static_cast<const char*>(b));
    EXPECT_EQ(b.length(), 6u);
}

TEST(ZnConstStringTest, SelfAssignmentKeepsText)
{
    AccountDelta delta;
    ZnConstString s("self");
    ZnConstString& same = s;
    s = same;
    EXPECT_STREQ(s, "self");
    EXPECT_EQ(delta.bytes(), 5);
}

TEST(ZnConstStringTest, AssignFromOwnCharactersStaysReadable)
{
    // The caller's error, but no read of freed memory.
    ZnConstString s("abcd");
    s = static_cast<const char*>(s) + 1;
    EXPECT_STREQ(s, "bcd");
    EXPECT_EQ(s.length(), 3u);
}

TEST(ZnConstStringTest, ToUpperFoldsAsciiInPlace)
{
    ZnConstString s("Mixed case 123 z!");
    const char* before = s;
    s.toUpper();
    EXPECT_STREQ(s, "MIXED CASE 123 Z!");
    EXPECT_EQ(static_cast<const char*>(s), before);
}

TEST(ZnConstStringTest, ToLowerFoldsAsciiInPlace)
{
    ZnConstString s("MiXeD A-Z @[");
    const char* before = s;
    s.toLower();
    EXPECT_STREQ(s, "mixed a-z @[");
    EXPECT_EQ(static_cast<const char*>(s), before);
}

TEST(ZnConstStringTest, ToUpperLeavesBytesAbove127)
{
    ZnConstString s("a\xe9\xff\x80z");
    s.toUpper();
    EXPECT_STREQ(s, "A\xe9\xff\x80Z");
}

TEST(ZnConstStringTest, ToLowerLeavesBytesAbove127)
{
    ZnConstString s("A\xc9\xdf\x80Z");
    s.toLower();
    EXPECT_STREQ(s, "a\xc9\xdf\x80z");
}

TEST(ZnConstStringTest, CaseFoldingCoversWholeLengthPastEmbeddedNul)
{
    const char bytes[] = {'a', '\0', 'b'};
    ZnConstString s(bytes, 3);
    s.toUpper();
    const char* text = s;
    EXPECT_EQ(text[0], 'A');
    EXPECT_EQ(text[1], '\0');
    EXPECT_EQ(text[2], 'B');
    s.toLower();
    EXPECT_EQ(text[0], 'a');
    EXPECT_EQ(text[2], 'b');
}

TEST(ZnConstStringTest, CaseFoldingOfEmptyAndDefaultDoesNothing)
{
    ZnConstString empty("");
    empty.toUpper();
    empty.toLower();
    EXPECT_STREQ(empty, "");
    ZnConstString none;
    none.toUpper();
    none.toLower();
    EXPECT_EQ(static_cast<const char*>(none), nullptr);
}

TEST(ZnConstStringTest, CaseFoldingOfNullReceiverDoesNothing)
{
    nullString()->toUpper();
    nullString()->toLower();
    SUCCEED();
}

TEST(ZnConstStringTest, IndexOfFindsFromStart)
{
    ZnConstString s("abcabc");
    EXPECT_EQ(s.indexOf("b", 0), 1);
    EXPECT_EQ(s.indexOf("abc", 0), 0);
    EXPECT_EQ(s.indexOf("ca", 0), 2);
}

TEST(ZnConstStringTest, IndexOfCountsFromTextStart)
{
    ZnConstString s("abcabc");
    EXPECT_EQ(s.indexOf("b", 2), 4);
    EXPECT_EQ(s.indexOf("c", 5), 5);
}

TEST(ZnConstStringTest, IndexOfMissingNeedleIsMinusOne)
{
    ZnConstString s("abcabc");
    EXPECT_EQ(s.indexOf("x", 0), -1);
    EXPECT_EQ(s.indexOf("a", 4), -1);
}

TEST(ZnConstStringTest, IndexOfFromAtOrPastLengthIsMinusOne)
{
    ZnConstString s("abc");
    EXPECT_EQ(s.indexOf("b", 5), -1);
    EXPECT_EQ(s.indexOf("b", 3), -1);
    EXPECT_EQ(s.indexOf("", 3), -1);
}

TEST(ZnConstStringTest, IndexOfNegativeFromIsMinusOne)
{
    ZnConstString s("abc");
    EXPECT_EQ(s.indexOf("a", -1), -1);
}

TEST(ZnConstStringTest, IndexOfNullNeedleIsMinusOne)
{
    ZnConstString s("abc");
    EXPECT_EQ(s.indexOf(nullptr, 0), -1);
}

TEST(ZnConstStringTest, IndexOfOnNullReceiverOrEmptyIsMinusOne)
{
    EXPECT_EQ(nullString()->indexOf("a", 0), -1);
    ZnConstString none;
    EXPECT_EQ(none.indexOf("a", 0), -1);
    ZnConstString empty("");
    EXPECT_EQ(empty.indexOf("", 0), -1);
}

TEST(ZnConstStringTest, EqualsTextCaseSensitive)
{
    ZnConstString s("Text");
    EXPECT_TRUE(s == "Text");
    EXPECT_FALSE(s == "text");
    EXPECT_FALSE(s == "Tex");
    EXPECT_FALSE(s == "Texts");
}

TEST(ZnConstStringTest, EqualsConstString)
{
    ZnConstString a("same");
    ZnConstString b("same");
    ZnConstString c("Same");
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == c);
}

TEST(ZnConstStringTest, NullReceiverEqualsNullOrEmpty)
{
    const ZnConstString* null = nullString();
    EXPECT_TRUE(null->operator==(static_cast<const char*>(nullptr)));
    EXPECT_TRUE(null->operator==(""));
    EXPECT_FALSE(null->operator==("a"));
    EXPECT_TRUE(null->operator==(ZnConstString()));
    EXPECT_TRUE(null->operator==(ZnConstString("")));
    EXPECT_FALSE(null->operator==(ZnConstString("a")));
}

TEST(ZnConstStringTest, NullOtherEqualsOnlyNullText)
{
    ZnConstString none;
    ZnConstString empty("");
    ZnConstString text("a");
    EXPECT_TRUE(none == static_cast<const char*>(nullptr));
    EXPECT_FALSE(empty == static_cast<const char*>(nullptr));
    EXPECT_FALSE(text == static_cast<const char*>(nullptr));
    EXPECT_TRUE(none == ZnConstString());
    EXPECT_FALSE(empty == ZnConstString());
    EXPECT_FALSE(text == ZnConstString());
}

TEST(ZnConstStringTest, EmptyEqualsEmptyText)
{
    ZnConstString empty("");
    EXPECT_TRUE(empty == "");
    EXPECT_TRUE(empty == ZnConstString(""));
    EXPECT_FALSE(empty == "a");
}

TEST(ZnConstStringTest, NullTextAgainstTextIsReadAsEmpty)
{
    // The caller's error; compared as an empty text, without reading through null.
    ZnConstString none;
    EXPECT_TRUE(none == "");
    EXPECT_FALSE(none == "a");
}

TEST(ZnConstStringTest, ObjectIsAllocatedOnAccount)
{
    AccountDelta delta;
    ZnConstString* s = new ZnConstString;
    EXPECT_EQ(delta.bytes(), static_cast<int64_t>(sizeof(ZnConstString)));
    EXPECT_EQ(delta.blocks(), 1);
    delete s;
    EXPECT_EQ(delta.bytes(), 0);
    EXPECT_EQ(delta.blocks(), 0);
}

TEST(ZnConstStringTest, ObjectAndTextAreBothOnAccount)
{
    AccountDelta delta;
    ZnConstString* s = new ZnConstString("abc");
    EXPECT_EQ(delta.bytes(), static_cast<int64_t>(sizeof(ZnConstString) + 4));
    EXPECT_EQ(delta.blocks(), 2);
    delete s;
    EXPECT_EQ(delta.bytes(), 0);
    EXPECT_EQ(delta.blocks(), 0);
}

TEST(ZnConstStringTest, ArrayIsAllocatedOnAccount)
{
    AccountDelta delta;
    ZnConstString* strings = new ZnConstString[3];
    EXPECT_EQ(delta.blocks(), 1);
    EXPECT_GE(delta.bytes(), static_cast<int64_t>(3 * sizeof(ZnConstString)));
    strings[1] = "xy";
    EXPECT_EQ(delta.blocks(), 2);
    delete[] strings;
    EXPECT_EQ(delta.bytes(), 0);
    EXPECT_EQ(delta.blocks(), 0);
}

TEST(ZnConstStringTest, PlacementFormAllocatesNothing)
{
    alignas(ZnConstString) unsigned char place[sizeof(ZnConstString)];
    AccountDelta delta;
    ZnConstString* s = new (place) ZnConstString;
    EXPECT_EQ(static_cast<void*>(s), static_cast<void*>(place));
    EXPECT_EQ(delta.blocks(), 0);
    s->~ZnConstString();
    EXPECT_EQ(delta.bytes(), 0);
}

TEST(ZnConstStringTest, AccountName)
{
    EXPECT_STREQ(ZnConstString::getMemAccountName(), "ZnConstString");
}

} // namespace
