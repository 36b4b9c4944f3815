// The DNS cache of the visitor tables and the country codes of "IPCC".
#include <gtest/gtest.h>

#include "database/TestDatabase.h"

using dbtest::At;
using dbtest::MakeVisit;
using dbtest::ReadTable;
using dbtest::DbRun;

namespace {

// Records a visitor of `ip` at the current site with the host name `dns`.
void Visitor(database::Database& f, const std::string& ip, const std::string& dns) {
  database::Visit v = MakeVisit(ip, At(9, 0, 0));
  v.hostName = dns;
  f.UpdateVisitor(v);
}

// An "IPCC" table as the product supplies it: ranges keyed by their 12-digit start address.
void MakeCountryTable(const std::string& folder) {
  dbase::Table t;
  t.SetLocation(folder);
  t.SetTableName("IPCC");
  ASSERT_EQ(t.CreateTable({"IPFrom|C|12", "IPTo|C|12", "Country|C|2"}, {"key0|IPFrom||N|"}),
            dbase::kOk);
  ASSERT_EQ(t.OpenTable(), dbase::kOk);
  const char* const rows[][3] = {{"010000000000", "010255255255", "US"},
                                 {"192168000000", "192168255255", "GB"},
                                 {"200000000000", "200255255255", "BR"}};
  for (const auto& r : rows) {
    t.BlankRecord();
    t.SetText("IPFrom", r[0]);
    t.SetText("IPTo", r[1]);
    t.SetText("Country", r[2]);
    ASSERT_EQ(t.AppendRecord(), dbase::kOk);
  }
  t.CloseTable();
}

}  // namespace

TEST(DnsCache, KnownNamesComeFromVisitorAndAreRemembered) {
  DbRun run;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  Visitor(f, "10.0.0.1", "one.example.org");
  Visitor(f, "10.0.0.2", "10.0.0.2");  // never resolved
  f.ChangeFriendlyName("10.0.0.1", "Joe");

  database::Visit v = MakeVisit("10.0.0.1", At(10, 0, 0));
  EXPECT_EQ(f.LookupDNS("10.0.0.1", &v), "one.example.org");
  EXPECT_EQ(v.friendlyName, "Joe");
  // The second question is answered from memory: the table's new name is not read.
  f.UpdateDNS("10.0.0.1", "renamed.example.org");
  database::Visit again = MakeVisit("10.0.0.1", At(11, 0, 0));
  EXPECT_EQ(f.LookupDNS("10.0.0.1", &again), "one.example.org");
  EXPECT_EQ(again.friendlyName, "Joe");

  // A record holding the bare IP is no answer, and is asked again every time.
  EXPECT_EQ(f.LookupDNS("10.0.0.2"), "");
  f.UpdateDNS("10.0.0.2", "two.example.org");
  EXPECT_EQ(f.LookupDNS("10.0.0.2"), "two.example.org");
  EXPECT_EQ(f.LookupDNS("10.0.0.3"), "");
  EXPECT_EQ(run.ErrorsLog(), "");
}

TEST(DnsCache, UpdateDnsRenamesEverySiteRecordOfTheIpAndNoOther) {
  DbRun run;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  for (const char* site : {"Alpha", "Beta", "Gamma"}) {
    f.SetCurrentSite(site);
    Visitor(f, "10.0.0.1", "10.0.0.1");
    Visitor(f, "10.0.0.10", "10.0.0.10");
  }
  f.SetCurrentSite("Alpha");
  Visitor(f, "10.0.0.0", "10.0.0.0");
  f.UpdateDNS("10.0.0.1", "resolved.example.org");
  f.CloseDatabase();
  int renamed = 0;
  for (const auto& r : ReadTable(run.Data(), "Visitor")) {
    if (r.at("DNS") == "resolved.example.org") {
      ++renamed;
      EXPECT_EQ(r.at("IP"), "10.0.0.1");
    } else {
      EXPECT_EQ(r.at("DNS"), r.at("IP"));
    }
  }
  EXPECT_EQ(renamed, 3);
}

TEST(DnsCache, CountryCodeFromTheNearestRangeRecord) {
  DbRun run;
  MakeCountryTable(run.Data());
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  ASSERT_TRUE(f.CountryTableAvailable());
  EXPECT_TRUE(f.Inspect(database::TableId::kIpcc).IsOpen());
  EXPECT_EQ(f.LookupCountryCode("10.0.0.0"), "US");
  EXPECT_EQ(f.LookupCountryCode("192.168.0.0"), "GB");
  // Between two range starts the near seek stands on the next range.
  EXPECT_EQ(f.LookupCountryCode("150.1.2.3"), "GB");
  // Past the last range there is no record to stand on.
  EXPECT_EQ(f.LookupCountryCode("250.1.2.3"), "");
  EXPECT_EQ(run.ErrorsLog(), "");
  // Not a dotted IPv4 address: logged, empty, and the run goes on.
  EXPECT_EQ(f.LookupCountryCode("fe80::1"), "");
  EXPECT_EQ(f.LookupCountryCode("10.0.0"), "");
  EXPECT_EQ(f.LookupCountryCode("10.0.0.99999"), "");
  EXPECT_EQ(f.LookupCountryCode("10.0.x.1"), "");
  const std::string log = run.ErrorsLog();
  EXPECT_NE(log.find("Type mismatch FROM F.LookupCountryCode\r\n"), std::string::npos) << log;
  size_t lines = 0;
  for (char c : log) lines += c == '\n';
  EXPECT_EQ(lines, 4u);
  f.CloseDatabase();
  // The product's table is only read: it is still there after the rebuild.
  EXPECT_TRUE(dbtest::FileThere(run.Data(), "IPCC.DBF"));
  EXPECT_EQ(ReadTable(run.Data(), "IPCC").size(), 3u);
}
