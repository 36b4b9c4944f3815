// tydbcreate-cli: the batch front-end. Each command adds its own options here and runs from its
// own file; this file only wires them up.
#include <iostream>

#include <CLI/CLI.hpp>

#include "CliCommon.h"
#include "ShowConfig.h"

int main(int argc, char** argv) {
  CLI::App app{
      "tydbcreate-cli: rebuilds the visitor database of the monitoring product from the "
      "web-server logs of its sites, without a window."};
  app.footer(
      "Environment: TALLYO_REGISTRY names the registry file (default /etc/tallyo/registry.ini); "
      "TMPDIR is where the single-instance lock lives.\n"
      "Exit status: 0 done, 1 start-up failed, 2 bad option value, 3 another copy is running.");

  cli::ClockOptions clock;
  cli::AddClockOptions(app, clock);
  cli::ShowConfigOptions showConfig;
  cli::AddShowConfigOptions(app, showConfig);

  CLI11_PARSE(app, argc, argv);

  if (showConfig.Requested()) return cli::RunShowConfig(showConfig, clock);

  std::cout << app.help();
  return cli::kExitOk;
}
