// The wizard window: its controls and layout, and the front-end interface drawn on them.
#include "WizardWindow.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QTableWidget>
#include <QVBoxLayout>
#include <cmath>
#include <string>

#include "ElidedLabel.h"
#include "HeaderArt.h"
#include "startup/StartupSequence.h"

namespace window {

const std::string_view kExplanation[3] = {
    "Welcome to the [APPTITLE] Analyze Log Files Wizard",
    "For every web site set up in [APPTITLE] whose log files are on this computer, the wizard "
    "reads each log file from its first line to its last and turns the hits into visits, page "
    "views, downloads, visitors, alerts and daily summaries. Sites whose logs are fetched by FTP "
    "are left out.",
    "Everything in the current [APPTITLE] database is replaced by what the log files hold. A scan "
    "takes from a few minutes for a small site to several hours for years of busy logs, and "
    "longer with reverse DNS lookups; you can follow it site by site and file by file, and press "
    "Cancel at any time."};

namespace {

QString Q(std::string_view s) { return QString::fromUtf8(s.data(), static_cast<int>(s.size())); }

// A message as a message box shows it: the system's texts break lines with CR LF.
QString BoxText(std::string_view text) {
  QString q = Q(text);
  q.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
  return q;
}

// The alignment of each grid column, from the mark that opens its part of the format string
// ("<" left, "^" centre, ">" right; none: left).
Qt::Alignment ColumnAlignment(int column) {
  std::string_view format = wizard::kGridFormat;
  for (int c = 0; c < column; ++c) {
    const size_t bar = format.find('|');
    if (bar == std::string_view::npos) return Qt::AlignLeft | Qt::AlignVCenter;
    format.remove_prefix(bar + 1);
  }
  const char mark = format.empty() ? ' ' : format[0];
  const Qt::Alignment h = mark == '>'   ? Qt::AlignRight
                          : mark == '^' ? Qt::AlignHCenter
                                        : Qt::AlignLeft;
  return h | Qt::AlignVCenter;
}

QLabel* WrappedLabel(const char* name, QWidget* parent) {
  auto* l = new QLabel(parent);
  l->setObjectName(name);
  l->setTextFormat(Qt::PlainText);
  l->setWordWrap(true);
  l->setAlignment(Qt::AlignLeft | Qt::AlignTop);
  return l;
}

}  // namespace

WizardWindow::WizardWindow(startup::World& world, const platform::Registry& registry,
                           const wizard::RunTimer& timer, QWidget* parent)
    : QWidget(parent), world_(world), registry_(registry), wizard_(world, *this, timer) {
  setObjectName("frmLog");
  setWindowTitle(Q(wizard::kWizardCaption));
  BuildControls();
}

WizardWindow::~WizardWindow() {
  // A window destroyed without its unload (a test, the end of main) still leaves the tables closed.
  if (!unloaded_) wizard_.Unload();
}

void WizardWindow::BuildControls() {
  const QFontMetrics fm = fontMetrics();
  const int em = fm.height();

  // The header: title and note on white, the art on the right, a rule beneath.
  auto* header = new QWidget(this);
  header->setObjectName("header");
  header->setAutoFillBackground(true);
  QPalette white = header->palette();
  white.setColor(QPalette::Window, Qt::white);
  white.setColor(QPalette::WindowText, QColor(0x10, 0x18, 0x28));
  header->setPalette(white);
  auto* headerRow = new QHBoxLayout(header);
  headerRow->setContentsMargins(em, em / 2, em / 2, em / 2);
  auto* headerText = new QVBoxLayout;
  title_ = new QLabel(Q(wizard::kWizardCaption), header);
  QFont bold = title_->font();
  bold.setBold(true);
  bold.setPointSizeF(bold.pointSizeF() * 1.25);
  title_->setFont(bold);
  lblNote_ = WrappedLabel("lblNote", header);
  lblNote_->setContentsMargins(em, 0, 0, 0);
  // Room for three lines, so the header keeps its height when the note becomes a short caption.
  lblNote_->setMinimumHeight(fm.lineSpacing() * 3);
  headerText->addWidget(title_);
  headerText->addWidget(lblNote_, 1);
  headerRow->addLayout(headerText, 1);
  headerRow->addWidget(new HeaderArt(header));

  // The explanation tab.
  tabs_ = new QTabWidget(this);
  tabs_->setObjectName("SSTabs");
  auto* explanation = new QWidget;
  auto* ex = new QVBoxLayout(explanation);
  ex->setSpacing(em * 2 / 3);
  for (int i = 0; i < 3; ++i) {
    lbl_[i] = WrappedLabel(("lbl" + std::to_string(i)).c_str(), explanation);
    ex->addWidget(lbl_[i]);
  }
  QFont heading = lbl_[0]->font();
  heading.setBold(true);
  lbl_[0]->setFont(heading);
  ex->addStretch(1);
  lblTabHelp_ = WrappedLabel("lblTabHelp", explanation);
  ex->addWidget(lblTabHelp_);
  chkDNS_ = new QCheckBox(QStringLiteral("Perform &Reverse DNS Lookups for unknown IP Addresses."),
                          explanation);
  chkDNS_->setObjectName("chkDNS");
  ex->addWidget(chkDNS_);
  tabs_->addTab(explanation, QStringLiteral("Explanation"));

  // The progress tab.
  auto* progress = new QWidget;
  auto* pr = new QVBoxLayout(progress);
  label2_ = new ElidedLabel(progress);
  label2_->setObjectName("Label2");
  label2_->setFont(heading);
  lblProg_ = new ElidedLabel(progress);
  lblProg_->setObjectName("lblProg");
  lblProg2_ = new ElidedLabel(progress);
  lblProg2_->setObjectName("lblProg2");
  progressBar_ = new QProgressBar(progress);
  progressBar_->setObjectName("ProgressBar");
  progressBar_->setTextVisible(false);
  auto* dnsRow = new QHBoxLayout;
  lblPDNS_ = new QLabel(QStringLiteral("Pending DNS Lookups:"), progress);
  lblPDNS_->setObjectName("lblPDNS");
  lblDNS_ = new QLabel(QStringLiteral("0"), progress);
  lblDNS_->setObjectName("lblDNS");
  lblPDNS_->hide();
  lblDNS_->hide();
  dnsRow->addWidget(lblPDNS_);
  dnsRow->addWidget(lblDNS_);
  dnsRow->addStretch(1);
  table_ = new QTableWidget(0, 4, progress);
  table_->setObjectName("Grid");
  table_->verticalHeader()->hide();
  table_->setSelectionBehavior(QAbstractItemView::SelectRows);
  table_->setSelectionMode(QAbstractItemView::SingleSelection);
  table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  table_->setWordWrap(false);
  table_->verticalHeader()->setDefaultSectionSize(fm.height() + fm.height() / 3);
  table_->horizontalHeader()->setStretchLastSection(true);
  pr->addWidget(label2_);
  pr->addWidget(lblProg_);
  pr->addWidget(lblProg2_);
  pr->addWidget(progressBar_);
  pr->addLayout(dnsRow);
  pr->addWidget(table_, 1);
  tabs_->addTab(progress, QStringLiteral("Progress"));

  // The buttons under an etched rule.
  btn_[0] = new QPushButton(QStringLiteral("Start >"), this);
  btn_[0]->setObjectName("btn0");
  btn_[0]->setDefault(true);
  btn_[1] = new QPushButton(QStringLiteral("Cancel"), this);
  btn_[1]->setObjectName("btn1");
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  buttons->addWidget(btn_[0]);
  buttons->addWidget(btn_[1]);

  auto* body = new QVBoxLayout;
  body->setContentsMargins(em, em * 2 / 3, em, em * 2 / 3);
  body->addWidget(tabs_, 1);
  body->addWidget(new EtchedLine(this));
  body->addLayout(buttons);

  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  outer->setSpacing(0);
  outer->addWidget(header);
  outer->addWidget(new EtchedLine(this));
  outer->addLayout(body, 1);

  connect(btn_[0], &QPushButton::clicked, this, [this] { OnStart(); });
  connect(btn_[1], &QPushButton::clicked, this, [this] { OnCancel(); });
  connect(chkDNS_, &QCheckBox::toggled, this, [this](bool on) { wizard_.SetDns(on); });

  // Wrapped labels inside the tabs do not raise the layout's minimum height, so the window's
  // smallest size is set to one in which every explanation still fits.
  setMinimumSize(fm.averageCharWidth() * 84, em * 29);
  resize(fm.averageCharWidth() * 104, em * 34);
}

bool WizardWindow::Load() {
  // 1. The header art lays itself out in its area.
  // 2.-6. The checks and set-up (the grid's header, the note and the tab help come through the
  // front-end interface).
  if (wizard_.Load() != wizard::LoadResult::Ready) {
    Unload();
    return false;
  }
  for (int i = 0; i < 3; ++i)
    lbl_[i]->setText(Q(startup::ReplaceAppNames(world_.app, kExplanation[i])));
  chkDNS_->setChecked(wizard_.Dns());
  return true;
}

// ---- The front-end interface --------------------------------------------------------------------

QLabel* WizardWindow::LabelOf(platform::Label label) const {
  switch (label) {
    case platform::Label::Note:
      return lblNote_;
    case platform::Label::Site:
      return label2_;
    case platform::Label::Prog:
      return lblProg_;
    case platform::Label::Prog2:
      return lblProg2_;
    case platform::Label::PDNS:
      return lblPDNS_;
    case platform::Label::DNS:
      return lblDNS_;
    case platform::Label::TabHelp:
      return lblTabHelp_;
  }
  return nullptr;
}

void WizardWindow::SetCaption(platform::Label label, std::string_view text) {
  QLabel* l = LabelOf(label);
  if (l == nullptr) return;
  l->setText(Q(text));
  if (l->isVisible()) l->repaint();
}

void WizardWindow::ShowLabel(platform::Label label, bool visible) {
  if (QLabel* l = LabelOf(label)) l->setVisible(visible);
}

void WizardWindow::GridChanged() {
  const int rows = grid_.RowCount() - 1;
  if (table_->columnCount() != 4) table_->setColumnCount(4);
  // The header row; its texts set the column widths, as the format string does.
  for (int c = 0; c < 4; ++c) {
    const QString text = Q(grid_.Row(0).cells[static_cast<size_t>(c)]);
    QTableWidgetItem* h = table_->horizontalHeaderItem(c);
    if (h == nullptr || h->text() != text) {
      table_->setHorizontalHeaderItem(c, new QTableWidgetItem(text));
      table_->horizontalHeaderItem(c)->setTextAlignment(ColumnAlignment(c));
      if (c < 3) {
        // Measured in bold: some styles draw header labels so.
        QFont headerFont = table_->horizontalHeader()->font();
        headerFont.setBold(true);
        const QFontMetrics hfm(headerFont);
        table_->setColumnWidth(c, hfm.horizontalAdvance(text) + hfm.averageCharWidth() * 2);
      }
    }
  }
  if (table_->rowCount() != rows) table_->setRowCount(rows);
  for (int r = 1; r <= rows; ++r) {
    const platform::GridRow& row = grid_.Row(r);
    for (int c = 0; c < 4; ++c) {
      const QString text = Q(row.cells[static_cast<size_t>(c)]);
      QTableWidgetItem* item = table_->item(r - 1, c);
      if (item == nullptr) {
        item = new QTableWidgetItem(text);
        item->setTextAlignment(ColumnAlignment(c));
        table_->setItem(r - 1, c, item);
      } else if (item->text() != text) {
        item->setText(text);
      }
    }
  }
  const int selected = grid_.SelectedRow();
  if (selected >= 1 && selected <= rows) {
    table_->selectRow(selected - 1);
    table_->scrollToItem(table_->item(selected - 1, 0));
  } else {
    table_->clearSelection();
  }
  table_->setVisible(grid_.Visible());
}

void WizardWindow::ProgressChanged() {
  // The bar counts in whole steps; the model's Max may be a fraction (a size in 10,000 bytes).
  const int min = static_cast<int>(std::floor(bar_.Min()));
  const int max = std::max(min, static_cast<int>(std::ceil(bar_.Max())));
  progressBar_->setRange(min, max);
  progressBar_->setValue(static_cast<int>(std::lround(bar_.Value())));
  progressBar_->setVisible(bar_.Visible());
}

void WizardWindow::SetStartEnabled(bool enabled) {
  btn_[0]->setEnabled(enabled);
  // The box is read when the scan starts; afterwards a click would change nothing.
  chkDNS_->setEnabled(enabled);
}

void WizardWindow::ShowProgressTab() { tabs_->setCurrentIndex(1); }

platform::MsgResult WizardWindow::MessageBox(std::string_view text, platform::MsgIcon icon,
                                             platform::MsgButtons buttons,
                                             std::string_view title) {
  QMessageBox::Icon qicon = QMessageBox::Information;
  switch (icon) {
    case platform::MsgIcon::Critical:
      qicon = QMessageBox::Critical;
      break;
    case platform::MsgIcon::Question:
      qicon = QMessageBox::Question;
      break;
    case platform::MsgIcon::Exclamation:
      qicon = QMessageBox::Warning;
      break;
    case platform::MsgIcon::Information:
      break;
  }
  QMessageBox::StandardButtons qbuttons = QMessageBox::Ok;
  if (buttons == platform::MsgButtons::YesNo) qbuttons = QMessageBox::Yes | QMessageBox::No;
  if (buttons == platform::MsgButtons::YesNoCancel)
    qbuttons = QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel;
  QMessageBox box(qicon, Q(title), BoxText(text), qbuttons, isVisible() ? this : nullptr);
  box.setObjectName("MsgBox");
  box.setTextFormat(Qt::PlainText);
  const int answer = box.exec();
  switch (answer) {
    case QMessageBox::Yes:
      return platform::MsgResult::Yes;
    case QMessageBox::No:
      return platform::MsgResult::No;
    case QMessageBox::Cancel:
      return platform::MsgResult::Cancel;
    case QMessageBox::Ok:
      return platform::MsgResult::Ok;
    default:
      // Closed without a button: the box's escape answer.
      break;
  }
  if (buttons == platform::MsgButtons::YesNo) return platform::MsgResult::No;
  if (buttons == platform::MsgButtons::YesNoCancel) return platform::MsgResult::Cancel;
  return platform::MsgResult::Ok;
}

bool WizardWindow::Yield() {
  QCoreApplication::processEvents(QEventLoop::AllEvents);
  if (yieldObserver_) yieldObserver_();
  return !wizard_.CancelConfirmed();
}

// ---- Buttons, close box, unload -----------------------------------------------------------------

void WizardWindow::OnStart() {
  if (inScan_ || unloaded_) return;
  // The resolver for a ticked DNS box. One that cannot be set up is said, and the scan runs
  // without look-ups (the summary then gives the time and the rate).
  if (wizard_.Dns() && resolver_ == nullptr) {
    std::string why;
    resolver_ = platform::MakeResolver(dnsSettings_, why);
    if (resolver_ == nullptr) {
      MessageBox("Reverse DNS lookups cannot be made (" + why +
                     "). The scan will run without them.",
                 platform::MsgIcon::Exclamation, platform::MsgButtons::Ok, world_.app.appTitle);
      chkDNS_->setChecked(false);
    }
  }
  wizard_.Driver().SetResolver(resolver_.get());
  inScan_ = true;
  const wizard::StartResult result = wizard_.Start(registry_);
  inScan_ = false;
  switch (result) {
    case wizard::StartResult::NotConfirmed:
      // No or Cancel: still ready.
      return;
    case wizard::StartResult::DatabaseFailed:
      // The window stays open with Start off; the user leaves by Cancel or the close box.
      return;
    case wizard::StartResult::Completed:
    case wizard::StartResult::ServiceRunning:
    case wizard::StartResult::Cancelled:
    case wizard::StartResult::WriteFailed:
      // A cancelled run and one whose tables could not be written leave the previous database
      // as it was; the program ends as after any run.
      Unload();
      return;
  }
}

void WizardWindow::OnCancel() {
  if (unloaded_) return;
  // Asks while a file is being scanned; No lets the scan go on.
  if (!wizard_.Cancel()) return;
  // During the scan this handler runs inside one of its yields: the yield now returns false, the
  // scan closes the database and returns, and the Start handler unloads.
  if (inScan_) return;
  Unload();
}

void WizardWindow::closeEvent(QCloseEvent* event) {
  if (unloaded_) {
    event->accept();
    return;
  }
  // The close box is the Cancel button; the window closes through the unload.
  event->ignore();
  OnCancel();
}

void WizardWindow::Unload() {
  if (unloaded_) return;
  unloaded_ = true;
  wizard_.Unload();
  close();
  emit unloaded();
}

}  // namespace window
