#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "core/DateTime.h"

using namespace Vantu;

TEST(DateTime, FieldsAndTextsGiveTheUtcInstant) {
    static_assert(sizeof(DateTime) == 4);
    EXPECT_EQ(DateTime().Seconds(), 0u);
    EXPECT_EQ(DateTime::minimum, DateTime());
    DateTime d(2005, 1, 31, 12, 30, 45, false);
    EXPECT_EQ(d.Seconds(), 1107174645u);
    EXPECT_EQ(DateTime("2005/01/31 12:30:45", ""), d);
    EXPECT_EQ(DateTime(u"  2005-01-31T12:30:45 ", u""), d);
    EXPECT_EQ(DateTime("2005/01/31@12:30", "").Seconds(), d.Seconds() - 45);
    EXPECT_EQ(DateTime("2005/01/31", "").Seconds(), 1107129600u);
    EXPECT_EQ(d.UTCYear(), 2005);
    EXPECT_EQ(d.UTCMonth(), 1);
    EXPECT_EQ(d.UTCMonthDay(), 31);
    EXPECT_EQ(d.UTCHour(), 12);
    EXPECT_LT(DateTime::minimum, d);
    EXPECT_EQ(DateTime(2106, 2, 7, 6, 28, 15, false), DateTime::maximum);

    for (const char* bad : {"", "2005/1/31", "2005/01-31", "2005/02/30", "2005/01/31 25:00", "2005/01/31 12:3",
                            "2005/01/31 12:30:45x", "1969/12/31", "2200/01/01", "today"})
        EXPECT_THROW(DateTime(bad, ""), InvalidDateException) << bad;
    EXPECT_THROW(DateTime(2004, 13, 1, 0, 0, 0, false), InvalidDateException);
    EXPECT_NO_THROW(DateTime(2004, 2, 29, 0, 0, 0, false));
    EXPECT_THROW(DateTime(2005, 2, 29, 0, 0, 0, false), InvalidDateException);
}

TEST(DateTime, LocalFieldsRoundTripThroughTheLocalConstructor) {
    const char* old = std::getenv("TZ");
    std::string saved = old ? old : "";
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    DateTime d(2005, 7, 1, 12, 0, 0, false);
    EXPECT_EQ(d.LocalHour(), 14);  // summer time
    DateTime again(d.LocalYear(), d.LocalMonth(), d.LocalMonthDay(), d.LocalHour(), d.LocalMin(), d.LocalSec(), true);
    EXPECT_EQ(again, d);
    if (old) setenv("TZ", saved.c_str(), 1); else unsetenv("TZ");
    tzset();
}

TEST(DateTime, DeltasMoveByUnitsAndStayInRange) {
    DateTime d(2005, 1, 31, 12, 30, 45, false);
    DateTime m = d;
    m.AddDelta(1, DateTime::Month);
    EXPECT_EQ(m, DateTime(2005, 2, 28, 12, 30, 45, false));  // clamped to the month's end
    m.AddDelta(-14, DateTime::Month);
    EXPECT_EQ(m, DateTime(2003, 12, 28, 12, 30, 45, false));
    DateTime y(2004, 2, 29, 0, 0, 0, false);
    y.AddDelta(1, DateTime::Year);
    EXPECT_EQ(y, DateTime(2005, 2, 28, 0, 0, 0, false));
    DateTime s = d;
    s.AddDelta(-7, DateTime::Day);
    s.AddDelta(2, DateTime::Hour);
    s.AddDelta(-3, DateTime::Minute);
    s.AddDelta(5, DateTime::Second);
    EXPECT_EQ(s.Seconds(), d.Seconds() - 7 * 86400 + 7200 - 180 + 5);
    EXPECT_EQ(d + 15, DateTime(2005, 1, 31, 12, 31, 0, false));
    EXPECT_EQ(d - 45, DateTime(2005, 1, 31, 12, 30, 0, false));
    EXPECT_EQ(DateTime::FromSeconds(10) - 20, DateTime::minimum);
    EXPECT_EQ(DateTime::maximum + 1, DateTime::maximum);
    DateTime far = d;
    far.AddDelta(-100, DateTime::Year);
    EXPECT_EQ(far, DateTime::minimum);
    far = d;
    far.AddDelta(200, DateTime::Year);
    EXPECT_EQ(far, DateTime::maximum);
}
