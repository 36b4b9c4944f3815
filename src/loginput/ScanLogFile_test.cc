// Reading whole files: directives, the blank-line stop, the last-line hand-over, the format
// presets, pacing, and real server logs read end to end.
#include "loginput/ScanLogFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "loginput/LogFiles.h"
#include "loginput/LogInputTesting.h"
#include "vb/Dates.h"

namespace loginput {
namespace {

using testing::InputWorld;
using testing::RecordingHooks;
using Lines = std::vector<std::string>;
constexpr startup::LogLayout kW3c = startup::LogLayout::W3cExtended;
constexpr startup::LogLayout kCombined = startup::LogLayout::Combined;

// A world with one site, and hooks that record what the scan of its log hands over.
struct ScanWorld : InputWorld {
  RecordingHooks hooks{run};
  bool Scan() { return ScanLogFile(w(), ui, run, hooks, 1); }
};

std::string Repeat(const std::string& s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

TEST(ScanLogFile, FieldsLineAppliesFromTheNextLineAndEarlierDataIsSkipped) {
  ScanWorld t;
  t.Log("ex1.log",
        "1.1.1.1 /early.htm\r\n"
        "#Software: test\r\n"
        "#fields: date c-ip cs-uri-stem\r\n"  // lower case is recognised
        "2002-01-01 2.2.2.2 /a.htm\r\n"
        "#Fields:  c-ip cs-uri-stem\r\n"       // two blanks: the list starts with an empty item
        "x 3.3.3.3 /b.htm\r\n");
  EXPECT_TRUE(t.Scan());

  EXPECT_EQ(t.hooks.lines, (Lines{"2002-01-01 2.2.2.2 /a.htm", "x 3.3.3.3 /b.htm", ""}));
  EXPECT_EQ(t.hooks.pages[0], "/a.htm");
  EXPECT_EQ(t.hooks.pages[1], "/b.htm");
  EXPECT_EQ(t.hooks.fields[1].clientAddress, "3.3.3.3");
  // The final, empty line empties every mapped field.
  EXPECT_EQ(t.run.hits.clientAddress, "");
  EXPECT_EQ(t.site().lastFields, " C-IP CS-URI-STEM");  // stored upper-cased
  EXPECT_TRUE(t.run.Site(1).fieldsKnown);
  EXPECT_TRUE(t.run.dateFieldFlag);
  EXPECT_EQ(t.run.totalLines, 6);
  EXPECT_TRUE(t.ui.messages.empty());
  EXPECT_EQ(t.hooks.daySummaries, 1);
  EXPECT_TRUE(t.run.scanning);
}

TEST(ScanLogFile, FiftyEmptyLinesEndTheFileButFortyNineDoNot) {
  for (int blanks : {49, 50}) {
    ScanWorld t;
    t.Log("ex.log", "#Fields: c-ip\r\n" + Repeat("\r\n", blanks) + "after\r\nlater\r\n");
    t.Scan();
    if (blanks == 50) {
      // The 50 empty lines are handed over; the next line is read and handed over last.
      ASSERT_EQ(t.hooks.lines.size(), 51u);
      EXPECT_EQ(t.hooks.lines.back(), "after");
      EXPECT_EQ(t.run.totalLines, 51);
    } else {
      ASSERT_EQ(t.hooks.lines.size(), 52u);
      EXPECT_EQ(t.hooks.lines[49], "after");
      EXPECT_EQ(t.hooks.lines[50], "later");
      EXPECT_EQ(t.hooks.lines[51], "");
      EXPECT_EQ(t.run.totalLines, 52);
    }
  }
}

TEST(ScanLogFile, LastLineIsHandedOverWhateverItHolds) {
  ScanWorld t;
  t.Log("ex.log", "#Fields: c-ip cs-uri-stem\r\n1.1.1.1 /a.htm\r\n#Remark: no line end");
  t.Scan();
  EXPECT_EQ(t.hooks.lines, (Lines{"1.1.1.1 /a.htm", "#Remark: no line end"}));
  EXPECT_EQ(t.run.totalLines, 2);
}

TEST(ScanLogFile, FileWithoutFieldsLineSkipsDataAndSaysSo) {
  ScanWorld t;
  t.site().lastReadPos = 1234;
  t.Log("ex.log", "1.1.1.1 /a.htm\r\n2.2.2.2 /b.htm");
  t.Scan();
  // Only the final hand-over reaches the hit processing, and it cannot split anything.
  EXPECT_EQ(t.hooks.lines, (Lines{"2.2.2.2 /b.htm"}));
  EXPECT_EQ(t.hooks.hitsWithPage, 0);
  ASSERT_EQ(t.ui.messages.size(), 1u);
  EXPECT_EQ(t.ui.messages[0].text,
            "The log file for site Main Site was scanned but no #Field definition lines were "
            "found so Tallyo cannot interpret the log file. \r\n\r\nAre you sure this is a W3C "
            "Extended log file?");
  EXPECT_EQ(t.ui.messages[0].icon, platform::MsgIcon::Exclamation);
  EXPECT_EQ(t.ui.messages[0].title, "Tallyo");
  EXPECT_EQ(t.site().lastReadPos, 0);
}

TEST(ScanLogFile, ALogThatCannotBeReadIsSaidToBeUnreadableNotToLackFieldLines) {
  ScanWorld t;
  // Listed, then gone before it was opened (removed, or its permissions changed meanwhile).
  const std::string path = t.Log("ex.log", "#Fields: c-ip\r\n1.1.1.1\r\n");
  std::filesystem::remove(path);
  EXPECT_TRUE(t.Scan());
  ASSERT_EQ(t.ui.messages.size(), 1u);
  const std::string text = "The log file " + path +
                           " for site Main Site could not be read (No such file or directory); "
                           "it was skipped.";
  EXPECT_EQ(t.ui.messages[0].text, text);
  EXPECT_EQ(t.ui.messages[0].icon, platform::MsgIcon::Exclamation);
  EXPECT_NE(t.ErrorsLog().find("FROM ModFiles.ScanLogFile"), std::string::npos) << t.ErrorsLog();
  EXPECT_NE(t.ErrorsLog().find(text), std::string::npos);
  EXPECT_EQ(t.hooks.hitsWithPage, 0);
}

TEST(ScanLogFile, RememberedFieldListIsAppliedBeforeTheFirstLine) {
  ScanWorld t;
  t.site().lastFields = "C-IP CS-URI-STEM";
  t.Log("ex.log", "1.1.1.1 /a.htm\r\n");
  t.Scan();
  // The map is there, but only a fields line makes the fields known.
  EXPECT_EQ(t.run.fieldMap[kPage], 1);
  EXPECT_EQ(t.hooks.lines, (Lines{""}));
  EXPECT_EQ(t.ui.messages.size(), 1u);
}

TEST(ScanLogFile, FixedLayoutsPresetTheirFormat) {
  {
    // TYPE 1: comma separated, preset A; a fields line then empties the map but keeps the
    // fields known, so later lines are handed over without any mapped field.
    ScanWorld t;
    t.site().type = startup::LogLayout::CommaShort;
    t.Log("a.log",
          "9.9.9.9,x,1/2/2002,10:00:00,a,b,c,d,e,f,0,g,h,/p.htm\r\n"
          "#Fields: date time c-ip cs-uri-stem\r\n"
          "2002-01-01 10:00:00 1.1.1.1 /q.htm\r\n");
    t.Scan();
    EXPECT_EQ(t.hooks.pages[0], "/p.htm");
    EXPECT_EQ(t.hooks.lines.size(), 3u);
    EXPECT_EQ(t.hooks.lines[1], "2002-01-01 10:00:00 1.1.1.1 /q.htm");
    EXPECT_EQ(t.hooks.pages[1], "/p.htm");  // nothing mapped: the page stays as it was
    EXPECT_EQ(t.run.fieldMap.MaxPlace(), -1);
    EXPECT_TRUE(t.run.Site(1).fieldsKnown);
    EXPECT_FALSE(t.run.Site(1).noSpiderCheck);
    EXPECT_TRUE(t.ui.messages.empty());
  }
  {
    ScanWorld t;
    t.site().type = startup::LogLayout::FirewallStyle;
    t.Log("d.log", "2002-01-01 10:00:00 /page.htm TCP 0 5.5.5.5\r\n");
    t.Scan();
    EXPECT_EQ(t.hooks.pages[0], "/page.htm");
    EXPECT_EQ(t.hooks.fields[0].userAgent, "TCP");
    EXPECT_EQ(t.hooks.fields[0].clientAddress, "5.5.5.5");
    EXPECT_TRUE(t.run.Site(1).noSpiderCheck);
  }
  {
    // TYPE 5: TAB separated, map from the fields line, no spider check.
    ScanWorld t;
    t.site().type = startup::LogLayout::TabSeparated;
    t.Log("e.log", "#Fields: c-ip\tr-host\tcs-uri\r\n7.7.7.7\thost\t/t.htm\r\n");
    t.Scan();
    EXPECT_EQ(t.run.Site(1).separator, '\t');
    EXPECT_EQ(t.hooks.pages[0], "/t.htm");
    EXPECT_TRUE(t.run.Site(1).noSpiderCheck);
  }
}

TEST(ScanLogFile, DateDirectiveSetsTheFileDateAndMalformedOnesAreIgnored) {
  ScanWorld t;
  t.run.Site(1).currentFileDate = 100;
  t.Log("ex.log", "#Date: 2002-05-24 20:18:01\r\n");
  t.Scan();
  EXPECT_DOUBLE_EQ(t.run.Site(1).currentFileDate,
                   vb::DateSerial(2002, 5, 24) + vb::TimeSerial(20, 18, 1));

  for (const char* bad : {"#Date: 2002-05-24", "#Date: yesterday at noon",
                          "#Date: 2002-05-24 17:42:15  // when the file was created"}) {
    t.Log("bad.log", std::string(bad) + "\r\n");
    t.Scan();
    EXPECT_DOUBLE_EQ(t.run.Site(1).currentFileDate,
                     vb::DateSerial(2002, 5, 24) + vb::TimeSerial(20, 18, 1))
        << bad;
  }
}

TEST(ScanLogFile, ProgressEveryFiveHundredLinesAndCancelStopsTheFile) {
  const std::string line = "1.1.1.1 /a.htm\r\n";  // 16 bytes
  {
    ScanWorld t;
    t.Log("ex.log", "#Fields: c-ip cs-uri-stem\r\n" + Repeat(line, 1199));
    t.Scan();
    EXPECT_EQ(t.run.totalLines, 1200);
    EXPECT_EQ(t.hooks.progressSteps, 2);
    EXPECT_EQ(t.ui.yields, 2);
    // After the 1000th line: the 27-byte header and 999 data lines read, next byte 1-based.
    EXPECT_EQ(t.hooks.lastProgress, 27 + 999 * 16 + 1);
  }
  {
    ScanWorld t;
    t.Log("ex.log", "#Fields: c-ip cs-uri-stem\r\n" + Repeat(line, 1199));
    t.ui.onYield = [](int) { return false; };
    t.Scan();
    EXPECT_TRUE(t.run.cancelled);
    EXPECT_EQ(t.hooks.lines.size(), 499u);
    EXPECT_EQ(t.hooks.daySummaries, 0);
  }
}

TEST(ScanLogFile, WaitsForTheResolverOnlyWhenMoreThan95AreOutstanding) {
  for (int pending : {95, 96}) {
    ScanWorld t;
    t.Log("ex.log", "#Fields: c-ip\r\n1.1.1.1\r\n2.2.2.2\r\n#Remark\r\n3.3.3.3");
    t.hooks.dnsOn = true;
    t.hooks.pending = pending;
    t.Scan();
    EXPECT_EQ(t.hooks.dnsWaits, pending == 96 ? 2 : 0);  // data lines in the loop only
  }
  ScanWorld t;
  t.Log("ex.log", "#Fields: c-ip\r\n1.1.1.1\r\n");
  t.hooks.pending = 500;  // DNS off: never waits
  t.Scan();
  EXPECT_EQ(t.hooks.dnsWaits, 0);
}

TEST(ScanLogFile, UnsetLogDateTakesTheDaySummaryDate) {
  ScanWorld t;
  t.Log("ex.log", "#Fields: c-ip\r\n");
  t.hooks.summaryDate = vb::DateSerial(2002, 5, 24);
  t.Scan();
  EXPECT_DOUBLE_EQ(t.hooks.logDate, vb::DateSerial(2002, 5, 24));
  EXPECT_DOUBLE_EQ(t.run.Site(1).lastReadTime, t.clock.Now());

  t.hooks.logDate = vb::DateSerial(2003, 1, 1);  // set by a hit: stays
  t.Scan();
  EXPECT_DOUBLE_EQ(t.hooks.logDate, vb::DateSerial(2003, 1, 1));
}

TEST(ScanLogFile, BinaryGarbageAndVanishedFilesEndQuietly) {
  std::mt19937 rng(11);
  std::string garbage;
  for (int i = 0; i < 200000; ++i) garbage.push_back(static_cast<char>(rng()));
  // (A Ctrl-Z would end a text-mode file early; keep this file going to its end.)
  std::replace(garbage.begin(), garbage.end(), '\x1a', '\x1b');
  for (bool unix : {false, true}) {
    ScanWorld t;
    t.site().unixServer = unix;
    t.Log("junk.log", "#Fields: c-ip cs-uri-stem\r\n" + garbage);
    EXPECT_TRUE(t.Scan());
    EXPECT_GT(t.run.totalLines, 100);
  }
  // Listed, then gone before it is read: it reads as an empty file.
  ScanWorld t;
  t.Log("gone.log", "#Fields: c-ip\r\n1.1.1.1\r\n");
  ASSERT_EQ(ListLogFiles(t.w(), t.ui, t.run, 1), 1);
  std::filesystem::remove(t.site().lastLogFile);
  EXPECT_TRUE(t.Scan());
  EXPECT_EQ(t.hooks.lines, (Lines{""}));
  EXPECT_EQ(t.run.totalLines, 0);
  EXPECT_EQ(t.ui.messages.size(), 1u);
}

// Real server logs, read as their servers wrote them (LF line ends, so UNIX mode).
struct RealLog {
  const char* file;
  startup::LogLayout type;
  int lines;         // lines read, directives and blank lines included
  int handedOver;    // lines given to the hit processing, the final one included
  int withPage;      // of those, lines whose page field came out non-empty
  // The page and client address of the last data line; a log whose columns do not line up with
  // its fields line gives what a plain split by blanks gives.
  const char* lastPage;
  const char* lastClient;
};

TEST(ScanLogFile, RealServerLogsReadEndToEnd) {
  const RealLog logs[] = {
      // 44 directives repeated before each burst, 210 data lines.
      {"logfile_w3c_big.0", kW3c, 254, 211, 210, "/robots.txt", "188.165.15.50"},
      // "cs-uri" is not a W3C page name: no page column. Two blanks after the marker put C-IP at
      // place 1, and the runs of blanks in the data line leave that place empty.
      {"logfile_w3c.1", kW3c, 7, 2, 0, "", ""},
      // No date column; FTP commands as methods.
      {"logfile_w3c.2", kW3c, 22, 15, 14, "-", "1.1.1.1"},
      // Blank lines before the fields line are not handed over; quoted values with blanks split.
      {"logfile_w3c.3", kW3c, 10, 4, 3, "(Macintosh;", "X"},
      {"logfile_w3c.6", kW3c, 5, 2, 1, "/robots.txt", "157.55.39.146"},
      // NCSA combined, the TYPE 2 preset.
      {"logfile_shop_access_log.0", kCombined, 1000, 1001, 1000,
       "/static/images/search-category-arrow.png", "89.47.79.75"},
  };
  for (const RealLog& log : logs) {
    ScanWorld t;
    t.site().unixServer = true;
    t.site().type = log.type;
    t.Log(log.file, tytest::ReadFile(tytest::SourceDir() / "testdata/loginput" / log.file));
    t.Scan();
    EXPECT_EQ(t.run.totalLines, log.lines) << log.file;
    EXPECT_EQ(t.hooks.hits, log.handedOver) << log.file;
    EXPECT_EQ(t.hooks.hitsWithPage, log.withPage) << log.file;
    ASSERT_GE(t.hooks.pages.size(), 2u) << log.file;
    EXPECT_EQ(t.hooks.pages[t.hooks.pages.size() - 2], log.lastPage) << log.file;
    EXPECT_EQ(t.hooks.fields[t.hooks.fields.size() - 2].clientAddress, log.lastClient) << log.file;
    EXPECT_TRUE(t.ui.messages.empty()) << log.file;
    EXPECT_EQ(t.hooks.lines.back(), "") << log.file;  // each file ends with its line end
  }

  // The same big log read in text mode is one line: no fields line is ever seen.
  ScanWorld t;
  t.Log("big.log", tytest::ReadFile(tytest::SourceDir() / "testdata/loginput/logfile_w3c_big.0"));
  t.Scan();
  EXPECT_EQ(t.run.totalLines, 0);
  EXPECT_EQ(t.hooks.lines.size(), 1u);
  EXPECT_EQ(t.hooks.lines[0].size(), 47402u);
  EXPECT_EQ(t.ui.messages.size(), 1u);
}

}  // namespace
}  // namespace loginput
