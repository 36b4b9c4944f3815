// The hit analysis' own state for one run: per-site running counters (kept here, not in the site
// configuration), the run totals of the end-of-run summary, and the date that the day summaries
// roll over on.
#pragma once

#include <cstdint>
#include <vector>

#include "analysis/HitTime.h"
#include "database/DayCounts.h"
#include "database/RecordHooks.h"
#include "vb/Dates.h"

namespace analysis {

// 1 January 1900: "no day yet" for the remembered date of the day summaries.
inline constexpr vb::Date kNoDay = 2.0;
// 1 January 1990: the last sweep time every site starts a run with, so that the first hit of
// the run starts a sweep.
inline constexpr vb::Date kFirstSweep = 32874.0;

// The running state of one site during a run. Created zeroed for every site at the start of a run.
struct SiteRunState {
  // The day's counts: written to "DaySum" and set to 0 at every day summary.
  database::DayCounts today;
  // The day's exceptions once more: every exception raises it beside today.exceptions and it is
  // reset with the day counters, but no day summary writes it and nothing reads it.
  int32_t exceptionsTodayUnwritten = 0;
  int32_t otherToday = 0;  // a seventh day counter, reset with the others and not written

  int32_t visitCounter = 0;      // raised for every visit opened
  int32_t visitorTotal = 0;      // open visits: raised per new visit, lowered per swept visit
  int32_t pageViews = 0;         // counted page hits
  vb::Date currentHitTime = 0;   // time of the site's latest hit
  vb::Date lastSweepTime = kFirstSweep;
  // Site-level alert pass, "No visitors for [value] minutes". Both levels count their minutes
  // from quietSince, which only the first level (122) sets; the second level (123) sets only
  // secondLevelQuietSince, which nothing reads.
  vb::Date quietSince = 0;
  vb::Date secondLevelQuietSince = 0;
  // false: page views are not recorded for this site. No site option sets it; it is the switch
  // through which a front-end could leave out a site's page records.
  bool keepPages = true;
};

// Run totals of the hit analysis, read by the end-of-run summary.
struct AnalysisTotals {
  int32_t visitsOpened = 0;
  int32_t pageHits = 0;
  int32_t exceptions = 0;   // the two run-wide exception counters raised by every exception
  int32_t exceptions2 = 0;
};

// The per-run state: one SiteRunState per site (index 0 unused, like the site list), the run
// totals, the remembered date of the day summaries and the clock of the latest hit. Also the
// counter hooks of the database, which raise the site's download and exception counters.
class AnalysisCounters final : public database::RecordHooks {
 public:
  // REQUIRES: siteCount >= 0. Sites 1..siteCount get a fresh state.
  explicit AnalysisCounters(int siteCount = 0) : sites(static_cast<size_t>(siteCount) + 1) {}

  // Site `i`'s state; an index outside the list gets a scratch entry (index 0), so a bad index
  // never corrupts another site.
  SiteRunState& Site(int32_t i) {
    return (i > 0 && static_cast<size_t>(i) < sites.size()) ? sites[static_cast<size_t>(i)]
                                                            : sites[0];
  }

  void DownloadCounted(int32_t siteIndex) override { ++Site(siteIndex).today.downloads; }
  void ExceptionCounted(int32_t siteIndex) override {
    SiteRunState& s = Site(siteIndex);
    ++s.today.exceptions;
    ++s.exceptionsTodayUnwritten;
    ++totals.exceptions;
    ++totals.exceptions2;
  }

  std::vector<SiteRunState> sites;
  AnalysisTotals totals;
  // The date of the latest hit processed (any site); kNoDay before the first. The scan driver sets
  // it back to kNoDay before each log file.
  vb::Date currentLogDate = kNoDay;
  // The date, time of day and zone offset of the latest hit, carried from hit to hit.
  HitClock clock;
};

}  // namespace analysis
