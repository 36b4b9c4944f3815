// Test helpers of the hit analysis: a whole run in a temp data folder (World with sites and the
// built-in catalogue, an open database, the hit processing, the log reader's state), a
// feeder for log lines, and a reader that lists a table's records from the files on disk.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "analysis/HitProcessor.h"
#include "database/Database.h"
#include "dbase/Table.h"
#include "loginput/FieldMap.h"
#include "loginput/LogInputState.h"
#include "platform/Clock.h"
#include "startup/ExceptionCatalogue.h"
#include "startup/Settings.h"
#include "startup/StartupSequence.h"
#include "startup/World.h"
#include "vb/Dates.h"
#include "TableReadBack.h"

namespace antest {

// One record as field name -> text without surrounding blanks.
using tytest::Record;

using tytest::ReadTable;

// The W3C columns the tests' logs use, in this order.
inline constexpr const char* kFields =
    "date time c-ip cs-username cs-method cs-uri-stem cs-uri-query sc-status cs(User-Agent) "
    "cs(Referer)";

// A run: sites named "Alpha", "Beta", ... of the given TYPE, the 18 page extensions, the built-in
// exception catalogue and thresholds, a time-out of 20 minutes, no DNS host masks, the clock at
// 2026-11-22 12:00, and an open database in a temp data folder.
struct Run {
  tytest::TempDir dir;
  platform::FixedClock clock{vb::DateSerial(2026, 11, 22) + vb::TimeSerial(12, 0, 0)};
  startup::World world{clock};
  std::unique_ptr<database::Database> f;
  std::unique_ptr<analysis::HitProcessor> hits;
  loginput::LogInputState input;

  explicit Run(int siteCount = 1, startup::LogLayout type = startup::LogLayout::W3cExtended) {
    world.app.dataFolder = dir.str();
    world.errors.SetBeep(false);
    startup::SetLoaderPageExtensions(world.settings);
    world.settings.inactivityMins = 20;
    startup::LoadExceptionConstants(world.exceptions);
    static const char* kNames[] = {"Alpha", "Beta", "Gamma"};
    for (int i = 0; i < siteCount; ++i) {
      startup::Site s;
      s.name = kNames[i];
      s.type = type;
      world.sites.push_back(s);
      ++world.siteCount;
    }
    startup::RefreshexceptionConstants(world);
    f = std::make_unique<database::Database>(database::InputsOf(world));
    f->SetCurrentSite(world.site(1).name);
    ok = f->InitDatabase();
    hits = std::make_unique<analysis::HitProcessor>(world, *f);
    for (int i = 1; i <= siteCount; ++i) Fields(i, kFields);
  }
  // A fresh HitProcessor (for tests that change settings first).
  void Restart() { hits = std::make_unique<analysis::HitProcessor>(world, *f); }

  // The site's field map from a "#Fields:" column list.
  void Fields(int site, const std::string& list) {
    bool dateFlag = false;
    loginput::ApplyFieldsDirective(input.fieldMap, world.site(site).type, list, dateFlag);
  }
  // Hands one data line of `site` to the hit processing.
  void Hit(const std::string& line, int site = 1) {
    const loginput::SiteReadState& s = input.Site(site);
    analysis::LineContext ctx{input.fieldMap, s.separator, s.noSpiderCheck, s.currentFileDate};
    hits->ProcessHit(line, static_cast<int16_t>(site), ctx, input.hits);
  }
  // A W3C line of the columns in kFields.
  void Hit(const std::string& date, const std::string& time, const std::string& ip,
           const std::string& page, int status = 200,
           const std::string& agent = "Mozilla/4.0+(compatible;+MSIE+6.0)",
           const std::string& referrer = "-", const std::string& method = "GET", int site = 1) {
    Hit(date + " " + time + " " + ip + " - " + method + " " + page + " - " +
            std::to_string(status) + " " + agent + " " + referrer,
        site);
  }
  // Writes the caches and closes the tables, so that they can be read back.
  void Close() { f->CloseDatabase(); }
  std::vector<Record> Table(const std::string& stem) const { return ReadTable(dir.str(), stem); }

  bool ok = false;  // InitDatabase succeeded
};

// The k-th open visit of the run, in table order.
inline database::Visit& Open(Run& run, int k) {
  analysis::VisitTable& t = run.hits->Visits();
  return t[t.Nth(k)];
}

inline vb::Date At(int y, int mo, int d, int h, int mi, int s = 0) {
  return vb::DateSerial(y, mo, d) + vb::TimeSerial(h, mi, s);
}

}  // namespace antest
