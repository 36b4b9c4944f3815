// Tests of the wildcard rule used by exclusions, host masks and alert criteria.
#include "vb/Like.h"

#include <gtest/gtest.h>

#include <string>

namespace vb {
namespace {

TEST(Like, WildcardsMatchTheWholeText) {
  EXPECT_TRUE(Like("proxy3.aol.com", "*.aol.com"));
  EXPECT_FALSE(Like("proxy3.aol.com.au", "*.aol.com"));
  EXPECT_TRUE(Like("10.1.2.3", "10.1.*"));
  EXPECT_FALSE(Like("ac", "a?c"));
  EXPECT_TRUE(Like("", "*"));
  EXPECT_TRUE(Like("", ""));
  EXPECT_FALSE(Like("a", ""));
  EXPECT_TRUE(Like("aXbXc", "*X*X*"));
  EXPECT_TRUE(Like("mississippi", "*sip*"));
  EXPECT_FALSE(Like("mississippi", "*sip"));
  EXPECT_TRUE(Like("abab", "*ab"));
  EXPECT_FALSE(Like("ABC", "abc"));  // case-sensitive
}

TEST(Like, TheTailAfterTheLastStarDecidesTheEndOfTheText) {
  EXPECT_TRUE(Like("crawl3.search1.inktomi.com", "*.search?.inktomi.com"));
  EXPECT_FALSE(Like("crawl3.searchX.inktomi.com", "*.search#.inktomi.com"));
  EXPECT_TRUE(Like("crawl3.search7.inktomi.com", "*.search#.inktomi.com"));
  EXPECT_FALSE(Like("10.0.0.1", "*.proxy.aol.com"));
  EXPECT_FALSE(Like("om", "*.com"));  // shorter than the tail
  EXPECT_TRUE(Like(".com", "*.com"));
  EXPECT_TRUE(Like("abc", "a?c"));    // no star: the whole pattern is the tail
  EXPECT_FALSE(Like("abcc", "a?c"));
  EXPECT_FALSE(Like("x.com", "*.com[")); // malformed still matches nothing
  EXPECT_TRUE(Like("a.com", "*[.]com"));
}

TEST(Like, APreparedPatternAnswersAsTheRuleItself) {
  const char* patterns[] = {"*.aol.com", "10.1.*", "a?c", "*", "", "*X*X*", "*sip", "*.search#.inktomi.com",
                            "*.com[", "*[.]com", "[!a-c]*", "[]x", "*[*]", "#*", "abc"};
  const char* texts[] = {"proxy3.aol.com", "proxy3.aol.com.au", "10.1.2.3", "abc", "ac", "", "a",
                         "aXbXc", "mississippi", "crawl3.search7.inktomi.com", "x.com", "a.com",
                         "dog", "x", "a*", "9lives", ".com"};
  for (const char* p : patterns) {
    const LikePattern prepared(p);
    EXPECT_EQ(prepared.Text(), p);
    for (const char* t : texts) EXPECT_EQ(prepared.Matches(t), Like(t, p)) << t << " / " << p;
  }
}

TEST(Like, DigitsAndCharacterClasses) {
  EXPECT_TRUE(Like("page7.htm", "page#.htm"));
  EXPECT_FALSE(Like("pageX.htm", "page#.htm"));
  EXPECT_TRUE(Like("10.1.2.3", "##.#.#.#"));
  EXPECT_TRUE(Like("b", "[abc]"));
  EXPECT_FALSE(Like("d", "[abc]"));
  EXPECT_TRUE(Like("m", "[a-z]"));
  EXPECT_FALSE(Like("M", "[a-z]"));
  EXPECT_TRUE(Like("M", "[!a-z]"));
  EXPECT_FALSE(Like("m", "[!a-z]"));
  EXPECT_TRUE(Like("x-1", "x[-]1"));      // "-" at an end of a class is literal
  EXPECT_TRUE(Like("*", "[*]"));          // wildcards inside a class are literal
  EXPECT_FALSE(Like("a", "[*]"));
  EXPECT_TRUE(Like("a?", "a[?]"));
  EXPECT_TRUE(Like("#", "[#]"));
  EXPECT_TRUE(Like("[", "[[]"));
  EXPECT_TRUE(Like("a]", "a]"));          // a lone "]" is an ordinary character
  EXPECT_TRUE(Like("ab", "a[]b"));        // "[]" matches nothing
  EXPECT_TRUE(Like("Q7z", "[A-Z]#[!0-9]"));
  EXPECT_TRUE(Like("\xE9", "[\xE0-\xFF]"));  // bytes above 127 compare unsigned
}

TEST(Like, MalformedPatternsMatchNothingAndNeverThrow) {
  EXPECT_FALSE(IsValidLikePattern("[abc"));
  EXPECT_FALSE(IsValidLikePattern("[z-a]"));
  EXPECT_TRUE(IsValidLikePattern("a]b[x]"));
  EXPECT_FALSE(Like("[abc", "[abc"));
  EXPECT_FALSE(Like("anything", "*["));
  EXPECT_FALSE(Like("m", "[z-a]"));
  EXPECT_FALSE(Like("", "["));
}

TEST(Like, LongTextsWithManyStarsStayFast) {
  const std::string text(200000, 'a');
  EXPECT_FALSE(Like(text, "*a*a*a*a*a*b"));
  EXPECT_TRUE(Like(text + "b", "*a*a*a*a*a*b"));
}

}  // namespace
}  // namespace vb
