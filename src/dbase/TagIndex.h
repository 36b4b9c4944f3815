// The in-memory form of one index tag: an ordered set of entries (key, record number), kept
// as a B+tree of fixed-size entries so that inserts and seeks cost O(log n) while appends and
// seeks interleave freely. Order: keys ascending (descending for a descending tag), equal keys
// by record number ascending in both cases. The .MDX is written from this order and read back
// into it; this structure itself never touches a file.
//
// Entry layout in a node: the key's bytes, then the record number (uint32, native order).
// Leaves are chained both ways for movement in order. An inner node with n children holds
// n - 1 separators: separator i is a lower bound of child i's entries and an upper bound of
// child i - 1's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "dbase/NodePool.h"
#include "dbase/PageMemory.h"

namespace dbase {

// Byte-wise unsigned comparison of two keys' first len bytes, eight bytes at a time (keys are
// short; a library call per comparison costs more than the comparison).
inline int CompareKeyBytes(const char* a, const char* b, int len) {
  int i = 0;
  for (; i + 8 <= len; i += 8) {
    uint64_t x, y;
    std::memcpy(&x, a + i, 8);
    std::memcpy(&y, b + i, 8);
    if (x != y) {
      x = __builtin_bswap64(x);
      y = __builtin_bswap64(y);
      return x < y ? -1 : 1;
    }
  }
  for (; i < len; ++i) {
    const unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return 0;
}

class TagIndex {
 public:
  struct Node;
  struct Leaf;
  struct Inner;

  // A place in the order. Valid until the next change of the index (see Version()).
  struct Pos {
    Leaf* leaf = nullptr;
    int slot = 0;
    bool Valid() const { return leaf != nullptr; }
  };

  // REQUIRES: 1 <= keyLength <= 100.
  TagIndex(int keyLength, bool descending);
  ~TagIndex();
  TagIndex(const TagIndex&) = delete;
  TagIndex& operator=(const TagIndex&) = delete;

  int KeyLength() const { return keyLength_; }
  bool Descending() const { return descending_; }
  size_t Size() const { return size_; }
  // Changes with every insert, erase, clear or load: a Pos taken before is stale.
  uint64_t Version() const { return version_; }
  // Bytes held by the nodes.
  size_t MemoryBytes() const { return memory_; }

  // Inserts (key, recno). REQUIRES: that pair is not present (uniqueness of keys is the
  // caller's business).
  void Insert(const char* key, uint32_t recno);
  // For a unique tag: inserts (key, recno) unless an entry with the same key is there; then
  // nothing changes and the holder's record number is returned. Returns 0 when inserted.
  uint32_t InsertUnique(const char* key, uint32_t recno);
  // Removes (key, recno); false when it was not there.
  bool Erase(const char* key, uint32_t recno);
  void Clear();
  // Replaces the content with n entries (key then recno as uint32, EntrySize() bytes each).
  // REQUIRES: the entries are in this index's order, without repeats.
  void BulkLoad(const char* entries, size_t n);
  // The same, entry by entry: Begin empties the index (and makes room for about `expected`
  // entries when that is known), each Add appends an entry (REQUIRES: in this index's order,
  // after the one added before, no repeat), End builds the levels above the leaves. Until End the
  // index must not be used otherwise.
  void BeginLoad(size_t expected = 0);
  void AddLoaded(const char* entry);
  void EndLoad();
  int EntrySize() const { return entrySize_; }

  // The first entry whose key's first len bytes come at or after key[0..len) in this order,
  // and, when len == KeyLength(), among equal keys the first with record number >= recno.
  // Invalid Pos when there is none.
  Pos LowerBound(const char* key, int len, uint32_t recno) const;
  // Record number of the first entry with exactly this key, 0 when none.
  uint32_t Find(const char* key) const;
  Pos First() const;
  Pos Last() const;
  // Step forward/backward; false (and an invalid Pos) when running off the end/start.
  bool Next(Pos& p) const;
  bool Prev(Pos& p) const;
  const char* KeyAt(Pos p) const;
  uint32_t RecnoAt(Pos p) const;

  // Sorts n entries (key then uint32 record number, EntrySize() bytes each) into this index's
  // order, ties by record number. A stable merge sort over the flat bytes: it reads and
  // writes memory in sequence, which on large batches is far faster than sorting pointers. A
  // large batch is first dealt into buckets by two key bytes so that each merge sort runs in
  // the cache.
  // `scratch` is working memory kept by the caller from one sort to the next; it grows as needed.
  void SortEntries(char* entries, size_t n, PageBuffer& scratch) const;
  // The same with working memory of its own.
  void SortEntries(char* entries, size_t n) const;

  // Three-way comparison of two keys' first len bytes in this index's order. In line: the
  // sorts and merges of a close compare millions of keys.
  int Compare(const char* a, const char* b, int len) const {
    const int c = CompareKeyBytes(a, b, len);
    return descending_ ? -c : c;
  }

  // Checks the tree's own invariants (order, separators, chain, count); for tests.
  bool SelfCheck(std::string* why) const;

 private:
  size_t LeafBytes() const;
  size_t InnerBytes() const;
  Node* NewLeaf();
  Node* NewInner();
  void FreeNode(Node* n);
  char* LeafEntry(Leaf* l, int i) const;
  char* Sep(Inner* n, int i) const;
  bool EntryLess(const char* e, const char* key, int len, uint32_t recno) const;
  // SortEntries for a batch with few distinct keys whose record numbers ascend: deals the
  // entries out by key. False (nothing changed) when the batch is not like that.
  bool SortFewKeys(char* entries, size_t n, char* other, uint8_t* ids) const;
  // The merge sort of SortEntries over n entries, with `scratch` (n entries) to work in.
  void MergeSortRange(char* entries, size_t n, char* scratch) const;
  static constexpr int kMaxEntry = 104;  // the longest key (100) and its record number
  int ChildIndex(Inner* n, const char* key, int len, uint32_t recno) const;
  void InsertAt(Inner** path, int* idx, int depth, Leaf* leaf, int pos, const char* key,
                uint32_t recno);
  Leaf* Descend(const char* key, uint32_t recno, Inner** path, int* idx, int& depth, int& pos) const;
  void InsertIntoParent(Inner** path, int* idx, int depth, Node* right, const char* sep);

  // The leaves made so far by a load (BeginLoad .. EndLoad).
  std::vector<Node*> loadLeaves_;

  int keyLength_;
  bool descending_;
  int entrySize_;
  int leafCap_;
  int innerCap_;
  // The nodes' memory: leaves and inner nodes each from their own pool.
  NodePool leafPool_;
  NodePool innerPool_;
  Node* root_ = nullptr;
  int height_ = 1;  // levels, leaves included
  size_t size_ = 0;
  size_t memory_ = 0;
  uint64_t version_ = 0;
};

}  // namespace dbase
