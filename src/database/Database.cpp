// The visitor database: construction, the shared state, and looking at a table from outside.
#include "database/Database.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <string>

#include "database/RecordText.h"
#include "database/Schema.h"
#include "dbase/Status.h"

namespace database {

Database::Database(const DatabaseInputs& inputs)
    : inputs_(inputs),
      fields_(new TableFields),
      writer_({VAVISITS, VAREF, VAEXP, VAPG, VADL}, *fields_, inputs_.errors, totals_) {
  // Every notice of the engine (an index rebuilt in memory, for instance) goes to errors.log
  // under the name of the control that raised it.
  // A write that failed is also noted for the run, which cannot complete after it; a table that
  // became full is noted too, and its line says what to do.
  const auto sink = [this](const char* control, const dbase::Table& t) {
    return [this, control, &t](const std::string& message) {
      NoteWriteFailure(t, message);
      inputs_.errors.LogError(control, NoteTableFull(t, message));
    };
  };
  // The tables of the record writer may raise theirs on the writer's thread.
  const auto writerSink = [this](const char* control, const dbase::Table& t) {
    return [this, control, &t](const std::string& message) {
      NoteWriteFailure(t, message);
      writer_.Notice(control, NoteTableFull(t, message));
    };
  };
  VAVISITS.SetNoticeSink(writerSink("F.VAVISITS", VAVISITS));
  VAVIS.SetNoticeSink(sink("F.VAVIS", VAVIS));
  VAREF.SetNoticeSink(writerSink("F.VAREF", VAREF));
  VAEXP.SetNoticeSink(writerSink("F.VAEXP", VAEXP));
  VAPG.SetNoticeSink(writerSink("F.VAPG", VAPG));
  VADL.SetNoticeSink(writerSink("F.VADL", VADL));
  VADAY.SetNoticeSink(sink("F.VADAY", VADAY));
  IPCC.SetNoticeSink(sink("F.IPCC", IPCC));
  VAOLD.SetNoticeSink(sink("F.VAOLD", VAOLD));
  // "VISOLD" is our own previous "Visitor": when its index file is missing or unreadable the
  // engine rebuilds the index from the records with the "Visitor" tag.
  VAOLD.SetIndexSpecs(schema::kVisitorTags);
  SetCurrentSite({});
}

Database::~Database() {
  try {
    CloseDatabase();
    WriteInBackground(false);
  } catch (...) {
    // Destroying the database ignores whatever closing it raises.
  }
}

void Database::SetHooks(RecordHooks& hooks) { hooks_ = &hooks; }

void Database::SetCurrentSite(std::string_view name) {
  currentSite_.assign(name);
  PadInto(siteKey_.data(), schema::kSiteWidth, name);
}

void Database::LogFailure(const char* location, const std::exception& e) {
  inputs_.errors.LogError(location, e);
}

void Database::NoteWriteFailure(const dbase::Table& table, const std::string& message) {
  if (!table.WriteFailed() || writeFailed_.load(std::memory_order_acquire)) return;
  {
    const std::lock_guard<std::mutex> lock(writeFailureMutex_);
    // The engine's notice goes on to say what it means for a live table; the user is told what
    // it means for the run instead.
    writeFailure_ = message.substr(0, message.find(": the table on disk"));
  }
  writeFailed_.store(true, std::memory_order_release);
}

std::string Database::NoteTableFull(const dbase::Table& table, const std::string& message) {
  if (!table.Full()) return message;
  const std::lock_guard<std::mutex> lock(fullTablesMutex_);
  // The engine tells once per open, and its first notice after the table became full is that
  // one; a later notice of the same table is passed on as it is.
  if (std::find(fullTableControls_.begin(), fullTableControls_.end(), &table) !=
      fullTableControls_.end())
    return message;
  fullTableControls_.push_back(&table);
  // A full table is not a failed write: the run goes on and completes, and its tables replace
  // the database, each whole with the records it took.
  fullTables_.push_back(message +
                        " The records after those are left out of this run; the other tables go "
                        "on. Scan fewer logs at once (fewer log files or sites a run) to keep "
                        "every record.");
  return fullTables_.back();
}

std::vector<std::string> Database::FullTables() const {
  const std::lock_guard<std::mutex> lock(fullTablesMutex_);
  return fullTables_;
}

std::string Database::WriteFailure() const {
  const std::lock_guard<std::mutex> lock(writeFailureMutex_);
  return writeFailure_;
}

const dbase::Table& Database::Inspect(TableId table) const {
  switch (table) {
    case TableId::kVisits:
      return VAVISITS;
    case TableId::kVisitor:
      return VAVIS;
    case TableId::kReferrers:
      return VAREF;
    case TableId::kExceptions:
      return VAEXP;
    case TableId::kPages:
      return VAPG;
    case TableId::kDownloads:
      return VADL;
    case TableId::kDaySum:
      return VADAY;
    case TableId::kIpcc:
      return IPCC;
    case TableId::kVisOld:
      break;
  }
  return VAOLD;
}

}  // namespace database
