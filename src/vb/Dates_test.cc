// Tests of date arithmetic, the date/time readers and minute counting.
#include "vb/Dates.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "vb/Failure.h"

namespace vb {
namespace {

bool SameParts(const DateParts& p, int y, int mo, int d, int h, int mi, int s) {
  return p.year == y && p.month == mo && p.day == d && p.hour == h && p.minute == mi && p.second == s;
}

TEST(Dates, DayCountsAreExactAcrossTheWholeRange) {
  EXPECT_EQ(DateSerial(1899, 12, 30), 0);
  EXPECT_EQ(DateSerial(1900, 1, 1), 2);
  EXPECT_EQ(DateSerial(1900, 3, 1), 61);  // 1900 is not a leap year
  EXPECT_EQ(DateSerial(2000, 1, 1), 36526);
  EXPECT_EQ(DateSerial(2026, 11, 16), 46342);
  EXPECT_EQ(DateSerial(2100, 12, 31), 73415);
  // Every day from 1899 to 2101 follows the previous one and reads back as the same date.
  int64_t expected = DaysFromCivil(1899, 1, 1);
  for (int y = 1899; y <= 2101; ++y) {
    for (int m = 1; m <= 12; ++m) {
      for (int d = 1; d <= 31; ++d) {
        Date v;
        char iso[11];
        std::snprintf(iso, sizeof iso, "%04d-%02d-%02d", y, m, d);
        if (!ParseIsoDate(iso, v)) continue;  // not a real date
        ASSERT_EQ(DaysFromCivil(y, m, d), expected) << iso;
        ASSERT_EQ(v, static_cast<double>(expected)) << iso;
        const DateParts p = Split(v);
        ASSERT_TRUE(SameParts(p, y, m, d, 0, 0, 0)) << iso;
        ++expected;
      }
    }
  }
  EXPECT_EQ(expected, DaysFromCivil(2102, 1, 1));
}

TEST(Dates, DateSerialNormalisesMonthAndDayAndWindowsTwoDigitYears) {
  EXPECT_EQ(DateSerial(2026, 13, 1), DateSerial(2027, 1, 1));
  EXPECT_EQ(DateSerial(2026, 0, 1), DateSerial(2025, 12, 1));
  EXPECT_EQ(DateSerial(2026, -1, 1), DateSerial(2025, 11, 1));
  EXPECT_EQ(DateSerial(2026, 3, 0), DateSerial(2026, 2, 28));
  EXPECT_EQ(DateSerial(2024, 3, 0), DateSerial(2024, 2, 29));
  EXPECT_EQ(DateSerial(2026, 1, 32), DateSerial(2026, 2, 1));
  EXPECT_EQ(DateSerial(2026, 1, -30), DateSerial(2025, 12, 1));
  EXPECT_EQ(DateSerial(29, 1, 1), DateSerial(2029, 1, 1));
  EXPECT_EQ(DateSerial(30, 1, 1), DateSerial(1930, 1, 1));
  EXPECT_EQ(DateSerial(99, 13, 1), DateSerial(2000, 1, 1));
  EXPECT_THROW(DateSerial(10000, 1, 1), Failure);
  EXPECT_THROW(DateSerial(9999, 12, 32), Failure);
}

TEST(Dates, SplitRoundsToTheNearestSecond) {
  const Date day = DateSerial(2026, 12, 31);
  EXPECT_TRUE(SameParts(Split(day + TimeSerial(23, 59, 59)), 2026, 12, 31, 23, 59, 59));
  // 23:59:59.6 is the next day (and the next year).
  EXPECT_TRUE(SameParts(Split(day + (86399.6 / 86400)), 2027, 1, 1, 0, 0, 0));
  EXPECT_TRUE(SameParts(Split(day + (3600.4 / 86400)), 2026, 12, 31, 1, 0, 0));
  // A time of day that is a hair short of the whole second still reads as that second.
  EXPECT_EQ(Second(day + 10.0 / 86400 - 1e-12), 10);
  EXPECT_EQ(Hour(TimeSerial(25, 0, 0)), 1);
  EXPECT_EQ(TimeSerial(0, 90, 0), TimeSerial(1, 30, 0));
  // Before the epoch the fraction is the time of day: -1.25 is 1899-12-29 06:00.
  EXPECT_TRUE(SameParts(Split(-1.25), 1899, 12, 29, 6, 0, 0));
  EXPECT_EQ(Weekday(DateSerial(2026, 11, 16)), 2);  // a Monday
  EXPECT_EQ(Weekday(0), 7);                          // 1899-12-30, a Saturday
  EXPECT_EQ(Weekday(DateSerial(2026, 11, 15) + 0.99), 1);
  // Garbage values read as the epoch instead of overflowing.
  EXPECT_TRUE(SameParts(Split(1e300), 1899, 12, 30, 0, 0, 0));
  EXPECT_TRUE(SameParts(Split(NAN), 1899, 12, 30, 0, 0, 0));
}

TEST(Dates, DateDiffMinutesCountsBoundariesWithoutFloatingPointSlips) {
  const Date day = DateSerial(2026, 11, 16);
  EXPECT_EQ(DateDiffMinutes(day + TimeSerial(10, 0, 59), day + TimeSerial(10, 1, 0)), 1);
  EXPECT_EQ(DateDiffMinutes(day + TimeSerial(10, 0, 0), day + TimeSerial(10, 0, 59)), 0);
  EXPECT_EQ(DateDiffMinutes(day + TimeSerial(10, 1, 0), day + TimeSerial(10, 0, 59)), -1);
  EXPECT_EQ(DateDiffMinutes(day + TimeSerial(23, 59, 0), day + 1), 1);
  EXPECT_EQ(DateDiffMinutes(DateSerial(1990, 1, 1), day), (46342 - 32874) * 1440LL);
  // Times built by adding a parsed time of day to a date: every whole-minute gap is exact.
  for (int m = 0; m < 1440; ++m) {
    char text[9];
    std::snprintf(text, sizeof text, "%02d:%02d:00", m / 60, m % 60);
    Date tod;
    ASSERT_TRUE(ParseTimeOfDay(text, tod));
    ASSERT_EQ(DateDiffMinutes(day, day + tod), m) << text;
    ASSERT_EQ(DateDiffMinutes(day + tod, day + 1), 1440 - m) << text;
  }
  EXPECT_EQ(DateDiffSeconds(day, day + TimeSerial(0, 0, 1)), 1);
  EXPECT_EQ(DateDiffDays(day + 0.9, day + 1.1), 1);
  EXPECT_EQ(DateAddMinutes(day + TimeSerial(23, 30, 0), 45), day + 1 + TimeSerial(0, 15, 0));
}

TEST(Dates, FastParsersAcceptExactlyTheirForm) {
  Date d = -7;
  EXPECT_TRUE(ParseIsoDate("2026-11-16", d));
  EXPECT_EQ(d, 46342);
  EXPECT_TRUE(ParseDayMonYear("16/nOV/2026", d));
  EXPECT_EQ(d, 46342);
  EXPECT_TRUE(ParseDayMonYear("29/Feb/2024", d));
  EXPECT_TRUE(ParseTimeOfDay("14:05:09", d));
  EXPECT_EQ(d, TimeSerial(14, 5, 9));
  EXPECT_TRUE(ParseTimeOfDay("7:05", d));
  EXPECT_EQ(d, TimeSerial(7, 5, 0));
  d = -7;
  for (const char* bad : {"", "2026-11-1", "2026/11/16", "2026-13-01", "2026-02-29", "2026-11-16 ",
                          "x026-11-16", "2026-00-10"}) {
    EXPECT_FALSE(ParseIsoDate(bad, d)) << bad;
  }
  for (const char* bad : {"16/Nox/2026", "31/Apr/2026", "16-Nov-2026", "6/Nov/2026", "16/Nov/26"}) {
    EXPECT_FALSE(ParseDayMonYear(bad, d)) << bad;
  }
  for (const char* bad : {"24:00:00", "10:60:00", "10:00:60", "10", "10:", "10:0", "10:00:00x",
                          "10:00:00 ", "-1:00:00", "100:00:00"}) {
    EXPECT_FALSE(ParseTimeOfDay(bad, d)) << bad;
  }
  EXPECT_EQ(d, -7);  // untouched by every failure
}

TEST(Dates, CDateReadsTheDateFormsAndTimes) {
  const Date nov16 = DateSerial(2026, 11, 16);
  const Date t = TimeSerial(14, 23, 5);
  EXPECT_EQ(CDate("2026-11-16"), nov16);
  EXPECT_EQ(CDate("2026/11/16"), nov16);
  EXPECT_EQ(CDate("16/11/2026"), nov16);
  EXPECT_EQ(CDate("16-11-2026"), nov16);
  EXPECT_EQ(CDate("16.11.2026"), nov16);
  EXPECT_EQ(CDate("16/Nov/2026"), nov16);
  EXPECT_EQ(CDate("16 November 2026"), nov16);
  EXPECT_EQ(CDate("Nov 16, 2026"), nov16);
  EXPECT_EQ(CDate("16/11/26"), nov16);
  EXPECT_EQ(CDate(" 16/11/2026 14:23:05 "), nov16 + t);
  EXPECT_EQ(CDate("16/11/2026 2:23:05 PM"), nov16 + t);
  EXPECT_EQ(CDate("16/Nov/2026:14:23:05"), nov16 + t);
  EXPECT_EQ(CDate("14:23:05"), t);  // a time alone has date 0
  EXPECT_EQ(CDate("12:00 AM"), 0);
  EXPECT_EQ(CDate("12:30 pm"), TimeSerial(12, 30, 0));
  // Day first; month first only when the second number cannot be a month.
  EXPECT_EQ(CDate("03/04/2026"), DateSerial(2026, 4, 3));
  EXPECT_EQ(CDate("11/16/2026"), nov16);
  EXPECT_EQ(DateValue("16/11/2026 14:23:05"), nov16);
  EXPECT_EQ(TimeValue("16/11/2026 14:23:05"), t);
}

TEST(Dates, CDateRejectsImpossibleOrMalformedText) {
  Date d = 5;
  for (const char* bad : {"", "abc", "31/02/2026", "13/13/2026", "16/11", "16/11/2026/1",
                          "16/11-2026", "16/Nox/2026", "25:00", "10:61", "13:00 PM",
                          "16/11/2026 10", "16/11/202614:00", "2026-11-16x", "12Nov2026",
                          "16/11/2026 14:23:05 XM"}) {
    EXPECT_FALSE(TryCDate(bad, d)) << bad;
  }
  EXPECT_EQ(d, 5);
  try {
    CDate("not a date");
    ADD_FAILURE();
  } catch (const Failure& e) {
    EXPECT_EQ(e.Number(), 13);
  }
  EXPECT_THROW(TimeValue(""), Failure);
}

}  // namespace
}  // namespace vb
