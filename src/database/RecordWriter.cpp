// The visitor database: the record writer. The records of "Visits", "Pages", "Exceptions",
// "Referrers" and "Downloads" are never read back during a scan except by the writes of the same
// tables (the end of a visit seeks its own record, a referrer's next visit its referrer's
// record), so they can be
// built and written apart from the hit analysis: the analysis copies what a record is made of
// into a job, and the writer turns the jobs into records, one after the other in the order
// given. With the writer on, that happens on a thread of its own while the analysis goes on with
// the next hits; with it off, at once.
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>

#include "database/Database.h"
#include "database/DatabaseParts.h"
#include "database/JobLine.h"
#include "database/RecordText.h"
#include "database/Schema.h"
#include "startup/World.h"
#include "vb/Format.h"

namespace database {

namespace {

// Sets a "C" field to "Y" or "N".
void SetFlag(dbase::Table& t, int field, bool value) { t.SetText(field, value ? "Y" : "N"); }

}  // namespace

// ---- Handing jobs over -----------------------------------------------------------------------

void Database::WriteInBackground(bool on) {
  if (on && !writer_) {
    try {
      // The arrays that carry batches to the writer are taken now, not while the scan runs.
      for (int k = 0; k < kBatchCopies; ++k) {
        if (!pageCopies_.arrays[k]) pageCopies_.arrays[k].reset(new PageEntry[kCacheEntries]);
        if (!exceptionCopies_.arrays[k])
          exceptionCopies_.arrays[k].reset(new ExceptionEntry[kCacheEntries]);
      }
      // The end of a visit rewrites a "Visits" record written long before: it is fetched while
      // the jobs before it run.
      writer_ = std::make_unique<JobLine<RecordJob>>(
          [this](RecordJob& job) { RunJob(job); },
          [this](const RecordJob& job) {
            if (job.kind == RecordJob::Kind::kVisitEnd)
              VAVISITS.PrefetchTicket(tickets_[job.visit & (kTicketSlots - 1)]);
          });
    } catch (const std::exception&) {
      // No thread: the records are written on the caller's thread, as with the writer off.
      writer_.reset();
    }
  } else if (!on && writer_) {
    WaitForRecords();
    writer_.reset();
  }
}

void Database::WaitForRecords() {
  if (!writer_) return;
  writer_->Drain();
  TakeWriterCounts();
  ReportWriterFailures();
}

Database::RecordJob& Database::NewJob() { return writer_ ? writer_->Slot() : *inlineJob_; }

void Database::SubmitJob() {
  if (writer_) {
    writer_->Push();
    // What the writer met is written to errors.log soon after, not only at the next wait.
    if (writerReported_.load(std::memory_order_relaxed)) ReportWriterFailures();
    return;
  }
  if (const int status = RunJob(*inlineJob_); status != kNoStatus) lastStatus_ = status;
  TakeWriterCounts();
}

void Database::TakeWriterCounts() {
  totals_.visitRecordsAdded += writerCounts_.visitRecordsAdded;
  totals_.pageRecordsAdded += writerCounts_.pageRecordsAdded;
  totals_.exceptionRecordsAdded += writerCounts_.exceptionRecordsAdded;
  totals_.newReferrers += writerCounts_.newReferrers;
  writerCounts_ = RunTotals{};
}

void Database::WriterFailure(const char* location, const std::exception& e) {
  if (!writer_ || !writer_->OnWriter()) {
    LogFailure(location, e);
    return;
  }
  const std::lock_guard<std::mutex> lock(writerReportsMutex_);
  writerReports_.push_back({location, std::current_exception(), {}});
  writerReported_.store(true, std::memory_order_relaxed);
}

void Database::WriterNotice(const char* control, const std::string& message) {
  if (!writer_ || !writer_->OnWriter()) {
    world_.errors.LogError(control, message);
    return;
  }
  const std::lock_guard<std::mutex> lock(writerReportsMutex_);
  writerReports_.push_back({control, nullptr, message});
  writerReported_.store(true, std::memory_order_relaxed);
}

void Database::ReportWriterFailures() {
  std::vector<WriterReport> reports;
  {
    const std::lock_guard<std::mutex> lock(writerReportsMutex_);
    writerReported_.store(false, std::memory_order_relaxed);
    if (writerReports_.empty()) return;
    reports.swap(writerReports_);
  }
  for (const WriterReport& r : reports) {
    if (!r.failure) {
      world_.errors.LogError(r.where, r.message);
      continue;
    }
    try {
      std::rethrow_exception(r.failure);
    } catch (const std::exception& e) {
      LogFailure(r.where, e);
    } catch (...) {
    }
  }
}

// ---- Writing the records -------------------------------------------------------------------

int Database::RunJob(RecordJob& job) {
  switch (job.kind) {
    case RecordJob::Kind::kVisitStart:
      return WriteVisitStart(job);
    case RecordJob::Kind::kVisitEnd:
      return WriteVisitEnd(job);
    case RecordJob::Kind::kPages:
      return WritePageBatch(job);
    case RecordJob::Kind::kExceptions:
      return WriteExceptionBatch(job);
    case RecordJob::Kind::kReferrer:
      return WriteReferrer(job);
    case RecordJob::Kind::kDownload:
      return WriteDownload(job);
  }
  return kNoStatus;
}

int Database::WriteVisitStart(const RecordJob& job) {
  uint64_t& ticket = tickets_[job.visit & (kTicketSlots - 1)];
  ticket = 0;
  try {
    const auto& f = fields_->visits;
    char time[8];
    vb::FormatTimeTo(job.startTime, time);
    VAVISITS.BlankRecord();
    VAVISITS.SetText(f.ip, detail::View(job.ip, sizeof job.ip));
    VAVISITS.SetText(f.site, detail::View(job.site, sizeof job.site));
    SetFlag(VAVISITS, f.alert, job.alert);
    VAVISITS.SetNumber(f.alertNo, job.alertNumber);
    VAVISITS.SetText(f.visitNo, detail::View(job.visitNo, sizeof job.visitNo));
    VAVISITS.SetDate(f.visitDate, job.startTime);
    VAVISITS.SetText(f.visitTime, detail::View(time, 8));
    VAVISITS.SetText(f.firstPage, detail::View(job.entryPage, sizeof job.entryPage));
    VAVISITS.SetText(f.lastPage, detail::View(job.entryPage, sizeof job.entryPage));
    VAVISITS.SetText(f.browser, detail::View(job.browser, sizeof job.browser));
    SetFlag(VAVISITS, f.spider, job.spider);
    VAVISITS.SetText(f.spiderT, detail::View(job.spiderName, sizeof job.spiderName));
    VAVISITS.SetText(f.referrer, detail::View(job.referrer, sizeof job.referrer));
    VAVISITS.SetNumber(f.pagesSeen, 1);
    VAVISITS.SetText(f.active, "Y");
    const int status = VAVISITS.AppendRecord();
    if (status == dbase::kOk) {
      ++writerCounts_.visitRecordsAdded;
      ticket = VAVISITS.AppendTicket();
    }
    return status;
  } catch (const std::exception& e) {
    WriterFailure("F.AddVisitToDatabase", e);
  }
  return kNoStatus;
}

int Database::WriteVisitEnd(const RecordJob& job) {
  try {
    // 1. Key of "Visits" key0: IP + Site + DTOS(VisitDate) + VisitNo.
    constexpr int kKeyLength = schema::kIpWidth + schema::kSiteWidth + 8 + 5;
    char key[kKeyLength];
    std::memcpy(key, job.ip, schema::kIpWidth);
    std::memcpy(key + schema::kIpWidth, job.site, schema::kSiteWidth);
    vb::FormatYmdTo(job.startTime, key + schema::kIpWidth + schema::kSiteWidth);
    std::memcpy(key + schema::kIpWidth + schema::kSiteWidth + 8, job.visitNo, 5);

    // 2. A visit without a record is simply not updated. The seek goes straight to the record
    //    appended for the visit when the table can prove it is the one the key finds.
    const uint64_t ticket = job.visit == 0 ? 0 : tickets_[job.visit & (kTicketSlots - 1)];
    int status = VAVISITS.SeekKeyAt(detail::View(key, kKeyLength), ticket);
    if (status != dbase::kOk) return status;

    // 3. Duration.
    char minsOn[24];
    const std::string_view duration =
        MinsOnText(vb::DateDiffSeconds(job.startTime, job.lastHitTime), minsOn);

    // 4.
    const auto& f = fields_->visits;
    VAVISITS.SetText(f.lastPage, detail::View(job.lastPage, sizeof job.lastPage));
    VAVISITS.SetNumber(f.pagesSeen, job.pageCount);
    VAVISITS.SetText(f.minsOn, duration);
    VAVISITS.SetText(f.active, "N");
    SetFlag(VAVISITS, f.hackRaised, job.hackRaised);
    VAVISITS.SetText(f.flags, detail::View(job.flags, 2));

    // 5.
    return VAVISITS.ReplaceRecord();
  } catch (const std::exception& e) {
    WriterFailure("F.UpdateVisitInDatabase", e);
  }
  return kNoStatus;
}

int Database::WriteDownload(const RecordJob& job) {
  try {
    const auto& f = fields_->downloads;
    char time[8];
    vb::FormatTimeTo(job.lastHitTime, time);
    VADL.BlankRecord();
    VADL.SetText(f.ip, detail::View(job.ip, sizeof job.ip));
    VADL.SetText(f.site, detail::View(job.site, sizeof job.site));
    VADL.SetDate(f.visitDate, job.lastHitTime);
    VADL.SetText(f.visitTime, detail::View(time, 8));
    VADL.SetText(f.visitNo, detail::View(job.visitNo, sizeof job.visitNo));
    VADL.SetText(f.download, detail::View(job.download, sizeof job.download));
    VADL.SetNumber(f.status, job.status);
    return VADL.AppendRecord();
  } catch (const std::exception& e) {
    WriterFailure("F.AddDownload", e);
  }
  return kNoStatus;
}

int Database::WritePageBatch(const RecordJob& job) {
  int status = kNoStatus;
  try {
    const auto& f = fields_->pages;
    for (int i = 1; i <= job.count; ++i) {
      const PageEntry& e = job.pages[i - 1];
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
      status = VAPG.AppendRecord();
      if (status == dbase::kOk) ++writerCounts_.pageRecordsAdded;
    }
  } catch (const std::exception& e) {
    WriterFailure("Btree.WritePageCache", e);
  }
  return status;
}

int Database::WriteExceptionBatch(const RecordJob& job) {
  int status = kNoStatus;
  try {
    const auto& f = fields_->exceptions;
    for (int i = 1; i <= job.count; ++i) {
      const ExceptionEntry& e = job.exceptions[i - 1];
      VAEXP.BlankRecord();
      // Entry 5000 is never filled, so a full batch ends with one blank record; the product's
      // files have always had it.
      if (e.filled) {
        char visitNo[24];
        VAEXP.SetText(f.site, detail::View(e.site, sizeof e.site));
        VAEXP.SetDate(f.exDate, e.exDate);
        VAEXP.SetText(f.exTime, detail::View(e.exTime, sizeof e.exTime));
        VAEXP.SetNumber(f.number, e.number);
        VAEXP.SetText(f.ip, detail::View(e.ip, sizeof e.ip));
        // The visit number goes in as a plain number ("7"), not in the "00000" form of the other
        // tables. An exception raised without a visit (a robot learnt, the site-level pass)
        // leaves the field blank: the monitoring product's alert pass tells them so.
        if (e.visitNo > 0) VAEXP.SetText(f.visitNo, ZeroPadded(e.visitNo, 1, visitNo));
        VAEXP.SetText(f.value, detail::View(e.value, sizeof e.value));
      }
      status = VAEXP.AppendRecord();
      if (status == dbase::kOk) ++writerCounts_.exceptionRecordsAdded;
    }
  } catch (const std::exception& e) {
    WriterFailure("f.WriteEXCCache", e);
  }
  return status;
}

}  // namespace database
