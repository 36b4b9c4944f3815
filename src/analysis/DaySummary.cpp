// The daily summary (see DaySummary.h).
#include "analysis/DaySummary.h"

namespace analysis {

void WriteDaySummary(database::Database& db, std::string_view siteName, vb::Date day,
                     SiteRunState& site) {
  // 1. No day yet: nothing to write.
  if (day == kNoDay) return;
  // 2. The record of the day.
  db.WriteDaySummaryRecord(siteName, day, site.today);
  // 3. The day starts again from zero.
  site.today = database::DayCounts{};
  site.exceptionsTodayUnwritten = site.otherToday = 0;
}

}  // namespace analysis
