// One job of the record writer: a record of "Visits", "Pages", "Exceptions", "Referrers" or
// "Downloads" to write. It carries copies of everything the record is built from (texts
// blank-padded to their field widths), so it stays valid while the visit it came from changes or
// is reused; a batch of pages or exceptions is carried as a pointer to the array that holds it.
#pragma once

#include <cstdint>

#include "database/ExceptionCache.h"
#include "database/PageCache.h"
#include "vb/Dates.h"

namespace database {

struct RecordJob {
  enum class Kind : uint8_t { kVisitStart, kVisitEnd, kPages, kExceptions, kReferrer, kDownload };
  Kind kind = Kind::kVisitStart;
  uint32_t visit = 0;  // the visit's number in the ticket ring (kVisitStart, kVisitEnd)
  // kPages / kExceptions: the batch (entries 1..count of the array).
  int count = 0;
  const PageEntry* pages = nullptr;
  const ExceptionEntry* exceptions = nullptr;
  // kVisitStart and kVisitEnd; site and startTime for kReferrer; ip, site and visitNo for
  // kDownload.
  char ip[15];
  char site[20];
  char visitNo[5];
  vb::Date startTime = 0;
  int16_t pageCount = 0;
  // kVisitStart; referrer for kReferrer too.
  bool alert = false;
  bool spider = false;
  int16_t alertNumber = 0;
  char entryPage[20];
  char browser[5];
  char spiderName[15];
  char referrer[50];
  // kVisitEnd; lastHitTime for kDownload too.
  vb::Date lastHitTime = 0;
  bool hackRaised = false;
  char flags[2];
  char lastPage[20];
  // kDownload.
  int32_t status = 0;
  char download[30];
};

}  // namespace database
