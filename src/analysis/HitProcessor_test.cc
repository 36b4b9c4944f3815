// The hit processing run against a real database in a temp folder, the tables read back from disk.
#include "analysis/HitProcessor.h"

#include <gtest/gtest.h>

#include "analysis/AnalysisTesting.h"

namespace analysis {
namespace {

using antest::Open;

using antest::At;
using antest::Record;

const std::string kDay = "2026-11-20";

int CountWhere(const std::vector<Record>& rows, const std::string& field,
               const std::string& value) {
  int n = 0;
  for (const Record& r : rows) n += r.at(field) == value;
  return n;
}

std::vector<std::string> Column(const std::vector<Record>& rows, const std::string& field) {
  std::vector<std::string> out;
  for (const Record& r : rows) out.push_back(r.at(field));
  return out;
}

TEST(HitProcessor, ReloadAndNonPageHitsAddNothing) {
  antest::Run run;
  ASSERT_TRUE(run.ok);
  run.Hit(kDay, "10:00:00", "10.0.0.1", "/index.htm");
  run.Hit(kDay, "10:01:00", "10.0.0.1", "/index.htm");  // reload: keeps the visit alive only
  run.Hit(kDay, "10:05:00", "10.0.0.1", "/logo.gif");   // not a page: touches nothing
  run.Hit(kDay, "10:06:00", "10.0.0.1", "/");           // too short without a "."
  ASSERT_EQ(run.hits->Visits().Count(), 1);
  const database::Visit& v = Open(run, 1);
  EXPECT_EQ(v.pageCount, 1);
  EXPECT_EQ(v.lastHitTime, At(2026, 11, 20, 10, 1));
  EXPECT_EQ(v.currentPage, "index.htm");
  EXPECT_EQ(run.hits->Counters().Site(1).pageViews, 1);
  EXPECT_EQ(run.hits->Counters().totals.pageHits, 1);
  run.Close();
  const auto pages = run.Table("Pages");
  EXPECT_EQ(CountWhere(pages, "PAGE", "index.htm"), 1);
  EXPECT_EQ(CountWhere(pages, "PAGE", "logo.gif"), 0);
  EXPECT_TRUE(run.Table("Exceptions").empty());
  EXPECT_EQ(run.Table("Visits").size(), 1u);
}

// A column that a later fields line drops keeps the value of the hit before, even when that hit
// was not a page and so never got as far as reading its columns.
TEST(HitProcessor, ColumnsOfANonPageHitCarryOverToAFieldsLineWithoutThem) {
  antest::Run run;
  ASSERT_TRUE(run.ok);
  run.Hit(kDay, "10:00:00", "10.0.0.1", "/index.htm", 200, "First/1.0", "http://a/");
  run.Hit(kDay, "10:00:05", "10.0.0.2", "/logo.gif", 200, "Dropped/2.0", "http://dropped/");
  run.Fields(1, "date time c-ip cs-uri-stem sc-status");
  run.Hit(kDay + " 10:00:09 10.0.0.3 /b.htm 200");
  ASSERT_EQ(run.hits->Visits().Count(), 2);
  EXPECT_EQ(Open(run, 1).agent, "First/1.0");
  EXPECT_EQ(Open(run, 2).agent, "Dropped/2.0");
  EXPECT_EQ(Open(run, 2).referrer, "http://dropped/");
  EXPECT_EQ(Open(run, 2).method, "GET");
  // With the same columns throughout, a dropped hit's values are simply replaced.
  run.Hit(kDay + " 10:00:10 10.0.0.4 /c.gif 404");
  run.Hit(kDay + " 10:00:11 10.0.0.5 /c.htm 200");
  EXPECT_EQ(Open(run, 3).agent, "Dropped/2.0");
  EXPECT_EQ(Open(run, 3).clientAddress, "10.0.0.5");
}

TEST(HitProcessor, TimeOutOfTwentyMinutesContinuesAtTwentyAndEndsAtTwentyOne) {
  antest::Run run;
  run.Hit(kDay, "10:00:00", "10.0.0.1", "/a.htm");
  run.Hit(kDay, "10:20:00", "10.0.0.1", "/b.htm");  // 20 minutes: same visit
  run.Hit(kDay, "10:41:00", "10.0.0.1", "/c.htm");  // 21 minutes: a new visit
  EXPECT_EQ(run.hits->Counters().totals.visitsOpened, 2);
  ASSERT_EQ(run.hits->Visits().Count(), 1);  // the first one was written out and dropped
  EXPECT_EQ(Open(run, 1).startTime, At(2026, 11, 20, 10, 41));
  EXPECT_EQ(run.hits->Counters().Site(1).visitorTotal, 1);
  run.Close();
  const auto visits = run.Table("Visits");
  ASSERT_EQ(visits.size(), 2u);
  EXPECT_EQ(visits[0].at("VISITNO"), "00001");
  EXPECT_EQ(visits[0].at("ACTIVE"), "N");
  EXPECT_EQ(visits[0].at("PAGESSEEN"), "2");
  EXPECT_EQ(visits[0].at("LASTPAGE"), "b.htm");
  EXPECT_EQ(visits[0].at("MINSON"), "20:00");
  EXPECT_EQ(visits[1].at("VISITNO"), "00002");
  EXPECT_EQ(visits[1].at("ACTIVE"), "Y");
  EXPECT_EQ(visits[1].at("FIRSTPAGE"), "c.htm");
  const auto visitor = run.Table("Visitor");
  ASSERT_EQ(visitor.size(), 1u);
  EXPECT_EQ(visitor[0].at("VISITS"), "2");
}

TEST(HitProcessor, StatusAboveFourHundredRaisesAndFourHundredDoesNot) {
  antest::Run run;
  run.Hit(kDay, "10:00:00", "10.0.0.1", "/a.htm", 400);
  EXPECT_EQ(Open(run, 1).notFoundCount, 0);
  EXPECT_EQ(Open(run, 1).hackScore, 0);
  run.Hit(kDay, "10:01:00", "10.0.0.1", "/b.htm", 401);
  run.Close();
  const auto ex = run.Table("Exceptions");
  ASSERT_EQ(ex.size(), 1u);
  EXPECT_EQ(ex[0].at("NUMBER"), "401");
  EXPECT_EQ(ex[0].at("VALUE"), "b.htm");
  EXPECT_EQ(ex[0].at("SITE"), "Alpha");
  EXPECT_EQ(ex[0].at("EXTIME"), "10:01:00");
}

// The page and visit duration alerts count minute boundaries crossed, not elapsed time: a page
// viewed 4:59 across five boundaries has been viewed "5 minutes", the page limit raises at the
// limit itself and the visit limit only beyond it, once.
TEST(HitProcessor, DurationAlertsCountMinuteBoundariesAtTheirLimits) {
  antest::Run run;
  ASSERT_TRUE(run.ok);
  run.world.site(1).pageMinutesLimit = 5;
  run.world.site(1).visitMinutesLimit = 12;
  run.world.site(1).pageLimit = 1000;
  run.Hit(kDay, "10:00:00", "10.0.0.1", "/a.htm");
  run.Hit(kDay, "10:04:59", "10.0.0.1", "/b.htm");  // the first page's time is not checked
  run.Hit(kDay, "10:09:58", "10.0.0.1", "/c.htm");  // b: 5 boundaries, raises 134
  run.Hit(kDay, "10:13:59", "10.0.0.1", "/d.htm");  // c: 4 boundaries; visit 13 > 12: 130
  run.Hit(kDay, "10:18:00", "10.0.0.1", "/e.htm");  // d: 5 boundaries again; 130 not again
  run.Hit(kDay, "10:22:00", "10.0.0.1", "/f.htm");  // e: 4 minutes
  run.Close();
  const auto ex = run.Table("Exceptions");
  EXPECT_EQ(Column(ex, "NUMBER"), (std::vector<std::string>{"134", "130", "134"}));
  EXPECT_EQ(Column(ex, "VALUE"), (std::vector<std::string>{"b.htm", "12", "d.htm"}));
  EXPECT_EQ(Column(ex, "EXTIME"), (std::vector<std::string>{"10:09:58", "10:13:59", "10:18:00"}));
}

TEST(HitProcessor, ExecutablesAreDownloadsAndBatchFilesAreNot) {
  antest::Run run;
  run.Hit(kDay, "10:00:00", "10.0.0.1", "/files/setup.exe");
  run.Hit(kDay, "10:00:00", "10.0.0.2", "/go.bat");
  run.Hit(kDay, "10:00:00", "10.0.0.3", "/pack.zip");
  EXPECT_EQ(run.hits->Counters().Site(1).today.downloads, 2);
  run.Close();
  const auto ex = run.Table("Exceptions");
  EXPECT_EQ(Column(ex, "NUMBER"), (std::vector<std::string>{"150", "152"}));
  EXPECT_EQ(Column(ex, "VALUE"), (std::vector<std::string>{"files/setup.exe", "go.bat"}));
  const auto dl = run.Table("Downloads");
  EXPECT_EQ(Column(dl, "DOWNLOAD"), (std::vector<std::string>{"setup.exe", "pack.zip"}));
  EXPECT_EQ(Column(dl, "IP"), (std::vector<std::string>{"10.0.0.1", "10.0.0.3"}));
}

TEST(HitProcessor, NotFoundCountingHackScoreAndOncePerVisitAlerts) {
  antest::Run run;
  // An executable answered 404: 404, then 150 and a hack score of 1 + 2.
  run.Hit(kDay, "10:00:00", "10.0.0.1", "/cmd.exe", 404);
  EXPECT_EQ(Open(run, 1).hackScore, 3);
  // One more 404: the score passes 3 and the hacker alert fires, once.
  run.Hit(kDay, "10:00:01", "10.0.0.1", "/a.htm", 404);
  run.Hit(kDay, "10:00:02", "10.0.0.1", "/b.htm", 404);
  // Ten 404s in all reach the limit of 10: 161 once, and the count starts again.
  for (int i = 3; i <= 9; ++i)
    run.Hit(kDay, "10:00:0" + std::to_string(i), "10.0.0.1", "/p" + std::to_string(i) + ".htm",
            404);
  EXPECT_EQ(Open(run, 1).notFoundCount, 0);
  run.Hit(kDay, "10:00:11", "10.0.0.1", "/p11.htm", 404);
  EXPECT_EQ(Open(run, 1).notFoundCount, 1);
  // Directory traversal and an upload request.
  run.Hit(kDay, "10:00:12", "10.0.0.1", "/scripts/..%2F..%2Fwinnt/cmd.htm", 200);
  run.Hit(kDay, "10:00:13", "10.0.0.1", "/upload.htm", 200, "x", "-", "PUT");
  run.Close();
  const auto numbers = Column(run.Table("Exceptions"), "NUMBER");
  EXPECT_EQ(std::count(numbers.begin(), numbers.end(), "404"), 11);
  EXPECT_EQ(std::count(numbers.begin(), numbers.end(), "165"), 1);
  EXPECT_EQ(std::count(numbers.begin(), numbers.end(), "161"), 1);
  EXPECT_EQ(std::count(numbers.begin(), numbers.end(), "160"), 1);
  EXPECT_EQ(std::count(numbers.begin(), numbers.end(), "162"), 1);
  ASSERT_GE(numbers.size(), 4u);
  EXPECT_EQ(std::vector<std::string>(numbers.begin(), numbers.begin() + 4),
            (std::vector<std::string>{"404", "150", "404", "165"}));
  const auto visitor = run.Table("Visitor");
  ASSERT_EQ(visitor.size(), 1u);
  EXPECT_EQ(visitor[0].at("HACKCOUNT"), "1");
}

TEST(HitProcessor, ProbeOwnHitsLiveMonitorHitsAndExcludedVisitorsAreDropped) {
  antest::Run run;
  startup::Site& site = run.world.site(1);
  site.lastIp = "10.0.0.5";
  site.lastTime = At(2026, 11, 20, 10, 0);
  site.exclude = "192.168.*";
  site.excludePages = "private/*";
  run.Hit(kDay, "10:00:00", "10.0.0.9", "/a.htm", 200, "Tallyo+Probe");  // the product's probe
  run.Hit(kDay, "10:00:00", "10.0.0.5", "/a.htm");  // already recorded by the live monitor
  run.Hit(kDay, "10:00:00", "192.168.1.1", "/a.htm");
  run.Hit(kDay, "10:00:00", "10.0.0.7", "/private/a.htm");
  EXPECT_EQ(run.hits->Visits().Count(), 0);
  run.Hit(kDay, "10:00:01", "10.0.0.5", "/a.htm");  // later than LASTTIME: counted
  EXPECT_EQ(run.hits->Visits().Count(), 1);
  run.Close();
  EXPECT_EQ(run.Table("Visits").size(), 1u);
}

TEST(HitProcessor, DaySummaryAtMidnightAndAcrossTwoFilesOverwritesTheDay) {
  antest::Run run;
  // File 1: two visitors on the 20th, one more after midnight.
  run.hits->StartFile();
  run.Hit(kDay, "23:50:00", "10.0.0.1", "/a.htm");
  run.Hit(kDay, "23:55:00", "10.0.0.2", "/a.htm", 404);
  EXPECT_TRUE(run.Table("DaySum").empty());
  run.Hit("2026-11-21", "00:05:00", "10.0.0.3", "/a.htm");
  run.Hit("2026-11-21", "00:06:00", "10.0.0.1", "/b.htm");  // the 20th's visit goes on
  run.hits->EndOfFile(1);
  // File 2 continues the 21st with one more visitor; its end writes the 21st again, with the
  // counts since the first write (overwriting, not adding).
  run.hits->StartFile();
  run.Hit("2026-11-21", "08:00:00", "10.0.0.4", "/setup.exe");
  run.hits->EndOfFile(1);
  run.Close();
  const auto days = run.Table("DaySum");
  ASSERT_EQ(days.size(), 2u);
  EXPECT_EQ(days[0].at("SITE"), "Alpha");
  EXPECT_EQ(days[0].at("DATED"), "20261120");
  EXPECT_EQ(days[0].at("VISITORS"), "2");
  EXPECT_EQ(days[0].at("EXCEPTIONS"), "1");
  EXPECT_EQ(days[0].at("DOWNLOADS"), "0");
  EXPECT_EQ(days[1].at("DATED"), "20261121");
  EXPECT_EQ(days[1].at("VISITORS"), "1");
  EXPECT_EQ(days[1].at("EXCEPTIONS"), "1");
  EXPECT_EQ(days[1].at("DOWNLOADS"), "1");
  EXPECT_EQ(run.hits->Counters().Site(1).today.visitors, 0);
}

TEST(HitProcessor, DaySummaryOfALongSiteNameIsKeyedByItsFirstTwentyCharacters) {
  antest::Run run;
  run.world.site(1).name = "A Very Long Site Name Indeed";
  run.Hit(kDay, "10:00:00", "10.0.0.1", "/a.htm");
  run.hits->EndOfFile(1);
  run.Hit(kDay, "10:01:00", "10.0.0.2", "/a.htm");
  run.hits->EndOfFile(1);  // the same day again: found by its key and overwritten
  run.Close();
  const auto days = run.Table("DaySum");
  ASSERT_EQ(days.size(), 1u);
  EXPECT_EQ(days[0].at("SITE"), "A Very Long Site Nam");
  EXPECT_EQ(days[0].at("VISITORS"), "1");
}

TEST(HitProcessor, SweepClosesAVisitOneMinutePastTheTimeOutMeasuredToTheFileDate) {
  antest::Run run;
  loginput::SiteReadState& read = run.input.Site(1);
  read.currentFileDate = At(2026, 11, 20, 10, 20);
  run.Hit(kDay, "10:00:00", "10.0.0.1", "/a.htm");
  // 25 minutes after the last sweep, a sweep runs: 10.0.0.1 is exactly 20 minutes before the
  // file date and stays.
  run.Hit(kDay, "10:25:00", "10.0.0.2", "/a.htm");
  EXPECT_EQ(run.hits->Visits().Count(), 2);
  // The file date moves on a minute; the next sweep closes it, whatever the wall clock says.
  read.currentFileDate = At(2026, 11, 20, 10, 21);
  run.Hit(kDay, "10:46:00", "10.0.0.3", "/a.htm");
  ASSERT_EQ(run.hits->Visits().Count(), 2);
  EXPECT_EQ(Open(run, 1).clientAddress, "10.0.0.2");
  EXPECT_EQ(run.hits->Counters().Site(1).visitorTotal, 2);
  // The sweep itself, at the boundary: every site's visits, against the date given.
  run.hits->ScanToRemove(At(2026, 11, 20, 11, 6));
  ASSERT_EQ(run.hits->Visits().Count(), 1);
  EXPECT_EQ(Open(run, 1).clientAddress, "10.0.0.3");
  run.hits->ScanToRemove(At(2026, 11, 20, 11, 7));
  EXPECT_EQ(run.hits->Visits().Count(), 0);
  EXPECT_EQ(run.hits->Counters().Site(1).visitorTotal, 0);
  run.Close();
  const auto visits = run.Table("Visits");
  ASSERT_EQ(visits.size(), 3u);
  EXPECT_EQ(Column(visits, "ACTIVE"), (std::vector<std::string>{"N", "N", "N"}));
}

}  // namespace
}  // namespace analysis
