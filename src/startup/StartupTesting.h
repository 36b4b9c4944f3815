// Test helper for the start-up tests: a World over a fresh temp application folder (with a Data/
// folder), a fixed clock and the built-in defaults, plus writers for its files.
#pragma once

#include <memory>
#include <string>

#include "TestSupport.h"
#include "platform/Clock.h"
#include "startup/StartupSequence.h"
#include "startup/World.h"
#include "vb/Dates.h"

namespace startup::testing {

// 16/11/2026 02:23:14, the moment the tests' clock stands at.
inline vb::Date TestNow() { return vb::DateSerial(2026, 11, 16) + vb::TimeSerial(2, 23, 14); }

struct TestWorld {
  tytest::TempDir dir;
  platform::FixedClock clock{TestNow(), 60};
  std::unique_ptr<World> world = std::make_unique<World>(clock);

  TestWorld() {
    world->app.appFolder = dir.str();
    world->app.dataFolder = dir.str() + "Data/";
    std::filesystem::create_directory(dir.path() / "Data");
    world->errors.SetBeep(false);
    SetBuiltInDefaults(*world);
  }
  World& w() { return *world; }
  // A file in the application folder / in the data folder.
  void App(const std::string& name, const std::string& bytes) {
    tytest::WriteFile(dir.path() / name, bytes);
  }
  void Data(const std::string& name, const std::string& bytes) {
    tytest::WriteFile(dir.path() / "Data" / name, bytes);
  }
};

}  // namespace startup::testing
