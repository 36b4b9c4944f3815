// The robot list file "robots.dat": saved only when changed, whole, and loaded back the same.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "TestSupport.h"
#include "startup/RobotList.h"

namespace startup {
namespace {

TEST(RobotsFile, AnUnchangedListIsNotRewrittenAndAChangedOneIsWrittenWhole) {
  tytest::TempDir dir;
  const auto file = dir.path() / "robots.dat";
  tytest::WriteFile(file, "1.2.3.4 Old Bot\r\n");
  const auto past = std::filesystem::file_time_type::clock::now() - std::chrono::hours(48);
  std::filesystem::last_write_time(file, past);

  RobotList list;
  list.Append("5.6.7.8", "Other Bot");
  list.changed = false;  // as loaded
  EXPECT_TRUE(SaveRobotList(list, dir.str()));
  EXPECT_EQ(tytest::ReadFile(file), "1.2.3.4 Old Bot\r\n");
  EXPECT_EQ(std::filesystem::last_write_time(file), past);

  list.Append("9.9.9.9", "New Bot/1.0 (+http://x)");
  EXPECT_TRUE(SaveRobotList(list, dir.str()));
  EXPECT_FALSE(list.changed);
  EXPECT_EQ(tytest::ReadFile(file), "5.6.7.8 Other Bot\r\n9.9.9.9 New Bot/1.0 (+http://x)\r\n");
  // What was saved loads back as the same list.
  RobotList back;
  LoadRobotList(back, dir.str());
  ASSERT_EQ(back.count, 2);
  EXPECT_EQ(back.entries[2].agent, "New Bot/1.0 (+http://x)");
}

TEST(RobotsFile, AListSpelledInUpperCaseIsReplacedAndAnUnwritableFolderKeepsTheOldFile) {
  tytest::TempDir dir;
  tytest::WriteFile(dir.path() / "ROBOTS.DAT", "1.2.3.4 Old\r\n");
  RobotList list;
  list.Append("5.6.7.8", "Bot");
  EXPECT_TRUE(SaveRobotList(list, dir.str()));
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "ROBOTS.DAT"));
  EXPECT_EQ(tytest::ReadFile(dir.path() / "robots.dat"), "5.6.7.8 Bot\r\n");

  list.Append("6.6.6.6", "Bot2");
  EXPECT_FALSE(SaveRobotList(list, (dir.path() / "missing" / "folder").string() + "/"));
  EXPECT_TRUE(list.changed);  // still to be saved
  EXPECT_EQ(tytest::ReadFile(dir.path() / "robots.dat"), "5.6.7.8 Bot\r\n");
}

}  // namespace
}  // namespace startup
