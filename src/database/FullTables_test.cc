// Tables that become full during a run (a lower size limit of their files, set through the
// run's inputs): one line each in errors.log, the other tables go on, and every table left
// behind is whole.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "database/TestDatabase.h"
#include "dbase/Checker.h"

using dbtest::At;
using dbtest::DbRun;
using dbtest::MakeVisit;
using dbtest::ReadTable;

namespace {

// The lines of errors.log that contain `text`.
std::vector<std::string> LogLines(const DbRun& run, const std::string& text) {
  std::vector<std::string> out;
  const std::string log = run.ErrorsLog();
  for (size_t at = 0; at < log.size();) {
    const size_t end = log.find("\r\n", at);
    const std::string line = log.substr(at, end == std::string::npos ? std::string::npos : end - at);
    if (line.find(text) != std::string::npos) out.push_back(line);
    at = end == std::string::npos ? log.size() : end + 2;
  }
  return out;
}

// The number of records a full table's line says it holds ("... it holds 1,234 records ...").
long HeldRecords(const std::string& line) {
  const size_t at = line.find("it holds ");
  if (at == std::string::npos) return -1;
  std::string digits;
  for (size_t i = at + 9; i < line.size() && line[i] != ' '; ++i)
    if (line[i] != ',') digits += line[i];
  return std::atol(digits.c_str());
}

// Every table in the folder passes the checker.
void ExpectEveryTableWhole(const std::string& folder) {
  int tables = 0;
  for (const auto& e : std::filesystem::directory_iterator(folder)) {
    if (e.path().extension() != ".DBF") continue;
    ++tables;
    const dbase::CheckReport report = dbase::CheckTable(e.path().string());
    EXPECT_TRUE(report.Ok()) << e.path() << ": "
                             << (report.defects.empty() ? "" : report.defects[0]);
  }
  EXPECT_EQ(tables, 7);
}

}  // namespace

TEST(FullTables, FullPagesLeaveOutPageViewsWhileVisitsAreStillRecordedAndEnded) {
  for (const bool background : {false, true}) {
    SCOPED_TRACE(background ? "writer thread" : "at once");
    DbRun run;
    run.world.app.tableSizeLimits["Pages"] = 50000;
    database::Database f(run.Inputs());
    ASSERT_TRUE(f.InitDatabase());
    f.WriteInBackground(background);
    f.SetCurrentSite("Alpha");
    // 600 visits of three pages each (the first cached with the visit): 1,800 page views, more
    // than the 439 records of 113 bytes that stay under 50,000 bytes.
    for (int i = 0; i < 600; ++i) {
      database::Visit v = MakeVisit("10.1." + std::to_string(i / 200) + "." + std::to_string(i % 200),
                                    At(9, i / 60, i % 60));
      f.UpdateVisitor(v);
      f.AddVisitToDatabase(v, "/entry.htm");
      for (int p = 2; p <= 3; ++p) {
        v.pageCount = static_cast<int16_t>(p);
        v.currentPage = "page" + std::to_string(p) + ".htm";
        f.AddPageToDatabase(v);
      }
      f.AddException(1, 404, v.startTime, v.currentPage, v.clientAddress, 1);
      f.UpdateVisitInDatabase(v);
    }
    f.CloseDatabase();
    ASSERT_TRUE(f.DatabaseReplaced()) << f.DatabaseFailure();

    // One line, under the page table's control, with the records kept and what to do.
    const auto lines = LogLines(run, "is full");
    ASSERT_EQ(lines.size(), 1u) << run.ErrorsLog();
    EXPECT_NE(lines[0].find("PAGES.DBF is full: it holds 439 records, and one more would take "
                            "it past 50,000 bytes"),
              std::string::npos)
        << lines[0];
    EXPECT_NE(lines[0].find("Scan fewer logs at once"), std::string::npos);
    EXPECT_TRUE(lines[0].ends_with(" FROM F.VAPG")) << lines[0];
    ASSERT_EQ(f.FullTables().size(), 1u);
    EXPECT_NE(lines[0].find(f.FullTables()[0]), std::string::npos);

    // The page table holds the number the line gives; every visit was recorded and ended, and
    // every exception kept.
    EXPECT_EQ(static_cast<long>(ReadTable(run.Data(), "Pages").size()), HeldRecords(lines[0]));
    const auto visits = ReadTable(run.Data(), "Visits");
    ASSERT_EQ(visits.size(), 600u);
    for (const auto& r : visits) {
      EXPECT_EQ(r.at("ACTIVE"), "N");
      EXPECT_EQ(r.at("LASTPAGE"), "page3.htm");
      EXPECT_EQ(r.at("PAGESSEEN"), "3");
    }
    EXPECT_EQ(ReadTable(run.Data(), "Exceptions").size(), 600u);
    EXPECT_EQ(ReadTable(run.Data(), "Visitor").size(), 600u);
    EXPECT_EQ(f.Totals().visitRecordsAdded, 600);
    EXPECT_EQ(f.Totals().pageRecordsAdded, 439);
    ExpectEveryTableWhole(run.Data());
  }
}

TEST(FullTables, AVisitRefusedByAFullTableIsNotEndedOnTheRecordOfAnotherVisit) {
  for (const bool background : {false, true}) {
    SCOPED_TRACE(background ? "writer thread" : "at once");
    DbRun run;
    // 8,000 bytes: "Visits" has room for 36 records, but its index for 19 only (two tags of one
    // leaf each; a 20th key would need a second leaf and a root).
    run.world.app.tableSizeLimits["Visits"] = 8000;
    database::Database f(run.Inputs());
    ASSERT_TRUE(f.InitDatabase());
    f.WriteInBackground(background);
    f.SetCurrentSite("Alpha");
    std::vector<database::Visit> started;
    for (int i = 0; i < 24; ++i) {
      started.push_back(MakeVisit("10.2.0." + std::to_string(i), At(10, 0, i)));
      f.AddVisitToDatabase(started.back(), "/in.htm");
    }
    // A visit with the key of the first one (address, day and number), after the table filled.
    started.push_back(MakeVisit("10.2.0.0", At(10, 5, 0)));
    f.AddVisitToDatabase(started.back(), "/again.htm");
    for (database::Visit& v : started) {
      v.currentPage = "out" + std::to_string(&v - started.data()) + ".htm";
      v.lastHitTime = v.startTime + 30 / 86400.0;
      f.UpdateVisitInDatabase(v);
    }
    f.CloseDatabase();
    ASSERT_TRUE(f.DatabaseReplaced());

    const auto lines = LogLines(run, "is full");
    ASSERT_EQ(lines.size(), 1u) << run.ErrorsLog();
    EXPECT_NE(lines[0].find("VISITS.DBF is full: it holds 19 records, and one more could take "
                            "its index VISITS.MDX past 8,000 bytes"),
              std::string::npos)
        << lines[0];
    EXPECT_TRUE(lines[0].ends_with(" FROM F.VAVISITS")) << lines[0];
    const auto visits = ReadTable(run.Data(), "Visits");
    ASSERT_EQ(static_cast<long>(visits.size()), HeldRecords(lines[0]));
    for (size_t i = 0; i < visits.size(); ++i)
      EXPECT_EQ(visits[i].at("LASTPAGE"), "out" + std::to_string(i) + ".htm");
    EXPECT_LE(std::filesystem::file_size(std::filesystem::path(run.Data()) / "VISITS.MDX"), 8000u);
    // The pages of every visit are there, those of the refused ones too.
    EXPECT_EQ(ReadTable(run.Data(), "Pages").size(), 25u);
    ExpectEveryTableWhole(run.Data());
  }
}
