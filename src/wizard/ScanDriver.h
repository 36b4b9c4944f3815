// The scan driver: one whole scan, from the empty database to the summary. It prepares every site
// for a fresh run, creates the database, walks every site that is not reached by FTP and every log
// file of that site in the listed order, hands each file to the log reader, waits for outstanding
// reverse-DNS answers, closes the database and shows the run's statistics.
//
// The driver is the log reader's hook object: it passes each data line on to the hit processing,
// moves the file progress bar, paces the resolver and writes the daily summaries. It owns the
// run's state: the database, the hit processing (visit table and per-site counters) and the
// log-input state. There is no resumption: every scan re-creates the database and reads every file
// from its first byte.
//
// Everything runs on the caller's thread, the closing of the tables excepted, which has threads of
// its own. The window gets control only at the yields (once before the database is created, once
// per site, once per file, every 500 lines, every 50 ms while the tables close); a Cancel the user
// confirms there makes the yield return false, and the driver then closes the database and
// returns ScanOutcome::Cancelled.
//
// Reverse-DNS answers reach the hit analysis at the same yields and during the waits for the
// resolver, and nowhere else: the driver wraps the front-end so that each of its yields first
// hands over the answers that have come in. So the analysis sees an answer only between two
// hits, on its own thread, whichever front-end runs the scan.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "analysis/HitProcessor.h"
#include "analysis/HitServices.h"
#include "database/Database.h"
#include "loginput/LogInputState.h"
#include "loginput/ScanHooks.h"
#include "platform/Frontend.h"
#include "platform/Resolver.h"
#include "startup/World.h"
#include "vb/Dates.h"
#include "wizard/RunTimer.h"

namespace wizard {

// The site-level state that the window sets when it loads and the scan sets again before it starts.
// Nothing in this utility reads the two run-time times or the flag: they are the monitoring
// product's own polling state, kept so that a run prepares a site exactly as the product does.
struct SiteRunTimes {
  vb::Date firstRunTime = 0;   // when the site is next due: load time + 2 s per site index
  vb::Date secondRunTime = 0;  // load time
  bool runFlag = false;        // set for every site at load and again before the scan
};

enum class ScanOutcome {
  Completed,       // every site scanned, database closed, summary shown; a table that became
                   // full (Database().FullTables()) was shown before the summary
  DatabaseFailed,  // InitDatabase failed; the failure message was shown; nothing else was done
  Cancelled,       // the user confirmed a Cancel during a yield; the previous database is kept
  WriteFailed,     // a write to the new tables failed (a full disk): the scan stopped there, the
                   // failure was shown, and the previous database is kept
};

enum class ScanState { Ready, Scanning, Done };

// The file caption (Label::Prog) while the database closes, the last phase of every scan: the
// keys gathered during the scan are sorted and every table's index is written. The progress bar
// then runs from 0 to 100 with the share of that work done.
inline constexpr std::string_view kWritingIndexes = "Writing indexes";

class ScanDriver final : public loginput::ScanHooks {
 public:
  // REQUIRES: `world` (sites loaded), `ui` and `timer` outlive the driver; so does `services`
  // when given (the hit processing's alert matching and host-name resolution; nullptr = the
  // defaults: no alert definition matches, host names from the DNS cache or the address).
  ScanDriver(startup::World& world, platform::Frontend& ui, const RunTimer& timer,
             analysis::HitServices* services = nullptr);
  ScanDriver(const ScanDriver&) = delete;
  ScanDriver& operator=(const ScanDriver&) = delete;

  // The DNS check box: whether the next scan makes reverse look-ups.
  void SetDnsChecked(bool checked) { dnsChecked_ = checked; }
  bool DnsChecked() const { return dnsChecked_; }
  // The reverse-DNS resolver of the scans to come; nullptr (the default): none, so no look-up is
  // made even with the DNS box ticked. REQUIRES: `resolver` outlives the scan.
  void SetResolver(platform::Resolver* resolver) { resolver_ = resolver; }

  // Runs one scan (see the file comment). Messages go through the front-end: the database failure
  // (critical), "No log files were found for site: ..." (exclamation, per site), the log reader's
  // own, each table that became full (exclamation, after the run), and the summary
  // (information). REQUIRES: State() == Ready; the state is Scanning during
  // the run and Done afterwards, whatever the outcome. Never throws: a failure inside the run is
  // survived and the run goes on with the next step.
  ScanOutcome ScanAllSites();

  // Moves the progress bar to byte `position` of the file being read (see ScanDriver.cpp for the
  // scale). A value the bar refuses is ignored.
  void UpdateFileProgress(int32_t position) override;

  // Builds the end-of-run message for `elapsed` seconds (ScanSummaryText), keeps it (Summary())
  // and shows it as an information message titled with the application title. Never throws.
  void ShowScanSummary(float elapsed);

  // Holds the scan until the resolver has no request outstanding, yielding meanwhile, with
  // "Paused While Resolving DNS" in the second file caption. A Cancel confirmed in a yield ends
  // the wait and marks the run cancelled.
  void WaitForDNS();

  // Hands the reverse-DNS answers that have come in to the hit analysis, waiting up to `waitMs`
  // milliseconds for the first. Answers that come while the database is closed are dropped;
  // while its tables close, none is handed over.
  void DeliverDnsAnswers(int waitMs);

  // ---- The log reader's hooks ------------------------------------------------------------------
  void ProcessHit(std::string_view line, int siteIndex) override;
  bool DnsEnabled() override { return dnsFlag_; }
  int DnsPending() override { return resolver_ != nullptr ? resolver_->Outstanding() : 0; }
  void DnsWait() override { WaitForDNS(); }
  void WriteDaySummary(int siteIndex) override;
  vb::Date CurrentLogDate() override { return hits_.Counters().currentLogDate; }
  void SetCurrentLogDate(vb::Date date) override { hits_.Counters().currentLogDate = date; }
  vb::Date DaySummaryDate() override;

  // ---- The run's state, for the window and for tests -------------------------------------------
  ScanState State() const { return state_; }
  // The DNS flag of the run: the check box as it stood when the scan started.
  bool DnsFlag() const { return dnsFlag_; }
  int32_t TotalLines() const { return input_.totalLines; }
  // The run's reverse-DNS figures: look-ups made, cache hits, failures.
  const analysis::DnsCounts& DnsCounts() const { return hits_.Dns().Counts(); }
  // Seconds the run took (set when the summary is built or a cancel ends the run), and the summary
  // text ("" unless the run completed).
  float Elapsed() const { return elapsed_; }
  const std::string& Summary() const { return summary_; }
  // The records-added figures of the summary: visits opened and page hits counted by the hit
  // processing (its run totals), and the exception records the database appended.
  database::RunTotals SummaryTotals();
  database::Database& Database() { return f_; }
  analysis::HitProcessor& Hits() { return hits_; }
  loginput::LogInputState& Input() { return input_; }
  std::vector<SiteRunTimes>& SiteTimes() { return siteTimes_; }

 private:
  // Steps 8.3 to 8.7 for one site. Returns false when the run was cancelled.
  bool ScanSite(int siteIndex);
  // Steps 8.6.1 to 8.6.6 for grid row `row`. Returns false when the run was cancelled.
  bool ScanFile(int siteIndex, int row);
  // Yields to the window; false (and the run marked cancelled) when the user confirmed a Cancel.
  bool Yield();
  // Closes the database as the phase "Writing indexes", yielding to the window every 50 ms
  // while the tables close. A Cancel confirmed there marks the run cancelled and withdraws the
  // replacement: the new tables are thrown away once written, and the previous database stays.
  void CloseTables();

  // The front-end as the scan's steps see it: every call goes through, and a yield first hands
  // over the reverse-DNS answers that have come in.
  class Window final : public platform::Frontend {
   public:
    Window(ScanDriver& driver, platform::Frontend& frontend)
        : driver_(driver), frontend_(frontend) {}
    void SetCaption(platform::Label label, std::string_view text) override {
      frontend_.SetCaption(label, text);
    }
    void ShowLabel(platform::Label label, bool visible) override {
      frontend_.ShowLabel(label, visible);
    }
    platform::Grid& FileGrid() override { return frontend_.FileGrid(); }
    platform::ProgressBar& Progress() override { return frontend_.Progress(); }
    void GridChanged() override { frontend_.GridChanged(); }
    void ProgressChanged() override { frontend_.ProgressChanged(); }
    void SetStartEnabled(bool enabled) override { frontend_.SetStartEnabled(enabled); }
    void ShowProgressTab() override { frontend_.ShowProgressTab(); }
    platform::MsgResult MessageBox(std::string_view text, platform::MsgIcon icon,
                                   platform::MsgButtons buttons,
                                   std::string_view title) override {
      return frontend_.MessageBox(text, icon, buttons, title);
    }
    bool Yield() override {
      driver_.DeliverDnsAnswers(0);
      return frontend_.Yield();
    }

   private:
    ScanDriver& driver_;
    platform::Frontend& frontend_;
  };
  // The end of a cancelled run: unpacked archive files removed, the new tables thrown away, the
  // previous database kept. A run stopped by a failed write says so.
  ScanOutcome EndCancelled(int siteIndex);
  // Shows that the database was not replaced, and why (critical).
  void ShowNotReplaced(const std::string& why);

  startup::World& world_;
  Window ui_;
  const RunTimer& timer_;
  database::Database f_;
  analysis::HitProcessor hits_;
  loginput::LogInputState input_;
  platform::Resolver* resolver_ = nullptr;
  std::vector<SiteRunTimes> siteTimes_;

  ScanState state_ = ScanState::Ready;
  bool dnsChecked_ = false;
  bool dnsFlag_ = false;
  bool archiveFound_ = false;
  bool writeFailed_ = false;
  bool closing_ = false;  // the tables are closing: no reverse-DNS answer may reach them
  float startTime_ = 0;
  float elapsed_ = 0;
  std::string summary_;
};

}  // namespace wizard
