// The built-in reference tables and their files: the search-engine table ("Search engines.txt")
// and the country table ("Countries.txt"), both in the data folder, plus the built-in DNS host
// masks. (The page-extension list, the DNS masks and the web colours are kept in AppSettings,
// since SETTINGS.INI keys set them.)
//
// File formats, both read as whole lines (CR LF, CR or LF end a line), empty lines skipped:
//   Countries.txt        CODE,Name          e.g. "AU,Australia"
//   Search engines.txt   Name,host fragment e.g. "Google,.google."
// Each line is split on ","; only the first two parts count, so a name with a comma is cut there.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace startup {

struct AppSettings;

inline constexpr int kSearchEngineSlots = 50;

struct SearchEngine {
  std::string name;      // display name
  std::string fragment;  // host fragment, e.g. ".google."
};

struct Country {
  std::string code;  // exactly two characters, as written in the file (cut or blank-padded)
  std::string name;
};

struct ReferenceTables {
  // Search engines, slots 1..50 (slot 0 unused). `searchEngineCount` may exceed 50 when the file
  // has more lines: the extra lines are counted but dropped. Read only slots
  // 1..SearchEngineSlots().
  std::array<SearchEngine, kSearchEngineSlots + 1> searchEngines{};
  int16_t searchEngineCount = 0;
  int SearchEngineSlots() const {
    return searchEngineCount < kSearchEngineSlots ? searchEngineCount : kSearchEngineSlots;
  }

  // Countries, 1..countryCount (slot 0 unused); no built-in rows.
  std::vector<Country> countries{Country{}};
  int32_t countryCount = 0;

  // The name of the country whose code equals upper-case(`code`), or "" when none does.
  // The last country found is remembered and answers a repeated code at once; a miss leaves it
  // as it was. Codes are compared exactly, so a lower-case code in the file never matches.
  std::string LookupCountryName(std::string_view code);

 private:
  int32_t lastCountry_ = 0;  // index of the last country found, 0 = none yet
};

// The 26 built-in search engines, count 26.
void SetBuiltInSearchEngines(ReferenceTables& tables);
// The built-in DNS host masks: entries 1..4 set, 5..50 empty.
void SetBuiltInDnsMasks(AppSettings& settings);
// The ten built-in web colours.
void SetBuiltInWebColours(AppSettings& settings);

// Reads "Countries.txt" from `dataFolder` (found case-insensitively) and appends its rows. Does
// nothing when the file does not exist. Throws vb::Failure on a line without a comma or a file
// that cannot be read; rows read before stay.
void LoadCountries(ReferenceTables& tables, const std::string& dataFolder);

// Reads "Search engines.txt" from `dataFolder`. When the file exists the built-in table is
// dropped first (count 0); lines whose second part is empty are skipped. Does nothing when the
// file does not exist. Throws vb::Failure on a line without a comma or a file that cannot be read
// (and vb::Failure(6) past 32767 lines); entries read before stay.
void LoadSearchEngines(ReferenceTables& tables, const std::string& dataFolder);

}  // namespace startup
