// dbbench: speed and memory of the table engine on the product's two busiest tables.
// Creates "Visits" (both tags), appends N records with varied keys, closes it, reopens it;
// then builds a "Visitor" table of N/4 records (a seek before every append, as visitors are
// recorded), closes and reopens it and runs N exact seeks on it. Prints appends/s,
// close time, reopen time, seeks/s (and seek + field read/s), and the peak resident memory.
//
//   dbbench --records 1000000 [--keep DIR]
#include <CLI/CLI.hpp>

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "database/Schema.h"
#include "dbase/Table.h"
#include "ProgramVersion.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

// CPU seconds of this process (user + system): on a shared machine the wall clock also counts
// the time other processes held the core.
double CpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

long PeakRssKb() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_maxrss;
}

// The product's own layouts of "Visits" and "Visitor".
using database::schema::kVisitorFields;
using database::schema::kVisitorTags;
using database::schema::kVisitsFields;
using database::schema::kVisitsTags;

const char* kSites[] = {"www.tallyo-demo.net", "blog.example.org", "intranet", "support.widgets.co",
                        "www.alpha-shop.com", "shop.example.net", "docs.example.com", "mail.example"};

std::string Ip(uint32_t v) {
  char b[16];
  std::snprintf(b, sizeof b, "%u.%u.%u.%u", (v >> 24) & 255, (v >> 16) & 255, (v >> 8) & 255, v & 255);
  return b;
}

std::string Pad(std::string s, size_t w) {
  s.resize(w, ' ');
  return s;
}

int Fail(const char* what, int status) {
  std::cerr << "dbbench: " << what << ": " << dbase::StatusText(status) << "\n";
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Table engine benchmark: appends with two tags, close, reopen, exact seeks"};
  long n = 1000000;
  std::string keep;
  app.add_option("--records", n, "records to append to Visits (Visitor gets a quarter)")->check(CLI::Range(1L, 50000000L));
  app.add_option("--keep", keep, "leave the tables in this folder");
  app.set_version_flag("--version", TY_VERSION_LINE("dbbench"), "Print the version and exit");
  CLI11_PARSE(app, argc, argv);

  std::string dir;
  if (keep.empty()) {
    char tmpl[] = "/tmp/dbbench-XXXXXX";
    if (!mkdtemp(tmpl)) {
      std::cerr << "dbbench: cannot make a temporary folder\n";
      return 1;
    }
    dir = std::string(tmpl) + "/";
  } else {
    std::error_code ec;
    std::filesystem::create_directories(keep, ec);
    dir = keep.back() == '/' ? keep : keep + "/";
  }
  const long rssStart = PeakRssKb();
  std::mt19937 rng(12345);

  // Visits: N appends, both tags maintained.
  dbase::Table visits;
  visits.SetLocation(dir);
  visits.SetTableName("Visits");
  visits.DropTable("Visits");
  int s = visits.CreateTable(kVisitsFields, kVisitsTags);
  if (s != dbase::kOk) return Fail("create Visits", s);
  if ((s = visits.OpenTable()) != dbase::kOk) return Fail("open Visits", s);
  const int fIp = visits.FieldIndex("IP"), fSite = visits.FieldIndex("Site"),
            fNo = visits.FieldIndex("VisitNo"), fDate = visits.FieldIndex("VisitDate"),
            fTime = visits.FieldIndex("VisitTime"), fPage = visits.FieldIndex("FirstPage"),
            fPages = visits.FieldIndex("PagesSeen"), fActive = visits.FieldIndex("Active");
  // Keys prepared beforehand so that the timing is the engine's.
  const uint32_t ipCount = uint32_t(std::max(1L, n / 4));
  std::vector<uint32_t> ips(ipCount);
  for (uint32_t& v : ips) v = rng();
  std::vector<std::string> ipText;
  for (uint32_t v : ips) ipText.push_back(Ip(v));
  std::vector<uint32_t> pick(static_cast<size_t>(n));
  for (uint32_t& v : pick) v = rng();
  auto t0 = Clock::now();
  double c0 = CpuSeconds();
  char no[8];
  for (long i = 0; i < n; ++i) {
    uint32_t r = pick[size_t(i)];
    visits.BlankRecord();
    visits.SetText(fIp, ipText[r % ipCount]);
    visits.SetText(fSite, kSites[(r >> 8) % 8]);
    std::snprintf(no, sizeof no, "%05ld", (i / long(ipCount)) % 100000);
    visits.SetText(fNo, no);
    visits.SetDate(fDate, 37000 + double(i * 2000 / n));
    visits.SetText(fTime, "12:34:56");
    visits.SetText(fPage, "/index.html");
    visits.SetNumber(fPages, double(r % 40));
    visits.SetText(fActive, "N");
    if ((s = visits.AppendRecord()) != dbase::kOk) return Fail("append", s);
  }
  auto t1 = Clock::now();
  double c1 = CpuSeconds();
  const long rssAfterAppend = PeakRssKb();
  visits.CloseTable();
  auto t2 = Clock::now();
  double c2 = CpuSeconds();
  if ((s = visits.OpenTable()) != dbase::kOk) return Fail("reopen Visits", s);
  auto t3 = Clock::now();
  double c3 = CpuSeconds();
  const long visitsKeys = visits.Tags()[0].entries + visits.Tags()[1].entries;
  visits.CloseTable();

  // Visitor: N/4 records, then N exact seeks.
  dbase::Table visitor;
  visitor.SetLocation(dir);
  visitor.SetTableName("Visitor");
  visitor.DropTable("Visitor");
  if ((s = visitor.CreateTable(kVisitorFields, kVisitorTags)) != dbase::kOk) return Fail("create Visitor", s);
  if ((s = visitor.OpenTable()) != dbase::kOk) return Fail("open Visitor", s);
  const int vIp = visitor.FieldIndex("IP"), vSite = visitor.FieldIndex("Site"),
            vDns = visitor.FieldIndex("DNS"), vVisits = visitor.FieldIndex("Visits");
  std::vector<std::string> keys;
  keys.reserve(ipCount);
  for (uint32_t i = 0; i < ipCount; ++i) keys.push_back(Pad(ipText[i], 15) + Pad(kSites[i % 8], 20));
  // Built the way visitors are recorded: a seek for the visitor, then an append when it is new.
  auto tv0 = Clock::now();
  double cv0 = CpuSeconds();
  for (uint32_t i = 0; i < ipCount; ++i) {
    if (visitor.SeekKey(keys[i]) == dbase::kOk) continue;
    visitor.BlankRecord();
    visitor.SetText(vIp, ipText[i]);
    visitor.SetText(vSite, kSites[i % 8]);
    visitor.SetText(vDns, ipText[i]);
    visitor.SetNumber(vVisits, double(i % 1000));
    if ((s = visitor.AppendRecord()) != dbase::kOk) return Fail("append Visitor", s);
  }
  auto tv1 = Clock::now();
  double cv1 = CpuSeconds();
  visitor.CloseTable();
  if ((s = visitor.OpenTable()) != dbase::kOk) return Fail("reopen Visitor", s);
  // The keys to seek, in one flat array so that fetching them costs the harness little.
  std::vector<char> flat;
  flat.reserve(size_t(ipCount) * 35);
  for (const std::string& k : keys) flat.insert(flat.end(), k.begin(), k.end());
  auto keyOf = [&](uint32_t i) { return std::string_view(&flat[size_t(i) * 35], 35); };
  std::vector<uint32_t> order(static_cast<size_t>(n));
  for (uint32_t& v : order) v = rng() % ipCount;
  long found = 0;
  auto t4 = Clock::now();
  double c4 = CpuSeconds();
  for (long i = 0; i < n; ++i) found += visitor.SeekKey(keyOf(order[size_t(i)])) == dbase::kOk;
  auto t5 = Clock::now();
  double c5 = CpuSeconds();
  double sum = 0;
  for (long i = 0; i < n; ++i) {
    visitor.SeekKey(keyOf(order[size_t(i)]));
    sum += visitor.GetNumber(vVisits);
  }
  auto t6 = Clock::now();
  double c6 = CpuSeconds();
  visitor.CloseTable();
  const long rssPeak = PeakRssKb();

  const double append = Seconds(t0, t1), close = Seconds(t1, t2), reopen = Seconds(t2, t3),
               seek = Seconds(t4, t5), seekRead = Seconds(t5, t6);
  std::printf("records            %ld Visits (2 tags, %ld keys), %u Visitor (1 tag)\n", n, visitsKeys, ipCount);
  std::printf("                   wall clock                 CPU time of this process\n");
  std::printf("appends            %9.0f /s  (%6.3f s)     %9.0f /s  (%6.3f s)\n", double(n) / append, append,
              double(n) / (c1 - c0), c1 - c0);
  std::printf("seek, then append   %9.0f /s  (%6.3f s)     %9.0f /s  (%6.3f s)   (Visitor, %u records)\n",
              double(ipCount) / Seconds(tv0, tv1), Seconds(tv0, tv1), double(ipCount) / (cv1 - cv0), cv1 - cv0,
              ipCount);
  std::printf("close (write all)                (%6.3f s)                (%6.3f s)\n", close, c2 - c1);
  std::printf("reopen (read MDX)                (%6.3f s)                (%6.3f s)\n", reopen, c3 - c2);
  std::printf("seeks              %9.0f /s  (%6.3f s)     %9.0f /s  (%6.3f s)   %ld found\n", double(n) / seek,
              seek, double(n) / (c5 - c4), c5 - c4, found);
  std::printf("seek + field read  %9.0f /s  (%6.3f s)     %9.0f /s  (%6.3f s)   checksum %.0f\n",
              double(n) / seekRead, seekRead, double(n) / (c6 - c5), c6 - c5, sum);
  std::printf("peak memory        %ld KB overall (%ld KB at the start, %ld KB after the appends)\n", rssPeak,
              rssStart, rssAfterAppend);
  // The peak comes while Visits is closed: its tags are sorted and built then.
  std::printf("memory per record  %.0f bytes of peak memory per Visits record (both tags indexed)\n",
              double(rssPeak - rssStart) * 1024.0 / double(n));
  if (keep.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  } else {
    std::printf("tables kept in     %s\n", dir.c_str());
  }
  return 0;
}
