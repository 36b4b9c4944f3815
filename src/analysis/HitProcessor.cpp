// The hit processing (see HitProcessor.h). ProcessHit follows its numbered steps in order; the
// steps of a new visit and of a counted page are in OpenVisit and CountPage.
#include "analysis/HitProcessor.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "analysis/AlertMatching.h"
#include "analysis/Browser.h"
#include "analysis/DaySummary.h"
#include "analysis/Exclusion.h"
#include "analysis/Spider.h"
#include "analysis/Sweep.h"
#include "analysis/Text.h"
#include "vb/Strings.h"

namespace analysis {

using loginput::FieldMap;
using startup::LogLayout;

namespace {

std::vector<std::string> HostMasksOf(const startup::AppSettings& s) {
  std::vector<std::string> masks;
  for (int k = 1; k <= startup::kDnsMaskCount; ++k) {
    if (s.dnsMasks[static_cast<size_t>(k)].empty()) break;  // an empty slot ends the table
    masks.push_back(s.dnsMasks[static_cast<size_t>(k)]);
  }
  return masks;
}

// Dates from 1899-12-30 up to this day number are on the ordinary calendar of the date
// arithmetic (see NoteHitTime).
constexpr vb::Date kPlainDateLimit = 1e8;

void RemoveQuotes(std::string& s) {
  const size_t first = s.find('"');  // nearly always none: one library search
  if (first == std::string::npos) return;
  s.erase(std::remove(s.begin() + static_cast<std::ptrdiff_t>(first), s.end(), '"'), s.end());
}

// Whether `page` holds "../", "..%2F" or ".%5c." (a way up the folder tree). Each starts with a
// "." followed by "." or "%", so only those places are looked at: one search for most pages.
bool HasParentStep(std::string_view page) {
  for (size_t at = page.find('.'); at != std::string_view::npos; at = page.find('.', at + 1)) {
    const std::string_view rest = page.substr(at);
    if (rest.size() < 3 || (rest[1] != '.' && rest[1] != '%')) continue;
    if (rest.starts_with("../") || rest.starts_with("..%2F") || rest.starts_with(".%5c."))
      return true;
  }
  return false;
}

}  // namespace

int16_t HitServices::MatchAlert(const startup::World& world, int16_t siteIndex,
                                const database::Visit& visit) {
  return analysis::MatchAlert(world, siteIndex, visit);
}

HitProcessor::HitProcessor(startup::World& world, database::Database& f, HitServices* services)
    : world_(world),
      f_(f),
      services_(services ? services : &defaultServices_),
      counters_(world.siteCount),
      visits_(HostMasksOf(world.settings)) {
  f_.SetHooks(counters_);
  pageExtensions_.Assign(world.settings.pageExtensions, world.settings.pageExtensionCount);
}

void HitProcessor::StartFile() {
  counters_.currentLogDate = kNoDay;
  const startup::AppSettings& s = world_.settings;
  pageExtensions_.Assign(s.pageExtensions, s.pageExtensionCount);
}

bool HitProcessor::ProcessHit(std::string_view line, int16_t siteIndex,
                              const LineContext& context, loginput::HitFields& hits) {
  if (siteIndex < 1 || siteIndex > world_.siteCount) return true;
  const startup::Site& site = world_.site(siteIndex);
  SiteRunState& state = counters_.Site(siteIndex);
  const FieldMap& map = context.map;
  // "Now" for the visits' processed-at times, read from the clock once every 256 hits rather than
  // per hit: it is a wall-clock stamp, and reading the clock costs a system call.
  if ((hitCounter_++ & 255) == 0) now_ = world_.clock.Now();

  // 1. Split the line on the site's separator (as far as the columns read here and the zone
  //    after the date need) and copy the mapped columns into the hit variables (those that the
  //    steps below read; nothing reads the others). A hit that the page filter will drop reads
  //    none of them but the page, so while only the page can be adjusted before that filter
  //    (every layout but CommaLong and TabSeparated) the page is copied first and the other
  //    columns after the filter (or deferred, for a dropped hit: a column that a later map lacks
  //    keeps its value).
  loginput::SettleHitFields(map, hits);
  if (map.place != maxPlace_.map.place) {
    maxPlace_.map = map;
    maxPlace_.maxPlace = loginput::AnalysedMaxPlace(map);
  }
  fields_.Split(line, context.separator, maxPlace_.maxPlace);
  const bool pageFirst = map.Has(loginput::kPage) && site.type != LogLayout::CommaLong &&
                         site.type != LogLayout::TabSeparated;
  if (pageFirst) {
    loginput::FillHitPage(fields_, map, hits);
  } else {
    loginput::FillAnalysedHitFields(fields_, map, hits);
  }
  // A hit that stops at the page filter: its other columns are kept for later.
  auto dropped = [&] {
    if (pageFirst) loginput::DeferAnalysedHitFields(line, context.separator, map, hits);
    return true;
  };

  // 2.-3. Hit date and time by the site's TYPE.
  std::optional<std::string_view> dateField, timeField;
  std::string_view zoneField;
  if (map.Has(loginput::kDate)) {
    dateField = fields_[map[loginput::kDate]];
    zoneField = fields_[map[loginput::kDate] + 1];
  }
  if (map.Has(loginput::kTime)) timeField = fields_[map[loginput::kTime]];
  const vb::Date hitTime = ReadHitTime(counters_.clock, site.type, dateField, zoneField, timeField,
                                       state.currentHitTime);

  // 4. Day roll-over (one remembered date for the whole run). A line whose date could not be
  //    read carries only the previous hit's date (perhaps another site's, or none yet): it
  //    neither ends a day nor starts one, so it never makes a daily summary of its own.
  if (counters_.clock.dateRead && counters_.clock.hitDate != counters_.currentLogDate) {
    WriteDaySummary(siteIndex);
    counters_.currentLogDate = counters_.clock.hitDate;
  }
  // 5. The site's current-hit time.
  state.currentHitTime = hitTime;
  // 6. Sweep once the time-out has passed since the site's last sweep. The sweep measures idle
  //    time to the site's current file date (the log's own clock), as the product always has.
  if (MinutesExceed(state.lastSweepTime, hitTime, Timeout())) {
    ScanToRemove(context.currentFileDate);
    state.lastSweepTime = hitTime;
  }

  // 7. The page, adjusted by the site's TYPE.
  if (!map.Has(loginput::kPage)) return true;
  std::string& page = hits.page;
  switch (site.type) {
    case LogLayout::Combined:
      if (page == "/") page.append(site.homePage);
      break;
    case LogLayout::CommaLong:
      if (size_t q = page.find('?'); q != std::string::npos) {
        hits.query.assign(page, q + 1);
        page.resize(q);
      } else {
        hits.query.clear();
      }
      break;
    case LogLayout::TabSeparated:
      // The page's folder is the hit's referrer. These logs name no referrer column (their
      // field names have none), so nothing read later overwrites it.
      if (size_t slash = page.rfind('/'); slash != std::string::npos) {
        hits.referrer.assign(page, 0, slash + 1);
        page.erase(0, slash + 1);
      }
      if (size_t q = page.find('?'); q != std::string::npos) {
        if (site.includeQuery) hits.query.assign(page, q + 1);
        page.resize(q);
      } else {
        hits.query.clear();
      }
      break;
    default:
      break;
  }
  // A query column, when the log has one, is read after the page (step 9) and so wins.
  if ((site.type == LogLayout::CommaLong || site.type == LogLayout::TabSeparated) &&
      map.Has(loginput::kQuery))
    hits.query.assign(fields_[map[loginput::kQuery]]);

  // 8. Page filter on the page-extension list.
  const size_t dot = page.rfind('.');
  extension_ = ExtensionKey{};
  if (dot != std::string::npos) {
    const std::string_view ext = std::string_view(page).substr(dot + 1);
    extension_ = ExtensionKey::Of(ext);
    if (!pageExtensions_.Contains(extension_, ext)) return dropped();  // not a page: not counted
    const std::string_view trimmed = vb::Trim(page);
    const size_t lead =
        trimmed.empty() ? page.size() : static_cast<size_t>(trimmed.data() - page.data());
    page.resize(lead + trimmed.size());
    page.erase(0, lead);
    if (!page.empty() && page.front() == '/') page.erase(0, 1);
  } else if (page.size() < 2) {
    return dropped();
  }
  if (pageFirst) loginput::FillAnalysedHitFieldsButPage(fields_, map, hits);

  // 9. The other columns were read with the page; the agent loses its double quotes.
  RemoveQuotes(hits.userAgent);

  // 10. Exclusions.
  if (IsExcludedHit(hits.clientAddress, page, site.exclude, site.excludePages)) return true;

  // 11. The visit of this site and address.
  int32_t vi = visits_.FindByAddress(siteIndex, hits.clientAddress);
  // 12. None: a hit that the live monitor already recorded ends here; else visitor grouping.
  if (vi == 0) {
    if (hits.clientAddress == site.lastIp && site.lastTime >= hitTime) return true;
    vi = GetVisitorByGroup(hits.clientAddress);
  }
  // 13. Time-out: the visit ends and the hit opens a new one.
  if (vi != 0 && MinutesExceed(visits_[vi].lastHitTime, hitTime, Timeout())) {
    visits_.Mark(vi);
    RemoveInactive();
    vi = 0;
  }
  // 14.-16. A new visitor.
  if (vi == 0) {
    vi = OpenVisit(siteIndex, site, context, hits, hitTime);
    if (vi == 0) return true;
  }
  // 17. (New visits continue here.)
  // 18.-22. The page hit of the visit.
  CountPage(vi, siteIndex, site, hits, hitTime);
  return true;
}

int32_t HitProcessor::OpenVisit(int16_t siteIndex, const startup::Site& site,
                                const LineContext& context, loginput::HitFields& hits,
                                vb::Date hitTime) {
  SiteRunState& state = counters_.Site(siteIndex);
  const std::string& page = hits.page;
  // 15.1 Browser; a log without agents ("-") takes the method as browser code.
  AgentFacts& facts = FactsOf(hits.userAgent);
  std::string& browser = browser_;
  browser = facts.browser;
  if (browser == "-" && !hits.method.empty()) browser = hits.method;
  // 15.2 The product's own probe is not a visitor.
  if (browser == "TY") return 0;
  // 15.3 Spiders, unless the site's logs skip the check.
  std::string& spiderName = spiderName_;
  spiderName.clear();
  if (!context.noSpiderCheck) {
    const bool robotsTxt = vb::EqualsNoCase(page, "ROBOTS.TXT");
    if (facts.ruleSpider)
      spiderName = facts.spiderName;
    else if (IsListedRobot(facts, hits.userAgent, hits.clientAddress))
      spiderName = "Auto Detected";
    if (spiderName.empty() && robotsTxt) {
      // A robot that no rule names: learn its address once, and say so.
      spiderName = "Unknown";
      startup::RobotList& robots = world_.robots;
      bool known = false;
      for (int32_t i = 1; i <= robots.count && static_cast<size_t>(i) < robots.entries.size(); ++i)
        if (robots.entries[static_cast<size_t>(i)].address == hits.clientAddress) {
          known = true;
          break;
        }
      if (!known) {
        robots.Append(hits.clientAddress, hits.userAgent);
        f_.AddException(siteIndex, 902, hitTime, std::string_view(hits.userAgent),
                        hits.clientAddress);
      }
    }
    if (!spiderName.empty() && world_.settings.noSpiders) return 0;
  }

  // 16.1 One more visit, appended to the table.
  ++counters_.totals.visitsOpened;
  const int32_t vi = visits_.Append(siteIndex, hits.clientAddress);
  // 16.2 The site's counters.
  ++state.visitCounter;
  ++state.today.visitors;
  ++state.visitorTotal;
  // 16.3 The new record.
  database::Visit& v = visits_[vi];
  v.startTime = v.lastHitTime = hitTime;
  NoteHitTime(hitTime);
  v.processedAt = now_;
  v.visitNumber = state.visitCounter;
  char siteText[8];
  const auto siteEnd = std::to_chars(siteText, siteText + sizeof siteText, siteIndex).ptr;
  v.visitorKey.assign(siteText, static_cast<size_t>(siteEnd - siteText));
  v.visitorKey += ':';
  v.visitorKey += hits.clientAddress;
  v.browser = browser;
  v.agent = hits.userAgent;
  v.userName = hits.userName;
  v.visitorVisits = 1;
  // 16.4 Spider flag and name.
  if (!spiderName.empty()) {
    v.spider = true;
    v.spiderName = spiderName;
    ++state.today.spiders;
  }
  // 16.5 The referrer without its double quotes.
  v.referrer = hits.referrer;
  RemoveQuotes(v.referrer);
  // 16.6 Alert definitions, for visitors that are not robots.
  if (!v.spider) {
    const int16_t a = services_->MatchAlert(world_, siteIndex, v);
    if (a > 0 && a <= world_.alertCount) {
      v.alert = true;
      v.alertNumber = world_.alert(a).number;
      ++state.today.alerts;
    }
  }
  // 16.7 Host name and country.
  visits_.SetHostName(vi, dns_.ResolveHost(v, f_));
  if (v.dnsRequest != 0) visits_.AwaitDns(vi, v.dnsRequest);
  if (f_.CountryTableAvailable()) {
    v.countryCode = f_.LookupCountryCode(v.clientAddress);
    v.countryName = world_.tables.LookupCountryName(v.countryCode);
  }
  // 16.8 The visitor and visit records.
  f_.UpdateVisitor(v, false);
  f_.AddVisitToDatabase(v, page);
  // 16.9 An agent that gave no browser code at all.
  if (!v.spider && v.browser.empty() && !v.agent.empty())
    Raise(siteIndex, 900, hitTime, v, std::string_view(v.agent));
  return vi;
}

void HitProcessor::CountPage(int32_t vi, int16_t siteIndex, const startup::Site& site,
                             loginput::HitFields& hits, vb::Date hitTime) {
  SiteRunState& state = counters_.Site(siteIndex);
  database::Visit& v = visits_[vi];
  const std::string& page = hits.page;
  // 18.1 Any hit keeps the visit alive.
  v.lastHitTime = hitTime;
  NoteHitTime(hitTime);
  // 18.2 A reload of the same page is not counted.
  if (page == v.currentPage) return;
  // 18.3 Nor a second page in the same second as the last one.
  if (hitTime == v.lastPageTime) return;
  // 18.4 A page view.
  ++state.pageViews;
  // 18.5 The previous page was viewed for longer than the site's limit.
  //      (Whole minutes >= the limit is more than the limit less one: the quick time-out test.)
  if (v.pageCount > 1 &&
      MinutesExceed(v.lastPageTime, hitTime, int64_t{site.pageMinutesLimit} - 1))
    Raise(siteIndex, 134, hitTime, v, std::string_view(v.currentPage));
  // 18.6 The visit's page fields.
  v.lastPageTime = hitTime;
  v.processedAt = now_;
  v.currentPage = page;
  v.status = hits.status;
  v.method = hits.method;
  if (hits.query.size() > 1) {
    v.query.assign(1, '?');
    v.query += hits.query;
  }
  ++v.pageCount;
  v.ended = false;
  ++counters_.totals.pageHits;

  // 19. The server's answer. 400 itself raises nothing: the test is for greater.
  if (v.status > 400) {
    if (v.status <= INT16_MAX)
      Raise(siteIndex, static_cast<int16_t>(v.status), hitTime, v, std::string_view(page));
    if (v.status == 404) {
      ++v.notFoundCount;
      ++v.hackScore;
      if (v.notFoundCount >= site.limit404) {
        Raise(siteIndex, 161, hitTime, v, v.notFoundCount);
        v.notFoundCount = 0;
      }
    }
  }
  // 20. The file type of the request.
  constexpr ExtensionKey kExe = ExtensionKey::Literal("exe"), kDll = ExtensionKey::Literal("dll"),
                         kBat = ExtensionKey::Literal("bat"), kVbs = ExtensionKey::Literal("vbs"),
                         kZip = ExtensionKey::Literal("zip");
  const ExtensionKey ext = extension_;
  if (ext.Is(kExe) || ext.Is(kDll)) {
    Raise(siteIndex, ext.Is(kExe) ? 150 : 151, hitTime, v, std::string_view(page));
    f_.AddDownload(v);
    if (v.status == 404) v.hackScore += 2;
  } else if (ext.Is(kBat)) {
    Raise(siteIndex, 152, hitTime, v, std::string_view(page));
  } else if (ext.Is(kVbs)) {
    Raise(siteIndex, 153, hitTime, v, std::string_view(page));
  } else if (ext.Is(kZip)) {
    f_.AddDownload(v);
  }
  // 21. Suspicious requests and visit alerts, in this order.
  if (HasParentStep(v.currentPage)) {
    Raise(siteIndex, 160, hitTime, v, std::string_view(page));
    ++v.hackScore;
  }
  if (v.method == "PUT") Raise(siteIndex, 162, hitTime, v, std::string_view(page));
  if (v.pageCount > site.pageLimit && !v.pagesAlertRaised) {
    Raise(siteIndex, 131, hitTime, v, v.pageCount);
    v.pagesAlertRaised = true;
  }
  if (!v.durationAlertRaised &&
      MinutesExceed(v.startTime, v.lastPageTime, site.visitMinutesLimit)) {
    Raise(siteIndex, 130, hitTime, v, site.visitMinutesLimit);
    v.durationAlertRaised = true;
  }
  if (v.hackScore > 3 && !v.hackRaised) {
    Raise(siteIndex, 165, hitTime, v, std::nullopt);
    f_.UpdateHackCount(v);
    v.hackRaised = true;  // set here, so that 165 is raised once per visit whatever the update does
  }
  // 22. The page view record.
  if (state.keepPages) f_.AddPageToDatabase(v);
}

void HitProcessor::Raise(int16_t siteIndex, int16_t number, vb::Date when,
                         const database::Visit& v, std::optional<std::string_view> value) {
  const std::string& who = v.hostName.empty() ? v.clientAddress : v.hostName;
  f_.AddException(siteIndex, number, when, value, who, v.visitorVisits);
}

void HitProcessor::Raise(int16_t siteIndex, int16_t number, vb::Date when,
                         const database::Visit& v, long value) {
  char text[24];
  const auto r = std::to_chars(text, text + sizeof text, value);
  Raise(siteIndex, number, when, v, std::string_view(text, static_cast<size_t>(r.ptr - text)));
}

void HitProcessor::WriteDaySummary(int16_t siteIndex) {
  if (siteIndex < 1 || siteIndex > world_.siteCount) return;
  analysis::WriteDaySummary(f_, world_.site(siteIndex).name, counters_.currentLogDate,
                            counters_.Site(siteIndex));
}

void HitProcessor::EndOfFile(int16_t siteIndex) {
  if (counters_.currentLogDate == kNoDay && counters_.clock.hitDate != 0)
    counters_.currentLogDate = counters_.clock.hitDate;
  WriteDaySummary(siteIndex);
}

bool HitProcessor::IsListedRobot(AgentFacts& facts, std::string_view agent,
                                 std::string_view address) {
  // SpiderByRobotList, with the list's addresses in a set and the stored agents tried once per
  // agent and length of the list.
  const startup::RobotList& robots = world_.robots;
  if (agent.size() < 2) return false;
  const int32_t last =
      std::min<int32_t>(robots.count, static_cast<int32_t>(robots.entries.size()) - 1);
  if (last < robotAddressesOf_) {
    robotAddresses_.clear();
    robotAddressesOf_ = 0;
  }
  for (int32_t i = std::max(robotAddressesOf_, 0) + 1; i <= last; ++i)
    robotAddresses_.insert(robots.entries[static_cast<size_t>(i)].address);
  robotAddressesOf_ = last;
  if (robotAddresses_.find(address) != robotAddresses_.end()) return true;
  if (facts.robotsChecked != last) {
    facts.robotAgent = RobotAgentIn(facts.upper, robots);
    facts.robotsChecked = last;
  }
  return facts.robotAgent;
}

HitProcessor::AgentFacts& HitProcessor::FactsOf(std::string_view agent) {
  // The agent picks its memo slot by a hash taken eight bytes at a time (agents are long; the
  // slot only decides which memo is tried, the text compare below decides whether it fits).
  const char* p = agent.data();
  const size_t n = agent.size();
  uint64_t h = 0x9E3779B97F4A7C15ull * (n + 1);
  auto mix = [&h](uint64_t w) {
    h = (h ^ w) * 0xFF51AFD7ED558CCDull;
    h ^= h >> 32;
  };
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint64_t w;
    std::memcpy(&w, p + i, sizeof w);
    mix(w);
  }
  if (i < n) {
    uint64_t w = 0;
    if (n >= 8) {
      std::memcpy(&w, p + n - 8, sizeof w);  // the last eight bytes, overlapping the loop's
    } else {
      for (size_t k = 0; k < n; ++k)
        w |= static_cast<uint64_t>(static_cast<unsigned char>(p[k])) << (8 * k);
    }
    mix(w);
  }
  AgentFacts& e = agents_[(h ^ (h >> 29)) & (kAgentMemo - 1)];
  if (e.filled && e.agent == agent) return e;
  e.agent.assign(agent);
  UpperAsciiInto(agent, e.upper);
  SelectBrowserInto(agent, e.upper, e.browser);
  e.ruleSpider = SpiderByAgentRules(agent, e.upper, e.spiderName);
  e.filled = true;
  return e;
}

void HitProcessor::NoteHitTime(vb::Date t) {
  if (!sweep_.anyHit || t < sweep_.earliestHit) sweep_.earliestHit = t;
  sweep_.anyHit = true;
  // Idle minutes only grow as a time moves back on the ordinary calendar; a time off it (before
  // 1899-12-30, not finite, far beyond) reads otherwise, so it ends the skipping.
  if (!(t >= 0 && t <= kPlainDateLimit)) sweep_.valid = false;
}

void HitProcessor::ScanToRemove(vb::Date fileDate) {
  // Every visit left by the last sweep had been idle at most the time-out; a visit can have
  // become idle since only through a hit time at least as early as the earliest one noted.
  if (sweep_.valid && fileDate == sweep_.fileDate && Timeout() == sweep_.timeout &&
      (!sweep_.anyHit || vb::DateDiffMinutes(sweep_.earliestHit, fileDate) <= Timeout()))
    return;
  analysis::ScanToRemove(visits_, f_, counters_, fileDate, Timeout());
  sweep_.valid = fileDate >= 0 && fileDate <= kPlainDateLimit;
  sweep_.fileDate = fileDate;
  sweep_.timeout = Timeout();
  sweep_.anyHit = false;
}

void HitProcessor::RequestComplete(const platform::DnsAnswer& answer) {
  dns_.RequestComplete(answer, visits_, f_);
}

void HitProcessor::RemoveInactive() { analysis::RemoveInactive(visits_, f_, counters_); }

int32_t HitProcessor::GetVisitorByGroup(std::string_view address) {
  const std::vector<std::string>& masks = visits_.HostMasks();
  if (masks.empty()) return 0;
  // 1. The known host name of the address.
  const std::string host = f_.LookupDNS(address);
  if (host.empty()) return 0;
  // 2. Mask by mask: the first visit whose host name fits the same mask decides.
  for (size_t k = 0; k < masks.size(); ++k) {
    if (!visits_.FitsHostMask(k, host)) continue;
    const int32_t j = visits_.FirstWithHostMask(k);
    if (j == 0) continue;
    database::Visit& v = visits_[j];
    const int64_t idle =
        vb::DateDiffMinutes(v.lastHitTime, counters_.Site(v.siteIndex).currentHitTime);
    if (idle < Timeout() / 2) {
      v.groupMask = masks[k];
      return j;
    }
    return 0;
  }
  // 3. No mask fits.
  return 0;
}

}  // namespace analysis
