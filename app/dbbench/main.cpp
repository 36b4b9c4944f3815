// dbbench: speed and memory of the table engine on the product's two busiest tables.
// Creates "Visits" (both tags), appends N records with varied keys, closes it, reopens it;
// then builds a "Visitor" table of N/4 records and runs N exact seeks on it. Prints appends/s,
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

#include "dbase/Table.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

long PeakRssKb() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_maxrss;
}

const std::vector<std::string> kVisitsFields = {
    "RecordNo|C|9", "IP|C|15",        "Site|C|20",      "Active|C|1",     "Alert|C|1",
    "AlertNo|N|3",  "VisitNo|C|5",    "VisitDate|D|8",  "VisitTime|C|8",  "FirstPage|C|20",
    "LastPage|C|20", "PagesSeen|N|5", "MinsOn|C|6",     "Browser|C|5",    "Spider|C|1",
    "SpiderT|C|15", "Referrer|C|50",  "HackRaised|C|1", "Flags|C|10"};
const std::vector<std::string> kVisitsTags = {"key0|IP + Site + DTOS(VisitDate) + VisitNo||U|",
                                              "key1|Site + DTOS(VisitDate) + VisitNo|"};
const std::vector<std::string> kVisitorFields = {
    "RecordNo|C|9",  "IP|C|15",      "Site|C|20",       "DNS|C|50",       "Name|C|25",
    "Visits|N|5",    "Country|C|2",  "FirstVDate|D|8",  "FirstVTime|C|8", "LastVDate|D|8",
    "LastVTime|C|8", "Browser|C|5",  "Spider|C|1",      "SpiderT|C|15",   "HackCount|N|3",
    "Flags|C|10"};
const std::vector<std::string> kVisitorTags = {"key0|IP + Site||U"};

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
  const long rssAfterAppend = PeakRssKb();
  visits.CloseTable();
  auto t2 = Clock::now();
  if ((s = visits.OpenTable()) != dbase::kOk) return Fail("reopen Visits", s);
  auto t3 = Clock::now();
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
  for (uint32_t i = 0; i < ipCount; ++i) {
    visitor.BlankRecord();
    const std::string& ip = ipText[i];
    const char* site = kSites[i % 8];
    visitor.SetText(vIp, ip);
    visitor.SetText(vSite, site);
    visitor.SetText(vDns, ip);
    visitor.SetNumber(vVisits, double(i % 1000));
    if ((s = visitor.AppendRecord()) != dbase::kOk) return Fail("append Visitor", s);
    keys.push_back(Pad(ip, 15) + Pad(site, 20));
  }
  visitor.CloseTable();
  if ((s = visitor.OpenTable()) != dbase::kOk) return Fail("reopen Visitor", s);
  std::vector<uint32_t> order(static_cast<size_t>(n));
  for (uint32_t& v : order) v = rng() % ipCount;
  long found = 0;
  auto t4 = Clock::now();
  for (long i = 0; i < n; ++i) found += visitor.SeekKey(keys[order[size_t(i)]]) == dbase::kOk;
  auto t5 = Clock::now();
  double sum = 0;
  for (long i = 0; i < n; ++i) {
    visitor.SeekKey(keys[order[size_t(i)]]);
    sum += visitor.GetNumber(vVisits);
  }
  auto t6 = Clock::now();
  visitor.CloseTable();
  const long rssPeak = PeakRssKb();

  const double append = Seconds(t0, t1), close = Seconds(t1, t2), reopen = Seconds(t2, t3),
               seek = Seconds(t4, t5), seekRead = Seconds(t5, t6);
  std::printf("records            %ld Visits (2 tags, %ld keys), %u Visitor (1 tag)\n", n, visitsKeys, ipCount);
  std::printf("appends            %.0f /s  (%.3f s)\n", double(n) / append, append);
  std::printf("close (write all)  %.3f s\n", close);
  std::printf("reopen (read MDX)  %.3f s\n", reopen);
  std::printf("seeks              %.0f /s  (%.3f s, %ld found)\n", double(n) / seek, seek, found);
  std::printf("seek + field read  %.0f /s  (%.3f s, checksum %.0f)\n", double(n) / seekRead, seekRead, sum);
  std::printf("peak memory        %ld KB at the end of the appends, %ld KB overall (start %ld KB)\n",
              rssAfterAppend, rssPeak, rssStart);
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
