// Tests of date and number formatting and of the allocation-free writers.
#include "vb/Format.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace vb {
namespace {

TEST(FormatDate, WritesTheFormsUsedForRecordsAndLogs) {
  const Date d = DateSerial(2026, 11, 6) + TimeSerial(2, 3, 4);
  EXPECT_EQ(FormatDate(d, "hh:mm:ss"), "02:03:04");
  EXPECT_EQ(FormatDate(d, "yyyymmdd"), "20261106");
  EXPECT_EQ(FormatDate(d, "dd/mm/yyyy"), "06/11/2026");
  EXPECT_EQ(FormatDate(d, "dd/mm/yyyy hh:mm:ss"), "06/11/2026 02:03:04");
  EXPECT_EQ(FormatDate(d, "yyyy-mm-dd"), "2026-11-06");
  EXPECT_EQ(FormatDate(d, "yyyy-mm-dd hh:mm:ss"), "2026-11-06 02:03:04");
  EXPECT_EQ(FormatDate(d, "d mmm yy"), "6 Nov 26");
  EXPECT_EQ(FormatDate(d, "dddd, mmmm d"), "Friday, November 6");
  EXPECT_EQ(FormatDate(d, "h:nn AM/PM"), "2:03 AM");
  EXPECT_EQ(FormatDate(d + 0.5, "hh:mm am/pm"), "02:03 pm");
  EXPECT_EQ(FormatDate(d, "mm:ss"), "03:04");  // before seconds "mm" is minutes
  EXPECT_EQ(FormatDate(d, "\"at\" hh\\h"), "at 02h");
  // Rounded to the second before formatting: no "60" seconds, the day rolls over.
  EXPECT_EQ(FormatDate(DateSerial(2026, 12, 31) + 86399.7 / 86400, "yyyymmdd hh:mm:ss"),
            "20270101 00:00:00");
}

TEST(FormatNumber, FollowsPlaceholderRules) {
  EXPECT_EQ(FormatNumber(42, "00000"), "00042");
  EXPECT_EQ(FormatNumber(123456, "00000"), "123456");  // wider values show every digit
  EXPECT_EQ(FormatNumber(7, "0000"), "0007");
  EXPECT_EQ(FormatNumber(0, "###"), "");
  EXPECT_EQ(FormatNumber(0.4, "###"), "");
  EXPECT_EQ(FormatNumber(0.5, "###"), "1");            // half away from zero
  EXPECT_EQ(FormatNumber(2.5, "###"), "3");
  EXPECT_EQ(FormatNumber(10.001, "###"), "10");
  EXPECT_EQ(FormatNumber(12345, "###"), "12345");
  EXPECT_EQ(FormatNumber(0.5, "###.00"), ".50");
  EXPECT_EQ(FormatNumber(1.000001, "###.00"), "1.00");
  EXPECT_EQ(FormatNumber(2.675, "###.00"), "2.68");    // decimal, not binary, halves
  EXPECT_EQ(FormatNumber(0.125, "0.00"), "0.13");
  EXPECT_EQ(FormatNumber(9.999, "0.00"), "10.00");
  EXPECT_EQ(FormatNumber(0.005, "0.00"), "0.01");
  EXPECT_EQ(FormatNumber(1, "#.##"), "1.");            // the point stays
  EXPECT_EQ(FormatNumber(1.5, "#.##"), "1.5");
  EXPECT_EQ(FormatNumber(1234567.891, "#,##0.00"), "1,234,567.89");
  EXPECT_EQ(FormatNumber(-5, "00000"), "-00005");
  EXPECT_EQ(FormatNumber(-0.001, "0.00"), "0.00");     // no sign on a value that rounds to 0
  EXPECT_EQ(FormatNumber(-5, "0;(0)"), "(5)");
  EXPECT_EQ(FormatNumber(0, "0;(0);\"zero\""), "zero");
  EXPECT_EQ(FormatNumber(0.256, "0.0%"), "25.6%");
  EXPECT_EQ(FormatNumber(5, "\"No \"0"), "No 5");
  EXPECT_EQ(FormatNumber(1.5, ""), "1.5");
  EXPECT_EQ(FormatNumber(3, "Fixed"), "3.00");
}

TEST(Str, LeavesRoomForTheSignAndDropsTheLeadingZero) {
  EXPECT_EQ(Str(5), " 5");
  EXPECT_EQ(Str(-5), "-5");
  EXPECT_EQ(Str(0), " 0");
  EXPECT_EQ(Str(0.5), " .5");
  EXPECT_EQ(Str(-0.5), "-.5");
  EXPECT_EQ(Str(1.5), " 1.5");
  EXPECT_EQ(Str(10000), " 10000");
  EXPECT_EQ(Str(0.1 + 0.2), " .3");                    // 15 significant digits
  EXPECT_EQ(Str(1.0 / 3), " .333333333333333");
  EXPECT_EQ(Str(123456789012345.0), " 123456789012345");
  EXPECT_EQ(Str(1e15), " 1E+15");
  EXPECT_EQ(Str(0.0001), " .0001");
  EXPECT_EQ(Str(0.00001), " 1E-05");
  EXPECT_EQ(Str(-2.5e-7), "-2.5E-07");
  EXPECT_EQ(CStr(150), "150");
}

TEST(FormatTo, WritesFixedWidthTextWithoutTerminator) {
  char buf[10];
  std::memset(buf, '*', sizeof buf);
  const Date d = DateSerial(2026, 1, 2) + TimeSerial(3, 4, 5);
  FormatTimeTo(d, buf);
  EXPECT_EQ(std::string(buf, 10), "03:04:05**");
  FormatYmdTo(d, buf);
  EXPECT_EQ(std::string(buf, 10), "20260102**");
  FormatTimeTo(DateSerial(2026, 1, 2) + 86399.6 / 86400, buf);
  EXPECT_EQ(std::string(buf, 8), "00:00:00");
  FormatYmdTo(DateSerial(2026, 1, 2) + 86399.6 / 86400, buf);
  EXPECT_EQ(std::string(buf, 8), "20260103");

  std::memset(buf, '*', sizeof buf);
  FormatZeroPadTo(42, 5, buf);
  EXPECT_EQ(std::string(buf, 6), "00042*");
  std::memset(buf, '*', sizeof buf);
  FormatZeroPadTo(0, 4, buf);
  EXPECT_EQ(std::string(buf, 5), "0000*");
  // Wider than the field: the field keeps the first chars of the full text.
  std::memset(buf, '*', sizeof buf);
  FormatZeroPadTo(123456, 5, buf);
  EXPECT_EQ(std::string(buf, 6), "12345*");
  std::memset(buf, '*', sizeof buf);
  FormatZeroPadTo(-5, 5, buf);
  EXPECT_EQ(std::string(buf, 6), "-0000*");  // the full text "-00005" cut to the field
  // Agrees with the general formatter wherever the value fits.
  for (long v : {0L, 1L, 9L, 10L, 999L, 4321L, 99999L}) {
    FormatZeroPadTo(v, 5, buf);
    EXPECT_EQ(std::string(buf, 5), FormatNumber(static_cast<double>(v), "00000"));
  }
}

}  // namespace
}  // namespace vb
