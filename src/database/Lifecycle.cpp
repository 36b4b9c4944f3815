// The visitor database's lifecycle: creating, opening, flushing and closing the tables, and
// replacing the live database with the new tables whole or not at all.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "database/Database.h"
#include "database/Schema.h"
#include "dbase/Status.h"
#include "platform/Files.h"

namespace database {

namespace {

// The engine handle that InitDatabase hands from "Visitor" to the other controls. Our table
// engine needs no process-wide start, so the handle is only a token that says "engine started".
constexpr int kEngineStarted = 1;

// While the tables close, the caller is told how far they have come this often.
constexpr auto kCloseProgressEvery = std::chrono::milliseconds(50);

// Forces a closed table's files to disk. The replacement forces every new file to disk before it
// decides (and again then, at little cost): done here, table by table on the closing threads,
// most of that wait falls in the close, while the caller is told how far it has come, instead
// of after it.
void SyncTableFiles(const dbase::Table& t) {
  for (const char* ext : {".DBF", ".MDX"}) {
    if (const auto file = platform::FindFileCI(t.Location(), t.TableName() + ext)) {
      const int fd = ::open(file->c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0) continue;
      ::fsync(fd);
      ::close(fd);
    }
  }
}

}  // namespace

bool Database::InitDatabase() {
  try {
    // A database still open from an earlier init is closed first (its caches are written), so
    // that every control starts from a closed table; controls left open by a failed init too.
    CloseDatabase();
    WaitForRecords();
    VAVISITS.CloseTable();
    VAVIS.CloseTable();
    VAREF.CloseTable();
    VAEXP.CloseTable();
    VAPG.CloseTable();
    VADL.CloseTable();
    VADAY.CloseTable();
    IPCC.CloseTable();
    VAOLD.CloseTable();
    countryTable_ = false;
    oldVisitorTable_ = false;
    replaced_ = false;
    failure_.clear();
    writeFailed_.store(false, std::memory_order_release);
    {
      const std::lock_guard<std::mutex> lock(fullTablesMutex_);
      fullTableControls_.clear();
      fullTables_.clear();
    }

    const std::string data = platform::WithTrailingSlash(inputs_.dataFolder);
    // The new tables are built in a staging folder beside the live ones, which stay untouched
    // until the run completes (Replacement.h). What an earlier run left there is finished or
    // thrown away first.
    replacement_ = std::make_unique<Replacement>(data);
    if (!replacement_->Begin(failure_)) {
      inputs_.errors.LogError("CreateDatabase", failure_);
      return false;
    }
    const std::string& staging = replacement_->Staging();

    // The files' header dates are the run's date, from the run's clock: a run with a fixed
    // clock gives the same files, byte for byte, as another over the same logs.
    const vb::DateParts today = vb::Split(inputs_.clock.Now());
    for (dbase::Table* t : {&VAVIS, &VAREF, &VAVISITS, &VAEXP, &VAPG, &VADL, &VADAY, &IPCC, &VAOLD})
      t->SetHeaderDate(dbase::HeaderDate{today.year, today.month, today.day});
    // The new tables share one budget for the keys they gather; full runs beyond it go to
    // temporary files beside them in the staging folder, which goes whole whatever happens.
    keyMemory_ = std::make_shared<dbase::KeyMemory>(
        static_cast<size_t>(std::min<uint64_t>(inputs_.keyMemoryBytes, SIZE_MAX)));
    for (dbase::Table* t : {&VAVIS, &VAREF, &VAVISITS, &VAEXP, &VAPG, &VADL, &VADAY})
      t->SetKeyMemory(keyMemory_);

    // 1. Start the engine on "Visitor" and keep the handle.
    engineHandle_ = kEngineStarted;

    // 2. and 3. "VISOLD", the DNS and friendly-name cache, is the previous database's "Visitor",
    //    read where it lies: it is replaced only when the new database is complete. Without a
    //    "VISITOR.DBF" a "VISOLD" left by an interrupted run is used. A missing index file does
    //    not stop the rebuild: the table is opened read-only and its index rebuilt in memory
    //    from the records (with a line in errors.log).
    VAOLD.SetLocation(data);
    VAOLD.SetTableName(std::string(platform::FileExistsCI(data, schema::kVisitorDbf)
                                       ? schema::kVisitor
                                       : schema::kVisOld));

    // 4. "Visitor" owns the engine and gets no handle.
    VAVIS.SetLocation(staging);
    VAVIS.SetTableName(std::string(schema::kVisitor));
    VAVIS.DropTable(schema::kVisitor);
    VAVIS.SetShareMode(2);
    VAVIS.SetRebuild(true);

    // 5. Every table this utility writes is created anew: the existing database is always
    //    replaced whole.
    struct Control {
      dbase::Table& table;
      std::string_view name;
    };
    const Control written[] = {{VAREF, schema::kReferrers},  {VAVISITS, schema::kVisits},
                               {VAEXP, schema::kExceptions}, {VAPG, schema::kPages},
                               {VADL, schema::kDownloads},   {VADAY, schema::kDaySum}};
    for (const Control& c : written) {
      c.table.SetLocation(staging);
      c.table.SetTableName(std::string(c.name));
      c.table.DropTable(c.name);
      c.table.SetShareMode(2);
      c.table.SetRebuild(true);
    }
    // Every table written takes records up to the size limit of its files: the largest file a
    // dBASE reader opens, unless the run set a lower one.
    VAVIS.SetSizeLimit(inputs_.TableSizeLimit(schema::kVisitor));
    for (const Control& c : written) c.table.SetSizeLimit(inputs_.TableSizeLimit(c.name));

    // 6. "IPCC" comes with the product: neither dropped nor rebuilt.
    IPCC.SetLocation(data);
    IPCC.SetTableName(std::string(schema::kIpcc));
    IPCC.SetShareMode(2);

    // 7. Nothing of a database that could not be created is left.
    const bool created = CreateDatabase();
    if (!created) DiscardNewTables();
    return created;
  } catch (const std::exception& e) {
    // The scan driver tells the user that the database could not be created, and why.
    if (failure_.empty()) failure_ = e.what();
    DiscardNewTables();
    return false;
  }
}

void Database::DiscardNewTables() {
  for (dbase::Table* t : {&VAVISITS, &VAVIS, &VAREF, &VAEXP, &VAPG, &VADL, &VADAY, &IPCC, &VAOLD})
    t->CloseTable();
  if (replacement_) replacement_->Discard();
}

bool Database::CreateDatabase() {
  bool result = false;
  try {
    // 1. Create the seven tables in this order; the first failure ends creation.
    struct Creation {
      dbase::Table& table;
      std::string_view name;
      const std::vector<std::string>& fields;
      const std::vector<std::string>& tags;
    };
    const Creation creations[] = {
        {VAVISITS, schema::kVisits, schema::kVisitsFields, schema::kVisitsTags},
        {VAVIS, schema::kVisitor, schema::kVisitorFields, schema::kVisitorTags},
        {VAREF, schema::kReferrers, schema::kReferrersFields, schema::kReferrersTags},
        {VAEXP, schema::kExceptions, schema::kExceptionsFields, schema::kExceptionsTags},
        {VAPG, schema::kPages, schema::kPagesFields, schema::kPagesTags},
        {VADL, schema::kDownloads, schema::kDownloadsFields, schema::kDownloadsTags},
        {VADAY, schema::kDaySum, schema::kDaySumFields, schema::kDaySumTags}};
    for (const Creation& c : creations) {
      lastStatus_ = c.table.CreateTable(c.fields, c.tags);
      if (lastStatus_ != dbase::kOk) {
        failure_ = "Table " + std::string(c.name) + " could not be created (" +
                   dbase::StatusText(lastStatus_) + ") in " + c.table.Location();
        inputs_.errors.LogError("CreateDatabase", failure_);
        open_ = false;
        return false;
      }
    }

    // 2. Open the tables; the first that fails skips the rest of this step and step 3, without
    //    a report (the scan driver reports the failed creation).
    dbase::Table* const opening[] = {&VAVIS, &VAREF, &VAVISITS, &VAEXP, &VAPG, &VADL};
    bool allOpen = true;
    for (dbase::Table* t : opening) {
      lastStatus_ = t->OpenTable();
      if (lastStatus_ != dbase::kOk) {
        failure_ = "Table " + t->TableName() + " could not be opened (" +
                   dbase::StatusText(lastStatus_) + ") in " + t->Location();
        allOpen = false;
        break;
      }
    }

    // 3. Downloads are found by IP, site and visit number.
    if (allOpen) {
      VADL.SelectTag("key1");
      lastStatus_ = VADAY.OpenTable();
      if (lastStatus_ == dbase::kOk) {
        VAVIS.ResetTable();
        ResolveFields();
        result = true;
        open_ = true;
      }
    }

    // 4. The country table, when the product supplied one.
    if (IPCC.OpenTableReadOnly() == dbase::kOk) {
      fields_->ipccCountry = IPCC.FieldIndex(schema::kIpccCountryField);
      countryTable_ = true;
    }

    // 5. The previous visitor table, when there is one.
    if (platform::FileExistsCI(VAOLD.Location(), VAOLD.TableName() + ".DBF")) {
      lastStatus_ = VAOLD.OpenTableReadOnly();
      if (lastStatus_ == dbase::kOk) {
        fields_->visOld.ip = VAOLD.FieldIndex("IP");
        fields_->visOld.dns = VAOLD.FieldIndex("DNS");
        fields_->visOld.name = VAOLD.FieldIndex("Name");
        oldVisitorTable_ = true;
      }
    }
    return result;
  } catch (const std::exception& e) {
    LogFailure("CreateDatabase", e);
    failure_ = e.what();
    open_ = false;
    return false;
  }
}

void Database::ResolveFields() {
  TableFields& f = *fields_;
  const auto at = [](const dbase::Table& t, const char* name) { return t.FieldIndex(name); };
  f.visits = {at(VAVISITS, "IP"),        at(VAVISITS, "Site"),      at(VAVISITS, "Active"),
              at(VAVISITS, "Alert"),     at(VAVISITS, "AlertNo"),   at(VAVISITS, "VisitNo"),
              at(VAVISITS, "VisitDate"), at(VAVISITS, "VisitTime"), at(VAVISITS, "FirstPage"),
              at(VAVISITS, "LastPage"),  at(VAVISITS, "PagesSeen"), at(VAVISITS, "MinsOn"),
              at(VAVISITS, "Browser"),   at(VAVISITS, "Spider"),    at(VAVISITS, "SpiderT"),
              at(VAVISITS, "Referrer"),  at(VAVISITS, "HackRaised"), at(VAVISITS, "Flags")};
  f.visitor = {at(VAVIS, "IP"),         at(VAVIS, "Site"),       at(VAVIS, "DNS"),
               at(VAVIS, "Name"),       at(VAVIS, "Visits"),     at(VAVIS, "Country"),
               at(VAVIS, "FirstVDate"), at(VAVIS, "FirstVTime"), at(VAVIS, "LastVDate"),
               at(VAVIS, "LastVTime"),  at(VAVIS, "Browser"),    at(VAVIS, "Spider"),
               at(VAVIS, "SpiderT"),    at(VAVIS, "HackCount")};
  f.referrers = {at(VAREF, "Name"),      at(VAREF, "Site"),      at(VAREF, "FirstVDate"),
                 at(VAREF, "FirstVTime"), at(VAREF, "LastVDate"), at(VAREF, "LastVTime"),
                 at(VAREF, "Visits")};
  f.exceptions = {at(VAEXP, "Site"),  at(VAEXP, "ExDate"), at(VAEXP, "ExTime"), at(VAEXP, "Number"),
                  at(VAEXP, "Value"), at(VAEXP, "IP"),     at(VAEXP, "VisitNo")};
  f.pages = {at(VAPG, "IP"),       at(VAPG, "Site"),     at(VAPG, "VisitNo"), at(VAPG, "Page"),
             at(VAPG, "PageDate"), at(VAPG, "PageTime"), at(VAPG, "PageNo"),  at(VAPG, "Status")};
  f.downloads = {at(VADL, "IP"),        at(VADL, "Site"),     at(VADL, "VisitNo"),
                 at(VADL, "VisitDate"), at(VADL, "VisitTime"), at(VADL, "Download"),
                 at(VADL, "Status")};
}

bool Database::DatabaseReady() {
  if (open_) return true;
  return InitDatabase();
}

void Database::FlushDatabase() {
  if (!open_) return;
  WaitForRecords();
  VAREF.FlushTable();
  VAVIS.FlushTable();
  VAVISITS.FlushTable();
  VAEXP.FlushTable();
  VAPG.FlushTable();
}

// Sorts the keys of an open, writable table gathered since each tag was last used, so that
// closing it afterwards only merges sorted runs (some of them from temporary files) into its
// index files and writes.
void Database::SortPendingKeys(dbase::Table& t) {
  if (!t.IsOpen() || t.IsReadOnly()) return;
  t.SortKeys();
}

void Database::CloseDatabase(const CloseProgress& progress) {
  if (!open_) return;
  // 1. and 2. The page views and exceptions still waiting in their caches.
  WritePageCache();
  WriteEXCCache();
  WaitForRecords();
  // 3. Closing a table that was never opened is harmless. Closing sorts the keys still to add
  //    and writes each table's files. The sorting is work for the processor and runs on two
  //    threads, each taking the next table in turn, largest first, so that neither waits while
  //    the other still has tables to sort. The writing is work for the file system, where two
  //    writers at once slow each other down by more than they gain, so the tables write one at a
  //    time. Each table writes the same bytes whichever thread closes it, and every file is
  //    complete before this returns. The caller's thread meanwhile only tells `progress`.
  dbase::Table* const tables[] = {&VAPG,  &VAVISITS, &VAVIS, &VAEXP, &VAREF,
                                  &VADL,  &VADAY,    &IPCC,  &VAOLD};
  constexpr size_t kTables = std::size(tables);
  // The work of the close, known before it starts: each tag of a table written sorts in one key
  // and writes one entry per record (a unique tag keeps fewer entries: what its table's count
  // lacks is added when the table is closed, so the count ends at the total).
  std::array<uint64_t, kTables> share{};
  std::array<bool, kTables> staged{};  // a new table, to be synced when it is to replace
  uint64_t total = 0;
  for (size_t i = 0; i < kTables; ++i) {
    const dbase::Table& t = *tables[i];
    staged[i] = replaceOnClose_ && t.IsOpen() && !t.IsReadOnly();
    if (t.IsOpen() && !t.IsReadOnly())
      share[i] = 2 * uint64_t(t.TagCount()) * uint64_t(std::max(t.RecordCount(), 0L));
    total += share[i];
  }
  std::atomic<uint64_t> done{0};
  std::atomic<size_t> next{0};
  std::mutex writing;
  const auto closeInTurn = [&] {
    for (size_t i; (i = next.fetch_add(1)) < kTables;) {
      dbase::Table& t = *tables[i];
      // Sorting brings each tag of the table up to date at once.
      SortPendingKeys(t);
      uint64_t counted = share[i] / 2;
      done.fetch_add(counted, std::memory_order_relaxed);
      {
        const std::lock_guard<std::mutex> one(writing);
        t.SetIndexProgress([&](uint64_t entries) {
          counted += entries;
          done.fetch_add(entries, std::memory_order_relaxed);
        });
        struct Unhook {
          dbase::Table& t;
          ~Unhook() { t.SetIndexProgress(nullptr); }
        } unhook{t};
        t.CloseTable();
        if (staged[i]) SyncTableFiles(t);
      }
      if (counted < share[i]) done.fetch_add(share[i] - counted, std::memory_order_relaxed);
    }
  };
  // Two threads close the tables; the caller's thread waits for both, telling `progress` how
  // far they have come. Without a thread to start, the caller closes the tables itself.
  std::mutex watch;
  std::condition_variable finished;
  int running = 0;
  std::exception_ptr failure;
  const auto closeAndSay = [&] {
    std::exception_ptr thrown;
    try {
      closeInTurn();
    } catch (...) {
      thrown = std::current_exception();
    }
    const std::lock_guard<std::mutex> lock(watch);
    if (thrown && !failure) failure = thrown;
    --running;
    finished.notify_all();
  };
  std::thread closers[2];
  for (std::thread& c : closers) {
    {
      const std::lock_guard<std::mutex> lock(watch);
      ++running;
    }
    try {
      c = std::thread(closeAndSay);
    } catch (const std::system_error&) {
      const std::lock_guard<std::mutex> lock(watch);
      --running;
    }
  }
  const auto joinClosers = [&closers] {
    for (std::thread& c : closers)
      if (c.joinable()) c.join();
  };
  bool withdrawn = false;
  try {
    if (!closers[0].joinable() && !closers[1].joinable()) {
      ++running;
      closeAndSay();
    }
    std::unique_lock<std::mutex> lock(watch);
    while (!finished.wait_for(lock, kCloseProgressEvery, [&] { return running == 0; })) {
      if (!progress) continue;
      lock.unlock();
      if (!progress(done.load(std::memory_order_relaxed), total)) withdrawn = true;
      lock.lock();
    }
  } catch (...) {
    joinClosers();
    throw;
  }
  joinClosers();
  if (failure) std::rethrow_exception(failure);
  if (progress && !progress(done.load(std::memory_order_relaxed), total)) withdrawn = true;
  // 4. The new tables replace the live ones, whole, and the previous visitor table goes (it
  //    lives only for the length of one rebuild); or, for a run that did not complete, the new
  //    tables go and the live ones stay.
  FinishReplacement(withdrawn);
  // 5. The tables are closed, and with them the country and old-visitor lookups.
  open_ = false;
  countryTable_ = false;
  oldVisitorTable_ = false;
  // 6. End the engine.
  engineHandle_ = 0;
}

void Database::FinishReplacement(bool withdrawn) {
  if (!replacement_ || !replacement_->Begun()) return;
  dbase::Table* const written[] = {&VAVISITS, &VAVIS, &VAREF, &VAEXP, &VAPG, &VADL, &VADAY};
  if (!replaceOnClose_ || withdrawn) {
    replacement_->Discard();
    return;
  }
  if (WriteFailed()) {
    failure_ = WriteFailure();
    replacement_->Discard();
    return;
  }
  for (const dbase::Table* t : written) {
    if (t->WriteFailed()) {
      failure_ = t->TableName() + " could not be written whole";
      replacement_->Discard();
      return;
    }
  }
  std::vector<std::string> names;
  for (const dbase::Table* t : written) {
    for (const char* ext : {".DBF", ".MDX"}) {
      if (const auto f = platform::FindFileCI(replacement_->Staging(), t->TableName() + ext))
        names.push_back(f->filename().string());
    }
  }
  std::string why;
  replaced_ = replacement_->Commit(
      names, {std::string(schema::kVisOldDbf), std::string(schema::kVisOldMdx)}, why);
  if (!replaced_) {
    failure_ = why;
  } else if (!why.empty()) {
    inputs_.errors.LogError("CloseDatabase", why);
  }
}

}  // namespace database
