// The date and time rules of each log TYPE (see HitTime.h).
#include "analysis/HitTime.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "analysis/Text.h"
#include "vb/Convert.h"
#include "vb/Failure.h"
#include "vb/Strings.h"

namespace analysis {
namespace {

// A whole number as the strict conversion reads it (blanks around, a sign, digits, decimals are
// rounded half to even), or nullopt.
std::optional<int> ReadWhole(std::string_view s) {
  try {
    if (!vb::IsNumeric(s)) return std::nullopt;
    return vb::CInt(vb::CDbl(s));
  } catch (const vb::Failure&) {
    return std::nullopt;
  }
}

// Splits `s` at `sep` into exactly three parts; false when there are fewer.
bool SplitThree(std::string_view s, char sep, std::string_view parts[3]) {
  for (int i = 0; i < 2; ++i) {
    size_t p = s.find(sep);
    if (p == std::string_view::npos) return false;
    parts[i] = s.substr(0, p);
    s.remove_prefix(p + 1);
  }
  // Any further separators belong to the third part, which then fails to convert.
  parts[2] = s;
  return true;
}

// DateSerial from three text parts, or nullopt when a part is no number or the date is out of
// range.
std::optional<vb::Date> DateFromParts(std::string_view y, std::string_view m, std::string_view d) {
  auto year = ReadWhole(y), month = ReadWhole(m), day = ReadWhole(d);
  if (!year || !month || !day) return std::nullopt;
  try {
    return vb::DateSerial(*year, *month, *day);
  } catch (const vb::Failure&) {
    return std::nullopt;
  }
}

bool ReadTime(HitClock& clock, std::string_view s, vb::Date& out) {
  if (s.size() == clock.timeLength) {
    // The usual eight characters compare as one word.
    bool same;
    if (s.size() == sizeof(uint64_t)) {
      uint64_t a, b;
      std::memcpy(&a, s.data(), sizeof a);
      std::memcpy(&b, clock.timeText, sizeof b);
      same = a == b;
    } else {
      same = std::memcmp(s.data(), clock.timeText, s.size()) == 0;
    }
    if (same) {
      out = clock.timeValue;
      return true;
    }
  }
  if (vb::ParseTimeOfDay(s, out)) {  // reads "hh:mm:ss" at once
    if (!s.empty() && s.size() <= sizeof clock.timeText) {
      std::memcpy(clock.timeText, s.data(), s.size());
      clock.timeLength = s.size();
      clock.timeValue = out;
    }
    return true;
  }
  vb::Date any;
  if (!vb::TryCDate(vb::Trim(s), any)) return false;
  out = any - std::floor(any);
  return true;
}

// Returns false when the date part could not be read (the previous date then stays).
bool ReadCombinedDate(HitClock& clock, std::string_view field, std::string_view zone) {
  // "[10/Oct/2000:13:55:36": drop the "[", the next 11 characters are the date, the 8 from the
  // 13th the time.
  std::string_view rest = field.empty() ? field : field.substr(1);
  std::string_view date = rest.substr(0, std::min<size_t>(11, rest.size()));
  std::string_view time = rest.size() > 12 ? rest.substr(12, 8) : std::string_view{};
  vb::Date d;
  bool read = true;
  if (vb::ParseDayMonYear(date, d)) {
    clock.hitDate = d;
  } else if (vb::TryCDate(vb::Trim(date), d)) {
    clock.hitDate = std::floor(d);
  } else {
    read = false;
  }
  ReadTime(clock, time, clock.timeOfDay);
  // The zone "-0700]" is cut to "-0700"; hours are rounded half to even, so "+0530" gives 5 hours
  // and "+0250" gives 2.
  if (zone.size() > 4) zone = zone.substr(0, 5);
  if (auto hhmm = ReadWhole(zone)) {
    clock.offsetSeconds = static_cast<int32_t>(vb::RoundHalfEven(*hhmm / 100.0)) * 3600;
  }
  return read;
}

}  // namespace

vb::Date ReadHitTime(HitClock& clock, startup::LogLayout layout,
                     std::optional<std::string_view> dateField, std::string_view zoneField,
                     std::optional<std::string_view> timeField, vb::Date siteCurrentHitTime) {
  using startup::LogLayout;
  // 2. Hit date, by the site's TYPE. A date that cannot be read leaves the previous one and is
  //    noted as not read.
  clock.dateRead = true;
  if (!dateField) {
    clock.hitDate = std::floor(siteCurrentHitTime);
  } else if (layout == LogLayout::Combined) {
    clock.dateRead = ReadCombinedDate(clock, *dateField, zoneField);
  } else if (layout == LogLayout::CommaShort || layout == LogLayout::CommaLong) {
    std::string_view p[3];
    if (SplitThree(*dateField, '/', p)) {
      if (auto d = DateFromParts(p[2], p[0], p[1])) clock.hitDate = *d;
      else clock.dateRead = false;
    } else {
      clock.dateRead = false;
    }
    clock.offsetSeconds = 0;
  } else {
    vb::Date d;
    const std::string_view text = *dateField;
    if (clock.dateKnown && text.size() == sizeof clock.dateText &&
        std::memcmp(text.data(), clock.dateText, sizeof clock.dateText) == 0) {
      clock.hitDate = clock.dateValue;
    } else if (vb::ParseIsoDate(text, d)) {
      clock.hitDate = d;
      if (text.size() == sizeof clock.dateText) {
        std::memcpy(clock.dateText, text.data(), sizeof clock.dateText);
        clock.dateKnown = true;
        clock.dateValue = d;
      }
    } else if (std::string_view p[3]; SplitThree(*dateField, '-', p)) {
      if (auto d2 = DateFromParts(p[0], p[1], p[2])) clock.hitDate = *d2;
      else clock.dateRead = false;
    } else {
      clock.dateRead = false;
    }
  }
  // 3. The time column, when there is one, gives the time of day.
  if (timeField) ReadTime(clock, *timeField, clock.timeOfDay);
  // The offset is added in whole seconds to the time of day, so that a hit time is the same
  // number however it was reached (equal times compare equal).
  if (clock.offsetSeconds == 0) return clock.hitDate + clock.timeOfDay;
  const int64_t seconds = std::llround(clock.timeOfDay * 86400.0) + clock.offsetSeconds;
  return clock.hitDate + static_cast<double>(seconds) / 86400.0;
}

}  // namespace analysis
