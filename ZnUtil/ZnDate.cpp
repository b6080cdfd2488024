#include "ZnUtil/ZnDate.h"

#include "ZnUtil/ZnException.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

const char* const ZnDate::WKDAY[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const ZnDate::MONTH[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

namespace
{

const char kDefaultZone[] = "GMT";

/// atoi as the C library has it: strtol's value cut to int.
int toInt(const char* text)
{
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

bool isAsciiDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// The index of \p name in \p table by exact comparison, or -1.
int findName(const char* const* table, int count, const char* name)
{
    if (name == nullptr)
    {
        return -1;
    }
    for (int i = 0; i < count; ++i)
    {
        if (std::strcmp(table[i], name) == 0)
        {
            return i;
        }
    }
    return -1;
}

} // namespace

ZnDate::ZnDate()
{
    setZone(kDefaultZone);
    init();
}

ZnDate::ZnDate(int seconds)
{
    init();
    addSeconds(seconds);
}

ZnDate::ZnDate(const char* text)
{
    init();
    constructZnDate(text);
}

void ZnDate::init()
{
    // The zone is set first so that the field is defined even if localtime_r has nothing to say.
    setZone(kDefaultZone);
    m_second = m_minute = m_hour = 0;
    m_date = 1;
    m_month = 0;
    m_year = 70;
    m_dayOfWeek = 4;
    m_dayOfYear = 0;
    m_isDst = 0;
    mSetFromSeconds(static_cast<long long>(std::time(nullptr)));
    // The zone text says "GMT" whatever the local zone of the fields is.
}

void ZnDate::constructZnDate(const char* text)
{
    if (text == nullptr || text[0] == '\0')
    {
        ZnException::sThrow("ZnDate cannot be constructed from NULL string");
    }

    // Two private copies: the weekday is looked for in the first; a date without one is read
    // again from the start of the second.
    const size_t size = std::strlen(text) + 1;
    std::unique_ptr<char[]> first(new char[size]);
    std::unique_ptr<char[]> second(new char[size]);
    std::memcpy(first.get(), text, size);
    std::memcpy(second.get(), text, size);

    // strtok_r: the same splitting as strtok, with the state on this stack.
    char* state = nullptr;
    const char* token = strtok_r(first.get(), ",", &state);
    if (token == nullptr)
    {
        ZnException::sThrow("Invalid Day in ZnDate");
    }
    m_dayOfWeek = findName(WKDAY, 7, token);

    if (m_dayOfWeek >= 0)
    {
        token = strtok_r(nullptr, " ", &state);
    }
    else
    {
        token = strtok_r(second.get(), " ", &state);
    }
    // A text that ends before the day of the month has none, which counts as an invalid one.
    const int date = token != nullptr ? toInt(token) : -1;
    // Only -1 is refused: 0, 99 and the like are kept as they are.
    if (date == -1)
    {
        ZnException::sThrow("Invalid Integer Day of Month in ZnDate");
    }
    m_date = date;

    token = strtok_r(nullptr, " ", &state);
    const int month = findName(MONTH, 12, token);
    if (month < 0)
    {
        ZnException::sThrow("Invalid Month in ZnDate");
    }
    m_month = month;

    token = strtok_r(nullptr, " ", &state);
    if (token == nullptr)
    {
        ZnException::sThrow("Invalid Year in ZnDate");
    }
    int year = toInt(token);
    // Above 1900 a full year; below 50 a two-digit year of this century; 50 to 1900 are kept,
    // so "98" is 1998 and "1900" itself stays 1900 (printed as 3800).
    if (year > 1900)
    {
        year -= 1900;
    }
    else if (year < 50)
    {
        year += 100;
    }
    m_year = year;

    token = strtok_r(nullptr, ":", &state);
    if (token == nullptr)
    {
        ZnException::sThrow("Invalid Hour Integer in ZnDate");
    }
    m_hour = toInt(token);

    token = strtok_r(nullptr, ":", &state);
    if (token == nullptr)
    {
        ZnException::sThrow("Invalid Minute Integer in ZnDate");
    }
    m_minute = toInt(token);

    token = strtok_r(nullptr, " ", &state);
    if (token == nullptr)
    {
        // "Date", not "ZnDate", in this one message.
        ZnException::sThrow("Invalid Second Integer in Date");
    }
    m_second = toInt(token);

    const char* zone = strtok_r(nullptr, " ", &state);
    if (zone != nullptr && std::strcmp(zone, "GMT") == 0)
    {
        return;
    }
    // A missing zone is refused like any zone that is neither GMT nor an offset.
    if (zone == nullptr || (zone[0] != '+' && zone[0] != '-'))
    {
        ZnException::sThrow("Invalid Time Zone in Date - expecting GMT or +/-HHMM");
    }
    if (std::strlen(zone) != 5 || !isAsciiDigit(zone[1]) || !isAsciiDigit(zone[2]) ||
        !isAsciiDigit(zone[3]) || !isAsciiDigit(zone[4]))
    {
        ZnException::sThrow("Invalid Time Zone in Date - expecting +/-HHMM");
    }
    const int hours = (zone[1] - '0') * 10 + (zone[2] - '0');
    const int minutes = (zone[3] - '0') * 10 + (zone[4] - '0');
    const long long offset = (hours * 60LL + minutes) * 60LL;
    // A '+' zone moves the stored time forward and a '-' zone back: intended, callers rely on it.
    const long long seconds = mMakeTime(false);
    mSetFromSeconds(zone[0] == '+' ? seconds + offset : seconds - offset);
}

const char* ZnDate::getZnDate(char* buffer) const
{
    char* out = buffer;
    if (m_dayOfWeek >= 0 && m_dayOfWeek <= 6)
    {
        out += std::sprintf(out, "%s, ", WKDAY[m_dayOfWeek]);
    }
    out += std::sprintf(out, "%02d", m_date);
    const char* month = getMonthOfYear();
    // A month out of range prints as the C library prints a null name. The year is widened so
    // that no field value can overflow in the addition.
    out += std::sprintf(out, " %s %4lld", month != nullptr ? month : "(null)",
                        static_cast<long long>(m_year) + 1900);
    out += std::sprintf(out, " %02d:%02d:%02d ", m_hour, m_minute, m_second);
    std::sprintf(out, "%s", m_zone);
    return buffer;
}

void ZnDate::addSeconds(int n)
{
    mSetFromSeconds(mMakeTime(false) + n);
}

void ZnDate::subtractSeconds(int n)
{
    mSetFromSeconds(mMakeTime(false) - n);
}

bool ZnDate::equals()
{
    const long long now = static_cast<long long>(std::time(nullptr));
    return now == mMakeTime(true);
}

bool ZnDate::after()
{
    const long long now = static_cast<long long>(std::time(nullptr));
    return now > mMakeTime(true);
}

bool ZnDate::before()
{
    const long long now = static_cast<long long>(std::time(nullptr));
    return now < mMakeTime(true);
}

int ZnDate::getDelta()
{
    const long long now = static_cast<long long>(std::time(nullptr));
    const long long mine = mMakeTime(true);
    // Only the low 32 bits of each time take part: dates 2^32 seconds apart look alike.
    return static_cast<int32_t>(static_cast<uint32_t>(mine) - static_cast<uint32_t>(now));
}

void ZnDate::setYear(int year)
{
    // This setter's own rule, unlike the parser's: 0 to 49 gain 2001, and the value stored is a
    // calendar year that getZnDate moves by another 1900. Intended.
    if (year >= 0 && year <= 49)
    {
        m_year = year + 2001;
    }
    else if (year >= 50 && year <= 99)
    {
        m_year = year + 1900;
    }
    else
    {
        m_year = year;
    }
}

void ZnDate::setMonthOfYear(const char* name)
{
    m_month = findName(MONTH, 12, name);
}

void ZnDate::setZone(const char* zone)
{
    // The field holds 11 characters and the terminator: a longer zone is cut there rather than
    // written past the field.
    std::memset(m_zone, 0, sizeof(m_zone));
    if (zone != nullptr)
    {
        std::strncpy(m_zone, zone, sizeof(m_zone) - 1);
    }
}

const char* ZnDate::getDay(int index) const
{
    return static_cast<unsigned int>(index) < 7 ? WKDAY[index] : nullptr;
}

const char* ZnDate::getMonth(int index) const
{
    return static_cast<unsigned int>(index) < 12 ? MONTH[index] : nullptr;
}

int ZnDate::getDay(const char* name) const
{
    return findName(WKDAY, 7, name);
}

int ZnDate::getMonth(const char* name) const
{
    return findName(MONTH, 12, name);
}

const char* ZnDate::getDayOfWeek() const
{
    return getDay(m_dayOfWeek);
}

const char* ZnDate::getMonthOfYear() const
{
    return getMonth(m_month);
}

long long ZnDate::mMakeTime(bool aNormalise)
{
    std::tm fields{};
    fields.tm_sec = m_second;
    fields.tm_min = m_minute;
    fields.tm_hour = m_hour;
    fields.tm_mday = m_date;
    fields.tm_mon = m_month;
    fields.tm_year = m_year;
    fields.tm_wday = m_dayOfWeek;
    fields.tm_yday = m_dayOfYear;
    fields.tm_isdst = m_isDst;
    // Fields mktime cannot represent give -1, which is then used like any other time.
    const long long seconds = static_cast<long long>(std::mktime(&fields));
    if (aNormalise)
    {
        m_second = fields.tm_sec;
        m_minute = fields.tm_min;
        m_hour = fields.tm_hour;
        m_date = fields.tm_mday;
        m_month = fields.tm_mon;
        m_year = fields.tm_year;
        m_dayOfWeek = fields.tm_wday;
        m_dayOfYear = fields.tm_yday;
        m_isDst = fields.tm_isdst;
    }
    return seconds;
}

void ZnDate::mSetFromSeconds(long long aSeconds)
{
    const std::time_t seconds = static_cast<std::time_t>(aSeconds);
    std::tm fields{};
    // localtime_r fills a buffer of ours: nothing is shared between threads.
    if (localtime_r(&seconds, &fields) == nullptr)
    {
        return;
    }
    m_second = fields.tm_sec;
    m_minute = fields.tm_min;
    m_hour = fields.tm_hour;
    m_date = fields.tm_mday;
    m_month = fields.tm_mon;
    m_year = fields.tm_year;
    m_dayOfWeek = fields.tm_wday;
    m_dayOfYear = fields.tm_yday;
    m_isDst = fields.tm_isdst;
}
