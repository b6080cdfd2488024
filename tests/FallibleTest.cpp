#include "tavoris/Fallible.h"

#include "tavoris/Exception.h"
#include "tavoris/SipTransport.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "support/CapturingAppender.h"

namespace
{

using Tavoris::Fallible;

static_assert(std::is_same<Fallible<long>::value_type, long>::value, "value_type is T");

TEST(FallibleTest, DefaultIsUnset)
{
    Fallible<int> value;
    EXPECT_FALSE(value.isValid());
}

TEST(FallibleTest, MadeFromValueHoldsIt)
{
    Fallible<std::string> value(std::string("udp"));
    ASSERT_TRUE(value.isValid());
    EXPECT_EQ("udp", value.value());
}

TEST(FallibleTest, FunctionCanReturnPlainValue)
{
    auto parse = [](bool ok) -> Fallible<Tavoris::Sip::Transport>
    {
        if (ok)
        {
            return Tavoris::Sip::TLS;
        }
        return Fallible<Tavoris::Sip::Transport>();
    };
    ASSERT_TRUE(parse(true).isValid());
    EXPECT_EQ(Tavoris::Sip::TLS, parse(true).value());
    EXPECT_FALSE(parse(false).isValid());
}

TEST(FallibleTest, ValueOfUnsetAssertsAndThrows)
{
    ZnTest::LogCapture capture;
    Fallible<int> value;
    EXPECT_THROW(value.value(), Tavoris::Exception);
    const Fallible<int>& constant = value;
    EXPECT_THROW(constant.value(), Tavoris::Exception);
    std::vector<ZnTest::CapturedEvent> reports = capture.find("isValid()");
    ASSERT_EQ(2u, reports.size());
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, reports[0].level);
    EXPECT_EQ("Fallible", reports[0].file);
}

TEST(FallibleTest, ValueOfUnsetThrowsExceptionWithText)
{
    ZnTest::LogCapture capture;
    Fallible<int> value;
    try
    {
        value.value();
        FAIL() << "no exception";
    }
    catch (const Tavoris::Exception& e)
    {
        EXPECT_NE(std::string::npos, e.getMessage().find("unset"));
    }
}

TEST(FallibleTest, SetAndResetChangeValidity)
{
    Fallible<int> value;
    value.set(7);
    ASSERT_TRUE(value.isValid());
    EXPECT_EQ(7, value.value());
    value.set(8);
    EXPECT_EQ(8, value.value());
    value.reset();
    EXPECT_FALSE(value.isValid());
    value = 9;
    ASSERT_TRUE(value.isValid());
    EXPECT_EQ(9, value.value());
}

TEST(FallibleTest, ValueCanBeChangedInPlace)
{
    Fallible<std::string> value(std::string("ab"));
    value.value() += "c";
    EXPECT_EQ("abc", value.value());
}

TEST(FallibleTest, ValueOrGivesFallbackWhenUnset)
{
    Fallible<int> unset;
    Fallible<int> set(3);
    EXPECT_EQ(5, unset.valueOr(5));
    EXPECT_EQ(3, set.valueOr(5));
}

TEST(FallibleTest, CopyKeepsStateIndependently)
{
    Fallible<int> original(4);
    Fallible<int> copy(original);
    original.reset();
    ASSERT_TRUE(copy.isValid());
    EXPECT_EQ(4, copy.value());
    copy = original;
    EXPECT_FALSE(copy.isValid());
}

TEST(FallibleTest, EqualityFollowsOptional)
{
    Fallible<int> unsetA;
    Fallible<int> unsetB;
    Fallible<int> one(1);
    Fallible<int> otherOne(1);
    Fallible<int> two(2);

    EXPECT_TRUE(unsetA == unsetB);
    EXPECT_FALSE(unsetA != unsetB);
    EXPECT_TRUE(one == otherOne);
    EXPECT_FALSE(one == two);
    EXPECT_TRUE(one != two);
    EXPECT_FALSE(unsetA == one);
    EXPECT_TRUE(unsetA != one);

    // The same answers as std::optional gives.
    EXPECT_EQ(std::optional<int>() == std::optional<int>(1), unsetA == one);
    EXPECT_EQ(std::optional<int>() == std::optional<int>(), unsetA == unsetB);
}

TEST(FallibleTest, ComparisonWithPlainValue)
{
    Fallible<int> unset;
    Fallible<int> one(1);
    EXPECT_TRUE(one == 1);
    EXPECT_TRUE(1 == one);
    EXPECT_FALSE(one == 2);
    EXPECT_TRUE(one != 2);
    EXPECT_TRUE(2 != one);
    EXPECT_FALSE(unset == 0);
    EXPECT_TRUE(unset != 0);
    EXPECT_TRUE(0 != unset);
}

TEST(FallibleTest, OrderingPutsUnsetFirst)
{
    Fallible<int> unset;
    Fallible<int> one(1);
    Fallible<int> two(2);
    EXPECT_TRUE(unset < one);
    EXPECT_FALSE(one < unset);
    EXPECT_TRUE(one < two);
    EXPECT_TRUE(two > one);
    EXPECT_TRUE(unset <= unset);
    EXPECT_TRUE(unset >= unset);
    EXPECT_FALSE(unset < unset);
    EXPECT_TRUE(two >= one);
    EXPECT_FALSE(two <= one);
}

} // namespace
