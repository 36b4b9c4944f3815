// The per-line path of the hit processing allocates nothing once its buffers have grown: hits of
// open visits (counted pages, reloads, non-page requests) are processed without a heap
// allocation. Counted by replacing the global allocation functions in this test program.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "analysis/AnalysisTesting.h"

namespace {
std::atomic<long> g_allocations{0};
}  // namespace

void* operator new(std::size_t n) {
  ++g_allocations;
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
// The pointers given to these come from the malloc above.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace analysis {
namespace {

TEST(SteadyState, HitsOfOpenVisitsAllocateNothing) {
  antest::Run run;
  run.world.site(1).pageLimit = 30000;  // no once-per-visit alert in the measured stretch
  const char* pages[] = {"/a.htm", "/b.htm", "/images/logo.gif", "/b.htm", "/c.asp"};
  std::vector<std::string> lines;
  int second = 0;
  auto at = [&] {
    char t[16];
    std::snprintf(t, sizeof t, "%02d:%02d:%02d", 9 + second / 3600, second / 60 % 60, second % 60);
    ++second;
    return std::string(t);
  };
  for (int round = 0; round < 30; ++round)
    for (int v = 0; v < 50; ++v)
      lines.push_back("2026-11-20 " + at() + " 10.0.0." + std::to_string(v) + " - GET " +
                      pages[(round + v) % 5] + " q=" + std::to_string(round) +
                      " 200 Mozilla/4.0+(compatible;+MSIE+6.0) http://www.example.com/");
  const loginput::SiteReadState& s = run.input.Site(1);
  const LineContext ctx{run.input.fieldMap, s.separator, s.noSpiderCheck, s.currentFileDate};
  const size_t warmUp = 250;  // the first five rounds open the visits and grow the buffers
  for (size_t i = 0; i < warmUp; ++i) run.hits->ProcessHit(lines[i], 1, ctx, run.input.hits);
  const int32_t pagesBefore = run.hits->Counters().totals.pageHits;
  const long before = g_allocations;
  for (size_t i = warmUp; i < lines.size(); ++i)
    run.hits->ProcessHit(lines[i], 1, ctx, run.input.hits);
  const long allocations = g_allocations - before;
  EXPECT_EQ(allocations, 0);
  EXPECT_EQ(run.hits->Counters().totals.visitsOpened, 50);
  // Real page views were counted.
  EXPECT_GE(run.hits->Counters().totals.pageHits - pagesBefore, 700);
}

TEST(SteadyState, VisitsThatEndAndOpenAgainAllocateNothing) {
  // A hundred visitors come back every half hour: each return ends the visit before (written
  // back to its record) and opens a new one (visitor and referrer records updated, visit record
  // appended, pages cached and written in batches), with a robot among them. Once the tables,
  // caches and the visit pool have grown (the first batch of pages written too), the rounds that
  // follow take no heap allocation. (The tables' index trees take a node from the C allocator
  // once in a few dozen new records; that is the database growing, not counted here.) The
  // visit, page and exception records go through the record writer's thread, as in a scan.
  antest::Run run;
  run.f->WriteInBackground(true);
  run.world.site(1).pageLimit = 30000;
  const char* agents[] = {"Mozilla/4.0+(compatible;+MSIE+6.0;+Windows+NT+5.1)",
                          "Opera/7.54+(Windows+NT+5.1;+U)", "Googlebot/2.1+(+http://www.google.com/bot.html)"};
  const char* referrers[] = {"-", "http://www.example.com/index.htm",
                             "http://search.yahoo.com/search?p=widgets"};
  const char* pages[] = {"/index.htm", "/products/a.asp", "/products/b.htm"};
  std::vector<std::string> lines;
  const int rounds = 40, visitors = 100;
  for (int round = 0; round < rounds; ++round)
    for (int hit = 0; hit < 3; ++hit)
      for (int v = 0; v < visitors; ++v) {
        const int second = round * 1800 + hit * visitors + v;
        char t[16];
        std::snprintf(t, sizeof t, "%02d:%02d:%02d", second / 3600, second / 60 % 60, second % 60);
        lines.push_back(std::string("2026-11-20 ") + t + " 10.0." + std::to_string(v % 7) + "." +
                        std::to_string(v) + " - GET " + pages[hit] + " - 200 " + agents[v % 3] +
                        " " + referrers[v % 3]);
      }
  const loginput::SiteReadState& s = run.input.Site(1);
  const LineContext ctx{run.input.fieldMap, s.separator, s.noSpiderCheck, s.currentFileDate};
  const size_t warmUp = lines.size() / 2;
  for (size_t i = 0; i < warmUp; ++i) run.hits->ProcessHit(lines[i], 1, ctx, run.input.hits);
  run.f->WaitForRecords();
  const int32_t opened = run.hits->Counters().totals.visitsOpened;
  const long before = g_allocations;
  for (size_t i = warmUp; i < lines.size(); ++i)
    run.hits->ProcessHit(lines[i], 1, ctx, run.input.hits);
  run.f->WaitForRecords();  // the writer's share of the measured rounds counts too
  const long allocations = g_allocations - before;
  EXPECT_EQ(allocations, 0);
  // Every visitor's visit ended and a new one opened in every measured round.
  EXPECT_EQ(run.hits->Counters().totals.visitsOpened - opened, visitors * rounds / 2);
  run.Close();
  EXPECT_EQ(run.Table("Visits").size(), static_cast<size_t>(visitors * rounds));
}

}  // namespace
}  // namespace analysis
