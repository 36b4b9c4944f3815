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
  visits_.clear();
  visits_.emplace_back();
  maskBits_.assign(1, 0);
  byMask_.assign(masks_.size(), {});
  byAddress_.clear();
}

uint64_t VisitTable::MatchMasks(std::string_view hostName) const {
  uint64_t bits = 0;
  for (size_t k = 0; k < masks_.size(); ++k)
    if (vb::Like(hostName, masks_[k])) bits |= uint64_t{1} << k;
  return bits;
}

int32_t VisitTable::Append(int32_t siteIndex, std::string_view clientAddress) {
  visits_.emplace_back();
  const int32_t i = Count();
  database::Visit& v = visits_.back();
  v.siteIndex = siteIndex;
  v.clientAddress.assign(clientAddress);
  v.hostName.assign(clientAddress);
  maskBits_.push_back(MatchMasks(v.hostName));
  for (size_t k = 0; k < masks_.size(); ++k)
    if (maskBits_.back() >> k & 1) byMask_[k].insert(i);
  IndexAddress(i);
  return i;
}

void VisitTable::IndexAddress(int32_t i) {
  const database::Visit& v = visits_[static_cast<size_t>(i)];
  if (v.siteIndex < 0) return;
  const auto site = static_cast<size_t>(v.siteIndex);
  if (byAddress_.size() <= site) byAddress_.resize(site + 1);
  AddressIndex& index = byAddress_[site];
  auto it = index.find(std::string_view(v.clientAddress));
  if (it == index.end()) {
    index.emplace(v.clientAddress, i);
  } else if (i < it->second) {
    it->second = i;  // an earlier visit now carries the address: it is the first match
  }
}

void VisitTable::UnindexAddress(int32_t i) {
  const database::Visit& v = visits_[static_cast<size_t>(i)];
  if (v.siteIndex < 0 || static_cast<size_t>(v.siteIndex) >= byAddress_.size()) return;
  AddressIndex& index = byAddress_[static_cast<size_t>(v.siteIndex)];
  auto it = index.find(std::string_view(v.clientAddress));
  if (it == index.end() || it->second != i) return;
  // The next visit in table order with the same site and address takes over (rare: an address
  // that a DNS answer changed).
  for (int32_t j = i + 1; j <= Count(); ++j) {
    const database::Visit& w = visits_[static_cast<size_t>(j)];
    if (w.siteIndex == v.siteIndex && w.clientAddress == v.clientAddress) {
      it->second = j;
      return;
    }
  }
  index.erase(it);
}

int32_t VisitTable::FindByAddress(int32_t siteIndex, std::string_view address) const {
  if (siteIndex < 0 || static_cast<size_t>(siteIndex) >= byAddress_.size()) return 0;
  const AddressIndex& index = byAddress_[static_cast<size_t>(siteIndex)];
  auto it = index.find(address);
  return it == index.end() ? 0 : it->second;
}

int32_t VisitTable::FirstWithHostMask(size_t maskSlot) const {
  if (maskSlot >= byMask_.size() || byMask_[maskSlot].empty()) return 0;
  return *byMask_[maskSlot].begin();
}

void VisitTable::SetClientAddress(int32_t i, std::string_view address) {
  database::Visit& v = visits_[static_cast<size_t>(i)];
  if (v.clientAddress == address) return;
  UnindexAddress(i);
  v.clientAddress.assign(address);
  IndexAddress(i);
}

void VisitTable::SetHostName(int32_t i, std::string_view hostName) {
  database::Visit& v = visits_[static_cast<size_t>(i)];
  v.hostName.assign(hostName);
  const uint64_t bits = MatchMasks(v.hostName);
  uint64_t& old = maskBits_[static_cast<size_t>(i)];
  for (size_t k = 0; k < masks_.size(); ++k) {
    const bool was = old >> k & 1, is = bits >> k & 1;
    if (was && !is) byMask_[k].erase(i);
    if (is && !was) byMask_[k].insert(i);
  }
  old = bits;
}

int32_t VisitTable::RemoveMarked(const std::function<void(int32_t)>& writeOut) {
  int32_t removed = 0;
  for (int32_t i = 1; i <= Count(); ++i) {
    if (visits_[static_cast<size_t>(i)].ended) {
      writeOut(i);
      ++removed;
    }
  }
  if (removed == 0) return 0;
  // Rebuild without the marked visits, keeping the order of the others.
  size_t out = 1;
  for (size_t i = 1; i < visits_.size(); ++i) {
    if (visits_[i].ended) continue;
    if (out != i) {
      visits_[out] = std::move(visits_[i]);
      maskBits_[out] = maskBits_[i];
    }
    ++out;
  }
  visits_.resize(out);
  maskBits_.resize(out);
  RebuildIndexes();
  return removed;
}

void VisitTable::RebuildIndexes() {
  for (auto& s : byMask_) s.clear();
  for (auto& m : byAddress_) m.clear();
  for (int32_t i = 1; i <= Count(); ++i) {
    const uint64_t bits = maskBits_[static_cast<size_t>(i)];
    for (size_t k = 0; k < masks_.size(); ++k)
      if (bits >> k & 1) byMask_[k].insert(i);
    IndexAddress(i);
  }
}

}  // namespace analysis
