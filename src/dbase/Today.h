// The date the table files' headers carry: a date fixed by the caller, or today, in UTC.
#pragma once

namespace dbase {

// Today's date in UTC (file header dates; no local-time functions).
void TodayUtc(int& year, int& month, int& day);

// The date written into the headers of a table's files (the .DBF's last-update date, the .MDX's
// dates): a fixed date, so that two runs over the same input write the same bytes, or, when
// none is set (year 0), today's date in UTC.
struct HeaderDate {
  int year = 0;
  int month = 0;
  int day = 0;
  // The date to write: this one when set, else today (TodayUtc).
  void Resolve(int& y, int& m, int& d) const;
};

}  // namespace dbase
