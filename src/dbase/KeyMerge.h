// Merging sorted sources of index entries (key, then record number) into one order: the
// tournament shared by the merges of gathered keys into a tag's tree and by the close, which
// hands a tag's entries straight from its tree, its runs in memory and its spilled runs to the
// .MDX writer without building the whole tag in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "dbase/TagIndex.h"

namespace dbase {

// One sorted source: the entries [at, end) at hand, and a way to get the next ones.
struct MergeSource {
  const char* at = nullptr;
  const char* end = nullptr;
  // Called when [at, end) is used up: sets it to the source's next entries; false when there
  // are none. Empty for a source that is whole in memory. A source whose reading fails ends
  // there and says so itself (its owner asks after the merge).
  std::function<bool(const char*& at, const char*& end)> refill;
};

// Hands out the entries of its sources in the tag's order, ties by record number: the same
// order as sorting them all at once. Every node of a binary tree over the sources keeps the
// loser of the match played there, so the source that gave the last entry replays only its own
// path to the root, one comparison per level (a binary heap needs about two per level).
class EntryMerger {
 public:
  EntryMerger(const TagIndex& order, std::vector<MergeSource> sources)
      : order_(order), k_(order.KeyLength()), es_(size_t(k_) + 4), heads_(std::move(sources)) {
    for (size_t i = 0; i < heads_.size(); ++i) Fill(uint32_t(i));
    // The tree has a leaf per source, up to a power of two; the extra leaves are sources done.
    while (leaves_ < heads_.size()) leaves_ <<= 1;
    heads_.resize(leaves_);
    // Node n (1 .. leaves-1) has the children 2n and 2n+1; node leaves+i is source i.
    loser_.assign(leaves_, 0);
    std::vector<uint32_t> winner(2 * leaves_);
    for (size_t i = 0; i < leaves_; ++i) winner[leaves_ + i] = uint32_t(i);
    for (size_t n = leaves_ - 1; n >= 1; --n) {
      const uint32_t l = winner[2 * n], r = winner[2 * n + 1];
      const bool rightFirst = Before(r, l);
      winner[n] = rightFirst ? r : l;
      loser_[n] = rightFirst ? l : r;
    }
    best_ = winner[1];
  }

  // The next entry, valid until the following call; null when every source is done.
  const char* Next() {
    if (started_) {
      MergeSource& h = heads_[best_];
      h.at += es_;
      if (h.at == h.end) Fill(best_);
      for (size_t n = (leaves_ + best_) >> 1; n >= 1; n >>= 1)
        if (Before(loser_[n], best_)) std::swap(loser_[n], best_);
    }
    started_ = true;
    const MergeSource& h = heads_[best_];
    return h.at != h.end ? h.at : nullptr;
  }

 private:
  // Source i's next entries, when it has used up those at hand.
  void Fill(uint32_t i) {
    MergeSource& h = heads_[i];
    if (h.at != h.end) return;
    if (!h.refill || !h.refill(h.at, h.end)) h.at = h.end = nullptr;
  }
  // Whether source a's next entry goes before source b's; a source that is done goes after
  // every other.
  bool Before(uint32_t a, uint32_t b) const {
    const MergeSource& x = heads_[a];
    const MergeSource& y = heads_[b];
    if (x.at == x.end) return false;
    if (y.at == y.end) return true;
    const int c = order_.Compare(x.at, y.at, k_);
    if (c != 0) return c < 0;
    uint32_t ra, rb;
    std::memcpy(&ra, x.at + k_, 4);
    std::memcpy(&rb, y.at + k_, 4);
    return ra < rb;
  }

  const TagIndex& order_;
  const int k_;
  const size_t es_;
  std::vector<MergeSource> heads_;
  size_t leaves_ = 1;
  std::vector<uint32_t> loser_;
  uint32_t best_ = 0;
  bool started_ = false;
};

}  // namespace dbase
