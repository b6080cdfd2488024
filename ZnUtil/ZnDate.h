// A calendar date and time with the parser and printer of the date of a SIP Date header.
#ifndef ZNUTIL_ZNDATE_H
#define ZNUTIL_ZNDATE_H

/// A date and time in the broken-down form of the C library's struct tm, readable from and
/// printable to the text of a SIP Date header ("Thu, 21 Feb 2002 13:02:03 GMT").
///
/// The nine numeric fields keep the meanings of struct tm (month 0 to 11, year since 1900, day
/// of week 0 to 6 with Sunday 0 or -1 when unknown), followed by a zone text of at most 11
/// characters, "GMT" unless set otherwise. Conversions between fields and seconds go through the
/// local time of the process (mktime and localtime_r).
/// Ownership: a plain value, copied as memory; it is not a ZnObject.
/// Thread safety: none of its own; distinct dates may be used from distinct threads, and the
/// parser keeps no state between calls.
class ZnDate
{
public:
    /// The weekday names "Sun" to "Sat", Sunday at index 0.
    static const char* const WKDAY[7];
    /// The month names "Jan" to "Dec", January at index 0.
    static const char* const MONTH[12];

    /// Size of the zone field, terminator included.
    enum
    {
        ZONE_SIZE = 12
    };
    /// A buffer of this size always holds what getZnDate prints, whatever the fields hold.
    enum
    {
        PRINT_BUFFER_SIZE = 96
    };

    /// The current local time, zone "GMT".
    ZnDate();
    /// The current local time moved by \p seconds, zone "GMT".
    explicit ZnDate(int seconds);
    /// The current local time, then the fields read from \p text by constructZnDate.
    /// \throws ZnHandle<ZnException> as constructZnDate.
    explicit ZnDate(const char* text);

    /// Sets the nine fields to the current local time and the zone to "GMT", whatever the local
    /// zone is.
    void init();

    /// Reads a date of the form "[Wkd,] DD Mon YYYY HH:MM:SS zone" into the fields, the zone being
    /// "GMT" or "+HHMM" / "-HHMM". A "+HHMM" zone moves the stored time forward by that much, a
    /// "-HHMM" zone back, through local time; the zone field is left as it was ("GMT" after
    /// init). A date that ends after the seconds, with no zone, is refused. A failure partway
    /// leaves the fields read until then changed.
    /// \param text the date, NUL-terminated.
    /// \throws ZnHandle<ZnException> with one of the texts "ZnDate cannot be constructed from NULL
    /// string", "Invalid Day in ZnDate", "Invalid Integer Day of Month in ZnDate", "Invalid Month
    /// in ZnDate", "Invalid Year in ZnDate", "Invalid Hour Integer in ZnDate", "Invalid Minute
    /// Integer in ZnDate", "Invalid Second Integer in Date", "Invalid Time Zone in Date -
    /// expecting GMT or +/-HHMM" and "Invalid Time Zone in Date - expecting +/-HHMM".
    void constructZnDate(const char* text);

    /// Prints the date as "Thu, 21 Feb 2002 13:02:03 GMT"; the weekday and its comma are left out
    /// when the day of week is not 0 to 6, and the year printed is the year field plus 1900.
    /// \param buffer receives the text; PRINT_BUFFER_SIZE bytes always suffice.
    /// \return \p buffer.
    const char* getZnDate(char* buffer) const;

    /// Moves the date by \p n seconds through local time; all nine fields are recomputed.
    void addSeconds(int n);
    /// Moves the date back by \p n seconds through local time; all nine fields are recomputed.
    void subtractSeconds(int n);

    /// True when the present second is this date. Normalises the fields, as mktime does.
    bool equals();
    /// True when the present moment is later than this date. Normalises the fields.
    bool after();
    /// True when the present moment is earlier than this date. Normalises the fields.
    bool before();
    /// Seconds from now until this date, negative when it is past, computed on the low 32 bits
    /// of both times. Normalises the fields.
    int getDelta();

    /// The year field: years since 1900 after parsing and after init.
    int getYear() const { return m_year; }
    /// The month field, 0 to 11 for a valid date.
    int getMonth() const { return m_month; }
    /// The day of the month.
    int getDate() const { return m_date; }
    int getHour() const { return m_hour; }
    int getMinute() const { return m_minute; }
    int getSecond() const { return m_second; }
    /// The day of the week, 0 to 6 with Sunday 0, or -1 when unknown.
    int getDayOfWeekIndex() const { return m_dayOfWeek; }

    /// Stores \p year: 0 to 49 become year + 2001, 50 to 99 year + 1900, anything else is stored
    /// as it is. Note that getZnDate adds another 1900 when printing.
    void setYear(int year);
    /// Stores the value with no check.
    void setMonth(int month) { m_month = month; }
    void setDate(int date) { m_date = date; }
    void setHour(int hour) { m_hour = hour; }
    void setMinute(int minute) { m_minute = minute; }
    void setSecond(int second) { m_second = second; }

    /// Sets the month field to the index of \p name in MONTH (case sensitive), or -1 when it is
    /// no month name or null.
    void setMonthOfYear(const char* name);

    /// Copies \p zone into the zone field. At most ZONE_SIZE - 1 characters are kept; a null
    /// zone leaves the field empty.
    void setZone(const char* zone);
    /// The zone text, always NUL-terminated.
    const char* getZone() const { return m_zone; }

    /// The weekday name at \p index, or null when it is not 0 to 6.
    const char* getDay(int index) const;
    /// The month name at \p index, or null when it is not 0 to 11.
    const char* getMonth(int index) const;
    /// The index of the weekday \p name (exact comparison), or -1 when it is none or null.
    int getDay(const char* name) const;
    /// The index of the month \p name (exact comparison), or -1 when it is none or null.
    int getMonth(const char* name) const;

    /// The name of this date's weekday, or null when the day of week is not 0 to 6.
    const char* getDayOfWeek() const;
    /// The name of this date's month, or null when the month is not 0 to 11.
    const char* getMonthOfYear() const;

private:
    /// mktime of the nine fields; with \p aNormalise the fields take the normalised values.
    long long mMakeTime(bool aNormalise);
    /// localtime_r of \p aSeconds into the nine fields; the fields stay as they were if the time
    /// cannot be represented.
    void mSetFromSeconds(long long aSeconds);

    int m_second;
    int m_minute;
    int m_hour;
    int m_date;
    int m_month;
    int m_year;
    int m_dayOfWeek;
    int m_dayOfYear;
    int m_isDst;
    char m_zone[ZONE_SIZE];
};

#endif // ZNUTIL_ZNDATE_H
