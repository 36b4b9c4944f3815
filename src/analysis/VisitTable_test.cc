// The visit table's lookups must give exactly what a walk of the table in order gives, across
// appends, address and host-name changes, removals and the closing of gaps.
#include "analysis/VisitTable.h"

#include <gtest/gtest.h>

#include <random>

#include "vb/Like.h"

namespace analysis {
namespace {

int32_t WalkByAddress(const VisitTable& t, int32_t site, const std::string& address) {
  for (int32_t i = t.First(); i != 0; i = t.Next(i))
    if (t[i].siteIndex == site && t[i].clientAddress == address) return i;
  return 0;
}

int32_t WalkByMask(const VisitTable& t, const std::string& mask) {
  for (int32_t i = t.First(); i != 0; i = t.Next(i))
    if (vb::Like(t[i].hostName, mask)) return i;
  return 0;
}

TEST(VisitTable, AppendsInOrderAndFindsTheFirstMatch) {
  VisitTable t;
  EXPECT_EQ(t.Count(), 0);
  EXPECT_EQ(t.First(), 0);
  EXPECT_EQ(t.FindByAddress(1, "10.0.0.1"), 0);
  EXPECT_EQ(t.Append(1, "10.0.0.1"), 1);
  EXPECT_EQ(t.Append(2, "10.0.0.1"), 2);  // same address, other site: its own visit
  EXPECT_EQ(t.Append(1, "10.0.0.2"), 3);
  EXPECT_EQ(t[1].hostName, "10.0.0.1");   // a new visit's host name is its address
  EXPECT_EQ(t.FindByAddress(1, "10.0.0.1"), 1);
  EXPECT_EQ(t.FindByAddress(2, "10.0.0.1"), 2);
  EXPECT_EQ(t.FindByAddress(3, "10.0.0.1"), 0);
  EXPECT_EQ(t.FindByAddress(1, "10.0.0.10"), 0);  // exact, not a prefix
  EXPECT_EQ(t.FindByAddress(-1, "10.0.0.1"), 0);

  // Two visits of one address (an address changed by a DNS answer): the earlier one is found,
  // and when it moves away the later one takes over.
  t.SetClientAddress(3, "10.0.0.1");
  EXPECT_EQ(t.FindByAddress(1, "10.0.0.1"), 1);
  EXPECT_EQ(t.FindByAddress(1, "10.0.0.2"), 0);
  t.SetClientAddress(1, "10.9.9.9");
  EXPECT_EQ(t.FindByAddress(1, "10.0.0.1"), 3);
  EXPECT_EQ(t.FindByAddress(1, "10.9.9.9"), 1);
}

TEST(VisitTable, RemoveMarkedWritesOutInTableOrderAndKeepsTheRestInOrder) {
  VisitTable t;
  for (int i = 1; i <= 5; ++i) t.Append(1, "10.0.0." + std::to_string(i));
  t.Mark(4);
  t.Mark(2);
  t.Mark(4);  // twice: written out once
  t.Mark(5);
  t[5].ended = false;  // cleared again before the sweep: stays
  std::vector<int32_t> written;
  EXPECT_EQ(t.RemoveMarked([&](int32_t i) { written.push_back(i); }), 2);
  EXPECT_EQ(written, (std::vector<int32_t>{2, 4}));
  EXPECT_EQ(t.Count(), 3);
  std::vector<std::string> order;
  for (int32_t i = t.First(); i != 0; i = t.Next(i)) order.push_back(t[i].clientAddress);
  EXPECT_EQ(order, (std::vector<std::string>{"10.0.0.1", "10.0.0.3", "10.0.0.5"}));
  EXPECT_EQ(t[t.Nth(2)].clientAddress, "10.0.0.3");
  EXPECT_EQ(t.Nth(4), 0);
  EXPECT_EQ(t.FindByAddress(1, "10.0.0.2"), 0);
  EXPECT_EQ(t[t.FindByAddress(1, "10.0.0.5")].clientAddress, "10.0.0.5");
  // Nothing marked: nothing written.
  EXPECT_EQ(t.RemoveMarked([&](int32_t) { ADD_FAILURE(); }), 0);
  // A new visit comes after every open one.
  const int32_t n = t.Append(1, "10.0.0.6");
  EXPECT_EQ(t.Next(t.Nth(3)), n);
}

// Address number a: dotted for most, a long IPv6 text for some (longer than the index keeps in
// its own buckets, so those are compared through the visit).
std::string ChurnAddress(int a) {
  return a < 30 ? "10.0.0." + std::to_string(a) : "2001:db8:85a3::8a2e:370:" + std::to_string(a);
}

// Several open visits of one address (the later ones continued through a changed address) stay
// findable one after the other when most of the table ends and the gaps are closed.
TEST(VisitTable, ClosingTheGapsKeepsVisitsOfOneAddressInOrder) {
  VisitTable t({"*.example.net"});
  std::vector<int32_t> same;
  for (int n = 0; n < 200; ++n) {
    const int32_t i = t.Append(1, "filler-" + std::to_string(n));
    if (n == 50 || n == 120 || n == 190) {
      t.SetClientAddress(i, "10.0.0.7");
      t.SetHostName(i, "h" + std::to_string(n) + ".example.net");
      same.push_back(i);
    }
  }
  for (int32_t i = t.First(); i != 0; i = t.Next(i))
    if (t[i].clientAddress != "10.0.0.7") t.Mark(i);
  t.RemoveMarked([](int32_t) {});
  ASSERT_EQ(t.Count(), 3);
  // The three are renumbered 1, 2, 3 in their old order.
  for (const std::string expected : {"h50", "h120", "h190"}) {
    const int32_t first = t.FindByAddress(1, "10.0.0.7");
    ASSERT_NE(first, 0);
    EXPECT_EQ(t[first].hostName, expected + ".example.net");
    EXPECT_EQ(t.FirstWithHostMask(0), first);
    t.Mark(first);
    t.RemoveMarked([](int32_t) {});
  }
  EXPECT_EQ(t.FindByAddress(1, "10.0.0.7"), 0);
  EXPECT_EQ(t.FirstWithHostMask(0), 0);
}

TEST(VisitTable, IndexesAgreeWithATableWalkUnderRandomChurn) {
  const std::vector<std::string> masks = {"*.proxy.example.net", "crawl-#.bot.example.org",
                                          "*.example.*"};
  VisitTable t(masks);
  std::mt19937 rng(12345);
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  const std::vector<std::string> hosts = {"a.proxy.example.net", "crawl-7.bot.example.org",
                                          "www.example.com", "plain.host", ""};
  for (int step = 0; step < 6000; ++step) {
    const int what = pick(10);
    const int32_t some = t.Count() ? t.Nth(1 + pick(t.Count())) : 0;
    if (what < 5 || some == 0) {
      t.Append(1 + pick(3), ChurnAddress(pick(40)));
    } else if (what < 7) {
      t.SetHostName(some, hosts[static_cast<size_t>(pick(5))]);
    } else if (what < 8) {
      t.SetClientAddress(some, ChurnAddress(pick(40)));
    } else {
      // Mostly large removals, so that the gaps get closed now and then.
      for (int32_t i = t.First(); i != 0; i = t.Next(i))
        if (pick(4) != 0) t.Mark(i);
      t.RemoveMarked([](int32_t) {});
    }
    if (step % 50 == 0 || step > 5950) {
      for (int site = 1; site <= 3; ++site)
        for (int a = 0; a < 40; ++a) {
          const std::string address = ChurnAddress(a);
          ASSERT_EQ(t.FindByAddress(site, address), WalkByAddress(t, site, address))
              << "step " << step << " site " << site << " " << address;
        }
      for (size_t k = 0; k < masks.size(); ++k)
        ASSERT_EQ(t.FirstWithHostMask(k), WalkByMask(t, masks[k])) << "step " << step;
      int32_t walked = 0;
      for (int32_t i = t.First(); i != 0; i = t.Next(i)) ++walked;
      ASSERT_EQ(walked, t.Count());
    }
  }
}

}  // namespace
}  // namespace analysis
