// The daily summary: one "DaySum" record per site and day with the day's counts.
//
// "DaySum" record as written here (the table's layout is the database's):
//   FIELD      | TYPE | DESCRIPTION
//   Site       | C 20 | the site's name, left-aligned, blank-padded, cut at 20
//   Dated      | D 8  | the day summarised
//   Visitors   | N 5  | visits opened that day
//   Alerts     | N 5  | visits that matched an alert definition
//   Spiders    | N 5  | spider visits
//   Exceptions | N 5  | exceptions recorded
//   Downloads  | N 5  | downloads recorded
// Key (tag key0): Site (20) + Dated as "yyyymmdd".
#pragma once

#include <string_view>

#include "analysis/RunState.h"
#include "database/F.h"
#include "startup/ErrorLog.h"

namespace analysis {

// Writes the counts of `site` under the remembered day `day` and sets the site's seven day
// counters to 0. Does nothing when `day` is kNoDay. An existing record of the same site and day
// is overwritten (not added to); otherwise a record is appended. The table status goes to F's
// last status. Failures of the table are logged under "Engine.WriteDaySummary" and the counters
// are still reset. Never throws.
void WriteDaySummary(database::F& f, startup::ErrorLog& errors, std::string_view siteName,
                     vb::Date day, SiteRunState& site);

}  // namespace analysis
