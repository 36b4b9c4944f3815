// A reset visit record must be indistinguishable from a new one: a visit table hands reset
// records to new visits, so a field that kept its old value would leak into the next visit.
#include "database/Visit.h"

#include <gtest/gtest.h>

namespace database {
namespace {

TEST(Visit, ResetGivesANewVisitAndKeepsTextBuffers) {
  const std::string longText(100, 'x');
  Visit v;
  for (std::string* text : {&v.clientAddress, &v.hostName, &v.groupMask, &v.friendlyName,
                            &v.referrer, &v.browser, &v.agent, &v.currentPage, &v.query,
                            &v.method, &v.visitorKey, &v.spiderName, &v.userName,
                            &v.countryCode, &v.countryName})
    *text = longText;
  v.siteIndex = 3;
  v.status = 404;
  v.processedAt = 1.5;
  v.lastHitTime = 2.5;
  v.lastPageTime = 3.5;
  v.startTime = 4.5;
  v.ended = true;
  v.visitNumber = 7;
  v.pageCount = 8;
  v.notFoundCount = 9;
  v.hackScore = 10;
  v.spider = true;
  v.visitorVisits = 11;
  v.alert = true;
  v.alertNumber = 12;
  v.hackRaised = true;
  v.firstVisitTime = 5.5;
  v.hackCount = 13;
  v.dnsRequest = 14;
  v.resolved = true;
  v.pagesAlertRaised = true;
  v.durationAlertRaised = true;
  v.visitsTicket = 15;
  ASSERT_FALSE(v == Visit{});

  const char* agentBuffer = v.agent.data();
  v.Reset();
  EXPECT_TRUE(v == Visit{});
  EXPECT_EQ(v.agent.data(), agentBuffer);  // the buffer is kept for the next visit
  EXPECT_GE(v.agent.capacity(), longText.size());
}

}  // namespace
}  // namespace database
