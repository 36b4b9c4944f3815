// The quick paths of the date arithmetic and the time writing (dates from day 0 on, "hh:mm:ss"
// texts, two-digit pairs from a table) against the plain arithmetic they replace, on random and
// edge-case values. (The time reading's quick path is checked against the general reading in
// analysis/HitRules_test.cc, and its accepted forms in Dates_test.cc.)
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "vb/Dates.h"
#include "vb/Format.h"

namespace vb {
namespace {

// The day and second of the day as the plain arithmetic gives them: truncate with the library,
// the time of day is the magnitude of the fraction, rounded half away from zero; garbage reads
// as the epoch.
struct PlainDaySecond {
  int64_t day, second;
};
PlainDaySecond Plain(Date d) {
  if (!std::isfinite(d) || std::fabs(d) > 1e8) return {0, 0};
  const double whole = std::trunc(d);
  int64_t day = static_cast<int64_t>(whole);
  int64_t sec = std::llround(std::fabs(d - whole) * 86400);
  if (sec >= 86400) {
    sec -= 86400;
    day += 1;
  }
  return {day, sec};
}
int64_t PlainLinear(Date d) {
  const PlainDaySecond p = Plain(d);
  return p.day * 86400 + p.second;
}
int64_t PlainFloorDiv(int64_t a, int64_t b) {
  return static_cast<int64_t>(std::floor(static_cast<long double>(a) / b));
}

TEST(DateFastPaths, DayArithmeticAgreesWithThePlainArithmetic) {
  std::mt19937_64 rng(46342);
  std::vector<Date> dates;
  for (int i = 0; i < 40000; ++i) {
    const int64_t day = static_cast<int64_t>(rng() % 100000);
    const int64_t sec = static_cast<int64_t>(rng() % 86400);
    switch (i % 6) {
      case 0:
      case 1:  // a whole second, the usual hit time
        dates.push_back(static_cast<double>(day) + static_cast<double>(sec) / 86400);
        break;
      case 2:  // a half second either side of the rounding
        dates.push_back(static_cast<double>(day) + (static_cast<double>(sec) + 0.5) / 86400 +
                        (rng() % 2 ? 1e-12 : -1e-12));
        break;
      case 3:  // any fraction
        dates.push_back(static_cast<double>(day) +
                        static_cast<double>(rng() >> 11) / 9007199254740992.0);
        break;
      case 4:  // before day 0
        dates.push_back(-static_cast<double>(day % 800) - static_cast<double>(sec) / 86400);
        break;
      default:  // near and beyond the far limit
        dates.push_back(1e8 - static_cast<double>(rng() % 3) + static_cast<double>(sec) / 86400);
        break;
    }
  }
  for (const Date d : {0.0, -0.0, 1e8, -1e8, 1e8 + 1, 86399.9999 / 86400, Date(NAN),
                       Date(INFINITY), Date(-INFINITY), 1e300})
    dates.push_back(d);
  for (size_t i = 0; i < dates.size(); ++i) {
    const Date d = dates[i], e = dates[(i * 7919 + 1) % dates.size()];
    const PlainDaySecond p = Plain(d);
    ASSERT_EQ(SecondOfDay(d), p.second) << d;
    ASSERT_EQ(DateDiffSeconds(e, d), PlainLinear(d) - PlainLinear(e)) << e << " " << d;
    ASSERT_EQ(DateDiffMinutes(e, d),
              PlainFloorDiv(PlainLinear(d), 60) - PlainFloorDiv(PlainLinear(e), 60))
        << e << " " << d;
    ASSERT_EQ(DateDiffDays(e, d), p.day - Plain(e).day) << e << " " << d;
    char text[9] = {};
    FormatTimeTo(d, text);
    char plain[16];
    std::snprintf(plain, sizeof plain, "%02d:%02d:%02d", static_cast<int>(p.second / 3600),
                  static_cast<int>(p.second / 60 % 60), static_cast<int>(p.second % 60));
    ASSERT_EQ(std::string(text, 8), plain) << d;
  }
}

}  // namespace
}  // namespace vb
