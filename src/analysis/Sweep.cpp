// The inactive-visit sweep (see Sweep.h).
#include "analysis/Sweep.h"

namespace analysis {

namespace {

// Dates from 1899-12-30 up to this day number are on the ordinary calendar of the date
// arithmetic, where a date's whole seconds lie within half a second of the plain number.
constexpr vb::Date kPlainDateLimit = 1e8;

// The minute of a count of seconds, rounded down.
int64_t FloorMinute(int64_t seconds) {
  return seconds >= 0 ? seconds / 60 : -((-seconds + 59) / 60);
}

}  // namespace

void ScanToRemove(VisitTable& visits, database::Database& f, AnalysisCounters& counters,
                  vb::Date fileDate, int32_t inactivityMins) {
  // 1. Mark every visit idle for longer than the inactivity time, measured to the file's date.
  //    On the ordinary calendar that is a last hit before the start of the minute
  //    `inactivityMins` minutes before the file date's minute; a last hit more than a second
  //    away from that boundary is decided by the plain number, the others by the whole rule.
  const bool plainFileDate = fileDate >= 0 && fileDate <= kPlainDateLimit;
  const double boundary =
      plainFileDate
          ? static_cast<double>(
                (FloorMinute(vb::DateDiffSeconds(0, fileDate)) - inactivityMins) * 60)
          : 0;
  bool marked = false;
  for (int32_t i = visits.First(); i != 0; i = visits.Next(i)) {
    const vb::Date last = visits[i].lastHitTime;
    bool idle;
    const double seconds = last * 86400.0;
    if (plainFileDate && last >= 0 && last <= kPlainDateLimit && seconds >= boundary + 1)
      idle = false;
    else if (plainFileDate && last >= 0 && last <= kPlainDateLimit && seconds < boundary - 1)
      idle = true;
    else
      idle = vb::DateDiffMinutes(last, fileDate) > inactivityMins;
    if (idle) {
      visits.Mark(i);
      marked = true;
    }
  }
  // 2. Write them out.
  if (marked) RemoveInactive(visits, f, counters);
}

void RemoveInactive(VisitTable& visits, database::Database& f, AnalysisCounters& counters) {
  visits.RemoveMarked(
      [&](int32_t i) {
        const database::Visit& v = visits[i];
        SiteRunState& site = counters.Site(v.siteIndex);
        if (site.visitorTotal > 0) --site.visitorTotal;
        f.UpdateVisitInDatabase(v);
      },
      [&](int32_t i) { f.PrefetchVisitUpdate(visits[i]); });
}

}  // namespace analysis
