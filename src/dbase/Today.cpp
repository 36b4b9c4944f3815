// Today's date for the table files' headers, from the system clock in UTC.
#include "dbase/Today.h"

#include <chrono>
#include <cstdint>

#include "vb/Dates.h"

namespace dbase {

// Days from 1970-01-01 to the day counts' origin, 1899-12-30.
static constexpr int64_t kDays1899To1970 = 25569;

void TodayUtc(int& year, int& month, int& day) {
  using namespace std::chrono;
  int64_t secs = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
  int64_t d = secs / 86400 - (secs % 86400 < 0 ? 1 : 0);
  vb::CivilFromDays(d + kDays1899To1970, year, month, day);
}

void HeaderDate::Resolve(int& y, int& m, int& d) const {
  if (year == 0) {
    TodayUtc(y, m, d);
  } else {
    y = year;
    m = month;
    d = day;
  }
}

}  // namespace dbase
