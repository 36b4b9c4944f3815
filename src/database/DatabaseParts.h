// Private parts of the database form F shared by its source files: the cache entries, the field
// indexes resolved once when the tables open, and small helpers. Not for use outside F.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "database/Database.h"
#include "database/JobLine.h"
#include "dbase/Status.h"

namespace database {

// One page view waiting in the page cache. Texts are kept blank-padded to their field widths so
// that filling an entry never allocates.
struct Database::PageEntry {
  bool filled = false;   // an entry never filled in a batch is written as a blank record
  char ip[15];
  char site[20];
  char visitNo[5];
  char page[40];
  char pageNo[4];
  vb::Date pageDate = 0;
  char pageTime[8];
  int16_t status = 0;
};

// One exception waiting in the exception cache.
struct Database::ExceptionEntry {
  bool filled = false;
  char site[20];
  vb::Date exDate = 0;
  char exTime[8];
  int16_t number = 0;
  char ip[15];
  int32_t visitNo = 0;
  char value[20];
};

// One job of the record writer: a record of "Visits", "Pages", "Exceptions", "Referrers" or
// "Downloads" to write. It carries copies of everything the record is built from (texts blank-padded to their
// field widths), so it stays valid while the visit it came from changes or is reused.
struct Database::RecordJob {
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

// Field indexes of every table, resolved when the tables are opened.
struct Database::Fields {
  struct {
    int ip, site, active, alert, alertNo, visitNo, visitDate, visitTime, firstPage, lastPage,
        pagesSeen, minsOn, browser, spider, spiderT, referrer, hackRaised, flags;
  } visits{};
  struct {
    int ip, site, dns, name, visits, country, firstVDate, firstVTime, lastVDate, lastVTime,
        browser, spider, spiderT, hackCount;
  } visitor{};
  struct {
    int name, site, firstVDate, firstVTime, lastVDate, lastVTime, visits;
  } referrers{};
  struct {
    int site, exDate, exTime, number, value, ip, visitNo;
  } exceptions{};
  struct {
    int ip, site, visitNo, page, pageDate, pageTime, pageNo, status;
  } pages{};
  struct {
    int ip, site, visitNo, visitDate, visitTime, download, status;
  } downloads{};
  struct {
    int ip, dns, name;
  } visOld{};
  int ipccCountry = -1;
};

template <class Entry>
const Entry* Database::HandOverBatch(std::unique_ptr<Entry[]>& cache, BatchCopies<Entry>& copies) {
  if (!writer_) return cache.get();
  const int k = copies.next;
  copies.next = (k + 1) % kBatchCopies;
  // The array is free once the job that carried its last batch has run; the jobs after that one
  // need not have.
  writer_->WaitFor(copies.jobOf[k]);
  // The arrays change places rather than the batch being copied. An entry that no batch ever
  // fills (the last of a full batch) stays unfilled in every array, as in the cache itself.
  cache.swap(copies.arrays[k]);
  cache[0] = copies.arrays[k][0];
  copies.jobOf[k] = writer_->Pushed() + 1;  // the job being filled
  return copies.arrays[k].get();
}

namespace detail {

// The status of a near seek as the record operations read it: 0 whenever the table stands on a
// record (an equal or a greater key); the caller then checks the record itself.
inline int NearStatus(int status) { return status == dbase::kAfter ? dbase::kOk : status; }

inline std::string_view View(const char* data, int width) {
  return {data, static_cast<size_t>(width)};
}

}  // namespace detail
}  // namespace database
