// The record writer: turns jobs (RecordJob.h) into the records of "Visits", "Pages",
// "Exceptions", "Referrers" and "Downloads", one after the other in the order they were handed
// over. The scan never reads those records back except through the writes of the same tables
// (the end of a visit seeks its own record, a referrer's next visit its referrer's record), so
// they can be built and written apart from the hit analysis.
//
// Contract:
// - One producer: every function here is called from the scan's one thread.
// - Off (the default), SubmitJob writes the job before it returns. On (WriteInBackground(true)),
//   jobs are written on a thread of the writer's own while the producer goes on; the five tables
//   then belong to the writer until WaitForRecords returns, and nobody else may touch them.
//   When no thread can be started the writing stays on the producer's thread. The tables get the
//   same bytes either way.
// - A job is filled in place: NewJob gives the job to fill, SubmitJob hands it over. Nothing is
//   allocated per job.
// - Failures and engine notices met on the writer's thread reach errors.log from the producer's
//   thread, with the next job handed over or at WaitForRecords; the counts of records appended
//   reach the run totals at WaitForRecords (at once when off). Nothing here throws to the caller.
// - A batch of pages or exceptions goes over in its cache's own array (HandOverBatch), which
//   changes places with the next of kBatchCopies spare arrays: the cache fills again while the
//   batch is written.
// - Every "Visits" record appended keeps its table ticket under the visit's number, in a ring of
//   kTicketSlots; the end of the visit finds its record through it without a search when it can.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "database/ExceptionCache.h"
#include "database/PageCache.h"
#include "database/RecordJob.h"
#include "database/RunTotals.h"
#include "database/TableFields.h"
#include "dbase/Table.h"
#include "startup/ErrorLog.h"

namespace database {

template <class Job>
class JobLine;

class RecordWriter {
 public:
  // The five tables the writer appends to and rewrites, owned by the database.
  struct Tables {
    dbase::Table& visits;
    dbase::Table& referrers;
    dbase::Table& exceptions;
    dbase::Table& pages;
    dbase::Table& downloads;
  };

  // Slots of the ring of "Visits" tickets (8 bytes each). A visit still open when this many
  // later visits have started finds its slot taken; its ticket then proves nothing, and the end
  // of the visit seeks its record by key instead. That search brings every key of "Visits" into
  // its tree (reading back those gone to temporary files), which a large scan cannot afford
  // often: crawlers keep visits open for days while hundreds of thousands of others start.
  static constexpr uint32_t kTicketSlots = uint32_t(1) << 20;
  // The ticket slot of a visit whose "Visits" record the table refused (it was full): the end
  // of that visit updates nothing. No table ticket has this value.
  static constexpr uint64_t kNoVisitRecord = ~uint64_t(0);
  // Keeps tickets for `slots` visits instead (a power of two, at least 2): a test reaches a
  // visit that outlives its slot with fewer visits. Before the first visit is handed over.
  void KeepTicketsFor(uint32_t slots);
  // What SubmitJob returns when no table operation gave a status (the job went to the thread,
  // an empty batch, a failure caught): the database's last status then stays as it was.
  static constexpr int kNoStatus = -1000000;

  // REQUIRES: everything given outlives this writer; `fields` is resolved before the first job.
  RecordWriter(const Tables& tables, const TableFields& fields, startup::ErrorLog& errors,
               RunTotals& totals);
  // Writes every job still waiting, then ends the thread.
  ~RecordWriter();
  RecordWriter(const RecordWriter&) = delete;
  RecordWriter& operator=(const RecordWriter&) = delete;

  // Turns the writer's thread on or off; turning it off waits for the records first.
  void WriteInBackground(bool on);
  bool InBackground() const { return writer_ != nullptr; }
  // Returns when every job handed over is in its table, after writing the failures met to
  // errors.log and adding the counts to the run totals. Does nothing when off.
  void WaitForRecords();

  // The job to fill; valid until SubmitJob.
  RecordJob& NewJob();
  // Hands the job from NewJob over. Returns the status of its last table operation when it was
  // written at once, else kNoStatus.
  int SubmitJob();

  // The batch in `cache` as the writer gets it, for the job being filled (NewJob): the cache
  // itself when the writer runs on this thread. Otherwise the cache's array goes with the job,
  // and the cache goes on in the next of the kBatchCopies arrays, in turn (waiting for the
  // writer when that one's last batch is not written yet), with the batch's first entry carried
  // over: a cache's entries from the second on are filled again before they are handed over.
  const PageEntry* HandOverBatch(std::unique_ptr<PageEntry[]>& cache);
  const ExceptionEntry* HandOverBatch(std::unique_ptr<ExceptionEntry[]>& cache);

  // A hint, changing nothing: the end of visit `visit` (its number in the ticket ring) comes
  // soon, so its "Visits" record is fetched now when the writer runs on this thread.
  void PrefetchVisitRecord(uint32_t visit) const;

  // A notice of the engine on one of the five tables (`control` names it in errors.log): logged
  // at once on the producer's thread, kept for later on the writer's.
  void Notice(const char* control, const std::string& message);

 private:
  // Arrays that carry batches to the writer. The writer falls behind by a few batches now and
  // then (while it merges the keys it has gathered); with only two arrays the analysis then
  // stopped to wait for it several times in a large scan.
  static constexpr int kBatchCopies = 4;
  template <class Entry>
  struct BatchCopies {
    std::unique_ptr<Entry[]> arrays[kBatchCopies];  // taken when the writer's thread starts
    uint64_t jobOf[kBatchCopies] = {};  // the job that carried each array's last batch (0: none)
    int next = 0;
  };
  template <class Entry>
  const Entry* HandOverBatch(std::unique_ptr<Entry[]>& cache, BatchCopies<Entry>& copies);

  // RunJob and the Write* functions run on the writer thread when it is on, and touch nothing
  // but the five tables, the ticket ring and writerCounts_. They return the status of their last
  // table operation, or kNoStatus when none ran.
  int RunJob(RecordJob& job);
  int WriteVisitStart(const RecordJob& job);
  int WriteVisitEnd(const RecordJob& job);
  int WritePageBatch(const RecordJob& job);
  int WriteExceptionBatch(const RecordJob& job);
  int WriteReferrer(const RecordJob& job);
  int WriteDownload(const RecordJob& job);
  // A failure met while writing: logged at once on the producer's thread, kept for
  // WaitForRecords on the writer thread.
  void WriterFailure(const char* location, const std::exception& e);
  void LogFailure(const char* location, const std::exception& e);
  // Writes the failures and notices the writer kept to errors.log.
  void ReportWriterFailures();
  // Adds the writer's counts to the run totals.
  void TakeWriterCounts();

  // The table controls, under the names the record operations have always used.
  dbase::Table& VAVISITS;  // "Visits"
  dbase::Table& VAREF;     // "Referrers"
  dbase::Table& VAEXP;     // "Exceptions"
  dbase::Table& VAPG;      // "Pages"
  dbase::Table& VADL;      // "Downloads"
  const TableFields* fields_;
  startup::ErrorLog& errors_;
  RunTotals& totals_;

  // The job filled when the writer is off, the ring of "Visits" tickets by visit number, and
  // the counts of records appended since they were last added to totals_.
  std::unique_ptr<RecordJob> inlineJob_;
  std::unique_ptr<uint64_t[]> tickets_;
  uint32_t ticketMask_ = kTicketSlots - 1;
  RunTotals writerCounts_;
  BatchCopies<PageEntry> pageCopies_;
  BatchCopies<ExceptionEntry> exceptionCopies_;
  // Failures and engine notices met on the writer thread, in order: where (location or
  // control) and either the failure or the notice's message.
  struct WriterReport {
    const char* where;
    std::exception_ptr failure;
    std::string message;
  };
  std::mutex writerReportsMutex_;
  std::vector<WriterReport> writerReports_;
  std::atomic<bool> writerReported_{false};  // writerReports_ holds something

  // The writer's thread, null when off. Last, so that it ends first: jobs still waiting when the
  // writer is destroyed run while everything they use is still there.
  std::unique_ptr<JobLine<RecordJob>> writer_;
};

}  // namespace database
