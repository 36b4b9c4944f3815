// Fuzz target: the INI item reader and the configuration loaders.
//
// The first byte picks the file the rest of the input becomes, in an
// application folder of its own with a Data/ folder; the loader of that file
// then runs on a fresh World:
//   0 SETTINGS.INI   LoadSettings (which also reads EXTYPES.INI and the two
//   .txt tables) 1 TALLYO.INI     LoadSites, then RefreshexceptionConstants
//   (thresholds into the sites) 2 EXTYPES.INI    LoadExceptionTypesFile 3
//   Countries.txt  LoadCountries, then a country lookup 4 Search engines.txt
//   LoadSearchEngines 5 robots.dat     LoadRobotList
// Afterwards the loaded configuration is described as `tydbcreate-cli --show-config` does (the
// sites file's description and the JSON dump). The same bytes are also read item by item with
// vb::ItemReader directly. LoadSettings, LoadSites and LoadRobotList must return (they end silently
// on a failure); the file loaders that LoadSettings calls inside its own handler (EXTYPES.INI and
// the two .txt tables) may end with a vb::Failure, as their contracts say. Any other exception, a
// crash or a sanitizer report is a fault.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzTarget.h"
#include "platform/Clock.h"
#include "startup/ConfigJson.h"
#include "startup/StartupSequence.h"
#include "startup/World.h"
#include "vb/Dates.h"
#include "vb/Failure.h"
#include "vb/ItemReader.h"

namespace {

constexpr const char* kFileNames[] = {"SETTINGS.INI",  "TALLYO.INI",         "EXTYPES.INI",
                                      "Countries.txt", "Search engines.txt", "robots.dat"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const int which = data[0] % 6;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);

  // 1. The item reader alone: every item up to the end (each read consumes at
  // least one byte).
  vb::ItemReader items(bytes);
  for (size_t n = 0; !items.Eof() && n <= bytes.size(); ++n) items.ReadItem();

  // 2. The file in a clean application folder.
  tytest::TempDir& dir = fuzz::Scratch();
  fuzz::Empty(dir.path());
  std::filesystem::create_directory(dir.path() / "Data");
  const bool inData = which >= 3;
  tytest::WriteFile(dir.path() / (inData ? "Data" : "") / kFileNames[which], bytes);

  // 3. Its loader on a fresh World with the built-in defaults.
  platform::FixedClock clock{vb::DateSerial(2026, 11, 16) + vb::TimeSerial(2, 23, 14), 60};
  startup::World world(clock);
  world.app.appFolder = dir.str();
  world.app.dataFolder = dir.str() + "Data/";
  world.app.appTitle = "Tallyo";
  world.errors.SetBeep(false);
  startup::SetBuiltInDefaults(world);
  try {
    switch (which) {
      case 0:
        startup::LoadSettings(world);
        break;
      case 1:
        startup::LoadSites(world);
        startup::RefreshexceptionConstants(world);
        break;
      case 2:
        startup::LoadExceptionTypesFile(world.exceptions, world.app.appFolder);
        break;
      case 3:
        startup::LoadCountries(world.tables, world.app.dataFolder);
        world.tables.LookupCountryName("UK");
        world.tables.LookupCountryName("de");
        break;
      case 4:
        startup::LoadSearchEngines(world.tables, world.app.dataFolder);
        break;
      case 5:
        startup::LoadRobotList(world.robots, world.app.dataFolder);
        break;
    }
  } catch (const vb::Failure&) {
    if (which < 2 || which == 5) throw;  // these loaders promise never to throw
  }
  (void)startup::DescribeSitesFile(world);
  (void)startup::ConfigToJson(world, true);
  return 0;
}
