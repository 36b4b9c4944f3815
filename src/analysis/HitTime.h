// The date and time of a hit, by the site's log TYPE: the date column's layout, the zone offset of
// the combined format, and the time column.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "startup/LogLayout.h"
#include "vb/Dates.h"

namespace analysis {

// What the date and time rules remember from one hit to the next. One instance serves the whole
// run: a value that cannot be read from a line stays as the previous hit left it, and the zone
// offset is only changed by the comma and combined layouts (TYPE 1, 2 and 3), so it carries over
// to later sites.
struct HitClock {
  vb::Date hitDate = 0;       // whole days: the date of the latest hit
  vb::Date timeOfDay = 0;     // fraction of a day: the latest time of day read
  int32_t offsetSeconds = 0;  // zone offset added to the hit time when not 0
  // False when the latest hit's date column could not be read (a blank line, a line of blanks,
  // text that is no date): its date is then the previous hit's, which is no date of its own.
  bool dateRead = true;
  // The last time text and year-month-day text read and their values: consecutive lines nearly
  // always repeat them. Used only for texts that were read successfully.
  char timeText[8] = {};
  size_t timeLength = 0;  // 0 = nothing remembered
  vb::Date timeValue = 0;
  char dateText[10] = {};
  bool dateKnown = false;
  vb::Date dateValue = 0;
};

// Reads the hit's date and time into `clock` and returns the hit time (date + time of day, plus
// the offset in seconds when it is not 0).
// - `dateField` absent (the log has no date column): the date is the date part of
//   `siteCurrentHitTime`; the offset stays.
// - Combined (TYPE 2): "[dd/Mon/yyyy:hh:mm:ss": the first character is dropped, 11 characters
//   are the date and the 8 from the 13th are the time of day; `zoneField` (the next field, e.g.
//   "-0700]") is cut to 5 characters when longer than 4, read as a number, divided by 100,
//   rounded half to even to whole hours and times 3,600 gives the offset.
// - CommaShort or CommaLong (TYPE 1 or 3): month/day/year; the offset becomes 0.
// - any other layout: year-month-day; the offset stays.
// Then, when `timeField` is present, the time of day is read from it (overriding the combined
// date's time). A part that cannot be read keeps its previous value (hit date, time of day or
// offset); nothing throws. Allocates nothing.
vb::Date ReadHitTime(HitClock& clock, startup::LogLayout layout,
                     std::optional<std::string_view> dateField, std::string_view zoneField,
                     std::optional<std::string_view> timeField, vb::Date siteCurrentHitTime);

// Whether vb::DateDiffMinutes(from, to) > limit, with the same answer in every case. Two dates of
// the ordinary calendar (0 <= date <= 1e8) that lie less than limit - 1 minutes apart answer
// without the minute arithmetic: the whole minutes between them are at most their real distance
// plus one. This is the test that every hit makes against the sweep and visit time-outs.
// Inline: every hit asks it twice.
inline bool MinutesExceed(vb::Date from, vb::Date to, int64_t limit) {
  // Each date is rounded to whole seconds before its minute is taken, so the whole minutes from
  // `from` to `to` never exceed the real minutes between them plus one; the small margin covers
  // the rounding of the subtraction. Dates before day 0 or far beyond the calendar count time
  // their own way and take the full arithmetic.
  constexpr vb::Date kPlainLimit = 1e8;
  if (from >= 0 && to >= 0 && from <= kPlainLimit && to <= kPlainLimit &&
      (to - from) * 1440.0 + 1.001 < static_cast<double>(limit))
    return false;
  return vb::DateDiffMinutes(from, to) > limit;
}

}  // namespace analysis
