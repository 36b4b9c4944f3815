// The page cache: page views waiting to be appended to "Pages" in one batch, so that the scan
// does not append a record per hit.
//
// Contract (AddPageToDatabase and WritePageCache keep it):
// - Entries 0..5000 in one fixed array, filled in place without allocating; `count` is the
//   number of entries in use, entry count - 1 the last filled.
// - The call that would take page number kBatch writes the batch instead, and its own page is not
//   recorded. Closing the database writes what is left.
// - After a batch the count restarts at 1, not 0: entry 0 keeps the first page of the first
//   batch and goes out again with every later batch.
// - An entry never filled in a batch goes out as a blank record.
// The last three rules are kept on purpose: the files the product reads were always written so.
#pragma once

#include <cstdint>
#include <memory>

#include "vb/Dates.h"

namespace database {

// One page view waiting in the page cache. Texts are kept blank-padded to their field widths so
// that filling an entry never allocates.
struct PageEntry {
  bool filled = false;  // an entry never filled in a batch is written as a blank record
  char ip[15];
  char site[20];
  char visitNo[5];
  char page[40];
  char pageNo[4];
  vb::Date pageDate = 0;
  char pageTime[8];
  int16_t status = 0;
};

struct PageCache {
  static constexpr int kEntries = 5001;  // entries 0..5000
  static constexpr int kBatch = 5000;    // the page number whose call writes the batch

  // The array may change places with one of the record writer's while a batch is handed over
  // (RecordWriter::HandOverBatch); it is always kEntries long.
  std::unique_ptr<PageEntry[]> entries{new PageEntry[kEntries]};
  int count = 0;
};

}  // namespace database
