// Field/tag definitions and key expressions: what the product's definition strings turn into, the
// key bytes of DTOS/STR (blank values included), and expressions the engine must refuse.
#include "dbase/KeyExpression.h"

#include <gtest/gtest.h>

#include "dbase/FieldSpec.h"
#include "dbase/TestTables.h"

namespace dbase {
namespace {

std::vector<FieldInfo> Fields(const std::vector<std::string>& defs) {
  std::vector<FieldInfo> out;
  int offset = 1;
  for (const std::string& s : defs) {
    FieldInfo f;
    EXPECT_EQ(ParseFieldSpec(s, f), kOk) << s;
    f.offset = offset;
    offset += f.width;
    out.push_back(f);
  }
  return out;
}

TEST(Definitions, EveryProductTagDefinitionParsesWithItsFlags) {
  TagSpec t;
  ASSERT_EQ(ParseTagSpec("key0|IP + Site||U", t), kOk);  // no trailing separator
  EXPECT_EQ(t.name, "KEY0");
  EXPECT_TRUE(t.unique);
  EXPECT_FALSE(t.descending);
  ASSERT_EQ(ParseTagSpec("key1|Site + STR(Visits)||N|D", t), kOk);
  EXPECT_FALSE(t.unique);
  EXPECT_TRUE(t.descending);
  ASSERT_EQ(ParseTagSpec("key1|Site + DTOS(ExDate)", t), kOk);  // trailing parts missing
  EXPECT_FALSE(t.unique);
  EXPECT_FALSE(t.descending);
  EXPECT_EQ(t.expression, "Site + DTOS(ExDate)");
  ASSERT_EQ(ParseTagSpec("key0|IP + Site + VisitNo + PageNo||U|", t), kOk);
  EXPECT_TRUE(t.unique);

  EXPECT_EQ(ParseTagSpec("key0|IP|Site > 'a'|U|", t), kBadTagSpec);  // filters not supported
  EXPECT_EQ(ParseTagSpec("key0|IP||X|", t), kBadTagSpec);
  EXPECT_EQ(ParseTagSpec("key0|IP||U|Q", t), kBadTagSpec);
  EXPECT_EQ(ParseTagSpec("|IP", t), kBadTagSpec);
  EXPECT_EQ(ParseTagSpec("key0", t), kBadTagSpec);
  EXPECT_EQ(ParseTagSpec("waytoolongname|IP", t), kBadTagSpec);
}

TEST(Definitions, FieldDefinitionsAndTheirLimits) {
  FieldInfo f;
  ASSERT_EQ(ParseFieldSpec("VisitDate|D|8", f), kOk);
  EXPECT_EQ(f.name, "VISITDATE");
  EXPECT_EQ(f.type, 'D');
  EXPECT_EQ(f.width, 8);
  ASSERT_EQ(ParseFieldSpec("Visits|N|5", f), kOk);
  EXPECT_EQ(f.decimals, 0);
  ASSERT_EQ(ParseFieldSpec("Amount|N|8|2", f), kOk);
  EXPECT_EQ(f.decimals, 2);
  for (const char* bad : {"IP|C|0", "IP|C|255", "IP|X|5", "IP|C|", "IP|C|abc", "1IP|C|5",
                          "Dated|D|6", "N|N|21", "Num|N|3|2", "ElevenChars|C|5", "|C|5", "IP"})
    EXPECT_EQ(ParseFieldSpec(bad, f), kBadFieldSpec) << bad;
}

TEST(KeyExpression, ProductExpressionsGiveStoredTextAndKeyLength) {
  auto visits = Fields(testing::kVisitsFields);
  KeyExpression e;
  ASSERT_EQ(e.Parse("IP + Site + DTOS(VisitDate) + VisitNo", visits), kOk);
  EXPECT_EQ(e.Text(), "IP + SITE + DTOS(VISITDATE) + VISITNO");
  EXPECT_EQ(e.KeyLength(), 48);
  ASSERT_EQ(e.Parse("site+dtos( visitdate )+   VisitNo", visits), kOk);  // any spacing and case
  EXPECT_EQ(e.Text(), "SITE + DTOS(VISITDATE) + VISITNO");
  EXPECT_EQ(e.KeyLength(), 33);

  auto refs = Fields(testing::kReferrersFields);
  ASSERT_EQ(e.Parse("Site + STR(Visits)", refs), kOk);
  EXPECT_EQ(e.Text(), "SITE + STR(VISITS)");
  EXPECT_EQ(e.KeyLength(), 30);  // STR's default width is 10

  auto exc = Fields(testing::kExceptionsFields);
  ASSERT_EQ(e.Parse("Site + STR(Number,3)", exc), kOk);
  EXPECT_EQ(e.Text(), "SITE + STR(NUMBER,3)");
  EXPECT_EQ(e.KeyLength(), 23);
}

TEST(KeyExpression, KeysOfBlankAndFilledValues) {
  auto exc = Fields(testing::kExceptionsFields);
  // Record: flag, RecordNo 9, Site 20, ExDate 8, ExTime 8, Number 3, ...
  std::string rec(89, ' ');
  rec.replace(10, 8, "intranet");
  KeyExpression str3, dtos, str10;
  ASSERT_EQ(str3.Parse("Site + STR(Number,3)", exc), kOk);
  ASSERT_EQ(dtos.Parse("DTOS(ExDate) + Site", exc), kOk);
  ASSERT_EQ(str10.Parse("STR(Number)", exc), kOk);
  EXPECT_EQ(str3.Evaluate(rec.data()), "intranet              0");  // blank number -> 0
  EXPECT_EQ(dtos.Evaluate(rec.data()).substr(0, 8), "        ");   // blank date -> 8 blanks
  EXPECT_EQ(str10.Evaluate(rec.data()), "         0");
  rec.replace(30, 8, "20031116");
  rec.replace(46, 3, "  7");
  EXPECT_EQ(str3.Evaluate(rec.data()), "intranet" + std::string(12, ' ') + "  7");
  EXPECT_EQ(dtos.Evaluate(rec.data()), "20031116intranet            ");
  rec.replace(46, 3, "140");
  EXPECT_EQ(str10.Evaluate(rec.data()), "       140");
  rec.replace(46, 3, " -5");
  EXPECT_EQ(str10.Evaluate(rec.data()), "        -5");

  char out[4] = {};
  FormatStr("12345", 3, 0, out);  // does not fit: asterisks, as dBASE shows it
  EXPECT_EQ(std::string(out, 3), "***");
  FormatStr("  2.5", 3, 0, out);  // halves round away from zero
  EXPECT_EQ(std::string(out, 3), "  3");
  FormatStr(" -2.5", 3, 0, out);
  EXPECT_EQ(std::string(out, 3), " -3");
}

TEST(KeyExpression, UnknownOrIllTypedExpressionsAreRefused) {
  auto visits = Fields(testing::kVisitsFields);
  KeyExpression e;
  for (const char* bad : {"SUBSTR(IP,1,3)", "IP + NoSuchField", "IP +", "+ IP", "IP Site",
                          "IP + AlertNo",         // a number joined without STR()
                          "IP + VisitDate",       // a date joined without DTOS()
                          "DTOS(IP)", "STR(Site)", "STR(AlertNo,0)", "DTOS(VisitDate", "",
                          "Referrer + Referrer + Referrer"})  // 150 bytes: longer than a key may be
    EXPECT_EQ(e.Parse(bad, visits), kBadExpression) << bad;
  ASSERT_EQ(e.Parse("UPPER(Site) + IP", visits), kOk);
  std::string rec(204, ' ');
  rec.replace(25, 8, "Intranet");
  EXPECT_EQ(e.Evaluate(rec.data()).substr(0, 8), "INTRANET");
}

}  // namespace
}  // namespace dbase
