// The field map: for each field of a log line that the hit processing understands, the place
// (0-based index into the line split by the site's separator) where it stands, or -1 when the log
// has no such column. A map is either preset from the site's log TYPE (fixed layouts without a
// header) or built from a "#Fields:" directive.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "startup/LogLayout.h"

namespace loginput {

// The 20 slots of the map, in their fixed order.
enum Slot : int {
  kDate = 0,
  kTime,
  kClientAddress,
  kUserName,
  kSiteName,
  kComputerName,
  kServerAddress,
  kMethod,
  kPage,  // the URI stem
  kQuery,
  kStatus,
  kSystemStatus,
  kBytesSent,
  kBytesReceived,
  kTimeTaken,
  kServerPort,
  kProtocolVersion,
  kUserAgent,
  kCookie,
  kReferrer,
  kSlotCount
};

inline constexpr int16_t kAbsent = -1;

struct FieldMap {
  std::array<int16_t, kSlotCount> place;

  FieldMap() { Clear(); }
  // Every slot absent.
  void Clear() { place.fill(kAbsent); }
  int16_t operator[](int slot) const { return place[slot]; }
  int16_t& operator[](int slot) { return place[slot]; }
  bool Has(int slot) const { return place[slot] >= 0; }
  // The highest place any slot refers to, or -1 when every slot is absent.
  int MaxPlace() const;
};

// Builds `map` from the column list of a fields directive (the text after "#Fields: ").
// 1. Every slot becomes -1. 2. TABs become blanks and the list is split at every single blank, so
// two blanks in a row give an empty item that still takes a place. 3. The site's `layout` picks
// the column of names: W3C Extended the W3C names, TAB separated and firewall-style their own
// names; any other layout leaves every slot at -1 (a fixed-layout site that meets a fields line
// loses its preset map). 4. Each item, trimmed and upper-cased, that equals a name of that column
// sets its slot to the item's place; a later duplicate wins; a mapped "DATE" sets `dateFieldFlag`.
// Unknown names are skipped. Never throws.
void ApplyFieldsDirective(FieldMap& map, startup::LogLayout layout, std::string_view fieldList,
                          bool& dateFieldFlag);

// The preset maps of the fixed layouts, TYPE 1 to 4. Slots not named by a layout become -1,
// except that C and D leave the site-name and query slots as they were.
void PresetMapA(FieldMap& map);  // TYPE 1, comma separated
void PresetMapB(FieldMap& map);  // TYPE 2, blank separated
void PresetMapC(FieldMap& map);  // TYPE 3, comma separated, no spider check
void PresetMapD(FieldMap& map);  // TYPE 4, blank separated, no spider check

}  // namespace loginput
