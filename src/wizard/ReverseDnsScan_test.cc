// Whole scans with reverse DNS against servers the tests start on 127.0.0.1, tables read back
// from disk: names in the visitor and exception records, no look-up for known names, answers that
// come after their site ended, and the pause at more than 95 outstanding. (The unticked box and a
// cancel during the pause are run through the whole program in tests/CliDns_test.cc.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DnsServers.h"
#include "analysis/AnalysisTesting.h"
#include "wizard/ScanDriver.h"
#include "wizard/WizardTesting.h"

namespace wizard {
namespace {

using platform::Label;
using testing::ScanWorld;
using testing::W3cLog;

#define REQUIRE_STARTED(server) \
  if (!(server).Started()) GTEST_SKIP() << "no DNS server for the test: " << (server).Why()

constexpr std::string_view kPaused = "Paused While Resolving DNS";

std::unique_ptr<platform::Resolver> ResolverFor(const std::string& server, int timeoutMs = 3000) {
  platform::DnsSettings s;
  s.servers = {server};
  s.timeoutMs = timeoutMs;
  std::string error;
  auto r = platform::MakeResolver(s, error);
  EXPECT_NE(r, nullptr) << error;
  return r;
}

// The n-th of a run of distinct addresses: 10.7.0.1, 10.7.0.2, ... 10.7.0.250, 10.7.1.1, ...
std::string Address(int n) {
  return "10.7." + std::to_string(n / 250) + "." + std::to_string(n % 250 + 1);
}

// A W3C log of one hit from each of `count` distinct addresses, a second apart.
std::string DistinctLog(int count) {
  std::string s = "#Fields: date time c-ip cs-method cs-uri-stem sc-status cs(User-Agent)\r\n";
  for (int i = 0; i < count; ++i) {
    char line[160];
    std::snprintf(line, sizeof line, "2026-11-01 10:%02d:%02d %s GET /a.htm 200 Mozilla/4.0\r\n",
                  i / 60 % 60, i % 60, Address(i).c_str());
    s += line;
  }
  return s;
}

// A scan driver over sites that each read one log (in a folder named after the site), with a
// resolver asking `server` and the DNS box ticked.
struct DnsScan {
  DnsScan(const std::string& server,
          const std::vector<std::pair<std::string, std::string>>& sitesAndLogs,
          int timeoutMs = 3000) {
    for (const auto& [site, log] : sitesAndLogs) {
      t.AddSite(site, site);
      t.Write(site + "/ex01.log", log);
    }
    resolver = ResolverFor(server, timeoutMs);
    driver = std::make_unique<ScanDriver>(t.w(), t.ui, t.timer);
    driver->SetResolver(resolver.get());
    driver->SetDnsChecked(true);
  }
  // Each yield lets every answer come in before the scan goes on.
  void AnswerAtEveryYield() {
    t.ui.onYield = [this](int) {
      while (resolver->Outstanding() > 0) driver->DeliverDnsAnswers(100);
      return true;
    };
  }

  ScanWorld t;
  std::unique_ptr<platform::Resolver> resolver;
  std::unique_ptr<ScanDriver> driver;
};

std::map<std::string, std::string> DnsByAddress(const std::string& data, const std::string& site) {
  std::map<std::string, std::string> out;
  for (const auto& r : antest::ReadTable(data, "Visitor"))
    if (r.at("SITE") == site) out[r.at("IP")] = r.at("DNS");
  return out;
}

TEST(ReverseDnsScan, NamesReachVisitorAndExceptionRecordsAndKnownNamesAreNotAskedAgain) {
  tytest::Dnsmasq dns({{"10.0.0.1", "a.example"}, {"10.0.0.2", "b.example"}});
  REQUIRE_STARTED(dns);
  // Longer than 500 lines: the answers come in at a yield inside the site's own file (an answer
  // updates the visitor record of the site being read).
  DnsScan scan(dns.Server(), {{"Alpha", W3cLog(600)}, {"Beta", W3cLog(600)}});
  // The second site finds the first site's names.
  scan.AnswerAtEveryYield();
  ScanDriver& d = *scan.driver;
  ASSERT_EQ(d.ScanAllSites(), ScanOutcome::Completed);

  const std::string data = scan.t.Data();
  for (const char* site : {"Alpha", "Beta"}) {
    const auto names = DnsByAddress(data, site);
    EXPECT_EQ(names.at("10.0.0.1"), "a.example") << site;
    EXPECT_EQ(names.at("10.0.0.2"), "b.example") << site;
    EXPECT_EQ(names.at("10.0.0.3"), "10.0.0.3") << site;
  }
  // The second site's visits found the names in the visitor table; the address without a name
  // was asked again.
  EXPECT_EQ(dns.Queries("10.0.0.1"), 1);
  EXPECT_EQ(dns.Queries("10.0.0.2"), 1);
  EXPECT_EQ(dns.Queries("10.0.0.3"), 2);
  EXPECT_EQ(d.DnsCounts().requests, 4);
  EXPECT_EQ(d.DnsCounts().cacheHits, 2);
  EXPECT_EQ(d.DnsCounts().failures, 2);
  // The visitor record updated by an answer raises the repeat-visitor exception again, under the
  // host name.
  bool named133 = false;
  for (const auto& r : antest::ReadTable(data, "Exceptions"))
    named133 = named133 || (r.at("NUMBER") == "133" && r.at("IP") == "a.example");
  EXPECT_TRUE(named133);
  EXPECT_TRUE(testing::TableDefects(data).empty());
  // A DNS run gives no rate.
  EXPECT_NE(d.Summary().find("Scanned 1208 lines.\r\n\r\n"), std::string::npos) << d.Summary();
  EXPECT_TRUE(scan.t.ui.shown[Label::DNS]);
}

TEST(ReverseDnsScan, AnAnswerThatComesAfterTheSiteEndedGoesToTheNextSitesVisitorRecord) {
  // The visitor operation keys its record with the site being read: answers still outstanding
  // at the end of a site's last file come in at the next site's first yield, and are written
  // under that site (as the product does). The first site keeps the bare addresses, and the
  // next site's own visits find no name (the cache looks at the first record of an address).
  tytest::Dnsmasq dns({{"10.0.0.1", "a.example"}, {"10.0.0.2", "b.example"}});
  REQUIRE_STARTED(dns);
  // Fewer than 500 lines: no yield inside the file.
  DnsScan scan(dns.Server(), {{"Alpha", W3cLog(20)}, {"Beta", W3cLog(20)}});
  scan.AnswerAtEveryYield();
  ASSERT_EQ(scan.driver->ScanAllSites(), ScanOutcome::Completed);
  const auto alpha = DnsByAddress(scan.t.Data(), "Alpha");
  EXPECT_EQ(alpha.at("10.0.0.1"), "10.0.0.1");
  EXPECT_EQ(alpha.at("10.0.0.2"), "10.0.0.2");
  const auto beta = DnsByAddress(scan.t.Data(), "Beta");
  EXPECT_EQ(beta.at("10.0.0.1"), "a.example");
  EXPECT_EQ(beta.at("10.0.0.2"), "b.example");
  EXPECT_EQ(dns.Queries("10.0.0.1"), 2);
  EXPECT_EQ(scan.driver->DnsCounts().cacheHits, 0);
}

TEST(ReverseDnsScan, MoreThan95OutstandingPausesTheScanUntilEveryAnswerIsIn) {
  std::vector<std::pair<std::string, std::string>> hosts;
  for (int i = 0; i < 300; ++i) hosts.emplace_back(Address(i), "host" + std::to_string(i) + ".example");
  tytest::Dnsmasq dns(hosts);
  REQUIRE_STARTED(dns);
  DnsScan scan(dns.Server(), {{"Alpha", DistinctLog(300)}});
  ScanWorld& t = scan.t;
  ScanDriver& d = *scan.driver;
  ASSERT_EQ(d.ScanAllSites(), ScanOutcome::Completed);

  // 300 look-ups in three pauses at 96 outstanding, each until none was left, and the wait
  // after the last site for the last 12.
  const auto prog2 = t.ui.CaptionsOf(Label::Prog2);
  EXPECT_EQ(std::count(prog2.begin(), prog2.end(), std::string(kPaused)), 4);
  EXPECT_EQ(prog2.back(), "");
  std::vector<int> shown;
  for (const auto& text : t.ui.CaptionsOf(Label::DNS)) shown.push_back(std::stoi(text));
  EXPECT_EQ(*std::max_element(shown.begin(), shown.end()), 96);
  EXPECT_EQ(shown.back(), 0);
  EXPECT_EQ(d.DnsCounts().requests, 300);
  EXPECT_EQ(dns.Queries(), 300);
  const auto names = DnsByAddress(t.Data(), "Alpha");
  ASSERT_EQ(names.size(), 300u);
  for (int i = 0; i < 300; ++i)
    EXPECT_EQ(names.at(Address(i)), "host" + std::to_string(i) + ".example");
}

}  // namespace
}  // namespace wizard
