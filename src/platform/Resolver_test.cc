// The reverse-DNS resolver against servers the tests start on 127.0.0.1: a real DNS server with a
// hosts file, a socket that never answers, a port where nothing listens.
#include "platform/Resolver.h"

#include <gtest/gtest.h>

#include <map>

#include "DnsServers.h"

namespace platform {
namespace {

// Delivers until nothing is outstanding (each wait at most 100 ms, 200 rounds at most) and
// returns the answers by request number.
std::map<int16_t, DnsAnswer> Drain(Resolver& r) {
  std::map<int16_t, DnsAnswer> out;
  for (int i = 0; i < 200 && r.Outstanding() > 0; ++i)
    r.Deliver(100, [&](const DnsAnswer& a) { out[a.request] = a; });
  return out;
}

std::unique_ptr<Resolver> ResolverFor(const std::string& server, int timeoutMs = 3000,
                                      int retries = 1) {
  DnsSettings s;
  s.servers = {server};
  s.timeoutMs = timeoutMs;
  s.retries = retries;
  std::string error;
  auto r = MakeResolver(s, error);
  EXPECT_NE(r, nullptr) << error;
  return r;
}

#define REQUIRE_STARTED(server) \
  if (!(server).Started()) GTEST_SKIP() << "no DNS server for the test: " << (server).Why()

TEST(Resolver, NamesFromTheServerAndErrorsCarryingTheAddress) {
  // Longer than the 50 characters a visitor record keeps (labels of up to 63 characters).
  const std::string longName =
      "a-rather-long-host-name-for-a-dial-up-line.customer-12345.region-north.example.net";
  tytest::Dnsmasq dns({{"10.1.0.1", "one.example.net"},
                       {"10.1.0.2", longName},
                       {"10.1.0.5", "odd_name-.example.net"}});
  REQUIRE_STARTED(dns);
  auto r = ResolverFor(dns.Server());
  ASSERT_NE(r, nullptr);

  const int16_t one = r->Start("10.1.0.1");
  const int16_t two = r->Start("10.1.0.2");
  const int16_t unknown = r->Start("10.1.0.3");    // not in the hosts file: no such name
  const int16_t notAnAddress = r->Start("not-an-address");
  const int16_t odd = r->Start("10.1.0.5");  // a name with characters a host name may not have
  EXPECT_EQ(r->Outstanding(), 5);
  // Numbers are distinct and from 1 up.
  EXPECT_EQ(one, 1);
  EXPECT_EQ(two, 2);
  EXPECT_EQ(unknown, 3);
  EXPECT_EQ(notAnAddress, 4);

  const auto answers = Drain(*r);
  EXPECT_EQ(r->Outstanding(), 0);
  ASSERT_EQ(answers.size(), 5u);
  EXPECT_EQ(answers.at(one).hostName, "one.example.net");
  EXPECT_EQ(answers.at(one).address, "10.1.0.1");
  EXPECT_FALSE(answers.at(one).error);
  EXPECT_EQ(answers.at(two).hostName, longName);
  EXPECT_EQ(answers.at(odd).hostName, "odd_name-.example.net");
  EXPECT_FALSE(answers.at(odd).error);
  // A failed look-up carries the address as its name, with the error set.
  EXPECT_TRUE(answers.at(unknown).error);
  EXPECT_EQ(answers.at(unknown).hostName, "10.1.0.3");
  EXPECT_EQ(answers.at(unknown).address, "10.1.0.3");
  EXPECT_TRUE(answers.at(notAnAddress).error);
  EXPECT_EQ(answers.at(notAnAddress).hostName, "not-an-address");
  // Only the four addresses were asked, once each.
  EXPECT_EQ(dns.Queries(), 4);
  EXPECT_EQ(dns.Queries("10.1.0.1"), 1);
}

TEST(Resolver, AServerThatNeverAnswersEndsEveryLookUpWithAnErrorAfterItsTries) {
  tytest::SilentDnsServer silent;
  ASSERT_TRUE(silent.Started());
  // A short time-out, two tries per look-up.
  auto r = ResolverFor(silent.Server(), 300, 1);
  ASSERT_NE(r, nullptr);
  for (int i = 1; i <= 5; ++i) r->Start("192.0.2." + std::to_string(i));
  const auto answers = Drain(*r);
  ASSERT_EQ(answers.size(), 5u);
  for (const auto& [number, a] : answers) {
    EXPECT_TRUE(a.error) << a.address;
    EXPECT_EQ(a.hostName, a.address);
  }
  EXPECT_EQ(r->Outstanding(), 0);
  // Each look-up asked once and once more.
  EXPECT_EQ(silent.Received(), 10);
}

TEST(Resolver, AServerFailureEndsTheLookUpWithAnError) {
  tytest::FailingDnsServer failing;
  ASSERT_TRUE(failing.Started());
  auto r = ResolverFor(failing.Server(), 2000, 1);
  ASSERT_NE(r, nullptr);
  r->Start("192.0.2.9");
  const auto answers = Drain(*r);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_TRUE(answers.begin()->second.error);
  EXPECT_EQ(answers.begin()->second.hostName, "192.0.2.9");
  EXPECT_GE(failing.Answered(), 1);
}

TEST(Resolver, NoServerListeningEndsTheLookUpsWithAnError) {
  auto r = ResolverFor("127.0.0.1:" + std::to_string(tytest::ClosedLoopbackPort()), 2000, 1);
  ASSERT_NE(r, nullptr);
  r->Start("192.0.2.7");
  r->Start("192.0.2.8");
  const auto answers = Drain(*r);
  ASSERT_EQ(answers.size(), 2u);
  for (const auto& [number, a] : answers) EXPECT_TRUE(a.error);
}

TEST(Resolver, NumbersComeRoundAgainButNeverToOneStillOutstanding) {
  tytest::SilentDnsServer silent;
  ASSERT_TRUE(silent.Started());
  auto r = ResolverFor(silent.Server(), 60000, 0);
  ASSERT_NE(r, nullptr);
  // Number 1 stays outstanding while 32,766 others are taken and handed back.
  EXPECT_EQ(r->Start("192.0.2.1"), 1);
  int16_t last = 0;
  for (int i = 0; i < 32766; ++i) {
    last = r->Start("bad");  // ends at the next Deliver, without a packet
    r->Deliver(0, [](const DnsAnswer&) {});
  }
  EXPECT_EQ(last, 32767);
  EXPECT_EQ(r->Start("bad"), 2);  // 1 is still outstanding
  EXPECT_EQ(r->Outstanding(), 2);
}

TEST(Resolver, ServerTextsAreCheckedWithAClearMessage) {
  for (const char* good : {"127.0.0.1", "127.0.0.1:5353", "::1", "[::1]:5353", "[::1]"})
    EXPECT_EQ(CheckDnsServer(good), "") << good;
  for (const char* bad : {"", "localhost", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:70000",
                          "127.0.0.1:53x", "1.2.3", "[::1", "[::1]x", "[nope]:53"}) {
    const std::string why = CheckDnsServer(bad);
    EXPECT_NE(why.find("is not a DNS server address"), std::string::npos) << bad;
  }
  DnsSettings s;
  s.servers = {"localhost"};
  std::string error;
  EXPECT_EQ(MakeResolver(s, error), nullptr);
  EXPECT_NE(error.find("\"localhost\""), std::string::npos);
}

}  // namespace
}  // namespace platform
