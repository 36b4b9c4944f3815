// scanbench: the whole scan, end to end, on a large W3C log: start-up of an application folder
// with one W3C site, the database created, every line read and analysed, every table written and
// indexed, the database closed. Prints lines per second and the peak memory of the process.
//
//   scanbench [--lines N] [--seed S] [--log FILE] [--keep] [--check] [--key-memory MB]
//
// Without --log the log is generated with tools/gen-w3c-log.py (found beside the build tree, or
// named with --generator). Reverse DNS is off. The timed part is the scan alone (from the start
// question's answer to the closed database); generating or copying the log is not timed.
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "benchsupport/HeadlessFrontend.h"
#include "dbase/Checker.h"
#include "platform/Clock.h"
#include "platform/Registry.h"
#include "startup/StartupSequence.h"
#include "wizard/RunTimer.h"
#include "wizard/Wizard.h"
#include "ProgramVersion.h"

namespace {

namespace fs = std::filesystem;

fs::path DefaultGenerator() {
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  for (fs::path dir = exe.parent_path(); !dir.empty() && dir != dir.root_path();
       dir = dir.parent_path()) {
    if (fs::exists(dir / "tools" / "gen-w3c-log.py")) return dir / "tools" / "gen-w3c-log.py";
  }
  return "tools/gen-w3c-log.py";
}

void WriteText(const fs::path& p, const std::string& text) {
  std::ofstream f(p, std::ios::binary);
  f << text;
}

// User plus system CPU seconds of this process so far.
double CpuSeconds() {
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec +
         (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

long PeakRssKb() {
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_maxrss;  // kilobytes on Linux
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"scanbench: times a whole scan of a large W3C log (DNS off, every table written)."};
  long lines = 1000000;
  int seed = 1;
  std::string log, generator = DefaultGenerator().string();
  bool keep = false, check = false;
  app.add_option("--lines", lines, "Data lines to generate (default 1,000,000).");
  app.add_option("--seed", seed, "Seed of the generated log (default 1).");
  app.add_option("--log", log, "Scan this log file instead of generating one (it is copied).");
  app.add_option("--generator", generator, "The log generator script.");
  app.add_flag("--keep", keep, "Keep the temp application folder and print where it is.");
  app.add_flag("--check", check, "Run the table checker over every table afterwards.");
  uint64_t keyMemoryMB = startup::kDefaultKeyMemoryMB;
  app.add_option("--key-memory", keyMemoryMB,
                 "The memory (MB) the gathered index keys may keep before they go to temporary "
                 "files (default " + std::to_string(startup::kDefaultKeyMemoryMB) + ").");
  app.set_version_flag("--version", TY_VERSION_LINE("scanbench"), "Print the version and exit");
  CLI11_PARSE(app, argc, argv);

  // 1. A temp application folder with one W3C site reading logs/.
  std::string templ = (fs::temp_directory_path() / "scanbench-XXXXXX").string();
  if (!mkdtemp(templ.data())) {
    std::cerr << "scanbench: cannot create a temp folder\n";
    return 1;
  }
  const fs::path root = templ;
  fs::create_directories(root / "logs");
  fs::create_directories(root / "Data");
  WriteText(root / "SETTINGS.INI", "REVERSEDNS=False\r\nINACTIVITYMINS=10\r\n\r\n");
  WriteText(root / "TALLYO.INI", "[Bench Site]\r\nTYPE=0\r\nFOLDER=logs/\r\nMASK=*.log\r\n\r\n");
  const fs::path target = root / "logs" / "ex000001.log";

  // 2. The log.
  if (!log.empty()) {
    std::error_code ec;
    fs::copy_file(log, target, ec);
    if (ec) {
      std::cerr << "scanbench: cannot copy " << log << ": " << ec.message() << "\n";
      return 1;
    }
  } else {
    const std::string cmd = "python3 '" + generator + "' --lines " + std::to_string(lines) +
                            " --seed " + std::to_string(seed) + " > '" + target.string() + "'";
    std::cerr << "scanbench: generating " << lines << " lines ...\n";
    if (std::system(cmd.c_str()) != 0) {
      std::cerr << "scanbench: the generator failed: " << cmd << "\n";
      return 1;
    }
  }
  const auto logBytes = fs::file_size(target);

  // 3. Start-up, load checks, and the timed scan.
  const platform::IniRegistry registry = platform::IniRegistry::FromText("");
  const platform::SystemClock clock;
  startup::MainResult started = startup::Main(
      startup::MainArgs{root.string(), root.string(), registry, clock, root.string()});
  if (started.status != startup::MainStatus::Ok) {
    std::cerr << "scanbench: start-up failed: " << started.failure << "\n";
    return 1;
  }
  started.world->app.keyMemoryBytes = keyMemoryMB << 20;
  bench::HeadlessFrontend ui;
  wizard::SystemRunTimer timer;
  wizard::Wizard window(*started.world, ui, timer);
  if (window.Load() != wizard::LoadResult::Ready) {
    std::cerr << "scanbench: the site was not loaded\n";
    return 1;
  }
  window.SetDns(false);
  const long rssBefore = PeakRssKb();
  const double cpu0 = CpuSeconds();
  const auto t0 = std::chrono::steady_clock::now();
  const wizard::StartResult result = window.Start(registry);
  const auto t1 = std::chrono::steady_clock::now();
  const double cpu = CpuSeconds() - cpu0;
  window.Unload();
  if (result != wizard::StartResult::Completed) {
    std::cerr << "scanbench: the scan did not complete\n";
    return 1;
  }

  // 4. The figures.
  wizard::ScanDriver& d = window.Driver();
  const double seconds = std::chrono::duration<double>(t1 - t0).count();
  const auto& totals = d.Database().Totals();
  uint64_t tableBytes = 0;
  for (const auto& e : fs::directory_iterator(root / "Data"))
    if (e.is_regular_file()) tableBytes += e.file_size();
  std::printf("log:              %s (%.1f MB)\n", log.empty() ? "generated" : log.c_str(),
              logBytes / 1e6);
  std::printf("lines:            %d\n", d.TotalLines());
  std::printf("seconds:          %.3f wall, %.3f CPU\n", seconds, cpu);
  std::printf("lines/s:          %.0f wall, %.0f CPU\n", d.TotalLines() / seconds,
              d.TotalLines() / cpu);
  std::printf("MB/s:             %.1f\n", logBytes / 1e6 / seconds);
  std::printf("peak RSS:         %.1f MB (%.1f MB before the scan)\n", PeakRssKb() / 1024.0,
              rssBefore / 1024.0);
  std::printf("records added:    %d visits, %d page views, %d exceptions\n",
              totals.visitRecordsAdded, totals.pageRecordsAdded, totals.exceptionRecordsAdded);
  std::printf("tables on disk:   %.1f MB\n", tableBytes / 1e6);
  std::printf("keys spilled:     %.1f MB (key memory %llu MB)\n", d.Database().KeysSpilled() / 1e6,
              static_cast<unsigned long long>(keyMemoryMB));

  int status = 0;
  if (check) {
    for (const auto& e : fs::directory_iterator(root / "Data")) {
      if (e.path().extension() != ".DBF") continue;
      const dbase::CheckReport r = dbase::CheckTable(e.path().string());
      std::printf("check %-16s %s\n", e.path().filename().c_str(), r.Ok() ? "ok" : "DEFECTS");
      for (const auto& defect : r.defects) std::printf("  %s\n", defect.c_str());
      if (!r.Ok()) status = 1;
    }
  }
  if (keep) {
    std::printf("kept:             %s\n", root.c_str());
  } else {
    std::error_code ec;
    fs::remove_all(root, ec);
  }
  return status;
}
