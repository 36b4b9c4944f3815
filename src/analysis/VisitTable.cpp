// The table of open visits and its lookup indexes (see VisitTable.h).
#include "analysis/VisitTable.h"

#include <algorithm>
#include <cstring>

namespace analysis {

namespace {
constexpr size_t kMaxIndexedMasks = 64;
constexpr size_t kFirstBuckets = 64;  // a power of two
}

VisitTable::VisitTable(std::vector<std::string> hostMasks) : masks_(std::move(hostMasks)) {
  if (masks_.size() > kMaxIndexedMasks) masks_.resize(kMaxIndexedMasks);
  for (const std::string& m : masks_) maskPatterns_.emplace_back(m);
  Clear();
}

void VisitTable::Clear() {
  slots_.clear();
  slots_.emplace_back();
  open_ = 0;
  marked_.clear();
  byMask_.assign(masks_.size(), {});
  buckets_.assign(kFirstBuckets, Bucket{});
  bucketsUsed_ = 0;
  awaitingDns_.clear();
}

int32_t VisitTable::Next(int32_t i) const {
  const auto end = static_cast<int32_t>(slots_.size());
  for (++i; i < end; ++i)
    if (slots_[static_cast<size_t>(i)].open) return i;
  return 0;
}

int32_t VisitTable::Nth(int32_t k) const {
  for (int32_t i = First(); i != 0; i = Next(i))
    if (--k == 0) return i;
  return 0;
}

uint64_t VisitTable::MatchMasks(std::string_view hostName) const {
  uint64_t bits = 0;
  for (size_t k = 0; k < maskPatterns_.size(); ++k)
    if (maskPatterns_[k].Matches(hostName)) bits |= uint64_t{1} << k;
  return bits;
}

int32_t VisitTable::Append(int32_t siteIndex, std::string_view clientAddress) {
  slots_.emplace_back();
  const auto i = static_cast<int32_t>(slots_.size()) - 1;
  Slot& s = slots_.back();
  // A record from the pool brings the text buffers of a visit that ended.
  if (pool_.empty()) {
    s.visit = std::make_unique<database::Visit>();
  } else {
    s.visit = std::move(pool_.back());
    pool_.pop_back();
    // Reset here rather than when its visit ended: the record's memory is about to be written
    // anyway, so it is brought into the cache once instead of twice.
    s.visit->Reset();
    // The records the next two new visits will take are fetched meanwhile: the next one's texts
    // (its record came in at the append before), the one after's record.
    const size_t n = pool_.size();
    if (n >= 1) pool_[n - 1]->PrefetchTexts();
    if (n >= 2) FetchRecord(*pool_[n - 2]);
  }
  s.visit->siteIndex = siteIndex;
  s.visit->clientAddress.assign(clientAddress);
  s.visit->hostName.assign(clientAddress);
  s.maskBits = MatchMasks(s.visit->hostName);
  s.open = true;
  ++open_;
  Index(i);
  return i;
}

// ---- the address index -------------------------------------------------------------------------

uint32_t VisitTable::HashOf(int32_t siteIndex, std::string_view address) {
  // FNV-1a over the address, the site mixed in first; addresses are short.
  uint64_t h = 0xcbf29ce484222325ull ^ static_cast<uint32_t>(siteIndex);
  h *= 0x100000001b3ull;
  for (const char c : address) {
    h ^= static_cast<unsigned char>(c);
    h *= 0x100000001b3ull;
  }
  return static_cast<uint32_t>(h ^ (h >> 32));
}

size_t VisitTable::FindBucket(int32_t siteIndex, std::string_view address, uint32_t hash) const {
  const size_t mask = buckets_.size() - 1;
  for (size_t b = hash & mask;; b = (b + 1) & mask) {
    const Bucket& bucket = buckets_[b];
    if (bucket.head == 0) return b;
    if (bucket.hash != hash || bucket.site != siteIndex) continue;
    if (bucket.length <= kInlineAddress) {
      if (bucket.length == address.size() &&
          std::memcmp(bucket.address, address.data(), address.size()) == 0)
        return b;
      continue;
    }
    const database::Visit& v = *slots_[static_cast<size_t>(bucket.head)].visit;
    if (v.clientAddress == address) return b;
  }
}

void VisitTable::GrowBuckets() {
  std::vector<Bucket> old(buckets_.size() * 2);
  old.swap(buckets_);
  const size_t mask = buckets_.size() - 1;
  for (const Bucket& bucket : old) {
    if (bucket.head == 0) continue;
    size_t b = bucket.hash & mask;
    while (buckets_[b].head != 0) b = (b + 1) & mask;
    buckets_[b] = bucket;
  }
}

// Empties bucket b and moves later buckets of its probe run back, so that no lookup stops early.
void VisitTable::EraseBucket(size_t b) {
  const size_t mask = buckets_.size() - 1;
  size_t hole = b;
  for (size_t next = (b + 1) & mask; buckets_[next].head != 0; next = (next + 1) & mask) {
    const size_t home = buckets_[next].hash & mask;
    // The bucket at `next` may fill the hole when its home is not between the hole and it.
    const bool between = hole <= next ? (hole < home && home <= next) : (hole < home || home <= next);
    if (between) continue;
    buckets_[hole] = buckets_[next];
    hole = next;
  }
  buckets_[hole] = Bucket{};
  --bucketsUsed_;
}

void VisitTable::IndexAddress(int32_t i) {
  Slot& s = slots_[static_cast<size_t>(i)];
  s.nextSame = 0;
  if (s.visit->siteIndex < 0) return;
  if ((bucketsUsed_ + 1) * 2 > buckets_.size()) GrowBuckets();
  const uint32_t hash = HashOf(s.visit->siteIndex, s.visit->clientAddress);
  const size_t b = FindBucket(s.visit->siteIndex, s.visit->clientAddress, hash);
  Bucket& bucket = buckets_[b];
  if (bucket.head == 0) {
    const std::string& address = s.visit->clientAddress;
    bucket = Bucket{hash, i, s.visit->siteIndex,
                    static_cast<uint8_t>(std::min<size_t>(address.size(), kInlineAddress + 1)), {}};
    if (address.size() <= kInlineAddress)
      std::memcpy(bucket.address, address.data(), address.size());
    ++bucketsUsed_;
    return;
  }
  // Into the chain in table order (nearly always at its end, and the chain nearly always one long).
  if (i < bucket.head) {
    s.nextSame = bucket.head;
    bucket.head = i;
    return;
  }
  int32_t at = bucket.head;
  while (slots_[static_cast<size_t>(at)].nextSame != 0 &&
         slots_[static_cast<size_t>(at)].nextSame < i)
    at = slots_[static_cast<size_t>(at)].nextSame;
  s.nextSame = slots_[static_cast<size_t>(at)].nextSame;
  slots_[static_cast<size_t>(at)].nextSame = i;
}

void VisitTable::UnindexAddress(int32_t i) {
  Slot& s = slots_[static_cast<size_t>(i)];
  if (s.visit->siteIndex < 0) return;
  const uint32_t hash = HashOf(s.visit->siteIndex, s.visit->clientAddress);
  const size_t b = FindBucket(s.visit->siteIndex, s.visit->clientAddress, hash);
  Bucket& bucket = buckets_[b];
  if (bucket.head == 0) return;
  if (bucket.head == i) {
    if (s.nextSame != 0) bucket.head = s.nextSame;
    else EraseBucket(b);
  } else {
    int32_t at = bucket.head;
    while (at != 0 && slots_[static_cast<size_t>(at)].nextSame != i)
      at = slots_[static_cast<size_t>(at)].nextSame;
    if (at != 0) slots_[static_cast<size_t>(at)].nextSame = s.nextSame;
  }
  s.nextSame = 0;
}

void VisitTable::Index(int32_t i) {
  const uint64_t bits = slots_[static_cast<size_t>(i)].maskBits;
  for (size_t k = 0; k < masks_.size(); ++k)
    if (bits >> k & 1) byMask_[k].insert(i);
  IndexAddress(i);
}

void VisitTable::Unindex(int32_t i) {
  const uint64_t bits = slots_[static_cast<size_t>(i)].maskBits;
  for (size_t k = 0; k < masks_.size(); ++k)
    if (bits >> k & 1) byMask_[k].erase(i);
  UnindexAddress(i);
}

int32_t VisitTable::FindByAddress(int32_t siteIndex, std::string_view address) const {
  if (siteIndex < 0) return 0;
  return buckets_[FindBucket(siteIndex, address, HashOf(siteIndex, address))].head;
}

int32_t VisitTable::FirstWithHostMask(size_t maskSlot) const {
  if (maskSlot >= byMask_.size() || byMask_[maskSlot].empty()) return 0;
  return *byMask_[maskSlot].begin();
}

void VisitTable::SetClientAddress(int32_t i, std::string_view address) {
  database::Visit& v = *slots_[static_cast<size_t>(i)].visit;
  if (v.clientAddress == address) return;
  UnindexAddress(i);
  v.clientAddress.assign(address);
  IndexAddress(i);
}

void VisitTable::SetHostName(int32_t i, std::string_view hostName) {
  Slot& s = slots_[static_cast<size_t>(i)];
  if (s.visit->hostName == hostName) return;  // the same name fits the same masks
  s.visit->hostName.assign(hostName);
  const uint64_t bits = MatchMasks(s.visit->hostName);
  for (size_t k = 0; k < masks_.size(); ++k) {
    const bool was = s.maskBits >> k & 1, is = bits >> k & 1;
    if (was && !is) byMask_[k].erase(i);
    if (is && !was) byMask_[k].insert(i);
  }
  s.maskBits = bits;
}

void VisitTable::AwaitDns(int32_t i, int16_t request) {
  slots_[static_cast<size_t>(i)].visit->dnsRequest = request;
  for (auto& [number, visit] : awaitingDns_) {
    if (visit == i) {
      number = request;
      return;
    }
  }
  awaitingDns_.emplace_back(request, i);
}

int32_t VisitTable::FindAwaitingDns(int16_t request) const {
  for (const auto& [number, visit] : awaitingDns_)
    if (number == request) return visit;
  return 0;
}

void VisitTable::DnsAnswered(int32_t i) {
  slots_[static_cast<size_t>(i)].visit->resolved = true;
  std::erase_if(awaitingDns_, [i](const auto& entry) { return entry.second == i; });
}

void VisitTable::Mark(int32_t i) {
  slots_[static_cast<size_t>(i)].visit->ended = true;
  marked_.push_back(i);
}

const std::vector<int32_t>& VisitTable::TakeMarked() {
  // The marked visits that are still open and still ended, in table order.
  std::sort(marked_.begin(), marked_.end());
  marked_.erase(std::unique(marked_.begin(), marked_.end()), marked_.end());
  gone_.swap(marked_);
  marked_.clear();
  gone_.erase(std::remove_if(gone_.begin(), gone_.end(),
                             [&](int32_t i) {
                               const Slot& s = slots_[static_cast<size_t>(i)];
                               return !s.open || !s.visit->ended;
                             }),
              gone_.end());
  return gone_;
}

int32_t VisitTable::DropTaken() {
  // A visit that leaves the table waits for no answer: the answer goes to the cache instead.
  if (!awaitingDns_.empty()) {
    std::erase_if(awaitingDns_, [this](const auto& entry) {
      return std::binary_search(gone_.begin(), gone_.end(), entry.second);  // gone_ is sorted
    });
  }
  for (int32_t i : gone_) {
    Slot& s = slots_[static_cast<size_t>(i)];
    Unindex(i);
    s.open = false;
    --open_;
  }
  // Vacant indexes at the end are given back at once; the others once they are the majority.
  DropTail();
  if (static_cast<size_t>(open_) * 2 + 64 < slots_.size()) Compact();
  const auto removed = static_cast<int32_t>(gone_.size());
  gone_.clear();
  // Marks made while the visits were written out are not kept.
  marked_.clear();
  return removed;
}

// Gives back the vacant slots at the end of the table; their visit records go to the pool.
void VisitTable::DropTail() {
  while (slots_.size() > 1 && !slots_.back().open) {
    if (slots_.back().visit) pool_.push_back(std::move(slots_.back().visit));
    slots_.pop_back();
  }
}

void VisitTable::Compact() {
  // The open visits move down in order (their records stay where they are: only the pointers
  // move); the vacant records they leave go to the pool. The renumbering keeps the table order,
  // so the indexes keep their shape: bucket heads, chains and mask sets only take the new
  // numbers, without hashing an address again.
  std::vector<int32_t>& renumber = renumber_;
  renumber.assign(slots_.size(), 0);
  size_t out = 1;
  for (size_t i = 1; i < slots_.size(); ++i) {
    if (!slots_[i].open) continue;
    renumber[i] = static_cast<int32_t>(out);
    if (out != i) {
      std::swap(slots_[out].visit, slots_[i].visit);
      slots_[out].maskBits = slots_[i].maskBits;
      slots_[out].nextSame = slots_[i].nextSame;
      slots_[out].open = true;
      slots_[i].open = false;
      slots_[i].nextSame = 0;
    }
    ++out;
  }
  DropTail();
  for (Bucket& bucket : buckets_)
    if (bucket.head != 0) bucket.head = renumber[static_cast<size_t>(bucket.head)];
  for (size_t i = 1; i < slots_.size(); ++i)
    slots_[i].nextSame = renumber[static_cast<size_t>(slots_[i].nextSame)];
  for (auto& entry : awaitingDns_) entry.second = renumber[static_cast<size_t>(entry.second)];
  for (auto& set : byMask_) {
    std::set<int32_t> renumbered;
    for (const int32_t i : set) renumbered.insert(renumbered.end(), renumber[static_cast<size_t>(i)]);
    set.swap(renumbered);
  }
}

}  // namespace analysis
