// The site-level alert pass: after each log file of a site, the exceptions that concern the whole
// site rather than one hit. "More than [value] active visitors" (110, 120) compares the site's
// count of open visits with the threshold; "No visitors for [value] minutes" (122, 123) measures
// how long the site has had no open visit, in wall-clock minutes.
#pragma once

#include <cstdint>

#include "analysis/AnalysisCounters.h"
#include "database/Database.h"
#include "startup/World.h"

namespace wizard {

// Walks the exception catalogue in order; entries whose raise flag is off are skipped, as are
// numbers other than 110, 120, 122 and 123.
//   110, 120: when the site's visitor total exceeds the entry's value (a 32-bit number), records
//             the exception with the total as its value. Recorded again after every file for as
//             long as the total stays above.
//   122:      with open visits, the quiet-since time becomes now; without, when more minute
//             boundaries than the value (a 16-bit number) lie between quiet-since and now, records
//             the exception (no value) and the quiet-since time becomes now.
//   123:      the same, but kept as it always was: the minutes are counted from 122's quiet-since
//             time, while every write goes to the second quiet-since time, which nothing else
//             reads. So 123 fires in the same pass only when it precedes 122 or 122 is not raised.
// "now" is the wall clock of `world`, not the log's time, and is the date of the records. A value
// that does not convert (text, none, out of range) ends the pass silently at that entry; later
// entries are not checked. Never throws.
void CheckSiteAlerts(startup::World& world, database::Database& f, analysis::SiteRunState& site,
                     int16_t siteIndex);

}  // namespace wizard
