// tydbcreate-cli with reverse DNS, run as a separate process against a DNS server the test starts
// on 127.0.0.1: two sites, a few thousand distinct addresses, every table checked afterwards.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "DnsServers.h"
#include "JsonValue.h"
#include "ProgramRun.h"
#include "TestSupport.h"
#include "dbase/Table.h"

namespace {

namespace fs = std::filesystem;

using tytest::Outcome;
using tytest::ProgramRun;
using tytest::RunProgram;

// The n-th distinct address: 10.50.0.1 ... 10.50.0.250, 10.50.1.1, ...
std::string Address(int n) {
  return "10.50." + std::to_string(n / 250) + "." + std::to_string(n % 250 + 1);
}
std::string NameOf(int n) { return "visitor-" + std::to_string(n) + ".dsl.example.net"; }

// A W3C log with two page hits from each address of [first, last), the second a minute later.
std::string Log(int first, int last) {
  std::string s = "#Fields: date time c-ip cs-method cs-uri-stem sc-status cs(User-Agent)\r\n";
  char line[160];
  for (int i = first; i < last; ++i) {
    for (int hit = 0; hit < 2; ++hit) {
      const int second = (i - first) * 2 + hit * 60;
      std::snprintf(line, sizeof line,
                    "2026-11-01 %02d:%02d:%02d %s GET /p%d.htm 200 Mozilla/4.0+(compatible)\r\n",
                    8 + second / 3600, second / 60 % 60, second % 60, Address(i).c_str(), hit);
      s += line;
    }
  }
  return s;
}

TEST(CliDns, TwoSitesWithThousandsOfAddressesGetTheirNamesAndEveryTableChecksOut) {
  // Two addresses in three have a name; the others are "no such name".
  constexpr int kAddresses = 3000;
  std::vector<std::pair<std::string, std::string>> hosts;
  for (int i = 0; i < kAddresses; ++i)
    if (i % 3 != 0) hosts.emplace_back(Address(i), NameOf(i));
  tytest::Dnsmasq dns(hosts);
  if (!dns.Started()) GTEST_SKIP() << "no DNS server for the test: " << dns.Why();

  // Site "Shop" sees addresses 0..1999, site "Corp" 1000..2999: half of Corp's are known by then.
  tytest::TempDir app;
  tytest::WriteFile(app.path() / "SETTINGS.INI", "REVERSEDNS=False\r\nINACTIVITYMINS=20\r\n\r\n");
  tytest::WriteFile(app.path() / "TALLYO.INI",
                    "[Shop]\r\nTYPE=0\r\nFOLDER=" + app.str() + "shop/\r\nMASK=ex*.log\r\n"
                    "[Corp]\r\nTYPE=0\r\nFOLDER=" + app.str() + "corp/\r\nMASK=ex*.log\r\n\r\n");
  tytest::WriteFile(app.path() / "shop" / "ex261101.log", Log(0, 2000));
  tytest::WriteFile(app.path() / "corp" / "ex261101.log", Log(1000, kAddresses));
  fs::create_directories(app.path() / "Data");

  tytest::TempDir scratch;
  const Outcome o = RunProgram({"--yes", "--json", "--now", "2026-11-16 02:23:14", "--dns",
                                "--dns-server", dns.Server(), app.str()},
                               scratch);
  ASSERT_EQ(o.status, 0) << o.err;
  tytest::JsonValue j;
  ASSERT_NO_THROW(j = tytest::ParseJson(o.out)) << o.out.substr(0, 400);
  const auto requests = static_cast<int>(j["dnsRequests"].number);
  // Every look-up reached the server; Shop's 2000 addresses were all new.
  EXPECT_EQ(dns.Queries(), requests);
  EXPECT_GE(requests, 2000);
  EXPECT_GT(j["dnsCacheHits"].number, 0);
  EXPECT_GE(j["dnsFailures"].number, 667);
  EXPECT_EQ(j["summary"].text.find("per second"), std::string::npos);

  // Every table passes the checker.
  const std::string data = app.str() + "Data/";
  int checked = 0;
  for (const auto& e : fs::directory_iterator(data)) {
    if (e.path().extension() != ".DBF") continue;
    const Outcome c =
        RunProgram({e.path().string(), "--check"}, scratch, {.program = "dbfinspect"});
    EXPECT_EQ(c.status, 0) << e.path() << "\n" << c.out << c.err;
    ++checked;
  }
  EXPECT_GE(checked, 7);

  // The visitor records hold the names the server gave, or the address.
  dbase::Table visitor;
  visitor.SetLocation(data);
  visitor.SetTableName("Visitor");
  ASSERT_EQ(visitor.OpenTableReadOnly(), 0);
  std::map<std::string, int> index;
  for (int i = 0; i < kAddresses; ++i) index[Address(i)] = i;
  const int ip = visitor.FieldIndex("IP"), name = visitor.FieldIndex("DNS");
  int named = 0;
  for (long n = 1; n <= visitor.RecordCount(); ++n) {
    ASSERT_EQ(visitor.GoTo(n), 0);
    std::string address(visitor.GetText(ip)), host(visitor.GetText(name));
    while (!address.empty() && address.back() == ' ') address.pop_back();
    while (!host.empty() && host.back() == ' ') host.pop_back();
    const int i = index.at(address);
    if (host == address) continue;
    EXPECT_EQ(host, NameOf(i)) << address;
    ++named;
  }
  // Nearly all of the 2,667 named records: an answer that comes after the scan has moved on to
  // the next site goes to that site's record of the address.
  EXPECT_GE(named, 2500);
}

// An application folder with one site whose log holds `addresses` distinct addresses.
struct OneSite {
  tytest::TempDir app;
  explicit OneSite(int addresses) {
    tytest::WriteFile(app.path() / "SETTINGS.INI", "REVERSEDNS=True\r\nINACTIVITYMINS=20\r\n\r\n");
    tytest::WriteFile(app.path() / "TALLYO.INI",
                      "[Shop]\r\nTYPE=0\r\nFOLDER=" + app.str() + "shop/\r\nMASK=ex*.log\r\n\r\n");
    tytest::WriteFile(app.path() / "shop" / "ex261101.log", Log(0, addresses));
    fs::create_directories(app.path() / "Data");
  }
};

TEST(CliDns, CtrlCDuringThePauseForAServerThatNeverAnswersCancelsTheRun) {
  tytest::SilentDnsServer silent;
  ASSERT_TRUE(silent.Started());
  OneSite site(300);
  tytest::TempDir scratch;
  // A look-up may take a minute: without the cancel the run would wait that long at its pause.
  ProgramRun run({"--yes", "--json", "--dns-timeout", "60000", "--dns-server", silent.Server(),
                  site.app.str()},
                 scratch);
  // The scan pauses at 96 outstanding look-ups, each sent once by now.
  for (int i = 0; i < 500 && silent.Received() < 96; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ASSERT_GE(silent.Received(), 96);
  run.Interrupt();
  const Outcome o = run.Wait();
  EXPECT_EQ(o.status, 9) << o.err;
  EXPECT_NE(o.err.find("scan cancelled"), std::string::npos) << o.err;
  tytest::JsonValue j;
  ASSERT_NO_THROW(j = tytest::ParseJson(o.out)) << o.out.substr(0, 400);
  EXPECT_EQ(j["dnsRequests"].number, 96);
  EXPECT_EQ(j["dnsFailures"].number, 0);
  // Nothing was replaced: there was no database before, there is none now, and the new tables
  // are gone.
  for (const auto& e : fs::directory_iterator(site.app.path() / "Data"))
    EXPECT_NE(e.path().extension(), ".DBF") << e.path();
  EXPECT_TRUE(fs::is_empty(site.app.path() / "Data" / "Temp"));
}

TEST(CliDns, ABadServerIsAUsageErrorAndNoDnsMakesNoPacket) {
  const tytest::TempDir scratch;
  OneSite site(50);
  const Outcome bad =
      RunProgram({"--yes", "--dns", "--dns-server", "dns.example.net", site.app.str()}, scratch);
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("\"dns.example.net\" is not a DNS server address"), std::string::npos)
      << bad.err;
  // REVERSEDNS=True in the settings, overridden.
  tytest::SilentDnsServer silent;
  ASSERT_TRUE(silent.Started());
  const Outcome off = RunProgram(
      {"--yes", "--json", "--no-dns", "--dns-server", silent.Server(), site.app.str()}, scratch);
  ASSERT_EQ(off.status, 0) << off.err;
  EXPECT_EQ(silent.Received(), 0);
  EXPECT_NE(off.out.find("\"dnsRequests\":0,"), std::string::npos);
}

}  // namespace
