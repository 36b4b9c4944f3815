// Alert definitions against newly opened visits.
#include "analysis/AlertMatching.h"

#include <gtest/gtest.h>

#include "analysis/AnalysisTesting.h"

namespace analysis {
namespace {

startup::Alert& AddDefinition(startup::World& w, int16_t site, int16_t number) {
  startup::Alert a;
  a.site = site;
  a.number = number;
  w.alerts.push_back(a);
  ++w.alertCount;
  return w.alerts.back();
}

template <size_t N>
void Fill(std::array<std::string, N>& list, int16_t& count, std::vector<std::string> entries) {
  for (auto& e : entries) list[static_cast<size_t>(++count)] = e;
}

database::Visit VisitFrom(const std::string& address, const std::string& host,
                          const std::string& referrer) {
  database::Visit v;
  v.siteIndex = 1;
  v.clientAddress = address;
  v.hostName = host;
  v.referrer = referrer;
  return v;
}

TEST(MatchAlert, EngineCriterionIsRequiredUnlessAllEnginesAndDnsFallsBackToTheAddress) {
  platform::FixedClock clock(0);
  startup::World w(clock);
  startup::Alert& a = AddDefinition(w, 1, 7);
  Fill(a.dnsList, a.dnsCount, {"*.dialup.*"});
  const auto dialup = VisitFrom("1.2.3.4", "ppp1.dialup.example.net", "");
  EXPECT_EQ(MatchAlert(w, 1, dialup), 0);  // no engine list, no all-engines flag: never
  w.alerts[1].allEngines = true;
  EXPECT_EQ(MatchAlert(w, 1, dialup), 1);
  EXPECT_EQ(MatchAlert(w, 1, VisitFrom("1.2.3.4", "host.example.net", "")), 0);
  EXPECT_EQ(MatchAlert(w, 1, VisitFrom("10.dialup.1", "host.example.net", "")), 1);  // address
  // Another site's definition, or a disabled one, is never tried.
  EXPECT_EQ(MatchAlert(w, 2, dialup), 0);
  w.alerts[1].enabled = false;
  EXPECT_EQ(MatchAlert(w, 1, dialup), 0);
}

TEST(MatchAlert, EnginesAndSearchWordsFromTheReferrer) {
  platform::FixedClock clock(0);
  startup::World w(clock);
  startup::Alert& first = AddDefinition(w, 1, 3);
  Fill(first.engineList, first.engineCount, {".google."});
  Fill(first.wordList, first.wordCount, {"cheap"});
  const auto cheap =
      VisitFrom("1.1.1.1", "1.1.1.1", "http://www.Google.com/search?q=cheap+flights");
  EXPECT_EQ(MatchAlert(w, 1, cheap), 1);
  // The last word has no blank after it; the k-th word is searched from position k.
  w.alerts[1].wordList[1] = "flights";
  EXPECT_EQ(MatchAlert(w, 1, cheap), 0);
  w.alerts[1].wordList[1] = "x";
  Fill(w.alerts[1].wordList, w.alerts[1].wordCount, {"q"});
  EXPECT_EQ(MatchAlert(w, 1, cheap), 1);  // "q " is found after position 2 ("?q=" cleans to " q ")
  EXPECT_EQ(MatchAlert(w, 1, VisitFrom("1.1.1.1", "", "http://www.google.com/q ")), 0);  // no "?"
  // Two definitions that match: the earlier one in the list wins.
  startup::Alert& second = AddDefinition(w, 1, 9);
  second.allEngines = true;
  EXPECT_EQ(MatchAlert(w, 1, cheap), 1);
  w.alerts[1].enabled = false;
  EXPECT_EQ(MatchAlert(w, 1, cheap), 2);
}

TEST(MatchAlert, AMatchingVisitIsFlaggedAndCountedAndSpidersAreNotMatched) {
  antest::Run run;
  startup::Alert& a = AddDefinition(run.world, 1, 4);
  a.allEngines = true;
  Fill(a.dnsList, a.dnsCount, {"10.0.0.*"});
  run.Hit("2026-11-20", "10:00:00", "10.0.0.1", "/a.htm");
  run.Hit("2026-11-20", "10:00:00", "10.0.0.2", "/a.htm", 200, "Googlebot/2.1");
  run.Hit("2026-11-20", "10:00:00", "192.168.0.1", "/a.htm");
  EXPECT_EQ(run.hits->Counters().Site(1).today.alerts, 1);
  run.hits->EndOfFile(1);
  run.Close();
  const auto visits = run.Table("Visits");
  ASSERT_EQ(visits.size(), 3u);
  EXPECT_EQ(visits[0].at("ALERT"), "Y");
  EXPECT_EQ(visits[0].at("ALERTNO"), "4");
  EXPECT_EQ(visits[1].at("ALERT"), "N");
  EXPECT_EQ(visits[2].at("ALERT"), "N");
  EXPECT_EQ(run.Table("DaySum").at(0).at("ALERTS"), "1");
}

}  // namespace
}  // namespace analysis
