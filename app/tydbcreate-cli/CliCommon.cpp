// The clock, executable folder, registry and start-up shared by the commands of tydbcreate-cli.
#include "CliCommon.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "platform/Files.h"
#include "vb/Dates.h"
#include "vb/Strings.h"

namespace cli {

void AddClockOptions(CLI::App& app, ClockOptions& options) {
  app.add_option("--now", options.now,
                 "Fix the clock at this local time, \"yyyy-mm-dd hh:mm:ss\" (zone offset 0). "
                 "Without it the environment variable SOURCE_DATE_EPOCH (seconds since "
                 "1970-01-01 UTC) fixes it when set; otherwise the system clock is used.")
      ->type_name("DATETIME");
}

std::unique_ptr<platform::Clock> MakeClock(const ClockOptions& options, std::string& error) {
  if (!options.now.empty()) {
    const std::string_view text = vb::Trim(options.now);
    const size_t blank = text.find_first_of(" T");
    vb::Date day = 0;
    vb::Date time = 0;
    const bool ok = vb::ParseIsoDate(text.substr(0, blank), day) &&
                    (blank == std::string_view::npos ||
                     vb::ParseTimeOfDay(vb::Trim(text.substr(blank + 1)), time));
    if (!ok) {
      error = "--now: expected \"yyyy-mm-dd hh:mm:ss\", got \"" + options.now + "\"";
      return nullptr;
    }
    return std::make_unique<platform::FixedClock>(day + time, 0);
  }
  if (const char* epoch = std::getenv("SOURCE_DATE_EPOCH"); epoch != nullptr && *epoch != '\0') {
    char* end = nullptr;
    const long long seconds = std::strtoll(epoch, &end, 10);
    if (end == epoch || *end != '\0' || seconds < 0) {
      error = std::string("SOURCE_DATE_EPOCH: expected whole seconds, got \"") + epoch + "\"";
      return nullptr;
    }
    return std::make_unique<platform::FixedClock>(platform::FromUnixSeconds(seconds, 0), 0);
  }
  return std::make_unique<platform::SystemClock>();
}

std::string ExecutableFolder() {
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return {};
  return platform::WithTrailingSlash(exe.parent_path().string());
}

std::unique_ptr<platform::Registry> MachineRegistry() {
  return platform::OpenSystemRegistry(std::getenv("TALLYO_REGISTRY"));
}

startup::MainResult RunStartup(const std::string& appFolderArgument,
                               const platform::Registry& registry, const platform::Clock& clock) {
  // The lock lives in the system temp folder (TMPDIR).
  startup::MainArgs args{appFolderArgument, ExecutableFolder(), registry, clock, std::string()};
  startup::MainResult result = startup::Main(args);
  if (result.status == startup::MainStatus::AnotherCopyRunning) {
    std::cerr << "tydbcreate-cli: another copy of the program is running; nothing was done.\n";
  } else if (result.status == startup::MainStatus::DataFolderBusy) {
    std::cerr << "tydbcreate-cli: another run is using the data folder " << result.failure
              << "; nothing was done.\n";
  } else if (result.status == startup::MainStatus::Failed) {
    std::cerr << "tydbcreate-cli: start-up failed: " << result.failure
              << " (see errors.log in the data folder)\n";
  }
  return result;
}

}  // namespace cli
