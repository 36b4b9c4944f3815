// --show-config: start-up, then the World as JSON on stdout.
#include "ShowConfig.h"

#include <iostream>

#include "startup/ConfigJson.h"

namespace cli {

void AddShowConfigOptions(CLI::App& app, ShowConfigOptions& options) {
  options.option =
      app.add_option("--show-config", options.appFolder,
                     "Run start-up for APPFOLDER (default: the folder of this program) and print "
                     "the loaded configuration as one JSON object: folders, SETTINGS.INI values, "
                     "page extensions, DNS masks, search engines, countries, sites with their "
                     "alerts, and the exception catalogue.")
          ->expected(0, 1)
          ->type_name("[APPFOLDER]");
  app.add_flag("--show-secrets", options.showSecrets,
               "With --show-config: print the passwords as they are (by default each one that is "
               "set is shown as \"********\").")
      ->needs(options.option);
}

int RunShowConfig(const ShowConfigOptions& options, const ClockOptions& clockOptions) {
  std::string error;
  const auto clock = MakeClock(clockOptions, error);
  if (!clock) {
    std::cerr << "tydbcreate-cli: " << error << "\n";
    return kExitUsage;
  }
  const auto registry = MachineRegistry();
  const startup::MainResult result = RunStartup(options.appFolder, *registry, *clock);
  if (result.status == startup::MainStatus::AnotherCopyRunning ||
      result.status == startup::MainStatus::DataFolderBusy)
    return kExitAnotherCopy;
  std::cout << startup::ConfigToJson(*result.world, options.showSecrets) << "\n";
  std::cout.flush();
  if (!std::cout) {
    std::cerr << "tydbcreate-cli: could not write the configuration\n";
    return kExitStartupFailed;
  }
  return result.status == startup::MainStatus::Ok ? kExitOk : kExitStartupFailed;
}

}  // namespace cli
