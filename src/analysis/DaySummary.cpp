// The daily summary (see DaySummary.h).
#include "analysis/DaySummary.h"

#include <cmath>
#include <exception>

#include "startup/ErrorLog.h"
#include "vb/Format.h"

namespace analysis {

void WriteDaySummary(database::F& f, startup::ErrorLog& errors, std::string_view siteName,
                     vb::Date day, SiteRunState& site) {
  // 1. No day yet: nothing to write.
  if (day == kNoDay) return;
  try {
    dbase::Table& t = f.VADAY;
    // 2. The key: the site's name fixed to 20 characters, then the day as "yyyymmdd".
    char key[28];
    const size_t n = std::min<size_t>(siteName.size(), 20);
    std::fill(key, key + 20, ' ');
    std::copy_n(siteName.data(), n, key);
    vb::FormatYmdTo(day, key + 20);
    // 3. Seek it; a miss starts a blank record, a hit is updated in place.
    const bool found = t.SeekKey(std::string_view(key, sizeof key)) == 0;
    if (!found) t.BlankRecord();
    // 4. The fields.
    t.SetText("Site", std::string_view(key, 20));
    t.SetDate("Dated", std::floor(day));
    t.SetNumber("Visitors", site.visitorsToday);
    t.SetNumber("Alerts", site.alertsToday);
    t.SetNumber("Spiders", site.spidersToday);
    t.SetNumber("Exceptions", site.exceptionsToday);
    t.SetNumber("Downloads", site.downloadsToday);
    // 5. Append or write back.
    f.SetLastStatus(found ? t.ReplaceRecord() : t.AppendRecord());
  } catch (const std::exception& e) {
    errors.LogError("Engine.WriteDaySummary", e);
  }
  // 6. The day starts again from zero.
  site.visitorsToday = site.alertsToday = site.spidersToday = 0;
  site.exceptionsToday = site.downloadsToday = 0;
  site.exceptionsToday2 = site.otherToday = 0;
}

}  // namespace analysis
