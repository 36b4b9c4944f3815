// The machine's clock and the arithmetic that turns seconds since 1970 into a local date-time.
#include "platform/Clock.h"

#include <ctime>

namespace platform {

namespace {
// Day count of 1970-01-01 in the run-time's date numbering (days from 1899-12-30).
constexpr int64_t kUnixEpochDay = 25569;

// Local seconds since 1970 and the zone offset, both from one reading of the system clock.
struct LocalNow {
  int64_t localSeconds;
  int32_t offsetMinutes;
};

LocalNow ReadLocalNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  // tm_gmtoff already holds the daylight-saving part when daylight time is in force.
  const int64_t gmtoff = local.tm_gmtoff;
  return {static_cast<int64_t>(now) + gmtoff, static_cast<int32_t>(gmtoff / 60)};
}
}  // namespace

vb::Date FromUnixSeconds(int64_t seconds, int32_t offsetMinutes) {
  const int64_t local = seconds + static_cast<int64_t>(offsetMinutes) * 60;
  int64_t days = local / 86400;
  int64_t rest = local % 86400;
  if (rest < 0) {
    rest += 86400;
    days -= 1;
  }
  // Dates before 1899-12-30 never occur here; the fraction is added to the whole day count.
  return static_cast<double>(days + kUnixEpochDay) + static_cast<double>(rest) / 86400.0;
}

vb::Date LocalFromUnixSeconds(int64_t seconds) {
  const std::time_t t = static_cast<std::time_t>(seconds);
  std::tm local{};
  if (localtime_r(&t, &local) == nullptr) return FromUnixSeconds(seconds, 0);
  return FromUnixSeconds(seconds, static_cast<int32_t>(local.tm_gmtoff / 60));
}

vb::Date SystemClock::Now() const {
  const LocalNow now = ReadLocalNow();
  return FromUnixSeconds(now.localSeconds, 0);
}

int32_t SystemClock::TimeZoneOffsetMinutes() const { return ReadLocalNow().offsetMinutes; }

}  // namespace platform
