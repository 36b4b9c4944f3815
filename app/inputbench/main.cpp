// inputbench: how fast the log input path runs on its own. Reads one log file through
// ScanLogFile with the counting stand-in for the hit processing (split by the field map, hit
// fields filled, hits counted) and prints lines per second: by the wall clock, per CPU second of
// the process (both threads: the scanning thread and the reader's read-ahead helper), and per
// CPU second of the scanning thread alone, which is what the wall clock shows when the machine
// has a core free for each.
//
//   python3 tools/gen-w3c-log.py --lines 1000000 > /tmp/w3c-1m.log
//   build/bin/inputbench --file /tmp/w3c-1m.log --repeat 5
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "loginput/LogInputState.h"
#include "loginput/ScanHooks.h"
#include "loginput/ScanLogFile.h"
#include "platform/Clock.h"
#include "benchsupport/HeadlessFrontend.h"
#include "startup/World.h"
#include "ProgramVersion.h"

namespace {

// CPU time of this process: unlike the wall clock, it does not count time spent waiting for a
// core that other programs hold.
double CpuSeconds(clockid_t which = CLOCK_PROCESS_CPUTIME_ID) {
  timespec ts{};
  clock_gettime(which, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Measures the log input path: ScanLogFile with a counting hit stand-in."};
  std::string file;
  int repeat = 3;
  int type = 0;
  bool unixMode = false;
  app.add_option("--file", file, "log file to read (e.g. made by tools/gen-w3c-log.py)")
      ->required()
      ->check(CLI::ExistingFile);
  app.add_option("--repeat", repeat, "timed passes (the best and the median are shown)")
      ->check(CLI::PositiveNumber);
  app.add_option("--type", type, "the site's log TYPE (0 = W3C Extended)");
  app.add_flag("--unix", unixMode, "read with LF line ends (the site's UNIX setting)");
  app.set_version_flag("--version", TY_VERSION_LINE("inputbench"), "Print the version and exit");
  CLI11_PARSE(app, argc, argv);

  platform::FixedClock clock(0);
  auto world = std::make_unique<startup::World>(clock);
  world->errors.SetBeep(false);
  world->sites.resize(2);
  world->siteCount = 1;
  startup::Site& site = world->sites[1];
  site.name = "bench";
  site.type = static_cast<startup::LogLayout>(static_cast<int16_t>(type));
  site.unixServer = unixMode;
  site.lastLogFile = file;
  bench::HeadlessFrontend ui;

  const double bytes = static_cast<double>(std::filesystem::file_size(file));
  std::vector<double> rates, cpuRates, threadRates;
  for (int pass = 0; pass <= repeat; ++pass) {
    loginput::LogInputState run;
    loginput::CountingHits hooks(run);
    const auto start = std::chrono::steady_clock::now();
    const double cpuStart = CpuSeconds();
    const double threadStart = CpuSeconds(CLOCK_THREAD_CPUTIME_ID);
    loginput::ScanLogFile(*world, ui, run, hooks, 1);
    const double cpu = CpuSeconds() - cpuStart;
    const double thread = CpuSeconds(CLOCK_THREAD_CPUTIME_ID) - threadStart;
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double rate = run.totalLines / seconds;
    std::printf("%s %d: %d lines, %lld hits (%lld with a page) in %.3f s (CPU %.3f s, scanning "
                "thread %.3f s): %.0f lines/s, %.0f MB/s\n",
                pass == 0 ? "warm-up" : "pass", pass, run.totalLines,
                static_cast<long long>(hooks.hits), static_cast<long long>(hooks.hitsWithPage),
                seconds, cpu, thread, rate, bytes / seconds / 1e6);
    if (pass > 0) {
      rates.push_back(rate);
      cpuRates.push_back(run.totalLines / cpu);
      threadRates.push_back(run.totalLines / thread);
    }
  }
  std::sort(rates.begin(), rates.end());
  std::sort(cpuRates.begin(), cpuRates.end());
  std::sort(threadRates.begin(), threadRates.end());
  auto median = [](const std::vector<double>& v) { return v[v.size() / 2]; };
  std::printf("lines/s, best and median: wall clock %.0f %.0f; per CPU second of the process "
              "%.0f %.0f; per CPU second of the scanning thread %.0f %.0f\n",
              rates.back(), median(rates), cpuRates.back(), median(cpuRates), threadRates.back(),
              median(threadRates));
  return 0;
}
