// The terminal front-end of the scan.
#include "ConsoleFrontend.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iostream>

#include "vb/Strings.h"
#include "wizard/ScanDriver.h"
#include "wizard/ScanSummary.h"

namespace cli {
namespace {

// The one piece of process-wide state here: a signal handler has nowhere else to leave word.
std::atomic<bool> gInterrupted{false};  // SIGINT: the Cancel button
std::atomic<bool> gTerminated{false};   // SIGTERM, SIGHUP: cancel without asking
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void OnSignal(int sig) {
  (sig == SIGINT ? gInterrupted : gTerminated).store(true, std::memory_order_relaxed);
}

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
struct sigaction gPrevious[3];

// Installs OnSignal for the three signals; `restart` lets interrupted system calls go on.
bool InstallHandlers(bool restart, struct sigaction* previous) {
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = restart ? SA_RESTART : 0;
  bool ok = true;
  for (int i = 0; i < 3; ++i)
    ok = sigaction(kSignals[i], &action, previous ? &previous[i] : nullptr) == 0 && ok;
  return ok;
}

constexpr auto kRedrawEvery = std::chrono::milliseconds(250);

// CR LF pairs (and lone CRs) as plain line ends.
std::string Lines(std::string_view text) {
  std::string out = vb::Replace(text, "\r\n", "\n");
  for (char& c : out)
    if (c == '\r') c = '\n';
  return out;
}

int TerminalWidth() {
  winsize ws{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col >= 20) return ws.ws_col;
  return 80;
}

std::string Duration(double seconds) {
  if (seconds < 0 || seconds > 99 * 3600.0) return "--:--";
  long s = static_cast<long>(seconds + 0.5);
  char buf[32];
  if (s >= 3600)
    std::snprintf(buf, sizeof buf, "%ld:%02ld:%02ld", s / 3600, (s / 60) % 60, s % 60);
  else
    std::snprintf(buf, sizeof buf, "%ld:%02ld", s / 60, s % 60);
  return buf;
}

// How far the progress bar stands between its Min and its Max, from 0 to 1.
double BarFraction(const platform::ProgressBar& bar) {
  const double span = bar.Max() - bar.Min();
  return span > 0 ? std::min(1.0, std::max(0.0, (bar.Value() - bar.Min()) / span)) : 1.0;
}

// A bar of `width` marks, '#' for the share done.
std::string Bar(double fraction, int width) {
  std::string bar(static_cast<size_t>(width), '.');
  for (int i = 0; i < static_cast<int>(fraction * width); ++i) bar[static_cast<size_t>(i)] = '#';
  return bar;
}

// The last part of a path.
std::string_view BaseName(std::string_view path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

ConsoleFrontend::ConsoleFrontend(ConsoleSettings settings) : settings_(settings) {}

ConsoleFrontend::~ConsoleFrontend() {
  ClearStatus();
  if (handlerInstalled_)
    for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &gPrevious[i], nullptr);
}

void ConsoleFrontend::CatchInterrupts() {
  if (handlerInstalled_) return;
  gInterrupted.store(false);
  gTerminated.store(false);
  // System calls of the scan (file reads and writes) go on after a signal.
  handlerInstalled_ = InstallHandlers(true, gPrevious);
}

void ConsoleFrontend::SetCaption(platform::Label label, std::string_view text) {
  captions_[label] = std::string(text);
  if (label == platform::Label::Prog && text != currentFile_) {
    currentFile_ = std::string(text);
    fileStart_ = std::chrono::steady_clock::now();
    fileStartLines_ = progress_ ? progress_().lines : 0;
    closing_ = text == wizard::kWritingIndexes;
    quartersShown_ = 0;
  }
  // Without a status line, the sites and files read and the close are logged as lines.
  if (!settings_.statusLine && !settings_.quiet) {
    if (label == platform::Label::Site && !text.empty()) Note(text);
    if (label == platform::Label::Prog && text.find('/') != std::string_view::npos)
      Note("  " + std::string(text));
    if (label == platform::Label::Prog && text == wizard::kWritingIndexes) Note(text);
  }
}

void ConsoleFrontend::ProgressChanged() {
  if (!closing_ || settings_.statusLine || settings_.quiet) return;
  const int quarters = static_cast<int>(BarFraction(bar_) * 4);
  if (quarters <= quartersShown_) return;
  quartersShown_ = quarters;
  Note(std::string(wizard::kWritingIndexes) + ": " + std::to_string(quarters * 25) + "%");
}

platform::MsgResult ConsoleFrontend::MessageBox(std::string_view text, platform::MsgIcon icon,
                                                platform::MsgButtons buttons,
                                                std::string_view title) {
  messages_.emplace_back(text);
  if (buttons != platform::MsgButtons::Ok) return Ask(text);
  if (wizard::IsScanSummary(text)) return platform::MsgResult::Ok;
  const bool warning =
      icon == platform::MsgIcon::Critical || icon == platform::MsgIcon::Exclamation;
  if (settings_.quiet && !warning) return platform::MsgResult::Ok;
  ClearStatus();
  std::cerr << title
            << (icon == platform::MsgIcon::Critical ? " (error): "
                : warning                           ? " (warning): "
                                                    : ": ")
            << Lines(text) << "\n";
  std::cerr.flush();
  return platform::MsgResult::Ok;
}

platform::MsgResult ConsoleFrontend::Ask(std::string_view question) {
  const bool startQuestion = question == "Are you sure?";
  if (startQuestion && settings_.assumeYes) return platform::MsgResult::Yes;
  if (!settings_.askOnTerminal) {
    ClearStatus();
    if (startQuestion) {
      std::cerr << "tydbcreate-cli: the database is replaced by the scan; stdin is not a "
                   "terminal, so confirm with --yes.\n";
      return platform::MsgResult::No;
    }
    // A cancel from a batch run (Ctrl-C or a signal) is meant: confirmed at once.
    return platform::MsgResult::Yes;
  }
  ClearStatus();
  // At the prompt a Ctrl-C interrupts the read: it answers No to the start question and Yes to
  // the cancel question ("cancel, really").
  gInterrupted.store(false);
  if (handlerInstalled_) InstallHandlers(false, nullptr);
  // The start question says what a Yes does.
  if (startQuestion && !dataFolder_.empty())
    std::cerr << "The database in " << dataFolder_ << " will be replaced by a new one built from "
              << "the sites' logs. ";
  std::cerr << Lines(question) << " [y/N] ";
  std::cerr.flush();
  std::string answer;
  const bool read = !gInterrupted.load() && static_cast<bool>(std::getline(std::cin, answer));
  if (handlerInstalled_) InstallHandlers(true, nullptr);
  if (!read) {
    std::cin.clear();
    answer.clear();
  }
  if (gInterrupted.exchange(false)) {
    std::cerr << "\n";
    return startQuestion ? platform::MsgResult::No : platform::MsgResult::Yes;
  }
  answer = std::string(vb::Trim(answer));
  return (answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes" || answer == "YES")
             ? platform::MsgResult::Yes
             : platform::MsgResult::No;
}

bool ConsoleFrontend::Yield() {
  if (gTerminated.load() && !cancelled_) {
    ClearStatus();
    if (terminateHandler_) terminateHandler_();
    cancelled_ = true;
  }
  if (gInterrupted.exchange(false) && !cancelled_) {
    ClearStatus();
    cancelled_ = cancelHandler_ ? cancelHandler_() : true;
  }
  if (cancelled_) return false;
  if (settings_.statusLine) {
    const auto now = std::chrono::steady_clock::now();
    if (now - lastDraw_ >= kRedrawEvery) {
      lastDraw_ = now;
      Redraw();
    }
  }
  return true;
}

void ConsoleFrontend::Redraw() {
  const ScanProgress p = progress_ ? progress_() : ScanProgress{};
  const auto now = std::chrono::steady_clock::now();
  const double inFile = std::chrono::duration<double>(now - fileStart_).count();
  const double fraction =
      p.fileSize > 0 ? std::min(1.0, std::max(0.0, double(p.position - 1) / double(p.fileSize)))
                     : 0.0;
  const double rate = inFile > 0.05 ? double(p.lines - fileStartLines_) / inFile : 0.0;
  const double left = fraction > 0.001 ? inFile * (1.0 - fraction) / fraction : -1.0;

  if (closing_) {  // the last phase: the tables' indexes are written
    const double done = BarFraction(bar_);
    const double left = done > 0.001 ? inFile * (1.0 - done) / done : -1.0;
    char line[96];
    std::snprintf(line, sizeof line, "%s [%s] %3d%% %s left",
                  std::string(wizard::kWritingIndexes).c_str(), Bar(done, 20).c_str(),
                  static_cast<int>(done * 100), Duration(left).c_str());
    std::cerr << "\r\033[K" << line;
    std::cerr.flush();
    statusShown_ = true;
    return;
  }
  std::string site(captions_[platform::Label::Site]);
  if (site.rfind("Scanning Site: ", 0) == 0) site.erase(0, 15);
  if (site.empty()) {  // before the first site: what the scan is doing
    std::cerr << "\r\033[K" << captions_[platform::Label::Note];
    std::cerr.flush();
    statusShown_ = true;
    return;
  }
  const int width = TerminalWidth();
  char tail[96];
  std::snprintf(tail, sizeof tail, " [%s] %3d%% %9.0f lines/s %s left", Bar(fraction, 20).c_str(),
                static_cast<int>(fraction * 100), rate, Duration(left).c_str());
  // With reverse DNS the outstanding lookups follow; while the scan waits for them, the wait is
  // what the line shows instead of a rate.
  std::string tailText = tail;
  if (dnsShown_) {
    const std::string& pending = captions_[platform::Label::DNS];
    const std::string count = pending.empty() ? std::string("0") : pending;
    if (captions_[platform::Label::Prog2] == "Paused While Resolving DNS")
      tailText = " Paused While Resolving DNS: " + count + " outstanding";
    else
      tailText += " | DNS " + count;
  }
  std::string line = site + " | " + std::string(BaseName(currentFile_));
  const int room = width - 1 - static_cast<int>(tailText.size());
  if (room < static_cast<int>(line.size())) line.resize(static_cast<size_t>(std::max(room, 0)));
  line += tailText;
  if (static_cast<int>(line.size()) > width - 1) line.resize(static_cast<size_t>(width - 1));
  std::cerr << "\r\033[K" << line;
  std::cerr.flush();
  statusShown_ = true;
}

void ConsoleFrontend::ClearStatus() {
  if (!statusShown_) return;
  std::cerr << "\r\033[K";
  std::cerr.flush();
  statusShown_ = false;
}

void ConsoleFrontend::Note(std::string_view text) {
  if (settings_.quiet) return;
  ClearStatus();
  std::cerr << text << "\n";
}

}  // namespace cli
