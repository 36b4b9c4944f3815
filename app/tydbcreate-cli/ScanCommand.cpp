// The scan command of tydbcreate-cli.
#include "ScanCommand.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>

#include "ConsoleFrontend.h"
#include "database/Replacement.h"
#include "database/Schema.h"
#include "loginput/Archive.h"
#include "startup/ConfigJson.h"
#include "vb/Strings.h"
#include "wizard/ScanSummary.h"
#include "wizard/Wizard.h"

namespace cli {
namespace {

int ExitStatus(wizard::StartResult result) {
  switch (result) {
    case wizard::StartResult::Completed:
      return kExitOk;
    case wizard::StartResult::ServiceRunning:
      return kExitServiceRunning;
    case wizard::StartResult::NotConfirmed:
      return kExitNotConfirmed;
    case wizard::StartResult::DatabaseFailed:
      return kExitDatabaseFailed;
    case wizard::StartResult::Cancelled:
      return kExitCancelled;
    case wizard::StartResult::WriteFailed:
      return kExitWriteFailed;
  }
  return kExitCancelled;
}

// The run's figures as one JSON object. "seconds" is the run timer's elapsed time (the one the
// summary reports); "linesPerSecond" divides by it unrounded (0 for a time of 0 or less), so a
// short run still gets a rate.
std::string RunJson(wizard::ScanDriver& driver, const std::vector<std::string>& messages) {
  // A run that did not replace the database added no record to it.
  const database::RunTotals totals = driver.Database().DatabaseReplaced()
                                         ? driver.SummaryTotals()
                                         : database::RunTotals{};
  const double seconds = driver.Elapsed();
  const long long perSecond =
      seconds > 0 ? static_cast<long long>(driver.TotalLines() / seconds + 0.5) : 0;
  char number[64];
  std::snprintf(number, sizeof number, "%.3f", seconds);
  std::string j = "{";
  j += "\"lines\":" + std::to_string(driver.TotalLines());
  j += ",\"seconds\":" + std::string(number);
  j += ",\"linesPerSecond\":" + std::to_string(perSecond);
  j += ",\"visitRecordsAdded\":" + std::to_string(totals.visitRecordsAdded);
  j += ",\"pageViewRecordsAdded\":" + std::to_string(totals.pageRecordsAdded);
  j += ",\"exceptionRecordsAdded\":" + std::to_string(totals.exceptionRecordsAdded);
  const analysis::DnsCounts& dns = driver.DnsCounts();
  j += ",\"dnsRequests\":" + std::to_string(dns.requests);
  j += ",\"dnsCacheHits\":" + std::to_string(dns.cacheHits);
  j += ",\"dnsFailures\":" + std::to_string(dns.failures);
  j += ",\"messages\":[";
  for (size_t i = 0; i < messages.size(); ++i) {
    if (i > 0) j += ",";
    j += startup::JsonString(messages[i]);
  }
  j += "],\"summary\":" + startup::JsonString(driver.Summary()) + "}";
  return j;
}

// The size limits of --table-size-limit ("Pages=100000"), by the table's own name; false with
// the reason in `error` for a table this utility does not write or a size that is not a number.
bool ParseTableSizeLimits(const std::vector<std::string>& given,
                          std::map<std::string, uint64_t, std::less<>>& limits,
                          std::string& error) {
  static constexpr std::string_view kTables[] = {
      database::schema::kVisits,     database::schema::kVisitor, database::schema::kReferrers,
      database::schema::kExceptions, database::schema::kPages,   database::schema::kDownloads,
      database::schema::kDaySum};
  for (const std::string& g : given) {
    const size_t eq = g.find('=');
    const std::string name = g.substr(0, eq == std::string::npos ? g.size() : eq);
    const std::string bytes = eq == std::string::npos ? std::string() : g.substr(eq + 1);
    const std::string_view* table = std::find_if(
        std::begin(kTables), std::end(kTables),
        [&](std::string_view t) { return vb::EqualsNoCase(t, name); });
    const bool digits = !bytes.empty() && bytes.size() <= 12 &&
                        bytes.find_first_not_of("0123456789") == std::string::npos;
    if (table == std::end(kTables) || !digits) {
      error = "--table-size-limit " + g + ": expected TABLE=BYTES with TABLE one of Visits, "
              "Visitor, Referrers, Exceptions, Pages, Downloads, DaySum";
      return false;
    }
    limits[std::string(*table)] = std::stoull(bytes);
  }
  return true;
}

}  // namespace

void AddScanOptions(CLI::App& app, ScanOptions& options) {
  app.add_option("APPFOLDER", options.appFolder,
                 "The folder of SETTINGS.INI and the sites file; the database is rebuilt from "
                 "the sites' logs. Required for a scan (without it this usage is printed).");
  app.add_flag("-y,--yes", options.yes,
               "Answer \"Are you sure?\" with Yes. Without it the question is asked on the "
               "terminal, and refused when stdin is not a terminal.");
  auto* dns = app.add_flag(
      "--dns", options.dns,
      "Make reverse DNS lookups for addresses whose host name is not known yet (default: the "
      "REVERSEDNS setting). Up to 100 lookups are in flight; the scan pauses while more than 95 "
      "are outstanding.");
  auto* noDns = app.add_flag("--no-dns", options.noDns, "Make no reverse DNS lookups.");
  dns->excludes(noDns);
  app.add_option("--dns-server", options.dnsServers,
                 "A DNS server for the lookups, as ADDRESS or ADDRESS:PORT ([IPv6]:PORT); "
                 "repeat it for more servers, tried in turn. Default: the system's resolver "
                 "configuration.")
      ->type_name("HOST[:PORT]")
      ->allow_extra_args(false)  // one server per --dns-server: APPFOLDER may follow
      ->check([](const std::string& server) { return platform::CheckDnsServer(server); });
  app.add_option("--dns-timeout", options.dnsTimeoutMs,
                 "The longest one lookup may take, every try included, in milliseconds; then the "
                 "visit keeps its address followed by \" ?\".")
      ->type_name("MS")
      ->default_val(platform::kDefaultDnsTimeoutMs)
      ->check(CLI::Range(1, 600000));
  app.add_option("--dns-retries", options.dnsRetries,
                 "How many more times a server that did not answer is asked, within the "
                 "time-out.")
      ->type_name("N")
      ->default_val(platform::kDefaultDnsRetries)
      ->check(CLI::Range(0, 10));
  app.add_option("--key-memory", options.keyMemoryMB,
                 "The memory, in MB, that the index keys gathered during the scan may keep; "
                 "beyond it they go to temporary files beside the new tables (in the data "
                 "folder's Temp/ folder) and are merged from there at the end. The tables are "
                 "the same whatever it is; the rest of a scan needs about 150 MB besides, and "
                 "about 16 bytes more for each visit (a peak of about 270 MB at 10 million lines of a "
                 "busy site). "
                 "0 sends every full run of keys to the files.")
      ->type_name("MB")
      ->default_val(startup::kDefaultKeyMemoryMB)
      ->check(CLI::Range(uint64_t(0), uint64_t(1) << 20));
  app.add_flag("-q,--quiet", options.quiet,
               "No progress and no summary; only warnings and failures on stderr.");
  app.add_flag("--json", options.json,
               "At the end print one JSON object on stdout: lines, seconds, linesPerSecond, "
               "visitRecordsAdded, pageViewRecordsAdded, exceptionRecordsAdded, dnsRequests, "
               "dnsCacheHits, dnsFailures, messages (every message in order) and summary.");
  // Not in --help: it exists so that a test can fill a table without writing 2 GB.
  app.add_option("--table-size-limit", options.tableSizeLimits,
                 "A lower size limit in bytes of a table's files, as TABLE=BYTES.")
      ->allow_extra_args(false)
      ->group("");
}

int RunScan(const ScanOptions& options, const ClockOptions& clockOptions) {
  std::string error;

  const auto clock = MakeClock(clockOptions, error);
  if (!clock) {
    std::cerr << "tydbcreate-cli: " << error << "\n";
    return kExitUsage;
  }
  std::map<std::string, uint64_t, std::less<>> tableSizeLimits;
  if (!ParseTableSizeLimits(options.tableSizeLimits, tableSizeLimits, error)) {
    std::cerr << "tydbcreate-cli: " << error << "\n";
    return kExitUsage;
  }
  // Ctrl-C (and SIGTERM, SIGHUP) are caught from here on: sent before the first yield, they
  // cancel there.
  ConsoleSettings settings;
  settings.quiet = options.quiet;
  settings.statusLine = !options.quiet && isatty(STDERR_FILENO) == 1;
  settings.askOnTerminal = isatty(STDIN_FILENO) == 1;
  settings.assumeYes = options.yes;
  ConsoleFrontend ui(settings);
  ui.CatchInterrupts();

  const auto registry = MachineRegistry();
  startup::MainResult started = RunStartup(options.appFolder, *registry, *clock);
  if (started.status == startup::MainStatus::AnotherCopyRunning ||
      started.status == startup::MainStatus::DataFolderBusy)
    return kExitAnotherCopy;
  if (started.status != startup::MainStatus::Ok) return kExitStartupFailed;
  startup::World& world = *started.world;
  world.app.tableSizeLimits = std::move(tableSizeLimits);
  world.app.keyMemoryBytes = options.keyMemoryMB << 20;
  ui.SetDataFolder(world.app.dataFolder);
  // What a run killed earlier left: its new tables thrown away, or its replacement finished, and
  // the files it had unpacked from an archive. The data folder's lock is held, so nothing of
  // another run is touched.
  if (std::string what; database::Replacement::Recover(world.app.dataFolder, &what) !=
                        database::Recovery::Nothing)
    ui.Note("tydbcreate-cli: " + what);
  // A robot list being saved when the run was killed: the list in place is the last whole one.
  std::error_code ignored;
  std::filesystem::remove(std::filesystem::path(world.app.dataFolder) / "robots.dat.new", ignored);
  if (const int removed = loginput::RemoveLeftoverUnpackedFiles(world); removed > 0)
    ui.Note("tydbcreate-cli: " + std::to_string(removed) +
            " file(s) left in a log folder by an unpacking that did not finish were removed.");
  const size_t reportsBefore = world.errors.Reports();

  wizard::SystemRunTimer timer;
  // The resolver outlives the window, whose scan hands it requests.
  std::unique_ptr<platform::Resolver> resolver;
  wizard::Wizard window(world, ui, timer);

  int status = kExitOk;
  const wizard::LoadResult loaded = window.Load();
  if (loaded != wizard::LoadResult::Ready) {
    status = loaded == wizard::LoadResult::NoSites ? kExitNoSites : kExitAllFtp;
  } else {
    // The DNS box: --dns or --no-dns, else the REVERSEDNS setting. A resolver that cannot be
    // set up is said, and the scan runs without lookups (and so gives the time and the rate).
    bool dnsWanted = options.dns || (!options.noDns && world.settings.reverseDns);
    wizard::ScanDriver& driver = window.Driver();
    if (dnsWanted) {
      platform::DnsSettings dns;
      dns.servers = options.dnsServers;
      dns.timeoutMs = options.dnsTimeoutMs;
      dns.retries = options.dnsRetries;
      std::string why;
      resolver = platform::MakeResolver(dns, why);
      if (!resolver) {
        std::cerr << "tydbcreate-cli: warning: reverse DNS lookups cannot be made (" << why
                  << "); scanning without them. Check --dns-server, or run with --no-dns.\n";
        dnsWanted = false;
      }
    }
    window.SetDns(dnsWanted);
    driver.SetResolver(resolver.get());

    ui.SetCancelHandler([&window] { return window.Cancel(); });
    ui.SetTerminateHandler([&window] { window.CancelNow(); });
    ui.SetProgressSource([&driver, &ui] {
      ScanProgress p;
      p.lines = driver.TotalLines();
      p.position = driver.Input().currentReadPos;
      const int row = ui.FileGrid().SelectedRow();
      if (row >= 1 && row < ui.FileGrid().RowCount()) {
        const long index = ui.FileGrid().Row(row).rowData;
        if (index >= 1 && static_cast<size_t>(index) < driver.Input().logFiles.size())
          p.fileSize = driver.Input().logFiles[static_cast<size_t>(index)].size;
      }
      return p;
    });
    status = ExitStatus(window.Start(*registry));
    // A completed run whose tables are not all whole says so in its status too: the database
    // was replaced, but a table that became full left records out (its line is in errors.log
    // and was shown).
    if (status == kExitOk && !driver.Database().FullTables().empty()) status = kExitTableFull;
    if (status == kExitCancelled)
      ui.Note("tydbcreate-cli: scan cancelled; the database in " + world.app.dataFolder +
              " was not replaced: the previous one is kept as it was.");
  }
  // The window closes: database closed, robot list saved when it changed.
  window.Unload();
  ui.ClearStatus();
  // The run goes on past the problems it reports (a table that could not be written whole, a
  // failed operation): the user is told that there is something to read, as a warning, so even
  // with --quiet.
  if (const size_t reports = world.errors.Reports() - reportsBefore; reports > 0)
    std::cerr << "tydbcreate-cli: warning: " << reports
              << (reports == 1 ? " problem was" : " problems were")
              << " reported while the database was built; see errors.log in the data folder.\n";

  if (options.json) {
    std::cout << RunJson(window.Driver(), ui.Messages()) << "\n";
  } else if (!options.quiet && !window.Driver().Summary().empty()) {
    std::cout << vb::Replace(window.Driver().Summary(), "\r\n", "\n");
  }
  std::cout.flush();
  return status;
}

}  // namespace cli
