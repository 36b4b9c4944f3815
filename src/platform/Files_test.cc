// Case-insensitive file lookup, wildcard masks and directory listings.
#include "platform/Files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include "TestSupport.h"

namespace platform {
namespace {

TEST(Files, FindFileCIPrefersExactNameThenAnyCase) {
  tytest::TempDir dir;
  tytest::WriteFile(dir.path() / "settings.ini", "a");
  tytest::WriteFile(dir.path() / "Extypes.INI", "b");
  tytest::WriteFile(dir.path() / "EXTYPES.INI", "c");

  auto s = FindFileCI(dir.str(), "SETTINGS.INI");
  ASSERT_TRUE(s.has_value());
  EXPECT_EQ(s->filename(), "settings.ini");

  auto e = FindFileCI(dir.str(), "EXTYPES.INI");
  ASSERT_TRUE(e.has_value());
  EXPECT_EQ(e->filename(), "EXTYPES.INI");  // exact match wins over the other spelling

  EXPECT_FALSE(FindFileCI(dir.str(), "missing.ini").has_value());
  EXPECT_FALSE(FindFileCI(dir.str() + "nope/", "settings.ini").has_value());
  // The folder given without a trailing "/" works too.
  EXPECT_TRUE(FileExistsCI(dir.path().string(), "Settings.Ini"));
}

TEST(Files, FoldersAreNotFiles) {
  tytest::TempDir dir;
  std::filesystem::create_directory(dir.path() / "SETTINGS.INI");
  std::filesystem::create_directory(dir.path() / "logs.log");
  EXPECT_FALSE(FileExistsCI(dir.str(), "SETTINGS.INI"));
  EXPECT_TRUE(ListFiles(dir.str(), "*.LOG").empty());
  // ResolveCI of a missing file gives the name as written, for creating it.
  EXPECT_EQ(ResolveCI(dir.str(), "errors.log"), dir.path() / "errors.log");
}

TEST(Files, MasksMatchLikeTheOriginalListings) {
  EXPECT_TRUE(MatchesMask("ex021104.log", "*.LOG"));
  EXPECT_TRUE(MatchesMask("EX021104.LOG", "ex??????.log"));
  EXPECT_FALSE(MatchesMask("ex0211.log", "ex??????.log"));
  EXPECT_TRUE(MatchesMask("access_log", "access_log*"));
  EXPECT_TRUE(MatchesMask("access_log.1", "access_log*"));
  EXPECT_FALSE(MatchesMask("access_log.1.gz", "*.LOG"));
  EXPECT_TRUE(MatchesMask("README", "*.*"));
  EXPECT_TRUE(MatchesMask("a.b.c", "*.*"));
  EXPECT_TRUE(MatchesMask("anything", "*"));
  EXPECT_FALSE(MatchesMask("", "?"));
  // Many stars against a long name must stay fast (no exponential back-tracking).
  EXPECT_FALSE(MatchesMask(std::string(5000, 'a'), "*a*a*a*a*a*a*a*a*b"));
}

TEST(Files, ListFilesSortsByNameIgnoringCaseWithSizesAndLocalTimes) {
  tytest::TempDir dir;
  tytest::WriteFile(dir.path() / "b.log", "12345");
  tytest::WriteFile(dir.path() / "A.LOG", "");
  tytest::WriteFile(dir.path() / "c.Log", "x");
  tytest::WriteFile(dir.path() / "notes.txt", "x");
  // A known modification time: 2024-03-05 06:07:08 local.
  std::tm tm{};
  tm.tm_year = 124;
  tm.tm_mon = 2;
  tm.tm_mday = 5;
  tm.tm_hour = 6;
  tm.tm_min = 7;
  tm.tm_sec = 8;
  tm.tm_isdst = -1;
  const std::time_t t = std::mktime(&tm);
  utimbuf times{t, t};
  ASSERT_EQ(::utime((dir.path() / "b.log").c_str(), &times), 0);

  const auto list = ListFiles(dir.str(), "*.log");
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0].name, "A.LOG");
  EXPECT_EQ(list[1].name, "b.log");
  EXPECT_EQ(list[2].name, "c.Log");
  EXPECT_EQ(list[1].size, 5u);
  const vb::DateParts p = vb::Split(list[1].modified);
  EXPECT_EQ(p.year, 2024);
  EXPECT_EQ(p.month, 3);
  EXPECT_EQ(p.day, 5);
  EXPECT_EQ(p.hour, 6);
  EXPECT_EQ(p.minute, 7);
  EXPECT_EQ(p.second, 8);

  EXPECT_TRUE(ListFiles(dir.str() + "missing/", "*.log").empty());
}

}  // namespace
}  // namespace platform
