// The wizard window `frmLog`: the product's one visible window and the second front-end of the
// scan (the batch front-end is the first). It lays out the controls, shows what the scan writes
// to them, answers the front-end interface's message boxes and yields, and forwards its buttons
// and the DNS box to the wizard's logic (wizard::Wizard), which decides everything.
//
// The scan runs on the window's thread, inside the Start button's handler. Each yield processes
// the window system's events: the window repaints, the grid and the progress bar move, and the
// Cancel button and the close box are answered in the middle of a file. A Cancel confirmed there
// makes the yield return false; the scan then closes the database and returns, and the window
// unloads, which ends the program. The close box is the Cancel button.
//
// Controls carry the names of the original form as their object names (lbl0..lbl2, lblNote,
// lblTabHelp, chkDNS, btn0, btn1, Label2, lblProg, lblProg2, lblPDNS, lblDNS, ProgressBar, Grid,
// SSTabs), so tests and tools find them by name.
#pragma once

#include <QWidget>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/Frontend.h"
#include "platform/Registry.h"
#include "platform/Resolver.h"
#include "startup/World.h"
#include "wizard/RunTimer.h"
#include "wizard/Wizard.h"

class QCheckBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QTabWidget;
class QTableWidget;

namespace window {

// The window's own explanatory texts, "[APPTITLE]" still in place; index 0 is the heading.
extern const std::string_view kExplanation[3];

class WizardWindow final : public QWidget, public platform::Frontend {
  Q_OBJECT

 public:
  // REQUIRES: `world` (start-up done), `registry` and `timer` outlive the window.
  WizardWindow(startup::World& world, const platform::Registry& registry,
               const wizard::RunTimer& timer, QWidget* parent = nullptr);
  ~WizardWindow() override;

  // The load: the wizard's checks and set-up, then the window's captions and the DNS box. Returns
  // false when the window refused to open (its message was shown and it is unloaded).
  bool Load();
  // True once the window has unloaded: the database is closed and the program is to end.
  bool IsUnloaded() const { return unloaded_; }
  wizard::Wizard& Logic() { return wizard_; }
  // Called at the end of every yield, after the events were processed (for the screenshot tool
  // and tests that act in the middle of a scan).
  void SetYieldObserver(std::function<void()> observer) { yieldObserver_ = std::move(observer); }
  // Where the reverse look-ups go (default: the system's resolver configuration). The resolver
  // is made when Start is pressed with the DNS box ticked.
  void SetDnsSettings(platform::DnsSettings settings) { dnsSettings_ = std::move(settings); }

  // ---- platform::Frontend ----------------------------------------------------------------------
  void SetCaption(platform::Label label, std::string_view text) override;
  void ShowLabel(platform::Label label, bool visible) override;
  platform::Grid& FileGrid() override { return grid_; }
  platform::ProgressBar& Progress() override { return bar_; }
  void GridChanged() override;
  void ProgressChanged() override;
  void SetStartEnabled(bool enabled) override;
  void ShowProgressTab() override;
  platform::MsgResult MessageBox(std::string_view text, platform::MsgIcon icon,
                                 platform::MsgButtons buttons, std::string_view title) override;
  bool Yield() override;

 signals:
  // The window has unloaded; the program ends.
  void unloaded();

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void BuildControls();
  void OnStart();
  void OnCancel();
  // The shut-down: database closed, robot list saved, window closed, unloaded() sent. Once.
  void Unload();
  QLabel* LabelOf(platform::Label label) const;

  startup::World& world_;
  const platform::Registry& registry_;
  wizard::Wizard wizard_;
  platform::Grid grid_;
  platform::ProgressBar bar_;
  std::function<void()> yieldObserver_;
  platform::DnsSettings dnsSettings_;
  std::unique_ptr<platform::Resolver> resolver_;  // outlives the scan that uses it
  bool inScan_ = false;    // the Start handler is running the scan
  bool unloaded_ = false;

  QLabel* title_ = nullptr;
  QLabel* lbl_[3] = {};
  QLabel* lblNote_ = nullptr;
  QLabel* lblTabHelp_ = nullptr;
  QCheckBox* chkDNS_ = nullptr;
  QPushButton* btn_[2] = {};
  QTabWidget* tabs_ = nullptr;
  QLabel* label2_ = nullptr;
  QLabel* lblProg_ = nullptr;
  QLabel* lblProg2_ = nullptr;
  QLabel* lblPDNS_ = nullptr;
  QLabel* lblDNS_ = nullptr;
  QProgressBar* progressBar_ = nullptr;
  QTableWidget* table_ = nullptr;
};

}  // namespace window
