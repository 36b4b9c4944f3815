// Visitor grouping through the DNS host masks, and hit variables that carry over from the
// previous hit when the log lacks their column.
#include <gtest/gtest.h>

#include "analysis/AnalysisTesting.h"

namespace analysis {
namespace {

using antest::Open;

const std::string kDay = "2026-11-20";

// A run with a time-out of 30 minutes and the host mask "*.proxy.example.net" in slot `slot`
// (slots before it empty). 10.0.0.2 is known in the DNS cache as b.proxy.example.net; an open
// visit of 10.0.0.1 at 09:00 has the host name a.proxy.example.net.
struct GroupRun : antest::Run {
  explicit GroupRun(int slot = 1) {
    world.settings.inactivityMins = 30;
    world.settings.dnsMasks[static_cast<size_t>(slot)] = "*.proxy.example.net";
    Restart();
    // A first visit of 10.0.0.2 leaves a visitor record, whose host name then becomes known.
    Hit(kDay, "08:00:00", "10.0.0.2", "/a.htm");
    VisitTable& t = hits->Visits();
    t.Mark(t.First());
    hits->RemoveInactive();
    f->UpdateDNS("10.0.0.2", "b.proxy.example.net");
    Hit(kDay, "09:00:00", "10.0.0.1", "/a.htm");
    t.SetHostName(t.First(), "a.proxy.example.net");
  }
};

TEST(VisitorGrouping, AVisitIdleLessThanHalfTheTimeOutIsContinuedThroughTheMask) {
  GroupRun run;
  run.Hit(kDay, "09:14:00", "10.0.0.2", "/b.htm");  // idle 14 minutes < 30 / 2
  ASSERT_EQ(run.hits->Visits().Count(), 1);
  const database::Visit& v = Open(run, 1);
  EXPECT_EQ(v.clientAddress, "10.0.0.1");
  EXPECT_EQ(v.groupMask, "*.proxy.example.net");
  EXPECT_EQ(v.pageCount, 2);
  EXPECT_EQ(v.currentPage, "b.htm");
  run.Close();
  const auto visits = run.Table("Visits");
  EXPECT_EQ(visits.size(), 2u);  // the 08:00 visit and the grouped one
}

TEST(VisitorGrouping, FifteenMinutesIdleOrAnEmptyFirstSlotOpensANewVisit) {
  {
    GroupRun run;
    run.Hit(kDay, "09:15:00", "10.0.0.2", "/b.htm");  // idle 15 minutes: not less than 15
    ASSERT_EQ(run.hits->Visits().Count(), 2);
    EXPECT_EQ(Open(run, 1).groupMask, "");
    EXPECT_EQ(Open(run, 2).clientAddress, "10.0.0.2");
  }
  {
    GroupRun run(2);  // slot 1 empty: the table of masks ends there
    run.Hit(kDay, "09:01:00", "10.0.0.2", "/b.htm");
    EXPECT_EQ(run.hits->Visits().Count(), 2);
  }
  {
    // Only the first visit that fits is looked at: when it is too idle, a later fitting visit
    // does not help.
    GroupRun run;
    run.Hit(kDay, "09:16:00", "10.0.0.3", "/a.htm");
    run.hits->Visits().SetHostName(run.hits->Visits().Nth(2), "c.proxy.example.net");
    run.Hit(kDay, "09:17:00", "10.0.0.2", "/b.htm");
    EXPECT_EQ(run.hits->Visits().Count(), 3);
  }
}

TEST(HitVariables, AColumnTheLogLacksKeepsThePreviousHitsValue) {
  antest::Run run;
  run.Hit(kDay, "10:00:00", "10.0.0.1", "/a.htm", 200, "Wget/1.0", "-", "HEAD");
  // From here the log names neither a method nor an agent nor a status.
  run.Fields(1, "date time c-ip cs-uri-stem");
  run.Hit("2026-11-20 10:01:00 10.0.0.2 /b.htm");
  ASSERT_EQ(run.hits->Visits().Count(), 2);
  const database::Visit& v = Open(run, 2);
  EXPECT_EQ(v.method, "HEAD");
  EXPECT_EQ(v.agent, "Wget/1.0");
  EXPECT_EQ(v.status, 200);
  EXPECT_EQ(v.browser, "Wget/1.0");
  // A log without agents ("-") takes the method as the browser code.
  run.Fields(1, "date time c-ip cs-method cs-uri-stem cs(User-Agent)");
  run.Hit("2026-11-20 10:02:00 10.0.0.3 POST /c.htm -");
  EXPECT_EQ(Open(run, 3).browser, "POST");
}

}  // namespace
}  // namespace analysis
