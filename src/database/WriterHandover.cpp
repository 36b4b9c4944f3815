// The record writer (see RecordWriter.h): handing jobs and batches over to its thread, waiting
// for them, and bringing what the thread met (failures, notices, counts) back to the scan's.
#include <exception>
#include <memory>
#include <mutex>

#include "database/JobLine.h"
#include "database/RecordWriter.h"

namespace database {

RecordWriter::RecordWriter(const Tables& tables, const TableFields& fields,
                           startup::ErrorLog& errors, RunTotals& totals)
    : VAVISITS(tables.visits),
      VAREF(tables.referrers),
      VAEXP(tables.exceptions),
      VAPG(tables.pages),
      VADL(tables.downloads),
      fields_(&fields),
      errors_(errors),
      totals_(totals),
      inlineJob_(new RecordJob),
      tickets_(new uint64_t[kTicketSlots]()) {}

void RecordWriter::KeepTicketsFor(uint32_t slots) {
  tickets_.reset(new uint64_t[slots]());
  ticketMask_ = slots - 1;
}

// Jobs still waiting are written as the thread ends (the line is the last member).
RecordWriter::~RecordWriter() = default;

void RecordWriter::WriteInBackground(bool on) {
  if (on && !writer_) {
    try {
      // The arrays that carry batches to the writer are taken now, not while the scan runs.
      for (int k = 0; k < kBatchCopies; ++k) {
        if (!pageCopies_.arrays[k])
          pageCopies_.arrays[k].reset(new PageEntry[PageCache::kEntries]);
        if (!exceptionCopies_.arrays[k])
          exceptionCopies_.arrays[k].reset(new ExceptionEntry[ExceptionCache::kEntries]);
      }
      // The end of a visit rewrites a "Visits" record written long before: it is fetched while
      // the jobs before it run.
      writer_ = std::make_unique<JobLine<RecordJob>>(
          [this](RecordJob& job) { RunJob(job); },
          [this](const RecordJob& job) {
            if (job.kind == RecordJob::Kind::kVisitEnd)
              VAVISITS.PrefetchTicket(tickets_[job.visit & ticketMask_]);
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

void RecordWriter::WaitForRecords() {
  if (!writer_) return;
  writer_->Drain();
  TakeWriterCounts();
  ReportWriterFailures();
}

RecordJob& RecordWriter::NewJob() { return writer_ ? writer_->Slot() : *inlineJob_; }

int RecordWriter::SubmitJob() {
  if (writer_) {
    writer_->Push();
    // What the writer met is written to errors.log soon after, not only at the next wait.
    if (writerReported_.load(std::memory_order_relaxed)) ReportWriterFailures();
    return kNoStatus;
  }
  const int status = RunJob(*inlineJob_);
  TakeWriterCounts();
  return status;
}

template <class Entry>
const Entry* RecordWriter::HandOverBatch(std::unique_ptr<Entry[]>& cache,
                                         BatchCopies<Entry>& copies) {
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

const PageEntry* RecordWriter::HandOverBatch(std::unique_ptr<PageEntry[]>& cache) {
  return HandOverBatch(cache, pageCopies_);
}

const ExceptionEntry* RecordWriter::HandOverBatch(std::unique_ptr<ExceptionEntry[]>& cache) {
  return HandOverBatch(cache, exceptionCopies_);
}

void RecordWriter::PrefetchVisitRecord(uint32_t visit) const {
  // The writer's thread finds its own way to the record; this one only has the record's ticket
  // at hand when the writer runs here.
  if (!writer_ && visit != 0) VAVISITS.PrefetchTicket(tickets_[visit & ticketMask_]);
}

void RecordWriter::TakeWriterCounts() {
  totals_.visitRecordsAdded += writerCounts_.visitRecordsAdded;
  totals_.pageRecordsAdded += writerCounts_.pageRecordsAdded;
  totals_.exceptionRecordsAdded += writerCounts_.exceptionRecordsAdded;
  totals_.newReferrers += writerCounts_.newReferrers;
  writerCounts_ = RunTotals{};
}

void RecordWriter::LogFailure(const char* location, const std::exception& e) {
  errors_.LogError(location, e);
}

void RecordWriter::WriterFailure(const char* location, const std::exception& e) {
  if (!writer_ || !writer_->OnWriter()) {
    LogFailure(location, e);
    return;
  }
  const std::lock_guard<std::mutex> lock(writerReportsMutex_);
  writerReports_.push_back({location, std::current_exception(), {}});
  writerReported_.store(true, std::memory_order_relaxed);
}

void RecordWriter::Notice(const char* control, const std::string& message) {
  if (!writer_ || !writer_->OnWriter()) {
    errors_.LogError(control, message);
    return;
  }
  const std::lock_guard<std::mutex> lock(writerReportsMutex_);
  writerReports_.push_back({control, nullptr, message});
  writerReported_.store(true, std::memory_order_relaxed);
}

void RecordWriter::ReportWriterFailures() {
  std::vector<WriterReport> reports;
  {
    const std::lock_guard<std::mutex> lock(writerReportsMutex_);
    writerReported_.store(false, std::memory_order_relaxed);
    if (writerReports_.empty()) return;
    reports.swap(writerReports_);
  }
  for (const WriterReport& r : reports) {
    if (!r.failure) {
      errors_.LogError(r.where, r.message);
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

}  // namespace database
