// Spider detection and robot learning from "robots.txt" requests.
#include <gtest/gtest.h>

#include "analysis/AnalysisTesting.h"
#include "analysis/Spider.h"
#include "startup/RobotList.h"

namespace analysis {
namespace {

using antest::Open;

startup::RobotList ListOf(std::vector<startup::RobotEntry> entries) {
  startup::RobotList list;
  for (auto& e : entries) list.Append(e.address, e.agent);
  list.changed = false;
  return list;
}

TEST(DetectSpider, NamedEnginesComeFirstThenGenericWordsThenTheRobotList) {
  const startup::RobotList none;
  EXPECT_EQ(DetectSpider("Googlebot-ROBOT/2.1", "1.1.1.1", none), "Google");
  EXPECT_EQ(DetectSpider("Mozilla/4.0 (compatible; MSIECrawler)", "1.1.1.1", none),
            "Mozilla/4.0 (compatible; MSIECrawler)");
  EXPECT_EQ(DetectSpider("ia_archiver", "1.1.1.1", none), "All Others");
  EXPECT_EQ(DetectSpider("Mozilla/4.72 [en] (X11; U; NetBSD 1.4.2 i386; Nav)", "1.1.1.1", none),
            "Inktomi");
  EXPECT_EQ(DetectSpider("Mozilla/4.0+(compatible;+MSIE+6.0)", "1.1.1.1", none), "");

  const startup::RobotList robots = ListOf({{"9.9.9.9", "lower-case bot"}, {"8.8.8.8", "ACME"}});
  EXPECT_EQ(DetectSpider("Whatever/1.0", "9.9.9.9", robots), "Auto Detected");  // by address
  EXPECT_EQ(DetectSpider("acme fetcher", "7.7.7.7", robots), "Auto Detected");  // upper-cased agent
  EXPECT_EQ(DetectSpider("lower-case bot", "7.7.7.7", robots), "");  // stored lower case: no match
  EXPECT_EQ(DetectSpider("x", "9.9.9.9", robots), "");  // under 2 characters: never a robot
}

TEST(RobotLearning, AnUnknownRobotIsLearntOnceAndItsVisitsAreSpiders) {
  antest::Run run;
  run.Hit("2026-11-20", "10:00:00", "10.0.0.9", "/robots.txt", 200, "Fetchy/1.0");
  ASSERT_EQ(run.world.robots.count, 1);
  EXPECT_TRUE(run.world.robots.changed);
  EXPECT_EQ(run.world.robots.entries[1].address, "10.0.0.9");
  EXPECT_EQ(run.world.robots.entries[1].agent, "Fetchy/1.0");
  EXPECT_EQ(run.hits->Counters().Site(1).today.spiders, 1);
  // Later, in a new visit: known by its address now, so not learnt or reported again.
  run.Hit("2026-11-20", "11:00:00", "10.0.0.9", "/robots.txt", 200, "Fetchy/1.0");
  EXPECT_EQ(run.world.robots.count, 1);
  run.Close();
  const auto ex = run.Table("Exceptions");
  ASSERT_EQ(ex.size(), 1u);
  EXPECT_EQ(ex[0].at("NUMBER"), "902");
  EXPECT_EQ(ex[0].at("VALUE"), "Fetchy/1.0");
  EXPECT_EQ(ex[0].at("IP"), "10.0.0.9");
  const auto visits = run.Table("Visits");
  ASSERT_EQ(visits.size(), 2u);
  EXPECT_EQ(visits[0].at("SPIDER"), "Y");
  EXPECT_EQ(visits[0].at("SPIDERT"), "Unknown");
  EXPECT_EQ(visits[1].at("SPIDERT"), "Auto Detected");
}

TEST(RobotLearning, SpiderHitsAreDroppedWhenTheSettingSaysSoAndTypesWithoutCheckKeepThem) {
  antest::Run run(2);
  run.world.settings.noSpiders = true;
  run.Hit("2026-11-20", "10:00:00", "10.0.0.1", "/a.htm", 200, "Googlebot/2.1");
  EXPECT_EQ(run.hits->Visits().Count(), 0);
  // A site whose log layout skips the check: the same agent is an ordinary visitor.
  run.input.Site(2).noSpiderCheck = true;
  run.Hit("2026-11-20", "10:00:00", "10.0.0.1", "/a.htm", 200, "Googlebot/2.1", "-", "GET", 2);
  ASSERT_EQ(run.hits->Visits().Count(), 1);
  EXPECT_FALSE(Open(run, 1).spider);
}

}  // namespace
}  // namespace analysis
