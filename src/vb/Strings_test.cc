// Tests of the 1-based string functions and their boundary rules.
#include "vb/Strings.h"

#include <gtest/gtest.h>

#include <random>

#include "vb/Failure.h"

namespace vb {
namespace {

// Trimming steps over runs of blanks eight at a time; it must find the same ends as a walk byte
// by byte, wherever the first and last non-blank fall against the eight-byte steps.
TEST(Strings, TrimOfLongBlankRunsAgreesWithAWalkByteByByte) {
  std::mt19937 rng(7);
  const char kBytes[] = {' ', ' ', ' ', 'a', '\t', '\0'};
  for (int i = 0; i < 20000; ++i) {
    std::string s(rng() % 40, ' ');
    for (char& c : s)
      if (rng() % 6 == 0) c = kBytes[rng() % sizeof kBytes];
    const size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
    const std::string_view view(s);
    if (b == std::string::npos) {
      EXPECT_TRUE(LTrim(view).empty() && RTrim(view).empty() && Trim(view).empty()) << i;
      continue;
    }
    ASSERT_EQ(LTrim(view), view.substr(b)) << i;
    ASSERT_EQ(RTrim(view), view.substr(0, e + 1)) << i;
    ASSERT_EQ(Trim(view), view.substr(b, e - b + 1)) << i;
    // The trimmed texts are views into the text itself.
    ASSERT_EQ(LTrim(view).data(), s.data() + b);
    ASSERT_EQ(RTrim(view).data(), s.data());
  }
}

TEST(Strings, TrimRemovesBlanksOnlyNotTabs) {
  EXPECT_EQ(Trim("  a b  "), "a b");
  EXPECT_EQ(Trim("\tab\t"), "\tab\t");
  EXPECT_EQ(LTrim("  x "), "x ");
  EXPECT_EQ(RTrim("  x "), "  x");
  EXPECT_EQ(Trim("   "), "");
  EXPECT_EQ(UCase("abc-Zé"), "ABC-Zé");
  EXPECT_EQ(LCase("HTM"), "htm");
  EXPECT_EQ(RemoveBlanks(" http://a b.com/ "), "http://ab.com/");
}

TEST(Strings, InStrIsOneBasedWithRunTimeEdgeRules) {
  EXPECT_EQ(InStr("abcabc", "c"), 3);
  EXPECT_EQ(InStr(4, "abcabc", "c"), 6);
  EXPECT_EQ(InStr("abc", "x"), 0);
  EXPECT_EQ(InStr("abc", ""), 1);
  EXPECT_EQ(InStr(3, "abc", ""), 3);
  EXPECT_EQ(InStr(4, "abc", ""), 4);
  EXPECT_EQ(InStr(5, "abc", ""), 0);
  EXPECT_EQ(InStr(9, "abc", "a"), 0);
  EXPECT_EQ(InStr("", ""), 0);
  EXPECT_EQ(InStrRev("a/b/c", "/"), 4);
  EXPECT_EQ(InStrRev("abc", "x"), 0);
  EXPECT_THROW(InStr(0, "abc", "a"), Failure);
}

TEST(Strings, MidLeftRightClampAndRejectBadArguments) {
  EXPECT_EQ(Mid("#Fields: date", 10), "date");
  EXPECT_EQ(Mid("abcdef", 2, 3), "bcd");
  EXPECT_EQ(Mid("abc", 2, 99), "bc");
  EXPECT_EQ(Mid("abc", 4), "");
  EXPECT_EQ(Mid("abc", 99, 2), "");
  EXPECT_EQ(Mid("abc", 1, 0), "");
  EXPECT_EQ(Left("abc", 5), "abc");
  EXPECT_EQ(Left("abc", 0), "");
  EXPECT_EQ(Right("abc", 2), "bc");
  EXPECT_EQ(Right("abc", 9), "abc");
  try {
    Mid("abc", 0);
    ADD_FAILURE();
  } catch (const Failure& e) {
    EXPECT_EQ(e.Number(), 5);
  }
  EXPECT_THROW(Mid("abc", 1, -2), Failure);
  EXPECT_THROW(Left("abc", -1), Failure);
  EXPECT_THROW(Right("abc", -1), Failure);
}

TEST(Strings, ReplaceWorksLeftToRightWithoutOverlap) {
  EXPECT_EQ(Replace("a%20b%22c", "%20", " "), "a b%22c");
  EXPECT_EQ(Replace("aaa", "aa", "b"), "ba");
  EXPECT_EQ(Replace("aaa", "a", "aa"), "aaaaaa");  // no re-scan of the replacement
  EXPECT_EQ(Replace("abc", "", "x"), "abc");
  EXPECT_EQ(Replace("Welcome to [APPTITLE] ([apptitle])", "[APPTITLE]", "Tallyo"),
            "Welcome to Tallyo ([apptitle])");
  EXPECT_TRUE(EqualsNoCase("Robots.TXT", "ROBOTS.txt"));
  EXPECT_FALSE(EqualsNoCase("a", "ab"));
}

}  // namespace
}  // namespace vb
