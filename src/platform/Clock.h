// The wall clock as the rest of the system sees it: "now" as a local date-time and the local
// time-zone offset. Injected everywhere, so a run or a test can fix the time. This unit is the one
// place in the system that asks the C library for local time: `SystemClock`, once per call, and
// `LocalFromUnixSeconds` for file times.
#pragma once

#include <cstdint>

#include "vb/Dates.h"

namespace platform {

class Clock {
 public:
  virtual ~Clock() = default;
  // The current local date and time (day count with the time of day as the fraction).
  virtual vb::Date Now() const = 0;
  // Minutes to add to UTC to obtain local time now, daylight saving included (e.g. +60 in
  // central Europe in winter, -300 in New York in winter).
  virtual int32_t TimeZoneOffsetMinutes() const = 0;
};

// The machine's clock. Each call asks the system once; nothing is cached.
class SystemClock final : public Clock {
 public:
  vb::Date Now() const override;
  int32_t TimeZoneOffsetMinutes() const override;
};

// A clock that stands still at a given local time (command-line --now, tests).
class FixedClock final : public Clock {
 public:
  explicit FixedClock(vb::Date now, int32_t timeZoneOffsetMinutes = 0)
      : now_(now), offset_(timeZoneOffsetMinutes) {}
  vb::Date Now() const override { return now_; }
  int32_t TimeZoneOffsetMinutes() const override { return offset_; }
  // Moves the clock (tests that need two different times).
  void Set(vb::Date now) { now_ = now; }

 private:
  vb::Date now_;
  int32_t offset_;
};

// The local date-time that a count of seconds since 1970-01-01 00:00 UTC gives when the zone
// offset is `offsetMinutes` (0 = the UTC date-time itself). Pure arithmetic, no system call.
vb::Date FromUnixSeconds(int64_t seconds, int32_t offsetMinutes = 0);

// The local date-time of a moment given as seconds since 1970-01-01 00:00 UTC, by the system's
// zone rules for that moment (daylight saving included). For file times; asks the system once.
vb::Date LocalFromUnixSeconds(int64_t seconds);

}  // namespace platform
