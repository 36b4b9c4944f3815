// The exception cache: exception records waiting to be appended to "Exceptions" in one batch.
//
// Contract (AddException and WriteEXCCache keep it):
// - Entries 0..5000 in one fixed array, filled in place without allocating; `count` is the
//   number of entries in use, entry count - 1 the last filled.
// - The exception that would be number kBatch + 1 writes the batch first: entries 0..5000, of
//   which entry 5000 was never filled, so a full batch ends with one blank record (kept on
//   purpose: the files the product reads were always written so). The new exception then
//   starts the next batch in entry 0, the count restarting at 1.
// - Closing the database writes what is left.
#pragma once

#include <cstdint>
#include <memory>

#include "vb/Dates.h"

namespace database {

// One exception waiting in the exception cache. Texts are kept blank-padded to their field
// widths; the visit number stays a number until the record is written.
struct ExceptionEntry {
  bool filled = false;
  char site[20];
  vb::Date exDate = 0;
  char exTime[8];
  int16_t number = 0;
  char ip[15];
  int32_t visitNo = 0;
  char value[20];
};

struct ExceptionCache {
  static constexpr int kEntries = 5001;  // entries 0..5000
  static constexpr int kBatch = 5000;    // exceptions in a batch (entry kBatch stays blank)

  // The array may change places with one of the record writer's while a batch is handed over
  // (RecordWriter::HandOverBatch); it is always kEntries long.
  std::unique_ptr<ExceptionEntry[]> entries{new ExceptionEntry[kEntries]};
  int count = 0;
};

}  // namespace database
