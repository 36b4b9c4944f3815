// The in-memory B+tree of an index tag.
#include "dbase/TagIndex.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

namespace dbase {

struct TagIndex::Node {
  uint16_t count;  // entries (leaf) or children (inner)
  bool leaf;
};

struct TagIndex::Leaf : TagIndex::Node {
  Leaf* prev;
  Leaf* next;
  // followed by leafCap_ entries
};

struct TagIndex::Inner : TagIndex::Node {
  // followed by innerCap_ child pointers, then innerCap_ separators (slot 0 unused)
};

namespace {
constexpr size_t kLeafHead = (sizeof(TagIndex::Leaf) + 7) & ~size_t(7);
constexpr size_t kInnerHead = 8;
constexpr int kLeafBytes = 2048;
constexpr int kInnerBytes = 4096;
}  // namespace

TagIndex::TagIndex(int keyLength, bool descending)
    : keyLength_(keyLength),
      descending_(descending),
      entrySize_(keyLength + 4),
      leafCap_(std::clamp(kLeafBytes / entrySize_, 8, 255)),
      innerCap_(std::clamp(kInnerBytes / (entrySize_ + 8), 8, 255)),
      leafPool_(LeafBytes()),
      innerPool_(InnerBytes()) {
  root_ = NewLeaf();
}

// The pools give their chunks back as a whole: no node needs freeing one by one.
TagIndex::~TagIndex() = default;

size_t TagIndex::LeafBytes() const { return kLeafHead + size_t(leafCap_) * size_t(entrySize_); }

size_t TagIndex::InnerBytes() const {
  return kInnerHead + size_t(innerCap_) * (sizeof(Node*) + size_t(entrySize_));
}

TagIndex::Node* TagIndex::NewLeaf() {
  Leaf* l = static_cast<Leaf*>(leafPool_.Allocate());
  l->count = 0;
  l->leaf = true;
  l->prev = l->next = nullptr;
  memory_ += LeafBytes();
  return l;
}

TagIndex::Node* TagIndex::NewInner() {
  Node* n = static_cast<Node*>(innerPool_.Allocate());
  n->count = 0;
  n->leaf = false;
  memory_ += InnerBytes();
  return n;
}

void TagIndex::FreeNode(Node* n) {
  if (!n) return;
  if (n->leaf) {
    memory_ -= LeafBytes();
    leafPool_.Free(n);
  } else {
    memory_ -= InnerBytes();
    innerPool_.Free(n);
  }
}

static inline TagIndex::Node** Children(TagIndex::Node* n) {
  return reinterpret_cast<TagIndex::Node**>(reinterpret_cast<char*>(n) + kInnerHead);
}

char* TagIndex::LeafEntry(Leaf* l, int i) const {
  return reinterpret_cast<char*>(l) + kLeafHead + size_t(i) * size_t(entrySize_);
}

char* TagIndex::Sep(Inner* n, int i) const {
  return reinterpret_cast<char*>(n) + kInnerHead + size_t(innerCap_) * sizeof(Node*) +
         size_t(i) * size_t(entrySize_);
}

static inline uint32_t RecnoOf(const char* entry, int keyLength) {
  uint32_t r;
  std::memcpy(&r, entry + keyLength, 4);
  return r;
}

bool TagIndex::EntryLess(const char* e, const char* key, int len, uint32_t recno) const {
  int c = Compare(e, key, len);
  if (c != 0) return c < 0;
  if (len < keyLength_) return false;
  return RecnoOf(e, keyLength_) < recno;
}

// Binary search for the first index in [lo, hi) at which less(i) is false. While one entry is
// compared, the two entries the next step may look at are already being fetched: the search
// waits for memory once per step instead of twice.
template <class Less, class Addr>
static inline int PartitionPoint(int lo, int hi, Less less, Addr addr) {
  while (lo < hi) {
    int mid = (lo + hi) / 2;
    __builtin_prefetch(addr((lo + mid) / 2));
    __builtin_prefetch(addr((mid + 1 + hi) / 2));
    if (less(mid)) lo = mid + 1;
    else hi = mid;
  }
  return lo;
}

int TagIndex::ChildIndex(Inner* n, const char* key, int len, uint32_t recno) const {
  // The child whose separator is the last one at or before the target. A whole entry equal to
  // a separator lives in that separator's child; a key prefix equal to a separator's may
  // also end the child before, so for a prefix only separators strictly before count.
  const bool whole = len >= keyLength_;
  int at = PartitionPoint(
      1, n->count,
      [&](int i) {
        const char* sep = Sep(n, i);
        int c = Compare(sep, key, len);
        return c < 0 || (c == 0 && whole && RecnoOf(sep, keyLength_) <= recno);
      },
      [&](int i) { return Sep(n, i); });
  return at - 1;
}

TagIndex::Leaf* TagIndex::Descend(const char* key, uint32_t recno, Inner** path, int* idx,
                                  int& depth, int& pos) const {
  depth = 0;
  Node* node = root_;
  while (!node->leaf) {
    Inner* in = static_cast<Inner*>(node);
    int c = ChildIndex(in, key, keyLength_, recno);
    path[depth] = in;
    idx[depth] = c;
    ++depth;
    node = Children(in)[c];
  }
  Leaf* leaf = static_cast<Leaf*>(node);
  pos = PartitionPoint(
      0, leaf->count, [&](int i) { return EntryLess(LeafEntry(leaf, i), key, keyLength_, recno); },
      [&](int i) { return LeafEntry(leaf, i); });
  return leaf;
}

void TagIndex::Insert(const char* key, uint32_t recno) {
  Inner* path[64];
  int idx[64];
  int depth = 0, pos = 0;
  Leaf* leaf = Descend(key, recno, path, idx, depth, pos);
  InsertAt(path, idx, depth, leaf, pos, key, recno);
}

uint32_t TagIndex::InsertUnique(const char* key, uint32_t recno) {
  Inner* path[64];
  int idx[64];
  int depth = 0, pos = 0;
  Leaf* leaf = Descend(key, recno, path, idx, depth, pos);
  // An entry with the same key is right before or right at the place (a neighbouring leaf
  // when the place is at a leaf's edge).
  const size_t k = size_t(keyLength_);
  const char* before = pos > 0 ? LeafEntry(leaf, pos - 1)
                       : (leaf->prev ? LeafEntry(leaf->prev, leaf->prev->count - 1) : nullptr);
  if (before && std::memcmp(before, key, k) == 0) return RecnoOf(before, keyLength_);
  const char* at = pos < leaf->count ? LeafEntry(leaf, pos)
                   : (leaf->next ? LeafEntry(leaf->next, 0) : nullptr);
  if (at && std::memcmp(at, key, k) == 0) return RecnoOf(at, keyLength_);
  InsertAt(path, idx, depth, leaf, pos, key, recno);
  return 0;
}

void TagIndex::InsertAt(Inner** path, int* idx, int depth, Leaf* leaf, int pos, const char* key,
                        uint32_t recno) {
  ++version_;
  const size_t es = size_t(entrySize_);
  ++size_;
  if (leaf->count < leafCap_) {
    char* at = LeafEntry(leaf, pos);
    std::memmove(at + es, at, size_t(leaf->count - pos) * es);
    std::memcpy(at, key, size_t(keyLength_));
    std::memcpy(at + keyLength_, &recno, 4);
    ++leaf->count;
    return;
  }
  // Split. An entry going to the very end keeps the left leaf full (ordered inserts then
  // leave full leaves behind); otherwise the leaf is halved.
  Leaf* right = static_cast<Leaf*>(NewLeaf());
  int n = leaf->count;
  int keep = pos == n ? n : (n + 1) / 2;
  std::memcpy(LeafEntry(right, 0), LeafEntry(leaf, keep), size_t(n - keep) * es);
  right->count = uint16_t(n - keep);
  leaf->count = uint16_t(keep);
  Leaf* target = pos <= keep && pos != n ? leaf : right;
  int tpos = target == leaf ? pos : pos - keep;
  char* at = LeafEntry(target, tpos);
  std::memmove(at + es, at, size_t(target->count - tpos) * es);
  std::memcpy(at, key, size_t(keyLength_));
  std::memcpy(at + keyLength_, &recno, 4);
  ++target->count;
  right->next = leaf->next;
  right->prev = leaf;
  if (leaf->next) leaf->next->prev = right;
  leaf->next = right;
  InsertIntoParent(path, idx, depth, right, LeafEntry(right, 0));
}

void TagIndex::InsertIntoParent(Inner** path, int* idx, int depth, Node* right, const char* sepIn) {
  const size_t es = size_t(entrySize_);
  // Working space on the stack: splitting allocates nothing but the new nodes.
  char sep[kMaxEntry];
  std::memcpy(sep, sepIn, es);
  Node* ch[256];
  char seps[256 * kMaxEntry];
  while (depth > 0) {
    --depth;
    Inner* in = path[depth];
    int p = idx[depth] + 1;  // the new child's place
    int n = in->count;
    if (n < innerCap_) {
      Node** ch = Children(in);
      std::memmove(ch + p + 1, ch + p, size_t(n - p) * sizeof(Node*));
      ch[p] = right;
      std::memmove(Sep(in, p + 1), Sep(in, p), size_t(n - p) * es);
      std::memcpy(Sep(in, p), sep, es);
      ++in->count;
      return;
    }
    // Split the inner node: gather n + 1 children and their separators, then share them out.
    std::memcpy(ch, Children(in), size_t(p) * sizeof(Node*));
    ch[p] = right;
    std::memcpy(ch + p + 1, Children(in) + p, size_t(n - p) * sizeof(Node*));
    std::memcpy(seps + es, Sep(in, 1), size_t(n - 1) * es);
    std::memmove(seps + size_t(p + 1) * es, seps + size_t(p) * es, size_t(n - p) * es);
    std::memcpy(seps + size_t(p) * es, sep, es);
    int total = n + 1;
    int keep = p == n ? n : total / 2;
    Inner* rin = static_cast<Inner*>(NewInner());
    for (int i = 0; i < keep; ++i) Children(in)[i] = ch[size_t(i)];
    if (keep > 1) std::memcpy(Sep(in, 1), seps + es, size_t(keep - 1) * es);
    in->count = uint16_t(keep);
    for (int i = keep; i < total; ++i) Children(rin)[i - keep] = ch[size_t(i)];
    if (total - keep > 1)
      std::memcpy(Sep(rin, 1), seps + size_t(keep + 1) * es, size_t(total - keep - 1) * es);
    rin->count = uint16_t(total - keep);
    std::memcpy(sep, seps + size_t(keep) * es, es);
    right = rin;
  }
  // The root split: a new root over the two halves.
  Inner* root = static_cast<Inner*>(NewInner());
  Children(root)[0] = root_;
  Children(root)[1] = right;
  std::memcpy(Sep(root, 1), sep, es);
  root->count = 2;
  root_ = root;
  ++height_;
}

bool TagIndex::Erase(const char* key, uint32_t recno) {
  Inner* path[64];
  int idx[64];
  int depth = 0;
  int lo = 0;
  Leaf* leaf = Descend(key, recno, path, idx, depth, lo);
  // The entry sits here or, when the leaf's entries are all smaller, nowhere: separators
  // route an existing entry to its own leaf.
  if (lo >= leaf->count) return false;
  const char* e = LeafEntry(leaf, lo);
  if (std::memcmp(e, key, size_t(keyLength_)) != 0 || RecnoOf(e, keyLength_) != recno) return false;
  ++version_;
  --size_;
  const size_t es = size_t(entrySize_);
  std::memmove(LeafEntry(leaf, lo), LeafEntry(leaf, lo + 1), size_t(leaf->count - lo - 1) * es);
  --leaf->count;
  if (leaf->count > 0 || depth == 0) return true;
  // An empty leaf leaves the tree; empty inner nodes above it go too.
  if (leaf->prev) leaf->prev->next = leaf->next;
  if (leaf->next) leaf->next->prev = leaf->prev;
  Node* gone = leaf;
  while (depth > 0) {
    --depth;
    Inner* in = path[depth];
    int c = idx[depth];
    FreeNode(gone);
    Node** ch = Children(in);
    int n = in->count;
    std::memmove(ch + c, ch + c + 1, size_t(n - c - 1) * sizeof(Node*));
    // Child c's separator goes; for child 0 the separator of child 1 becomes the unused slot.
    int s = c == 0 ? 1 : c;
    if (n > 1) std::memmove(Sep(in, s), Sep(in, s + 1), size_t(n - s - 1) * es);
    --in->count;
    if (in->count > 0) break;
    gone = in;
  }
  // A root with a single child hands over to that child.
  while (!root_->leaf && root_->count == 1) {
    Node* child = Children(static_cast<Inner*>(root_))[0];
    FreeNode(root_);
    root_ = child;
    --height_;
  }
  return true;
}

void TagIndex::Clear() {
  ++version_;
  // Every node goes at once with the pools' chunks, the leaves of a load that never ended (it
  // failed part way) too.
  leafPool_.Clear();
  innerPool_.Clear();
  memory_ = 0;
  loadLeaves_.clear();
  root_ = NewLeaf();
  height_ = 1;
  size_ = 0;
}

void TagIndex::BulkLoad(const char* entries, size_t n) {
  BeginLoad(n);
  for (size_t i = 0; i < n; ++i) AddLoaded(entries + i * size_t(entrySize_));
  EndLoad();
}

void TagIndex::BeginLoad(size_t expected) {
  Clear();
  if (expected == 0) return;
  // The nodes come in one piece per pool: the leaves, and about one inner node per innerCap_
  // - 1 nodes of the level below, summed over the levels.
  const size_t leaves = (expected + size_t(leafCap_) - 1) / size_t(leafCap_);
  leafPool_.Reserve(leaves);
  innerPool_.Reserve(leaves / size_t(innerCap_ - 2) + 8);
}

void TagIndex::AddLoaded(const char* entry) {
  // Leaves are filled full, one after the other.
  Leaf* l = loadLeaves_.empty() ? nullptr : static_cast<Leaf*>(loadLeaves_.back());
  if (!l || l->count == leafCap_) {
    Leaf* next = static_cast<Leaf*>(NewLeaf());
    next->prev = l;
    if (l) l->next = next;
    loadLeaves_.push_back(next);
    l = next;
  }
  std::memcpy(LeafEntry(l, l->count), entry, size_t(entrySize_));
  ++l->count;
  ++size_;
}

void TagIndex::EndLoad() {
  if (loadLeaves_.empty()) return;  // nothing added: the empty root stays
  const size_t es = size_t(entrySize_);
  FreeNode(root_);
  std::vector<Node*> level;
  level.swap(loadLeaves_);
  // First entry of every node of a level: the separators of the level above.
  auto firstEntry = [&](Node* node) -> const char* {
    while (!node->leaf) node = Children(node)[0];
    return LeafEntry(static_cast<Leaf*>(node), 0);
  };
  height_ = 1;
  while (level.size() > 1) {
    std::vector<Node*> up;
    for (size_t i = 0, take = 0; i < level.size(); i += take) {
      take = std::min(level.size() - i, size_t(innerCap_));
      // Never leave a single child alone in the last node (the next node starts after the
      // children taken, not after a full node's worth).
      if (level.size() - i - take == 1 && take > 2) --take;
      Inner* in = static_cast<Inner*>(NewInner());
      for (size_t j = 0; j < take; ++j) {
        Children(in)[j] = level[i + j];
        if (j > 0) std::memcpy(Sep(in, int(j)), firstEntry(level[i + j]), es);
      }
      in->count = uint16_t(take);
      up.push_back(in);
    }
    level.swap(up);
    ++height_;
  }
  root_ = level[0];
  ++version_;
}

TagIndex::Pos TagIndex::LowerBound(const char* key, int len, uint32_t recno) const {
  Node* node = root_;
  while (!node->leaf) {
    Inner* in = static_cast<Inner*>(node);
    node = Children(in)[ChildIndex(in, key, len, recno)];
  }
  Leaf* leaf = static_cast<Leaf*>(node);
  int lo = PartitionPoint(
      0, leaf->count, [&](int i) { return EntryLess(LeafEntry(leaf, i), key, len, recno); },
      [&](int i) { return LeafEntry(leaf, i); });
  if (lo < leaf->count) return Pos{leaf, lo};
  return leaf->next ? Pos{leaf->next, 0} : Pos{};
}

uint32_t TagIndex::Find(const char* key) const {
  Pos p = LowerBound(key, keyLength_, 0);
  if (!p.Valid() || std::memcmp(KeyAt(p), key, size_t(keyLength_)) != 0) return 0;
  return RecnoAt(p);
}

TagIndex::Pos TagIndex::First() const {
  Node* node = root_;
  while (!node->leaf) node = Children(node)[0];
  Leaf* l = static_cast<Leaf*>(node);
  return l->count ? Pos{l, 0} : Pos{};
}

TagIndex::Pos TagIndex::Last() const {
  Node* node = root_;
  while (!node->leaf) node = Children(node)[node->count - 1];
  Leaf* l = static_cast<Leaf*>(node);
  return l->count ? Pos{l, l->count - 1} : Pos{};
}

bool TagIndex::Next(Pos& p) const {
  if (!p.leaf) return false;
  if (p.slot + 1 < p.leaf->count) {
    ++p.slot;
    return true;
  }
  p.leaf = p.leaf->next;
  p.slot = 0;
  return p.leaf != nullptr;
}

bool TagIndex::Prev(Pos& p) const {
  if (!p.leaf) return false;
  if (p.slot > 0) {
    --p.slot;
    return true;
  }
  p.leaf = p.leaf->prev;
  p.slot = p.leaf ? p.leaf->count - 1 : 0;
  return p.leaf != nullptr;
}

const char* TagIndex::KeyAt(Pos p) const { return LeafEntry(p.leaf, p.slot); }

uint32_t TagIndex::RecnoAt(Pos p) const { return RecnoOf(LeafEntry(p.leaf, p.slot), keyLength_); }

void TagIndex::SortEntries(char* entries, size_t n) const {
  PageBuffer scratch;
  SortEntries(entries, n, scratch);
}

void TagIndex::SortEntries(char* entries, size_t n, PageBuffer& scratch) const {
  if (n < 2) return;
  const size_t es = size_t(entrySize_);
  const int k = keyLength_;
  auto less = [&](const char* a, const char* b) {
    int c = Compare(a, b, k);
    if (c != 0) return c < 0;
    return RecnoOf(a, k) < RecnoOf(b, k);
  };
  // Entries that are in order already (appends in key order, a tag whose keys are all equal)
  // stay as they are.
  bool sorted = true;
  for (size_t i = 1; i < n && sorted; ++i) sorted = !less(entries + i * es, entries + (i - 1) * es);
  if (sorted) return;
  // The scratch holds a second array of n entries, then two tables of bucket offsets (or a
  // key number per entry).
  constexpr size_t kBuckets = 65536;
  const size_t otherBytes = (n * es + 63) & ~size_t(63);
  char* const other =
      scratch.Reserve(otherBytes + std::max(2 * (kBuckets + 1) * sizeof(uint32_t), n));
  if (SortFewKeys(entries, n, other, reinterpret_cast<uint8_t*>(other + otherBytes))) return;
  // A large batch is first dealt into buckets by the two key bytes that follow the longest
  // prefix all its keys share (in a stable pass, so each bucket keeps record-number order among
  // equal keys); each bucket is then sorted while it fits the cache.
  size_t shared = size_t(k);
  for (size_t i = 1; i < n && shared > 0; ++i) {
    const char* e = entries + i * es;
    size_t d = 0;
    while (d < shared && e[d] == entries[d]) ++d;
    shared = d;
  }
  constexpr size_t kBucketBatch = 4096;
  if (n < kBucketBatch || shared + 2 > size_t(k)) {
    MergeSortRange(entries, n, other);
    return;
  }
  auto bucketOf = [&](const char* e) {
    const unsigned b = unsigned(static_cast<unsigned char>(e[shared])) << 8 |
                       static_cast<unsigned char>(e[shared + 1]);
    return descending_ ? 65535u - b : b;
  };
  uint32_t* const start = reinterpret_cast<uint32_t*>(other + otherBytes);
  uint32_t* const at = start + kBuckets + 1;
  std::fill(start, start + kBuckets + 1, 0u);
  for (size_t i = 0; i < n; ++i) ++start[bucketOf(entries + i * es) + 1];
  for (size_t b = 1; b <= kBuckets; ++b) start[b] += start[b - 1];
  std::copy(start, start + kBuckets, at);
  for (size_t i = 0; i < n; ++i) {
    const char* e = entries + i * es;
    std::memcpy(other + size_t(at[bucketOf(e)]++) * es, e, es);
  }
  for (size_t b = 0; b < kBuckets; ++b) {
    const size_t first = start[b], count = start[b + 1] - start[b];
    if (count > 1) MergeSortRange(other + first * es, count, entries + first * es);
  }
  std::memcpy(entries, other, n * es);
}

// A tag of a code or a date per record sees the same few keys over and over; its batch arrives
// in record order. Then a stable distribution by key is the whole sort: entries with equal keys
// keep their (ascending) record order. One pass numbers each entry's key against a short list
// of the keys met (the previous entry's key is tried first: equal keys come in runs), and gives
// up at the first record number out of order or when the list would grow too long; the keys
// are then ranked, counted, and the entries copied to their places.
bool TagIndex::SortFewKeys(char* entries, size_t n, char* other, uint8_t* ids) const {
  constexpr size_t kFewKeys = 64;
  const size_t es = size_t(entrySize_), k = size_t(keyLength_);
  const char* keys[kFewKeys];
  size_t distinct = 0, last = 0;
  uint32_t prevRecno = 0;
  for (size_t i = 0; i < n; ++i) {
    const char* e = entries + i * es;
    const uint32_t r = RecnoOf(e, keyLength_);
    if (i > 0 && r <= prevRecno) return false;
    prevRecno = r;
    if (distinct == 0 || std::memcmp(keys[last], e, k) != 0) {
      size_t j = 0;
      while (j < distinct && std::memcmp(keys[j], e, k) != 0) ++j;
      if (j == distinct) {
        if (distinct == kFewKeys) return false;
        keys[distinct++] = e;
      }
      last = j;
    }
    ids[i] = uint8_t(last);
  }
  // Rank the keys in this index's order, then place each key's run.
  size_t order[kFewKeys];
  for (size_t j = 0; j < distinct; ++j) order[j] = j;
  std::sort(order, order + distinct, [&](size_t a, size_t b) {
    return Compare(keys[a], keys[b], keyLength_) < 0;
  });
  size_t count[kFewKeys] = {}, at[kFewKeys];
  for (size_t i = 0; i < n; ++i) ++count[ids[i]];
  size_t sum = 0;
  for (size_t j = 0; j < distinct; ++j) {
    at[order[j]] = sum;
    sum += count[order[j]];
  }
  for (size_t i = 0; i < n; ++i) std::memcpy(other + at[ids[i]]++ * es, entries + i * es, es);
  std::memcpy(entries, other, n * es);
  return true;
}

void TagIndex::MergeSortRange(char* entries, size_t n, char* scratch) const {
  if (n < 2) return;
  const size_t es = size_t(entrySize_);
  const int k = keyLength_;
  auto less = [&](const char* a, const char* b) {
    int c = Compare(a, b, k);
    if (c != 0) return c < 0;
    return RecnoOf(a, k) < RecnoOf(b, k);
  };
  // Runs of 16 by insertion sort, then merges of doubling width between two buffers.
  constexpr size_t kRun = 16;
  char tmpEntry[kMaxEntry];
  for (size_t start = 0; start < n; start += kRun) {
    size_t end = std::min(n, start + kRun);
    for (size_t i = start + 1; i < end; ++i) {
      char* cur = entries + i * es;
      if (!less(cur, cur - es)) continue;
      std::memcpy(tmpEntry, cur, es);
      size_t j = i;
      while (j > start && less(tmpEntry, entries + (j - 1) * es)) {
        std::memcpy(entries + j * es, entries + (j - 1) * es, es);
        --j;
      }
      std::memcpy(entries + j * es, tmpEntry, es);
    }
  }
  if (n <= kRun) return;
  char* src = entries;
  char* dst = scratch;
  for (size_t width = kRun; width < n; width *= 2) {
    for (size_t lo = 0; lo < n; lo += 2 * width) {
      size_t mid = std::min(n, lo + width), hi = std::min(n, lo + 2 * width);
      const char* a = src + lo * es;
      const char* ae = src + mid * es;
      const char* b = ae;
      const char* be = src + hi * es;
      char* out = dst + lo * es;
      if (mid == hi || !less(b, ae - es)) {  // already in order: copy the two runs
        std::memcpy(out, a, size_t(be - a));
        continue;
      }
      while (a < ae && b < be) {
        if (less(b, a)) {
          std::memcpy(out, b, es);
          b += es;
        } else {
          std::memcpy(out, a, es);
          a += es;
        }
        out += es;
      }
      std::memcpy(out, a, size_t(ae - a));
      out += ae - a;
      std::memcpy(out, b, size_t(be - b));
    }
    std::swap(src, dst);
  }
  if (src != entries) std::memcpy(entries, src, n * es);
}

bool TagIndex::SelfCheck(std::string* why) const {
  auto fail = [&](const std::string& w) {
    if (why) *why = w;
    return false;
  };
  // Walk the chain: order and count.
  size_t count = 0;
  Pos p = First();
  const char* prev = nullptr;
  while (p.Valid()) {
    const char* e = KeyAt(p);
    if (prev) {
      int c = Compare(prev, e, keyLength_);
      if (c > 0 || (c == 0 && RecnoOf(prev, keyLength_) >= RecnoOf(e, keyLength_)))
        return fail("entries out of order at " + std::to_string(count));
    }
    prev = e;
    ++count;
    Next(p);
  }
  if (count != size_) return fail("chain holds " + std::to_string(count) + " entries, size " +
                                  std::to_string(size_));
  // Every entry must be found through the separators.
  p = First();
  while (p.Valid()) {
    const char* e = KeyAt(p);
    Pos q = LowerBound(e, keyLength_, RecnoOf(e, keyLength_));
    if (q.leaf != p.leaf || q.slot != p.slot) return fail("an entry is not reached from the root");
    Next(p);
  }
  return true;
}

}  // namespace dbase
