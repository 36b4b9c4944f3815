// The INI-file registry, the single-instance lock and the clock arithmetic.
#include "platform/Registry.h"

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "platform/Clock.h"
#include "platform/SingleInstance.h"
#include "vb/Dates.h"

namespace platform {
namespace {

TEST(Registry, IniKeepsTheBlankInTheKeyPathAndIgnoresCase) {
  const auto reg = IniRegistry::FromText(
      "; machine settings\r\n"
      "[Software\\Fenwright\\Tallyo \\Settings]\r\n"
      "DDFPath = /srv/tallyo/data/ \r\n"
      "ServiceRunning=0\r\n"
      "[Software\\Fenwright\\Branding]\n"
      "AppTitle=Acme Stats\n"
      "broken line\n"
      "AppDomain=\n");
  EXPECT_EQ(reg.ReadString("Software\\Fenwright\\Tallyo \\Settings", "DDFPath"),
            "/srv/tallyo/data/");
  EXPECT_EQ(reg.ReadString("SOFTWARE\\fenwright\\tallyo \\settings", "ddfpath"),
            "/srv/tallyo/data/");
  // Without the blank it is another key.
  EXPECT_EQ(reg.ReadString("Software\\Fenwright\\Tallyo\\Settings", "DDFPath"), "");
  EXPECT_EQ(reg.ReadString(kBrandingKey, "AppTitle"), "Acme Stats");
  EXPECT_EQ(reg.ReadString(kBrandingKey, "AppDomain"), "");
  EXPECT_EQ(reg.ReadString(kBrandingKey, "Missing"), "");
}

TEST(Registry, MissingFileIsAnEmptyRegistryAndTheEnvironmentNamesTheFile) {
  tytest::TempDir dir;
  const auto reg = IniRegistry::FromFile(dir.path() / "none.ini");
  EXPECT_EQ(reg.ReadString("Software\\Fenwright\\Tallyo \\Settings", "DDFPath"), "");
  EXPECT_EQ(IniRegistry::PathFromEnvironment(nullptr), "/etc/tallyo/registry.ini");
  EXPECT_EQ(IniRegistry::PathFromEnvironment(""), "/etc/tallyo/registry.ini");
  EXPECT_EQ(IniRegistry::PathFromEnvironment("/tmp/r.ini"), "/tmp/r.ini");

  tytest::WriteFile(dir.path() / "r.ini", "[K]\nV=1\n");
  const auto opened = OpenSystemRegistry((dir.path() / "r.ini").c_str());
  EXPECT_EQ(opened->ReadString("K", "V"), "1");
}

TEST(SingleInstance, SecondHolderIsRefusedUntilTheFirstIsGone) {
  tytest::TempDir dir;
  auto first = SingleInstance::Acquire("tydbcreate-test", dir.path());
  ASSERT_NE(first, nullptr);
  EXPECT_TRUE(first->Holds());
  EXPECT_EQ(SingleInstance::Acquire("tydbcreate-test", dir.path()), nullptr);
  // Another program name is another lock.
  EXPECT_NE(SingleInstance::Acquire("other-program", dir.path()), nullptr);
  first.reset();
  EXPECT_NE(SingleInstance::Acquire("tydbcreate-test", dir.path()), nullptr);
}

TEST(SingleInstance, UnusableLockFolderLetsTheProgramRun) {
  tytest::TempDir dir;
  auto lock = SingleInstance::Acquire("tydbcreate-test", dir.path() / "no" / "such" / "folder");
  ASSERT_NE(lock, nullptr);
  EXPECT_FALSE(lock->Holds());
}

TEST(Clock, UnixSecondsBecomeDayCountsWithTheZoneOffset) {
  // 2026-11-16 02:23:14 UTC
  const int64_t s = 1794795794;
  vb::DateParts p = vb::Split(FromUnixSeconds(s));
  EXPECT_EQ(p.year, 2026);
  EXPECT_EQ(p.month, 11);
  EXPECT_EQ(p.day, 16);
  EXPECT_EQ(p.hour, 2);
  EXPECT_EQ(p.minute, 23);
  EXPECT_EQ(p.second, 14);
  // Three hours west of UTC is the previous evening.
  p = vb::Split(FromUnixSeconds(s, -180));
  EXPECT_EQ(p.day, 15);
  EXPECT_EQ(p.hour, 23);
  EXPECT_DOUBLE_EQ(FromUnixSeconds(0), vb::DateSerial(1970, 1, 1));

  // The system clock agrees with time() to within a few seconds.
  SystemClock sys;
  const double expected = FromUnixSeconds(std::time(nullptr), sys.TimeZoneOffsetMinutes());
  EXPECT_NEAR(sys.Now(), expected, 5.0 / 86400);
}

}  // namespace
}  // namespace platform
