// The daily summary: the counts of a site's day go into its "DaySum" record when the day ends
// (the record itself is the database's: Database::WriteDaySummaryRecord).
#pragma once

#include <string_view>

#include "analysis/AnalysisCounters.h"
#include "database/Database.h"

namespace analysis {

// Writes the counts of `site` under the remembered day `day` and sets the site's seven day
// counters to 0. Does nothing when `day` is kNoDay. An existing record of the same site and day
// is overwritten (not added to); otherwise a record is appended. The table status goes to the
// database's last status. Failures of the table are logged under "Engine.WriteDaySummary" and
// the counters are still reset. Never throws.
void WriteDaySummary(database::Database& db, std::string_view siteName, vb::Date day,
                     SiteRunState& site);

}  // namespace analysis
