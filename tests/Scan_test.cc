// Whole scans through start-up, the wizard and the scan driver, on an application folder built in
// a temp folder: real server logs of two formats, and bad input (binary garbage, a damaged
// archive, an archive whose members try to leave the log folder). The tables are read back and
// checked afterwards.
#include <gtest/gtest.h>
#include <zip.h>

#include <filesystem>
#include <ctime>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "AppFolder.h"
#include "TableReadBack.h"
#include "TestSupport.h"
#include "loginput/LineReader.h"
#include "wizard/Wizard.h"

namespace {

namespace fs = std::filesystem;

using App = tytest::AppFolder;

// Lines the scan counts in a file: every line the reader returns but the last one, which is
// handed over without being counted.
int32_t CountedLines(const fs::path& file, loginput::LineReader::Mode mode) {
  loginput::LineReader reader;
  EXPECT_TRUE(reader.Open(file.string(), mode));
  int32_t n = -1;
  while (!reader.AtEnd()) {
    reader.Next();
    ++n;
  }
  return n;
}

// Writes a zip archive; members get the modification time `mtime` when it is not 0.
bool WriteZip(const fs::path& path,
              const std::vector<std::pair<std::string, std::string>>& members,
              const std::vector<time_t>& mtimes = {}) {
  int err = 0;
  zip_t* z = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err);
  if (!z) return false;
  size_t n = 0;
  for (const auto& [name, bytes] : members) {
    zip_source_t* src = zip_source_buffer(z, bytes.data(), bytes.size(), 0);
    const zip_int64_t i = src ? zip_file_add(z, name.c_str(), src, ZIP_FL_ENC_RAW) : -1;
    if (i < 0) {
      if (src) zip_source_free(src);
      zip_discard(z);
      return false;
    }
    if (n < mtimes.size()) zip_file_set_mtime(z, static_cast<zip_uint64_t>(i), mtimes[n], 0);
    ++n;
  }
  return zip_close(z) == 0;
}

// yyyy-mm-dd hh:mm:ss local time as a time_t.
time_t LocalTime(int y, int mo, int d, int h, int mi, int s) {
  std::tm tm{};
  tm.tm_year = y - 1900;
  tm.tm_mon = mo - 1;
  tm.tm_mday = d;
  tm.tm_hour = h;
  tm.tm_min = mi;
  tm.tm_sec = s;
  tm.tm_isdst = -1;
  return std::mktime(&tm);
}

std::string SmallW3c(int hits) {
  std::string s = "#Fields: date time c-ip cs-method cs-uri-stem sc-status cs(User-Agent)\r\n";
  for (int i = 0; i < hits; ++i)
    s += "2026-10-0" + std::to_string(1 + i % 3) + " 10:0" + std::to_string(i % 10) +
         ":00 10.1.0." + std::to_string(i % 5) + " GET /p" + std::to_string(i) +
         ".htm 200 Mozilla/4.0\r\n";
  return s;
}

TEST(Scan, RealServerLogsReadEndToEndAsW3cAndCombinedSites) {
  App app(
      "[W3C Site]\r\nTYPE=0\r\nFOLDER=w3c/\r\nMASK=*.log\r\nUNIX=True\r\n"
      "[Shop]\r\nTYPE=2\r\nFOLDER=shop/\r\nMASK=access*\r\nUNIX=True\r\n");
  const std::vector<std::string> w3c = {"logfile_w3c_big.0", "logfile_w3c.1", "logfile_w3c.2",
                                        "logfile_w3c.3", "logfile_w3c.6"};
  int32_t expected = 0;
  for (size_t i = 0; i < w3c.size(); ++i) {
    const std::string to = "w3c/ex" + std::to_string(i) + ".log";
    app.Copy("loginput/" + w3c[i], to);
    expected += CountedLines(app.dir.path() / to, loginput::LineReader::Mode::kUnix);
  }
  app.Copy("loginput/logfile_shop_access_log.0", "shop/access_log");
  expected += CountedLines(app.dir.path() / "shop/access_log", loginput::LineReader::Mode::kUnix);

  ASSERT_EQ(app.Run(), wizard::StartResult::Completed);
  wizard::ScanDriver& d = app.window->Driver();
  EXPECT_EQ(d.TotalLines(), expected);
  EXPECT_GE(expected, 1000 + 254);

  // The figures of the summary are what the tables hold, and every table is sound.
  const long visits = tytest::RecordCount(app.Data(), "Visits");
  EXPECT_GT(visits, 10);
  EXPECT_EQ(visits, d.Database().Totals().visitRecordsAdded);
  EXPECT_EQ(tytest::RecordCount(app.Data(), "Pages"), d.Database().Totals().pageRecordsAdded);
  EXPECT_EQ(tytest::RecordCount(app.Data(), "Exceptions"), d.Database().Totals().exceptionRecordsAdded);
  EXPECT_GT(tytest::RecordCount(app.Data(), "DaySum"), 0);
  EXPECT_EQ(tytest::TableDefects(app.Data(), 7), std::vector<std::string>{});
  ASSERT_FALSE(app.ui.messages.empty());
  EXPECT_EQ(app.ui.messages.back().text, d.Summary());
  EXPECT_NE(d.Summary().find("Scanned " + std::to_string(expected) + " lines in"),
            std::string::npos);
}

TEST(Scan, BadInputNeverStopsTheRunNorWritesOutsideTheLogFolder) {
  App app(
      "[Garbage]\r\nTYPE=0\r\nFOLDER=garbage/\r\nMASK=*.log\r\n"
      "[Broken Archive]\r\nTYPE=0\r\nFOLDER=broken/\r\nMASK=*.log\r\n"
      "[Escaping Archive]\r\nTYPE=0\r\nFOLDER=escape/\r\nMASK=*.log\r\n"
      "[Last]\r\nTYPE=0\r\nFOLDER=last/\r\nMASK=*.log\r\n");
  // Binary garbage, NUL bytes and very long "lines" included, in both a W3C and a fixed-layout
  // reading (the same bytes under a second name).
  std::mt19937 random(7);
  std::string garbage;
  for (int i = 0; i < 300000; ++i) garbage += static_cast<char>(random() & 0xFF);
  tytest::WriteFile(app.dir.path() / "garbage/a.log", garbage);
  tytest::WriteFile(app.dir.path() / "garbage/b.log",
                    "#Fields: date time c-ip cs-uri-stem\r\n" + garbage);
  // A damaged archive beside a good log.
  tytest::WriteFile(app.dir.path() / "broken/ARCHIVE.ZIP", "PK\x03\x04" + garbage.substr(0, 5000));
  tytest::WriteFile(app.dir.path() / "broken/good.log", SmallW3c(10));
  // An archive whose members point outside the folder, and one good member.
  fs::create_directories(app.dir.path() / "escape");
  ASSERT_TRUE(WriteZip(app.dir.path() / "escape/archive.zip",
                       {{"../escaped.log", SmallW3c(3)},
                        {"../../escaped2.log", SmallW3c(3)},
                        {"/tmp/tydb-absolute-member.log", SmallW3c(3)},
                        {"inner.log", SmallW3c(4)}}));
  tytest::WriteFile(app.dir.path() / "last/z.log", SmallW3c(6));

  ASSERT_EQ(app.Run(), wizard::StartResult::Completed);
  wizard::ScanDriver& d = app.window->Driver();

  // Nothing left the log folder; the good member was read and removed again; the archive stays.
  EXPECT_FALSE(fs::exists(app.dir.path() / "escaped.log"));
  EXPECT_FALSE(fs::exists(app.dir.path().parent_path() / "escaped2.log"));
  EXPECT_FALSE(fs::exists("/tmp/tydb-absolute-member.log"));
  EXPECT_FALSE(fs::exists(app.dir.path() / "escape/inner.log"));
  EXPECT_TRUE(fs::exists(app.dir.path() / "escape/archive.zip"));
  std::vector<std::string> read;
  for (const auto& c : app.ui.CaptionsOf(platform::Label::Prog))
    if (c.rfind(app.dir.str(), 0) == 0) read.push_back(c.substr(app.dir.str().size()));
  EXPECT_EQ(read, (std::vector<std::string>{"garbage/a.log", "garbage/b.log", "broken/good.log",
                                            "escape/inner.log", "last/z.log"}));
  EXPECT_EQ(app.ui.CaptionsOf(platform::Label::Site).back(), "Scanning Site: Last");

  // The garbage file without a fields line is reported; the run went on to the end.
  int noFields = 0;
  for (const auto& m : app.ui.messages)
    if (m.text.find("no #Field definition lines") != std::string::npos) ++noFields;
  EXPECT_EQ(noFields, 1);
  EXPECT_EQ(app.ui.messages.back().text, d.Summary());
  EXPECT_GT(tytest::RecordCount(app.Data(), "Visits"), 0);
  EXPECT_EQ(tytest::TableDefects(app.Data(), 7), std::vector<std::string>{});
  // The members left out and the damaged archive are on record.
  const std::string errors = tytest::ReadFile(app.dir.path() / "Data/errors.log");
  EXPECT_NE(errors.find("escaped.log"), std::string::npos);
  EXPECT_NE(errors.find("ModFiles.UnZipArchive"), std::string::npos);
}

TEST(Scan, ArchiveMembersKeepTheirDatesAndGiveTheSameTablesAsLooseFiles) {
  // The inactive-visit sweep (due at 10:25, twenty minutes after the first hit) measures
  // idleness up to the file's own date: for a log written at 10:30, 10.0.0.1 (last seen 10:15)
  // is still active and 10.0.0.2 (10:05) is not. A log dated the day it was unpacked would have
  // every visit closed there, and 10.0.0.1's last page would start a visit of its own.
  const std::string day1 =
      "#Fields: date time c-ip cs-method cs-uri-stem sc-status cs(User-Agent)\r\n"
      "2002-05-01 10:00:00 10.0.0.1 GET /index.htm 200 Mozilla/4.0\r\n"
      "2002-05-01 10:05:00 10.0.0.2 GET /index.htm 200 Mozilla/4.0\r\n"
      "2002-05-01 10:15:00 10.0.0.1 GET /more.htm 200 Mozilla/4.0\r\n"
      "2002-05-01 10:25:00 10.0.0.2 GET /more.htm 200 Mozilla/4.0\r\n"
      "2002-05-01 10:28:00 10.0.0.1 GET /last.htm 200 Mozilla/4.0\r\n";
  const std::string day2 =
      "#Fields: date time c-ip cs-method cs-uri-stem sc-status cs(User-Agent)\r\n"
      "2002-05-02 09:00:00 10.0.0.3 GET /index.htm 200 Mozilla/4.0\r\n"
      "2002-05-02 09:01:00 10.0.0.3 GET /more.htm 200 Mozilla/4.0\r\n";
  const time_t t1 = LocalTime(2002, 5, 1, 10, 30, 0);
  const time_t t2 = LocalTime(2002, 5, 2, 9, 30, 0);
  const std::string sites = "[Main]\r\nTYPE=0\r\nFOLDER=logs/\r\nMASK=*.log\r\n";

  App packed(sites);
  fs::create_directories(packed.dir.path() / "logs");
  ASSERT_TRUE(WriteZip(packed.dir.path() / "logs/ARCHIVE.ZIP",
                       {{"ex020501.log", day1}, {"ex020502.log", day2}}, {t1, t2}));
  App loose(sites);
  tytest::WriteFile(loose.dir.path() / "logs/ex020501.log", day1);
  tytest::WriteFile(loose.dir.path() / "logs/ex020502.log", day2);
  const auto at = [](time_t t) {
    return fs::file_time_type::clock::from_sys(std::chrono::system_clock::from_time_t(t));
  };
  fs::last_write_time(loose.dir.path() / "logs/ex020501.log", at(t1));
  fs::last_write_time(loose.dir.path() / "logs/ex020502.log", at(t2));

  ASSERT_EQ(packed.Run(), wizard::StartResult::Completed);
  ASSERT_EQ(loose.Run(), wizard::StartResult::Completed);
  EXPECT_TRUE(tytest::TableFiles(packed.Data()) == tytest::TableFiles(loose.Data()));
  // Four visits: 10.0.0.1's one, 10.0.0.2's two (closed at the sweep, then back) and 10.0.0.3's.
  EXPECT_EQ(tytest::RecordCount(packed.Data(), "Visits"), 4);
  EXPECT_TRUE(fs::exists(packed.dir.path() / "logs/ARCHIVE.ZIP"));
  EXPECT_FALSE(fs::exists(packed.dir.path() / "logs/ex020501.log"));
}

}  // namespace
