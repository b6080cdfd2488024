// Inputs that once surprised the fuzz harness or a review, kept with the behaviour they pinned.
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnParameters.h"
#include "ZnUtil/ZnString.h"
#include "ZnUtil/ZnStringBuffer.h"

#include "tavoris/MemAccount.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace
{

/// Parses the bytes of \p text (embedded NULs kept) into \p list.
/// \return true when nothing was thrown.
bool parseBytes(ZnParameters& list, const std::string& text)
{
    ZnHandle<ZnByteArray> bytes =
        ZnByteArray::sCreate(static_cast<unsigned int>(text.size()), text.data());
    ZnByteArrayInputStream in(bytes);
    try
    {
        list.parse(in);
    }
    catch (ZnHandle<ZnException>&)
    {
        return false;
    }
    return true;
}

// ",a=;" stops at the comma with nothing parsed: the list is empty and prints "", and the empty
// text parses to one item with an empty key. Both ends are intended; printing an empty list is
// not a way to reproduce it.
TEST(ZnParametersTest, RegressionLeadingCommaGivesEmptyListThatDoesNotRoundTrip)
{
    ZnParameters list;
    ASSERT_TRUE(parseBytes(list, ",a=;"));
    EXPECT_TRUE(list.empty());
    const ZnString printed = list.getString();
    EXPECT_STREQ(printed.c_str(), "");

    ZnParameters reparsed;
    reparsed.parse(printed);
    ASSERT_EQ(reparsed.size(), 1u);
    ZnParameters::ParIterator it(&reparsed);
    EXPECT_STREQ(it.key(), "");
    EXPECT_EQ(it.value(), nullptr);
}

// A NUL inside quotes ends the stored text, as every text of the list is NUL-terminated; the
// last key is stored untrimmed, so it can end in the line feed that stood before the NUL, and a
// look-up (which trims the caller's key) does not find it. Nothing is read out of bounds.
TEST(ZnParametersTest, RegressionNulInsideQuotesCutsTheLastKey)
{
    ZnParameters list;
    ASSERT_TRUE(parseBytes(list, std::string("a\"x=x\n\0\0\0\"x", 11)));
    ZnParameters::ParIterator it(&list);
    ASSERT_TRUE(static_cast<bool>(it));
    EXPECT_STREQ(it.key(), "a\"x=x\n");
    EXPECT_EQ(it.value(), nullptr);
    EXPECT_FALSE(list.isPresent("a\"x=x"));
    EXPECT_STREQ(list.getString().c_str(), "a\"x=x\n");
}

// A NUL inside a quoted value cuts it to an open quote: the printed list then no longer parses.
TEST(ZnParametersTest, RegressionNulInsideQuotedValuePrintsUnbalancedQuote)
{
    ZnParameters list;
    ASSERT_TRUE(parseBytes(list, std::string("a=\"x\0y\";b=1", 11)));
    EXPECT_STREQ(list.getValue("a").c_str(), "\"x");
    EXPECT_STREQ(list.getString().c_str(), "b=1;a=\"x");
    ZnParameters reparsed;
    EXPECT_FALSE(parseBytes(reparsed, list.getString().c_str()));
}

// Printing appended item after item to a string of capacity 80, and every append past the
// capacity copied the whole text: a long list from the network printed in quadratic time. The
// string now gets the whole room at once: one buffer for the whole print.
TEST(ZnParametersTest, RegressionLongListPrintsIntoOneBuffer)
{
    std::string text;
    for (int i = 0; i < 2000; ++i)
    {
        text += (i == 0 ? "" : ";") + std::string("p") + std::to_string(i) + (i % 3 ? "=v" : "");
    }
    ZnParameters list;
    list.parse(text.c_str());
    ZnParameters copy(list);
    const uint64_t before = Tavoris::MemAccount::sRead("ZnStringBuffer").totalBlocks;
    const ZnString printed = copy.getString();
    EXPECT_EQ(Tavoris::MemAccount::sRead("ZnStringBuffer").totalBlocks - before, 1u);
    EXPECT_EQ(std::string(printed.c_str()), text);
    EXPECT_EQ(printed.buffer()->capacity(), printed.length() + 1);
}

// A short list keeps the initial capacity of 80.
TEST(ZnParametersTest, RegressionShortListPrintsIntoCapacity80)
{
    ZnParameters list;
    list.parse("branch=z9hG4bK776asdhds;received=192.0.2.1;rport=5060;ttl=1");
    EXPECT_EQ(list.getString().buffer()->capacity(), 80u);
}

// Special characters in the separator text separate nothing: quotes and line ends are dispatched
// before separators are tested. A NUL byte of the input is never a separator (a strchr on the
// separator text would have found its terminator).
TEST(ZnParametersTest, RegressionSpecialCharactersInSeparatorTextSeparateNothing)
{
    ZnParameters list;
    list.setSeparator("\"\r\n;");
    ASSERT_TRUE(parseBytes(list, "a=\"x;y\"\r\nb"));
    ZnParameters::ParIterator it(&list);
    ASSERT_TRUE(static_cast<bool>(it));
    EXPECT_STREQ(it.key(), "a");
    EXPECT_STREQ(it.value(), "\"x;y\"");
    EXPECT_FALSE(static_cast<bool>(it.next()));

    ZnParameters withNul;
    withNul.setSeparator(";");
    EXPECT_FALSE(parseBytes(withNul, std::string("a\0b", 3)));
}

} // namespace
