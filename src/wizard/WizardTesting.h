// Test helpers for the scan driver and the wizard: a World in a fresh temp folder with sites whose
// log folders lie inside it, a W3C log writer, and readers for the tables a run leaves behind.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "FakeFrontend.h"
#include "TableReadBack.h"
#include "TestSupport.h"
#include "platform/Clock.h"
#include "startup/StartupSequence.h"
#include "startup/World.h"
#include "vb/Dates.h"
#include "wizard/RunTimer.h"

namespace wizard::testing {

struct ScanWorld {
  tytest::TempDir dir;
  platform::FixedClock clock{vb::DateSerial(2026, 11, 16) + vb::TimeSerial(2, 23, 14)};
  std::unique_ptr<startup::World> world = std::make_unique<startup::World>(clock);
  tytest::FakeFrontend ui;
  FixedRunTimer timer{1000.0f, 2.0f};  // every run takes two seconds

  ScanWorld() {
    startup::SetBuiltInDefaults(*world);
    world->app.appFolder = dir.str();
    world->app.dataFolder = dir.str() + "Data/";
    world->app.appTitle = "Tallyo";
    world->errors.SetBeep(false);
    std::filesystem::create_directories(dir.path() / "Data");
    world->sites.resize(151);
  }
  startup::World& w() { return *world; }
  std::string Data() const { return dir.str() + "Data/"; }

  // Appends a site reading `sub`/ under the temp folder (created), TYPE `type`, mask "*.log".
  startup::Site& AddSite(const std::string& name, const std::string& sub,
                         startup::LogLayout type = startup::LogLayout::W3cExtended,
                         bool ftp = false) {
    startup::Site& s = world->sites[static_cast<size_t>(++world->siteCount)];
    s.name = name;
    s.folder = dir.str() + sub + "/";
    s.mask = "*.log";
    s.type = type;
    s.ftp = ftp;
    std::filesystem::create_directories(dir.path() / sub);
    return s;
  }
  void Write(const std::string& relative, const std::string& bytes) {
    tytest::WriteFile(dir.path() / relative, bytes);
  }
  std::string ErrorsLog() const { return tytest::ReadFile(dir.path() / "Data" / "errors.log"); }

  // Every message box text, in order.
  std::vector<std::string> Messages() const {
    std::vector<std::string> out;
    for (const auto& m : ui.messages) out.push_back(m.text);
    return out;
  }
};

// A small W3C log: header and `hits` page hits from `visitors` addresses, a minute apart, on
// 2026-11-01, CR LF line ends.
inline std::string W3cLog(int hits, int visitors = 3) {
  std::string s =
      "#Software: test\r\n#Version: 1.0\r\n#Date: 2026-11-01 00:00:00\r\n"
      "#Fields: date time c-ip cs-method cs-uri-stem sc-status cs(User-Agent) cs(Referer)\r\n";
  for (int i = 0; i < hits; ++i) {
    char line[256];
    std::snprintf(line, sizeof line,
                  "2026-11-01 %02d:%02d:00 10.0.0.%d GET /page%d.htm 200 "
                  "Mozilla/4.0+(compatible;+MSIE+6.0;+Windows+NT+5.1) -\r\n",
                  (i / 60) % 24, i % 60, 1 + i % visitors, i % 7);
    s += line;
  }
  return s;
}

// The tables a run leaves behind: record counts and the checker's findings.
using tytest::RecordCount;
using tytest::TableDefects;

}  // namespace wizard::testing
