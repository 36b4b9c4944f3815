// The hit processing: turns each data line of a site's log into visits, page views, downloads,
// visitor records, exceptions and daily summaries.
//
// One HitProcessor serves one run. It owns the visit table of all sites and the run state (the
// per-site running counters, the run totals and the remembered date of the day summaries), and
// hands records to the database. Everything runs on the scan's one thread.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>

#include "analysis/AnalysisCounters.h"
#include "analysis/HitServices.h"
#include "analysis/HitTime.h"
#include "analysis/PageExtensions.h"
#include "analysis/ReverseDns.h"
#include "analysis/VisitTable.h"
#include "database/Database.h"
#include "loginput/FieldMap.h"
#include "loginput/HitFields.h"
#include "startup/World.h"

namespace analysis {

// What the log reader knows about the line's site and file.
struct LineContext {
  const loginput::FieldMap& map;  // the site's field map
  char separator = ' ';           // the site's field separator
  bool noSpiderCheck = false;     // the site's logs skip robot and spider classification
  vb::Date currentFileDate = 0;   // the site's current file date: the clock of the inactive sweep
};

class HitProcessor {
 public:
  // REQUIRES: `world` (sites loaded) and `f` outlive this object; `services`, when given, too.
  // Registers the run state as the database's counter hooks. The visit table indexes the DNS host masks of
  // the settings up to the first empty slot.
  HitProcessor(startup::World& world, database::Database& f, HitServices* services = nullptr);
  HitProcessor(const HitProcessor&) = delete;
  HitProcessor& operator=(const HitProcessor&) = delete;

  // Processes one data line of site `siteIndex`. `hits` holds the hit fields of the file being
  // read (cleared by the reader before the first line); a column that the map does not name keeps
  // the value of the previous hit. Only the fields read here are filled (see
  // loginput::FillAnalysedHitFields); the others keep whatever they held. Every rejection (a hit that is not a page, an excluded visitor,
  // a repeat of the same page, the product's own probe, ...) simply ends the call. A site index
  // outside the site list is ignored. Returns true. Never throws: a failure inside the database
  // form is that form's to log.
  bool ProcessHit(std::string_view line, int16_t siteIndex, const LineContext& context,
                  loginput::HitFields& hits);

  // Writes the daily summary of the site under the remembered date and resets its day counters
  // (nothing when no hit has set the date yet).
  void WriteDaySummary(int16_t siteIndex);
  // After the last line of a log file: when no hit of the file set the remembered date, it takes
  // the date of the last hit read; then the site's daily summary is written.
  void EndOfFile(int16_t siteIndex);
  // The date of the last hit read (any site, any file), or kNoDay before the first: the date the
  // day summaries fall back on for a file in which no hit set the remembered date.
  vb::Date LastHitDate() const {
    return counters_.clock.hitDate != 0 ? counters_.clock.hitDate : kNoDay;
  }
  // The scan driver calls this before each log file: the remembered date goes back to "no day",
  // and the page filter takes the settings' page-extension list as it stands now (it is read when
  // this object is made and again here, not per hit).
  void StartFile();

  // The inactive-visit sweep (see Sweep.h), against `fileDate`, with the run's time-out.
  // A sweep against the same date and time-out as the one before, when no hit processed since
  // then is old enough to be idle, has nothing to mark and does not walk the table: a visit is
  // idle only through its last-hit time, and the hit processing is what sets that time. (Code
  // that sets a visit's last-hit time itself between two such sweeps is not looked at again.)
  void ScanToRemove(vb::Date fileDate);
  // Writes out every visit whose ended flag is set and drops it from the table.
  void RemoveInactive();

  // Visitor grouping: the index of an open visit (of any site) that a hit from `address`
  // continues because the address's known host name and the visit's host name fit the same DNS
  // host mask, or 0.
  // Only the first visit that fits a mask is looked at: it is continued (and the mask recorded in
  // it) when it has been idle less than half the time-out, measured to its own site's current-hit
  // time; otherwise the search ends with 0.
  int32_t GetVisitorByGroup(std::string_view address);

  // One finished reverse-DNS look-up (ReverseDns::RequestComplete on this run's visit table).
  // Called between two hits only, from the scan's yields and waits for the resolver.
  void RequestComplete(const platform::DnsAnswer& answer);
  // The run's reverse DNS: the scan driver attaches the resolver; the figures.
  ReverseDns& Dns() { return dns_; }
  const ReverseDns& Dns() const { return dns_; }

  VisitTable& Visits() { return visits_; }
  AnalysisCounters& Counters() { return counters_; }
  const AnalysisCounters& Counters() const { return counters_; }
  const HitClock& Clock() const { return counters_.clock; }

 private:
  // Steps 15 to 16: classify and open a new visit. Returns 0 when the hit is dropped.
  int32_t OpenVisit(int16_t siteIndex, const startup::Site& site, const LineContext& context,
                    loginput::HitFields& hits, vb::Date hitTime);
  // Steps 18 to 22 for visit `vi`.
  void CountPage(int32_t vi, int16_t siteIndex, const startup::Site& site,
                 loginput::HitFields& hits, vb::Date hitTime);
  void Raise(int16_t siteIndex, int16_t number, vb::Date when, const database::Visit& v,
             std::optional<std::string_view> value);
  void Raise(int16_t siteIndex, int16_t number, vb::Date when, const database::Visit& v,
             long value);
  int32_t Timeout() const { return world_.settings.inactivityMins; }

  startup::World& world_;
  database::Database& f_;
  HitServices defaultServices_;
  HitServices* services_;
  AnalysisCounters counters_;
  VisitTable visits_;
  ReverseDns dns_;

  // Reused per hit, so that the steady state allocates nothing.
  loginput::SplitFields fields_;
  // The page filter's list, and the extension of the hit's page (empty when it has no ".").
  PageExtensionSet pageExtensions_;
  ExtensionKey extension_;
  // The highest place the hit processing reads, for the map it was last worked out for: the map
  // of a file changes only at a fields line, so this is nearly always the map of the hit before.
  struct MaxPlaceMemo {
    loginput::FieldMap map;  // all slots absent: the answer below is right for it
    int maxPlace = -1;
  } maxPlace_;
  std::string browser_;
  std::string spiderName_;
  // What the agent alone decides for a new visit, remembered for the agents seen last: a log
  // has few distinct agents, and each new visit would otherwise run every rule again.
  struct AgentFacts {
    bool filled = false;
    std::string agent;
    std::string upper;       // the agent upper-cased
    std::string browser;     // SelectBrowser
    bool ruleSpider = false;  // SpiderByAgentRules found a name ...
    std::string spiderName;  // ... this one
    int32_t robotsChecked = -1;  // the robot-list length the agent was last checked against ...
    bool robotAgent = false;     // ... and whether an entry's stored agent occurs in it
  };
  // The addresses of the robot list, for SpiderByRobotList without a walk of the list. The list
  // only grows during a run (RobotList::Append), so its length tells whether this is current.
  struct RobotAddressHash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
  };
  std::unordered_set<std::string, RobotAddressHash, std::equal_to<>> robotAddresses_;
  int32_t robotAddressesOf_ = -1;
  bool IsListedRobot(AgentFacts& facts, std::string_view agent, std::string_view address);
  static constexpr size_t kAgentMemo = 64;  // a power of two
  std::array<AgentFacts, kAgentMemo> agents_;
  AgentFacts& FactsOf(std::string_view agent);
  vb::Date now_ = 0;
  // What the last sweep was made against, and the earliest hit time given to a visit since.
  struct SweepMemo {
    bool valid = false;        // a sweep ran and nothing since prevents skipping the next
    vb::Date fileDate = 0;
    int32_t timeout = 0;
    bool anyHit = false;       // a visit's last-hit time was set since
    vb::Date earliestHit = 0;  // the earliest such time
  } sweep_;
  // A visit's last-hit time was set to `t` (see SweepMemo).
  void NoteHitTime(vb::Date t);
  uint32_t hitCounter_ = 0;
};

}  // namespace analysis
