// Calendar arithmetic on run-time dates (days from 1899-12-30 plus a fraction of a day), and the
// date/time text readers.
#include "vb/Dates.h"

#include <cmath>
#include <cstdint>

#include "vb/Failure.h"

namespace vb {
namespace {

constexpr int64_t kSecondsPerDay = 86400;
// Days from 1970-01-01 to 1899-12-30.
constexpr int64_t kEpochShift = 25569;

bool IsLeap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int DaysInMonth(int y, int m) {
  static constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return (m == 2 && IsLeap(y)) ? 29 : kDays[m - 1];
}

bool ValidCivil(int y, int m, int d) {
  return y >= 100 && y <= 9999 && m >= 1 && m <= 12 && d >= 1 && d <= DaysInMonth(y, m);
}

// Two-digit years: 0..29 are 2000..2029, 30..99 are 1930..1999.
int WindowYear(int y) {
  if (y >= 0 && y < 30) return y + 2000;
  if (y >= 30 && y < 100) return y + 1900;
  return y;
}

// A date as (calendar day, second of that day), rounded to the nearest second. A negative date
// keeps its time of day as the magnitude of the fraction (-1.25 is 1899-12-29 06:00), which is how
// the run-time reads dates before its epoch.
struct DaySecond {
  int64_t day;
  int64_t second;
};

inline DaySecond ToDaySecond(Date d) {
  double frac;
  int64_t day;
  if (d >= 0 && d <= 1e8) {
    // The dates of the logs (day 0 onwards): the integer conversion is the truncation and the
    // fraction is not negative, the same numbers as below without the library's truncation.
    day = static_cast<int64_t>(d);
    frac = d - static_cast<double>(day);
  } else {
    // Far outside the calendar (years 100..9999 are about +-3 million days) a value is garbage;
    // it reads as the epoch rather than overflowing the integer arithmetic.
    if (!std::isfinite(d) || std::fabs(d) > 1e8) return {0, 0};
    const double whole = std::trunc(d);
    frac = std::fabs(d - whole);
    day = static_cast<int64_t>(whole);
  }
  // Rounded half away from zero (as llround does) without a library call: the fraction of a
  // non-negative number below 2^52 is exact.
  const double seconds = frac * kSecondsPerDay;
  int64_t sec = static_cast<int64_t>(seconds);
  if (seconds - static_cast<double>(sec) >= 0.5) ++sec;
  if (sec >= kSecondsPerDay) {
    sec -= kSecondsPerDay;
    day += 1;
  }
  return {day, sec};
}

// Seconds since the epoch on a straight time line (no sign quirk).
int64_t LinearSeconds(Date d) {
  const DaySecond ds = ToDaySecond(d);
  return ds.day * kSecondsPerDay + ds.second;
}

int64_t FloorDiv(int64_t a, int64_t b) {
  if (a >= 0 && b > 0) return a / b;  // the usual case: no rounding toward zero to undo
  int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

Date FromLinearSeconds(int64_t total) {
  const int64_t day = FloorDiv(total, kSecondsPerDay);
  const int64_t sec = total - day * kSecondsPerDay;
  const double frac = static_cast<double>(sec) / kSecondsPerDay;
  return day >= 0 ? static_cast<double>(day) + frac : static_cast<double>(day) - frac;
}

// Combines a whole-day date and a time of day (both as the run-time keeps them) the way the
// run-time's date + time addition ends up: the time extends away from zero for negative dates.
Date Combine(Date day, Date time) { return day >= 0 ? day + time : day - time; }

bool Digit(char c) { return c >= '0' && c <= '9'; }

// Reads 1..maxDigits digits at s[i]; advances i. Returns false when there is no digit.
bool ReadNumber(std::string_view s, size_t& i, int maxDigits, int& value, int& digits) {
  value = 0;
  digits = 0;
  while (i < s.size() && Digit(s[i]) && digits < maxDigits) {
    value = value * 10 + (s[i] - '0');
    ++i;
    ++digits;
  }
  return digits > 0;
}

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Month number (1..12) of an English three-letter abbreviation, any case; 0 when none.
int MonthAbbrev(const char* p) {
  const char a = Lower(p[0]), b = Lower(p[1]), c = Lower(p[2]);
  switch (a) {
    case 'j':
      if (b == 'a' && c == 'n') return 1;
      if (b == 'u' && c == 'n') return 6;
      if (b == 'u' && c == 'l') return 7;
      return 0;
    case 'f': return (b == 'e' && c == 'b') ? 2 : 0;
    case 'm':
      if (b == 'a' && c == 'r') return 3;
      if (b == 'a' && c == 'y') return 5;
      return 0;
    case 'a':
      if (b == 'p' && c == 'r') return 4;
      if (b == 'u' && c == 'g') return 8;
      return 0;
    case 's': return (b == 'e' && c == 'p') ? 9 : 0;
    case 'o': return (b == 'c' && c == 't') ? 10 : 0;
    case 'n': return (b == 'o' && c == 'v') ? 11 : 0;
    case 'd': return (b == 'e' && c == 'c') ? 12 : 0;
    default: return 0;
  }
}

// Month number of a full or abbreviated English month name ("Nov", "november", "Sept"), 0 if none.
int MonthName(std::string_view w) {
  static constexpr std::string_view kNames[12] = {"january", "february", "march",     "april",
                                                  "may",     "june",     "july",      "august",
                                                  "september", "october", "november", "december"};
  if (w.size() < 3) return 0;
  const int m = MonthAbbrev(w.data());
  if (m == 0) return 0;
  if (w.size() == 3) return m;
  if (m == 9 && w.size() == 4 && Lower(w[3]) == 't') return 9;  // "Sept"
  const std::string_view full = kNames[m - 1];
  if (w.size() != full.size()) return 0;
  for (size_t i = 0; i < w.size(); ++i) {
    if (Lower(w[i]) != full[i]) return 0;
  }
  return m;
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// Reads "h:mm[:ss] [AM|PM|A|P]" filling the whole of s. Result: fraction of a day.
bool ParseTimeText(std::string_view s, Date& out) {
  size_t i = 0;
  int h, m, sec = 0, digits;
  if (!ReadNumber(s, i, 2, h, digits)) return false;
  if (i >= s.size() || s[i] != ':') return false;
  ++i;
  if (!ReadNumber(s, i, 2, m, digits)) return false;
  if (i < s.size() && s[i] == ':') {
    ++i;
    if (!ReadNumber(s, i, 2, sec, digits)) return false;
  }
  while (i < s.size() && IsBlank(s[i])) ++i;
  if (i < s.size()) {
    const std::string_view rest = s.substr(i);
    bool pm;
    if (rest.size() == 2 && Lower(rest[1]) == 'm' && (Lower(rest[0]) == 'a' || Lower(rest[0]) == 'p')) {
      pm = Lower(rest[0]) == 'p';
    } else if (rest.size() == 1 && (Lower(rest[0]) == 'a' || Lower(rest[0]) == 'p')) {
      pm = Lower(rest[0]) == 'p';
    } else {
      return false;
    }
    if (h < 1 || h > 12) return false;
    if (h == 12) h = 0;
    if (pm) h += 12;
  }
  if (h > 23 || m > 59 || sec > 59) return false;
  out = static_cast<double>(h * 3600 + m * 60 + sec) / kSecondsPerDay;
  return true;
}

// A token of a date text: a number (with its digit count) or a word.
struct Token {
  bool number;
  int value;
  int digits;
  std::string_view word;
};

bool MakeDate(int y, int m, int d, bool windowYear, Date& out) {
  if (windowYear) y = WindowYear(y);
  if (!ValidCivil(y, m, d)) return false;
  out = static_cast<double>(DaysFromCivil(y, m, d));
  return true;
}

// Reads the date part: tokens separated by "/", "-", ".", ",", or blanks.
bool ParseDateText(std::string_view s, Date& out) {
  Token tokens[3];
  char seps[2] = {0, 0};
  int count = 0;
  size_t i = 0;
  while (i < s.size()) {
    if (count == 3) return false;
    Token t{};
    if (Digit(s[i])) {
      int v = 0, digits = 0;
      while (i < s.size() && Digit(s[i])) {
        if (digits >= 4) return false;
        v = v * 10 + (s[i] - '0');
        ++digits;
        ++i;
      }
      t = Token{true, v, digits, {}};
    } else if ((s[i] >= 'A' && s[i] <= 'Z') || (s[i] >= 'a' && s[i] <= 'z')) {
      const size_t b = i;
      while (i < s.size() && ((s[i] >= 'A' && s[i] <= 'Z') || (s[i] >= 'a' && s[i] <= 'z'))) ++i;
      t = Token{false, 0, 0, s.substr(b, i - b)};
      if (i < s.size() && s[i] == '.') ++i;  // "Nov." abbreviations
    } else {
      return false;
    }
    tokens[count++] = t;
    // Separator: one of "/-.," optionally surrounded by blanks, or blanks alone.
    size_t j = i;
    while (j < s.size() && IsBlank(s[j])) ++j;
    char sep = ' ';
    if (j < s.size() && (s[j] == '/' || s[j] == '-' || s[j] == '.' || s[j] == ',')) {
      sep = s[j++];
      while (j < s.size() && IsBlank(s[j])) ++j;
    } else if (j == i && j < s.size()) {
      return false;  // two tokens run together ("12Nov")
    }
    if (j >= s.size()) {
      if (sep != ' ' && sep != ',' && sep != '.') return false;  // trailing "/" or "-"
      i = j;
      break;
    }
    if (count <= 2) seps[count - 1] = sep;
    i = j;
  }
  if (count != 3) return false;

  const Token &a = tokens[0], &b = tokens[1], &c = tokens[2];
  if (a.number && b.number && c.number) {
    if (seps[0] != seps[1]) return false;
    // yyyy-mm-dd (a first number that cannot be a day is a year).
    if (a.digits >= 3 || a.value > 31) {
      return MakeDate(a.value, b.value, c.value, a.digits <= 2, out);
    }
    // Day first; when the second number cannot be a month but the first can, month first.
    if (b.value > 12 && a.value <= 12) {
      return MakeDate(c.value, a.value, b.value, c.digits <= 2, out);
    }
    return MakeDate(c.value, b.value, a.value, c.digits <= 2, out);
  }
  if (a.number && !b.number && c.number) {  // 16/Nov/2026, 16 Nov 2026, 16-Nov-26
    const int m = MonthName(b.word);
    return m != 0 && MakeDate(c.value, m, a.value, c.digits <= 2, out);
  }
  if (!a.number && b.number && c.number) {  // Nov 16 2026, Nov 16, 2026
    const int m = MonthName(a.word);
    return m != 0 && MakeDate(c.value, m, b.value, c.digits <= 2, out);
  }
  return false;
}

}  // namespace

int64_t DaysFromCivil(int year, int month, int day) {
  const int64_t y = static_cast<int64_t>(year) - (month <= 2 ? 1 : 0);
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t mp = (month + 9) % 12;
  const int64_t doy = (153 * mp + 2) / 5 + day - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468 + kEpochShift;
}

void CivilFromDays(int64_t days, int& year, int& month, int& day) {
  const int64_t z = days - kEpochShift + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int>(yoe + era * 400 + (month <= 2 ? 1 : 0));
}

Date DateSerial(int year, int month, int day) {
  int64_t y = WindowYear(year);
  int64_t m0 = static_cast<int64_t>(month) - 1;
  y += FloorDiv(m0, 12);
  m0 -= FloorDiv(m0, 12) * 12;
  if (y < 100 || y > 9999) Raise(kInvalidCall);
  const int64_t days = DaysFromCivil(static_cast<int>(y), static_cast<int>(m0 + 1), 1) + day - 1;
  int ry, rm, rd;
  CivilFromDays(days, ry, rm, rd);
  if (ry < 100 || ry > 9999) Raise(kInvalidCall);
  return static_cast<double>(days);
}

Date TimeSerial(int hour, int minute, int second) {
  const int64_t total = static_cast<int64_t>(hour) * 3600 + static_cast<int64_t>(minute) * 60 + second;
  return static_cast<double>(total) / kSecondsPerDay;
}

DateParts Split(Date d) {
  const DaySecond ds = ToDaySecond(d);
  DateParts p{};
  CivilFromDays(ds.day, p.year, p.month, p.day);
  p.hour = static_cast<int>(ds.second / 3600);
  p.minute = static_cast<int>(ds.second / 60 % 60);
  p.second = static_cast<int>(ds.second % 60);
  return p;
}

int32_t SecondOfDay(Date d) { return static_cast<int32_t>(ToDaySecond(d).second); }

int Year(Date d) { return Split(d).year; }
int Month(Date d) { return Split(d).month; }
int Day(Date d) { return Split(d).day; }
int Hour(Date d) { return Split(d).hour; }
int Minute(Date d) { return Split(d).minute; }
int Second(Date d) { return Split(d).second; }

int Weekday(Date d) {
  const int64_t day = ToDaySecond(d).day;
  // Day 0 (1899-12-30) was a Saturday.
  return static_cast<int>(((day % 7) + 7 + 6) % 7) + 1;
}

bool TryCDate(std::string_view text, Date& out) {
  size_t b = 0, e = text.size();
  while (b < e && IsBlank(text[b])) ++b;
  while (e > b && IsBlank(text[e - 1])) --e;
  const std::string_view s = text.substr(b, e - b);
  if (s.empty()) return false;

  // The time part starts at the hour (one or two digits) in front of the first ":" that has one;
  // a year in front of a ":" ("16/Nov/2026:10:00:00") belongs to the date.
  size_t colon = s.find(':');
  if (colon == std::string_view::npos) return ParseDateText(s, out);
  size_t timeStart;
  for (;;) {
    timeStart = colon;
    while (timeStart > 0 && Digit(s[timeStart - 1])) --timeStart;
    if (timeStart == colon) return false;
    if (colon - timeStart <= 2) break;
    colon = s.find(':', colon + 1);
    if (colon == std::string_view::npos) return false;
  }
  Date time;
  if (!ParseTimeText(s.substr(timeStart), time)) return false;
  std::string_view datePart = s.substr(0, timeStart);
  while (!datePart.empty() && IsBlank(datePart.back())) datePart.remove_suffix(1);
  if (datePart.empty()) {
    out = time;
    return true;
  }
  // The date must be set off from the time by blanks (or by the ":" of "16/Nov/2026:10:00:00").
  if (datePart.size() == timeStart && datePart.back() == ':') datePart.remove_suffix(1);
  else if (datePart.size() == timeStart) return false;
  Date day;
  if (!ParseDateText(datePart, day)) return false;
  out = Combine(day, time);
  return true;
}

Date CDate(std::string_view text) {
  Date d;
  if (!TryCDate(text, d)) Raise(kTypeMismatch);
  return d;
}

Date DateValue(std::string_view text) {
  return static_cast<double>(ToDaySecond(CDate(text)).day);
}

Date TimeValue(std::string_view text) {
  return static_cast<double>(ToDaySecond(CDate(text)).second) / kSecondsPerDay;
}

int64_t DateDiffMinutes(Date from, Date to) {
  return FloorDiv(LinearSeconds(to), 60) - FloorDiv(LinearSeconds(from), 60);
}

int64_t DateDiffDays(Date from, Date to) { return ToDaySecond(to).day - ToDaySecond(from).day; }

int64_t DateDiffSeconds(Date from, Date to) { return LinearSeconds(to) - LinearSeconds(from); }

Date DateAddMinutes(Date d, int64_t minutes) {
  return FromLinearSeconds(LinearSeconds(d) + minutes * 60);
}

bool ParseIsoDate(std::string_view s, Date& out) {
  if (s.size() != 10 || s[4] != '-' || s[7] != '-') return false;
  for (size_t i : {0, 1, 2, 3, 5, 6, 8, 9}) {
    if (!Digit(s[i])) return false;
  }
  const int y = (s[0] - '0') * 1000 + (s[1] - '0') * 100 + (s[2] - '0') * 10 + (s[3] - '0');
  const int m = (s[5] - '0') * 10 + (s[6] - '0');
  const int d = (s[8] - '0') * 10 + (s[9] - '0');
  if (!ValidCivil(y, m, d)) return false;
  out = static_cast<double>(DaysFromCivil(y, m, d));
  return true;
}

bool ParseTimeOfDay(std::string_view s, Date& out) {
  // "hh:mm:ss", as nearly every log and record writes its times: its digits are checked at once
  // rather than read one by one. Anything else (including an out-of-range part, which the reading
  // below rejects too) takes the general reading.
  if (s.size() == 8 && s[2] == ':' && s[5] == ':') {
    auto digit = [&](size_t i) { return static_cast<unsigned>(s[i]) - unsigned{'0'}; };
    const unsigned h1 = digit(0), h2 = digit(1), m1 = digit(3), m2 = digit(4), s1 = digit(6),
                   s2 = digit(7);
    if (h1 <= 9 && h2 <= 9 && m1 <= 9 && m2 <= 9 && s1 <= 9 && s2 <= 9) {
      const unsigned h = h1 * 10 + h2, m = m1 * 10 + m2, sec = s1 * 10 + s2;
      if (h <= 23 && m <= 59 && sec <= 59) {
        out = static_cast<double>(static_cast<int>(h * 3600 + m * 60 + sec)) / kSecondsPerDay;
        return true;
      }
    }
  }
  size_t i = 0;
  int h, m, sec = 0, digits;
  if (!ReadNumber(s, i, 2, h, digits)) return false;
  if (i >= s.size() || s[i] != ':') return false;
  ++i;
  if (!ReadNumber(s, i, 2, m, digits) || digits != 2) return false;
  if (i < s.size()) {
    if (s[i] != ':') return false;
    ++i;
    if (!ReadNumber(s, i, 2, sec, digits) || digits != 2) return false;
    if (i != s.size()) return false;
  }
  if (h > 23 || m > 59 || sec > 59) return false;
  out = static_cast<double>(h * 3600 + m * 60 + sec) / kSecondsPerDay;
  return true;
}

bool ParseDayMonYear(std::string_view s, Date& out) {
  if (s.size() != 11 || s[2] != '/' || s[6] != '/') return false;
  if (!Digit(s[0]) || !Digit(s[1])) return false;
  for (size_t i = 7; i < 11; ++i) {
    if (!Digit(s[i])) return false;
  }
  const int m = MonthAbbrev(s.data() + 3);
  if (m == 0) return false;
  const int d = (s[0] - '0') * 10 + (s[1] - '0');
  const int y = (s[7] - '0') * 1000 + (s[8] - '0') * 100 + (s[9] - '0') * 10 + (s[10] - '0');
  if (!ValidCivil(y, m, d)) return false;
  out = static_cast<double>(DaysFromCivil(y, m, d));
  return true;
}

}  // namespace vb
