// The visitor database: owner of the nine tables from InitDatabase to CloseDatabase, and of
// every record operation that the scan performs on them: visits, page views (batched),
// downloads, visitors and referrers, exceptions (batched), the day summaries, the DNS cache and
// country codes. Nothing outside it touches a table.
//
// One Database exists per run; it is created by the scan driver and passed by reference. All its
// operations are called from the scan's one thread. The records of "Visits", "Pages",
// "Exceptions", "Referrers" and "Downloads", which the scan writes without reading them for
// anything else, can be written on a writer thread of the database's own (WriteInBackground).
// Table-engine statuses are never errors: each is kept as the shared last status (LastStatus()),
// which later code may read. Operations that report failures catch them, write one line to
// errors.log under their location word and return their default result; nothing here throws to
// the caller.
//
// Visits are handed over as the visit-state record itself (Visit.h), which stays valid until the
// hit analysis next sweeps its visit table.
#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database/DatabaseInputs.h"
#include "database/DayCounts.h"
#include "database/ExceptionCache.h"
#include "database/PageCache.h"
#include "database/RecordHooks.h"
#include "database/RecordWriter.h"
#include "database/Replacement.h"
#include "database/RunTotals.h"
#include "database/TableFields.h"
#include "database/TableId.h"
#include "database/Visit.h"
#include "dbase/Table.h"
#include "vb/Dates.h"

namespace database {

class Database {
 public:
  // REQUIRES: what `inputs` refers to outlives this Database (see DatabaseInputs.h).
  explicit Database(const DatabaseInputs& inputs);
  // Destroying the database closes it (CloseDatabase); nothing that raises escapes.
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // The counters that the database raises but the hit analysis owns. REQUIRES: `hooks` outlives
  // this Database. Until this is called nothing is counted there.
  void SetHooks(RecordHooks& hooks);

  // The name of the site whose logs are being read; every record written gets it as "Site" and
  // every key is built with it (not with the name of the visit's own site index). The scan driver
  // sets it before each site.
  void SetCurrentSite(std::string_view name);
  const std::string& CurrentSite() const { return currentSite_; }

  // ---- Lifecycle -------------------------------------------------------------------------------

  // Prepares the nine controls and creates the seven tables this utility writes, empty, in the
  // staging folder beside the live ones (Replacement.h), and opens them together with "IPCC" and
  // the previous "Visitor" (read where it lies, as the "VISOLD" cache; without a "VISITOR.DBF" a
  // "VISOLD.DBF" left by an interrupted run) when present. The live tables are not touched.
  // Returns true when all seven tables were created and opened (the database-open flag is then
  // set). On false the "CreateDatabase" line of errors.log and DatabaseFailure() say why, and
  // nothing of the failed database is left.
  bool InitDatabase();
  // True when the database is open; otherwise the result of InitDatabase (a complete rebuild).
  bool DatabaseReady();
  // When open: writes buffered changes of "Referrers", "Visitor", "Visits", "Exceptions" and
  // "Pages", in that order. Does nothing when closed.
  void FlushDatabase();
  // How far a close has come, told on the thread that called CloseDatabase: `done` of `total`
  // units of work (each tag of a table written counts one unit per record as its keys are sorted
  // in and one per index entry written). Returning false withdraws the replacement, as
  // ReplaceOnClose(false) would have: the tables are still closed whole, then thrown away.
  using CloseProgress = std::function<bool(uint64_t done, uint64_t total)>;
  // When open: writes the page and exception caches, closes all nine tables, then replaces the
  // live database with the new tables (and deletes "VISOLD") when ReplaceOnClose is on and every
  // write succeeded; otherwise throws the new tables away and keeps the live ones as they were.
  // Clears the open flag. Does nothing when closed, so a second call is harmless.
  // The tables close on two threads of their own while the caller's thread waits; `progress`,
  // when given, is told how far they have come every 50 ms meanwhile, and once more with `done`
  // equal to `total` when every table is closed, before the replacement. So the caller may
  // paint a window and answer its buttons from there, but must touch nothing of the database.
  void CloseDatabase(const CloseProgress& progress = nullptr);

  // ---- Replacing the database whole or not at all ----------------------------------------------

  // Whether the next CloseDatabase replaces the live database (on, the default) or throws the new
  // tables away (off: a run that did not complete).
  void ReplaceOnClose(bool on) { replaceOnClose_ = on; }
  // After CloseDatabase: true when the new tables replaced the live ones.
  bool DatabaseReplaced() const { return replaced_; }
  // Why the database could not be created, or why the last close did not replace it ("" when
  // nothing failed).
  const std::string& DatabaseFailure() const { return failure_; }
  // A write to one of the new tables failed since InitDatabase: the run cannot complete. Safe to
  // ask from any thread; WriteFailure() gives the first failure's text.
  bool WriteFailed() const { return writeFailed_.load(std::memory_order_acquire); }
  std::string WriteFailure() const;
  // The tables that became full since InitDatabase (a record more would have taken one of their
  // files past its size limit, see dbase::Table::SetSizeLimit), each as the one line errors.log
  // got for it, in the order they filled: "PAGES.DBF is full: it holds 18,512 records, ... Scan
  // fewer logs at once ...". A full table takes no more records; the other tables go on, and
  // the run completes. Safe to ask from any thread.
  std::vector<std::string> FullTables() const;
  // The staging of the new tables (its folder, and the room it needs and had).
  const Replacement& Staging() const { return *replacement_; }

  // ---- Shared state ----------------------------------------------------------------------------

  bool DatabaseOpen() const { return open_; }
  bool CountryTableAvailable() const { return countryTable_; }
  bool OldVisitorTableOpen() const { return oldVisitorTable_; }
  // The status of the latest table-engine operation that returned one (0 = success/found).
  // Records written on the writer thread do not set it.
  int LastStatus() const { return lastStatus_; }
  RunTotals& Totals() { return totals_; }
  const RunTotals& Totals() const { return totals_; }

  // ---- The record writer (RecordWriter.h) ----------------------------------------------------

  // On: the records of "Visits", "Pages", "Exceptions", "Referrers" and "Downloads" are written
  // on a writer thread, in the order they were handed over, while the caller goes on; their
  // failures reach errors.log with the next record handed over, and their counts reach Totals()
  // at the next WaitForRecords. Those five tables must then not be used directly before
  // WaitForRecords (the database's own operations wait themselves). Off, the default: every
  // record is written before its call returns. The tables get the same bytes either way. Turning it off
  // waits for the records first. When no thread can be started the writing stays on the
  // caller's thread.
  void WriteInBackground(bool on) { writer_.WriteInBackground(on); }
  bool WritingInBackground() const { return writer_.InBackground(); }
  // Returns when every record handed to the writer is in its table, after writing the failures
  // it met to errors.log and adding its counts to Totals(). Does nothing when the writer is off.
  void WaitForRecords() { writer_.WaitForRecords(); }
  // How many open visits' "Visits" tickets the writer keeps (RecordWriter::KeepTicketsFor).
  void KeepTicketsFor(uint32_t visits) { writer_.KeepTicketsFor(visits); }
  // Bytes of index keys the new tables wrote to temporary files (dbase::KeyMemory) since
  // InitDatabase.
  uint64_t KeysSpilled() const { return keyMemory_ ? keyMemory_->Spilled() : 0; }

  // ---- Visit, page and download records --------------------------------------------------------

  // The visit's first hit: appends its "Visits" record (referrer shortened to scheme://host,
  // "Active" = "Y", "PagesSeen" = 1, "FirstPage" = "LastPage" = entryPage) and caches its first
  // page from the visit state. Gives the visit a number in visit.visitsTicket under which the
  // writer keeps the table's ticket for the new record. REQUIRES: the database is open.
  void AddVisitToDatabase(Visit& visit, std::string_view entryPage);
  // Caches one page view of the visit. The cache holds up to 5,000 pages; the call that would
  // take the 5,000th writes the batch instead and its own page is not recorded (kept on purpose:
  // the files the product reads were always written this way).
  void AddPageToDatabase(const Visit& visit);
  // Appends the cached pages to "Pages" and restarts the cache. Failures are logged under
  // "Btree.WritePageCache".
  void WritePageCache();
  // Counts a download for the visit's site and appends its "Downloads" record; "Download" is the
  // current page reduced to its file name (after the last "/", then after the last "\").
  void AddDownload(const Visit& visit);
  // The visit ended: updates its "Visits" record ("LastPage", "PagesSeen", "MinsOn", "Active" =
  // "N", "HackRaised", "Flags"). A visit without a record is left alone.
  void UpdateVisitInDatabase(const Visit& visit);
  // A hint, changing nothing: UpdateVisitInDatabase(visit) comes soon, so the memory it will
  // read (the visit's record when still in memory, its last page's text) is fetched now.
  void PrefetchVisitUpdate(const Visit& visit) const;

  // ---- Visitor records, friendly names, hack counts ---------------------------------------------

  // A visit starts (or its host name was resolved): creates or updates the "Visitor" record of
  // the visit's IP for the current site, numbers the visit (visit.visitNumber := the visitor's
  // "Visits"), copies the friendly name and first-visit time into the visit, raises exception 133
  // for a repeat visitor at or above the site's return limit (spiders never), and unless
  // dontUpdateReferrer counts the visit for its referrer in "Referrers".
  void UpdateVisitor(Visit& visit, bool dontUpdateReferrer = false);
  // One more hack attempt for the visitor of the visit at the current site: "HackCount" + 1,
  // also stored in visit.hackCount. A visitor without a record is not counted. Failures are
  // logged under "F.UpdateHackCount".
  void UpdateHackCount(Visit& visit);
  // Sets the friendly name of `ip` in every site's "Visitor" record that exists. Opens the
  // database first when it is closed (DatabaseReady). Failures: "Btree.ChangeFriendlyName".
  void ChangeFriendlyName(std::string_view ip, std::string_view newName);
  // The friendly name of `ip` (first record of that IP in "Visitor"), or empty. Failures:
  // "Btree.GetFriendlyName".
  std::string GetFriendlyName(std::string_view ip);

  // ---- Exception records -----------------------------------------------------------------------

  // Records exception `exNumber` for site `logNo` (one-based) at `logDate` (0 = now). Returns
  // false, recording and counting nothing, when the catalogue has no such number or its entry is
  // switched off. Without `value` the catalogue's default value is used. `ip` and `visitNo` (0 =
  // none: the record's "VisitNo" stays blank) go into the record and the message text. Records are cached and appended in batches of
  // 5,001 (the last entry of a full batch is always blank: kept, the product's files were always
  // written so). "VisitNo" is stored as plain decimal text.
  bool AddException(int32_t logNo, int16_t exNumber, vb::Date logDate,
                    std::optional<std::string_view> value = std::nullopt, std::string_view ip = {},
                    int32_t visitNo = 0);
  // The message text composed by the latest successful AddException (template with "[value]"
  // filled, " DNS: " ip, " Visit No: " number). Not stored in the database.
  const std::string& LastExceptionText() const { return exceptionText_; }

  // ---- DNS cache and country codes -------------------------------------------------------------

  // The known host name of `ip`: from a one-entry memory, else from "Visitor", else from "VISOLD".
  // Empty when unknown or when the stored name is the bare IP: the caller then resolves it and
  // calls UpdateDNS. When `visit` is given its friendly name is set from the record found.
  // Failures: "Btree.LookupDNS".
  std::string LookupDNS(std::string_view ip, Visit* visit = nullptr);
  // Writes `dns` into every "Visitor" record of `ip` (all sites). Failures: "Btree.UpdateDNS".
  void UpdateDNS(std::string_view ip, std::string_view dns);
  // The country code of the nearest "IPCC" range record for a dotted IPv4 `ip` (trailing blanks
  // removed), or empty. REQUIRES: CountryTableAvailable(). An address with fewer than four parts,
  // or a part that is not a number, is logged under "F.LookupCountryCode" and gives empty.
  std::string LookupCountryCode(std::string_view ip);

  // ---- Day summaries ---------------------------------------------------------------------------

  // Writes the "DaySum" record of site `siteName` for `day` with `counts`: an existing record of
  // the same site and day is overwritten (not added to), otherwise one is appended. The table's
  // status becomes the last status. Failures are logged under "Engine.WriteDaySummary".
  void WriteDaySummaryRecord(std::string_view siteName, vb::Date day, const DayCounts& counts);

  // ---- Looking at the tables -----------------------------------------------------------------

  // A table as it stands, to be looked at, never written (the checks of a run read their
  // record counts and open state).
  const dbase::Table& Inspect(TableId table) const;

 private:
  bool CreateDatabase();
  void WriteEXCCache();
  void ResolveFields();
  void CachePage(const Visit& visit);
  // Fills the key of a visit's records in `to` (a job or a page entry): the client address, the
  // current site and the visit's number, each blank-padded to its field.
  template <class Entry>
  void PutVisitKey(Entry& to, const Visit& visit) const;
  void LogFailure(const char* location, const std::exception& e);

  // The record writer's job to fill, and handing it over; a status it returns becomes the
  // last status.
  RecordJob& NewJob() { return writer_.NewJob(); }
  void SubmitJob() {
    if (const int status = writer_.SubmitJob(); status != RecordWriter::kNoStatus)
      lastStatus_ = status;
  }
  static void SortPendingKeys(dbase::Table& t);

  DatabaseInputs inputs_;
  // The budget of the new tables' gathered keys (from InitDatabase).
  std::shared_ptr<dbase::KeyMemory> keyMemory_;

  // The table controls.
  dbase::Table VAVISITS;  // "Visits"
  dbase::Table VAVIS;     // "Visitor"
  dbase::Table VAREF;     // "Referrers"
  dbase::Table VAEXP;     // "Exceptions"
  dbase::Table VAPG;      // "Pages"
  dbase::Table VADL;      // "Downloads"
  dbase::Table VADAY;     // "DaySum"
  dbase::Table IPCC;      // "IPCC", read only, opened when present
  dbase::Table VAOLD;     // "VISOLD", the previous "Visitor", read only, opened when present

  RecordHooks defaultHooks_;
  RecordHooks* hooks_ = &defaultHooks_;

  std::string currentSite_;
  std::array<char, 20> siteKey_{};  // current site name, left-aligned in 20, blank-padded

  bool open_ = false;
  // The replacement of the live database by the new tables, and its state.
  std::unique_ptr<Replacement> replacement_;
  bool replaceOnClose_ = true;
  bool replaced_ = false;
  std::string failure_;
  std::atomic<bool> writeFailed_{false};
  mutable std::mutex writeFailureMutex_;
  std::string writeFailure_;
  // Notes a failed write of `table` (called from its notice sink, on whichever thread wrote).
  void NoteWriteFailure(const dbase::Table& table, const std::string& message);
  // The tables that became full, and their lines (see FullTables).
  mutable std::mutex fullTablesMutex_;
  std::vector<const dbase::Table*> fullTableControls_;
  std::vector<std::string> fullTables_;
  // Called from `table`'s notice sink with its notice: when it is the notice that the table
  // became full, notes the table and returns the run's line for it (the notice, and what to do);
  // otherwise returns the notice as it is.
  std::string NoteTableFull(const dbase::Table& table, const std::string& message);
  // Closes the tables' files and replaces the live database, or throws the new tables away
  // (also when `withdrawn`: the close's progress said so).
  void FinishReplacement(bool withdrawn);
  // Closes every table and throws the new ones away (a database that could not be created).
  void DiscardNewTables();
  bool countryTable_ = false;
  bool oldVisitorTable_ = false;
  int lastStatus_ = 0;
  int engineHandle_ = 0;
  RunTotals totals_;

  PageCache pages_;
  ExceptionCache exceptions_;
  std::string exceptionText_;
  std::string defaultValue_;
  // The last catalogue default number converted to text, and its text.
  double defaultNumber_ = 0;
  bool defaultNumberKnown_ = false;
  std::string defaultNumberText_;

  std::unique_ptr<TableFields> fields_;  // field indexes, resolved once at open

  // The number of the latest visit whose record went to the writer (its ticket's slot).
  uint32_t visitsNumbered_ = 0;

  // One-entry DNS memory: the last IP answered, its host name and friendly name.
  std::string memoIp_;
  std::string memoHost_;
  std::string memoName_;

  // The record writer of "Visits", "Pages", "Exceptions", "Referrers" and "Downloads". Last, so
  // that it ends first: jobs still waiting when the database is destroyed run while everything
  // they use is still there.
  RecordWriter writer_;
};

}  // namespace database
