// The per-hit rules that need no tables: exclusion lists and the date and time of each log TYPE.
#include <gtest/gtest.h>

#include "analysis/Exclusion.h"
#include "analysis/HitTime.h"
#include "vb/Dates.h"

namespace analysis {
namespace {

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
  EXPECT_EQ(Secs(ReadHitTime(c, 0, "2002-03-04", "", "13:55:36", 0)), At(2002, 3, 4, 13, 55, 36));
  // A date that cannot be read keeps the previous hit's date; a bad time keeps the time.
  EXPECT_EQ(Secs(ReadHitTime(c, 0, "garbage", "", "14:00:00", 0)), At(2002, 3, 4, 14));
  EXPECT_EQ(Secs(ReadHitTime(c, 0, "2002-03-05", "", "", 0)), At(2002, 3, 5, 14));
  EXPECT_EQ(Secs(ReadHitTime(c, 0, "2002-3-6", "", "01:02:03", 0)), At(2002, 3, 6, 1, 2, 3));
  // No date column: the date part of the site's current-hit time; no time column: the old time.
  EXPECT_EQ(Secs(ReadHitTime(c, 0, std::nullopt, "", std::nullopt,
                                 vb::DateSerial(2001, 1, 2) + vb::TimeSerial(23, 0, 0))),
            At(2001, 1, 2, 1, 2, 3));
}

TEST(ReadHitTime, CombinedFormatZoneRoundsHalfToEvenAndCarriesOver) {
  HitClock c;
  // -0700 gives -7 hours, added to the logged time.
  EXPECT_EQ(Secs(ReadHitTime(c, 2, "[10/Oct/2000:13:55:36", "-0700]", std::nullopt, 0)),
            At(2000, 10, 10, 6, 55, 36));
  EXPECT_EQ(c.offsetSeconds, -7 * 3600);
  ReadHitTime(c, 2, "[10/Oct/2000:13:55:36", "+0250]", std::nullopt, 0);
  EXPECT_EQ(c.offsetSeconds, 2 * 3600);  // 2.5 hours round to 2
  ReadHitTime(c, 2, "[10/Oct/2000:13:55:36", "+0350]", std::nullopt, 0);
  EXPECT_EQ(c.offsetSeconds, 4 * 3600);  // 3.5 hours round to 4
  ReadHitTime(c, 2, "[10/Oct/2000:13:55:36", "+0000]", std::nullopt, 0);
  EXPECT_EQ(c.offsetSeconds, 0);
  ReadHitTime(c, 2, "[10/Oct/2000:13:55:36", "+0100]", std::nullopt, 0);
  // A time column overrides the time in the date field; a zone that is no number keeps the offset.
  EXPECT_EQ(Secs(ReadHitTime(c, 2, "[11/oct/2000:13:55:36", "junk]", "08:00:00", 0)),
            At(2000, 10, 11, 9));
  // The offset is one for the run: a later W3C site keeps it; a TYPE 1 log clears it.
  EXPECT_EQ(Secs(ReadHitTime(c, 0, "2002-03-04", "", "10:00:00", 0)), At(2002, 3, 4, 11));
  EXPECT_EQ(Secs(ReadHitTime(c, 1, "3/4/2002", "", "10:00:00", 0)), At(2002, 3, 4, 10));
  EXPECT_EQ(c.offsetSeconds, 0);
}

TEST(ReadHitTime, MonthDayYearTypesAndShortOrBrokenFields) {
  HitClock c;
  EXPECT_EQ(Secs(ReadHitTime(c, 3, "12/31/2001", "", "23:59:59", 0)),
            At(2001, 12, 31, 23, 59, 59));
  EXPECT_EQ(Secs(ReadHitTime(c, 1, "12/31", "", "00:00:01", 0)), At(2001, 12, 31, 0, 0, 1));
  EXPECT_EQ(Secs(ReadHitTime(c, 2, "", "", std::nullopt, 0)), At(2001, 12, 31, 0, 0, 1));
  EXPECT_EQ(Secs(ReadHitTime(c, 2, "[", "-", std::nullopt, 0)), At(2001, 12, 31, 0, 0, 1));
}

}  // namespace
}  // namespace analysis
