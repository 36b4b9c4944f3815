// Visitor records, visit numbering, referrer counts, hack counts and friendly names, read back
// from the tables on disk.
#include <gtest/gtest.h>

#include <algorithm>

#include "database/TestDatabase.h"

using dbtest::At;
using dbtest::MakeVisit;
using dbtest::ReadTable;
using dbtest::DbRun;

namespace {

// The visit of `ip` starting at `start`, passed through UpdateVisitor; returns its number.
int StartVisit(database::Database& f, const std::string& ip, vb::Date start,
               const std::string& referrer = "", bool spider = false) {
  database::Visit v = MakeVisit(ip, start);
  v.referrer = referrer;
  v.spider = spider;
  f.UpdateVisitor(v);
  return v.visitNumber;
}

int CountExceptions(const std::vector<dbtest::Record>& rows, const std::string& number) {
  return static_cast<int>(std::count_if(rows.begin(), rows.end(), [&](const dbtest::Record& r) {
    return r.at("NUMBER") == number;
  }));
}

}  // namespace

TEST(Visitors, VisitsAreNumberedPerVisitorInOrderOfTheirStart) {
  DbRun run;
  run.world.site(1).returnLimit = 3;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  const std::string ref = "http://www.example.com/a/b.htm";

  EXPECT_EQ(StartVisit(f, "10.0.0.1", At(9, 0, 0), ref), 1);
  EXPECT_EQ(StartVisit(f, "10.0.0.1", At(10, 0, 0), ref), 2);
  // The same second as the recorded last visit: the visitor does not count it again, the
  // referrer does.
  EXPECT_EQ(StartVisit(f, "10.0.0.1", At(10, 0, 0), ref), 2);
  // An earlier start than the last visit keeps the number too.
  EXPECT_EQ(StartVisit(f, "10.0.0.1", At(8, 0, 0)), 2);
  EXPECT_EQ(StartVisit(f, "10.0.0.1", At(11, 0, 0)), 3);  // repeat visitor: 133
  EXPECT_EQ(StartVisit(f, "10.0.0.1", At(12, 0, 0)), 4);  // and again
  // Another IP starts its own count; a spider never raises 133.
  for (int h = 9; h <= 12; ++h) StartVisit(f, "10.0.0.2", At(h, 30, 0), "", true);
  // Another site has its own record.
  f.SetCurrentSite("Beta");
  EXPECT_EQ(StartVisit(f, "10.0.0.1", At(13, 0, 0)), 1);
  EXPECT_EQ(f.Totals().newVisitors, 3);
  EXPECT_EQ(f.Totals().newReferrers, 1);
  f.CloseDatabase();

  const auto visitors = ReadTable(run.Data(), "Visitor", "key0");
  ASSERT_EQ(visitors.size(), 3u);
  const auto& alpha = visitors[0];
  EXPECT_EQ(alpha.at("IP"), "10.0.0.1");
  EXPECT_EQ(alpha.at("SITE"), "Alpha");
  EXPECT_EQ(alpha.at("VISITS"), "4");
  EXPECT_EQ(alpha.at("FIRSTVDATE"), "20260314");
  EXPECT_EQ(alpha.at("FIRSTVTIME"), "09:00:00");
  EXPECT_EQ(alpha.at("LASTVTIME"), "12:00:00");
  EXPECT_EQ(alpha.at("DNS"), "10.0.0.1");
  EXPECT_EQ(alpha.at("BROWSER"), "IE6");
  EXPECT_EQ(alpha.at("HACKCOUNT"), "0");
  EXPECT_EQ(alpha.at("SPIDER"), "N");
  EXPECT_EQ(visitors[1].at("SITE"), "Beta");
  EXPECT_EQ(visitors[1].at("VISITS"), "1");
  EXPECT_EQ(visitors[2].at("SPIDER"), "Y");
  EXPECT_EQ(visitors[2].at("VISITS"), "4");

  const auto referrers = ReadTable(run.Data(), "Referrers");
  ASSERT_EQ(referrers.size(), 1u);
  EXPECT_EQ(referrers[0].at("NAME"), "http://www.example.com");
  EXPECT_EQ(referrers[0].at("VISITS"), "3");
  EXPECT_EQ(referrers[0].at("FIRSTVTIME"), "09:00:00");
  EXPECT_EQ(referrers[0].at("LASTVTIME"), "10:00:00");

  // Threshold 3: the third and fourth visit of the non-spider, nothing for the spider.
  const auto exceptions = ReadTable(run.Data(), "Exceptions");
  ASSERT_EQ(CountExceptions(exceptions, "133"), 2);
  EXPECT_EQ(exceptions[0].at("VISITNO"), "3");  // plain decimal, not "00003"
  EXPECT_EQ(exceptions[1].at("VISITNO"), "4");
  EXPECT_EQ(exceptions[0].at("IP"), "10.0.0.1");  // the visit's host name text
  EXPECT_EQ(exceptions[0].at("EXTIME"), "11:00:00");
}

TEST(Visitors, ReferrerRecordsOnlyForNonEmptyReferrersAndWhenAsked) {
  DbRun run;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  StartVisit(f, "10.0.0.1", At(9, 0, 0), "   ");
  database::Visit v = MakeVisit("10.0.0.2", At(9, 0, 0));
  v.referrer = "http://www.example.com/";
  f.UpdateVisitor(v, /*dontUpdateReferrer=*/true);
  EXPECT_EQ(f.Totals().newReferrers, 0);
  f.CloseDatabase();
  EXPECT_TRUE(ReadTable(run.Data(), "Referrers").empty());
  EXPECT_EQ(ReadTable(run.Data(), "Visitor").size(), 2u);
}

TEST(Visitors, ReferrersThroughKey1ListASitesReferrersByVisitsHighestFirst) {
  DbRun run;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  const struct {
    const char* site;
    const char* referrer;
    int visits;
  } plan[] = {{"Alpha", "http://one.example", 2},  {"Alpha", "http://two.example", 5},
              {"Alpha", "http://three.example", 1}, {"Alpha", "http://four.example", 12},
              {"Beta", "http://one.example", 3}};
  int ip = 0;
  for (const auto& p : plan) {
    f.SetCurrentSite(p.site);
    for (int i = 0; i < p.visits; ++i) {
      StartVisit(f, "10.0.1." + std::to_string(++ip), At(9, 0, 0), p.referrer);
    }
  }
  f.CloseDatabase();
  const auto rows = ReadTable(run.Data(), "Referrers", "key1");
  std::vector<std::string> alpha;
  for (const auto& r : rows) {
    if (r.at("SITE") == "Alpha") alpha.push_back(r.at("NAME") + "=" + r.at("VISITS"));
  }
  const std::vector<std::string> expected = {"http://four.example=12", "http://two.example=5",
                                             "http://one.example=2", "http://three.example=1"};
  EXPECT_EQ(alpha, expected);
  // Descending on site and count: the "Beta" referrers come before those of "Alpha".
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_EQ(rows[0].at("SITE"), "Beta");
}

TEST(Visitors, NewVisitorIsAppendedEvenWhenItsExceptionWritesABatch) {
  DbRun run;
  run.world.site(1).returnLimit = 1;  // every visit raises 133
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  StartVisit(f, "10.0.0.1", At(9, 0, 0));
  // Fill the exception cache to the brim, so that the next exception writes the batch.
  for (int i = 0; i < 4999; ++i) f.AddException(1, 404, At(9, 1, 0), "x.htm");
  EXPECT_EQ(f.Inspect(database::TableId::kExceptions).RecordCount(), 0);
  StartVisit(f, "10.0.0.2", At(9, 2, 0));  // new visitor; its 133 writes 5001 records first
  EXPECT_EQ(f.Inspect(database::TableId::kExceptions).RecordCount(), 5001);
  StartVisit(f, "10.0.0.1", At(9, 3, 0));  // known visitor
  f.CloseDatabase();
  const auto visitors = ReadTable(run.Data(), "Visitor", "key0");
  ASSERT_EQ(visitors.size(), 2u);
  EXPECT_EQ(visitors[0].at("IP"), "10.0.0.1");
  EXPECT_EQ(visitors[0].at("VISITS"), "2");
  EXPECT_EQ(visitors[1].at("IP"), "10.0.0.2");
  EXPECT_EQ(visitors[1].at("VISITS"), "1");
}

TEST(Visitors, HackCountsAndFriendlyNames) {
  DbRun run;
  database::Database f(run.Inputs());
  ASSERT_TRUE(f.InitDatabase());
  f.SetCurrentSite("Alpha");
  database::Visit v = MakeVisit("10.0.0.1", At(9, 0, 0));
  f.UpdateVisitor(v);
  f.UpdateHackCount(v);
  f.UpdateHackCount(v);
  EXPECT_EQ(v.hackCount, 2);
  database::Visit stranger = MakeVisit("10.0.0.9", At(9, 0, 0));
  f.UpdateHackCount(stranger);  // no record: not counted, none created
  EXPECT_EQ(stranger.hackCount, 0);

  // Known in Alpha and Gamma, not in Beta.
  f.SetCurrentSite("Gamma");
  f.UpdateVisitor(v);
  f.SetCurrentSite("Alpha");
  StartVisit(f, "10.0.0.10", At(9, 0, 0));  // an IP that starts like the other one
  f.ChangeFriendlyName("10.0.0.1", "Joe Bloggs");
  EXPECT_EQ(f.GetFriendlyName("10.0.0.1"), "Joe Bloggs");
  EXPECT_EQ(f.GetFriendlyName("10.0.0.10"), "");
  EXPECT_EQ(f.GetFriendlyName("10.0.0.2"), "");
  // A later visit takes the name into the visit state.
  database::Visit later = MakeVisit("10.0.0.1", At(15, 0, 0));
  f.UpdateVisitor(later);
  EXPECT_EQ(later.friendlyName, "Joe Bloggs");
  EXPECT_NEAR(later.firstVisitTime, At(9, 0, 0), 1e-9);
  f.CloseDatabase();

  const auto visitors = ReadTable(run.Data(), "Visitor", "key0");
  ASSERT_EQ(visitors.size(), 3u);
  int named = 0;
  for (const auto& r : visitors) {
    if (r.at("NAME") == "Joe Bloggs") {
      ++named;
      EXPECT_EQ(r.at("IP"), "10.0.0.1");
    }
  }
  EXPECT_EQ(named, 2);
  EXPECT_EQ(visitors[0].at("HACKCOUNT"), "2");
  EXPECT_EQ(run.ErrorsLog(), "");
}

TEST(Visitors, ChangeFriendlyNameOpensTheDatabaseWhenClosed) {
  DbRun run;
  database::Database f(run.Inputs());
  f.ChangeFriendlyName("10.0.0.1", "Nobody");
  EXPECT_TRUE(f.DatabaseOpen());
  EXPECT_EQ(f.Inspect(database::TableId::kVisitor).RecordCount(), 0);
}
