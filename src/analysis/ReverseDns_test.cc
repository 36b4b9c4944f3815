// Reverse DNS in the hit analysis, with a real resolver and DNS servers the tests start on
// 127.0.0.1: the host names that visits and visitor records get, the limit of 100 look-ups in
// flight, failures, and answers that come after their visit has gone.
#include "analysis/ReverseDns.h"

#include <gtest/gtest.h>

#include "AnalysisTesting.h"
#include "DnsServers.h"

namespace analysis {
namespace {

using antest::Record;

#define REQUIRE_STARTED(server) \
  if (!(server).Started()) GTEST_SKIP() << "no DNS server for the test: " << (server).Why()

std::unique_ptr<platform::Resolver> ResolverFor(const std::string& server, int timeoutMs = 3000,
                                                int retries = 1) {
  platform::DnsSettings s;
  s.servers = {server};
  s.timeoutMs = timeoutMs;
  s.retries = retries;
  std::string error;
  auto r = platform::MakeResolver(s, error);
  EXPECT_NE(r, nullptr) << error;
  return r;
}

// Hands every answer to the run's hit processing until none is outstanding.
void DeliverAll(antest::Run& run, platform::Resolver& r) {
  for (int i = 0; i < 300 && r.Outstanding() > 0; ++i)
    r.Deliver(100, [&](const platform::DnsAnswer& a) { run.hits->RequestComplete(a); });
}

// The "Visitor" record of `ip`, or an empty record.
Record VisitorOf(const antest::Run& run, const std::string& ip, const std::string& site = "Alpha") {
  for (const Record& r : run.Table("Visitor"))
    if (r.at("IP") == ip && r.at("SITE") == site) return r;
  ADD_FAILURE() << "no visitor record of " << ip << " at " << site;
  return {{"DNS", ""}, {"VISITS", ""}};
}

TEST(ReverseDns, NamesReachTheVisitAndItsVisitorRecordAndLaterVisitsAskNothing) {
  const std::string longName =
      "a-rather-long-host-name-for-a-dial-up-line.customer-12345.region-north.example.net";
  tytest::Dnsmasq dns({{"10.2.0.1", "alpha.example.net"}, {"10.2.0.2", longName}});
  REQUIRE_STARTED(dns);
  antest::Run run(2);
  ASSERT_TRUE(run.ok);
  auto resolver = ResolverFor(dns.Server());
  std::vector<int> shown;
  run.hits->Dns().Attach(true, resolver.get(), [&](int n) { shown.push_back(n); });

  run.Hit("2026-11-20", "10:00:00", "10.2.0.1", "/a.htm");
  run.Hit("2026-11-20", "10:00:01", "10.2.0.2", "/a.htm");
  run.Hit("2026-11-20", "10:00:02", "10.2.0.9", "/a.htm");  // no name: "no such name"
  // Until the answers come, a visit's host name is its address; lblDNS counted 1, 2, 3 up.
  EXPECT_EQ(antest::Open(run, 1).hostName, "10.2.0.1");
  EXPECT_EQ(shown, (std::vector<int>{1, 2, 3}));
  DeliverAll(run, *resolver);
  EXPECT_EQ(shown.back(), 0);

  EXPECT_EQ(antest::Open(run, 1).hostName, "alpha.example.net");
  EXPECT_TRUE(antest::Open(run, 1).resolved);
  EXPECT_EQ(antest::Open(run, 2).hostName, longName);
  EXPECT_EQ(antest::Open(run, 3).hostName, "10.2.0.9 ?");
  EXPECT_TRUE(antest::Open(run, 3).resolved);

  // The same addresses at the second site: the names come from the visitor records, without a
  // look-up; the unresolved address is asked again.
  run.f->SetCurrentSite("Beta");
  run.Hit("2026-11-20 10:05:00 10.2.0.1 - GET /b.htm - 200 Mozilla/4.0 -", 2);
  run.Hit("2026-11-20 10:05:01 10.2.0.2 - GET /b.htm - 200 Mozilla/4.0 -", 2);
  run.Hit("2026-11-20 10:05:02 10.2.0.9 - GET /b.htm - 200 Mozilla/4.0 -", 2);
  DeliverAll(run, *resolver);
  const DnsCounts& c = run.hits->Dns().Counts();
  EXPECT_EQ(c.requests, 4);
  EXPECT_EQ(c.cacheHits, 2);
  EXPECT_EQ(c.failures, 2);
  EXPECT_EQ(dns.Queries("10.2.0.1"), 1);
  EXPECT_EQ(dns.Queries("10.2.0.2"), 1);
  EXPECT_EQ(dns.Queries("10.2.0.9"), 2);

  run.Close();
  EXPECT_EQ(VisitorOf(run, "10.2.0.1").at("DNS"), "alpha.example.net");
  EXPECT_EQ(VisitorOf(run, "10.2.0.1", "Beta").at("DNS"), "alpha.example.net");
  // The visitor record keeps what fits of a long name.
  EXPECT_EQ(VisitorOf(run, "10.2.0.2").at("DNS"), longName.substr(0, 50));
  EXPECT_EQ(VisitorOf(run, "10.2.0.2", "Beta").at("DNS"), longName.substr(0, 50));
  // A failure leaves the visitor record with the address.
  EXPECT_EQ(VisitorOf(run, "10.2.0.9").at("DNS"), "10.2.0.9");
  EXPECT_EQ(run.world.errors.Reports(), 0u);
}

TEST(ReverseDns, AtOneHundredOutstandingANewVisitKeepsItsAddressForGood) {
  tytest::SilentDnsServer silent;
  ASSERT_TRUE(silent.Started());
  antest::Run run;
  ASSERT_TRUE(run.ok);
  auto resolver = ResolverFor(silent.Server(), 300, 0);
  run.hits->Dns().Attach(true, resolver.get(), {});
  // Lines handed over directly: no reader, so no pause at 96.
  for (int i = 1; i <= 101; ++i)
    run.Hit("2026-11-20", "10:00:00", "10.9.0." + std::to_string(i), "/a.htm");
  EXPECT_EQ(resolver->Outstanding(), 100);
  EXPECT_EQ(antest::Open(run, 101).dnsRequest, 0);
  DeliverAll(run, *resolver);

  // One packet per look-up, none for the 101st visit, which keeps its bare address.
  EXPECT_EQ(silent.Received(), 100);
  EXPECT_EQ(antest::Open(run, 100).hostName, "10.9.0.100 ?");
  EXPECT_EQ(antest::Open(run, 101).hostName, "10.9.0.101");
  EXPECT_FALSE(antest::Open(run, 101).resolved);
  EXPECT_EQ(run.hits->Dns().Counts().requests, 100);
  EXPECT_EQ(run.hits->Dns().Counts().failures, 100);
  // The next new visit gets a look-up again.
  run.Hit("2026-11-20", "10:00:01", "10.9.1.1", "/a.htm");
  EXPECT_NE(antest::Open(run, 102).dnsRequest, 0);
}

TEST(ReverseDns, AnAnswerForAVisitThatHasGoneReachesTheCacheAndNoOtherVisit) {
  tytest::Dnsmasq dns({{"10.3.0.1", "gone.example.net"}, {"10.3.0.2", "other.example.net"}});
  REQUIRE_STARTED(dns);
  antest::Run run;
  ASSERT_TRUE(run.ok);
  auto resolver = ResolverFor(dns.Server());
  run.hits->Dns().Attach(true, resolver.get(), {});

  run.Hit("2026-11-20", "10:00:00", "10.3.0.1", "/a.htm");
  ASSERT_EQ(resolver->Outstanding(), 1);
  // The visit ends and leaves the table before its answer is handed over.
  run.hits->ScanToRemove(antest::At(2026, 11, 20, 11, 0));
  run.hits->RemoveInactive();
  ASSERT_EQ(run.hits->Visits().Count(), 0);
  // A visit of another address takes its place in the table, with no look-up of its own.
  run.hits->Dns().Attach(false, resolver.get(), {});
  run.Hit("2026-11-20", "11:00:00", "10.3.0.2", "/a.htm");
  run.hits->Dns().Attach(true, resolver.get(), {});
  DeliverAll(run, *resolver);
  EXPECT_EQ(antest::Open(run, 1).clientAddress, "10.3.0.2");
  EXPECT_EQ(antest::Open(run, 1).hostName, "10.3.0.2");
  EXPECT_FALSE(antest::Open(run, 1).resolved);

  // The name went into the visitor record: the next visit of the address finds it there.
  run.Hit("2026-11-20", "11:30:00", "10.3.0.1", "/b.htm");
  EXPECT_EQ(antest::Open(run, 2).hostName, "gone.example.net");
  EXPECT_EQ(run.hits->Dns().Counts().cacheHits, 1);
  EXPECT_EQ(resolver->Outstanding(), 0);
  EXPECT_EQ(dns.Queries("10.3.0.1"), 1);
  run.Close();
  EXPECT_EQ(VisitorOf(run, "10.3.0.1").at("DNS"), "gone.example.net");
  EXPECT_EQ(VisitorOf(run, "10.3.0.1").at("VISITS"), "2");
}

TEST(ReverseDns, WithTheSettingOffNoPacketIsSentAndTheCacheStillAnswers) {
  tytest::SilentDnsServer silent;
  ASSERT_TRUE(silent.Started());
  antest::Run run;
  ASSERT_TRUE(run.ok);
  auto resolver = ResolverFor(silent.Server(), 300, 0);
  run.hits->Dns().Attach(false, resolver.get(), {});
  for (int i = 1; i <= 20; ++i)
    run.Hit("2026-11-20", "10:00:00", "10.4.0." + std::to_string(i), "/a.htm");
  run.f->UpdateDNS("10.4.0.1", "known.example.net");
  run.hits->ScanToRemove(antest::At(2026, 11, 20, 11, 0));
  run.hits->RemoveInactive();
  run.Hit("2026-11-20", "11:00:00", "10.4.0.1", "/a.htm");
  EXPECT_EQ(antest::Open(run, 1).hostName, "known.example.net");
  EXPECT_EQ(resolver->Outstanding(), 0);
  EXPECT_EQ(silent.Received(), 0);
  EXPECT_EQ(run.hits->Dns().Counts().requests, 0);
  EXPECT_EQ(run.hits->Dns().Counts().cacheHits, 1);
}

}  // namespace
}  // namespace analysis
