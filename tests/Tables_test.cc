// Whole scans whose tables are read back record by record: a configuration copied from a Windows
// installation, exceptions raised without a visit, the run's one field map, lines without a date,
// and the records-added figures at the page batch's edge.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "AppFolder.h"
#include "TableReadBack.h"
#include "TestSupport.h"
#include "startup/ConfigJson.h"
#include "wizard/Wizard.h"

namespace {

namespace fs = std::filesystem;

using Row = tytest::Record;

using App = tytest::AppFolder;
using tytest::ReadTable;

std::vector<Row> Where(const std::vector<Row>& rows, const std::string& field,
                       const std::string& value) {
  std::vector<Row> out;
  for (const Row& r : rows)
    if (r.at(field) == value) out.push_back(r);
  return out;
}

// The "#Date:" line sets the file's date for the inactive-visit sweep, which otherwise measures
// idle time to the file's modification time (today) and would end every 2002 visit at once.
constexpr const char* kW3cFields =
    "#Date: 2002-05-01 00:00:00\r\n#Fields: date time c-ip cs-method cs-uri-stem sc-status\r\n";

std::string W3cHit(const std::string& date, const std::string& time, const std::string& ip,
                   const std::string& page) {
  return date + " " + time + " " + ip + " GET " + page + " 200\r\n";
}

// ---- A configuration written on Windows ------------------------------------------------------

TEST(WindowsConfig, BackslashesDriveLettersAndAnyCaseScanEndToEnd) {
  // The sites file as the product writes it: CR LF, backslashes, drive letters in either case,
  // folders with and without the closing separator, spelled in another case than on disk.
  App app(
      "[Main Site]\r\nType=0\r\nFolder=Logs\\W3SVC1\\\r\nMask=EX*.LOG\r\n"
      "[Lost Site]\r\nTYPE=0\r\nFOLDER=E:\\Logs\\W3SVC9\\\r\nMASK=*.log\r\n"
      "[Other Site]\r\nTYPE=0\r\nFOLDER=d:\\WEB\\logs\r\nMASK=*.log\r\n");
  app.File("logs/w3svc1/ex020501.log",
           std::string(kW3cFields) + W3cHit("2002-05-01", "10:00:00", "10.1.1.1", "/a.htm") +
               W3cHit("2002-05-01", "10:01:00", "10.1.1.1", "/b.htm"));
  app.File("drive_d/web/Logs/other.log",
           std::string(kW3cFields) + W3cHit("2002-05-02", "11:00:00", "10.2.2.2", "/c.htm"));
  fs::create_directories(app.dir.path() / "drive_d" / "tallyodata");
  const std::string registry =
      "[Software\\Fenwright\\Tallyo \\Settings]\r\nDDFPath=D:\\TallyoData\\\r\n"
      "[Drives]\r\nd:=" + app.dir.str() + "drive_d\r\n";

  ASSERT_EQ(app.Run(registry), wizard::StartResult::Completed);

  // The data folder came through the drive map and was found in its case on disk.
  EXPECT_EQ(app.Data(), app.dir.str() + "drive_d/tallyodata/");
  const auto visits = ReadTable(app.Data(), "Visits");
  ASSERT_EQ(visits.size(), 2u) << Where(visits, "SITE", "Main Site").size();
  EXPECT_EQ(Where(visits, "SITE", "Main Site").size(), 1u);
  EXPECT_EQ(Where(visits, "SITE", "Other Site").size(), 1u);
  EXPECT_EQ(Where(visits, "SITE", "Other Site")[0]["IP"], "10.2.2.2");
  // The first page twice (the visit's entry and its page hit), then the second.
  EXPECT_EQ(Where(ReadTable(app.Data(), "Pages"), "SITE", "Main Site").size(), 3u);
  EXPECT_EQ(tytest::TableDefects(app.Data(), 7), std::vector<std::string>{});

  // The site on a drive without a mapping: one line in errors.log and one message, naming the
  // site, the folder as written and the section to add; the other sites were scanned.
  const std::string errors = tytest::ReadFile(app.Data() + "errors.log");
  EXPECT_NE(errors.find("Lost Site, E:\\Logs\\W3SVC9\\, is on drive E:"), std::string::npos)
      << errors;
  EXPECT_NE(errors.find("add a line \"E:=<folder>\" to the [Drives] section"), std::string::npos);
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1);
  EXPECT_TRUE(app.Shown("Lost Site, E:\\Logs\\W3SVC9\\, is on drive E:"));
  EXPECT_FALSE(app.Shown("No log files were found for site: Lost Site"));

  // --show-config shows each folder as written and as read here.
  const std::string json = startup::ConfigToJson(*app.started.world);
  EXPECT_NE(json.find("\"FOLDER\":\"" + app.dir.str() + "logs/w3svc1/\""), std::string::npos);
  EXPECT_NE(json.find("\"folderAsWritten\":\"Logs\\\\W3SVC1\\\\\""), std::string::npos);
  EXPECT_NE(json.find("\"FOLDER\":\"" + app.dir.str() + "drive_d/web/Logs/\""), std::string::npos);
  EXPECT_NE(json.find("\"dataFolderAsWritten\":\"D:\\\\TallyoData\\\\\""), std::string::npos);
  EXPECT_NE(json.find("\"folderProblem\":"), std::string::npos);
}

TEST(WindowsConfig, DataFolderOnADriveWithoutAMappingStopsStartUpWithWhatToAdd) {
  App app("[Main Site]\r\nFOLDER=logs\\\r\n");
  const std::string registry =
      "[Software\\Fenwright\\Tallyo \\Settings]\r\nDDFPath=Q:\\Tallyo\\Data\\\r\n";
  EXPECT_EQ(app.Start(registry), startup::MainStatus::Failed);
  EXPECT_NE(app.started.failure.find("DDFPath, Q:\\Tallyo\\Data\\, is on drive Q:"),
            std::string::npos)
      << app.started.failure;
  EXPECT_NE(app.started.failure.find("[Drives]"), std::string::npos);
  // Nothing was created in a guessed place.
  EXPECT_FALSE(fs::exists(app.dir.path() / "Q:"));
}

TEST(WindowsConfig, FolderWithOrWithoutItsClosingSeparatorReadsTheSameFiles) {
  // One log, copied to two folders: one site names its folder with the separator, one without,
  // and a third site's folder loses its separator after loading.
  App app(
      "[With]\r\nTYPE=0\r\nFOLDER=with/\r\nMASK=*.log\r\n"
      "[Without]\r\nTYPE=0\r\nFOLDER=without\r\nMASK=*.log\r\n"
      "[Bare]\r\nTYPE=0\r\nFOLDER=bare/\r\nMASK=*.log\r\n");
  std::string log = kW3cFields;
  for (int i = 0; i < 5; ++i)
    log += W3cHit("2002-05-01", "10:0" + std::to_string(i) + ":00", "10.0.0.1",
                  "/p" + std::to_string(i) + ".htm");
  for (const char* folder : {"with", "without", "bare"})
    app.File(std::string(folder) + "/w3cex150113.log", log);
  ASSERT_EQ(app.Run("", [&](startup::World& w) {
              std::string& f = w.site(3).folder;
              f.pop_back();  // ".../bare" without its "/"
            }),
            wizard::StartResult::Completed);
  const auto pages = ReadTable(app.Data(), "Pages");
  for (const char* site : {"With", "Without", "Bare"}) {
    EXPECT_EQ(Where(pages, "SITE", site).size(), 6u) << site;  // five pages, the first twice
  }
  EXPECT_FALSE(app.Shown("no #Field definition lines"));
}

// ---- Exceptions raised without a visit -------------------------------------------------------

TEST(ExceptionRecords, RaisedWithoutAVisitStoreABlankVisitNo) {
  App app("[Robots]\r\nTYPE=0\r\nFOLDER=logs/\r\nMASK=*.log\r\n");
  app.File("EXTYPES.INI", "[Exception types]\r\nNUMBER=110\r\nRAISE=True\r\nVALUE=0\r\n\r\n");
  app.File("logs/ex020501.log",
           "#Fields: date time c-ip cs-method cs-uri-stem sc-status cs(User-Agent)\r\n"
           "2002-05-01 10:00:00 10.0.0.1 GET /robots.txt 200 FooFetcher/1.0\r\n"
           "2002-05-01 10:00:05 10.0.0.1 GET /gone.htm 404 FooFetcher/1.0\r\n");
  ASSERT_EQ(app.Run(), wizard::StartResult::Completed);
  const auto exceptions = ReadTable(app.Data(), "Exceptions");
  const auto learnt = Where(exceptions, "NUMBER", "902");
  const auto busy = Where(exceptions, "NUMBER", "110");
  ASSERT_EQ(learnt.size(), 1u);
  ASSERT_EQ(busy.size(), 1u);
  EXPECT_EQ(learnt[0].at("VISITNO"), "");
  EXPECT_EQ(busy[0].at("VISITNO"), "");
  EXPECT_EQ(busy[0].at("VALUE"), "1");
  // An exception of a visit keeps the visit's number.
  const auto notFound = Where(exceptions, "NUMBER", "404");
  ASSERT_EQ(notFound.size(), 1u);
  EXPECT_EQ(notFound[0].at("VISITNO"), "1");
}

// ---- One field map for the whole run ---------------------------------------------------------

TEST(FieldMap, ASiteWithoutAFieldsLineReadsByThePreviousSitesMap) {
  App app(
      "[One]\r\nTYPE=0\r\nFOLDER=one/\r\nMASK=*.log\r\n"
      "[Two]\r\nTYPE=0\r\nFOLDER=two/\r\nMASK=*.log\r\n");
  app.File("one/a.log",
           "#Fields: date time c-ip cs-uri-stem\r\n2002-05-01 10:00:00 10.0.0.1 /index.htm\r\n");
  // No fields line, and no line end after the last line.
  app.File("two/b.log", "#Date: 2002-05-01 10:05:00\r\n2002-05-01 10:05:00 10.0.0.9 /n.htm");
  ASSERT_EQ(app.Run(), wizard::StartResult::Completed);

  const auto visits = Where(ReadTable(app.Data(), "Visits"), "SITE", "Two");
  ASSERT_EQ(visits.size(), 1u);
  EXPECT_EQ(visits[0].at("IP"), "10.0.0.9");
  EXPECT_EQ(visits[0].at("VISITNO"), "00001");
  EXPECT_EQ(visits[0].at("VISITTIME"), "10:05:00");
  EXPECT_EQ(visits[0].at("FIRSTPAGE"), "n.htm");
  EXPECT_EQ(Where(ReadTable(app.Data(), "Visitor"), "IP", "10.0.0.9").size(), 1u);
  EXPECT_EQ(Where(ReadTable(app.Data(), "Pages"), "SITE", "Two").size(), 2u);
  const auto days = Where(ReadTable(app.Data(), "DaySum"), "SITE", "Two");
  ASSERT_EQ(days.size(), 1u);
  EXPECT_EQ(days[0].at("DATED"), "20020501");
  EXPECT_EQ(days[0].at("VISITORS"), "1");
  // The site's file still never defined its fields, and the user is told so.
  EXPECT_TRUE(app.Shown("The log file for site Two was scanned but no #Field definition lines"));
}

// ---- Lines whose date cannot be read ----------------------------------------------------------

TEST(DaySummary, LinesWithoutADateMakeNoRowOfTheirOwn) {
  // Blank lines and a line of blanks right after the fields line, in the first site and in a
  // second site read after a first one with another date; a last line that looks like a
  // remark.
  App app(
      "[One]\r\nTYPE=0\r\nFOLDER=one/\r\nMASK=*.log\r\n"
      "[Two]\r\nTYPE=0\r\nFOLDER=two/\r\nMASK=*.log\r\n");
  app.File("one/a.log", std::string(kW3cFields) + "\r\n   \r\n" +
                            W3cHit("2002-05-01", "10:00:00", "10.0.0.1", "/a.htm") +
                            W3cHit("2002-05-01", "10:01:00", "10.0.0.2", "/b.htm"));
  app.File("two/b.log", std::string(kW3cFields) + "\r\n \t \r\n" +
                            W3cHit("2002-05-03", "09:00:00", "10.0.0.3", "/c.htm") +
                            "\r\n" + W3cHit("2002-05-03", "09:30:00", "10.0.0.4", "/d.htm") +
                            "# end of log");
  ASSERT_EQ(app.Run(), wizard::StartResult::Completed);
  const auto days = ReadTable(app.Data(), "DaySum");
  ASSERT_EQ(days.size(), 2u);
  EXPECT_EQ(days[0].at("SITE"), "One");
  EXPECT_EQ(days[0].at("DATED"), "20020501");
  EXPECT_EQ(days[0].at("VISITORS"), "2");
  EXPECT_EQ(days[1].at("SITE"), "Two");
  EXPECT_EQ(days[1].at("DATED"), "20020503");
  EXPECT_EQ(days[1].at("VISITORS"), "2");
}

// ---- The records-added figures -----------------------------------------------------------------

// One visitor reading `pages` different pages a second apart.
std::string PageRun(int pages) {
  std::string log = kW3cFields;
  for (int i = 0; i < pages; ++i) {
    char t[16];
    std::snprintf(t, sizeof t, "%02d:%02d:%02d", 8 + i / 3600, i / 60 % 60, i % 60);
    log += W3cHit("2002-05-01", t, "10.0.0.1", "/p" + std::to_string(i) + ".htm");
  }
  return log;
}

TEST(ScanSummary, RecordsAddedCountVisitsOpenedAndPageHitsAtTheBatchEdge) {
  // The visit's first page and each page hit go through the page cache, whose batch is written
  // by its 5,000th page: 4,998 page hits stay just below that edge, 4,999 reach it.
  for (const int hits : {4998, 4999}) {
    App app("[Busy]\r\nTYPE=0\r\nFOLDER=logs/\r\nMASK=*.log\r\n");
    app.File("logs/ex020501.log", PageRun(hits));
    ASSERT_EQ(app.Run(), wizard::StartResult::Completed);
    const std::string& summary = app.window->Driver().Summary();
    EXPECT_NE(summary.find("\r\n1 visit records added."), std::string::npos) << summary;
    EXPECT_NE(summary.find("\r\n" + std::to_string(hits) + " page view records added."),
              std::string::npos)
        << summary;
    EXPECT_EQ(ReadTable(app.Data(), "Visits").size(), 1u);
    const auto pages = ReadTable(app.Data(), "Pages");
    if (hits == 4998) {
      // Below the edge the table holds the first page and one record per page hit.
      EXPECT_EQ(pages.size(), 1u + hits);
    } else {
      // At the edge the batch is written with its blank last record, the page that filled it
      // is not kept, and the first page goes out again with the next batch: the appends are
      // no longer the page hits, and the summary still says what was counted.
      EXPECT_EQ(Where(pages, "IP", "").size(), 1u);
      EXPECT_NE(pages.size(), 1u + hits);
    }
    EXPECT_EQ(tytest::TableDefects(app.Data(), 7), std::vector<std::string>{});
  }
}

}  // namespace
