// A run of gathered index keys: the keys of a tag's pending records, taken at their appends and
// sorted on a helper thread while the scan goes on, so that a large merge merges sorted runs.
// Runs beyond the key memory's budget are written to a temporary file of their tag (a spill)
// and read back only when they are merged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <future>
#include <utility>

#include "dbase/KeyMemory.h"
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
//
// A run's states, in order: filling (entries in memory, in record order); handed over (`work`
// valid: a helper thread sorts it, and for a spilled run writes it to its tag's temporary file
// at `fileOffset`); settled (`isSorted`; a spilled run's memory is given back, entries == null,
// its `count` entries are in the file). A run that takes no more keys though it is not full
// (its tag was written while open) is `sealed`.
struct KeyRun {
  KeyRun() = default;
  KeyRun(KeyRun&& o) noexcept
      : entries(std::exchange(o.entries, nullptr)), bytes(std::exchange(o.bytes, 0)),
        count(o.count), work(std::move(o.work)), isSorted(o.isSorted), sealed(o.sealed),
        spilling(o.spilling), inFile(o.inFile), fileOffset(o.fileOffset),
        budget(std::exchange(o.budget, nullptr)), counted(std::exchange(o.counted, 0)) {}
  KeyRun& operator=(KeyRun&&) = delete;
  KeyRun(const KeyRun&) = delete;
  ~KeyRun() {
    if (work.valid()) work.wait();  // the helper thread is done with the entries
    FreeMapped(entries, bytes);
    if (budget) budget->Give(counted);
  }
  // Room for `n` bytes; false when there is no memory.
  bool Reserve(size_t n) {
    entries = AllocateMapped(n);
    bytes = entries ? n : 0;
    return entries != nullptr;
  }
  // Takes the memory of `o` (whose entries are of no more use) for this run.
  void TakeMemory(KeyRun& o) {
    entries = std::exchange(o.entries, nullptr);
    bytes = std::exchange(o.bytes, 0);
  }
  // Gives the entries' memory back (their keys are in the file, or of no more use).
  void ReleaseMemory() {
    FreeMapped(entries, bytes);
    entries = nullptr;
    bytes = 0;
  }
  // The run's memory counts against `b` (kept in memory though full).
  void Count(KeyMemory* b) {
    budget = b;
    counted = bytes;
  }

  char* entries = nullptr;
  size_t bytes = 0;
  size_t count = 0;
  // Valid once handed over: the helper's outcome, 0 when the entries are sorted (and, for a
  // spill, written), else the errno of the write that failed (the entries are still sorted).
  std::future<int> work;
  bool isSorted = false;
  bool sealed = false;
  bool spilling = false;     // handed over to be written to the file
  bool inFile = false;       // written: the entries are in the file from fileOffset
  uint64_t fileOffset = 0;
  KeyMemory* budget = nullptr;  // the budget the run's memory counts against, if any
  size_t counted = 0;
};

}  // namespace dbase
