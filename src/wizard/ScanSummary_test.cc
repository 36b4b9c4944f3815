// The end-of-run message: its time forms, its rate, its DNS variant and its roundings.
#include "wizard/ScanSummary.h"

#include <gtest/gtest.h>

namespace wizard {
namespace {

database::RunTotals Totals(int32_t visits, int32_t pages, int32_t exceptions) {
  database::RunTotals t;
  t.visitRecordsAdded = visits;
  t.pageRecordsAdded = pages;
  t.exceptionRecordsAdded = exceptions;
  return t;
}

TEST(ScanSummary, ShortRunReadsZeroSecondsAndARateOfZero) {
  // Under half a second the rounded time is 0: the rate's division fails and leaves 0.
  EXPECT_EQ(ScanSummaryText(0.4f, 1234, false, Totals(5, 60, 0)),
            "Scan Complete. \r\n\r\nScanned 1234 lines in 0 Seconds\r\n0 lines per second."
            "\r\n\r\n5 visit records added.\r\n60 page view records added.\r\n"
            "0 exception records added.\r\n");
  EXPECT_EQ(LinesPerSecond(1234, 0.5f), 0);  // 0.5 rounds to 0 (half to even)
  EXPECT_EQ(LinesPerSecond(1234, 0.6f), 1234);
}

TEST(ScanSummary, MinutesFormHasOnlyTheSignBlankBeforeTheSeconds) {
  EXPECT_EQ(SummaryTimeText(125.0f), " 2 Minutes 5 seconds");
  EXPECT_EQ(SummaryTimeText(120.0f), " 2 Minutes 0 seconds");  // a whole minute
  EXPECT_EQ(SummaryTimeText(60.0f), " 1 Minutes 0 seconds");
  EXPECT_EQ(SummaryTimeText(59.4f), " 59 Seconds");
  // 119.6 rounds to 120 s = 2 minutes; the seconds are 119.6 - 120 rounded: 0.
  EXPECT_EQ(SummaryTimeText(119.6f), " 2 Minutes 0 seconds");
  EXPECT_EQ(ScanSummaryText(3725.0f, 1000000, false, Totals(0, 0, 0)),
            "Scan Complete. \r\n\r\nScanned 1000000 lines in 62 Minutes 5 seconds\r\n"
            "268 lines per second.\r\n\r\n0 visit records added.\r\n"
            "0 page view records added.\r\n0 exception records added.\r\n");
}

TEST(ScanSummary, RoundingIsHalfToEven) {
  EXPECT_EQ(SummaryTimeText(2.5f), " 2 Seconds");
  EXPECT_EQ(SummaryTimeText(3.5f), " 4 Seconds");
  EXPECT_EQ(LinesPerSecond(1000, 2.5f), 500);  // divided by 2
  EXPECT_EQ(LinesPerSecond(1000, 3.5f), 250);  // divided by 4
  EXPECT_EQ(LinesPerSecond(1000, 3.0f), 333);  // integer division
}

TEST(ScanSummary, DnsRunShowsNeitherTimeNorRate) {
  EXPECT_EQ(ScanSummaryText(500.0f, 42, true, Totals(3, 7, 1)),
            "Scan Complete. \r\n\r\nScanned 42 lines.\r\n\r\n3 visit records added.\r\n"
            "7 page view records added.\r\n1 exception records added.\r\n");
}

TEST(ScanSummary, RunPastMidnightIsShownAsComputed) {
  // The timer restarts at midnight: the elapsed time is negative and far below 16 bits, so the
  // time text is lost; the rate is the (truncated) division by a negative number.
  EXPECT_EQ(SummaryTimeText(-86390.0f), "");
  EXPECT_EQ(SummaryTimeText(-3.0f), "-3 Seconds");
  EXPECT_EQ(LinesPerSecond(1000, -10.0f), -100);
  EXPECT_NE(ScanSummaryText(-86390.0f, 5, false, Totals(0, 0, 0)).find("lines in\r\n0 lines"),
            std::string::npos);
}

}  // namespace
}  // namespace wizard
