// The per-line routines (date/time readers, fixed-width writers, wildcard matching, Val) must not
// allocate: this counts every allocation of the program while they run.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "vb/Convert.h"
#include "vb/Dates.h"
#include "vb/Format.h"
#include "vb/Like.h"

namespace {
std::atomic<long> g_allocations{0};
}  // namespace

void* operator new(std::size_t size) {
  ++g_allocations;
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace vb {
namespace {

TEST(FastPath, ParsersWritersAndMatchingDoNotAllocate) {
  Date d = 0, t = 0;
  char buf[8];
  double sum = 0;
  const long before = g_allocations.load();
  for (int i = 0; i < 1000; ++i) {
    EXPECT_TRUE(ParseIsoDate("2026-11-16", d));
    EXPECT_TRUE(ParseDayMonYear("16/Nov/2026", d));
    EXPECT_TRUE(ParseTimeOfDay("10:11:12", t));
    EXPECT_FALSE(ParseTimeOfDay("bad", t));
    FormatTimeTo(d + t, buf);
    FormatYmdTo(d + t, buf);
    FormatZeroPadTo(i, 5, buf);
    sum += static_cast<double>(DateDiffMinutes(d, d + t));
    EXPECT_TRUE(Like("proxy.aol.com", "*.[a-z]ol.co?"));
    sum += Val(" 404 ") + Val("123456789012345678901234567890123456789012345678901234567890");
    Date c;
    EXPECT_TRUE(TryCDate("16/11/2026 10:11:12", c));
  }
  EXPECT_EQ(g_allocations.load() - before, 0);
  EXPECT_GT(sum, 0);
}

}  // namespace
}  // namespace vb
