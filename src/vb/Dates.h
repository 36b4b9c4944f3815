// Dates as the run-time keeps them: a double counting days from 1899-12-30, with the time of day
// as the fraction. Calendar arithmetic is done on whole integers (proleptic Gregorian calendar),
// never through the C library's local-time functions, so results do not depend on the machine.
#pragma once

#include <cstdint>
#include <string_view>

namespace vb {

using Date = double;

// The date year-month-day at midnight. A month outside 1..12 moves the year (month 13 is January
// of the next year, month 0 December of the previous), and a day outside the month counts on from
// the first of the month (day 0 is the last day of the previous month). Years 0..29 mean 2000..2029
// and 30..99 mean 1930..1999. REQUIRES: the result lies in years 100..9999, else Failure(5).
Date DateSerial(int year, int month, int day);

// The time of day as a fraction of a day; out-of-range parts carry over (minute 60 is the next
// hour). A negative total gives a negative fraction, as the run-time does.
Date TimeSerial(int hour, int minute, int second);

struct DateParts {
  int year, month, day, hour, minute, second;
};

// The calendar parts of `d`, rounded to the nearest second first (so 23:59:59.6 is the next day).
// Before the epoch the fraction is the time of day (-1.25 is 1899-12-29 06:00), as the run-time
// reads such dates. NaN, infinities and values beyond +-1e8 days read as the epoch, 1899-12-30.
DateParts Split(Date d);
// The time of day of `d` in whole seconds (0..86399), exactly as Split gives hour, minute and
// second, without the calendar.
int32_t SecondOfDay(Date d);
int Year(Date d);
int Month(Date d);
int Day(Date d);
int Hour(Date d);
int Minute(Date d);
int Second(Date d);
// Day of the week, 1 = Sunday .. 7 = Saturday.
int Weekday(Date d);

// Reads a date and/or time. Accepted date forms: "yyyy-mm-dd", "yyyy/mm/dd", "dd/Mon/yyyy",
// "d/m/yyyy", "d-m-yyyy", "d.m.yyyy", "d Mon yyyy", "Mon d yyyy", "d-Mon-yyyy"; a two-digit year
// follows DateSerial's rule. Numeric d/m/y is read day first; when the first number cannot be a
// day with the second as month (second > 12) but the swap is a valid date, it is read month first.
// The time "h:mm[:ss]" with optional "AM"/"PM" may follow the date after blanks, or stand alone
// (the date part is then 0). Surrounding blanks are allowed. Returns false (out untouched) for
// anything else, including an impossible date such as 31/02/2020.
bool TryCDate(std::string_view text, Date& out);
// TryCDate, or Failure(13) "Type mismatch".
Date CDate(std::string_view text);
// The date part of CDate(text) (whole days). Failure(13) when not a date.
Date DateValue(std::string_view text);
// The time-of-day part of CDate(text) (the fraction). Failure(13) when not a date/time.
Date TimeValue(std::string_view text);

// Number of minute boundaries crossed going from `from` to `to` (10:00:59 -> 10:01:00 is 1,
// 10:00:00 -> 10:00:59 is 0); negative when `to` is earlier. Both are rounded to whole seconds
// first so day fractions never cause an off-by-one minute.
int64_t DateDiffMinutes(Date from, Date to);
// Same for whole days (midnights crossed).
int64_t DateDiffDays(Date from, Date to);
// Same for seconds.
int64_t DateDiffSeconds(Date from, Date to);

// `d` plus a number of minutes, exact to the second.
Date DateAddMinutes(Date d, int64_t minutes);

// Fast parsers for per-line use: no allocation, no exceptions. Each requires the whole of `s` to
// match (no surrounding blanks) and returns false, out untouched, otherwise.
// "yyyy-mm-dd", a real calendar date.
bool ParseIsoDate(std::string_view s, Date& out);
// "hh:mm:ss" or "hh:mm" (one- or two-digit hour), hour 0..23, minute and second 0..59; the result
// is the fraction of a day.
bool ParseTimeOfDay(std::string_view s, Date& out);
// "dd/Mon/yyyy" with an English three-letter month name in any case, a real calendar date.
bool ParseDayMonYear(std::string_view s, Date& out);

// Day count of a civil date (no normalising; month 1..12, day 1..31 assumed). Exposed for callers
// that build dates from parts they have already checked.
int64_t DaysFromCivil(int year, int month, int day);
// Inverse of DaysFromCivil.
void CivilFromDays(int64_t days, int& year, int& month, int& day);

}  // namespace vb
