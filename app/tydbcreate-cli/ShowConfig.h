// --show-config: runs start-up and prints the loaded configuration as one JSON object.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "CliCommon.h"

namespace cli {

struct ShowConfigOptions {
  CLI::Option* option = nullptr;  // set by AddShowConfigOptions
  std::string appFolder;          // the optional APPFOLDER value
  bool showSecrets = false;       // --show-secrets: passwords as they are

  bool Requested() const { return option != nullptr && option->count() > 0; }
};

// Adds --show-config [APPFOLDER] to `app`.
void AddShowConfigOptions(CLI::App& app, ShowConfigOptions& options);

// Runs start-up for the folder (the executable's folder when none was given) and prints the
// configuration JSON on stdout. Returns the exit status: kExitOk; kExitAnotherCopy when another
// copy runs (nothing printed); kExitStartupFailed when start-up failed (what was loaded is
// still printed); kExitUsage for a bad clock option.
int RunShowConfig(const ShowConfigOptions& options, const ClockOptions& clock);

}  // namespace cli
