// The fixed log layouts (TYPE 2, 3 and 5) through the hit processing, and lines that are not log
// lines at all.
#include <gtest/gtest.h>

#include "analysis/AnalysisTesting.h"
#include "loginput/ScanLogFile.h"

namespace analysis {
namespace {

using antest::At;
using antest::Open;

// Prepares site 1 of `run` as the log reader does for its TYPE.
void Prepare(antest::Run& run) {
  loginput::PrepareFormat(run.world.site(1).type, run.input.Site(1), run.input.fieldMap);
}

TEST(LogTypes, CombinedLogHomePageZoneOffsetAndQuotes) {
  antest::Run run(1, startup::LogLayout::Combined);
  run.world.site(1).homePage = "index.html";
  Prepare(run);
  run.Hit("10.0.0.1 - - [20/Nov/2026:10:00:00 +0100] \"GET / HTTP/1.0\" 200 123 "
          "\"http://ref.example.com/x/y.htm\" \"Mozilla/4.7+[en]+(X11)\"");
  ASSERT_EQ(run.hits->Visits().Count(), 1);
  const database::Visit& v = Open(run, 1);
  EXPECT_EQ(v.currentPage, "index.html");
  EXPECT_EQ(v.startTime, At(2026, 11, 20, 11, 0));  // +0100 added to the logged time
  EXPECT_EQ(v.agent, "Mozilla/4.7+[en]+(X11)");
  EXPECT_EQ(v.browser, "4NS");
  EXPECT_EQ(v.referrer, "http://ref.example.com/x/y.htm");
  run.Close();
  const auto visits = run.Table("Visits");
  ASSERT_EQ(visits.size(), 1u);
  EXPECT_EQ(visits[0].at("REFERRER"), "http://ref.example.com");
  EXPECT_EQ(visits[0].at("VISITTIME"), "11:00:00");
}

TEST(LogTypes, CommaLogSplitsTheQueryOffThePageAndSkipsSpiderDetection) {
  antest::Run run(1, startup::LogLayout::CommaLong);
  Prepare(run);
  // Places: 0 address, 1 user, 2 agent, 4 date (m/d/y), 5 time, 18 page.
  std::vector<std::string> f(22, "x");
  f[0] = "10.0.0.7";
  f[1] = "alice";
  f[2] = "Googlebot/2.1";
  f[4] = "11/20/2026";
  f[5] = "10:00:00";
  f[18] = "/shop/cart.asp?item=5";
  std::string line;
  for (size_t i = 0; i < f.size(); ++i) line += (i ? "," : "") + f[i];
  run.Hit(line);
  ASSERT_EQ(run.hits->Visits().Count(), 1);
  const database::Visit& v = Open(run, 1);
  EXPECT_EQ(v.currentPage, "shop/cart.asp");
  EXPECT_EQ(v.query, "?item=5");
  EXPECT_EQ(v.userName, "alice");
  EXPECT_FALSE(v.spider);  // this layout never runs spider detection
  EXPECT_EQ(v.startTime, At(2026, 11, 20, 10, 0));
}

TEST(LogTypes, TabLogTakesTheReferrerFromTheRequestAndTheQueryOnlyWhenAskedFor) {
  antest::Run run(1, startup::LogLayout::TabSeparated);
  Prepare(run);
  run.Fields(1, "DATE TIME C-IP CS-URI SC-STATUS C-AGENT");
  run.Hit("2026-11-20\t10:00:00\t10.0.0.1\thttp://www.example.com/dir/page.htm?x=1\t200\tWget/1.0");
  ASSERT_EQ(run.hits->Visits().Count(), 1);
  EXPECT_EQ(Open(run, 1).currentPage, "page.htm");
  EXPECT_EQ(Open(run, 1).query, "");  // INCLUDEQUERY is off
  EXPECT_EQ(Open(run, 1).referrer, "http://www.example.com/dir/");
  run.world.site(1).includeQuery = true;
  run.Hit("2026-11-20\t10:01:00\t10.0.0.1\thttp://www.example.com/dir/next.htm?y=22\t200\t"
          "Wget/1.0");
  EXPECT_EQ(Open(run, 1).currentPage, "next.htm");
  EXPECT_EQ(Open(run, 1).query, "?y=22");
}

TEST(LogTypes, LinesThatAreNotLogLinesChangeNothingAndTheRunGoesOn) {
  antest::Run run;
  const std::string binary("\x00\x01\xff\xfe garbage \x7f", 14);
  for (const std::string& line :
       {std::string(), std::string("     "), binary, std::string(1 << 20, 'x'),
        std::string("2026-11-20 10:00:00"), std::string("2026-13-45 99:99:99 1.2.3.4 - GET"),
        std::string("2026-11-20 10:00:00 10.0.0.1 - GET /a.htm\x01.x - 200 x -"),
        std::string("\t,\t,\t,\t,\t,\t,\t,\t,\t,\t,\t,\t,")})
    run.Hit(line);
  // A site index outside the list is ignored.
  run.Hit("2026-11-20 10:00:00 10.0.0.9 - GET /a.htm - 200 x -", 0);
  run.Hit("2026-11-20 10:00:00 10.0.0.9 - GET /a.htm - 200 x -", 99);
  EXPECT_EQ(run.hits->Visits().Count(), 0);
  // The next real line is processed as usual.
  run.Hit("2026-11-20", "10:05:00", "10.0.0.2", "/a.htm");
  ASSERT_EQ(run.hits->Visits().Count(), 1);
  EXPECT_EQ(Open(run, 1).startTime, At(2026, 11, 20, 10, 5));
  // A page far longer than its field is kept whole in the visit and cut in the tables.
  run.Hit("2026-11-20 10:06:00 10.0.0.2 - GET /" + std::string(5000, 'a') + ".htm - 200 x -");
  EXPECT_EQ(Open(run, 1).currentPage.size(), 5004u);
  run.Close();
  const auto visits = run.Table("Visits");
  ASSERT_EQ(visits.size(), 1u);
  EXPECT_EQ(visits[0].at("FIRSTPAGE"), "a.htm");
  EXPECT_EQ(run.Table("Pages").back().at("PAGE"), std::string(40, 'a'));
  EXPECT_TRUE(run.Table("Exceptions").empty());
}

}  // namespace
}  // namespace analysis
