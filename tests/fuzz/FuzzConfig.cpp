// Fuzz target: the product's configuration files read by start-up. The input becomes the sites
// file, SETTINGS.INI and EXTYPES.INI (the same bytes for each), read by the INI item reader and
// the loaders; then the loaded configuration is printed as JSON. Nothing may crash or hang.
#include <cstdint>
#include <exception>
#include <filesystem>

#include "FuzzTarget.h"
#include "platform/Clock.h"
#include "startup/ConfigJson.h"
#include "startup/Engine.h"
#include "startup/ExceptionCatalogue.h"
#include "startup/Settings.h"
#include "startup/Sites.h"
#include "startup/World.h"
#include "vb/Dates.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& app = fuzz::Scratch();
  std::filesystem::create_directories(app + "Data");
  for (const char* name : {"TALLYO.INI", "SETTINGS.INI", "EXTYPES.INI"})
    fuzz::Write(app + name, data, size);
  platform::FixedClock clock{vb::DateSerial(2026, 11, 16), 0};
  startup::World world(clock);
  world.app.appFolder = app;
  world.app.dataFolder = app + "Data/";
  world.errors.SetBeep(false);
  startup::SetBuiltInDefaults(world);
  startup::LoadSites(world);
  startup::LoadSettings(world);
  // Its contract is to throw on a bad file; the settings loader, its caller, catches.
  try {
    startup::LoadExceptionTypesFile(world.exceptions, app);
  } catch (const std::exception&) {
  }
  (void)startup::DescribeSitesFile(world);
  (void)startup::ConfigToJson(world);
  return 0;
}
