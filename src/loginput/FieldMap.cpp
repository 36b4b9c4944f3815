// Field map construction: the three name columns of a fields directive and the four presets.
#include "loginput/FieldMap.h"
#include "vb/Strings.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace loginput {
namespace {

using Names = std::array<std::string_view, kSlotCount>;

// W3C Extended names (TYPE 0), slot by slot.
constexpr Names kW3cNames = {
    "DATE",         "TIME",          "C-IP",          "CS-USERNAME",     "S-SITENAME",
    "S-COMPUTERNAME", "S-IP",        "CS-METHOD",     "CS-URI-STEM",     "CS-URI-QUERY",
    "SC-STATUS",    "SC-WIN32-STATUS", "SC-BYTES",    "CS-BYTES",        "TIME-TAKEN",
    "S-PORT",       "CS-VERSION",    "CS(USER-AGENT)", "CS(COOKIE)",     "CS(REFERER)"};

// TYPE 5 names: the page comes from "CS-URI", the agent from "C-AGENT", and there is no referrer
// column. "R-HOST" is a known column that maps to nothing (see kType5Ignored).
constexpr Names kType5Names = {
    "DATE",         "TIME",          "C-IP",          "CS-USERNAME",     "S-SITENAME",
    "S-COMPUTERNAME", "S-IP",        "CS-METHOD",     "CS-URI",          "CS-URI-QUERY",
    "SC-STATUS",    "SC-WIN32-STATUS", "SC-BYTES",    "CS-BYTES",        "TIME-TAKEN",
    "S-PORT",       "CS-VERSION",    "C-AGENT",       "CS(COOKIE)",      ""};
constexpr std::string_view kType5Ignored = "R-HOST";

// TYPE 4 names (a firewall-style layout). The crossings are deliberate and kept: the protocol
// column fills the user-agent slot, the size column the bytes-sent slot, "TCPWIN" the system
// status and "ACTION" the page.
constexpr Names kType4Names = {
    "DATE",  "TIME",     "DST-IP", "",   "",     "",       "",           "",
    "ACTION", "",        "",       "TCPWIN", "SIZE", "",   "",           "DST-PORT",
    "CS-VERSION", "PROTOCOL", "",  ""};

// Sets every listed slot; every other slot becomes -1, except those in `keep`.
void Preset(FieldMap& map, std::initializer_list<std::pair<int, int16_t>> places,
            std::initializer_list<int> keep = {}) {
  FieldMap old = map;
  map.Clear();
  for (int slot : keep) map[slot] = old[slot];
  for (auto [slot, place] : places) map[slot] = place;
}

}  // namespace

int FieldMap::MaxPlace() const {
#if defined(__SSE2__)
  // Asked once per line: the 20 slots as three overlapping groups of eight.
  static_assert(kSlotCount == 20);
  const auto* p = reinterpret_cast<const __m128i*>(place.data());
  __m128i m = _mm_max_epi16(_mm_loadu_si128(p), _mm_loadu_si128(p + 1));
  m = _mm_max_epi16(m, _mm_loadu_si128(reinterpret_cast<const __m128i*>(place.data() + 12)));
  m = _mm_max_epi16(m, _mm_srli_si128(m, 8));
  m = _mm_max_epi16(m, _mm_srli_si128(m, 4));
  m = _mm_max_epi16(m, _mm_srli_si128(m, 2));
  return static_cast<int16_t>(_mm_extract_epi16(m, 0));
#else
  int highest = kAbsent;
  for (int16_t p : place) highest = p > highest ? p : highest;
  return highest;
#endif
}

void ApplyFieldsDirective(FieldMap& map, startup::LogLayout layout, std::string_view fieldList,
                          bool& dateFieldFlag) {
  // 1. Every slot absent.
  map.Clear();
  // 3. The name column by the site's layout; any other TYPE keeps the empty map.
  const Names* names = nullptr;
  switch (layout) {
    case startup::LogLayout::W3cExtended: names = &kW3cNames; break;
    case startup::LogLayout::TabSeparated: names = &kType5Names; break;
    case startup::LogLayout::FirewallStyle: names = &kType4Names; break;
    default: return;
  }
  // 2. TAB counts as a blank; every single blank ends an item, so "A  B" is "A", "", "B".
  // 4. Match each item against the column; places are 16-bit as the map keeps them.
  int place = 0;
  size_t start = 0;
  for (size_t i = 0; i <= fieldList.size(); ++i) {
    if (i < fieldList.size() && fieldList[i] != ' ' && fieldList[i] != '\t') continue;
    std::string_view item = vb::Trim(fieldList.substr(start, i - start));
    start = i + 1;
    if (place > INT16_MAX) break;
    if (!item.empty() &&
        !(layout == startup::LogLayout::TabSeparated && vb::EqualsNoCase(item, kType5Ignored))) {
      for (int slot = 0; slot < kSlotCount; ++slot) {
        if (!(*names)[slot].empty() && vb::EqualsNoCase(item, (*names)[slot])) {
          map[slot] = static_cast<int16_t>(place);
          if (slot == kDate) dateFieldFlag = true;
          break;
        }
      }
    }
    ++place;
  }
}

void PresetMapA(FieldMap& map) {
  Preset(map, {{kClientAddress, 0}, {kDate, 2}, {kTime, 3}, {kSystemStatus, 10}, {kPage, 13}});
}

void PresetMapB(FieldMap& map) {
  Preset(map, {{kClientAddress, 0}, {kDate, 3}, {kPage, 6}, {kStatus, 8}, {kBytesSent, 9},
               {kReferrer, 10}, {kUserAgent, 11}});
}

void PresetMapC(FieldMap& map) {
  Preset(map,
         {{kClientAddress, 0}, {kUserName, 1}, {kUserAgent, 2}, {kDate, 4}, {kTime, 5},
          {kTimeTaken, 12}, {kBytesReceived, 13}, {kPage, 18}, {kSystemStatus, 21}},
         {kSiteName, kQuery});
}

void PresetMapD(FieldMap& map) {
  Preset(map,
         {{kDate, 0}, {kTime, 1}, {kPage, 2}, {kUserAgent, 3}, {kClientAddress, 5},
          {kBytesReceived, 8}, {kSystemStatus, 12}},
         {kSiteName, kQuery});
}

}  // namespace loginput
