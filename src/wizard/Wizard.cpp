// The wizard window's load checks, buttons and shut-down.
#include "wizard/Wizard.h"

#include <exception>

#include "startup/ExceptionCatalogue.h"
#include "startup/RobotList.h"
#include "startup/Sites.h"
#include "startup/StartupSequence.h"
#include "vb/Dates.h"

namespace wizard {
namespace {

constexpr double kSecondsPerDay = 86400.0;
constexpr double kMinutesPerDay = 1440.0;

// The header cells of the grid: kGridFormat's columns without their alignment marks.
void SetGridHeader(platform::Grid& grid) {
  std::string_view format = kGridFormat;
  for (size_t col = 0; col < 4 && !format.empty(); ++col) {
    size_t bar = format.find('|');
    std::string_view cell = format.substr(0, bar);
    if (!cell.empty() && (cell[0] == '<' || cell[0] == '^' || cell[0] == '>'))
      cell.remove_prefix(1);
    grid.Row(0).cells[col] = std::string(cell);
    format = bar == std::string_view::npos ? std::string_view() : format.substr(bar + 1);
  }
}

}  // namespace

std::string NoSitesMessage(std::string_view appTitle) {
  std::string t(appTitle);
  return "No Sites have been setup. Use " + t +
         " first to setup at least 1 web site for monitoring, then re-run this Wizard to create "
         "the " +
         t + " Database from the sites' log files.";
}

std::string LabelText(const startup::AppState& app, platform::Label label) {
  std::string_view text;
  switch (label) {
    case platform::Label::Note:
      text =
          "This wizard builds the [APPTITLE] database from the log files of every web site set "
          "up in [APPTITLE]. The existing visitor, visit, page, download, referrer, exception and "
          "daily summary tables are replaced.";
      break;
    case platform::Label::TabHelp:
      text =
          "Stop [APPTITLE] before you start. Reverse DNS lookups name your visitors but make the "
          "scan much slower. Press Start > to begin.";
      break;
    default:
      break;
  }
  return startup::ReplaceAppNames(app, text);
}

Wizard::Wizard(startup::World& world, platform::Frontend& ui, const RunTimer& timer,
               analysis::HitServices* services)
    : world_(world), ui_(ui), driver_(world, ui, timer, services) {}

LoadResult Wizard::Load() {
  const std::string& title = world_.app.appTitle;
  // 1. The header art is the front-end's.
  // 2.
  if (world_.siteCount == 0) {
    // The product's text, then where the sites file was looked for and what was found there.
    ui_.MessageBox(NoSitesMessage(title) + "\r\n\r\n" + startup::DescribeSitesFile(world_),
                   platform::MsgIcon::Information, platform::MsgButtons::Ok, title);
    return LoadResult::NoSites;
  }
  // 3.
  int local = 0;
  for (int i = 1; i <= world_.siteCount; ++i)
    if (!world_.site(i).ftp) ++local;
  if (local == 0) {
    ui_.MessageBox(kAllFtp, platform::MsgIcon::Exclamation, platform::MsgButtons::Ok, title);
    return LoadResult::AllFtp;
  }
  // 4.
  platform::Grid& grid = ui_.FileGrid();
  grid.SetRowCount(1);
  SetGridHeader(grid);
  ui_.GridChanged();
  // 5. The sites' run-time times, then their thresholds from the catalogue.
  const vb::Date now = world_.clock.Now();
  std::vector<SiteRunTimes>& times = driver_.SiteTimes();
  for (int i = 1; i <= world_.siteCount; ++i) {
    if (static_cast<size_t>(i) < times.size()) {
      SiteRunTimes& t = times[static_cast<size_t>(i)];
      t.firstRunTime = now + 2.0 * i / kSecondsPerDay;
      t.secondRunTime = now;
      t.runFlag = true;
    }
    analysis::SiteRunState& s = driver_.Hits().Counters().Site(i);
    s.quietSince = now;
    s.secondLevelQuietSince = now;
    s.lastSweepTime = now + i / kMinutesPerDay;
  }
  startup::RefreshexceptionConstants(world_);
  // 6.
  ui_.SetCaption(platform::Label::Note, LabelText(world_.app, platform::Label::Note));
  ui_.SetCaption(platform::Label::TabHelp, LabelText(world_.app, platform::Label::TabHelp));
  driver_.SetDnsChecked(world_.settings.reverseDns);
  return LoadResult::Ready;
}

StartResult Wizard::Start(const platform::Registry& registry) {
  const std::string& title = world_.app.appTitle;
  // 1.
  std::string service =
      startup::GetSettingsValue(registry, title, "Settings", "ServiceRunning", "False");
  // 2.
  if (service == "True") {
    ui_.MessageBox(kServiceRunning, platform::MsgIcon::Information, platform::MsgButtons::Ok,
                   title);
    return StartResult::ServiceRunning;
  }
  // 3.
  if (ui_.MessageBox(kAreYouSure, platform::MsgIcon::Question, platform::MsgButtons::YesNoCancel,
                     title) != platform::MsgResult::Yes)
    return StartResult::NotConfirmed;
  ui_.ShowProgressTab();
  switch (driver_.ScanAllSites()) {
    case ScanOutcome::Completed:
      return StartResult::Completed;
    case ScanOutcome::DatabaseFailed:
      return StartResult::DatabaseFailed;
    case ScanOutcome::WriteFailed:
      return StartResult::WriteFailed;
    case ScanOutcome::Cancelled:
      break;
  }
  return StartResult::Cancelled;
}

bool Wizard::Cancel() {
  loginput::LogInputState& input = driver_.Input();
  // 1.
  if (input.scanning && !cancelConfirmed_) {
    if (ui_.MessageBox(kCancelQuestion, platform::MsgIcon::Question, platform::MsgButtons::YesNo,
                       world_.app.appTitle) != platform::MsgResult::Yes)
      return false;
  }
  // 2.
  if (input.unzipping) input.AbortUnzip();
  // 3.
  cancelConfirmed_ = true;
  return true;
}

void Wizard::CancelNow() {
  if (driver_.Input().unzipping) driver_.Input().AbortUnzip();
  cancelConfirmed_ = true;
}

void Wizard::Unload() {
  try {
    driver_.Database().CloseDatabase();
  } catch (const std::exception&) {
  }
  try {
    startup::SaveRobotList(world_.robots, world_.app.dataFolder);
  } catch (const std::exception&) {
  }
}

}  // namespace wizard
