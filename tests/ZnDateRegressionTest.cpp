#include "ZnUtil/ZnDate.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace
{

class ZnDateRegressionTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

std::string printed(const ZnDate& date)
{
    char buffer[ZnDate::PRINT_BUFFER_SIZE];
    return date.getZnDate(buffer);
}

std::string parseFailure(const std::string& text)
{
    try
    {
        ZnDate date(text.c_str());
    }
    catch (ZnHandle<ZnException>& e)
    {
        const char* message = e->getExceptionMessage();
        return message != nullptr ? message : "<nil>";
    }
    return "<none>";
}

// Found by fuzzing: a '+' zone can carry the year past what an int prints back. The printout
// then holds a year above INT_MAX, which atoi cuts when it is read again.
TEST_F(ZnDateRegressionTest, RegressionYearPastIntAfterOffsetReadsBackCut)
{
    ZnDate date("Tu, Feb 2147483647 13:8364702:03 +9999");
    EXPECT_EQ(date.getYear(), INT_MAX - 1900 + 15);
    EXPECT_EQ(printed(date), "Sun, 31 Dec 2147483662 13:21:03 GMT");
    ZnDate again(printed(date).c_str());
    EXPECT_EQ(printed(again), "Sun, 31 Dec -2147481634 13:21:03 GMT");
}

TEST_F(ZnDateRegressionTest, RegressionSetZoneOverLongStaysInTheField)
{
    struct Guarded
    {
        char before[16];
        ZnDate date;
        char after[16];
    } guarded;
    std::memset(guarded.before, 'B', sizeof(guarded.before));
    std::memset(guarded.after, 'A', sizeof(guarded.after));
    guarded.date.constructZnDate("Sat, 13 Nov 2010 23:29:00 GMT");
    const std::string zone(4096, '+');
    guarded.date.setZone(zone.c_str());
    for (char c : guarded.before)
    {
        ASSERT_EQ(c, 'B');
    }
    for (char c : guarded.after)
    {
        ASSERT_EQ(c, 'A');
    }
    EXPECT_EQ(std::strlen(guarded.date.getZone()), static_cast<size_t>(ZnDate::ZONE_SIZE - 1));
    EXPECT_EQ(printed(guarded.date), "Sat, 13 Nov 2010 23:29:00 +++++++++++");
}

TEST_F(ZnDateRegressionTest, RegressionDateEndingAfterSecondsHasNoZone)
{
    EXPECT_EQ(parseFailure("Thu, 21 Feb 2002 13:02:03"),
              "Invalid Time Zone in Date - expecting GMT or +/-HHMM");
}

TEST_F(ZnDateRegressionTest, RegressionWeekdayAloneHasNoDayOfMonth)
{
    EXPECT_EQ(parseFailure("Thu,"), "Invalid Integer Day of Month in ZnDate");
    EXPECT_EQ(parseFailure("Thu, "), "Invalid Integer Day of Month in ZnDate");
}

TEST_F(ZnDateRegressionTest, RegressionDayBeyondIntIsCutLikeAtoi)
{
    // 99999999999 fits a long and is cut to its low 32 bits.
    EXPECT_EQ(ZnDate("Thu, 99999999999 Feb 2002 13:02:03 GMT").getDate(), 1215752191);
    // Beyond a long, strtol saturates and the cut value is -1: refused.
    EXPECT_EQ(parseFailure("Thu, 99999999999999999999 Feb 2002 13:02:03 GMT"),
              "Invalid Integer Day of Month in ZnDate");
}

TEST_F(ZnDateRegressionTest, RegressionUnrepresentableDateThroughOffsetIsDefined)
{
    // mktime answers -1 for fields it cannot represent; that value is moved like any other.
    ZnDate date("Thu, 21 Feb 2147483647 2147483647:2147483647:2147483647 +9999");
    EXPECT_EQ(printed(date), "Mon, 05 Jan 1970 04:38:59 GMT");
    ZnDate low("Thu, 21 Feb -2147483648 -2147483648:-2147483648:-2147483648 -9999");
    EXPECT_EQ(printed(low), "Sat, 27 Dec 1969 19:20:59 GMT");
}

TEST_F(ZnDateRegressionTest, RegressionExtremeFieldsThroughArithmetic)
{
    ZnDate date("Thu, 21 Feb 2002 13:02:03 GMT");
    date.setYear(INT_MAX);
    date.setMonth(INT_MAX);
    date.setDate(INT_MAX);
    date.setHour(INT_MAX);
    date.setMinute(INT_MAX);
    date.setSecond(INT_MAX);
    date.addSeconds(INT_MAX);
    date.subtractSeconds(INT_MIN);
    date.getDelta();
    date.after();
    char buffer[ZnDate::PRINT_BUFFER_SIZE];
    EXPECT_LT(std::strlen(date.getZnDate(buffer)), sizeof(buffer));
}

TEST_F(ZnDateRegressionTest, RegressionHugeTextIsReadToItsEnd)
{
    std::string text = "Thu, 21 Feb 2002 13:02:03 GMT";
    text.append(1 << 20, ' ');
    text += "tail";
    EXPECT_EQ(printed(ZnDate(text.c_str())), "Thu, 21 Feb 2002 13:02:03 GMT");
    std::string zone = "Thu, 21 Feb 2002 13:02:03 ";
    zone.append(1 << 20, 'Z');
    EXPECT_EQ(parseFailure(zone), "Invalid Time Zone in Date - expecting GMT or +/-HHMM");
}

TEST_F(ZnDateRegressionTest, RegressionHighAndControlBytesAreOrdinaryCharacters)
{
    EXPECT_EQ(parseFailure("\xff\xfe, 21 Feb 2002 13:02:03 GMT"), "Invalid Month in ZnDate");
    EXPECT_EQ(parseFailure("Thu, 21 F\x80"
                           "b 2002 13:02:03 GMT"),
              "Invalid Month in ZnDate");
    EXPECT_EQ(parseFailure("Thu, 21 Feb 2002 13:02:03 GMT\r\n").substr(0, 21),
              "Invalid Time Zone in ");
    // A tab is not a separator of the day: "\t21" is read by atoi, which skips it.
    EXPECT_EQ(printed(ZnDate("Thu,\t21 Feb 2002 13:02:03 GMT")), "Thu, 21 Feb 2002 13:02:03 GMT");
}

TEST_F(ZnDateRegressionTest, RegressionSeparatorsOnlyText)
{
    // The first blank-separated token is read as a day of 0 by atoi; the month is then missing.
    EXPECT_EQ(parseFailure(", , ,"), "Invalid Month in ZnDate");
    EXPECT_EQ(parseFailure(":::"), "Invalid Month in ZnDate");
    EXPECT_EQ(parseFailure("Thu, 21 Feb 2002 ::::"), "Invalid Hour Integer in ZnDate");
}

} // namespace
