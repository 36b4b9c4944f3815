// The visitor database: visit, page and download records. Visits and downloads are written at
// once; page views collect in a fixed cache of 5,001 entries and are appended in batches.
#include <cstring>

#include "database/Database.h"
#include "database/RecordText.h"
#include "database/Schema.h"
#include "vb/Format.h"

namespace database {

namespace {

// The batch size of the page cache: the call that would take page number kPageBatch writes the
// batch instead of caching its page.
constexpr int kPageBatch = PageCache::kBatch;

}  // namespace

template <class Entry>
void Database::PutVisitKey(Entry& to, const Visit& visit) const {
  PadInto(to.ip, sizeof to.ip, visit.clientAddress);
  std::memcpy(to.site, siteKey_.data(), sizeof to.site);
  PutZeroPadded(to.visitNo, sizeof to.visitNo, visit.visitNumber);
}

void Database::AddVisitToDatabase(Visit& visit, std::string_view entryPage) {
  try {
    // 1. Referrer, shortened to scheme://host.
    const std::string_view referrer = ShortenReferrer(visit.referrer);

    // 2. The visit's record, built and appended by the record writer. The visit's number there
    //    keeps the record's ticket, so that the visit's end finds the record again without a
    //    search when it can. Number 0 is never given: it means "no record".
    if (++visitsNumbered_ == 0) visitsNumbered_ = 1;
    visit.visitsTicket = visitsNumbered_;
    RecordJob& job = NewJob();
    job.kind = RecordJob::Kind::kVisitStart;
    job.visit = visitsNumbered_;
    PutVisitKey(job, visit);
    job.startTime = visit.startTime;
    job.alert = visit.alert;
    job.alertNumber = visit.alertNumber;
    job.spider = visit.spider;
    PadInto(job.entryPage, sizeof job.entryPage, entryPage);
    PadInto(job.browser, sizeof job.browser, visit.browser);
    PadInto(job.spiderName, sizeof job.spiderName, visit.spiderName);
    PadInto(job.referrer, sizeof job.referrer, referrer);
    SubmitJob();

    // 3. The first page, from the visit state (not from entryPage).
    CachePage(visit);
  } catch (const std::exception& e) {
    LogFailure("F.AddVisitToDatabase", e);
  }
}

void Database::AddPageToDatabase(const Visit& visit) {
  try {
    CachePage(visit);
  } catch (const std::exception& e) {
    LogFailure("F.AddPageToDatabase", e);
  }
}

void Database::CachePage(const Visit& visit) {
  // 1.
  const int n = pages_.count;
  pages_.count = n + 1;
  // 3. The call that reaches the batch size writes the batch, and its own page is not cached:
  //    the tables the product reads have always been written this way, so it stays.
  if (n + 1 == kPageBatch) {
    WritePageCache();
    pages_.count = 1;
    return;
  }
  // 2.
  PageEntry& e = pages_.entries[n];
  e.filled = true;
  PutVisitKey(e, visit);
  PadInto(e.page, sizeof e.page, visit.currentPage);
  PutZeroPadded(e.pageNo, sizeof e.pageNo, visit.pageCount);
  e.pageDate = visit.lastHitTime;
  vb::FormatTimeTo(visit.lastHitTime, e.pageTime);
  e.status = static_cast<int16_t>(visit.status);
}

void Database::WritePageCache() {
  try {
    // The batch goes to the record writer. A writer on its own thread takes the cache's array
    // itself, and the cache fills again meanwhile in another one; an array is free again once
    // its batch is written.
    RecordJob& job = NewJob();
    job.kind = RecordJob::Kind::kPages;
    job.count = pages_.count;
    job.pages = writer_.HandOverBatch(pages_.entries);
    SubmitJob();
    // The counter restarts at 1, not 0: entry 0 keeps the first page of the first batch and goes
    // out again with every later batch. Kept as the product's files have always been written.
    pages_.count = 1;
  } catch (const std::exception& e) {
    LogFailure("Btree.WritePageCache", e);
  }
}

void Database::AddDownload(const Visit& visit) {
  try {
    // 1.
    hooks_->DownloadCounted(visit.siteIndex);
    // 2. The record, by the record writer.
    RecordJob& job = NewJob();
    job.kind = RecordJob::Kind::kDownload;
    PutVisitKey(job, visit);
    job.lastHitTime = visit.lastHitTime;
    job.status = visit.status;
    PadInto(job.download, sizeof job.download, DownloadName(visit.currentPage));
    SubmitJob();
  } catch (const std::exception& e) {
    LogFailure("F.AddDownload", e);
  }
}

void Database::PrefetchVisitUpdate(const Visit& visit) const {
  writer_.PrefetchVisitRecord(static_cast<uint32_t>(visit.visitsTicket));
  __builtin_prefetch(visit.currentPage.data());
}

void Database::UpdateVisitInDatabase(const Visit& visit) {
  try {
    // The record writer seeks the visit's record and writes the end of the visit into it.
    RecordJob& job = NewJob();
    job.kind = RecordJob::Kind::kVisitEnd;
    job.visit = static_cast<uint32_t>(visit.visitsTicket);
    PutVisitKey(job, visit);
    job.startTime = visit.startTime;
    job.lastHitTime = visit.lastHitTime;
    job.pageCount = visit.pageCount;
    job.hackRaised = visit.hackRaised;
    job.flags[0] = visit.friendlyName.empty() ? 'N' : 'Y';
    job.flags[1] = visit.groupMask.empty() ? 'N' : 'Y';
    PadInto(job.lastPage, sizeof job.lastPage, visit.currentPage);
    SubmitJob();
  } catch (const std::exception& e) {
    LogFailure("F.UpdateVisitInDatabase", e);
  }
}

}  // namespace database
