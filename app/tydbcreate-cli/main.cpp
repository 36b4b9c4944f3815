// tydbcreate-cli: the batch front-end. Each command adds its own options here and runs from its
// own file; this file only wires them up.
#include <iostream>

#include <CLI/CLI.hpp>

#include "CliCommon.h"
#include "ProgramVersion.h"
#include "ScanCommand.h"
#include "ShowConfig.h"
#include "vb/Strings.h"

int main(int argc, char** argv) {
  CLI::App app{
      "tydbcreate-cli: rebuilds the visitor database of the monitoring product from the "
      "web-server logs of its sites, without a window."};
  // The footer is also the source of the manual page's ENVIRONMENT and EXIT STATUS sections
  // (the build runs help2man on --help): a heading line ending in ":" and one "  NAME  text" line
  // per entry, two blanks or more between name and text.
  app.footer(
      "Environment:\n"
      "  TALLYO_REGISTRY    The registry file (default /etc/tallyo/registry.ini): the data folder "
      "(DDFPath) and whether the monitoring product runs as a service (ServiceRunning).\n"
      "  SOURCE_DATE_EPOCH  Without --now, fixes the clock at this many seconds since 1970-01-01 "
      "UTC (zone offset 0).\n"
      "  TZ                 The local time zone of the system clock: today's date and the time "
      "zone offset of the run.\n"
      "  TMPDIR             Where the machine-wide single-instance lock lives (default /tmp; the "
      "data folder itself is locked too).\n"
      "\n"
      "Exit status:\n"
      "  0   Done: the scan completed (or the configuration was printed).\n"
      "  1   Start-up failed; see errors.log in the data folder.\n"
      "  2   Bad usage or option value.\n"
      "  3   Another copy is running, on this machine or on the same data folder; nothing was "
      "done.\n"
      "  4   No sites are set up.\n"
      "  5   Every site's logs come by FTP.\n"
      "  6   The monitoring product runs as a service.\n"
      "  7   \"Are you sure?\" was not answered Yes.\n"
      "  8   The database could not be created.\n"
      "  9   The scan was cancelled (Ctrl-C, SIGTERM, SIGHUP).\n"
      "  10  Not completed: a write failed; the previous database is kept.\n"
      "  11  Completed, but a table became full (a file would have passed 2 GB, the most a "
      "dBASE reader opens): the database was replaced, and that table holds the records it "
      "took until then (see errors.log). Scan fewer logs at once.\n"
      "\n"
      "With 8, 9 and 10 the database is left exactly as it was before the run.");
  app.set_version_flag("--version", TY_VERSION_LINE("tydbcreate-cli"),
                       "Print the version and exit");

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
