// Tests of the text/number conversions: the lenient Val, the strict conversions and rounding.
#include "vb/Convert.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "vb/Failure.h"

namespace vb {
namespace {

int ErrorOf(void (*f)()) {
  try {
    f();
  } catch (const Failure& e) {
    return e.Number();
  }
  return 0;
}

TEST(Val, ReadsTheLeadingNumberAndSkipsBlanksTabsAndLineFeeds) {
  EXPECT_EQ(Val("  12abc"), 12);
  EXPECT_EQ(Val("1 2"), 12);
  EXPECT_EQ(Val("\t-1\n5"), -15);
  EXPECT_EQ(Val(" 15"), 15);  // "inactivitymins = 15": the value keeps its blank
  EXPECT_EQ(Val("1.5.3"), 1.5);
  EXPECT_EQ(Val(".5"), 0.5);
  EXPECT_EQ(Val("007.50"), 7.5);
  EXPECT_EQ(Val("0.05"), 0.05);
  EXPECT_EQ(Val("123456789012345678901234567890123456789012345678901234567890"), 1.2345678901234568e59);
  EXPECT_EQ(Val("1,000"), 1);
  EXPECT_EQ(Val("1e3"), 1000);
  EXPECT_EQ(Val("1D2"), 100);
  EXPECT_EQ(Val("2E"), 2);      // a bare exponent letter ends the number
  EXPECT_EQ(Val("2Ex"), 2);
  EXPECT_EQ(Val("1\r2"), 1);    // CR is not skipped, only blanks, tabs and LF
}

TEST(Val, NonNumericOrEmptyTextIsZeroAndNeverThrows) {
  EXPECT_EQ(Val(""), 0);
  EXPECT_EQ(Val("abc"), 0);
  EXPECT_EQ(Val("-"), 0);
  EXPECT_EQ(Val("."), 0);
  EXPECT_EQ(Val("--5"), 0);
  EXPECT_EQ(Val("$5"), 0);
  // Too large for a double: infinite, so that a later CInt/CLng reports Overflow.
  EXPECT_TRUE(std::isinf(Val("1E400")));
  EXPECT_EQ(Val("1E-400"), 0);
  EXPECT_NO_THROW(Val(std::string(100000, '9')));
}

TEST(Val, RadixPrefixesAreTypedBySize) {
  EXPECT_EQ(Val("&H1F"), 31);
  EXPECT_EQ(Val("&h1f"), 31);
  EXPECT_EQ(Val("&O17"), 15);
  EXPECT_EQ(Val("&HFFFF"), -1);          // fits 16 bits: a 16-bit integer
  EXPECT_EQ(Val("&H8000"), -32768);
  EXPECT_EQ(Val("&H10000"), 65536);      // wider: a 32-bit integer
  EXPECT_EQ(Val("&HFFFFFFFF"), -1);
  EXPECT_EQ(Val("&H1FZ"), 31);
  EXPECT_EQ(Val("&H"), 0);
  EXPECT_EQ(Val("&X12"), 0);
}

TEST(CDbl, AcceptsOnlyAWholeNumberWithSurroundingBlanks) {
  EXPECT_EQ(CDbl(" 12.5 "), 12.5);
  EXPECT_EQ(CDbl("-3"), -3);
  EXPECT_EQ(CDbl("+.5"), 0.5);
  EXPECT_EQ(CDbl("1."), 1);
  EXPECT_EQ(CDbl("2.5e2"), 250);
  EXPECT_EQ(CDbl("&HFF"), 255);
  EXPECT_EQ(CDbl("0"), 0);
  EXPECT_EQ(CDbl("-0.25e-1"), -0.025);
  EXPECT_EQ(CDbl("1000000000000000000000"), 1e21);
  for (const char* bad : {"", "  ", "abc", "12abc", "1 2", ".", "-", "1e", "1e+", "&H", "&HG",
                          "1.2.3", "True"}) {
    EXPECT_FALSE(IsNumeric(bad)) << bad;
    try {
      CDbl(bad);
      ADD_FAILURE() << "no failure for '" << bad << "'";
    } catch (const Failure& e) {
      EXPECT_EQ(e.Number(), 13) << bad;
      EXPECT_EQ(e.Description(), "Type mismatch");
    }
  }
  EXPECT_TRUE(IsNumeric("8004"));
  EXPECT_EQ(ErrorOf([] { CDbl("1E400"); }), 6);
}

TEST(RoundHalfEven, TiesGoToTheEvenNeighbour) {
  EXPECT_EQ(RoundHalfEven(2.5), 2);
  EXPECT_EQ(RoundHalfEven(3.5), 4);
  EXPECT_EQ(RoundHalfEven(-2.5), -2);
  EXPECT_EQ(RoundHalfEven(-3.5), -4);
  EXPECT_EQ(RoundHalfEven(0.5), 0);
  EXPECT_EQ(RoundHalfEven(2.5000001), 3);
  EXPECT_EQ(RoundHalfEven(-0.4), 0);
  EXPECT_EQ(RoundHalfEven(1e17), 1e17);
}

TEST(CInt, RoundsHalfToEvenAndOverflowsOutsideSixteenBits) {
  EXPECT_EQ(CInt(2.5), 2);
  EXPECT_EQ(CInt(32767.4), 32767);
  EXPECT_EQ(CInt(-32768.5), -32768);  // rounds to the even -32768, which fits
  EXPECT_EQ(ErrorOf([] { CInt(32767.5); }), 6);
  EXPECT_EQ(ErrorOf([] { CInt(-32769.0); }), 6);
  EXPECT_EQ(ErrorOf([] { CInt(NAN); }), 6);
  EXPECT_EQ(ErrorOf([] { CInt(Val("1E400")); }), 6);
  EXPECT_EQ(CInt("  42 "), 42);
  EXPECT_EQ(ErrorOf([] { CInt("4x"); }), 13);
  EXPECT_EQ(ErrorOf([] { CInt("40000"); }), 6);
}

TEST(CLng, RoundsHalfToEvenAndOverflowsOutsideThirtyTwoBits) {
  EXPECT_EQ(CLng(2147483647.0), 2147483647);
  EXPECT_EQ(CLng(-2147483648.0), -2147483647 - 1);
  EXPECT_EQ(ErrorOf([] { CLng(2147483647.5); }), 6);
  EXPECT_EQ(CLng("8004"), 8004);
  EXPECT_EQ(ErrorOf([] { CLng("abc"); }), 13);
}

TEST(CBool, AcceptsTrueFalseInAnyCaseOrANumber) {
  EXPECT_TRUE(CBool(" TRUE"));
  EXPECT_TRUE(CBool("true "));
  EXPECT_FALSE(CBool("False"));
  EXPECT_TRUE(CBool("2"));
  EXPECT_TRUE(CBool("-1"));
  EXPECT_FALSE(CBool("0"));
  EXPECT_FALSE(CBool("0.0"));
  EXPECT_EQ(ErrorOf([] { CBool("yes"); }), 13);
  EXPECT_EQ(ErrorOf([] { CBool(""); }), 13);
  EXPECT_EQ(ErrorOf([] { CBool("Truex"); }), 13);
}

TEST(Failure, CarriesTheStandardDescription) {
  EXPECT_STREQ(Failure(9).what(), "Subscript out of range");
  EXPECT_EQ(Failure(62).Description(), "Input past end of file");
  EXPECT_EQ(Failure(75).Description(), "Path/File access error");
  EXPECT_EQ(Failure(11).Description(), "Division by zero");
  EXPECT_EQ(Failure(99999).Description(), "Application-defined or object-defined error");
  EXPECT_EQ(Failure(3000, "Table not open").Description(), "Table not open");
  EXPECT_EQ(ErrorOf([] { Raise(52); }), 52);
}

}  // namespace
}  // namespace vb
