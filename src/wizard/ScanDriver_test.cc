// The scan driver against a fake window and real tables in a temp folder: which sites and files
// it reads, what it shows, how it fails, and how a Cancel ends it.
#include "wizard/ScanDriver.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "loginput/LogInputTesting.h"
#include "wizard/SiteAlerts.h"
#include "wizard/Wizard.h"
#include "wizard/WizardTesting.h"

namespace wizard {
namespace {

using platform::Label;
using testing::ScanWorld;
using testing::W3cLog;

TEST(ScanDriver, AllFtpSitesStillCreateAndCloseTheDatabase) {
  ScanWorld t;
  t.AddSite("Remote One", "r1", startup::LogLayout::W3cExtended, true);
  t.AddSite("Remote Two", "r2", startup::LogLayout::W3cExtended, true);
  t.Write("r1/ex1.log", W3cLog(10));
  ScanDriver d(t.w(), t.ui, t.timer);
  EXPECT_EQ(d.ScanAllSites(), ScanOutcome::Completed);
  EXPECT_EQ(d.State(), ScanState::Done);
  EXPECT_FALSE(d.Database().DatabaseOpen());
  EXPECT_TRUE(t.ui.CaptionsOf(Label::Site).empty());
  ASSERT_EQ(t.Messages().size(), 1u);
  EXPECT_EQ(t.ui.messages.at(0).text,
            "Scan Complete. \r\n\r\nScanned 0 lines in 2 Seconds\r\n0 lines per second.\r\n\r\n"
            "0 visit records added.\r\n0 page view records added.\r\n0 exception records "
            "added.\r\n");
  EXPECT_EQ(t.ui.messages[0].icon, platform::MsgIcon::Information);
  EXPECT_EQ(t.ui.messages[0].title, "Tallyo");
  EXPECT_EQ(testing::RecordCount(t.Data(), "Visits"), 0);
  EXPECT_EQ(testing::RecordCount(t.Data(), "DaySum"), 0);
  EXPECT_EQ(t.ui.captions[Label::Note], "Scan Completed.");
  EXPECT_FALSE(t.ui.progress.Visible());
  EXPECT_FALSE(t.ui.grid.Visible());
}

TEST(ScanDriver, ReadsEveryLocalSiteAndEveryFileInListedOrder) {
  ScanWorld t;
  t.AddSite("Alpha", "a");
  t.AddSite("Remote", "r", startup::LogLayout::W3cExtended, true);
  t.AddSite("Gamma", "g");
  t.Write("a/ex02.log", W3cLog(30, 4));
  t.Write("a/EX01.LOG", W3cLog(20, 2));
  t.Write("a/notes.txt", "not a log");
  t.Write("g/ex03.log", W3cLog(5, 1));
  ScanDriver d(t.w(), t.ui, t.timer);
  ASSERT_EQ(d.ScanAllSites(), ScanOutcome::Completed);

  EXPECT_EQ(t.ui.CaptionsOf(Label::Site),
            (std::vector<std::string>{"Scanning Site: Alpha", "Scanning Site: Gamma"}));
  std::vector<std::string> files;
  for (const auto& c : t.ui.CaptionsOf(Label::Prog))
    if (c.find(t.dir.str()) == 0) files.push_back(c.substr(t.dir.str().size()));
  EXPECT_EQ(files, (std::vector<std::string>{"a/EX01.LOG", "a/ex02.log", "g/ex03.log"}));
  // Every line read counts, the four header lines of each file included.
  EXPECT_EQ(d.TotalLines(), (4 + 20) + (4 + 30) + (4 + 5));
  EXPECT_EQ(t.w().site(3).lastLogFile, t.dir.str() + "g/ex03.log");

  // The figures of the summary: the visits opened (one record each) and the page hits counted
  // (below a full batch, "Pages" holds each visit's first page and one record per page hit).
  const long visits = testing::RecordCount(t.Data(), "Visits");
  const long pages = testing::RecordCount(t.Data(), "Pages");
  EXPECT_GT(visits, 0);
  EXPECT_GT(pages, 0);
  ASSERT_FALSE(t.Messages().empty());
  const std::string& summary = t.ui.messages.back().text;
  EXPECT_EQ(summary, d.Summary());
  EXPECT_NE(summary.find("Scanned 67 lines in 2 Seconds\r\n33 lines per second."),
            std::string::npos);
  EXPECT_NE(summary.find("\r\n" + std::to_string(visits) + " visit records added."),
            std::string::npos);
  EXPECT_NE(summary.find("\r\n" + std::to_string(pages - visits) + " page view records added."),
            std::string::npos);
  EXPECT_EQ(testing::TableDefects(t.Data()), std::vector<std::string>{});
}

TEST(ScanDriver, ProgressBarMaxFollowsTheFileSizeAndAZeroByteFileKeepsIt) {
  ScanWorld t;
  t.AddSite("Alpha", "a");
  t.Write("a/a.log", std::string(25000, '#') + "\r\n");  // 25,002 bytes: Max 2.5002
  t.Write("a/b.log", "");
  t.Write("a/c.log", std::string(4998, '#') + "\r\n");  // 5,000 bytes: Max 5,000
  std::vector<std::pair<std::string, double>> maxAtFile;
  double minAtLastFile = 0;
  t.ui.onYield = [&](int) {
    const std::string& c = t.ui.captions[Label::Prog];
    if (t.ui.grid.SelectedRow() > 0 && c != kWritingIndexes) {
      maxAtFile.emplace_back(c.substr(c.size() - 5), t.ui.progress.Max());
      minAtLastFile = t.ui.progress.Min();
    }
    return true;
  };
  ScanDriver d(t.w(), t.ui, t.timer);
  ASSERT_EQ(d.ScanAllSites(), ScanOutcome::Completed);
  ASSERT_EQ(maxAtFile.size(), 3u);
  EXPECT_EQ(maxAtFile[0].first, "a.log");
  EXPECT_FLOAT_EQ(maxAtFile[0].second, 2.5002f);
  EXPECT_EQ(maxAtFile[1].first, "b.log");
  EXPECT_FLOAT_EQ(maxAtFile[1].second, 2.5002f);  // the zero-byte file leaves Max alone
  EXPECT_EQ(maxAtFile[2].second, 5000);
  EXPECT_EQ(minAtLastFile, 1);
}

TEST(ScanDriver, ProgressScaleIsChosenByTheBarsMaxNotByTheFile) {
  ScanWorld t;
  ScanDriver d(t.w(), t.ui, t.timer);
  platform::ProgressBar& bar = t.ui.progress;
  bar.SetMax(5000);
  bar.SetMin(1);
  d.UpdateFileProgress(15000);  // units of 10,000 bytes, half to even
  EXPECT_EQ(bar.Value(), 2);
  d.UpdateFileProgress(25000);
  EXPECT_EQ(bar.Value(), 2);
  d.UpdateFileProgress(35000);
  EXPECT_EQ(bar.Value(), 4);
  bar.SetMax(20000);  // a file of 200,000,000 bytes: shown in bytes, and soon past Max
  d.UpdateFileProgress(15000);
  EXPECT_EQ(bar.Value(), 15000);
  d.UpdateFileProgress(30000);  // refused by the bar, and ignored
  EXPECT_EQ(bar.Value(), 15000);
}

TEST(ScanDriver, DatabaseThatCannotBeCreatedShowsTheFailureAndStops) {
  ScanWorld t;
  t.w().app.appTitle = "Acme Stats";
  t.AddSite("Alpha", "a");
  t.Write("a/ex01.log", W3cLog(10));
  // The data folder's name is taken by a file: no table can be created, whoever runs the test.
  t.Write("blocked", "x");
  t.w().app.dataFolder = t.dir.str() + "blocked/";
  ScanDriver d(t.w(), t.ui, t.timer);
  EXPECT_EQ(d.ScanAllSites(), ScanOutcome::DatabaseFailed);
  ASSERT_EQ(t.ui.messages.size(), 1u);
  // The message names the cause and the folder, rather than a running copy of the product.
  EXPECT_EQ(t.ui.messages[0].text,
            "Failed to create database: " + t.dir.str() +
                "blocked/ is not a folder. The database in " + t.dir.str() +
                "blocked/ is kept as it was. Set the data folder (DDFPath) to a folder this user "
                "can write, and try again.");
  EXPECT_EQ(t.ui.messages[0].icon, platform::MsgIcon::Critical);
  EXPECT_EQ(t.ui.messages[0].title, "Acme Stats");
  EXPECT_TRUE(t.ui.CaptionsOf(Label::Site).empty());
  EXPECT_EQ(d.TotalLines(), 0);
  EXPECT_EQ(t.ui.captions[Label::Note], "Initializing....");

  // A data folder without write permission fails the same way (root writes anyway: skipped).
  if (geteuid() != 0) {
    ScanWorld u;
    u.AddSite("Alpha", "a");
    ASSERT_EQ(chmod(u.Data().c_str(), 0555), 0);
    ScanDriver e(u.w(), u.ui, u.timer);
    EXPECT_EQ(e.ScanAllSites(), ScanOutcome::DatabaseFailed);
    ASSERT_EQ(u.Messages().size(), 1u);
    EXPECT_EQ(u.ui.messages.at(0).text.rfind("Failed to create database: the data folder " +
                                                 u.Data() + " is read-only for this user",
                                             0),
              0u)
        << u.ui.messages.at(0).text;
  }
}

TEST(ScanDriver, ArchiveWithoutMatchingLogsSaysNoLogFilesAndRemovesWhatItUnpacked) {
  ScanWorld t;
  startup::Site& s = t.AddSite("Alpha", "a");
  ASSERT_TRUE(loginput::testing::WriteZip(t.dir.path() / "a" / "ARCHIVE.ZIP",
                                          {{"notes.txt", "hello"}, {"ex01.dat", W3cLog(5)}}));
  t.AddSite("Beta", "b");
  t.Write("b/ex01.log", W3cLog(5));
  ScanDriver d(t.w(), t.ui, t.timer);
  ASSERT_EQ(d.ScanAllSites(), ScanOutcome::Completed);
  ASSERT_EQ(t.Messages().size(), 2u);
  EXPECT_EQ(t.ui.messages.at(0).text, "No log files were found for site: Alpha in " + s.folder);
  EXPECT_EQ(t.ui.messages[0].icon, platform::MsgIcon::Exclamation);
  EXPECT_EQ(t.ui.messages[0].title, "Tallyo");
  // The unpacked copies are gone again, the archive stays, and the next site was read.
  EXPECT_FALSE(std::filesystem::exists(t.dir.path() / "a" / "notes.txt"));
  EXPECT_FALSE(std::filesystem::exists(t.dir.path() / "a" / "ex01.dat"));
  EXPECT_TRUE(std::filesystem::exists(t.dir.path() / "a" / "ARCHIVE.ZIP"));
  EXPECT_EQ(d.TotalLines(), 9);
}

TEST(ScanDriver, ConfirmedCancelKeepsThePreviousDatabaseAndEndsTheRun) {
  ScanWorld t;
  t.AddSite("Alpha", "a");
  t.AddSite("Beta", "b");
  t.Write("a/ex01.log", W3cLog(1200, 50));
  t.Write("b/ex01.log", W3cLog(10));
  Wizard wizard(t.w(), t.ui, t.timer);
  ASSERT_EQ(wizard.Load(), LoadResult::Ready);
  wizard.SetDns(false);
  // The user presses Cancel at the first yield inside the file (after 500 lines) and says Yes.
  t.ui.answer = platform::MsgResult::Yes;
  t.ui.onYield = [&](int) { return !(wizard.Driver().TotalLines() >= 500 && wizard.Cancel()); };
  EXPECT_EQ(wizard.Start(platform::IniRegistry::FromText("")), StartResult::Cancelled);
  ScanDriver& d = wizard.Driver();
  EXPECT_FALSE(d.Database().DatabaseOpen());
  EXPECT_EQ(d.TotalLines(), 500);
  EXPECT_EQ(t.Messages(),
            (std::vector<std::string>{std::string(kAreYouSure), std::string(kCancelQuestion)}));
  EXPECT_EQ(t.ui.CaptionsOf(Label::Site), std::vector<std::string>{"Scanning Site: Alpha"});
  // Nothing of the cancelled run reached the data folder: there was no database, there is none.
  EXPECT_EQ(testing::RecordCount(t.Data(), "Visits"), -1);
  EXPECT_FALSE(d.Database().DatabaseReplaced());
  wizard.Unload();  // a second close is harmless
  EXPECT_FALSE(d.Database().DatabaseOpen());
}

// The close is the run's last phase, shown as a phase of its own: the file caption says
// "Writing indexes", the bar runs from 0 to 100 and ends full, and the window gets its yields
// while the tables close. Then the run completes as before.
TEST(ScanDriver, ClosingTheTablesIsAPhaseOfItsOwnWhoseBarEndsFull) {
  ScanWorld t;
  t.AddSite("Alpha", "a");
  t.Write("a/ex01.log", W3cLog(3000, 120));
  // The window, noting where the progress values of the phase begin.
  struct Window : tytest::FakeFrontend {
    size_t phaseStart = SIZE_MAX;
    void SetCaption(Label label, std::string_view text) override {
      FakeFrontend::SetCaption(label, text);
      if (label == Label::Prog && text == kWritingIndexes) phaseStart = progressValues.size();
    }
  } ui;
  struct Frame {
    std::string file;
    double value, min, max;
  };
  std::vector<Frame> frames;
  ui.onYield = [&](int) {
    frames.push_back({ui.captions[Label::Prog], ui.progress.Value(), ui.progress.Min(),
                      ui.progress.Max()});
    return true;
  };
  ScanDriver d(t.w(), ui, t.timer);
  ASSERT_EQ(d.ScanAllSites(), ScanOutcome::Completed);

  const std::vector<std::string> files = ui.CaptionsOf(Label::Prog);
  ASSERT_GE(files.size(), 2u);
  EXPECT_EQ(files[files.size() - 2], t.dir.str() + "a/ex01.log");
  EXPECT_EQ(files.back(), kWritingIndexes);
  // The phase got yields, the last with the bar full.
  std::vector<Frame> closing;
  for (const Frame& f : frames)
    if (f.file == kWritingIndexes) closing.push_back(f);
  ASSERT_FALSE(closing.empty());
  for (const Frame& f : closing) {
    EXPECT_EQ(f.min, 0);
    EXPECT_EQ(f.max, 100);
  }
  EXPECT_EQ(closing.back().value, 100);
  // Every value the phase showed: from 0, rising, to 100.
  ASSERT_LT(ui.phaseStart, ui.progressValues.size());
  const std::vector<double> shown(ui.progressValues.begin() + long(ui.phaseStart),
                                  ui.progressValues.end());
  ASSERT_GE(shown.size(), 2u);
  EXPECT_EQ(shown.front(), 0);
  EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
  EXPECT_EQ(shown.back(), 100);
  // Then the run ends as it always did.
  EXPECT_EQ(ui.captions[Label::Note], "Scan Completed.");
  EXPECT_FALSE(ui.progress.Visible());
  EXPECT_GT(testing::RecordCount(t.Data(), "Visits"), 0);
  EXPECT_EQ(testing::TableDefects(t.Data()), std::vector<std::string>{});
}

// A Cancel confirmed while the tables close is a cancel like any other: the tables are closed
// whole and thrown away, the previous database stays byte for byte, and no summary is shown.
TEST(ScanDriver, CancelWhileTheTablesCloseKeepsThePreviousDatabase) {
  ScanWorld t;
  t.AddSite("Alpha", "a");
  t.Write("a/ex01.log", W3cLog(50));
  {
    ScanDriver first(t.w(), t.ui, t.timer);
    ASSERT_EQ(first.ScanAllSites(), ScanOutcome::Completed);
  }
  std::map<std::string, std::string> previous;
  for (const auto& e : std::filesystem::directory_iterator(t.Data()))
    if (e.is_regular_file() && e.path().filename() != "errors.log")
      previous[e.path().filename().string()] = tytest::ReadFile(e.path());
  t.Write("a/ex01.log", W3cLog(2000, 80));
  t.ui.messages.clear();
  t.ui.captions.clear();
  t.ui.onYield = [&](int) { return t.ui.captions[Label::Prog] != kWritingIndexes; };
  ScanDriver d(t.w(), t.ui, t.timer);
  EXPECT_EQ(d.ScanAllSites(), ScanOutcome::Cancelled);
  EXPECT_EQ(d.TotalLines(), 4 + 2000);  // every line was read
  EXPECT_FALSE(d.Database().DatabaseOpen());
  EXPECT_FALSE(d.Database().DatabaseReplaced());
  EXPECT_EQ(d.Summary(), "");
  EXPECT_EQ(t.Messages(), std::vector<std::string>{});
  std::map<std::string, std::string> after;
  for (const auto& e : std::filesystem::directory_iterator(t.Data()))
    if (e.is_regular_file() && e.path().filename() != "errors.log")
      after[e.path().filename().string()] = tytest::ReadFile(e.path());
  EXPECT_EQ(after, previous);
  EXPECT_TRUE(std::filesystem::is_empty(t.dir.path() / "Data" / "Temp"));
}

TEST(ScanDriver, CancelAnsweredNoLetsTheScanGoOnAndEarlyCancelAsksNothing) {
  {
    ScanWorld t;
    t.AddSite("Alpha", "a");
    t.Write("a/ex01.log", W3cLog(1200, 50));
    Wizard wizard(t.w(), t.ui, t.timer);
    ASSERT_EQ(wizard.Load(), LoadResult::Ready);
    bool asked = false;
    t.ui.onYield = [&](int) {
      if (wizard.Driver().TotalLines() < 500 || asked) return true;
      asked = true;
      t.ui.answer = platform::MsgResult::No;
      bool cancel = wizard.Cancel();
      t.ui.answer = platform::MsgResult::Yes;
      return !cancel;
    };
    t.ui.answer = platform::MsgResult::Yes;
    EXPECT_EQ(wizard.Start(platform::IniRegistry::FromText("")), StartResult::Completed);
    EXPECT_EQ(wizard.Driver().TotalLines(), 1204);
    EXPECT_EQ(t.Messages().size(), 3u);  // sure?, cancel?, summary
  }
  {
    // Before the first file is opened a Cancel needs no confirmation, and nothing is created.
    ScanWorld t;
    t.AddSite("Alpha", "a");
    t.Write("a/ex01.log", W3cLog(10));
    Wizard wizard(t.w(), t.ui, t.timer);
    ASSERT_EQ(wizard.Load(), LoadResult::Ready);
    t.ui.answer = platform::MsgResult::Yes;
    t.ui.onYield = [&](int) { return !wizard.Cancel(); };
    EXPECT_EQ(wizard.Start(platform::IniRegistry::FromText("")), StartResult::Cancelled);
    EXPECT_EQ(t.Messages(), std::vector<std::string>{std::string(kAreYouSure)});
    EXPECT_EQ(testing::RecordCount(t.Data(), "Visits"), -1);
  }
}

TEST(ScanDriver, CancelDuringUnpackingAbortsItAndRemovesWhatWasUnpacked) {
  ScanWorld t;
  t.AddSite("Alpha", "a");
  std::vector<loginput::testing::Member> members;
  for (int i = 0; i < 20; ++i)
    members.push_back({"ex" + std::to_string(10 + i) + ".log", W3cLog(50)});
  ASSERT_TRUE(loginput::testing::WriteZip(t.dir.path() / "a" / "ARCHIVE.ZIP", members));
  Wizard wizard(t.w(), t.ui, t.timer);
  ASSERT_EQ(wizard.Load(), LoadResult::Ready);
  t.ui.answer = platform::MsgResult::Yes;
  t.ui.onYield = [&](int) {
    return !(wizard.Driver().Input().unzipping && wizard.Driver().Input().extractedCount >= 3 &&
             wizard.Cancel());
  };
  EXPECT_EQ(wizard.Start(platform::IniRegistry::FromText("")), StartResult::Cancelled);
  EXPECT_FALSE(wizard.Driver().Database().DatabaseOpen());
  EXPECT_EQ(wizard.Driver().TotalLines(), 0);
  // Only the archive is left in the folder.
  std::vector<std::string> left;
  for (const auto& e : std::filesystem::directory_iterator(t.dir.path() / "a"))
    left.push_back(e.path().filename().string());
  EXPECT_EQ(left, std::vector<std::string>{"ARCHIVE.ZIP"});
  // No question: nothing had been opened for scanning yet.
  EXPECT_EQ(t.Messages(), std::vector<std::string>{std::string(kAreYouSure)});
}

TEST(SiteAlerts, ActiveVisitorThresholdsAndQuietTimesAsTheProductKeepsThem) {
  ScanWorld t;
  t.AddSite("Alpha", "a");
  database::Database f(database::InputsOf(t.w()));
  analysis::AnalysisCounters run(1);
  f.SetHooks(run);
  ASSERT_TRUE(f.InitDatabase());
  analysis::SiteRunState& s = run.Site(1);
  const vb::Date now = t.clock.Now();

  // 150 open visits against the built-in 100 and 200: 110 after every file, never 120.
  s.visitorTotal = 150;
  s.quietSince = s.secondLevelQuietSince = now - 1.0;
  CheckSiteAlerts(t.w(), f, s, 1);
  CheckSiteAlerts(t.w(), f, s, 1);
  EXPECT_EQ(run.totals.exceptions, 2);
  EXPECT_EQ(f.LastExceptionText(), "More than 150 active visitors");  // the total is the value
  EXPECT_EQ(s.quietSince, now);  // open visits: quiet since now
  EXPECT_EQ(s.secondLevelQuietSince, now);

  // No open visit for 61 minutes: 122 (60) fires and resets the shared quiet time, so 123 (120),
  // which counts from that same time, stays quiet even after 121 minutes.
  s.visitorTotal = 0;
  s.quietSince = vb::DateAddMinutes(now, -121);
  s.secondLevelQuietSince = vb::DateAddMinutes(now, -500);
  CheckSiteAlerts(t.w(), f, s, 1);
  EXPECT_EQ(run.totals.exceptions, 3);
  EXPECT_EQ(f.LastExceptionText(), "No visitors for 60 minutes");
  EXPECT_EQ(s.quietSince, now);
  EXPECT_EQ(s.secondLevelQuietSince, vb::DateAddMinutes(now, -500));

  // A threshold that is not a number ends the pass at that entry.
  for (int i = 1; i <= t.w().exceptions.count; ++i)
    if (t.w().exceptions.types[static_cast<size_t>(i)].number == 110)
      t.w().exceptions.types[static_cast<size_t>(i)].value = std::string("many");
  s.visitorTotal = 500;
  CheckSiteAlerts(t.w(), f, s, 1);
  EXPECT_EQ(run.totals.exceptions, 3);
  f.CloseDatabase();
}

}  // namespace
}  // namespace wizard
