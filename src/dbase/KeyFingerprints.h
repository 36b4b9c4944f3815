// Fingerprints of the keys of one unique index tag: a compact open-addressing table from a
// 64-bit hash of a key to the record that holds the key (its entry in the tag). It lets an
// append learn whether its key is new without a search of the tag's tree, so the key can wait
// for the next batch merge. The table holds the top half of each hash only: keys that share it
// are told apart by the caller, who compares the real keys (evaluated from the holder's record).
// With n keys held, a look-up of a new key meets another key's half-hash about n / 2^32 times
// (one look-up in 2,000 at 2 million keys), so the record is rarely read.
//
// Slot layout (8 bytes, in one flat array of a power-of-two size):
//   OFFSET | SIZE | DESCRIPTION
//   0      | 4    | high half of the key's hash (its top bits name the slot a look-up starts at)
//   4      | 4    | holder's record number; 0 = empty slot
// Linear probing from the slot named by the hash's top bits; at most three quarters of the
// slots are used, so a table of n keys costs 10.7 to 21.3 bytes per key (a look-up of a new key
// reads about eight slots, 64 bytes, when the table is fullest; the table grows with the log,
// and its memory is what a scan of many visits keeps longest). Erasing shifts later slots of
// the run back, so no tombstones are left. The slots come from the C allocator, as the nodes
// of the tags' trees do: the table grows with the database, not with the work of one line.
#pragma once

#include <cstddef>
#include <cstdint>

namespace dbase {

class KeyFingerprints {
 public:
  KeyFingerprints() = default;
  ~KeyFingerprints();
  KeyFingerprints(const KeyFingerprints&) = delete;
  KeyFingerprints& operator=(const KeyFingerprints&) = delete;

  // The hash of len bytes of key (fast, well mixed; not for security).
  static uint64_t Hash(const char* key, int len);

  size_t Size() const { return size_; }
  size_t MemoryBytes() const { return count_ * sizeof(Slot); }
  void Clear();

  // Looks for the holder of a key with hash h: every slot of that (half-)hash is offered to
  // sameKey(recno), which returns 1 when that record holds the very key, 0 when not, -1 when it
  // cannot tell (e.g. the record is unreadable). Returns the holder (> 0) when one says 1;
  // when none does, records recno as the holder of h and returns 0; returns UINT32_MAX (nothing
  // changed) when sameKey said -1. REQUIRES: recno > 0.
  template <class SameKey>
  uint32_t InsertUnique(uint64_t h, uint32_t recno, SameKey&& sameKey) {
    if (Full()) Grow();
    const size_t mask = count_ - 1;
    size_t i = Home(h);
    for (; slots_[i].recno != 0; i = (i + 1) & mask) {
      if (!Same(slots_[i], h)) continue;
      const int same = sameKey(slots_[i].recno);
      if (same < 0) return UINT32_MAX;
      if (same > 0) return slots_[i].recno;
    }
    slots_[i] = Slot{uint32_t(h >> 32), recno};
    ++size_;
    return 0;
  }
  // The holder of a key with hash h, each slot of that (half-)hash offered to sameKey(recno) as
  // InsertUnique does: the holder (> 0), 0 when no record holds the key, UINT32_MAX when sameKey
  // said -1. Changes nothing.
  template <class SameKey>
  uint32_t Find(uint64_t h, SameKey&& sameKey) const {
    if (count_ == 0) return 0;
    const size_t mask = count_ - 1;
    for (size_t i = Home(h); slots_[i].recno != 0; i = (i + 1) & mask) {
      if (!Same(slots_[i], h)) continue;
      const int same = sameKey(slots_[i].recno);
      if (same < 0) return UINT32_MAX;
      if (same > 0) return slots_[i].recno;
    }
    return 0;
  }
  // Starts fetching the memory that a look-up of h will read first.
  void Prefetch(uint64_t h) const {
    if (count_ != 0) __builtin_prefetch(&slots_[Home(h)]);
  }
  // Records recno as a holder of h without a look-up. REQUIRES: recno > 0, the key is new.
  void Insert(uint64_t h, uint32_t recno);
  // The slot (h, from) now names record `to`; to == 0 erases it. False when there is no such
  // slot (then nothing changes).
  bool Replace(uint64_t h, uint32_t from, uint32_t to);

 private:
  struct Slot {
    uint32_t hi = 0, recno = 0;
  };
  // The slot a look-up of hash h starts at: named by its top bits, which the slot keeps (the
  // table never has more than 2^32 slots).
  size_t Home(uint64_t h) const { return size_t(h >> shift_); }
  size_t HomeOf(const Slot& s) const { return Home(uint64_t(s.hi) << 32); }
  // One more key would fill more than three quarters of the slots.
  bool Full() const { return (size_ + 1) * 4 > count_ * 3; }
  static bool Same(const Slot& s, uint64_t h) { return s.hi == uint32_t(h >> 32); }
  void Grow();
  void Put(uint64_t h, uint32_t recno);  // into a table with room; no look-up
  void EraseAt(size_t i);

  Slot* slots_ = nullptr;  // count_ slots, zero-filled when new
  size_t count_ = 0;
  size_t size_ = 0;
  int shift_ = 64;  // 64 - log2(slot count)
};

}  // namespace dbase
