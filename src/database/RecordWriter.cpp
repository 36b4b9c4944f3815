// The record writer (see RecordWriter.h): the six kinds of record it writes from its jobs. These
// functions run on the writer's thread when it is on.
#include "database/RecordWriter.h"

#include <cstring>
#include <exception>

#include "database/RecordText.h"
#include "database/Schema.h"
#include "database/TableAccess.h"
#include "vb/Format.h"

namespace database {

namespace {

// Sets a "C" field to "Y" or "N".
void SetFlag(dbase::Table& t, int field, bool value) { t.SetText(field, value ? "Y" : "N"); }

constexpr int kReferrerKeyLength = schema::kReferrerWidth + schema::kSiteWidth;

}  // namespace

// ---- Writing the records -------------------------------------------------------------------

int RecordWriter::RunJob(RecordJob& job) {
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

int RecordWriter::WriteVisitStart(const RecordJob& job) {
  uint64_t& ticket = tickets_[job.visit & ticketMask_];
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
    } else if (status == dbase::kTooLarge) {
      ticket = kNoVisitRecord;
    }
    return status;
  } catch (const std::exception& e) {
    WriterFailure("F.AddVisitToDatabase", e);
  }
  return kNoStatus;
}

int RecordWriter::WriteVisitEnd(const RecordJob& job) {
  try {
    // 1. Key of "Visits" key0: IP + Site + DTOS(VisitDate) + VisitNo.
    constexpr int kKeyLength = schema::kIpWidth + schema::kSiteWidth + 8 + 5;
    char key[kKeyLength];
    std::memcpy(key, job.ip, schema::kIpWidth);
    std::memcpy(key + schema::kIpWidth, job.site, schema::kSiteWidth);
    vb::FormatYmdTo(job.startTime, key + schema::kIpWidth + schema::kSiteWidth);
    std::memcpy(key + schema::kIpWidth + schema::kSiteWidth + 8, job.visitNo, 5);

    // 2. A visit without a record is simply not updated: also one whose record the full table
    //    refused, though an earlier visit's record may have the same key. The seek goes straight
    //    to the record appended for the visit when the table can prove it is the one the key
    //    finds.
    const uint64_t ticket = job.visit == 0 ? 0 : tickets_[job.visit & ticketMask_];
    if (ticket == kNoVisitRecord) return dbase::kTooLarge;
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

int RecordWriter::WriteDownload(const RecordJob& job) {
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

int RecordWriter::WritePageBatch(const RecordJob& job) {
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

int RecordWriter::WriteExceptionBatch(const RecordJob& job) {
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

int RecordWriter::WriteReferrer(const RecordJob& job) {
  try {
    const auto& r = fields_->referrers;
    char time[8];
    vb::FormatTimeTo(job.startTime, time);
    char refKey[kReferrerKeyLength];
    std::memcpy(refKey, job.referrer, schema::kReferrerWidth);
    std::memcpy(refKey + schema::kReferrerWidth, job.site, schema::kSiteWidth);
    const bool newReferrer = VAREF.SeekKey(detail::View(refKey, kReferrerKeyLength)) > 0;
    if (newReferrer) {
      ++writerCounts_.newReferrers;
      VAREF.BlankRecord();
      VAREF.SetDate(r.firstVDate, job.startTime);
      VAREF.SetText(r.firstVTime, detail::View(time, 8));
      VAREF.SetNumber(r.visits, 0);
      VAREF.SetText(r.site, detail::View(job.site, sizeof job.site));
      VAREF.SetText(r.name, detail::View(job.referrer, sizeof job.referrer));
    }
    // Unlike the visitor, a referrer counts a visit that starts at the same second again.
    const vb::Date lastRef = CombineDateTime(VAREF.GetDate(r.lastVDate), VAREF.GetText(r.lastVTime));
    const double visits = VAREF.GetNumber(r.visits);
    if (visits != -1 && WholeSeconds(job.startTime) >= WholeSeconds(lastRef)) {
      VAREF.SetNumber(r.visits, visits + 1);
      VAREF.SetDate(r.lastVDate, job.startTime);
      VAREF.SetText(r.lastVTime, detail::View(time, 8));
    }
    return newReferrer ? VAREF.AppendRecord() : VAREF.ReplaceRecord();
  } catch (const std::exception& e) {
    WriterFailure("F.UpdateVisitor", e);
  }
  return kNoStatus;
}

}  // namespace database
