// Two days of a small hand-made W3C log, read by the real log reader and processed end to end;
// every table the hit processing fills is compared with what the log must give, field by field.
#include <gtest/gtest.h>

#include "analysis/AnalysisTesting.h"
#include "loginput/ScanHooks.h"
#include "loginput/ScanLogFile.h"
#include "FakeFrontend.h"

namespace analysis {
namespace {

using antest::Open;

using antest::Record;

// The log reader's hooks, passed on to the hit processing as the scan driver does.
class Hooks : public loginput::ScanHooks {
 public:
  explicit Hooks(antest::Run& run) : run_(run) {}
  void ProcessHit(std::string_view line, int site) override {
    const loginput::SiteReadState& s = run_.input.Site(site);
    LineContext ctx{run_.input.fieldMap, s.separator, s.noSpiderCheck, s.currentFileDate};
    run_.hits->ProcessHit(line, static_cast<int16_t>(site), ctx, run_.input.hits);
  }
  bool DnsEnabled() override { return false; }
  int DnsPending() override { return 0; }
  void DnsWait() override {}
  void WriteDaySummary(int site) override { run_.hits->WriteDaySummary(static_cast<int16_t>(site)); }
  void UpdateFileProgress(int32_t) override {}
  vb::Date CurrentLogDate() override { return run_.hits->Counters().currentLogDate; }
  void SetCurrentLogDate(vb::Date d) override { run_.hits->Counters().currentLogDate = d; }
  vb::Date DaySummaryDate() override { return run_.hits->LastHitDate(); }

 private:
  antest::Run& run_;
};

// Compares `rows` with `expected`, whose columns are named by `columns`: the same number of
// records, in record order, each field equal. The columns must name every field of the table but
// "RECORDNO" (never written), so that nothing goes unchecked.
void ExpectTable(const std::vector<Record>& rows, const std::vector<std::string>& columns,
                 const std::vector<std::vector<std::string>>& expected) {
  ASSERT_EQ(rows.size(), expected.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].size(), columns.size() + 1) << "record " << i + 1;
    for (size_t c = 0; c < columns.size(); ++c) {
      auto it = rows[i].find(columns[c]);
      ASSERT_NE(it, rows[i].end()) << columns[c];
      EXPECT_EQ(it->second, expected[i][c]) << "record " << i + 1 << " field " << columns[c];
    }
  }
}

// What the log holds (time-out 20 minutes, built-in thresholds):
//  20th  10.1.1.1  09:00 default.htm (Google referrer), a gif and a reload (not counted),
//                  products.htm, download/setup.exe (150 + download), 09:09 products.htm again
//                  (134: the download page was viewed for 6 minutes);
//        10.2.2.2  Netscape, index.htm, then missing.htm answered 404;
//        192.168.0.5  the search engine's robot asks for robots.txt (a spider, not learnt);
//        10.9.9.9  the product's own probe: dropped;
//        10.1.1.1  09:40, 31 minutes after its last hit: a second visit;
//        10.4.4.4  Opera at 23:58, and on past midnight (00:03) in the same visit;
//  21st  10.5.5.5  00:10 with a referrer from another site.
//  File 2 starts with "#Date: 2026-11-21 08:00:00": its first hit sweeps every visit idle for
//  more than 20 minutes before that date; then 10.6.6.6 asks for go.bat (152) and 10.5.5.5
//  comes back (a second visit, still open when the run ends).
TEST(HandMadeLog, TwoDaysOfAW3cLogGiveTheseTables) {
  antest::Run run;
  ASSERT_TRUE(run.ok);
  tytest::FakeFrontend ui;
  Hooks hooks(run);
  const auto dir = tytest::SourceDir() / "testdata" / "analysis";
  for (const char* file : {"ex261120.log", "ex261121.log"}) {
    run.world.site(1).lastLogFile = (dir / file).string();
    run.hits->StartFile();
    loginput::ScanLogFile(run.world, ui, run.input, hooks, 1);
  }
  EXPECT_TRUE(ui.messages.empty());
  EXPECT_EQ(run.hits->Counters().totals.visitsOpened, 8);
  EXPECT_EQ(run.hits->Counters().totals.pageHits, 14);
  // The two visits still open at the end stay in the table (and "Active" in "Visits").
  ASSERT_EQ(run.hits->Visits().Count(), 2);
  EXPECT_EQ(Open(run, 2).currentPage, "contact.htm");
  EXPECT_EQ(run.hits->Counters().Site(1).visitorTotal, 2);
  run.Close();

  // Visits: closed visits were written back at their time-out or sweep ("MinsOn" 0:60 is exactly
  // one minute); the two open ones keep what their first hit wrote.
  // Pages: every visit also records its first page as the visit stood before the page was
  // counted (page "", number 0000), then one record per counted page.
  // Referrers: the log's "-" for no referrer is a referrer of its own.
  // DaySum: the 21st, first written at the end of file 1 with one visitor, is overwritten at the
  // end of file 2 with the counts since then.
  // clang-format off
  ExpectTable(run.Table("Visits"),
              {"IP", "VISITNO", "VISITDATE", "VISITTIME", "FIRSTPAGE", "LASTPAGE", "PAGESSEEN", "MINSON", "ACTIVE", "BROWSER", "SPIDER", "SPIDERT", "REFERRER", "HACKRAISED", "FLAGS", "ALERT", "ALERTNO", "SITE"},
              {
                  {"10.1.1.1", "00001", "20261120", "09:00:00", "default.htm", "products.htm", "4", "9:00", "N", "6IE", "N", "", "http://www.google.com", "N", "NN", "N", "0", "Alpha"},
                  {"10.2.2.2", "00001", "20261120", "09:05:00", "index.htm", "missing.htm", "2", "0:60", "N", "4NS", "N", "", "-", "N", "NN", "N", "0", "Alpha"},
                  {"192.168.0.5", "00001", "20261120", "09:10:00", "robots.txt", "robots.txt", "1", "0:00", "N", "Googl", "Y", "Google", "-", "N", "NN", "N", "0", "Alpha"},
                  {"10.1.1.1", "00002", "20261120", "09:40:00", "default.htm", "default.htm", "1", "0:00", "N", "6IE", "N", "", "-", "N", "NN", "N", "0", "Alpha"},
                  {"10.4.4.4", "00001", "20261120", "23:58:00", "index.htm", "about.htm", "2", "5:00", "N", "OP", "N", "", "-", "N", "NN", "N", "0", "Alpha"},
                  {"10.5.5.5", "00001", "20261121", "00:10:00", "index.htm", "index.htm", "1", "0:00", "N", "5IE", "N", "", "http://www.example.org", "N", "NN", "N", "0", "Alpha"},
                  {"10.6.6.6", "00001", "20261121", "08:00:00", "go.bat", "go.bat", "1", "", "Y", "6IE", "N", "", "-", "", "", "N", "0", "Alpha"},
                  {"10.5.5.5", "00002", "20261121", "08:01:00", "index.htm", "index.htm", "1", "", "Y", "5IE", "N", "", "-", "", "", "N", "0", "Alpha"},
              });
  ExpectTable(run.Table("Pages"),
              {"IP", "VISITNO", "PAGENO", "PAGE", "PAGEDATE", "PAGETIME", "STATUS", "SITE"},
              {
                  {"10.1.1.1", "00001", "0000", "", "20261120", "09:00:00", "0", "Alpha"},
                  {"10.1.1.1", "00001", "0001", "default.htm", "20261120", "09:00:00", "200", "Alpha"},
                  {"10.1.1.1", "00001", "0002", "products.htm", "20261120", "09:02:00", "200", "Alpha"},
                  {"10.1.1.1", "00001", "0003", "download/setup.exe", "20261120", "09:03:00", "200", "Alpha"},
                  {"10.2.2.2", "00001", "0000", "", "20261120", "09:05:00", "0", "Alpha"},
                  {"10.2.2.2", "00001", "0001", "index.htm", "20261120", "09:05:00", "200", "Alpha"},
                  {"10.2.2.2", "00001", "0002", "missing.htm", "20261120", "09:06:00", "404", "Alpha"},
                  {"10.1.1.1", "00001", "0004", "products.htm", "20261120", "09:09:00", "200", "Alpha"},
                  {"192.168.0.5", "00001", "0000", "", "20261120", "09:10:00", "0", "Alpha"},
                  {"192.168.0.5", "00001", "0001", "robots.txt", "20261120", "09:10:00", "200", "Alpha"},
                  {"10.1.1.1", "00002", "0000", "", "20261120", "09:40:00", "0", "Alpha"},
                  {"10.1.1.1", "00002", "0001", "default.htm", "20261120", "09:40:00", "200", "Alpha"},
                  {"10.4.4.4", "00001", "0000", "", "20261120", "23:58:00", "0", "Alpha"},
                  {"10.4.4.4", "00001", "0001", "index.htm", "20261120", "23:58:00", "200", "Alpha"},
                  {"10.4.4.4", "00001", "0002", "about.htm", "20261121", "00:03:00", "200", "Alpha"},
                  {"10.5.5.5", "00001", "0000", "", "20261121", "00:10:00", "0", "Alpha"},
                  {"10.5.5.5", "00001", "0001", "index.htm", "20261121", "00:10:00", "200", "Alpha"},
                  {"10.6.6.6", "00001", "0000", "", "20261121", "08:00:00", "0", "Alpha"},
                  {"10.6.6.6", "00001", "0001", "go.bat", "20261121", "08:00:00", "200", "Alpha"},
                  {"10.5.5.5", "00002", "0000", "", "20261121", "08:01:00", "0", "Alpha"},
                  {"10.5.5.5", "00002", "0001", "index.htm", "20261121", "08:01:00", "200", "Alpha"},
                  {"10.5.5.5", "00002", "0002", "contact.htm", "20261121", "08:02:00", "200", "Alpha"},
              });
  ExpectTable(run.Table("Visitor"),
              {"IP", "VISITS", "FIRSTVDATE", "FIRSTVTIME", "LASTVDATE", "LASTVTIME", "BROWSER", "SPIDER", "SPIDERT", "DNS", "NAME", "COUNTRY", "HACKCOUNT", "FLAGS", "SITE"},
              {
                  {"10.1.1.1", "2", "20261120", "09:00:00", "20261120", "09:40:00", "6IE", "N", "", "10.1.1.1", "", "", "0", "", "Alpha"},
                  {"10.2.2.2", "1", "20261120", "09:05:00", "20261120", "09:05:00", "4NS", "N", "", "10.2.2.2", "", "", "0", "", "Alpha"},
                  {"192.168.0.5", "1", "20261120", "09:10:00", "20261120", "09:10:00", "Googl", "Y", "Google", "192.168.0.5", "", "", "0", "", "Alpha"},
                  {"10.4.4.4", "1", "20261120", "23:58:00", "20261120", "23:58:00", "OP", "N", "", "10.4.4.4", "", "", "0", "", "Alpha"},
                  {"10.5.5.5", "2", "20261121", "00:10:00", "20261121", "08:01:00", "5IE", "N", "", "10.5.5.5", "", "", "0", "", "Alpha"},
                  {"10.6.6.6", "1", "20261121", "08:00:00", "20261121", "08:00:00", "6IE", "N", "", "10.6.6.6", "", "", "0", "", "Alpha"},
              });
  ExpectTable(run.Table("Referrers"),
              {"NAME", "VISITS", "FIRSTVDATE", "FIRSTVTIME", "LASTVDATE", "LASTVTIME", "SITE"},
              {
                  {"http://www.google.com", "1", "20261120", "09:00:00", "20261120", "09:00:00", "Alpha"},
                  {"-", "6", "20261120", "09:05:00", "20261121", "08:01:00", "Alpha"},
                  {"http://www.example.org", "1", "20261121", "00:10:00", "20261121", "00:10:00", "Alpha"},
              });
  ExpectTable(run.Table("Downloads"),
              {"IP", "VISITNO", "VISITDATE", "VISITTIME", "DOWNLOAD", "STATUS", "SITE"},
              {
                  {"10.1.1.1", "00001", "20261120", "09:03:00", "setup.exe", "200", "Alpha"},
              });
  ExpectTable(run.Table("DaySum"),
              {"SITE", "DATED", "VISITORS", "ALERTS", "SPIDERS", "EXCEPTIONS", "DOWNLOADS"},
              {
                  {"Alpha", "20261120", "5", "0", "1", "3", "1"},
                  {"Alpha", "20261121", "2", "0", "0", "1", "0"},
              });
  ExpectTable(run.Table("Exceptions"),
              {"SITE", "EXDATE", "EXTIME", "NUMBER", "VALUE", "IP", "VISITNO"},
              {
                  {"Alpha", "20261120", "09:03:00", "150", "download/setup.exe", "10.1.1.1", "1"},
                  {"Alpha", "20261120", "09:06:00", "404", "missing.htm", "10.2.2.2", "1"},
                  {"Alpha", "20261120", "09:09:00", "134", "download/setup.exe", "10.1.1.1", "1"},
                  {"Alpha", "20261121", "08:00:00", "152", "go.bat", "10.6.6.6", "1"},
              });
  // clang-format on
}

}  // namespace
}  // namespace analysis
