#include "tavoris/StringVector.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using Tavoris::StringVector;
using Tavoris::strTokenize;

std::vector<std::string> contents(const StringVector& strings)
{
    return std::vector<std::string>(strings.begin(), strings.end());
}

TEST(StringVectorTest, StartsEmptyWithTheRoomAskedFor)
{
    StringVector strings(12);
    EXPECT_TRUE(strings.empty());
    EXPECT_GE(strings.capacity(), 12u);
}

TEST(StringVectorTest, DefaultConstructedIsEmpty)
{
    StringVector strings;
    EXPECT_EQ(0u, strings.size());
}

TEST(StringVectorTest, ClearRemovesEveryString)
{
    StringVector strings(2);
    strings.push_back("a");
    strings.push_back("b");
    strings.clear();
    EXPECT_TRUE(strings.empty());
}

TEST(StringVectorTest, TokenizeSplitsAtTheSeparator)
{
    StringVector out;
    EXPECT_EQ(2u,
              strTokenize("TLS_RSA_WITH_AES_128_CBC_SHA,TLS_RSA_WITH_3DES_EDE_CBC_SHA", out, ','));
    const std::vector<std::string> expected = {"TLS_RSA_WITH_AES_128_CBC_SHA",
                                               "TLS_RSA_WITH_3DES_EDE_CBC_SHA"};
    EXPECT_EQ(expected, contents(out));
}

TEST(StringVectorTest, TokenizeKeepsBlanksInsidePieces)
{
    StringVector out;
    EXPECT_EQ(2u, strTokenize(" a b ;c ", out, ';'));
    const std::vector<std::string> expected = {" a b ", "c "};
    EXPECT_EQ(expected, contents(out));
}

TEST(StringVectorTest, TokenizeSkipsEmptyPieces)
{
    StringVector out;
    EXPECT_EQ(3u, strTokenize(",,one,,two,three,,", out, ','));
    const std::vector<std::string> expected = {"one", "two", "three"};
    EXPECT_EQ(expected, contents(out));
}

TEST(StringVectorTest, TokenizeOfTextWithoutSeparatorGivesTheWholeText)
{
    StringVector out;
    EXPECT_EQ(1u, strTokenize("single", out, ','));
    ASSERT_EQ(1u, out.size());
    EXPECT_EQ("single", out[0]);
}

TEST(StringVectorTest, TokenizeOfSeparatorsOnlyAddsNothing)
{
    StringVector out;
    EXPECT_EQ(0u, strTokenize(":::", out, ':'));
    EXPECT_TRUE(out.empty());
}

TEST(StringVectorTest, TokenizeOfNullOrEmptyTextAddsNothing)
{
    StringVector out;
    EXPECT_EQ(0u, strTokenize(nullptr, out, ','));
    EXPECT_EQ(0u, strTokenize("", out, ','));
    EXPECT_TRUE(out.empty());
}

TEST(StringVectorTest, TokenizeAppendsToWhatIsThere)
{
    StringVector out;
    out.push_back("first");
    EXPECT_EQ(2u, strTokenize("x|y", out, '|'));
    const std::vector<std::string> expected = {"first", "x", "y"};
    EXPECT_EQ(expected, contents(out));
}

TEST(StringVectorTest, TokenizeAfterClearStartsAfresh)
{
    StringVector out;
    strTokenize("a,b", out, ',');
    out.clear();
    EXPECT_EQ(1u, strTokenize("c", out, ','));
    ASSERT_EQ(1u, out.size());
    EXPECT_EQ("c", out[0]);
}

} // namespace
