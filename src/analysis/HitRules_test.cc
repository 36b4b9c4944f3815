// The per-hit rules that need no tables: exclusion lists and the date and time of each log TYPE.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "analysis/Exclusion.h"
#include "analysis/HitTime.h"
#include "analysis/Text.h"
#include "vb/Dates.h"
#include "vb/Strings.h"

namespace analysis {
namespace {

// Short names of the layouts the cases read.
constexpr startup::LogLayout kW3c = startup::LogLayout::W3cExtended;
constexpr startup::LogLayout kCommaShort = startup::LogLayout::CommaShort;
constexpr startup::LogLayout kCombined = startup::LogLayout::Combined;
constexpr startup::LogLayout kCommaLong = startup::LogLayout::CommaLong;

// Dates compared to the whole second (an offset added as a day fraction is not bit-exact).
int64_t At(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  return vb::DateDiffSeconds(0, vb::DateSerial(y, mo, d) + vb::TimeSerial(h, mi, s));
}
int64_t Secs(vb::Date d) { return vb::DateDiffSeconds(0, d); }

TEST(IsExcludedHit, AddressAndPageListsWithWildcards) {
  EXPECT_TRUE(IsExcludedHit("10.1.2.3", "a.htm", "10.*", ""));
  EXPECT_TRUE(IsExcludedHit("10.1.2.3", "a.htm", "192.168.*;10.1.2.#", ""));
  EXPECT_TRUE(IsExcludedHit("10.1.2.3", "a.htm", "192.168.*; 10.1.2.3 ;", ""));
  EXPECT_FALSE(IsExcludedHit("10.1.2.30", "a.htm", "10.1.2.#", ""));
  EXPECT_TRUE(IsExcludedHit("1.1.1.1", "admin/x.htm", "", "admin/*"));
  EXPECT_FALSE(IsExcludedHit("1.1.1.1", "Admin/x.htm", "", "admin/*"));  // case-sensitive
  // Empty lists and empty patterns exclude nothing, not even an empty address.
  EXPECT_FALSE(IsExcludedHit("", "", "", ""));
  EXPECT_FALSE(IsExcludedHit("", "x", ";;", " ; "));
  // A malformed pattern matches nothing and does not stop the later ones.
  EXPECT_TRUE(IsExcludedHit("10.0.0.1", "x", "[10*;10.*", ""));
}

TEST(ReadHitTime, W3cDateAndTimeColumns) {
  HitClock c;
  EXPECT_EQ(Secs(ReadHitTime(c, kW3c, "2002-03-04", "", "13:55:36", 0)),
            At(2002, 3, 4, 13, 55, 36));
  // A date that cannot be read keeps the previous hit's date; a bad time keeps the time.
  EXPECT_EQ(Secs(ReadHitTime(c, kW3c, "garbage", "", "14:00:00", 0)), At(2002, 3, 4, 14));
  EXPECT_EQ(Secs(ReadHitTime(c, kW3c, "2002-03-05", "", "", 0)), At(2002, 3, 5, 14));
  EXPECT_EQ(Secs(ReadHitTime(c, kW3c, "2002-3-6", "", "01:02:03", 0)), At(2002, 3, 6, 1, 2, 3));
  // No date column: the date part of the site's current-hit time; no time column: the old time.
  EXPECT_EQ(Secs(ReadHitTime(c, kW3c, std::nullopt, "", std::nullopt,
                             vb::DateSerial(2001, 1, 2) + vb::TimeSerial(23, 0, 0))),
            At(2001, 1, 2, 1, 2, 3));
}

TEST(ReadHitTime, CombinedFormatZoneRoundsHalfToEvenAndCarriesOver) {
  HitClock c;
  // -0700 gives -7 hours, added to the logged time.
  EXPECT_EQ(Secs(ReadHitTime(c, kCombined, "[10/Oct/2000:13:55:36", "-0700]", std::nullopt, 0)),
            At(2000, 10, 10, 6, 55, 36));
  EXPECT_EQ(c.offsetSeconds, -7 * 3600);
  ReadHitTime(c, kCombined, "[10/Oct/2000:13:55:36", "+0250]", std::nullopt, 0);
  EXPECT_EQ(c.offsetSeconds, 2 * 3600);  // 2.5 hours round to 2
  ReadHitTime(c, kCombined, "[10/Oct/2000:13:55:36", "+0350]", std::nullopt, 0);
  EXPECT_EQ(c.offsetSeconds, 4 * 3600);  // 3.5 hours round to 4
  ReadHitTime(c, kCombined, "[10/Oct/2000:13:55:36", "+0000]", std::nullopt, 0);
  EXPECT_EQ(c.offsetSeconds, 0);
  ReadHitTime(c, kCombined, "[10/Oct/2000:13:55:36", "+0100]", std::nullopt, 0);
  // A time column overrides the time in the date field; a zone that is no number keeps the offset.
  EXPECT_EQ(Secs(ReadHitTime(c, kCombined, "[11/oct/2000:13:55:36", "junk]", "08:00:00", 0)),
            At(2000, 10, 11, 9));
  // The offset is one for the run: a later W3C site keeps it; a TYPE 1 log clears it.
  EXPECT_EQ(Secs(ReadHitTime(c, kW3c, "2002-03-04", "", "10:00:00", 0)), At(2002, 3, 4, 11));
  EXPECT_EQ(Secs(ReadHitTime(c, kCommaShort, "3/4/2002", "", "10:00:00", 0)), At(2002, 3, 4, 10));
  EXPECT_EQ(c.offsetSeconds, 0);
}

TEST(ReadHitTime, MonthDayYearTypesAndShortOrBrokenFields) {
  HitClock c;
  EXPECT_EQ(Secs(ReadHitTime(c, kCommaLong, "12/31/2001", "", "23:59:59", 0)),
            At(2001, 12, 31, 23, 59, 59));
  EXPECT_EQ(Secs(ReadHitTime(c, kCommaShort, "12/31", "", "00:00:01", 0)),
            At(2001, 12, 31, 0, 0, 1));
  EXPECT_EQ(Secs(ReadHitTime(c, kCombined, "", "", std::nullopt, 0)), At(2001, 12, 31, 0, 0, 1));
  EXPECT_EQ(Secs(ReadHitTime(c, kCombined, "[", "-", std::nullopt, 0)), At(2001, 12, 31, 0, 0, 1));
}

// The times of nearly every log are read by a quick path; it must give what the general time
// reading gives, bit for bit, and leave every other text to it.
TEST(ReadHitTime, QuickTimesMatchTheGeneralReading) {
  std::mt19937 rng(99);
  const char alphabet[] = "0123456789::::: 9a";
  int read = 0;
  for (int i = 0; i < 100000; ++i) {
    std::string text;
    const size_t length = i % 3 == 0 ? 8 : 5 + rng() % 5;
    for (size_t k = 0; k < length; ++k) text += alphabet[rng() % (sizeof alphabet - 1)];
    if (i % 2 == 0 && length == 8) {  // a time, out of range now and then, or one byte off
      char t[16];
      std::snprintf(t, sizeof t, "%02u:%02u:%02u", static_cast<unsigned>(rng() % 26),
                    static_cast<unsigned>(rng() % 62), static_cast<unsigned>(rng() % 62));
      text = t;
      if (rng() % 4 == 0) text[rng() % 8] = alphabet[rng() % (sizeof alphabet - 1)];
    }
    HitClock clock;
    clock.timeOfDay = 0.5;  // what the hit before left
    const vb::Date got = ReadHitTime(clock, kW3c, std::nullopt, "", text, 0);
    vb::Date expected = 0.5;
    if (vb::Date v; vb::ParseTimeOfDay(text, v)) {
      expected = v;
      ++read;
    } else if (vb::Date any; vb::TryCDate(vb::Trim(text), any)) {
      expected = any - std::floor(any);
    }
    ASSERT_EQ(got, expected) << "\"" << text << "\"";
  }
  EXPECT_GT(read, 2000);
}

// The quick answer of MinutesExceed must be the minute arithmetic's answer: random pairs of
// dates around a time-out, whole seconds, minute edges, days before 1899-12-30 and beyond the
// calendar.
TEST(MinutesExceed, AgreesWithWholeMinutesBetweenTheDates) {
  std::mt19937_64 rng(20261122);
  const vb::Date base = vb::DateSerial(2002, 5, 24);
  std::uniform_int_distribution<int> limitOf(0, 90);
  std::uniform_real_distribution<double> spread(-0.2, 0.2);   // days, about +-5 hours
  std::uniform_int_distribution<int> secondOf(0, 86399);
  int quick = 0;
  for (int i = 0; i < 200000; ++i) {
    const int limit = limitOf(rng);
    vb::Date from, to;
    switch (i % 4) {
      case 0:  // arbitrary fractions
        from = base + spread(rng);
        to = from + spread(rng) / 10;
        break;
      case 1: {  // whole seconds, within a few minutes of the limit
        from = base + secondOf(rng) / 86400.0;
        to = from + (limit * 60 + secondOf(rng) % 240 - 120) / 86400.0;
        break;
      }
      case 2:  // on minute edges
        from = base + (secondOf(rng) / 60) / 1440.0;
        to = from + (limit + secondOf(rng) % 5 - 2) / 1440.0;
        break;
      default: {  // either side of day 0 and beyond the calendar
        const vb::Date far[] = {-1.5, -0.25, 0, 1e-9, 1e8, 2e8, -1e9};
        from = far[secondOf(rng) % 7] + spread(rng) * (secondOf(rng) % 2);
        to = (secondOf(rng) % 2) ? from + spread(rng) / 20 : far[secondOf(rng) % 7];
        break;
      }
    }
    const bool expected = vb::DateDiffMinutes(from, to) > limit;
    ASSERT_EQ(MinutesExceed(from, to, limit), expected)
        << "from " << from << " to " << to << " limit " << limit;
    quick += !expected;
  }
  EXPECT_GT(quick, 1000);
  // The edges themselves: 20 minutes is not more than 20, 21 is; 20:59 counts as 21 once the
  // minute turns over.
  const vb::Date t = base + vb::TimeSerial(10, 0, 30);
  EXPECT_FALSE(MinutesExceed(t, t + vb::TimeSerial(0, 20, 0), 20));
  EXPECT_TRUE(MinutesExceed(t, t + vb::TimeSerial(0, 21, 0), 20));
  EXPECT_TRUE(MinutesExceed(t, t + vb::TimeSerial(0, 20, 30), 20));
  EXPECT_FALSE(MinutesExceed(t, t + vb::TimeSerial(0, 20, 29), 20));
  EXPECT_FALSE(MinutesExceed(t + 1, t, 0));
}

}  // namespace
}  // namespace analysis
