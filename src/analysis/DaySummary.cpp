// The daily summary (see DaySummary.h).
#include "analysis/DaySummary.h"

namespace analysis {

void WriteDaySummary(database::Database& db, std::string_view siteName, vb::Date day,
                     SiteRunState& site) {
  // 1. No day yet: nothing to write.
  if (day == kNoDay) return;
  // 2. The record of the day.
  database::DayCounts counts;
  counts.visitors = site.visitorsToday;
  counts.alerts = site.alertsToday;
  counts.spiders = site.spidersToday;
  counts.exceptions = site.exceptionsToday;
  counts.downloads = site.downloadsToday;
  db.WriteDaySummaryRecord(siteName, day, counts);
  // 3. The day starts again from zero.
  site.visitorsToday = site.alertsToday = site.spidersToday = 0;
  site.exceptionsToday = site.downloadsToday = 0;
  site.exceptionsTodayUnwritten = site.otherToday = 0;
}

}  // namespace analysis
