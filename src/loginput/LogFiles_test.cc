// The log folder listing: size texts, order, grid rows, and folders or files that cannot be read.
#include "loginput/LogFiles.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "loginput/LogInputTesting.h"

namespace loginput {
namespace {

using testing::InputWorld;

TEST(LogFiles, SizeTextBandsAreDecimalAndKeepTheirEdges) {
  EXPECT_EQ(SizeText(-1), "Unknown");
  EXPECT_EQ(SizeText(0), " 0Bytes");
  EXPECT_EQ(SizeText(10000), " 10000Bytes");
  EXPECT_EQ(SizeText(10001), "10K");
  EXPECT_EQ(SizeText(10500), "11K");  // rounds half away from zero
  EXPECT_EQ(SizeText(1000000), "1000K");
  EXPECT_EQ(SizeText(1000001), "1.00Mb");
  EXPECT_EQ(SizeText(2345678), "2.35Mb");
  EXPECT_EQ(SizeText(2147483647), "2147.48Mb");
}

TEST(LogFiles, ListsMatchingFilesInCaseInsensitiveNameOrderIntoTheGrid) {
  InputWorld t;
  tytest::WriteFile(t.dir.path() / "logs/b.log", std::string(10001, 'x'));
  tytest::WriteFile(t.dir.path() / "logs/A.LOG", "abc");
  tytest::WriteFile(t.dir.path() / "logs/C.Log", std::string(1000001, 'x'));
  tytest::WriteFile(t.dir.path() / "logs/notes.txt", "not a log");
  std::filesystem::create_directories(t.dir.path() / "logs/folder.log");
  t.ui.grid.SetRowCount(9);  // rows of an earlier site go

  EXPECT_EQ(ListLogFiles(t.w(), t.ui, t.run, 1), 3);
  EXPECT_EQ(t.run.fileCount, 3);
  ASSERT_EQ(t.run.logFiles.size(), 4u);
  EXPECT_EQ(t.run.logFiles[1].name, "A.LOG");
  EXPECT_EQ(t.run.logFiles[2].name, "b.log");
  EXPECT_EQ(t.run.logFiles[3].name, "C.Log");
  EXPECT_EQ(t.run.logFiles[1].size, 3);
  EXPECT_GT(t.run.logFiles[1].modified, vb::DateSerial(2000, 1, 1));

  const platform::Grid& g = t.ui.grid;
  ASSERT_EQ(g.RowCount(), 4);
  EXPECT_EQ(g.Row(1).cells[0], " 1");
  EXPECT_EQ(g.Row(1).cells[2], " 3Bytes");
  EXPECT_EQ(g.Row(1).cells[3], "A.LOG");
  EXPECT_EQ(g.Row(2).cells[2], "10K");
  EXPECT_EQ(g.Row(3).cells[0], " 3");
  EXPECT_EQ(g.Row(3).cells[2], "1.00Mb");
  EXPECT_EQ(g.Row(3).rowData, 3);
  EXPECT_EQ(g.Row(2).cells[1], GeneralDateText(t.run.logFiles[2].modified));
  EXPECT_EQ(t.ui.CaptionsOf(platform::Label::Prog),
            (std::vector<std::string>{"Scanning Log File Directory", ""}));

  // The next site's listing starts from nothing.
  t.site().mask = "*.none";
  EXPECT_EQ(ListLogFiles(t.w(), t.ui, t.run, 1), 0);
  EXPECT_EQ(t.run.logFiles.size(), 1u);
  EXPECT_EQ(t.ui.grid.RowCount(), 1);
}

TEST(LogFiles, GeneralDateTextShowsOnlyThePartsThatAreSet) {
  EXPECT_EQ(GeneralDateText(vb::DateSerial(2002, 5, 24) + vb::TimeSerial(20, 18, 1)),
            "24/05/2002 20:18:01");
  EXPECT_EQ(GeneralDateText(vb::DateSerial(2002, 5, 24)), "24/05/2002");
  EXPECT_EQ(GeneralDateText(vb::TimeSerial(1, 2, 3)), "01:02:03");
}

TEST(LogFiles, MissingOrUnreadableFoldersAndFilesDoNotStopTheListing) {
  InputWorld t;
  t.site().folder = t.dir.str() + "no-such-folder/";
  EXPECT_EQ(ListLogFiles(t.w(), t.ui, t.run, 1), 0);
  EXPECT_EQ(ListLogFiles(t.w(), t.ui, t.run, 7), 0);  // no such site

  if (::geteuid() == 0) GTEST_SKIP() << "permissions do not bind the superuser";
  t.site().folder = t.Folder();
  tytest::WriteFile(t.dir.path() / "logs/locked.log", "secret");
  tytest::WriteFile(t.dir.path() / "logs/open.log", "fine");
  std::filesystem::permissions(t.dir.path() / "logs/locked.log", std::filesystem::perms::none);
  ASSERT_EQ(ListLogFiles(t.w(), t.ui, t.run, 1), 2);
  EXPECT_EQ(t.run.logFiles[1].size, -1);
  EXPECT_EQ(t.ui.grid.Row(1).cells[2], "Unknown");
  EXPECT_EQ(t.run.logFiles[2].size, 4);

  std::filesystem::permissions(t.dir.path() / "logs", std::filesystem::perms::none);
  EXPECT_EQ(ListLogFiles(t.w(), t.ui, t.run, 1), 0);
  std::filesystem::permissions(t.dir.path() / "logs", std::filesystem::perms::owner_all);
}

}  // namespace
}  // namespace loginput
