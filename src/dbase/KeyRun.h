// A run of gathered index keys: the keys of a tag's pending records, taken at their appends and
// sorted on a helper thread while the scan goes on, so that a large merge merges sorted runs.
#pragma once

#include <cstddef>
#include <future>
#include <utility>

#include "dbase/PageMemory.h"

namespace dbase {

// Keys of a tag's pending records, gathered at their appends: up to kRunRecords entries (key,
// then record number), in record order until handed to a helper thread that sorts them while
// the scan goes on. A large merge (the close, above all) then merges sorted runs instead of
// reading every pending record back and sorting all their keys at once.
// Its room for a whole run is reserved at once and mapped on its own, outside the heap: pages
// become memory only as keys are written into them (a small table's tag uses one), and a run
// given back at its merge leaves the process at once, so the tree built next can use that
// memory. (From the heap, freed runs would stay with the process as free heap space the index's
// node chunks do not take.)
struct KeyRun {
  KeyRun() = default;
  KeyRun(KeyRun&& o) noexcept
      : entries(std::exchange(o.entries, nullptr)), bytes(std::exchange(o.bytes, 0)),
        count(o.count), sorted(std::move(o.sorted)) {}
  KeyRun& operator=(KeyRun&&) = delete;
  KeyRun(const KeyRun&) = delete;
  ~KeyRun() {
    if (sorted.valid()) sorted.wait();  // the helper thread is done with the entries
    FreeMapped(entries, bytes);
  }
  // Room for `n` bytes; false when there is no memory.
  bool Reserve(size_t n) {
    entries = AllocateMapped(n);
    bytes = entries ? n : 0;
    return entries != nullptr;
  }

  char* entries = nullptr;
  size_t bytes = 0;
  size_t count = 0;
  std::future<void> sorted;  // valid once handed over; the entries are sorted when it is ready
};

}  // namespace dbase
