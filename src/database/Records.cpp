// The database form F: visit, page and download records. Visits and downloads are written at
// once; page views collect in a fixed cache of 5,001 entries and are appended in batches.
#include <cstring>

#include "database/F.h"
#include "database/FDetail.h"
#include "database/RecordText.h"
#include "database/Schema.h"
#include "startup/World.h"
#include "vb/Format.h"

namespace database {

namespace {

// The batch size of the page cache: the call that would take page number kPageBatch writes the
// batch instead of caching its page.
constexpr int kPageBatch = 5000;

// Sets a "C" field to "Y" or "N".
void SetFlag(dbase::Table& t, int field, bool value) { t.SetText(field, value ? "Y" : "N"); }

}  // namespace

void F::AddVisitToDatabase(Visit& visit, std::string_view entryPage) {
  visit.visitsTicket = 0;
  try {
    // 1. Referrer, shortened to scheme://host.
    const std::string_view referrer = ShortenReferrer(visit.referrer);

    // 2. The visit's record.
    const auto& f = fields_->visits;
    char visitNo[24];
    char time[8];
    vb::FormatTimeTo(visit.startTime, time);
    VAVISITS.BlankRecord();
    VAVISITS.SetText(f.ip, visit.clientAddress);
    VAVISITS.SetText(f.site, currentSite_);
    SetFlag(VAVISITS, f.alert, visit.alert);
    VAVISITS.SetNumber(f.alertNo, visit.alertNumber);
    VAVISITS.SetText(f.visitNo, ZeroPadded(visit.visitNumber, 5, visitNo));
    VAVISITS.SetDate(f.visitDate, visit.startTime);
    VAVISITS.SetText(f.visitTime, detail::View(time, 8));
    VAVISITS.SetText(f.firstPage, entryPage);
    VAVISITS.SetText(f.lastPage, entryPage);
    VAVISITS.SetText(f.browser, visit.browser);
    SetFlag(VAVISITS, f.spider, visit.spider);
    VAVISITS.SetText(f.spiderT, visit.spiderName);
    VAVISITS.SetText(f.referrer, referrer);
    VAVISITS.SetNumber(f.pagesSeen, 1);
    VAVISITS.SetText(f.active, "Y");
    lastStatus_ = VAVISITS.AppendRecord();
    if (lastStatus_ == dbase::kOk) {
      ++totals_.visitRecordsAdded;
      // Kept so that the visit's end finds this record again without a search when it can.
      visit.visitsTicket = VAVISITS.AppendTicket();
    }

    // 3. The first page, from the visit state (not from entryPage).
    CachePage(visit);
  } catch (const std::exception& e) {
    LogFailure("F.AddVisitToDatabase", e);
  }
}

void F::AddPageToDatabase(const Visit& visit) {
  try {
    CachePage(visit);
  } catch (const std::exception& e) {
    LogFailure("F.AddPageToDatabase", e);
  }
}

void F::CachePage(const Visit& visit) {
  // 1.
  const int n = pageCount_;
  pageCount_ = n + 1;
  // 3. The call that reaches the batch size writes the batch, and its own page is not cached:
  //    the tables the product reads have always been written this way, so it stays.
  if (n + 1 == kPageBatch) {
    WritePageCache();
    pageCount_ = 1;
    return;
  }
  // 2.
  PageEntry& e = pages_[n];
  char number[24];
  e.filled = true;
  PadInto(e.ip, sizeof e.ip, visit.clientAddress);
  std::memcpy(e.site, siteKey_.data(), sizeof e.site);
  PadInto(e.visitNo, sizeof e.visitNo, ZeroPadded(visit.visitNumber, 5, number));
  PadInto(e.page, sizeof e.page, visit.currentPage);
  PadInto(e.pageNo, sizeof e.pageNo, ZeroPadded(visit.pageCount, 4, number));
  e.pageDate = visit.lastHitTime;
  vb::FormatTimeTo(visit.lastHitTime, e.pageTime);
  e.status = static_cast<int16_t>(visit.status);
}

void F::WritePageCache() {
  try {
    const auto& f = fields_->pages;
    for (int i = 1; i <= pageCount_; ++i) {
      const PageEntry& e = pages_[i - 1];
      VAPG.BlankRecord();
      // An entry that was never filled (the last of a full batch) goes out as a blank record.
      if (e.filled) {
        VAPG.SetText(f.ip, detail::View(e.ip, sizeof e.ip));
        VAPG.SetText(f.site, detail::View(e.site, sizeof e.site));
        VAPG.SetText(f.visitNo, detail::View(e.visitNo, sizeof e.visitNo));
        VAPG.SetText(f.page, detail::View(e.page, sizeof e.page));
        VAPG.SetText(f.pageNo, detail::View(e.pageNo, sizeof e.pageNo));
        VAPG.SetDate(f.pageDate, e.pageDate);
        VAPG.SetText(f.pageTime, detail::View(e.pageTime, sizeof e.pageTime));
        VAPG.SetNumber(f.status, e.status);
      }
      lastStatus_ = VAPG.AppendRecord();
      if (lastStatus_ == dbase::kOk) ++totals_.pageRecordsAdded;
    }
    // The counter restarts at 1, not 0: entry 0 keeps the first page of the first batch and goes
    // out again with every later batch. Kept as the product's files have always been written.
    pageCount_ = 1;
  } catch (const std::exception& e) {
    LogFailure("Btree.WritePageCache", e);
  }
}

void F::AddDownload(const Visit& visit) {
  try {
    // 1.
    hooks_->DownloadCounted(visit.siteIndex);
    // 2.
    const auto& f = fields_->downloads;
    char time[8];
    char visitNo[24];
    vb::FormatTimeTo(visit.lastHitTime, time);
    VADL.BlankRecord();
    VADL.SetText(f.ip, visit.clientAddress);
    VADL.SetText(f.site, currentSite_);
    VADL.SetDate(f.visitDate, visit.lastHitTime);
    VADL.SetText(f.visitTime, detail::View(time, 8));
    VADL.SetText(f.visitNo, ZeroPadded(visit.visitNumber, 5, visitNo));
    VADL.SetText(f.download, DownloadName(visit.currentPage));
    VADL.SetNumber(f.status, visit.status);
    lastStatus_ = VADL.AppendRecord();
  } catch (const std::exception& e) {
    LogFailure("F.AddDownload", e);
  }
}

void F::PrefetchVisitUpdate(const Visit& visit) const {
  VAVISITS.PrefetchTicket(visit.visitsTicket);
  __builtin_prefetch(visit.currentPage.data());
}

void F::UpdateVisitInDatabase(const Visit& visit) {
  try {
    // 1. Key of "Visits" key0: IP + Site + DTOS(VisitDate) + VisitNo.
    constexpr int kKeyLength = schema::kIpWidth + schema::kSiteWidth + 8 + 5;
    char key[kKeyLength];
    char visitNo[24];
    PadInto(key, schema::kIpWidth, visit.clientAddress);
    std::memcpy(key + schema::kIpWidth, siteKey_.data(), schema::kSiteWidth);
    vb::FormatYmdTo(visit.startTime, key + schema::kIpWidth + schema::kSiteWidth);
    PadInto(key + schema::kIpWidth + schema::kSiteWidth + 8, 5,
            ZeroPadded(visit.visitNumber, 5, visitNo));

    // 2. A visit without a record is simply not updated. The seek goes straight to the record
    //    appended for the visit when the table can prove it is the one the key finds.
    lastStatus_ = VAVISITS.SeekKeyAt(detail::View(key, kKeyLength), visit.visitsTicket);
    if (lastStatus_ != dbase::kOk) return;

    // 3. Duration.
    char minsOn[24];
    const std::string_view duration =
        MinsOnText(vb::DateDiffSeconds(visit.startTime, visit.lastHitTime), minsOn);

    // 4.
    const auto& f = fields_->visits;
    VAVISITS.SetText(f.lastPage, visit.currentPage);
    VAVISITS.SetNumber(f.pagesSeen, visit.pageCount);
    VAVISITS.SetText(f.minsOn, duration);
    VAVISITS.SetText(f.active, "N");
    SetFlag(VAVISITS, f.hackRaised, visit.hackRaised);
    const char flags[2] = {visit.friendlyName.empty() ? 'N' : 'Y',
                           visit.groupMask.empty() ? 'N' : 'Y'};
    VAVISITS.SetText(f.flags, detail::View(flags, 2));

    // 5.
    lastStatus_ = VAVISITS.ReplaceRecord();
  } catch (const std::exception& e) {
    LogFailure("F.UpdateVisitInDatabase", e);
  }
}

}  // namespace database
