// Field maps, hit fields and the search-phrase cleaner.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "loginput/FieldMap.h"
#include "loginput/HitFields.h"
#include "loginput/SearchPhrase.h"

namespace loginput {
namespace {

using startup::LogLayout;
constexpr LogLayout kW3c = LogLayout::W3cExtended;

TEST(FieldMap, W3cDirectiveMapsNamedColumnsInAnyCase) {
  FieldMap map;
  bool dateFlag = false;
  ApplyFieldsDirective(map, kW3c,
                       "date time c-ip cs-username X-UNKNOWN cs-method cs-uri-stem cs-uri-query "
                       "sc-status sc-bytes cs(User-Agent) cs(Referer)",
                       dateFlag);
  EXPECT_TRUE(dateFlag);
  EXPECT_EQ(map[kDate], 0);
  EXPECT_EQ(map[kTime], 1);
  EXPECT_EQ(map[kClientAddress], 2);
  EXPECT_EQ(map[kUserName], 3);
  EXPECT_EQ(map[kMethod], 5);  // the unknown name still took place 4
  EXPECT_EQ(map[kPage], 6);
  EXPECT_EQ(map[kStatus], 8);
  EXPECT_EQ(map[kBytesSent], 9);
  EXPECT_EQ(map[kUserAgent], 10);
  EXPECT_EQ(map[kReferrer], 11);
  EXPECT_EQ(map[kCookie], kAbsent);
  EXPECT_EQ(map[kComputerName], kAbsent);
  EXPECT_EQ(map.MaxPlace(), 11);

  // Without "CS(REFERER)" the referrer is absent, and a map without DATE leaves the flag alone.
  bool noDate = false;
  ApplyFieldsDirective(map, kW3c, "TIME C-IP CS-URI-STEM", noDate);
  EXPECT_FALSE(noDate);
  EXPECT_EQ(map[kReferrer], kAbsent);
  EXPECT_EQ(map[kDate], kAbsent);
  EXPECT_EQ(map[kPage], 2);
}

TEST(FieldMap, EveryBlankOrTabTakesAPlace) {
  FieldMap map;
  bool flag = false;
  // Two blanks between DATE and TIME, a TAB before C-IP, a leading blank: each gives an empty item.
  ApplyFieldsDirective(map, kW3c, " DATE  TIME\tC-IP CS-URI-STEM", flag);
  EXPECT_EQ(map[kDate], 1);
  EXPECT_EQ(map[kTime], 3);
  EXPECT_EQ(map[kClientAddress], 4);
  EXPECT_EQ(map[kPage], 5);
  // A later duplicate wins.
  ApplyFieldsDirective(map, kW3c, "C-IP DATE C-IP", flag);
  EXPECT_EQ(map[kClientAddress], 2);
}

TEST(FieldMap, Type5And4UseTheirOwnNamesWithTheirCrossings) {
  FieldMap map;
  bool flag = false;
  ApplyFieldsDirective(map, LogLayout::TabSeparated,
                       "DATE TIME R-HOST C-IP CS-URI C-AGENT CS-URI-STEM CS(REFERER)", flag);
  EXPECT_EQ(map[kClientAddress], 3);  // R-HOST consumed place 2 and maps to nothing
  EXPECT_EQ(map[kPage], 4);           // CS-URI, not CS-URI-STEM
  EXPECT_EQ(map[kUserAgent], 5);
  EXPECT_EQ(map[kReferrer], kAbsent);  // no referrer name for this layout

  ApplyFieldsDirective(map, LogLayout::FirewallStyle,
                       "date time dst-ip action protocol size tcpwin dst-port c-ip", flag);
  EXPECT_EQ(map[kClientAddress], 2);
  EXPECT_EQ(map[kPage], 3);
  EXPECT_EQ(map[kUserAgent], 4);  // the protocol column
  EXPECT_EQ(map[kBytesSent], 5);  // the size column
  EXPECT_EQ(map[kSystemStatus], 6);
  EXPECT_EQ(map[kServerPort], 7);
  EXPECT_EQ(map.MaxPlace(), 7);  // C-IP is no name of this layout
}

TEST(FieldMap, FixedLayoutSiteLosesItsPresetOnAFieldsLine) {
  for (int16_t type : {1, 2, 3, 6}) {
    const auto layout = static_cast<LogLayout>(type);
    FieldMap map;
    PresetMapA(map);
    bool flag = false;
    ApplyFieldsDirective(map, layout, "DATE TIME C-IP CS-URI-STEM", flag);
    EXPECT_EQ(map.MaxPlace(), -1) << "type " << type;
    EXPECT_FALSE(flag);
  }
}

TEST(FieldMap, PresetsCAndDKeepSiteNameAndQueryWhileAAndBReplaceEverySlot) {
  FieldMap map;
  map[kSiteName] = 7;
  map[kQuery] = 8;
  map[kCookie] = 9;
  PresetMapC(map);
  EXPECT_EQ(map[kSiteName], 7);
  EXPECT_EQ(map[kQuery], 8);
  EXPECT_EQ(map[kCookie], kAbsent);
  PresetMapD(map);
  EXPECT_EQ(map[kSiteName], 7);
  EXPECT_EQ(map[kQuery], 8);
  PresetMapB(map);
  EXPECT_EQ(map[kSiteName], kAbsent);
  EXPECT_EQ(map[kTime], kAbsent);  // B has no time column
  map[kQuery] = 8;
  PresetMapA(map);
  EXPECT_EQ(map[kQuery], kAbsent);
}

TEST(HitFields, FillingKeepsAbsentColumnsAndEmptiesMissingOnes) {
  HitFields hits;
  ClearHitFields(hits);
  EXPECT_EQ(hits.computerName, "2");
  EXPECT_EQ(hits.page, "");

  FieldMap map;
  bool flag = false;
  ApplyFieldsDirective(map, kW3c, "DATE C-IP CS-URI-STEM SC-STATUS CS(REFERER)", flag);
  SplitFields fields;
  fields.Split("2002-05-24 10.0.0.1 /a.htm 404 http://x/", ' ', map.MaxPlace());
  FillHitFields(fields, map, hits);
  EXPECT_EQ(hits.clientAddress, "10.0.0.1");
  EXPECT_EQ(hits.page, "/a.htm");
  EXPECT_EQ(hits.status, 404);
  EXPECT_EQ(hits.referrer, "http://x/");
  hits.userAgent = "from an earlier hit";

  // A shorter line: the missing places give "" and 0; the unmapped agent keeps its value.
  fields.Split("2002-05-24 10.0.0.2", ' ', map.MaxPlace());
  FillHitFields(fields, map, hits);
  EXPECT_EQ(hits.clientAddress, "10.0.0.2");
  EXPECT_EQ(hits.page, "");
  EXPECT_EQ(hits.status, 0);
  EXPECT_EQ(hits.referrer, "");
  EXPECT_EQ(hits.userAgent, "from an earlier hit");

  // Consecutive separators give empty fields; an empty line gives none.
  fields.Split("a,,c", ',', 5);
  EXPECT_EQ(fields.Count(), 3);
  EXPECT_EQ(fields[1], "");
  EXPECT_EQ(fields[2], "c");
  fields.Split("", ' ', 5);
  EXPECT_EQ(fields.Count(), 0);
  EXPECT_EQ(fields[0], "");

  ClearHitFields(hits);
  EXPECT_EQ(hits.computerName, "2");
  EXPECT_EQ(hits.userAgent, "");
  EXPECT_EQ(hits.status, 0);
}

TEST(HitFields, AnalysedFillingMatchesTheFullFillOnTheFieldsItCopies) {
  FieldMap map;
  bool flag = false;
  ApplyFieldsDirective(map, kW3c,
                       "DATE TIME S-SITENAME C-IP CS-METHOD CS-URI-STEM CS-URI-QUERY SC-STATUS "
                       "CS(USER-AGENT) CS(COOKIE) CS(REFERER) SC-BYTES TIME-TAKEN",
                       flag);
  // The split reaches the last column read: the referrer, not the bytes and time taken after it.
  EXPECT_EQ(AnalysedMaxPlace(map), 10);
  const char* line =
      "2002-05-24 10:00:00 W3SVC1 10.0.0.1 GET /a.htm q=1 404 Agent/1.0 ID=7 http://x/ 512 9";
  SplitFields fields;
  fields.Split(line, ' ', map.MaxPlace());
  HitFields full;
  ClearHitFields(full);
  FillHitFields(fields, map, full);
  fields.Split(line, ' ', AnalysedMaxPlace(map));
  HitFields analysed;
  ClearHitFields(analysed);
  analysed.cookie = "from an earlier hit";
  FillAnalysedHitFields(fields, map, analysed);
  EXPECT_EQ(analysed.clientAddress, full.clientAddress);
  EXPECT_EQ(analysed.method, full.method);
  EXPECT_EQ(analysed.page, full.page);
  EXPECT_EQ(analysed.query, full.query);
  EXPECT_EQ(analysed.status, full.status);
  EXPECT_EQ(analysed.userAgent, full.userAgent);
  EXPECT_EQ(analysed.referrer, "http://x/");
  // The fields the hit processing never reads are left alone.
  EXPECT_EQ(analysed.cookie, "from an earlier hit");
  EXPECT_EQ(analysed.bytesSent, 0);
  EXPECT_EQ(full.bytesSent, 512);
  // A date column alone still needs the zone place after it.
  ApplyFieldsDirective(map, kW3c, "C-IP DATE", flag);
  EXPECT_EQ(AnalysedMaxPlace(map), 2);
}

// Deferring the columns of dropped hits must leave every column a later hit can see as copying
// them at once would: a random series of hits, some dropped, under fields lines that add, drop
// and move columns, with separators and short lines; after each hit the next map settles the
// deferred line, and a map without any column shows every value kept.
TEST(HitFields, DeferredColumnsOfDroppedHitsMatchCopyingThemAtOnce) {
  std::mt19937 rng(4711);
  const char* columns[] = {"C-IP", "CS-USERNAME", "CS-METHOD", "CS-URI-STEM", "CS-URI-QUERY",
                           "SC-STATUS", "CS(USER-AGENT)", "CS(REFERER)", "DATE", "TIME",
                           "S-SITENAME"};
  auto randomMap = [&] {
    std::string list;
    const int n = 1 + static_cast<int>(rng() % 9);
    for (int i = 0; i < n; ++i) list += std::string(columns[rng() % 11]) + " ";
    list += "CS-URI-STEM";  // a dropped hit has its page
    FieldMap map;
    bool flag = false;
    ApplyFieldsDirective(map, kW3c, list, flag);
    return map;
  };
  auto randomLine = [&](char sep) {
    std::string line;
    const int n = static_cast<int>(rng() % 14);
    for (int i = 0; i < n; ++i) {
      if (i) line += sep;
      const int len = static_cast<int>(rng() % 40);
      for (int k = 0; k < len; ++k) line += static_cast<char>("0123456789-abc/.x"[rng() % 17]);
    }
    return line;
  };
  auto same = [](const HitFields& a, const HitFields& b) {
    return a.clientAddress == b.clientAddress && a.userName == b.userName &&
           a.method == b.method && a.page == b.page && a.query == b.query &&
           a.status == b.status && a.userAgent == b.userAgent && a.referrer == b.referrer;
  };
  HitFields plain, lazy;
  ClearHitFields(plain);
  ClearHitFields(lazy);
  SplitFields fields;
  FieldMap map = randomMap();
  const FieldMap none;
  int deferred = 0, settled = 0;
  for (int i = 0; i < 20000; ++i) {
    if (rng() % 50 == 0) map = randomMap();
    const char sep = rng() % 4 == 0 ? ',' : ' ';
    const std::string line = randomLine(sep);
    const bool drop = rng() % 2 == 0;
    // The hit processing's order: settle, split, page, then the rest or the deferral.
    const bool wasPending = lazy.deferred.pending;
    SettleHitFields(map, lazy);
    settled += wasPending && !same(plain, lazy);
    fields.Split(line, sep, AnalysedMaxPlace(map));
    FillAnalysedHitFields(fields, map, plain);
    FillHitPage(fields, map, lazy);
    if (drop) {
      DeferAnalysedHitFields(line, sep, map, lazy);
      ++deferred;
    } else {
      FillAnalysedHitFieldsButPage(fields, map, lazy);
      ASSERT_TRUE(same(plain, lazy)) << "hit " << i;
    }
    if (rng() % 10 == 0) {
      // A map without the columns: every value the hits left must show.
      SettleHitFields(none, lazy);
      ASSERT_TRUE(same(plain, lazy)) << "hit " << i;
    }
    if (rng() % 500 == 0) {
      ClearHitFields(plain);
      ClearHitFields(lazy);
      EXPECT_FALSE(lazy.deferred.pending);
    }
  }
  EXPECT_GT(deferred, 5000);
  EXPECT_GT(settled, 10);  // map changes right after a dropped hit did copy columns in
}

// The split looks at blocks of the line at once; it must give the same fields as cutting the
// line at each separator in turn, for any place asked for and wherever the separators fall
// against the blocks (runs of separators, none at all, a separator last).
TEST(HitFields, SplitGivesTheFieldsOfCuttingAtEachSeparator) {
  std::mt19937 rng(99);
  SplitFields fields;
  for (int round = 0; round < 20000; ++round) {
    const char sep = round % 3 == 0 ? ',' : ' ';
    std::string line(rng() % 300, 'x');
    const unsigned density = 1 + rng() % 12;  // one byte in `density` is a separator
    for (char& c : line)
      if (rng() % density == 0) c = sep;
    const int lastPlace = static_cast<int>(rng() % 90) - 1;
    std::vector<std::string_view> plain;  // every field of the line
    if (!line.empty()) {
      size_t start = 0;
      for (size_t at; (at = line.find(sep, start)) != std::string::npos; start = at + 1)
        plain.push_back(std::string_view(line).substr(start, at - start));
      plain.push_back(std::string_view(line).substr(start));
    }
    fields.Split(line, sep, lastPlace);
    const int expectedCount =
        lastPlace < 0 ? 0 : std::min<int>(lastPlace + 1, static_cast<int>(plain.size()));
    ASSERT_EQ(fields.Count(), expectedCount) << "round " << round;
    for (int p = -1; p <= lastPlace + 2; ++p) {
      const std::string_view want =
          p >= 0 && p < expectedCount ? plain[static_cast<size_t>(p)] : std::string_view{};
      ASSERT_EQ(fields[p], want) << "round " << round << " place " << p;
      if (p >= 0 && p < expectedCount) {
        ASSERT_EQ(fields[p].data(), want.data());
      }
    }
  }
}

TEST(HitFields, NumbersReadTheirLeadingWholeNumber) {
  EXPECT_EQ(ParseHitNumber("200"), 200);
  EXPECT_EQ(ParseHitNumber("-"), 0);
  EXPECT_EQ(ParseHitNumber("-12"), -12);
  EXPECT_EQ(ParseHitNumber("304x"), 304);
  EXPECT_EQ(ParseHitNumber("99999999999"), INT32_MAX);
  EXPECT_EQ(ParseHitNumber("-99999999999"), INT32_MIN);
}

TEST(SearchPhrase, CleaningKeepsDigitsLettersAndTheOpeningBracket) {
  EXPECT_EQ(CleanSearchPhrase("a%20b%22c"), "a b c");
  EXPECT_EQ(CleanSearchPhrase("x[y]"), "x[y ");
  EXPECT_EQ(CleanSearchPhrase("Zz09{|}~:@\\`_^"), "Zz09          ");
  EXPECT_EQ(CleanSearchPhrase("caf\xC3\xA9+bar"), "caf   bar");
  EXPECT_EQ(CleanSearchPhrase(""), "");
}

}  // namespace
}  // namespace loginput
