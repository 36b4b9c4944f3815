// Fingerprints of a unique tag's keys: hashing, growth, insert, replace and erase.
#include "dbase/KeyFingerprints.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace dbase {

namespace {

uint64_t Rotl(uint64_t x, int r) { return (x << r) | (x >> (64 - r)); }

// Final mix: every input bit reaches every output bit.
uint64_t Avalanche(uint64_t h) {
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ull;
  h ^= h >> 33;
  return h;
}

constexpr size_t kFirstSlots = 64;

}  // namespace

uint64_t KeyFingerprints::Hash(const char* key, int len) {
  uint64_t h = 0x243f6a8885a308d3ull ^ uint64_t(len);
  int at = 0;
  for (; at + 8 <= len; at += 8) {
    uint64_t w;
    std::memcpy(&w, key + at, 8);
    h = Rotl(h ^ (w * 0x87c37b91114253d5ull), 29) * 0x9e3779b97f4a7c15ull;
  }
  if (at < len) {
    uint64_t w = 0;
    std::memcpy(&w, key + at, size_t(len - at));
    h = Rotl(h ^ (w * 0x87c37b91114253d5ull), 29) * 0x9e3779b97f4a7c15ull;
  }
  return Avalanche(h);
}

KeyFingerprints::~KeyFingerprints() { std::free(slots_); }

void KeyFingerprints::Clear() {
  std::free(slots_);
  slots_ = nullptr;
  count_ = 0;
  size_ = 0;
  shift_ = 64;
}

void KeyFingerprints::Grow() {
  Slot* const old = slots_;
  const size_t oldCount = count_;
  const size_t n = oldCount == 0 ? kFirstSlots : oldCount * 2;
  // All-zero bytes are empty slots.
  void* mem = std::calloc(n, sizeof(Slot));
  if (!mem) throw std::bad_alloc();
  slots_ = static_cast<Slot*>(mem);
  count_ = n;
  shift_ = 64;
  for (size_t s = n; s > 1; s >>= 1) --shift_;
  size_ = 0;
  for (size_t i = 0; i < oldCount; ++i)
    if (old[i].recno != 0) Put(uint64_t(old[i].hi) << 32, old[i].recno);
  std::free(old);
}

void KeyFingerprints::Put(uint64_t h, uint32_t recno) {
  const size_t mask = count_ - 1;
  size_t i = Home(h);
  while (slots_[i].recno != 0) i = (i + 1) & mask;
  slots_[i] = Slot{uint32_t(h >> 32), recno};
  ++size_;
}

void KeyFingerprints::Insert(uint64_t h, uint32_t recno) {
  if (Full()) Grow();
  Put(h, recno);
}

bool KeyFingerprints::Replace(uint64_t h, uint32_t from, uint32_t to) {
  if (count_ == 0) return false;
  const size_t mask = count_ - 1;
  for (size_t i = Home(h); slots_[i].recno != 0; i = (i + 1) & mask) {
    if (!Same(slots_[i], h) || slots_[i].recno != from) continue;
    if (to != 0) slots_[i].recno = to;
    else EraseAt(i);
    return true;
  }
  return false;
}

// Backward-shift deletion: every later slot of the run whose home does not lie in (hole, slot]
// moves into the hole, so a probe from any home still meets its key before an empty slot.
void KeyFingerprints::EraseAt(size_t hole) {
  const size_t mask = count_ - 1;
  for (size_t j = (hole + 1) & mask; slots_[j].recno != 0; j = (j + 1) & mask) {
    const size_t home = HomeOf(slots_[j]);
    const bool stays = hole <= j ? (hole < home && home <= j) : (hole < home || home <= j);
    if (stays) continue;
    slots_[hole] = slots_[j];
    hole = j;
  }
  slots_[hole] = Slot{};
  --size_;
}

}  // namespace dbase
