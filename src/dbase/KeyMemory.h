// The memory that the gathered index keys of one or more tables may keep: a budget shared by
// the tables of a database (Table::SetKeyMemory), so that the whole scan's keys, not each
// table's, stay within one setting. A table gathers the keys of its appends in runs (KeyRun.h);
// a full run is kept in memory while the budget has room for it, and otherwise written to a
// temporary file of its tag and read back only when it is merged (at the close, or at a rare
// use of the tag's order during the scan). The tables' output is the same whichever runs were
// kept: only memory and temporary disk space change.
//
// What the budget counts: the full runs kept in memory. What it does not count, and what each
// tag that gathers keys holds besides: the run being filled, at most one run being sorted and
// written, and one spare run's memory for the next (each kRunRecords entries of the tag's key
// length + 4 bytes, about 3 MB for a key of 44 bytes), and the trees of tags whose order is in
// use. Safe to use from several threads (the tables of a database close on two).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace dbase {

class KeyMemory {
 public:
  // `limitBytes`: the most the kept runs may hold together; 0 spills every full run.
  explicit KeyMemory(size_t limitBytes) : limit_(limitBytes) {}
  KeyMemory(const KeyMemory&) = delete;
  KeyMemory& operator=(const KeyMemory&) = delete;

  size_t Limit() const { return limit_; }
  size_t InUse() const { return used_.load(std::memory_order_relaxed); }
  // Counts n more bytes when they stay within the limit; false (nothing counted) otherwise.
  bool TryTake(size_t n) {
    size_t now = used_.load(std::memory_order_relaxed);
    do {
      if (n > limit_ || now > limit_ - n) return false;
    } while (!used_.compare_exchange_weak(now, now + n, std::memory_order_relaxed));
    return true;
  }
  // Counts n more bytes whatever the limit (a run that could not be written stays in memory).
  void Take(size_t n) { used_.fetch_add(n, std::memory_order_relaxed); }
  void Give(size_t n) { used_.fetch_sub(n, std::memory_order_relaxed); }
  // The bytes of keys written to temporary files so far (for the benches and tests).
  uint64_t Spilled() const { return spilled_.load(std::memory_order_relaxed); }
  void NoteSpilled(uint64_t n) { spilled_.fetch_add(n, std::memory_order_relaxed); }

 private:
  const size_t limit_;
  std::atomic<size_t> used_{0};
  std::atomic<uint64_t> spilled_{0};
};

}  // namespace dbase
