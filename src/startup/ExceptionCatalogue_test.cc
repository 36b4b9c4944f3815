// The exception catalogue: built-in entries, EXTYPES.INI, thresholds copied into the sites, and
// the application-name placeholders.
#include "startup/ExceptionCatalogue.h"

#include <gtest/gtest.h>

#include "startup/StartupTesting.h"

namespace startup {
namespace {

using testing::TestWorld;

double NumberOf(const ExceptionValue& v) {
  const double* d = std::get_if<double>(&v);
  return d ? *d : -1;
}

TEST(ExceptionCatalogue, BuiltInCatalogueHasItsEntriesInOrderAndLoadsIdempotently) {
  TestWorld t;
  const ExceptionCatalogue& c = t.w().exceptions;
  ASSERT_EQ(c.count, 28);
  const int16_t expected[] = {110, 120, 122, 123, 130, 131, 132, 133, 134, 150, 151, 152, 153, 160,
                              161, 162, 165, 170, 400, 401, 403, 404, 405, 500, 502, 503, 900, 902};
  for (int i = 1; i <= 28; ++i) EXPECT_EQ(c.types[i].number, expected[i - 1]) << i;
  EXPECT_EQ(c.Find(160)->description, "The requested path [value] contains  ../");
  EXPECT_EQ(c.Find(134)->description,
            "Single visitor viewed page [lastpage] for more than 5 minutes");
  EXPECT_EQ(NumberOf(c.Find(161)->value), 10);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(c.Find(404)->value));
  EXPECT_TRUE(c.Find(900)->raise);
  EXPECT_FALSE(c.Find(900)->email);
  EXPECT_TRUE(c.Find(120)->email);

  // Without EXTYPES.INI the settings loader loads it again: nothing changes.
  LoadSettings(t.w());
  EXPECT_EQ(t.w().exceptions.count, 28);

  // AddExceptionType updates the first entry with the number and turns a numeric text into a
  // number.
  ExceptionCatalogue& m = t.w().exceptions;
  m.types[5].emailAddress = "ops@example.com";
  AddExceptionType(m, 130, "Changed", false, true, std::string(" 45 "));
  EXPECT_EQ(m.count, 28);
  EXPECT_EQ(m.types[5].description, "Changed");
  EXPECT_EQ(NumberOf(m.types[5].value), 45);
  EXPECT_EQ(m.types[5].emailAddress, "ops@example.com");
  AddExceptionType(m, 777, "New", true, false, std::string("text"));
  EXPECT_EQ(m.count, 29);
  EXPECT_EQ(std::get<std::string>(m.types[29].value), "text");
}

TEST(ExceptionCatalogue, FileEntriesAreAppendedAndTheLastOneDecidesTheThresholds) {
  TestWorld t;
  t.App("TALLYO.INI", "[A]\r\n[B]\r\n\r\n");
  t.App("EXTYPES.INI",
        "VALUE=7\r\n"        // before any NUMBER: the last built-in entry, 902
        "[Custom]\r\n"
        "NUMBER=131\r\n"
        "VALUE=40\r\n"
        "number=600\r\n"
        "description=Site [value] is slow\r\n"
        "VALUE=abc\r\n"
        "RAISE=False\r\n"
        "EVENTLEVEL=3\r\n"
        "SMS=True\r\n"
        "\r\n");
  LoadSites(t.w());
  LoadSettings(t.w());
  const ExceptionCatalogue& c = t.w().exceptions;
  ASSERT_EQ(c.count, 30);
  EXPECT_EQ(NumberOf(c.types[28].value), 7);
  EXPECT_EQ(c.types[29].number, 131);
  EXPECT_EQ(NumberOf(c.types[29].value), 40);
  EXPECT_EQ(c.Find(131), &c.types[6]);      // the built-in one is still found first
  EXPECT_EQ(c.FindLast(131), &c.types[29]);
  const ExceptionType& custom = c.types[30];
  EXPECT_EQ(custom.number, 600);
  EXPECT_EQ(custom.description, "Site [value] is slow");
  EXPECT_EQ(std::get<std::string>(custom.value), "abc");
  EXPECT_FALSE(custom.raise);
  EXPECT_EQ(custom.eventLevel, 3);
  EXPECT_TRUE(custom.sms);

  RefreshexceptionConstants(t.w());
  for (int i = 1; i <= 2; ++i) {
    const Site& s = t.w().sites[i];
    EXPECT_EQ(s.pageLimit, 40);
    EXPECT_EQ(s.visitMinutesLimit, 30);
    EXPECT_EQ(s.returnLimit, 10);
    EXPECT_EQ(s.pageMinutesLimit, 5);
    EXPECT_EQ(s.limit404, 10);
  }
  EXPECT_FALSE(std::filesystem::exists(t.dir.path() / "Data" / "errors.log"));
}

TEST(ExceptionCatalogue, RefreshFailureIsLoggedAndKeepsTheLimitsSetSoFar) {
  TestWorld t;
  t.App("TALLYO.INI", "[A]\r\n[B]\r\n\r\n");
  t.App("EXTYPES.INI", "NUMBER=131\r\nVALUE=lots\r\n\r\n");
  LoadSites(t.w());
  LoadSettings(t.w());
  RefreshexceptionConstants(t.w());
  // Site 1 got every built-in limit before the text value failed; site 2 none.
  EXPECT_EQ(t.w().sites[1].pageLimit, 25);
  EXPECT_EQ(t.w().sites[1].limit404, 10);
  EXPECT_EQ(t.w().sites[2].pageLimit, 0);
  EXPECT_EQ(tytest::ReadFile(t.dir.path() / "Data" / "errors.log"),
            "16/11/2026 02:23:14 Type mismatch FROM Engine.RefreshexceptionConstants\r\n");

  // An entry without any value fails as well.
  t.w().exceptions.types[t.w().exceptions.count].value = std::monostate{};
  RefreshexceptionConstants(t.w());
  EXPECT_NE(tytest::ReadFile(t.dir.path() / "Data" / "errors.log").find("Invalid use of Null"),
            std::string::npos);
}

TEST(ExceptionCatalogue, ReplaceAppNamesReplacesOnlyTheExactPlaceholders) {
  AppState app;
  app.appTitle = "Tallyo";
  app.appDomain = "stats.example.com";
  EXPECT_EQ(ReplaceAppNames(app, "Welcome to [APPTITLE] ([apptitle])"),
            "Welcome to Tallyo ([apptitle])");
  EXPECT_EQ(ReplaceAppNames(app, "[APPTITLE] at [APPDOMAIN], [APPTITLE]!"),
            "Tallyo at stats.example.com, Tallyo!");
}

}  // namespace
}  // namespace startup
