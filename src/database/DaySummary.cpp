// The visitor database: the day summaries, one "DaySum" record per site and day.
//
// "DaySum" record as written here (the table's layout is in Schema.h):
//   FIELD      | TYPE | DESCRIPTION
//   Site       | C 20 | the site's name, left-aligned, blank-padded, cut at 20
//   Dated      | D 8  | the day summarised
//   Visitors   | N 5  | visits opened that day
//   Alerts     | N 5  | visits that matched an alert definition
//   Spiders    | N 5  | spider visits
//   Exceptions | N 5  | exceptions recorded
//   Downloads  | N 5  | downloads recorded
// Key (tag key0): Site (20) + Dated as "yyyymmdd".
#include <algorithm>
#include <cmath>
#include <exception>

#include "database/Database.h"
#include "vb/Format.h"

namespace database {

void Database::WriteDaySummaryRecord(std::string_view siteName, vb::Date day,
                                     const DayCounts& counts) {
  try {
    dbase::Table& t = VADAY;
    // 1. The key: the site's name fixed to 20 characters, then the day as "yyyymmdd".
    char key[28];
    const size_t n = std::min<size_t>(siteName.size(), 20);
    std::fill(key, key + 20, ' ');
    std::copy_n(siteName.data(), n, key);
    vb::FormatYmdTo(day, key + 20);
    // 2. Seek it; a miss starts a blank record, a hit is updated in place.
    const bool found = t.SeekKey(std::string_view(key, sizeof key)) == 0;
    if (!found) t.BlankRecord();
    // 3. The fields.
    t.SetText("Site", std::string_view(key, 20));
    t.SetDate("Dated", std::floor(day));
    t.SetNumber("Visitors", counts.visitors);
    t.SetNumber("Alerts", counts.alerts);
    t.SetNumber("Spiders", counts.spiders);
    t.SetNumber("Exceptions", counts.exceptions);
    t.SetNumber("Downloads", counts.downloads);
    // 4. Append or write back.
    lastStatus_ = found ? t.ReplaceRecord() : t.AppendRecord();
  } catch (const std::exception& e) {
    LogFailure("Engine.WriteDaySummary", e);
  }
}

}  // namespace database
