// The date the table files' headers carry: today, in UTC.
#pragma once

namespace dbase {

// Today's date in UTC (file header dates; no local-time functions).
void TodayUtc(int& year, int& month, int& day);

}  // namespace dbase
