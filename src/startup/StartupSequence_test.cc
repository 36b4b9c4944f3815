// Start-up as a whole: folders, registry values, the second-copy test, the order of defaults and
// loaders, and the error log.
#include "startup/StartupSequence.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "startup/StartupTesting.h"
#include "vb/Failure.h"

namespace startup {
namespace {

using testing::TestNow;

struct StartupRun {
  tytest::TempDir app;
  tytest::TempDir lock;
  platform::FixedClock clock{TestNow(), -300};
  platform::IniRegistry registry = platform::IniRegistry::FromText("");

  MainResult Start(const std::string& commandLine) {
    MainArgs args{commandLine, "/nonexistent/exe/", registry, clock, lock.path().string(), "2.3.4"};
    return Main(args);
  }
};

TEST(StartupSequence, CommandLineFolderAndDefaultDataFolderAreSetUpAndLoaded) {
  StartupRun r;
  tytest::WriteFile(r.app.path() / "TALLYO.INI", "[Main Site]\r\nTYPE=2\r\n\r\n");
  tytest::WriteFile(r.app.path() / "SETTINGS.INI", "INACTIVITYMINS=20\r\n\r\n");
  tytest::WriteFile(r.app.path() / "Data" / "Countries.txt", "AU,Australia\r\n");
  tytest::WriteFile(r.app.path() / "Data" / "robots.dat",
                    "66.249.66.1 Googlebot/2.1 (+http://www.google.com/bot.html)\r\nnoblank\r\n"
                    "10.0.0.9 Crawler\r\n");
  MainResult res = r.Start("  " + r.app.path().string() + "  ");
  ASSERT_EQ(res.status, MainStatus::Ok);
  const World& w = *res.world;
  EXPECT_EQ(w.app.appFolder, r.app.str());
  EXPECT_EQ(w.app.dataFolder, r.app.str() + "Data/");
  EXPECT_TRUE(std::filesystem::is_directory(r.app.path() / "Data" / "Temp"));
  EXPECT_EQ(w.app.programVersion, "2.3.4");
  EXPECT_EQ(w.app.registryAppName, "tallyo");
  EXPECT_EQ(w.app.appTitle, "Tallyo");
  EXPECT_DOUBLE_EQ(w.app.startDate, vb::DateSerial(2026, 11, 16));
  EXPECT_EQ(w.app.timeZoneOffset, -300);
  EXPECT_EQ(w.siteCount, 1);
  EXPECT_EQ(w.settings.inactivityMins, 20);
  EXPECT_EQ(w.tables.countryCount, 1);
  ASSERT_EQ(w.robots.count, 2);
  EXPECT_EQ(w.robots.entries[1].address, "66.249.66.1");
  EXPECT_EQ(w.robots.entries[1].agent, "Googlebot/2.1 (+http://www.google.com/bot.html)");
  EXPECT_EQ(w.robots.entries[2].agent, "Crawler");
  EXPECT_FALSE(w.robots.changed);
  EXPECT_FALSE(std::filesystem::exists(r.app.path() / "Data" / "errors.log"));
}

TEST(StartupSequence, RegistryNamesTheDataFolderAndBrandingRenamesTheKeysAndSitesFile) {
  StartupRun r;
  tytest::TempDir data;
  const std::string dataNoSlash = data.path().string() + "/store";
  r.registry = platform::IniRegistry::FromText(
      "[Software\\Fenwright\\Branding]\nAppTitle=Acme\nAppDomain=stats.acme.example\n"
      "[Software\\Fenwright\\Acme \\Settings]\nDDFPath= " + dataNoSlash + "\n"
      "[Software\\Fenwright\\Tallyo \\Settings]\nDDFPath=/wrong/\n");
  tytest::WriteFile(r.app.path() / "ACME.INI", "[Acme Site]\r\n\r\n");
  tytest::WriteFile(r.app.path() / "TALLYO.INI", "[Wrong]\r\n\r\n");
  MainResult res = r.Start(r.app.str());
  ASSERT_EQ(res.status, MainStatus::Ok);
  const World& w = *res.world;
  EXPECT_EQ(w.app.appTitle, "Acme");
  EXPECT_EQ(w.app.appDomain, "stats.acme.example");
  EXPECT_EQ(w.app.dataFolder, dataNoSlash + "/");
  EXPECT_TRUE(std::filesystem::is_directory(dataNoSlash + "/Temp"));
  ASSERT_EQ(w.siteCount, 1);
  EXPECT_EQ(w.sites[1].name, "Acme Site");
  EXPECT_EQ(w.settings.emailSubject, "Message From Tallyo");  // the product word stays

  // "0" from the registry counts as no value.
  EXPECT_EQ(GetSettingsValue(platform::IniRegistry::FromText(
                                 "[Software\\Fenwright\\X \\Settings]\nServiceRunning=0\n"),
                             "X", "Settings", "ServiceRunning", "default"),
            "default");
}

TEST(StartupSequence, ASecondCopyEndsAtOnceWithNothingLoaded) {
  StartupRun r;
  MainResult first = r.Start(r.app.str());
  ASSERT_EQ(first.status, MainStatus::Ok);
  MainResult second = r.Start(r.app.str());
  EXPECT_EQ(second.status, MainStatus::AnotherCopyRunning);
  EXPECT_EQ(second.world, nullptr);
  first.instance.reset();
  first.dataFolderLock.reset();
  EXPECT_EQ(r.Start(r.app.str()).status, MainStatus::Ok);
}

TEST(StartupSequence, ARunOnABusyDataFolderEndsAndNamesTheFolder) {
  // Another run holds the data folder; its machine-wide lock is in another temp folder.
  StartupRun r;
  std::filesystem::create_directory(r.app.path() / "Data");
  auto other = platform::FolderLock::Acquire(r.app.str() + "Data/");
  ASSERT_TRUE(other && other->Holds());
  MainResult busy = r.Start(r.app.str());
  EXPECT_EQ(busy.status, MainStatus::DataFolderBusy);
  EXPECT_EQ(busy.failure, r.app.str() + "Data/");
  // Nothing was made in the busy folder.
  EXPECT_FALSE(std::filesystem::exists(r.app.path() / "Data" / "Temp"));
  busy.instance.reset();
  other.reset();
  MainResult ok = r.Start(r.app.str());
  EXPECT_EQ(ok.status, MainStatus::Ok);
  ASSERT_NE(ok.dataFolderLock, nullptr);
  EXPECT_TRUE(ok.dataFolderLock->Holds());
}

TEST(StartupSequence, EmptyCommandLineUsesTheExecutableFolder) {
  StartupRun r;
  MainArgs args{"   ", r.app.path().string(), r.registry, r.clock, r.lock.path().string()};
  MainResult res = Main(args);
  ASSERT_EQ(res.status, MainStatus::Ok);
  EXPECT_EQ(res.world->app.appFolder, r.app.str());
}

TEST(StartupSequence, DataFolderThatCannotBeCreatedIsLeftMissingAndStartupGoesOn) {
  StartupRun r;
  r.registry = platform::IniRegistry::FromText(
      "[Software\\Fenwright\\Tallyo \\Settings]\nDDFPath=" + r.app.str() + "no/such/Data/\n");
  tytest::WriteFile(r.app.path() / "TALLYO.INI", "[A]\r\n\r\n");
  MainResult res = r.Start(r.app.str());
  ASSERT_EQ(res.status, MainStatus::Ok);
  EXPECT_FALSE(std::filesystem::exists(r.app.path() / "no"));
  EXPECT_EQ(res.world->siteCount, 1);
  // Reporting into the missing folder drops the line quietly.
  res.world->errors.SetBeep(false);
  res.world->errors.LogError("Main", "Path not found");
  EXPECT_FALSE(std::filesystem::exists(r.app.path() / "no"));

  // EnsureFolder creates one level only.
  EnsureFolder(r.app.str() + "one/");
  EXPECT_TRUE(std::filesystem::is_directory(r.app.path() / "one"));
  EnsureFolder(r.app.str() + "two/three/");
  EXPECT_FALSE(std::filesystem::exists(r.app.path() / "two"));
}

TEST(ErrorLog, EachFailureAppendsOneLineInOrderWithItsOwnTime) {
  testing::TestWorld t;
  t.w().errors.LogError("F.UpdateHackCount", "Subscript out of range");
  t.clock.Set(TestNow() + vb::TimeSerial(0, 0, 5));
  t.w().errors.LogError("Main", vb::Failure(vb::kOverflow));
  EXPECT_EQ(tytest::ReadFile(t.dir.path() / "Data" / "errors.log"),
            "16/11/2026 02:23:14 Subscript out of range FROM F.UpdateHackCount\r\n"
            "16/11/2026 02:23:19 Overflow FROM Main\r\n");
}

TEST(ErrorLog, AnUnwritableLogDropsTheLine) {
  if (::geteuid() == 0) GTEST_SKIP() << "root writes files whatever their mode";
  testing::TestWorld t;
  tytest::WriteFile(t.dir.path() / "Data" / "errors.log", "old\r\n");
  ::chmod((t.dir.path() / "Data" / "errors.log").c_str(), 0444);
  t.w().errors.LogError("Main", "Overflow");
  ::chmod((t.dir.path() / "Data" / "errors.log").c_str(), 0644);
  EXPECT_EQ(tytest::ReadFile(t.dir.path() / "Data" / "errors.log"), "old\r\n");
}

}  // namespace
}  // namespace startup
