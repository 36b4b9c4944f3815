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
// In the steady state of a long scan nothing here allocates: the address index is one flat
// open-addressing table whose size only grows, and a dropped visit's record goes to a pool with its
// text buffers, from which the next Append takes it.
//
// Every change of a visit's client address or host name must go through SetClientAddress /
// SetHostName so that the indexes stay right.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "database/Visit.h"
#include "vb/Like.h"

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
  database::Visit& operator[](int32_t i) { return *slots_[static_cast<size_t>(i)].visit; }
  const database::Visit& operator[](int32_t i) const {
    return *slots_[static_cast<size_t>(i)].visit;
  }

  // Appends a blank visit of `siteIndex` with `clientAddress` (and the address as host name, as a
  // visit's host name is its address until resolved); returns its index.
  int32_t Append(int32_t siteIndex, std::string_view clientAddress);

  // The first open visit of `siteIndex` whose client address equals `address` (exact,
  // case-sensitive), or 0. No allocation.
  int32_t FindByAddress(int32_t siteIndex, std::string_view address) const;

  const std::vector<std::string>& HostMasks() const { return masks_; }
  // Whether `hostName` fits host mask `maskSlot` (0-based into HostMasks()).
  bool FitsHostMask(size_t maskSlot, std::string_view hostName) const {
    return maskPatterns_[maskSlot].Matches(hostName);
  }
  // The first open visit (any site) whose host name matches host mask `maskSlot` (0-based into
  // HostMasks()), or 0.
  int32_t FirstWithHostMask(size_t maskSlot) const;

  // Change a visit's client address or host name, keeping the indexes right.
  void SetClientAddress(int32_t i, std::string_view address);
  void SetHostName(int32_t i, std::string_view hostName);

  // Reverse-DNS answers. Visit `i` waits for the answer to request `request` (set as its
  // dnsRequest here) until DnsAnswered(i) or until it leaves the table. Request numbers of
  // waiting visits are distinct (the resolver never gives out a number still outstanding).
  void AwaitDns(int32_t i, int16_t request);
  // The open visit waiting for the answer to `request`, or 0. No walk of the table.
  int32_t FindAwaitingDns(int16_t request) const;
  // The answer for visit `i` came: its resolved flag is set and it waits no longer.
  void DnsAnswered(int32_t i);

  // Sets the ended flag of open visit `i` and notes it for the next RemoveMarked. Visits are
  // marked through here only: RemoveMarked looks at the marked visits, not at the whole table.
  void Mark(int32_t i);

  // Calls `writeOut(i)` for every visit marked since the last call whose ended flag is still set,
  // in table order, then drops them from the table, keeping the order of the rest. Returns the
  // number dropped. Every index taken before the call is invalid after it.
  template <class WriteOut>
  int32_t RemoveMarked(WriteOut&& writeOut) {
    return RemoveMarked(writeOut, [](int32_t) {});
  }
  // The same, calling `prepare(i)` a few visits before `writeOut(i)`: a place to ask for the
  // memory that writeOut(i) will read, while earlier visits are written out. Many visits end at
  // once (at a day's first hit, most of the day before), and each one's memory is cold by then.
  template <class WriteOut, class Prepare>
  int32_t RemoveMarked(WriteOut&& writeOut, Prepare&& prepare) {
    const std::vector<int32_t>& gone = TakeMarked();
    const size_t n = gone.size();
    for (size_t k = 0; k < n; ++k) {
      if (k + kFetchAhead < n) FetchVisit(gone[k + kFetchAhead]);
      if (k + kPrepareAhead < n) prepare(gone[k + kPrepareAhead]);
      writeOut(gone[k]);
    }
    return DropTaken();
  }

  // Empties the table (a new run).
  void Clear();

 private:
  // A slot points to its visit record, so that compacting the table moves pointers, and a walk
  // of the slots (open flags) stays in a few cache lines. A vacant slot keeps the record of the
  // visit that ended there until the record goes to the pool (slot 0 none).
  struct Slot {
    std::unique_ptr<database::Visit> visit;
    uint64_t maskBits = 0;  // which host masks the host name matches
    int32_t nextSame = 0;   // the next open visit with the same site and address, or 0
    bool open = false;
  };
  // One bucket of the address index: the first open visit (in table order) of one site and
  // address, and the hash of that pair. head 0 = empty bucket. An address of up to
  // kInlineAddress characters is kept in the bucket too, so that a lookup compares it without
  // reading the visit.
  static constexpr size_t kInlineAddress = 15;
  struct Bucket {
    uint32_t hash = 0;
    int32_t head = 0;
    int32_t site = 0;
    uint8_t length = 0;  // of the address; above kInlineAddress: not kept here
    char address[kInlineAddress] = {};
  };

  // How far ahead RemoveMarked fetches a visit's record (its own memory) and calls `prepare`
  // (which reads the record, so it comes after the fetch).
  static constexpr size_t kFetchAhead = 8;
  static constexpr size_t kPrepareAhead = 4;
  // Asks the processor to fetch a visit record's own memory (not its texts') into its cache.
  static void FetchRecord(const database::Visit& v) {
    const char* p = reinterpret_cast<const char*>(&v);
    for (size_t at = 0; at < sizeof(database::Visit); at += 64) __builtin_prefetch(p + at);
  }
  // The same for the record of visit `i`.
  void FetchVisit(int32_t i) const { FetchRecord(*slots_[static_cast<size_t>(i)].visit); }

  // RemoveMarked in two halves: the marked visits that are still open and still ended, in table
  // order; then dropping them (and closing the gaps when they are the majority).
  const std::vector<int32_t>& TakeMarked();
  int32_t DropTaken();
  static uint32_t HashOf(int32_t siteIndex, std::string_view address);
  // The bucket of (siteIndex, address), or the empty bucket where it would go.
  size_t FindBucket(int32_t siteIndex, std::string_view address, uint32_t hash) const;
  void GrowBuckets();
  void EraseBucket(size_t b);
  uint64_t MatchMasks(std::string_view hostName) const;
  void IndexAddress(int32_t i);
  void UnindexAddress(int32_t i);
  void Index(int32_t i);
  void Unindex(int32_t i);
  void DropTail();
  void Compact();

  std::vector<Slot> slots_;                 // slot 0 unused
  int32_t open_ = 0;
  std::vector<int32_t> marked_;             // marked since the last RemoveMarked
  std::vector<int32_t> gone_;               // RemoveMarked's list, kept for its buffer
  std::vector<std::string> masks_;
  std::vector<vb::LikePattern> maskPatterns_;  // masks_, prepared for matching
  std::vector<std::set<int32_t>> byMask_;   // per mask: the open visits whose host name matches
  // The address index: (site, address) -> the first open visit with them, the others chained
  // through Slot::nextSame in table order. Linear probing; the size is a power of two.
  std::vector<Bucket> buckets_;
  size_t bucketsUsed_ = 0;
  std::vector<std::unique_ptr<database::Visit>> pool_;  // dropped visits with their buffers, reset when taken
  std::vector<int32_t> renumber_;           // Compact's old -> new numbers, kept for its buffer
  // The visits waiting for a reverse-DNS answer: (request number, visit index). At most about a
  // hundred, as the hit analysis keeps no more requests in flight.
  std::vector<std::pair<int16_t, int32_t>> awaitingDns_;
};

}  // namespace analysis
