// The window as a terminal shows it: the scan's captions, grid and progress bar become one status
// line on stderr (site, file, a bar, lines per second, time left, and with reverse DNS the
// outstanding lookups and the pause for them; while the tables close, "Writing indexes" with a
// bar and the time left), redrawn at most four times a second; message boxes become lines on
// stderr; questions are asked on the terminal; Ctrl-C is the Cancel button. Without a status
// line (stderr is not a terminal) the sites, the files and the close are lines of their own:
// the close one line as it starts and one at each quarter of its work, so a log of the run
// shows where it is without being flooded.
//
// Ctrl-C only sets a flag (the signal handler does nothing else); the flag is read at the scan's
// next yield, which then runs the window's Cancel logic. Without a terminal on stdin questions
// cannot be asked: the start question is refused, a cancel is confirmed at once. A termination
// signal (SIGTERM, SIGHUP) is a cancel that asks nothing: the tables are still closed properly.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Frontend.h"

namespace cli {

struct ConsoleSettings {
  bool statusLine = false;     // draw the status line (stderr is a terminal and not --quiet)
  bool quiet = false;          // only warnings and failures on stderr
  bool askOnTerminal = false;  // stdin is a terminal: questions are asked there
  bool assumeYes = false;      // --yes: the start question is answered Yes
};

// What the status line shows besides the captions; asked at most at each redraw.
struct ScanProgress {
  int64_t lines = 0;     // lines read so far in the run
  int64_t position = 0;  // next byte of the file being read (1-based)
  int64_t fileSize = 0;  // its size in bytes (<= 0 when unknown)
};

class ConsoleFrontend final : public platform::Frontend {
 public:
  explicit ConsoleFrontend(ConsoleSettings settings);
  ~ConsoleFrontend() override;

  // The data folder whose database the scan replaces: the start question on a terminal names it.
  void SetDataFolder(std::string folder) { dataFolder_ = std::move(folder); }

  // Installs the handlers of SIGINT, SIGTERM and SIGHUP (until destruction). They set flags that
  // Yield reads.
  void CatchInterrupts();
  // The window's Cancel logic, run at a yield after Ctrl-C; returns true when the cancel is
  // confirmed. Until set, Ctrl-C cancels at once.
  void SetCancelHandler(std::function<bool()> handler) { cancelHandler_ = std::move(handler); }
  // The cancel without a question, run at a yield after SIGTERM or SIGHUP.
  void SetTerminateHandler(std::function<void()> handler) {
    terminateHandler_ = std::move(handler);
  }
  void SetProgressSource(std::function<ScanProgress()> source) { progress_ = std::move(source); }

  void SetCaption(platform::Label label, std::string_view text) override;
  // Only the pending-DNS figure's visibility matters here: while shown, the status line ends
  // with it.
  void ShowLabel(platform::Label label, bool visible) override {
    if (label == platform::Label::DNS) dnsShown_ = visible;
  }
  platform::Grid& FileGrid() override { return grid_; }
  platform::ProgressBar& Progress() override { return bar_; }
  // While the tables close and there is no status line: a line at each quarter of the work.
  void ProgressChanged() override;
  // Shows the message on stderr (the end-of-run summary excepted: the caller prints it) and
  // keeps it; a question (Yes/No) is answered as the class comment says.
  platform::MsgResult MessageBox(std::string_view text, platform::MsgIcon icon,
                                 platform::MsgButtons buttons, std::string_view title) override;
  // Reads the Ctrl-C flag (running the Cancel logic when it is set) and redraws the status line
  // when a quarter second has passed. Returns false from a confirmed cancel on.
  bool Yield() override;

  // Every message box text, in order.
  const std::vector<std::string>& Messages() const { return messages_; }
  // Removes the status line (before the final output).
  void ClearStatus();
  // A line of information on stderr (not shown with --quiet).
  void Note(std::string_view text);

 private:
  void Redraw();
  platform::MsgResult Ask(std::string_view question);

  ConsoleSettings settings_;
  std::string dataFolder_;
  platform::Grid grid_;
  platform::ProgressBar bar_;
  std::map<platform::Label, std::string> captions_;
  std::vector<std::string> messages_;
  std::function<bool()> cancelHandler_;
  std::function<void()> terminateHandler_;
  std::function<ScanProgress()> progress_;
  bool cancelled_ = false;
  bool statusShown_ = false;
  bool dnsShown_ = false;
  bool handlerInstalled_ = false;
  std::chrono::steady_clock::time_point lastDraw_{};
  std::chrono::steady_clock::time_point fileStart_{};
  int64_t fileStartLines_ = 0;
  std::string currentFile_;
  bool closing_ = false;  // the file caption is "Writing indexes"
  int quartersShown_ = 0;  // quarters of the close said in lines (without a status line)
};

}  // namespace cli
