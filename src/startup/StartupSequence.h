// Start-up: the entry procedure `Main`, which refuses a second copy, works out the application,
// data and temporary folders, reads the branding and the data-folder location from the registry,
// fills the World with its built-in defaults and then loads the sites, the robot list, the
// exception catalogue, the global settings and the reference files. Also the small helpers it is
// built from: the registry readers, `EnsureFolder` and the time-zone offset.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/Clock.h"
#include "platform/FolderLock.h"
#include "platform/Registry.h"
#include "platform/SingleInstance.h"
#include "startup/World.h"

namespace startup {

// The name the single-instance lock is taken under.
inline constexpr std::string_view kProgramName = "tydbcreate";

struct MainArgs {
  // The command line, taken whole as the application folder ("" = use `executableFolder`).
  std::string commandLine;
  // The folder of the running executable.
  std::string executableFolder;
  const platform::Registry& registry;
  const platform::Clock& clock;
  // Where the single-instance lock file lives ("" = the system temp folder).
  std::string lockFolder;
  // The program version to record (major "." minor "." revision).
  std::string programVersion{kProgramVersion};
};

enum class MainStatus {
  Ok,                  // the World is loaded; show the window
  AnotherCopyRunning,  // nothing was loaded; end silently
  DataFolderBusy,      // another run uses the same data folder (named in `failure`); stop there
  Failed,              // a failure ended start-up (logged as "Main"); the World holds what was done
};

struct MainResult {
  MainStatus status = MainStatus::Failed;
  // Set unless status == AnotherCopyRunning.
  std::unique_ptr<World> world;
  // The single-instance lock; keep it as long as the program runs.
  std::unique_ptr<platform::SingleInstance> instance;
  // The data folder's lock (one run per data folder, whatever the temp folder); keep it as long
  // as the program runs.
  std::unique_ptr<platform::FolderLock> dataFolderLock;
  // For Failed: the failure's description.
  std::string failure;
};

// Runs the start-up steps in order (see StartupSequence.cpp). Never throws: a failure in a step of
// its own is logged with the procedure name "Main" and gives status Failed; the loaders handle
// their own failures and do not stop it.
MainResult Main(const MainArgs& args);

// Sets every built-in default of the World in `Main`'s order: the settings defaults, the 16
// start-up page extensions, the web colours, the DNS host masks, the 26 search engines and the
// built-in exception catalogue. For tests and tools that build a World without `Main`.
void SetBuiltInDefaults(World& world);

// Makes sure the folder `path` exists: when it does not, creates that one folder (one level only:
// a missing parent makes the creation fail, which is ignored, as is any other failure). Never
// throws, never changes the current directory.
void EnsureFolder(const std::string& path);

// The string value `valueName` under "Software\Fenwright\" + appTitle + " \" + section (the blank
// before the last backslash is part of the key the product writes). A value that is empty or
// "0" gives `defaultValue`.
std::string GetSettingsValue(const platform::Registry& registry, std::string_view appTitle,
                             std::string_view section, std::string_view valueName,
                             std::string_view defaultValue);

// The string value `valueName` under the branding key (platform::kBrandingKey); an empty or absent
// value gives `defaultValue`.
std::string GetBrandingValue(const platform::Registry& registry, std::string_view valueName,
                             std::string_view defaultValue);

// Minutes to add to UTC to obtain local time, as the clock reports it.
int32_t GetTimeZoneOffset(const platform::Clock& clock);

}  // namespace startup
