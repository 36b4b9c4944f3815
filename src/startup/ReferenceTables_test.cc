// The reference tables: built-in values, "Countries.txt", "Search engines.txt" and the country
// lookup.
#include "startup/ReferenceTables.h"

#include <gtest/gtest.h>

#include "startup/StartupTesting.h"

namespace startup {
namespace {

using testing::TestWorld;

TEST(ReferenceTables, BuiltInTablesHoldTheirKeptEntries) {
  TestWorld t;
  const World& w = t.w();
  ASSERT_EQ(w.tables.searchEngineCount, 26);
  EXPECT_EQ(w.tables.searchEngines[1].name, "AOL Search");
  EXPECT_EQ(w.tables.searchEngines[9].fragment, ".google.");
  // "Ask Jeeves" twice, the second time with the fragment cut after ".c".
  EXPECT_EQ(w.tables.searchEngines[3].name, "Ask Jeeves");
  EXPECT_EQ(w.tables.searchEngines[24].name, "Ask Jeeves");
  EXPECT_EQ(w.tables.searchEngines[24].fragment, ".ask.c");
  EXPECT_EQ(w.tables.searchEngines[26].name, "CNet");
  // Four DNS masks; entry 4 is the one with a "?" digit, not the mask first written there.
  EXPECT_EQ(w.settings.dnsMasks[4].find('?') != std::string::npos, true);
  EXPECT_EQ(w.settings.dnsMasks[4].rfind("*.", 0), 0u);
  EXPECT_EQ(w.settings.dnsMasks[5], "");
  for (int i = 1; i <= 4; ++i) EXPECT_NE(w.settings.dnsMasks[i], "") << i;
  // Main's own 16 extensions, no "php" and no "zip".
  ASSERT_EQ(w.settings.pageExtensionCount, 16);
  EXPECT_EQ(w.settings.pageExtensions[8], "dll");
  EXPECT_EQ(w.settings.webColDarkBorder, "#00138C");
}

TEST(ReferenceTables, CountriesKeepTheirCodeAsWrittenInTwoCharacters) {
  TestWorld t;
  t.Data("Countries.txt",
         "AU,Australia\r\n"
         "\r\n"
         "usa,United States\n"     // LF alone ends a line too
         "X,Somewhere\r"
         "KR,Korea, Republic of\r\n"
         "GB,United Kingdom");     // no line end after the last line
  LoadCountries(t.w().tables, t.w().app.dataFolder);
  ReferenceTables& tables = t.w().tables;
  ASSERT_EQ(tables.countryCount, 5);
  EXPECT_EQ(tables.countries[2].code, "us");
  EXPECT_EQ(tables.countries[3].code, "X ");
  EXPECT_EQ(tables.countries[4].name, "Korea");  // only the first two parts count

  EXPECT_EQ(tables.LookupCountryName("au"), "Australia");
  EXPECT_EQ(tables.LookupCountryName("US"), "");  // "us" in the file never matches
  EXPECT_EQ(tables.LookupCountryName("us"), "");
  EXPECT_EQ(tables.LookupCountryName("GB"), "United Kingdom");
  EXPECT_EQ(tables.LookupCountryName("GB"), "United Kingdom");  // from the remembered country
  EXPECT_EQ(tables.LookupCountryName("ZZ"), "");
  EXPECT_EQ(tables.LookupCountryName("gb"), "United Kingdom");
  EXPECT_EQ(tables.LookupCountryName(""), "");
}

TEST(ReferenceTables, SearchEngineFileReplacesTheTableAndCountsPastFifty) {
  {
    TestWorld t;
    t.Data("Search engines.txt", "Foo,.foo.\r\n");
    LoadSearchEngines(t.w().tables, t.w().app.dataFolder);
    ASSERT_EQ(t.w().tables.searchEngineCount, 1);
    EXPECT_EQ(t.w().tables.searchEngines[1].name, "Foo");
    EXPECT_EQ(t.w().tables.searchEngines[1].fragment, ".foo.");
  }
  {
    TestWorld t;
    std::string file = "Empty fragment,\r\n\r\n";
    for (int i = 1; i <= 60; ++i) file += "E" + std::to_string(i) + ",.e" + std::to_string(i) + ".\r\n";
    t.Data("search ENGINES.txt", file);
    LoadSearchEngines(t.w().tables, t.w().app.dataFolder);
    const ReferenceTables& tables = t.w().tables;
    EXPECT_EQ(tables.searchEngineCount, 60);
    EXPECT_EQ(tables.SearchEngineSlots(), 50);
    EXPECT_EQ(tables.searchEngines[1].name, "E1");
    EXPECT_EQ(tables.searchEngines[50].name, "E50");
  }
}

TEST(ReferenceTables, ALineWithoutACommaEndsTheSettingsLoader) {
  {
    TestWorld t;
    t.Data("Countries.txt", "AU,Australia\r\nNOCOMMA\r\nGB,United Kingdom\r\n");
    t.Data("Search engines.txt", "Foo,.foo.\r\n");
    LoadSettings(t.w());
    EXPECT_EQ(t.w().tables.countryCount, 1);         // rows before stay
    EXPECT_EQ(t.w().tables.searchEngineCount, 26);   // the engines file is not read
  }
  {
    TestWorld t;
    t.Data("Search engines.txt", "Foo,.foo.\r\nBar\r\nBaz,.baz.\r\n");
    LoadSettings(t.w());
    ASSERT_EQ(t.w().tables.searchEngineCount, 1);
    EXPECT_EQ(t.w().tables.searchEngines[1].name, "Foo");
  }
}

}  // namespace
}  // namespace startup
