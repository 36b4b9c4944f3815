// Unpacking ARCHIVE.ZIP into a site's log folder and removing what was unpacked: what is listed,
// what is never written, damaged archives, bounds and Cancel.
#include "loginput/Archive.h"

#include <gtest/gtest.h>

#include <ctime>
#include <fstream>

#include <unistd.h>

#include "loginput/LogFiles.h"
#include "loginput/LogInputTesting.h"

namespace loginput {
namespace {

namespace fs = std::filesystem;
using testing::InputWorld;
using testing::Member;
using testing::WriteZip;

std::vector<std::string> Names(const fs::path& folder) {
  std::vector<std::string> out;
  for (const auto& e : fs::directory_iterator(folder)) out.push_back(e.path().filename().string());
  std::sort(out.begin(), out.end());
  return out;
}

TEST(Archive, UnpackedFilesAreListedByMaskAndRemovedAfterwards) {
  InputWorld t;
  tytest::WriteFile(t.dir.path() / "logs/own.log", "kept");
  ASSERT_TRUE(WriteZip(t.dir.path() / "logs/archive.zip",  // found whatever its case
                       {{"ex1.log", "#Fields: c-ip\r\n1.1.1.1\r\n"},
                        {"readme.txt", "not a log"},
                        {"old/", ""},
                        {"old/ex0.log", "#Fields: c-ip\r\n"}}));
  UnZipArchive(t.w(), t.ui, t.run, 1);

  EXPECT_EQ(t.run.extractedCount, 3);
  ASSERT_EQ(t.run.extracted.size(), 4u);
  EXPECT_EQ(t.run.extracted[1], t.Folder() + "ex1.log");
  EXPECT_EQ(t.run.extracted[3], t.Folder() + "ex0.log");  // a sub-folder member, by file name
  EXPECT_EQ(tytest::ReadFile(t.dir.path() / "logs/ex1.log"), "#Fields: c-ip\r\n1.1.1.1\r\n");
  EXPECT_FALSE(fs::exists(t.dir.path() / "logs/old"));
  EXPECT_FALSE(t.run.unzipping);

  const auto captions = t.ui.CaptionsOf(platform::Label::Prog2);
  ASSERT_EQ(captions.size(), 5u);
  EXPECT_EQ(captions[0], "Moving Files Out Of The Archive:");
  EXPECT_EQ(captions[1], "Moving Files Out Of The Archive: " + t.Folder() + "ex1.log");
  EXPECT_EQ(captions[4], "");
  EXPECT_EQ(t.ui.progress.Max(), 100);
  EXPECT_EQ(t.ui.progressValues.front(), 0);
  EXPECT_EQ(t.ui.progressValues.back(), 100);
  EXPECT_TRUE(t.ui.messages.empty());

  // The text file is unpacked but not listed.
  ASSERT_EQ(ListLogFiles(t.w(), t.ui, t.run, 1), 3);
  EXPECT_EQ(t.run.logFiles[1].name, "ex0.log");
  EXPECT_EQ(t.run.logFiles[2].name, "ex1.log");
  EXPECT_EQ(t.run.logFiles[3].name, "own.log");

  fs::remove(t.dir.path() / "logs/readme.txt");  // gone before the clean-up: skipped
  DeleteArchive(t.w(), t.ui, t.run, 1);
  EXPECT_EQ(t.ui.captions[platform::Label::Prog2], "Removing Tempory Files");
  EXPECT_EQ(Names(t.dir.path() / "logs"), (std::vector<std::string>{"archive.zip", "own.log"}));
  EXPECT_EQ(t.ErrorsLog(), "");
}

TEST(Archive, MembersAimedOutsideTheFolderAreNeverWritten) {
  InputWorld t;
  const fs::path outside = t.dir.path() / "outside";
  fs::create_directories(outside);
  tytest::WriteFile(t.dir.path() / "logs/keep.log", "original");
  fs::create_symlink(outside / "trap.log", t.dir.path() / "logs/trap.log");
  const std::string absolute = (outside / "abs.log").string();
  ASSERT_TRUE(WriteZip(t.dir.path() / "logs/ARCHIVE.ZIP",
                       {{"../evil.log", "x"},
                        {"a/../../evil2.log", "x"},
                        {"..\\evil3.log", "x"},
                        {"../forged\r\nline.log", "x"},
                        {absolute, "x"},
                        {"link.log", (outside / "linked.log").string(), true},
                        {"keep.log", "replaced"},
                        {"KEEP.LOG", "replaced"},
                        {"trap.log", "through the link"},
                        // Named like the temporary file of the member after it.
                        {".tyunzip-" + std::to_string(::getpid()) + "-10.tmp", "x"},
                        {"good.log", "fine"}}));
  UnZipArchive(t.w(), t.ui, t.run, 1);

  EXPECT_EQ(t.run.extractedCount, 1);
  EXPECT_EQ(tytest::ReadFile(t.dir.path() / "logs/good.log"), "fine");
  EXPECT_EQ(tytest::ReadFile(t.dir.path() / "logs/keep.log"), "original");
  EXPECT_TRUE(Names(outside).empty());
  EXPECT_EQ(Names(t.dir.path()), (std::vector<std::string>{"Data", "logs", "outside"}));
  EXPECT_EQ(Names(t.dir.path() / "logs"),
            (std::vector<std::string>{"ARCHIVE.ZIP", "good.log", "keep.log", "trap.log"}));

  // One line per member left out, each naming the routine.
  const std::string log = t.ErrorsLog();
  size_t lines = 0;
  for (size_t p = log.find(" FROM ModFiles.UnZipArchive\r\n"); p != std::string::npos;
       p = log.find(" FROM ModFiles.UnZipArchive\r\n", p + 1)) {
    ++lines;
  }
  EXPECT_EQ(lines, 10u);
  EXPECT_NE(log.find("Archive member ../evil.log not unpacked"), std::string::npos);
  EXPECT_NE(log.find("Archive member ../forged??line.log not unpacked"), std::string::npos);
  EXPECT_TRUE(t.ui.messages.empty());

  DeleteArchive(t.w(), t.ui, t.run, 1);
  EXPECT_EQ(tytest::ReadFile(t.dir.path() / "logs/keep.log"), "original");
  EXPECT_TRUE(fs::is_symlink(t.dir.path() / "logs/trap.log"));
}

TEST(Archive, DamagedArchivesKeepWhatWasUnpackedWithoutAMessage) {
  {
    InputWorld t;
    tytest::WriteFile(t.dir.path() / "logs/ARCHIVE.ZIP", "PK\x03\x04 this is no archive at all");
    UnZipArchive(t.w(), t.ui, t.run, 1);
    EXPECT_EQ(t.run.extractedCount, 0);
    EXPECT_TRUE(t.ui.messages.empty());
    EXPECT_NE(t.ErrorsLog().find("not fully unpacked"), std::string::npos);
    EXPECT_EQ(t.ui.captions[platform::Label::Prog2], "");
  }
  {
    // The second member's stored bytes are damaged: its checksum fails.
    InputWorld t;
    const fs::path zip = t.dir.path() / "logs/ARCHIVE.ZIP";
    const std::string second(4000, 'Q');
    ASSERT_TRUE(WriteZip(zip, {{"first.log", "one"}, {"second.log", second, false, true},
                               {"third.log", "three"}}));
    std::string bytes = tytest::ReadFile(zip);
    const size_t at = bytes.find(second);
    ASSERT_NE(at, std::string::npos);
    bytes[at + 2000] = 'R';
    tytest::WriteFile(zip, bytes);

    UnZipArchive(t.w(), t.ui, t.run, 1);
    EXPECT_EQ(tytest::ReadFile(t.dir.path() / "logs/first.log"), "one");
    EXPECT_EQ(Names(t.dir.path() / "logs"),
              (std::vector<std::string>{"ARCHIVE.ZIP", "first.log"}));  // no half file, no temp
    EXPECT_EQ(t.run.extractedCount, 2);  // second.log was reported before it failed
    EXPECT_NE(t.ErrorsLog().find("second.log"), std::string::npos);
    EXPECT_TRUE(t.ui.messages.empty());
    DeleteArchive(t.w(), t.ui, t.run, 1);
    EXPECT_EQ(Names(t.dir.path() / "logs"), (std::vector<std::string>{"ARCHIVE.ZIP"}));
  }
}

TEST(Archive, EncryptedMemberIsLeftOutAndTheRestUnpacked) {
  InputWorld t;
  if (!WriteZip(t.dir.path() / "logs/ARCHIVE.ZIP",
                {{"secret.log", "hidden", false, false, true}, {"plain.log", "open"}})) {
    GTEST_SKIP() << "this libzip cannot write encrypted members";
  }
  UnZipArchive(t.w(), t.ui, t.run, 1);
  EXPECT_EQ(Names(t.dir.path() / "logs"),
            (std::vector<std::string>{"ARCHIVE.ZIP", "plain.log"}));
  EXPECT_NE(t.ErrorsLog().find("Archive member secret.log not unpacked"), std::string::npos);
  EXPECT_EQ(t.ErrorsLog().find("not fully unpacked"), std::string::npos);
}

TEST(Archive, SizeBoundsAndCancelStopTheUnpacking) {
  {
    InputWorld t;
    ASSERT_TRUE(WriteZip(t.dir.path() / "logs/ARCHIVE.ZIP",
                         {{"a.log", std::string(1000, 'a')}, {"b.log", std::string(5000, 'b')}}));
    platform::ZipArchive::Limits limits;
    limits.maxTotalBytes = 3000;
    UnZipArchive(t.w(), t.ui, t.run, 1, limits);
    EXPECT_EQ(Names(t.dir.path() / "logs"), (std::vector<std::string>{"ARCHIVE.ZIP", "a.log"}));
    EXPECT_NE(t.ErrorsLog().find("larger than the space allowed"), std::string::npos);
  }
  {
    // A member far more compressed than any log is: the archive stops there.
    InputWorld t;
    ASSERT_TRUE(WriteZip(t.dir.path() / "logs/ARCHIVE.ZIP",
                         {{"bomb.log", std::string(2 << 20, '\0')}}));
    platform::ZipArchive::Limits limits;
    limits.ratioCheckFrom = 1 << 20;
    limits.maxRatio = 100;
    UnZipArchive(t.w(), t.ui, t.run, 1, limits);
    EXPECT_EQ(Names(t.dir.path() / "logs"), (std::vector<std::string>{"ARCHIVE.ZIP"}));
    EXPECT_NE(t.ErrorsLog().find("compression ratio"), std::string::npos);
  }
  {
    InputWorld t;
    ASSERT_TRUE(WriteZip(t.dir.path() / "logs/ARCHIVE.ZIP", {{"a.log", "a"}, {"b.log", "b"}}));
    t.ui.onYield = [](int) { return false; };  // Cancel confirmed at the first yield
    UnZipArchive(t.w(), t.ui, t.run, 1);
    EXPECT_TRUE(t.run.cancelled);
    EXPECT_FALSE(t.run.unzipping);
    EXPECT_EQ(Names(t.dir.path() / "logs"), (std::vector<std::string>{"ARCHIVE.ZIP"}));
    EXPECT_EQ(t.ErrorsLog(), "");  // a Cancel is no failure
  }
}

// 2002-05-01 10:00:00 local time, as the archive stores it.
time_t May2002() {
  std::tm tm{};
  tm.tm_year = 102;
  tm.tm_mon = 4;
  tm.tm_mday = 1;
  tm.tm_hour = 10;
  tm.tm_isdst = -1;
  return std::mktime(&tm);
}

TEST(Archive, UnpackedFilesKeepTheArchiveTimeAndAreNotedBeforeTheyAreWritten) {
  InputWorld t;
  ASSERT_TRUE(WriteZip(t.dir.path() / "logs/ARCHIVE.ZIP",
                       {{"ex020501.log", "#Fields: c-ip\r\n1.1.1.1\r\n", false, false, false,
                         May2002()}}));
  // While the member is written, the list already names it.
  std::string listed;
  t.ui.onYield = [&](int) {
    listed = tytest::ReadFile(UnpackedListPath(t.w().app.dataFolder));
    return true;
  };
  UnZipArchive(t.w(), t.ui, t.run, 1);
  ASSERT_EQ(t.run.extractedCount, 1);
  EXPECT_EQ(listed, "folder " + t.Folder() + "\nfile " + t.Folder() + "ex020501.log\n");
  // The listing sees the archive's date, not the time of unpacking.
  ASSERT_EQ(ListLogFiles(t.w(), t.ui, t.run, 1), 1);
  EXPECT_EQ(t.run.logFiles[1].modified, vb::DateSerial(2002, 5, 1) + vb::TimeSerial(10, 0, 0));
  DeleteArchive(t.w(), t.ui, t.run, 1);
  EXPECT_FALSE(fs::exists(UnpackedListPath(t.w().app.dataFolder)));
  EXPECT_EQ(Names(t.dir.path() / "logs"), (std::vector<std::string>{"ARCHIVE.ZIP"}));
}

TEST(Archive, NextRunRemovesWhatAKilledUnpackingLeftAndNothingElse) {
  InputWorld t;
  tytest::WriteFile(t.dir.path() / "logs/own.log", "the user's own");
  tytest::WriteFile(t.dir.path() / "logs/b.log", "also the user's: the archive's b.log is skipped");
  ASSERT_TRUE(WriteZip(t.dir.path() / "logs/ARCHIVE.ZIP", {{"a.log", "a"}, {"b.log", "b"}}));
  UnZipArchive(t.w(), t.ui, t.run, 1);
  ASSERT_EQ(t.run.extractedCount, 1);
  // Killed before the clean-up, and while a second member was half written.
  tytest::WriteFile(t.dir.path() / "logs/.tyunzip-4242-1.tmp", "half");
  // A list that names more than the unpacking wrote is still kept to its folder.
  {
    std::ofstream list(UnpackedListPath(t.w().app.dataFolder), std::ios::app);
    list << "file " << t.Folder() << "sub/x.log\nfile " << t.dir.str() << "elsewhere.log\n";
  }
  tytest::WriteFile(t.dir.path() / "elsewhere.log", "not in the folder");

  EXPECT_EQ(RemoveLeftoverUnpackedFiles(t.w()), 2);
  EXPECT_EQ(Names(t.dir.path() / "logs"),
            (std::vector<std::string>{"ARCHIVE.ZIP", "b.log", "own.log"}));
  EXPECT_TRUE(fs::exists(t.dir.path() / "elsewhere.log"));
  EXPECT_FALSE(fs::exists(UnpackedListPath(t.w().app.dataFolder)));
  EXPECT_NE(t.ErrorsLog().find("a.log, left by an unpacking that did not finish"),
            std::string::npos);
  // Nothing left to do the next time.
  EXPECT_EQ(RemoveLeftoverUnpackedFiles(t.w()), 0);
}

}  // namespace
}  // namespace loginput
