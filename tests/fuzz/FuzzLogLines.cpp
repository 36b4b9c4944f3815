// Fuzz target: a log file as the scan reads it. The input is the log of a site of each log type
// in turn (W3C, and the fixed layouts), read line by line with the header directives, the field
// map and the split into hit fields. Nothing may crash or hang.
#include <cstdint>
#include <filesystem>

#include "FakeFrontend.h"
#include "FuzzTarget.h"
#include "loginput/RunState.h"
#include "loginput/ScanHooks.h"
#include "loginput/ScanLogFile.h"
#include "platform/Clock.h"
#include "startup/Engine.h"
#include "startup/World.h"
#include "vb/Dates.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& folder = fuzz::Scratch();
  const std::string log = folder + "ex.log";
  fuzz::Write(log, data, size);
  platform::FixedClock clock{vb::DateSerial(2026, 11, 16), 0};
  startup::World world(clock);
  world.app.appFolder = folder;
  world.app.dataFolder = folder;
  world.errors.SetBeep(false);
  startup::SetBuiltInDefaults(world);
  world.sites.resize(2);
  world.siteCount = 1;
  tytest::FakeFrontend ui;
  for (int16_t type : {0, 1, 2, 3}) {
    startup::Site& site = world.sites[1];
    site = startup::Site{};
    site.name = "Fuzz";
    site.folder = folder;
    site.type = type;
    site.unixServer = type == 2;
    site.lastLogFile = log;
    loginput::RunState run;
    loginput::CountingHits hooks(run);
    loginput::ScanLogFile(world, ui, run, hooks, 1);
  }
  return 0;
}
