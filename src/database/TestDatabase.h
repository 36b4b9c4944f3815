// Test helpers of the database's tests: a World with a temp data folder, a few sites, the
// built-in exception catalogue and a fixed clock; a Database on it; visits to feed it; and readers
// that open a table's files from disk and list its records.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "database/Database.h"
#include "database/Visit.h"
#include "dbase/Table.h"
#include "platform/Clock.h"
#include "startup/ExceptionCatalogue.h"
#include "startup/World.h"
#include "vb/Dates.h"
#include "TableReadBack.h"

namespace dbtest {

// 2026-03-14 hh:mm:ss as a date-time.
inline vb::Date At(int hour, int minute, int second, int day = 14) {
  return vb::DateSerial(2026, 3, day) + vb::TimeSerial(hour, minute, second);
}

// Counts what the database reports to the hit analysis.
struct CountingHooks : database::RecordHooks {
  std::map<int, int> downloads;
  std::map<int, int> exceptions;
  void DownloadCounted(int32_t site) override { ++downloads[site]; }
  void ExceptionCounted(int32_t site) override { ++exceptions[site]; }
};

// A run's World in a temp data folder with sites "Alpha", "Beta", "Gamma".
struct DbRun {
  tytest::TempDir dir;
  platform::FixedClock clock{At(23, 0, 0)};
  startup::World world{clock};

  DbRun() : DbRun(std::string()) {}
  // A run on an existing data folder (empty: the temp folder).
  explicit DbRun(const std::string& dataFolder) {
    world.app.dataFolder = dataFolder.empty() ? dir.str() : dataFolder;
    world.errors.SetBeep(false);
    startup::LoadExceptionConstants(world.exceptions);
    for (const char* name : {"Alpha", "Beta", "Gamma"}) {
      startup::Site s;
      s.name = name;
      s.returnLimit = 10;
      world.sites.push_back(s);
      ++world.siteCount;
    }
  }
  std::string Data() const { return world.app.dataFolder; }
  database::DatabaseInputs Inputs() { return database::InputsOf(world); }
  std::string ErrorsLog() const { return tytest::ReadFile(std::filesystem::path(Data()) / "errors.log"); }
};

// A visit of `ip` to site 1 starting at `start`, on page "index.htm".
inline database::Visit MakeVisit(const std::string& ip, vb::Date start, int site = 1) {
  database::Visit v;
  v.siteIndex = site;
  v.clientAddress = ip;
  v.hostName = ip;
  v.startTime = start;
  v.lastHitTime = start;
  v.lastPageTime = start;
  v.browser = "IE6";
  v.currentPage = "index.htm";
  v.status = 200;
  v.pageCount = 1;
  v.visitNumber = 1;
  v.visitorVisits = 1;
  return v;
}

// One record of a table as field name -> text with trailing blanks removed.
using tytest::Record;

using tytest::ReadTable;

inline bool FileThere(const std::string& folder, const std::string& name) {
  return std::filesystem::exists(std::filesystem::path(folder) / name);
}

}  // namespace dbtest
