// The wizard window's logic, shared by every front-end: the checks made when the window loads, the
// Start button (service check, "Are you sure?", the scan), the Cancel button and the shut-down.
// The front-end draws; this class decides.
//
// Life of a window: Load() -> (Ready) -> Start() -> scan -> Unload(). Cancel() may be pressed at
// any time; during a scan the front-end reports a confirmed Cancel by returning false from its
// Yield, and the scan then ends by itself.
#pragma once

#include <string>
#include <string_view>

#include "analysis/HitServices.h"
#include "platform/Frontend.h"
#include "platform/Registry.h"
#include "startup/World.h"
#include "wizard/RunTimer.h"
#include "wizard/ScanDriver.h"

namespace wizard {

// The window's caption.
inline constexpr std::string_view kWizardCaption = "Analyze Log Files Wizard";
// The file grid's column layout ("<" left, "^" centre, ">" right; the header texts' lengths set the
// column widths).
inline constexpr std::string_view kGridFormat =
    ">No    |^Modified Date               |>Size             | File Name";
// The two questions the window asks.
inline constexpr std::string_view kAreYouSure = "Are you sure?";
inline constexpr std::string_view kCancelQuestion =
    "Scanning still in progress. Are you sure you want to cancel?";
inline constexpr std::string_view kServiceRunning =
    "Tallyo is currently running as a service. Please stop the service first before running this "
    "utility.";
inline constexpr std::string_view kAllFtp =
    "All sites are accessed via FTP. This utility only works with directly accessible log files.";

// "No Sites have been setup. ..." with the application title in its two places.
std::string NoSitesMessage(std::string_view appTitle);

enum class LoadResult {
  Ready,    // the window opens
  NoSites,  // no site defined: message shown, window unloaded
  AllFtp,   // every site comes by FTP: message shown, window unloaded
};

enum class StartResult {
  Completed,       // the scan ran to its end and showed its summary
  ServiceRunning,  // the product runs as a service: message shown, window unloaded
  NotConfirmed,    // "Are you sure?" was not answered Yes: nothing happened, still ready
  DatabaseFailed,  // the database could not be created: message shown, the window stays open
  Cancelled,       // a confirmed Cancel ended the scan; the previous database is kept
  WriteFailed,     // a write to the new tables failed: message shown, previous database kept
};

class Wizard {
 public:
  // REQUIRES: `world` (start-up done), `ui`, `timer` and `services` (when given) outlive this.
  Wizard(startup::World& world, platform::Frontend& ui, const RunTimer& timer,
         analysis::HitServices* services = nullptr);

  // The load checks and set-up:
  // 2. No site: the information message NoSitesMessage(title) -> NoSites.
  // 3. No site without FTP: the exclamation message kAllFtp -> AllFtp.
  // 4. The grid's header row from kGridFormat.
  // 5. Per site i: first run-time = now + 2*i seconds, second run-time = now, run-time flag on,
  //    both quiet-since times = now, last sweep = now + i minutes; then every site's exception
  //    thresholds refreshed from the catalogue (RefreshexceptionConstants).
  // 6. The explanatory captions with the application title in place (LabelText).
  // On NoSites / AllFtp the caller unloads (Unload()). Messages are titled with the application
  // title. The DNS box starts as the REVERSEDNS setting has it.
  LoadResult Load();

  // The Start button. 1.-2. ServiceRunning under "Settings" of the product's settings key (read
  // with GetSettingsValue, default "False"): exactly "True" shows kServiceRunning (information)
  // -> ServiceRunning, and the caller unloads. 3. Asks kAreYouSure (question, Yes/No/Cancel);
  // anything but Yes -> NotConfirmed. On Yes brings the progress tab to the front, runs the scan
  // and maps its outcome.
  // REQUIRES: Load() returned Ready; Start() has not run a scan yet.
  StartResult Start(const platform::Registry& registry);

  // The Cancel button. 1. While a file has been opened for scanning, asks kCancelQuestion
  // (question, Yes/No); on No returns false and the scan goes on. 2. An archive being unpacked is
  // aborted. 3. Returns true: the window is to close (during a scan: the front-end's Yield
  // returns false from now on, and the scan closes the database and ends).
  bool Cancel();
  // The same without the question, for a cancel that is not the user's choice to make (the
  // system is shutting the program down): an unpacking is aborted and the cancel is confirmed.
  void CancelNow();

  // The shut-down: closes the database (failures ignored) and writes the robot list back when the
  // scan changed it. Safe to call more than once. Never throws.
  void Unload();

  // The chkDNS check box.
  void SetDns(bool checked) { driver_.SetDnsChecked(checked); }
  bool Dns() const { return driver_.DnsChecked(); }

  ScanDriver& Driver() { return driver_; }
  // True after Cancel() returned true.
  bool CancelConfirmed() const { return cancelConfirmed_; }

 private:
  startup::World& world_;
  platform::Frontend& ui_;
  ScanDriver driver_;
  bool cancelConfirmed_ = false;
};

// The explanatory texts of the window's labels, with "[APPTITLE]" replaced.
std::string LabelText(const startup::AppState& app, platform::Label label);

}  // namespace wizard
