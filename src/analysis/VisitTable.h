// The table of open visits of all sites, with the indexes that answer the per-hit visit lookup
// without walking the table.
//
// Visits are addressed by a one-based index. A new visit is always appended after every index in
// use. A visit leaves the table only through RemoveMarked, which writes out and drops the visits
// whose ended flag is set and keeps the order of the others; an index is valid only until
// RemoveMarked next runs. The table order is the order of the indexes; the lookups return exactly
// what a walk of the table in that order would: the FIRST visit that fits.
//
// Dropping a visit leaves its index vacant instead of moving every later visit down, so that a
// visit ending costs no more than a few index updates however many visits are open; when more than
// half the indexes are vacant, RemoveMarked closes the gaps (renumbering the visits, in order).
// Walk the open visits with First()/Next().
//
// Every change of a visit's client address or host name must go through SetClientAddress /
// SetHostName so that the indexes stay right.
#pragma once

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

  // Number of open visits.
  int32_t Count() const { return open_; }
  // The open visits in table order: First() is the first index (0 when the table is empty),
  // Next(i) the one after i (0 after the last).
  int32_t First() const { return Next(0); }
  int32_t Next(int32_t i) const;
  // The k-th open visit in table order (1-based), or 0. Walks the table.
  int32_t Nth(int32_t k) const;

  // REQUIRES: i is the index of an open visit.
  database::Visit& operator[](int32_t i) { return slots_[static_cast<size_t>(i)].visit; }
  const database::Visit& operator[](int32_t i) const {
    return slots_[static_cast<size_t>(i)].visit;
  }

  // Appends a blank visit of `siteIndex` with `clientAddress` (and the address as host name, as a
  // visit's host name is its address until resolved); returns its index.
  int32_t Append(int32_t siteIndex, std::string_view clientAddress);

  // The first open visit of `siteIndex` whose client address equals `address` (exact,
  // case-sensitive), or 0. No allocation.
  int32_t FindByAddress(int32_t siteIndex, std::string_view address) const;

  const std::vector<std::string>& HostMasks() const { return masks_; }
  // The first open visit (any site) whose host name matches host mask `maskSlot` (0-based into
  // HostMasks()), or 0.
  int32_t FirstWithHostMask(size_t maskSlot) const;

  // Change a visit's client address or host name, keeping the indexes right.
  void SetClientAddress(int32_t i, std::string_view address);
  void SetHostName(int32_t i, std::string_view hostName);

  // Sets the ended flag of open visit `i` and notes it for the next RemoveMarked. Visits are
  // marked through here only: RemoveMarked looks at the marked visits, not at the whole table.
  void Mark(int32_t i);

  // Calls `writeOut(i)` for every visit marked since the last call whose ended flag is still set,
  // in table order, then drops them from the table, keeping the order of the rest. Returns the
  // number dropped. Every index taken before the call is invalid after it.
  int32_t RemoveMarked(const std::function<void(int32_t)>& writeOut);

  // Empties the table (a new run).
  void Clear();

 private:
  struct Slot {
    database::Visit visit;
    uint64_t maskBits = 0;  // which host masks the host name matches
    bool open = false;
  };
  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
  };
  // Per site: address -> the open visits with that address, in table order (nearly always one).
  using AddressIndex =
      std::unordered_map<std::string, std::vector<int32_t>, Hash, std::equal_to<>>;

  uint64_t MatchMasks(std::string_view hostName) const;
  void IndexAddress(int32_t i);
  void UnindexAddress(int32_t i);
  void Index(int32_t i);
  void Unindex(int32_t i);
  void Compact();

  std::vector<Slot> slots_;                 // slot 0 unused
  int32_t open_ = 0;
  std::vector<int32_t> marked_;             // marked since the last RemoveMarked
  std::vector<std::string> masks_;
  std::vector<std::set<int32_t>> byMask_;   // per mask: the open visits whose host name matches
  std::vector<AddressIndex> byAddress_;     // per site index
};

}  // namespace analysis
