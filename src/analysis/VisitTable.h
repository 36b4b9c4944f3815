// The table of open visits of all sites: growable, one-based, with a count, plus the indexes that
// answer the per-hit visit lookup without walking the table.
//
// A new visit is always appended as element count + 1. Visits leave the table only through
// RemoveMarked, which rebuilds it without the marked ones, keeping the order of the rest; a visit
// index is valid only until then. The lookups return exactly what a walk from index 1 upward
// would return: the FIRST visit in table order that fits.
//
// Every change of a visit's client address or host name must go through SetClientAddress /
// SetHostName so that the indexes stay right.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "database/Visit.h"

namespace analysis {

class VisitTable {
 public:
  // `hostMasks`: the DNS host masks in slot order, as far as the first empty slot (the masks that
  // visitor grouping uses). At most 64 masks are indexed; later ones are never tried.
  explicit VisitTable(std::vector<std::string> hostMasks = {});

  int32_t Count() const { return static_cast<int32_t>(visits_.size()) - 1; }
  // REQUIRES: 1 <= i <= Count().
  database::Visit& operator[](int32_t i) { return visits_[static_cast<size_t>(i)]; }
  const database::Visit& operator[](int32_t i) const { return visits_[static_cast<size_t>(i)]; }
  // The records, slot 0 unused (for code that takes the table as a vector of visits).
  std::vector<database::Visit>& Records() { return visits_; }

  // Appends a blank visit of `siteIndex` with `clientAddress` (and the address as host name, as a
  // visit's host name is its address until resolved); returns its index, Count() afterwards.
  int32_t Append(int32_t siteIndex, std::string_view clientAddress);

  // The first visit of `siteIndex` whose client address equals `address` (exact,
  // case-sensitive), or 0. No allocation.
  int32_t FindByAddress(int32_t siteIndex, std::string_view address) const;

  const std::vector<std::string>& HostMasks() const { return masks_; }
  // The first visit (any site) whose host name matches host mask `maskSlot` (0-based into
  // HostMasks()), or 0.
  int32_t FirstWithHostMask(size_t maskSlot) const;

  // Change a visit's client address or host name, keeping the indexes right.
  void SetClientAddress(int32_t i, std::string_view address);
  void SetHostName(int32_t i, std::string_view hostName);

  // Calls `writeOut(i)` for every visit whose ended flag is set, in table order, then rebuilds the
  // table without them, keeping the order of the rest, and rebuilds the indexes. Returns the
  // number removed.
  int32_t RemoveMarked(const std::function<void(int32_t)>& writeOut);

  // Empties the table (a new run).
  void Clear();

 private:
  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
  };
  using AddressIndex = std::unordered_map<std::string, int32_t, Hash, std::equal_to<>>;

  uint64_t MatchMasks(std::string_view hostName) const;
  void IndexAddress(int32_t i);
  void UnindexAddress(int32_t i);
  void RebuildIndexes();

  std::vector<database::Visit> visits_;     // slot 0 unused
  std::vector<uint64_t> maskBits_;          // per visit: which host masks its host name matches
  std::vector<std::string> masks_;
  std::vector<std::set<int32_t>> byMask_;   // per mask: the visits whose host name matches
  std::vector<AddressIndex> byAddress_;     // per site index: address -> first visit
};

}  // namespace analysis
