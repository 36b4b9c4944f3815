// The scan driver: ScanAllSites, the progress bar's scale, the DNS wait and the summary.
#include "wizard/ScanDriver.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <filesystem>
#include <system_error>

#include "loginput/Archive.h"
#include "loginput/LogFiles.h"
#include "loginput/ScanLogFile.h"
#include "platform/Files.h"
#include "startup/ExceptionCatalogue.h"
#include "vb/Convert.h"
#include "wizard/ScanSummary.h"
#include "wizard/SiteAlerts.h"

namespace wizard {
namespace {

using platform::Label;

constexpr std::string_view kDatabaseFailed =
    "Failed to create database. [APPTITLE] may still be running. Please close [APPTITLE] or stop "
    "the [APPTITLE] Service and try again.";
constexpr std::string_view kScanSiteWhere = "frmLog.ScanAllSites";
constexpr std::string_view kPausedForDns = "Paused While Resolving DNS";
// While the scan waits for the resolver, the window gets control at least this often (ms).
constexpr int kDnsPauseSlice = 50;

// Files above this many bytes are shown on the progress bar in units of this many bytes.
constexpr int32_t kProgressUnit = 10000;

}  // namespace

ScanDriver::ScanDriver(startup::World& world, platform::Frontend& ui, const RunTimer& timer,
                       analysis::HitServices* services)
    : world_(world),
      ui_(*this, ui),
      timer_(timer),
      f_(database::InputsOf(world)),
      hits_(world, f_, services),
      siteTimes_(static_cast<size_t>(world.siteCount) + 1) {}

bool ScanDriver::Yield() {
  if (input_.cancelled) return false;
  // A write to the new tables that failed ends the scan as a cancel does: the new database can
  // no longer be complete, and every further line would be read for nothing.
  if (f_.WriteFailed()) {
    writeFailed_ = true;
    input_.cancelled = true;
    return false;
  }
  if (!ui_.Yield()) input_.cancelled = true;
  return !input_.cancelled;
}

namespace {

// The database failure with its cause: the data folder's own state first (missing, not a folder,
// read-only), then what the database layer met. The product's text (which blames a running copy
// of the monitoring product, the one cause on the system it was written for) only when nothing
// better is known.
std::string DatabaseFailedText(const startup::AppState& app, const std::string& cause) {
  const std::string& data = app.dataFolder;
  std::string why;
  std::error_code ec;
  std::string bare = data;
  while (bare.size() > 1 && bare.back() == '/') bare.pop_back();
  const auto status = std::filesystem::status(bare, ec);
  if (!std::filesystem::exists(status)) {
    why = "the data folder " + data + " does not exist";
  } else if (!std::filesystem::is_directory(status)) {
    why = data + " is not a folder";
  } else if (::access(data.c_str(), W_OK | X_OK) != 0) {
    why = "the data folder " + data + " is read-only for this user (" + std::strerror(errno) + ")";
  } else if (!cause.empty()) {
    why = cause;
  } else {
    return startup::ReplaceAppNames(app, kDatabaseFailed);
  }
  return "Failed to create database: " + why + ". The database in " + data +
         " is kept as it was. Set the data folder (DDFPath) to a folder this user can write, and "
         "try again.";
}

}  // namespace

void ScanDriver::ShowNotReplaced(const std::string& why) {
  const database::Replacement& staging = f_.Staging();
  std::string text = "The scan could not be completed: " + why + ". The database in " +
                     world_.app.dataFolder + " was not replaced: the previous one is kept as it was.";
  if (writeFailed_ || staging.BytesFree() < staging.BytesNeeded() + (uint64_t(1) << 20)) {
    text += " The new tables are built beside the current ones and need about " +
            database::Megabytes(staging.BytesNeeded()) + " or more; " +
            database::Megabytes(staging.BytesFree()) +
            " were free when the scan started. Make room on the disk and run the scan again.";
  }
  ui_.MessageBox(text, platform::MsgIcon::Critical, platform::MsgButtons::Ok, world_.app.appTitle);
}

ScanOutcome ScanDriver::ScanAllSites() {
  // 1. The start button is off for good: the window leaves the ready state.
  state_ = ScanState::Scanning;
  ui_.SetStartEnabled(false);
  // 2. The run counters of the hit analysis.
  analysis::AnalysisCounters& run = hits_.Counters();
  run.totals = analysis::AnalysisTotals{};
  // 3. Every site, also the ones skipped below: six day counters to zero, the run-time flag on,
  //    and a last sweep long ago, so that the first hit of the run starts a sweep.
  for (int i = 1; i <= world_.siteCount; ++i) {
    analysis::SiteRunState& s = run.Site(i);
    s.today = database::DayCounts{};
    s.exceptionsTodayUnwritten = 0;
    s.lastSweepTime = analysis::kFirstSweep;
    if (static_cast<size_t>(i) < siteTimes_.size())
      siteTimes_[static_cast<size_t>(i)].runFlag = true;
  }
  // 4. The DNS flag as the box stands now; the current log date starts at the present time.
  dnsFlag_ = dnsChecked_;
  run.currentLogDate = world_.clock.Now();
  // 5.
  ui_.SetCaption(Label::Note, "Initializing....");
  ui_.ShowLabel(Label::PDNS, dnsFlag_);
  ui_.ShowLabel(Label::DNS, dnsFlag_);
  hits_.Dns().Attach(dnsFlag_, resolver_, [this](int pending) {
    ui_.SetCaption(Label::DNS, std::to_string(pending));
  });
  // 6. The run is timed from here, database creation included.
  startTime_ = timer_.Seconds();
  if (!Yield()) {
    state_ = ScanState::Done;
    return ScanOutcome::Cancelled;
  }
  // Files that a run killed while it unpacked an archive left in a log folder go first: they
  // would otherwise be listed and scanned as the site's own logs.
  loginput::RemoveLeftoverUnpackedFiles(world_);
  // 7. A database that cannot be created ends the run; the window stays as it is.
  if (!f_.InitDatabase()) {
    ui_.MessageBox(DatabaseFailedText(world_.app, f_.DatabaseFailure()),
                   platform::MsgIcon::Critical, platform::MsgButtons::Ok, world_.app.appTitle);
    state_ = ScanState::Done;
    return ScanOutcome::DatabaseFailed;
  }
  // The new tables replace the live ones only when the run completes (step 10).
  f_.ReplaceOnClose(false);
  writeFailed_ = false;
  if (const database::Replacement& staging = f_.Staging();
      staging.BytesFree() < staging.BytesNeeded()) {
    ui_.MessageBox("The disk of " + world_.app.dataFolder + " has " +
                       database::Megabytes(staging.BytesFree()) +
                       " free. The new tables are built beside the current ones, which take " +
                       database::Megabytes(staging.BytesNeeded()) +
                       "; if the disk fills up, the scan stops and the current database is kept.",
                   platform::MsgIcon::Exclamation, platform::MsgButtons::Ok, world_.app.appTitle);
  }
  // The visit, page and exception records are written on a thread of their own while the hits
  // are analysed; closing the database waits for them.
  f_.WriteInBackground(true);
  // 8. Every site in list order.
  for (int i = 1; i <= world_.siteCount; ++i) {
    bool goOn = true;
    try {
      // 8.1. Records are written under the name of the site being read.
      const startup::Site& site = world_.site(i);
      f_.SetCurrentSite(site.name);
      // 8.2. Logs that come by FTP are not on this machine.
      if (!site.ftp) goOn = ScanSite(i);
    } catch (const std::exception&) {
      // A failure with one site's record or the grid is survived: the next site follows.
    }
    if (!goOn) return EndCancelled(i);
  }
  // 9. Answers still outstanding are waited for before the tables close.
  if (DnsPending() >= 1) {
    WaitForDNS();
    if (input_.cancelled) return EndCancelled(0);
  }
  // 10. The new tables replace the live ones. A table that could not be written whole leaves the
  //     previous database as it was, and the run is not completed: its figures would count
  //     records that are not on disk.
  f_.ReplaceOnClose(true);
  CloseTables();
  // A Cancel confirmed while the tables closed ends the run as a cancel anywhere else does.
  if (input_.cancelled) return EndCancelled(0);
  if (!f_.DatabaseReplaced()) {
    writeFailed_ = true;
    ShowNotReplaced(f_.DatabaseFailure().empty() ? "the new tables could not be written"
                                                 : f_.DatabaseFailure());
    elapsed_ = timer_.Seconds() - startTime_;
    state_ = ScanState::Done;
    return ScanOutcome::WriteFailed;
  }
  // A table that became full took no more records from then on, and the run went on with the
  // others: its line went to errors.log when it filled, and is shown once the run is done (a
  // message while the scan runs would hold it up until answered).
  for (const std::string& line : f_.FullTables())
    ui_.MessageBox(line, platform::MsgIcon::Exclamation, platform::MsgButtons::Ok,
                   world_.app.appTitle);
  // 11.
  ui_.FileGrid().SetVisible(false);
  ui_.GridChanged();
  ui_.SetCaption(Label::Note, "Scan Completed.");
  ui_.Progress().SetVisible(false);
  ui_.ProgressChanged();
  ui_.ShowLabel(Label::Prog, false);
  ui_.ShowLabel(Label::Prog2, false);
  // 12. Passing midnight gives a negative time, shown as it is.
  ShowScanSummary(timer_.Seconds() - startTime_);
  state_ = ScanState::Done;
  return ScanOutcome::Completed;
}

bool ScanDriver::ScanSite(int siteIndex) {
  startup::Site& site = world_.site(siteIndex);
  // 8.3.
  ui_.SetCaption(Label::Site, "Scanning Site: " + site.name);
  ui_.FileGrid().SetRowCount(1);
  ui_.GridChanged();
  if (!Yield()) return false;
  // A log folder on a drive that the registry's drive map does not give: one report, in
  // errors.log and on screen, and the next site follows.
  if (!site.folderProblem.empty()) {
    world_.errors.LogError(kScanSiteWhere, site.folderProblem);
    ui_.MessageBox(site.folderProblem, platform::MsgIcon::Exclamation, platform::MsgButtons::Ok,
                   world_.app.appTitle);
    return true;
  }
  // 8.4. An archive in the log folder is unpacked into it first.
  archiveFound_ = platform::FileExistsCI(site.folder, loginput::kArchiveName);
  input_.extractedCount = 0;
  input_.extracted.assign(1, std::string());
  if (archiveFound_) {
    loginput::UnZipArchive(world_, ui_, input_, siteIndex);
    if (input_.cancelled) return false;
  }
  // 8.5.
  if (loginput::ListLogFiles(world_, ui_, input_, siteIndex) < 1) {
    ui_.MessageBox("No log files were found for site: " + site.name + " in " + site.folder,
                   platform::MsgIcon::Exclamation, platform::MsgButtons::Ok, world_.app.appTitle);
  } else {
    // 8.6. Grid rows in order; the grid is the listing's order.
    const int n = ui_.FileGrid().RowCount() - 1;
    for (int r = 1; r <= n; ++r) {
      bool goOn = true;
      try {
        goOn = ScanFile(siteIndex, r);
      } catch (const std::exception&) {
        // A grid or file-list failure skips to the next row.
      }
      if (!goOn) return false;
    }
  }
  // 8.7. The unpacked copies go again; the archive itself stays.
  if (archiveFound_ && input_.extractedCount >= 1) {
    loginput::DeleteArchive(world_, ui_, input_, siteIndex);
    input_.extractedCount = 0;
  }
  archiveFound_ = false;
  return true;
}

bool ScanDriver::ScanFile(int siteIndex, int row) {
  startup::Site& site = world_.site(siteIndex);
  platform::Grid& grid = ui_.FileGrid();
  // 8.6.1. The file's entry, a fresh reading state, from byte 0.
  const long index = grid.Row(row).rowData;
  const loginput::LogFileEntry& entry = input_.logFiles.at(static_cast<size_t>(index));
  site.lastLogFile = platform::JoinPath(site.folder, entry.name);
  input_.Site(siteIndex).currentFileDate = entry.modified;
  site.lastReadPos = 0;
  site.lastReadPosDay = 0;
  site.lastFields.clear();
  // 8.6.2.
  ui_.SetCaption(Label::Prog, site.lastLogFile);
  // 8.6.3. Each setting the bar refuses is skipped. A zero-byte file leaves Max as the previous
  //        file set it.
  platform::ProgressBar& bar = ui_.Progress();
  bar.SetVisible(true);
  bar.SetValue(1);
  bar.SetMin(1);
  if (entry.size > kProgressUnit) {
    bar.SetMax(static_cast<float>(entry.size) / static_cast<float>(kProgressUnit));
  } else if (entry.size >= 1) {
    bar.SetMax(entry.size);
  } else if (entry.size < 0) {
    bar.SetMax(entry.size);  // an unknown size: refused by the bar, as before
  }
  ui_.ProgressChanged();
  // 8.6.4.
  grid.Select(row);
  ui_.GridChanged();
  if (!Yield()) return false;
  // 8.6.5. No hit of this file has set the log date yet.
  hits_.StartFile();
  // 8.6.6.
  loginput::ScanLogFile(world_, ui_, input_, *this, siteIndex);
  if (input_.cancelled) return false;
  CheckSiteAlerts(world_, f_, hits_.Counters().Site(siteIndex), static_cast<int16_t>(siteIndex));
  return true;
}

ScanOutcome ScanDriver::EndCancelled(int siteIndex) {
  // Cancelled runs leave no unpacked copies behind: the archive stays and is unpacked again by the
  // next run, whose unpacking would otherwise skip (and never remove) the copies found in place.
  try {
    if (archiveFound_ && input_.extractedCount >= 1 && siteIndex >= 1)
      loginput::DeleteArchive(world_, ui_, input_, siteIndex);
  } catch (const std::exception&) {
  }
  archiveFound_ = false;
  // The new tables go; the live database stays as it was.
  f_.ReplaceOnClose(false);
  CloseTables();
  elapsed_ = timer_.Seconds() - startTime_;
  state_ = ScanState::Done;
  if (writeFailed_) {
    ShowNotReplaced(f_.WriteFailure());
    return ScanOutcome::WriteFailed;
  }
  return ScanOutcome::Cancelled;
}

void ScanDriver::CloseTables() {
  if (!f_.DatabaseOpen()) return;
  // The file caption names the phase, and the bar shows the share of its work done, in percent.
  ui_.SetCaption(Label::Prog, kWritingIndexes);
  platform::ProgressBar& bar = ui_.Progress();
  bar.SetVisible(true);
  bar.SetMin(0);
  bar.SetMax(100);
  bar.SetValue(0);
  ui_.ProgressChanged();
  // The window keeps being painted and answered while the tables close: a run that is already
  // cancelled yields too (its yields return false at once, as they do in the window).
  closing_ = true;
  struct EndOfClose {
    bool& closing;
    ~EndOfClose() { closing = false; }
  } endOfClose{closing_};
  f_.CloseDatabase([this, &bar](uint64_t done, uint64_t total) {
    const double percent =
        total == 0 ? 100.0 : std::floor(100.0 * double(std::min(done, total)) / double(total));
    if (percent > bar.Value() && bar.SetValue(percent)) ui_.ProgressChanged();
    if (!ui_.Yield()) input_.cancelled = true;
    return !input_.cancelled;
  });
}

void ScanDriver::UpdateFileProgress(int32_t position) {
  // Every 500 lines: a write to the new tables that failed ends the file here, and the run.
  if (f_.WriteFailed()) {
    writeFailed_ = true;
    input_.cancelled = true;
  }
  // 1.
  platform::ProgressBar& bar = ui_.Progress();
  const double max = bar.Max();
  // 2. The scale follows the bar's Max, not the file's size: a small file (Max below 10,000) is
  //    shown in units of 10,000 bytes and barely moves, and a file of 100,000,000 bytes or more is
  //    shown in bytes and runs past Max. The bar refuses those values; kept as the product shows
  //    it.
  const double value = max < kProgressUnit ? vb::RoundHalfEven(position / double(kProgressUnit))
                                           : static_cast<double>(position);
  // 3.
  if (bar.SetValue(value)) ui_.ProgressChanged();
}

void ScanDriver::WaitForDNS() {
  // 1.
  ui_.SetCaption(Label::Prog2, kPausedForDns);
  // 2. The answers come in while the resolver is waited on and during the yields.
  while (DnsPending() >= 1) {
    DeliverDnsAnswers(kDnsPauseSlice);
    if (!Yield()) break;
  }
  // 3.
  ui_.SetCaption(Label::Prog2, "");
}

database::RunTotals ScanDriver::SummaryTotals() {
  // The visit and page figures are the hit processing's run totals: the visits it opened and
  // the page hits it counted. They are not the appends the tables took, which also count the
  // blank record that ends every full page batch and the first pages written again at the head
  // of the next batch.
  database::RunTotals totals = f_.Totals();
  totals.visitRecordsAdded = hits_.Counters().totals.visitsOpened;
  totals.pageRecordsAdded = hits_.Counters().totals.pageHits;
  return totals;
}

void ScanDriver::DeliverDnsAnswers(int waitMs) {
  // While the tables close on threads of their own, answers wait: they would be dropped anyway.
  if (closing_ || resolver_ == nullptr || resolver_->Outstanding() == 0) return;
  try {
    resolver_->Deliver(waitMs, [this](const platform::DnsAnswer& answer) {
      if (f_.DatabaseOpen()) hits_.RequestComplete(answer);
    });
  } catch (const std::exception&) {
    // An answer that cannot be stored is lost; the scan goes on.
  }
}

void ScanDriver::ShowScanSummary(float elapsed) {
  try {
    elapsed_ = elapsed;
    summary_ = ScanSummaryText(elapsed, input_.totalLines, dnsFlag_, SummaryTotals());
    ui_.MessageBox(summary_, platform::MsgIcon::Information, platform::MsgButtons::Ok,
                   world_.app.appTitle);
  } catch (const std::exception&) {
    // Nothing in the summary may fail the run.
  }
}

void ScanDriver::ProcessHit(std::string_view line, int siteIndex) {
  loginput::SiteReadState& state = input_.Site(siteIndex);
  analysis::LineContext context{input_.fieldMap, state.separator, state.noSpiderCheck,
                                state.currentFileDate};
  hits_.ProcessHit(line, static_cast<int16_t>(siteIndex), context, input_.hits);
}

void ScanDriver::WriteDaySummary(int siteIndex) {
  hits_.WriteDaySummary(static_cast<int16_t>(siteIndex));
}

vb::Date ScanDriver::DaySummaryDate() {
  // The date of the last hit read, if any hit was read at all.
  const vb::Date last = hits_.Clock().hitDate;
  return last != 0 ? last : loginput::kNoLogDate;
}

}  // namespace wizard
