// The inactive-visit sweep (see Sweep.h).
#include "analysis/Sweep.h"

namespace analysis {

void ScanToRemove(VisitTable& visits, database::F& f, RunState& run, vb::Date fileDate,
                  int32_t inactivityMins) {
  // 1. Mark every visit idle for longer than the inactivity time, measured to the file's date.
  bool marked = false;
  for (int32_t i = visits.First(); i != 0; i = visits.Next(i)) {
    if (vb::DateDiffMinutes(visits[i].lastHitTime, fileDate) > inactivityMins) {
      visits.Mark(i);
      marked = true;
    }
  }
  // 2. Write them out.
  if (marked) RemoveInactive(visits, f, run);
}

void RemoveInactive(VisitTable& visits, database::F& f, RunState& run) {
  visits.RemoveMarked([&](int32_t i) {
    const database::Visit& v = visits[i];
    SiteRunState& site = run.Site(v.siteIndex);
    if (site.visitorTotal > 0) --site.visitorTotal;
    f.UpdateVisitInDatabase(v);
  });
}

}  // namespace analysis
