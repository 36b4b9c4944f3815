// The scan: start-up, the wizard's load checks, the start question, the scan of every site and
// the summary, run from the command line with a terminal (or nothing) as the window.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "CliCommon.h"
#include "platform/Resolver.h"
#include "startup/AppState.h"

namespace cli {

// Exit statuses of a scan (besides kExitOk, kExitStartupFailed, kExitUsage, kExitAnotherCopy).
inline constexpr int kExitNoSites = 4;         // no site is set up
inline constexpr int kExitAllFtp = 5;          // every site's logs come by FTP
inline constexpr int kExitServiceRunning = 6;  // the monitoring product runs as a service
inline constexpr int kExitNotConfirmed = 7;    // "Are you sure?" was not answered Yes
inline constexpr int kExitDatabaseFailed = 8;  // the database could not be created
inline constexpr int kExitCancelled = 9;       // Ctrl-C, SIGTERM or SIGHUP: cancelled
inline constexpr int kExitWriteFailed = 10;    // not completed: a write failed (a full disk)
inline constexpr int kExitTableFull = 11;      // completed, but a table became full: the records
                                               // past its size limit are left out

struct ScanOptions {
  std::string appFolder;  // the optional APPFOLDER argument
  bool yes = false;       // --yes
  bool dns = false;       // --dns
  bool noDns = false;     // --no-dns
  std::vector<std::string> dnsServers;                // --dns-server, in order
  int dnsTimeoutMs = platform::kDefaultDnsTimeoutMs;  // --dns-timeout
  int dnsRetries = platform::kDefaultDnsRetries;      // --dns-retries
  uint64_t keyMemoryMB = startup::kDefaultKeyMemoryMB;  // --key-memory
  bool quiet = false;     // --quiet
  bool json = false;      // --json
  // --table-size-limit TABLE=BYTES (hidden, for tests): a lower size limit of a table's files.
  std::vector<std::string> tableSizeLimits;
};

// Adds APPFOLDER and the scan options to `app`.
void AddScanOptions(CLI::App& app, ScanOptions& options);

// Runs the scan and prints its outcome (the summary, or with --json one JSON object) on stdout.
// Returns one of the exit statuses above.
int RunScan(const ScanOptions& options, const ClockOptions& clock);

}  // namespace cli
