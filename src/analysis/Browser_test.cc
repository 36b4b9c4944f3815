// Browser codes: the rule order and the codes that earlier databases hold and must keep holding.
#include "analysis/Browser.h"

#include <gtest/gtest.h>

namespace analysis {
namespace {

TEST(SelectBrowser, InternetExplorerWinsOverTheLaterRules) {
  // Logged with "+" for blanks, and with real blanks: the character after "MSIE" and its separator.
  EXPECT_EQ(SelectBrowser("Mozilla/4.0+(compatible;+MSIE+6.0;+Windows+NT+5.1)"), "6IE");
  EXPECT_EQ(SelectBrowser("Mozilla/4.0 (compatible; MSIE 5.5)"), "5IE");
  // Opera pretending to be MSIE is classed by the MSIE rule, which comes first.
  EXPECT_EQ(SelectBrowser("Mozilla/4.0+(compatible;+MSIE+5.0;+Windows+98)+Opera+6.0"), "5IE");
  // "MSIE" at the very end: the character does not exist, only "IE" is left.
  EXPECT_EQ(SelectBrowser("xMSIE"), "IE");
}

TEST(SelectBrowser, OperaProxyAndNetscapeCodes) {
  EXPECT_EQ(SelectBrowser("opera/7.0"), "OP");  // tests run on the upper-cased copy
  EXPECT_EQ(SelectBrowser("MSProxy/2.0"), "MSProxy");
  EXPECT_EQ(SelectBrowser("Mozilla/4.7+[en]+(Win98;+I)"), "4NS");
  // Position 9 is counted from the start of the trimmed copy, not from "MOZILLA/".
  EXPECT_EQ(SelectBrowser("  Mozilla/4.7+[en]"), "4NS");
  EXPECT_EQ(SelectBrowser("XY-Mozilla/4.7+[en]"), "LNS");
  // Without a "+" after "Mozilla/" the agent is kept in its own case, untrimmed.
  EXPECT_EQ(SelectBrowser("Mozilla/5.0 (X11; Linux)"), "Mozilla/5.0 (X11; Linux)");
  EXPECT_EQ(SelectBrowser("Mozilla/5.0 "), "Mozilla/5.0 ");
  // A "+" only before "Mozilla/" does not count.
  EXPECT_EQ(SelectBrowser("a+b Mozilla/5.0"), "a+b Mozilla/5.0");
}

TEST(SelectBrowser, CompatibleAlwaysGivesTheSameCodeAndOwnProbeIsTY) {
  EXPECT_EQ(SelectBrowser("Googlebot (compatible; v2.1)"), "OMPATIBLE;");
  EXPECT_EQ(SelectBrowser("compatible;"), "OMPATIBLE;");
  EXPECT_EQ(SelectBrowser("Tallyo Probe 1.0"), "TY");
  EXPECT_EQ(SelectBrowser("tallyo"), "TY");
  // Earlier rules win over the probe word.
  EXPECT_EQ(SelectBrowser("Tallyo (compatible; x)"), "OMPATIBLE;");
}

TEST(SelectBrowser, UnknownShortAndEmptyAgentsComeBackUnchanged) {
  EXPECT_EQ(SelectBrowser("-"), "-");
  EXPECT_EQ(SelectBrowser("x"), "x");
  EXPECT_EQ(SelectBrowser(""), "");
  EXPECT_EQ(SelectBrowser("   "), "   ");
  EXPECT_EQ(SelectBrowser("Wget/1.21"), "Wget/1.21");
}

}  // namespace
}  // namespace analysis
