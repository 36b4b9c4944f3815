// The table of open visits and its lookup indexes (see VisitTable.h).
#include "analysis/VisitTable.h"

#include <algorithm>

#include "vb/Like.h"

namespace analysis {

namespace {
constexpr size_t kMaxIndexedMasks = 64;
}

VisitTable::VisitTable(std::vector<std::string> hostMasks) : masks_(std::move(hostMasks)) {
  if (masks_.size() > kMaxIndexedMasks) masks_.resize(kMaxIndexedMasks);
  Clear();
}

void VisitTable::Clear() {
  slots_.clear();
  slots_.emplace_back();
  open_ = 0;
  marked_.clear();
  byMask_.assign(masks_.size(), {});
  byAddress_.clear();
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
  for (size_t k = 0; k < masks_.size(); ++k)
    if (vb::Like(hostName, masks_[k])) bits |= uint64_t{1} << k;
  return bits;
}

int32_t VisitTable::Append(int32_t siteIndex, std::string_view clientAddress) {
  slots_.emplace_back();
  const auto i = static_cast<int32_t>(slots_.size()) - 1;
  Slot& s = slots_.back();
  s.visit.siteIndex = siteIndex;
  s.visit.clientAddress.assign(clientAddress);
  s.visit.hostName.assign(clientAddress);
  s.maskBits = MatchMasks(s.visit.hostName);
  s.open = true;
  ++open_;
  Index(i);
  return i;
}

void VisitTable::IndexAddress(int32_t i) {
  const database::Visit& v = slots_[static_cast<size_t>(i)].visit;
  if (v.siteIndex < 0) return;
  const auto site = static_cast<size_t>(v.siteIndex);
  if (byAddress_.size() <= site) byAddress_.resize(site + 1);
  AddressIndex& index = byAddress_[site];
  auto it = index.find(std::string_view(v.clientAddress));
  if (it == index.end()) it = index.emplace(v.clientAddress, std::vector<int32_t>{}).first;
  std::vector<int32_t>& list = it->second;
  list.insert(std::upper_bound(list.begin(), list.end(), i), i);
}

void VisitTable::UnindexAddress(int32_t i) {
  const database::Visit& v = slots_[static_cast<size_t>(i)].visit;
  if (v.siteIndex < 0 || static_cast<size_t>(v.siteIndex) >= byAddress_.size()) return;
  AddressIndex& index = byAddress_[static_cast<size_t>(v.siteIndex)];
  auto it = index.find(std::string_view(v.clientAddress));
  if (it == index.end()) return;
  std::vector<int32_t>& list = it->second;
  list.erase(std::remove(list.begin(), list.end(), i), list.end());
  if (list.empty()) index.erase(it);
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
  if (siteIndex < 0 || static_cast<size_t>(siteIndex) >= byAddress_.size()) return 0;
  const AddressIndex& index = byAddress_[static_cast<size_t>(siteIndex)];
  auto it = index.find(address);
  return it == index.end() ? 0 : it->second.front();
}

int32_t VisitTable::FirstWithHostMask(size_t maskSlot) const {
  if (maskSlot >= byMask_.size() || byMask_[maskSlot].empty()) return 0;
  return *byMask_[maskSlot].begin();
}

void VisitTable::SetClientAddress(int32_t i, std::string_view address) {
  database::Visit& v = slots_[static_cast<size_t>(i)].visit;
  if (v.clientAddress == address) return;
  UnindexAddress(i);
  v.clientAddress.assign(address);
  IndexAddress(i);
}

void VisitTable::SetHostName(int32_t i, std::string_view hostName) {
  Slot& s = slots_[static_cast<size_t>(i)];
  s.visit.hostName.assign(hostName);
  const uint64_t bits = MatchMasks(s.visit.hostName);
  for (size_t k = 0; k < masks_.size(); ++k) {
    const bool was = s.maskBits >> k & 1, is = bits >> k & 1;
    if (was && !is) byMask_[k].erase(i);
    if (is && !was) byMask_[k].insert(i);
  }
  s.maskBits = bits;
}

void VisitTable::Mark(int32_t i) {
  slots_[static_cast<size_t>(i)].visit.ended = true;
  marked_.push_back(i);
}

int32_t VisitTable::RemoveMarked(const std::function<void(int32_t)>& writeOut) {
  // The marked visits that are still open and still ended, in table order.
  std::sort(marked_.begin(), marked_.end());
  marked_.erase(std::unique(marked_.begin(), marked_.end()), marked_.end());
  std::vector<int32_t> gone;
  gone.swap(marked_);
  gone.erase(std::remove_if(gone.begin(), gone.end(),
                            [&](int32_t i) {
                              const Slot& s = slots_[static_cast<size_t>(i)];
                              return !s.open || !s.visit.ended;
                            }),
             gone.end());
  for (int32_t i : gone) writeOut(i);
  for (int32_t i : gone) {
    Slot& s = slots_[static_cast<size_t>(i)];
    Unindex(i);
    s.open = false;
    s.visit = database::Visit{};
    --open_;
  }
  // Vacant indexes at the end are given back at once; the others once they are the majority.
  while (slots_.size() > 1 && !slots_.back().open) slots_.pop_back();
  if (static_cast<size_t>(open_) * 2 + 64 < slots_.size()) Compact();
  const auto removed = static_cast<int32_t>(gone.size());
  marked_.swap(gone);  // keep the buffer
  marked_.clear();
  return removed;
}

void VisitTable::Compact() {
  size_t out = 1;
  for (size_t i = 1; i < slots_.size(); ++i) {
    if (!slots_[i].open) continue;
    if (out != i) slots_[out] = std::move(slots_[i]);
    ++out;
  }
  slots_.resize(out);
  for (auto& s : byMask_) s.clear();
  for (auto& m : byAddress_) m.clear();
  for (int32_t i = First(); i != 0; i = Next(i)) Index(i);
}

}  // namespace analysis
