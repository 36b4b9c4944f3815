// The inactive-visit sweep: marks the open visits that have seen no hit for longer than the
// inactivity time and writes them out, dropping them from the visit table.
#pragma once

#include <cstdint>

#include "analysis/AnalysisCounters.h"
#include "analysis/VisitTable.h"
#include "database/Database.h"

namespace analysis {

// Marks (ended flag) every open visit, of any site, whose last hit lies more than
// `inactivityMins` whole minutes (minute boundaries crossed) before `fileDate`, the current file
// date of the site being read: the log's clock, not the wall clock. When any was marked, runs
// RemoveInactive. Exactly `inactivityMins` minutes keeps a visit open.
void ScanToRemove(VisitTable& visits, database::Database& f, AnalysisCounters& counters,
                  vb::Date fileDate, int32_t inactivityMins);

// Writes every marked visit (VisitTable::Mark) back to its "Visits" record
// (UpdateVisitInDatabase), lowering its site's visitor total by one while above 0, then drops the
// marked visits from the table, keeping the order of the others. Visit indexes taken before this call are invalid after it.
void RemoveInactive(VisitTable& visits, database::Database& f, AnalysisCounters& counters);

}  // namespace analysis
