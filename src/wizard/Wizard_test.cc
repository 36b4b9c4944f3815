// The wizard window's logic: the load checks, the Start button's service check and question, and
// the shut-down's robot list.
#include "wizard/Wizard.h"

#include <gtest/gtest.h>

#include "wizard/WizardTesting.h"

namespace wizard {
namespace {

using testing::ScanWorld;

TEST(Wizard, LoadRefusesWithoutSitesAndWhenEverySiteComesByFtp) {
  {
    ScanWorld t;
    t.w().app.appTitle = "Acme Stats";
    Wizard wizard(t.w(), t.ui, t.timer);
    EXPECT_EQ(wizard.Load(), LoadResult::NoSites);
    ASSERT_EQ(t.ui.messages.size(), 1u);
    EXPECT_EQ(t.ui.messages[0].text,
              "No Sites have been setup. Use Acme Stats first to setup at least 1 web site for "
              "monitoring, then re-run this Wizard to create the Acme Stats Database from the "
              "sites' log files.\r\n\r\nThe sites file " +
                  t.w().app.appFolder + "ACME STATS.INI was not found.");
    EXPECT_EQ(t.ui.messages[0].icon, platform::MsgIcon::Information);
    EXPECT_EQ(t.ui.messages[0].title, "Acme Stats");
  }
  {
    ScanWorld t;
    t.AddSite("One", "one", startup::LogLayout::W3cExtended, true);
    t.AddSite("Two", "two", startup::LogLayout::Combined, true);
    Wizard wizard(t.w(), t.ui, t.timer);
    EXPECT_EQ(wizard.Load(), LoadResult::AllFtp);
    ASSERT_EQ(t.ui.messages.size(), 1u);
    EXPECT_EQ(t.ui.messages[0].text,
              "All sites are accessed via FTP. This utility only works with directly accessible "
              "log files.");
    EXPECT_EQ(t.ui.messages[0].icon, platform::MsgIcon::Exclamation);
  }
}

TEST(Wizard, LoadPreparesTheGridTheSitesTimesAndThresholds) {
  ScanWorld t;
  t.AddSite("One", "one", startup::LogLayout::W3cExtended, true);
  t.AddSite("Two", "two");
  t.w().settings.reverseDns = false;
  Wizard wizard(t.w(), t.ui, t.timer);
  ASSERT_EQ(wizard.Load(), LoadResult::Ready);
  EXPECT_TRUE(t.ui.messages.empty());
  EXPECT_EQ(t.ui.grid.RowCount(), 1);
  EXPECT_EQ(t.ui.grid.Row(0).cells[1], "Modified Date               ");
  EXPECT_EQ(t.ui.grid.Row(0).cells[3], " File Name");
  const vb::Date now = t.clock.Now();
  ScanDriver& d = wizard.Driver();
  for (int i = 1; i <= 2; ++i) {
    EXPECT_EQ(d.Hits().Counters().Site(i).quietSince, now);
    EXPECT_EQ(d.Hits().Counters().Site(i).secondLevelQuietSince, now);
    EXPECT_EQ(vb::DateDiffMinutes(now, d.Hits().Counters().Site(i).lastSweepTime), i);
    EXPECT_EQ(vb::DateDiffSeconds(now, d.SiteTimes()[static_cast<size_t>(i)].firstRunTime), 2 * i);
    EXPECT_TRUE(d.SiteTimes()[static_cast<size_t>(i)].runFlag);
  }
  // The thresholds come from the catalogue (131: 25 pages), the DNS box from the settings.
  EXPECT_EQ(t.w().site(2).pageLimit, 25);
  EXPECT_FALSE(wizard.Dns());
  EXPECT_NE(t.ui.captions[platform::Label::Note].find("Tallyo database"), std::string::npos);
  EXPECT_EQ(t.ui.captions[platform::Label::Note].find("[APPTITLE]"), std::string::npos);
}

TEST(Wizard, StartChecksTheServiceFlagAndAsksBeforeScanning) {
  const std::string key = "[Software\\Fenwright\\Tallyo \\Settings]\n";
  {
    ScanWorld t;
    t.AddSite("One", "one");
    Wizard wizard(t.w(), t.ui, t.timer);
    ASSERT_EQ(wizard.Load(), LoadResult::Ready);
    t.ui.answer = platform::MsgResult::Yes;
    EXPECT_EQ(wizard.Start(platform::IniRegistry::FromText(key + "ServiceRunning=True\n")),
              StartResult::ServiceRunning);
    EXPECT_EQ(t.Messages(), std::vector<std::string>{std::string(kServiceRunning)});
    EXPECT_EQ(t.ui.messages[0].icon, platform::MsgIcon::Information);
    EXPECT_EQ(testing::RecordCount(t.Data(), "Visits"), -1);  // nothing created
  }
  {
    // Only the exact text "True" counts; No leaves everything as it was.
    ScanWorld t;
    t.AddSite("One", "one");
    t.Write("one/ex1.log", testing::W3cLog(3));
    Wizard wizard(t.w(), t.ui, t.timer);
    ASSERT_EQ(wizard.Load(), LoadResult::Ready);
    t.ui.answer = platform::MsgResult::No;
    const auto registry = platform::IniRegistry::FromText(key + "ServiceRunning=true\n");
    EXPECT_EQ(wizard.Start(registry), StartResult::NotConfirmed);
    EXPECT_EQ(t.Messages(), std::vector<std::string>{std::string(kAreYouSure)});
    EXPECT_EQ(t.ui.messages[0].buttons, platform::MsgButtons::YesNoCancel);
    EXPECT_EQ(t.ui.messages[0].icon, platform::MsgIcon::Question);
    EXPECT_EQ(testing::RecordCount(t.Data(), "Visits"), -1);
    EXPECT_EQ(wizard.Driver().State(), ScanState::Ready);
    t.ui.answer = platform::MsgResult::Yes;
    EXPECT_EQ(wizard.Start(registry), StartResult::Completed);
    EXPECT_EQ(wizard.Driver().TotalLines(), 7);
  }
}

TEST(Wizard, UnloadWritesTheRobotListOnlyWhenItChanged) {
  ScanWorld t;
  t.AddSite("One", "one");
  const auto robots = t.dir.path() / "Data" / "robots.dat";
  {
    Wizard wizard(t.w(), t.ui, t.timer);
    wizard.Unload();
    EXPECT_FALSE(std::filesystem::exists(robots));
  }
  t.w().robots.Append("10.0.0.9", "Crawler/1.0 (+http://example.org)");
  Wizard wizard(t.w(), t.ui, t.timer);
  wizard.Unload();
  EXPECT_EQ(tytest::ReadFile(robots), "10.0.0.9 Crawler/1.0 (+http://example.org)\r\n");
}

}  // namespace
}  // namespace wizard
