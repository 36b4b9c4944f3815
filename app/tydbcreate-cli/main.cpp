// tydbcreate-cli: the batch front-end. Each command adds its own options here and runs from its
// own file; this file only wires them up.
#include <iostream>

#include <CLI/CLI.hpp>

#include "CliCommon.h"
#include "ScanCommand.h"
#include "ShowConfig.h"
#include "vb/Strings.h"

int main(int argc, char** argv) {
  CLI::App app{
      "tydbcreate-cli: rebuilds the visitor database of the monitoring product from the "
      "web-server logs of its sites, without a window."};
  app.footer(
      "Environment: TALLYO_REGISTRY names the registry file (default /etc/tallyo/registry.ini); "
      "TMPDIR is where the machine-wide single-instance lock lives (the data folder itself is "
      "locked too).\n"
      "Exit status: 0 done (scan completed), 1 start-up failed, 2 bad usage or option value, 3 "
      "another copy is running (on this machine or on the same data folder), 4 no sites are set "
      "up, 5 every site's logs come by FTP, 6 the monitoring product runs as a service, 7 \"Are "
      "you sure?\" not answered Yes, 8 the database could not be created, 9 the scan was "
      "cancelled (Ctrl-C, SIGTERM, SIGHUP), 10 not completed: a write failed; the previous "
      "database is kept. With 8, 9 and 10 the database is left exactly as it was before the "
      "run.");

  cli::ClockOptions clock;
  cli::AddClockOptions(app, clock);
  cli::ShowConfigOptions showConfig;
  cli::AddShowConfigOptions(app, showConfig);
  cli::ScanOptions scan;
  cli::AddScanOptions(app, scan);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // Help and version end well; a bad command line ends with the usage status.
    return app.exit(e) == 0 ? cli::kExitOk : cli::kExitUsage;
  }

  if (showConfig.Requested()) {
    if (!scan.appFolder.empty() && showConfig.appFolder.empty())
      showConfig.appFolder = scan.appFolder;
    return cli::RunShowConfig(showConfig, clock);
  }
  // A scan needs its application folder: the window's rule (the program's own folder) would make
  // a data folder beside this program.
  if (vb::Trim(scan.appFolder).empty()) {
    std::cerr << app.help() << "tydbcreate-cli: no application folder given; nothing was done.\n";
    return cli::kExitUsage;
  }
  return cli::RunScan(scan, clock);
}
