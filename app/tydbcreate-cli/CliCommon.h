// What every command of the batch front-end shares: the clock it runs on (--now,
// SOURCE_DATE_EPOCH or the system clock), the folder of the executable, the registry of this
// machine, running start-up, and the exit statuses.
#pragma once

#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "platform/Clock.h"
#include "platform/Registry.h"
#include "startup/StartupSequence.h"

namespace cli {

// Exit statuses of tydbcreate-cli.
inline constexpr int kExitOk = 0;
inline constexpr int kExitStartupFailed = 1;     // start-up failed; see errors.log
inline constexpr int kExitUsage = 2;             // a bad option value
inline constexpr int kExitAnotherCopy = 3;       // another copy of the program is running

struct ClockOptions {
  std::string now;  // "yyyy-mm-dd hh:mm:ss" or empty
};

// Adds --now to `app`.
void AddClockOptions(CLI::App& app, ClockOptions& options);

// The clock to run on: --now when given (a fixed local time, zone offset 0); else, when the
// environment variable SOURCE_DATE_EPOCH holds a whole number of seconds, that UTC moment (zone
// offset 0); else the system clock. Returns nullptr and sets `error` when --now or
// SOURCE_DATE_EPOCH cannot be read.
std::unique_ptr<platform::Clock> MakeClock(const ClockOptions& options, std::string& error);

// The folder of the running executable, ending with "/" ("" when it cannot be found).
std::string ExecutableFolder();

// This machine's registry (the INI file named by TALLYO_REGISTRY on Linux).
std::unique_ptr<platform::Registry> MachineRegistry();

// Runs start-up with `appFolderArgument` as the command line. A second copy is reported on
// stderr (the product itself ends silently; a batch user deserves to know why nothing happened).
startup::MainResult RunStartup(const std::string& appFolderArgument,
                               const platform::Registry& registry, const platform::Clock& clock);

}  // namespace cli
