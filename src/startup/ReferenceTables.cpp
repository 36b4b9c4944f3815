// The built-in reference tables and the loaders of "Countries.txt" and "Search engines.txt".
#include "startup/ReferenceTables.h"

#include <fstream>
#include <sstream>

#include "platform/Files.h"
#include "startup/Settings.h"
#include "vb/Convert.h"
#include "vb/Failure.h"
#include "vb/Strings.h"

namespace startup {

namespace {

// Reads a whole text file. Throws vb::Failure(75) when it cannot be read.
std::string ReadWholeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) vb::Raise(vb::kPathFileAccess);
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) vb::Raise(vb::kPathFileAccess);
  return text.str();
}

// Calls `each(line)` for every line of `text`. CR LF, CR and LF all end a line, so files written
// on either system read the same; a final line without a line end counts too.
template <typename Fn>
void ForEachLine(std::string_view text, Fn&& each) {
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find_first_of("\r\n", pos);
    if (end == std::string_view::npos) end = text.size();
    each(text.substr(pos, end - pos));
    pos = end;
    if (pos < text.size() && text[pos] == '\r') ++pos;
    if (pos < text.size() && text[pos] == '\n') ++pos;
  }
}

// The first two parts of `line` split on ","; a line without a comma has no second part, which is
// a failure ("Subscript out of range").
void SplitPair(std::string_view line, std::string_view& first, std::string_view& second) {
  const size_t comma = line.find(',');
  if (comma == std::string_view::npos) vb::Raise(vb::kSubscript);
  first = line.substr(0, comma);
  const size_t next = line.find(',', comma + 1);
  second = line.substr(comma + 1,
                       next == std::string_view::npos ? std::string_view::npos : next - comma - 1);
}

}  // namespace

std::string ReferenceTables::LookupCountryName(std::string_view code) {
  const std::string wanted = vb::UCase(code);
  // The remembered country answers a repeated code at once.
  if (lastCountry_ > 0 && lastCountry_ <= countryCount &&
      countries[static_cast<size_t>(lastCountry_)].code == wanted) {
    return countries[static_cast<size_t>(lastCountry_)].name;
  }
  for (int32_t i = 1; i <= countryCount; ++i) {
    if (countries[static_cast<size_t>(i)].code == wanted) {
      lastCountry_ = i;
      return countries[static_cast<size_t>(i)].name;
    }
  }
  return {};
}

void SetBuiltInSearchEngines(ReferenceTables& tables) {
  // Entry 17 matches on the scheme and the start of the directory's host; entry 24 on a
  // fragment cut after ".c"; "Ask Jeeves" stands twice on purpose.
  static constexpr std::pair<std::string_view, std::string_view> kEngines[] = {
      {"AOL Search", ".aol."},          {"AltaVista", ".altavista."},
      {"Ask Jeeves", ".askjeeves."},    {"Direct Hit", ".directhit."},
      {"Excite", ".excite."},           {"FAST Search", ".alltheweb."},
      {"Go / InfoSeek", ".go."},        {"GoTo", ".goto."},
      {"Google", ".google."},           {"HotBot", ".hotbot."},
      {"Inktomi", ".inktomi."},         {"LookSmart", ".looksmart."},
      {"Lycos", ".lycos."},             {"MSN Search", ".msn."},
      {"Netscape Search", ".netscape."}, {"Northern Light", ".northernlight."},
      {"Open Directory", "http://dmoz."}, {"Raging Search", ".raging."},
      {"RealNames", ".realnames."},     {"Snap", ".snap."},
      {"Webcrawler", ".webcrawler."},   {"Yahoo", ".yahoo."},
      {"WebTop", ".webtop."},           {"Ask Jeeves", ".ask.c"},
      {"ZDNet", ".zdnet."},             {"CNet", ".download.com"},
  };
  tables.searchEngines = {};
  int16_t n = 0;
  for (const auto& [name, fragment] : kEngines) {
    ++n;
    tables.searchEngines[static_cast<size_t>(n)] = {std::string(name), std::string(fragment)};
  }
  tables.searchEngineCount = n;
}

void SetBuiltInDnsMasks(AppSettings& settings) {
  settings.dnsMasks = {};
  settings.dnsMasks[1] = "*.proxy.aol.com";     // a consumer online service's proxies
  settings.dnsMasks[2] = "*.prodigy.net";       // a web portal's dial-up network
  settings.dnsMasks[3] = "*.crawl.yahoo.net";   // a search engine's crawler subdomain
  // Entry 4 is first given a third engine's crawler domain and at once overwritten: that mask is
  // deliberately not in the built-in table.
  settings.dnsMasks[4] = "*.googlebot.com";
  settings.dnsMasks[4] = "*.search?.inktomi.com";  // crawler hosts numbered by one digit
}

void SetBuiltInWebColours(AppSettings& settings) {
  settings.webColBackColor = "#FFFFFF";
  settings.webColButtonBorder = "#316AC5";
  settings.webColButtonFace = "#E1E6E8";
  settings.webColButtonHighlight = "#C1D2EE";
  settings.webColDarkBorder = "#00138C";
  settings.webColGrid = "#808080";
  settings.webColGridBack = "#FFFFFF";
  settings.webColGridHeader = "#ECE9D8";
  settings.webColLiteBorder = "#1F77F6";
  settings.webColTableHeading = "#2660DD";
}

void LoadCountries(ReferenceTables& tables, const std::string& dataFolder) {
  const auto path = platform::FindFileCI(dataFolder, "Countries.txt");
  if (!path) return;
  const std::string text = ReadWholeFile(*path);
  ForEachLine(text, [&](std::string_view line) {
    if (line.empty()) return;
    std::string_view code, name;
    SplitPair(line, code, name);
    if (tables.countryCount == INT32_MAX) vb::Raise(vb::kOverflow);
    // The code is left-aligned in two characters: cut, or padded with blanks.
    std::string two(code.substr(0, 2));
    two.resize(2, ' ');
    tables.countries.resize(static_cast<size_t>(tables.countryCount) + 1);
    tables.countries.push_back({std::move(two), std::string(name)});
    ++tables.countryCount;
  });
}

void LoadSearchEngines(ReferenceTables& tables, const std::string& dataFolder) {
  const auto path = platform::FindFileCI(dataFolder, "Search engines.txt");
  if (!path) return;
  const std::string text = ReadWholeFile(*path);
  // The file replaces the built-in table.
  tables.searchEngineCount = 0;
  ForEachLine(text, [&](std::string_view line) {
    if (line.empty()) return;
    std::string_view name, fragment;
    SplitPair(line, name, fragment);
    if (fragment.empty()) return;
    // Past 50 the line is dropped but still counted: the count may exceed the entries.
    if (tables.searchEngineCount == INT16_MAX) vb::Raise(vb::kOverflow);
    ++tables.searchEngineCount;
    if (tables.searchEngineCount <= kSearchEngineSlots) {
      tables.searchEngines[static_cast<size_t>(tables.searchEngineCount)] = {
          std::string(name), std::string(fragment)};
    }
  });
}

}  // namespace startup
