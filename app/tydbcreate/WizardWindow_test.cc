// The wizard window driven as a user drives it, on Qt's offscreen platform: clicks on "Start >",
// "Cancel" and the close box, message boxes answered Yes, No, Cancel or OK, and what is left to
// see (captions, labels, grid rows, progress) and on disk (the tables, closed and sound).
//
// Every session runs start-up on its own copy of the bundled demo (or a folder made for the case)
// with its own registry file (TALLYO_REGISTRY) and lock folder. The scan runs inside the click on
// "Start >"; the message boxes are answered by a timer that finds the open box, and a yield
// observer lets a test act in the middle of a scan, as a user acting between two repaints.
#include <QApplication>
#include <QCheckBox>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QTableWidget>
#include <QTimer>
#include <QtTest>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "DnsServers.h"
#include "TableReadBack.h"
#include "TestSupport.h"
#include "WindowSession.h"
#include "WizardWindow.h"
#include "wizard/Wizard.h"

namespace {

namespace fs = std::filesystem;

QString Q(std::string_view s) { return QString::fromUtf8(s.data(), static_cast<int>(s.size())); }

// Answers message boxes as a user would: every few milliseconds it looks for an open message box,
// notes what it shows and presses the next answer of its queue (OK when the queue is empty).
class BoxAnswerer {
 public:
  struct Seen {
    QString title, text;
    QMessageBox::Icon icon;
    QMessageBox::StandardButtons buttons;
  };

  explicit BoxAnswerer(std::deque<QMessageBox::StandardButton> answers = {})
      : answers_(std::move(answers)) {
    timer_.setInterval(5);
    QObject::connect(&timer_, &QTimer::timeout, [this] { Poll(); });
    timer_.start();
  }
  // Called as each box is seen, before it is answered (the scan is held while it is open).
  std::function<void(const Seen&)> onBox;
  std::vector<Seen> seen;
  QStringList Texts() const {
    QStringList out;
    for (const auto& s : seen) out << s.text;
    return out;
  }

 private:
  void Poll() {
    for (QWidget* w : QApplication::topLevelWidgets()) {
      auto* box = qobject_cast<QMessageBox*>(w);
      if (box == nullptr || !box->isVisible() || box->property("answered").toBool()) continue;
      box->setProperty("answered", true);
      seen.push_back({box->windowTitle(), box->text(), box->icon(), box->standardButtons()});
      if (onBox) onBox(seen.back());
      QMessageBox::StandardButton answer = QMessageBox::Ok;
      if (!answers_.empty()) {
        answer = answers_.front();
        answers_.pop_front();
      }
      QAbstractButton* button = box->button(answer);
      if (button == nullptr) {
        // The answer the test expected is not on this box: close it without a button and let
        // the assertions on `seen` tell what happened.
        box->reject();
      } else {
        button->click();
      }
    }
  }

  std::deque<QMessageBox::StandardButton> answers_;
  QTimer timer_;
};

// A copy of the bundled demo (tables and run files left out), with a registry file and a lock
// folder of its own.
struct Demo {
  tytest::TempDir dir;
  tytest::TempDir scratch;
  fs::path root = dir.path() / "demo";
  fs::path registry = scratch.path() / "registry.ini";

  explicit Demo(const std::string& registryText = "") {
    tytest::CopyDemo(root);
    tytest::WriteFile(registry, registryText);
  }
  std::string str() const { return root.string() + "/"; }
  std::string Data() const { return str() + "Data/"; }
  void Sites(const std::string& text) { tytest::WriteFile(root / "TALLYO.INI", text); }
  void Settings(const std::string& from, const std::string& to) {
    std::string s = tytest::ReadFile(root / "SETTINGS.INI");
    const size_t at = s.find(from);
    QVERIFY2(at != std::string::npos, from.c_str());
    s.replace(at, from.size(), to);
    tytest::WriteFile(root / "SETTINGS.INI", s);
  }
  // Start-up and the window's load, as main() does them.
  std::unique_ptr<window::WindowSession> Start() {
    qputenv("TALLYO_REGISTRY", QByteArray::fromStdString(registry.string()));
    return window::StartSession(str(), scratch.str());
  }
};

template <typename T>
T* Find(QWidget* w, const char* name) {
  T* c = w->findChild<T*>(QString::fromLatin1(name));
  if (c == nullptr) qFatal("no control %s", name);
  return c;
}
QString Text(QWidget* w, const char* name) { return Find<QLabel>(w, name)->text(); }

// Clicks a button of the window as the mouse does.
void Click(QWidget* w, const char* name) {
  QTest::mouseClick(Find<QPushButton>(w, name), Qt::LeftButton);
}
// The same click, arriving at the window system's next turn (during the scan's next yield).
void ClickLater(QWidget* w, const char* name) {
  QPushButton* b = Find<QPushButton>(w, name);
  QTimer::singleShot(0, b, [b] { QTest::mouseClick(b, Qt::LeftButton); });
}

using tytest::RecordCount;
using tytest::TableFiles;

// The defects the table checker finds in the tables of the data folder; also fails when the
// folder holds no table at all.
QStringList TableDefects(const std::string& dataFolder) {
  QStringList out;
  for (const auto& d : tytest::TableDefects(dataFolder, 1)) out << Q(d);
  return out;
}

// The figure in front of `what` in the summary ("12 visit records added.").
long SummaryFigure(const QString& summary, const QString& what) {
  const QRegularExpression re(QStringLiteral("(\\d+) ") + QRegularExpression::escape(what));
  const auto m = re.match(summary);
  return m.hasMatch() ? m.captured(1).toLong() : -1;
}

// A W3C log of `lines` data lines from the project's log generator.
std::string GeneratedLog(int lines) {
  QProcess gen;
  gen.start(QStringLiteral("python3"),
            {Q((tytest::SourceDir() / "tools" / "gen-w3c-log.py").string()),
             QStringLiteral("--lines"), QString::number(lines)});
  if (!gen.waitForFinished(120000) || gen.exitCode() != 0) return {};
  return gen.readAllStandardOutput().toStdString();
}

const QString kYesNo = "Yes|No";

QString ButtonsOf(QMessageBox::StandardButtons b) {
  QStringList s;
  if (b & QMessageBox::Ok) s << "Ok";
  if (b & QMessageBox::Yes) s << "Yes";
  if (b & QMessageBox::No) s << "No";
  if (b & QMessageBox::Cancel) s << "Cancel";
  return s.join('|');
}

}  // namespace

class WizardWindowTest : public QObject {
  Q_OBJECT

 private slots:
  void RefusesToOpenWithoutSitesOrWithOnlyFtpSites();
  void StartEndsTheProgramWhenTheProductRunsAsAService();
  void AreYouSureAnsweredNoOrCancelLeavesTheWindowReady();
  void FullScanOfTheDemoShowsEveryFileAndTheSummary();
  void CancelAnsweredNoGoesOnAndYesEndsWithTheTablesClosed();
  void CancelDuringAnExtractionAbortsItAndEnds();
  void DnsBoxSetsTheRunsDnsFlag();
  void TickedDnsBoxResolvesThroughTheWindowsResolver();
  void KeepsItsLayoutWhenResized();
  void ScreenshotsOfBothTabs();
};

void WizardWindowTest::RefusesToOpenWithoutSitesOrWithOnlyFtpSites() {
  {
    Demo demo;
    demo.Sites("");
    BoxAnswerer boxes;
    auto s = demo.Start();
    QCOMPARE(s->status, window::SessionStatus::Refused);
    QCOMPARE(boxes.seen.size(), size_t{1});
    QVERIFY2(boxes.seen[0].text.startsWith(Q(wizard::NoSitesMessage("Tallyo"))),
             qPrintable(boxes.seen[0].text));
    QCOMPARE(boxes.seen[0].icon, QMessageBox::Information);
    QCOMPARE(boxes.seen[0].title, QStringLiteral("Tallyo"));
    QVERIFY(s->window->IsUnloaded());
    QVERIFY(!s->window->isVisible());
  }
  {
    Demo demo;
    demo.Sites("[A]\r\nFTP=True\r\nFOLDER=logs/w3c/\r\n[B]\r\nFTP=True\r\nFOLDER=logs/w3c/\r\n\r\n");
    BoxAnswerer boxes;
    auto s = demo.Start();
    QCOMPARE(s->status, window::SessionStatus::Refused);
    QCOMPARE(boxes.Texts(), QStringList{Q(wizard::kAllFtp)});
    QCOMPARE(boxes.seen[0].icon, QMessageBox::Warning);
    QVERIFY(s->window->IsUnloaded());
    QCOMPARE(RecordCount(demo.Data(), "Visits"), -1L);
  }
}

void WizardWindowTest::StartEndsTheProgramWhenTheProductRunsAsAService() {
  Demo demo("[Software\\Fenwright\\Tallyo \\Settings]\nServiceRunning=True\n");
  auto s = demo.Start();
  QCOMPARE(s->status, window::SessionStatus::Ready);
  window::WizardWindow* w = s->window.get();
  QSignalSpy unloaded(w, &window::WizardWindow::unloaded);
  w->show();
  BoxAnswerer boxes;
  Click(w, "btn0");
  QCOMPARE(boxes.Texts(), QStringList{Q(wizard::kServiceRunning)});
  QCOMPARE(boxes.seen[0].icon, QMessageBox::Information);
  QCOMPARE(unloaded.count(), 1);
  QVERIFY(!w->isVisible());
  QCOMPARE(RecordCount(demo.Data(), "Visits"), -1L);  // nothing was created
}

void WizardWindowTest::AreYouSureAnsweredNoOrCancelLeavesTheWindowReady() {
  Demo demo;
  auto s = demo.Start();
  QCOMPARE(s->status, window::SessionStatus::Ready);
  window::WizardWindow* w = s->window.get();
  w->show();
  BoxAnswerer boxes({QMessageBox::No, QMessageBox::Cancel});
  Click(w, "btn0");
  Click(w, "btn0");
  QCOMPARE(boxes.Texts(), (QStringList{"Are you sure?", "Are you sure?"}));
  QCOMPARE(boxes.seen[0].icon, QMessageBox::Question);
  QCOMPARE(ButtonsOf(boxes.seen[0].buttons), QStringLiteral("Yes|No|Cancel"));
  QCOMPARE(boxes.seen[0].title, QStringLiteral("Tallyo"));
  // Still ready: nothing created, Start still on, the explanation in front.
  QVERIFY(!w->IsUnloaded());
  QVERIFY(Find<QPushButton>(w, "btn0")->isEnabled());
  QCOMPARE(Find<QTabWidget>(w, "SSTabs")->currentIndex(), 0);
  QCOMPARE(RecordCount(demo.Data(), "Visits"), -1L);
  // Cancel before a scan asks nothing and closes the window.
  Click(w, "btn1");
  QCOMPARE(boxes.seen.size(), size_t{2});
  QVERIFY(w->IsUnloaded());
  QVERIFY(!w->isVisible());
}

void WizardWindowTest::FullScanOfTheDemoShowsEveryFileAndTheSummary() {
  Demo demo;
  auto s = demo.Start();
  QCOMPARE(s->status, window::SessionStatus::Ready);
  window::WizardWindow* w = s->window.get();
  w->show();

  // Before the scan: the captions, with the application title in place.
  QCOMPARE(w->windowTitle(), QStringLiteral("Analyze Log Files Wizard"));
  for (const char* name : {"lbl0", "lbl1", "lbl2", "lblNote", "lblTabHelp"}) {
    QVERIFY2(!Text(w, name).isEmpty(), name);
    QVERIFY2(!Text(w, name).contains("[APPTITLE]"), name);
  }
  QVERIFY(Text(w, "lblNote").contains("Tallyo"));
  QCOMPARE(Find<QCheckBox>(w, "chkDNS")->text(),
           QStringLiteral("Perform &Reverse DNS Lookups for unknown IP Addresses."));
  QVERIFY(!Find<QCheckBox>(w, "chkDNS")->isChecked());  // REVERSEDNS=False
  QCOMPARE(Find<QPushButton>(w, "btn0")->text(), QStringLiteral("Start >"));
  QCOMPARE(Find<QPushButton>(w, "btn1")->text(), QStringLiteral("Cancel"));
  QTableWidget* grid = Find<QTableWidget>(w, "Grid");
  QCOMPARE(grid->columnCount(), 4);
  QCOMPARE(grid->horizontalHeaderItem(0)->text(), QStringLiteral("No    "));
  QCOMPARE(grid->horizontalHeaderItem(1)->text(), QStringLiteral("Modified Date               "));
  QCOMPARE(grid->horizontalHeaderItem(2)->text(), QStringLiteral("Size             "));
  QCOMPARE(grid->horizontalHeaderItem(3)->text(), QStringLiteral(" File Name"));
  QCOMPARE(grid->horizontalHeaderItem(2)->textAlignment() & Qt::AlignHorizontal_Mask,
           int(Qt::AlignRight));
  QCOMPARE(grid->horizontalHeaderItem(1)->textAlignment() & Qt::AlignHorizontal_Mask,
           int(Qt::AlignHCenter));

  // During the scan: what each yield leaves on the screen.
  struct Frame {
    int tab;
    QString site, file;
    QStringList rows;  // file-name cells
    int selected;
    int progress, progressMax;
    bool startEnabled;
  };
  std::vector<Frame> frames;
  QProgressBar* bar = Find<QProgressBar>(w, "ProgressBar");
  w->SetYieldObserver([&] {
    Frame f{Find<QTabWidget>(w, "SSTabs")->currentIndex(),
            Text(w, "Label2"),
            Text(w, "lblProg"),
            {},
            grid->currentRow(),
            bar->value(),
            bar->maximum(),
            Find<QPushButton>(w, "btn0")->isEnabled()};
    for (int r = 0; r < grid->rowCount(); ++r) f.rows << grid->item(r, 3)->text();
    if (!grid->selectedItems().isEmpty()) f.selected = grid->selectedItems()[0]->row();
    frames.push_back(f);
  });
  BoxAnswerer boxes({QMessageBox::Yes, QMessageBox::Ok});
  Click(w, "btn0");

  QCOMPARE(boxes.seen.size(), size_t{2});
  QCOMPARE(boxes.seen[0].text, QStringLiteral("Are you sure?"));
  const QString summary = boxes.seen[1].text;
  QVERIFY2(summary.startsWith("Scan Complete. \n\nScanned"), qPrintable(summary));
  QCOMPARE(boxes.seen[1].icon, QMessageBox::Information);
  QCOMPARE(boxes.seen[1].title, QStringLiteral("Tallyo"));

  // The progress tab was in front and Start off from the first yield on; each site's files were
  // listed in the grid and each file was shown and selected in turn.
  QVERIFY(frames.size() > 10);
  for (const Frame& f : frames) {
    QCOMPARE(f.tab, 1);
    QVERIFY(!f.startEnabled);
  }
  const QString w3c = Q(demo.str() + "logs/w3c/");
  const QString apache = Q(demo.str() + "logs/apache/");
  const QStringList files = {w3c + "ex150113.log", w3c + "ex261115.log",
                             apache + "access_log.2019-01-22", apache + "access_log.2022-01-11"};
  QStringList shown;
  for (const Frame& f : frames)
    if (shown.isEmpty() || shown.back() != f.file) shown << f.file;
  shown.removeAll(QString());
  // After the last file, the close: its caption over the bar, which ends full.
  QCOMPARE(shown, files + QStringList{QStringLiteral("Writing indexes")});
  QCOMPARE(frames.back().file, QStringLiteral("Writing indexes"));
  QCOMPARE(frames.back().progressMax, 100);
  QCOMPARE(frames.back().progress, 100);
  bool sawShopGrid = false, progressMoved = false;
  for (const Frame& f : frames) {
    if (f.file == files[3]) {
      QCOMPARE(f.site, QStringLiteral("Scanning Site: Demo Shop"));
      QCOMPARE(f.rows.size(), 2);
      QVERIFY(f.rows[1].contains("access_log.2022-01-11"));
      QCOMPARE(f.selected, 1);
      sawShopGrid = true;
      progressMoved = progressMoved || (f.progress > 1 && f.progress <= f.progressMax);
    }
    if (f.file == files[0]) QCOMPARE(f.site, QStringLiteral("Scanning Site: Demo Corporate"));
  }
  QVERIFY(sawShopGrid);
  QVERIFY(progressMoved);

  // After the scan: the end captions, the program ended, the tables closed and sound, and the
  // summary's figures are what the tables hold.
  QCOMPARE(Text(w, "lblNote"), QStringLiteral("Scan Completed."));
  QVERIFY(w->IsUnloaded());
  QVERIFY(!w->isVisible());
  QVERIFY(grid->isHidden());
  QVERIFY(bar->isHidden());
  QCOMPARE(TableDefects(demo.Data()), QStringList());
  const long visits = SummaryFigure(summary, "visit records added.");
  QVERIFY(visits > 0);
  QCOMPARE(RecordCount(demo.Data(), "Visits"), visits);
  // The page figure counts the page hits of the visits; each visit's first page is also written
  // once by the visit itself, and the demo stays below one batch of 5,000 pages.
  QCOMPARE(RecordCount(demo.Data(), "Pages"),
           visits + SummaryFigure(summary, "page view records added."));
}

void WizardWindowTest::CancelAnsweredNoGoesOnAndYesEndsWithTheTablesClosed() {
  Demo demo;
  // A first, completed run leaves the database that a cancelled run must leave as it was.
  {
    auto first = demo.Start();
    QCOMPARE(first->status, window::SessionStatus::Ready);
    first->window->show();
    BoxAnswerer boxes({QMessageBox::Yes, QMessageBox::Ok});
    Click(first->window.get(), "btn0");
    QVERIFY(first->window->IsUnloaded());
  }
  const std::map<std::string, std::string> previous = TableFiles(demo.Data());
  QVERIFY(previous.size() >= 14);
  const std::string log = GeneratedLog(40000);
  QVERIFY(log.size() > 1000000);
  tytest::WriteFile(demo.root / "logs" / "big" / "ex021124.log", log);
  demo.Sites("[Big]\r\nTYPE=0\r\nFOLDER=logs/big/\r\nMASK=ex*.log\r\n\r\n");
  auto s = demo.Start();
  QCOMPARE(s->status, window::SessionStatus::Ready);
  window::WizardWindow* w = s->window.get();
  w->show();

  // Cancel pressed at the 10th yield (answered No), the close box at the 20th (No), Cancel at
  // the 30th (Yes). Each question comes while the file is being read, in its middle.
  int yields = 0;
  w->SetYieldObserver([&] {
    ++yields;
    if (yields == 10 || yields == 30) ClickLater(w, "btn1");
    if (yields == 20) QTimer::singleShot(0, w, [w] { w->close(); });
  });
  std::vector<long> linesAtQuestion, positionAtQuestion;
  BoxAnswerer boxes({QMessageBox::Yes, QMessageBox::No, QMessageBox::No, QMessageBox::Yes});
  boxes.onBox = [&](const BoxAnswerer::Seen&) {
    linesAtQuestion.push_back(w->Logic().Driver().TotalLines());
    positionAtQuestion.push_back(w->Logic().Driver().Input().currentReadPos);
  };
  Click(w, "btn0");

  const QString question = Q(wizard::kCancelQuestion);
  QCOMPARE(boxes.Texts(), (QStringList{"Are you sure?", question, question, question}));
  QCOMPARE(ButtonsOf(boxes.seen[1].buttons), kYesNo);
  QCOMPARE(boxes.seen[1].icon, QMessageBox::Question);
  // The scan went on after each No, and stopped in the middle of the file at the Yes.
  QVERIFY(linesAtQuestion[1] < linesAtQuestion[2]);
  QVERIFY(linesAtQuestion[2] < linesAtQuestion[3]);
  QVERIFY(positionAtQuestion[3] > 1);
  QVERIFY(positionAtQuestion[3] < static_cast<long>(log.size()));
  QCOMPARE(w->Logic().Driver().TotalLines(), linesAtQuestion[3]);
  QVERIFY(w->Logic().Driver().Summary().empty());
  // The program ended with the tables closed, and the previous database as it was, byte for
  // byte; nothing of the new one is left.
  QVERIFY(w->IsUnloaded());
  QVERIFY(!w->isVisible());
  QVERIFY(TableFiles(demo.Data()) == previous);
  QCOMPARE(TableDefects(demo.Data()), QStringList());
  QVERIFY(!fs::exists(fs::path(demo.Data()) / "Temp" / "tydbcreate-new"));
}

void WizardWindowTest::CancelDuringAnExtractionAbortsItAndEnds() {
  // A site whose folder holds only ARCHIVE.ZIP with three logs; Cancel is pressed while the
  // archive is being unpacked, before any file was opened for scanning: nothing is asked.
  Demo demo;
  const fs::path logs = demo.root / "logs" / "zipped";
  const fs::path staging = demo.scratch.path() / "staging";
  const std::string log = GeneratedLog(3000);
  QVERIFY(!log.empty());
  for (const char* name : {"ex021101.log", "ex021102.log", "ex021103.log"})
    tytest::WriteFile(staging / name, log);
  fs::create_directories(logs);
  QProcess zip;
  zip.start(QStringLiteral("python3"),
            {QStringLiteral("-c"),
             QStringLiteral("import sys, zipfile, os\n"
                            "with zipfile.ZipFile(sys.argv[1], 'w', zipfile.ZIP_DEFLATED) as z:\n"
                            "    for n in sorted(os.listdir(sys.argv[2])):\n"
                            "        z.write(os.path.join(sys.argv[2], n), n)\n"),
             Q((logs / "ARCHIVE.ZIP").string()), Q(staging.string())});
  QVERIFY(zip.waitForFinished(60000) && zip.exitCode() == 0);
  demo.Sites("[Zipped]\r\nTYPE=0\r\nFOLDER=logs/zipped/\r\nMASK=ex*.log\r\n\r\n");
  auto s = demo.Start();
  QCOMPARE(s->status, window::SessionStatus::Ready);
  window::WizardWindow* w = s->window.get();
  w->show();

  bool pressedWhileUnzipping = false;
  QString unzipCaption;
  w->SetYieldObserver([&] {
    if (pressedWhileUnzipping || !w->Logic().Driver().Input().unzipping) return;
    pressedWhileUnzipping = true;
    unzipCaption = Text(w, "lblProg2");
    Click(w, "btn1");
  });
  BoxAnswerer boxes({QMessageBox::Yes});
  Click(w, "btn0");

  QVERIFY(pressedWhileUnzipping);
  QVERIFY2(unzipCaption.startsWith("Moving Files Out Of The Archive:"), qPrintable(unzipCaption));
  QCOMPARE(boxes.Texts(), QStringList{"Are you sure?"});
  QCOMPARE(w->Logic().Driver().TotalLines(), 0);
  QVERIFY(w->IsUnloaded());
  // The archive stays; what was unpacked of it is gone again; the tables are closed and sound.
  QStringList left;
  for (const auto& e : fs::directory_iterator(logs)) left << Q(e.path().filename().string());
  QCOMPARE(left, QStringList{"ARCHIVE.ZIP"});
  // There was no database before, and the cancelled run leaves none.
  QVERIFY(TableFiles(demo.Data()).empty());
  QVERIFY(!fs::exists(fs::path(demo.Data()) / "Temp" / "tydbcreate-new"));
}

void WizardWindowTest::DnsBoxSetsTheRunsDnsFlag() {
  // Each run is cancelled at its first yield, before the database is created: no hit is read,
  // so no look-up is made.
  for (const bool tick : {false, true}) {
    Demo demo;
    demo.Settings("REVERSEDNS=False", "REVERSEDNS=True");
    auto s = demo.Start();
    window::WizardWindow* w = s->window.get();
    // Look-ups could only go to a loopback port where nothing listens.
    platform::DnsSettings nowhere;
    nowhere.servers = {"127.0.0.1:" + std::to_string(tytest::ClosedLoopbackPort())};
    w->SetDnsSettings(nowhere);
    w->show();
    QCheckBox* box = Find<QCheckBox>(w, "chkDNS");
    QVERIFY(box->isChecked());  // from REVERSEDNS
    QVERIFY(w->Logic().Dns());
    QTest::mouseClick(box, Qt::LeftButton);
    QCOMPARE(w->Logic().Dns(), false);
    if (tick) {
      QTest::mouseClick(box, Qt::LeftButton);
      QCOMPARE(w->Logic().Dns(), true);
    }
    bool flag = !tick, pdnsShown = !tick, dnsShown = !tick;
    w->SetYieldObserver([&] {
      flag = w->Logic().Driver().DnsFlag();
      pdnsShown = Find<QLabel>(w, "lblPDNS")->isVisible();
      dnsShown = Find<QLabel>(w, "lblDNS")->isVisible();
      Click(w, "btn1");
    });
    BoxAnswerer boxes({QMessageBox::Yes});
    Click(w, "btn0");
    QCOMPARE(flag, tick);
    QCOMPARE(pdnsShown, tick);
    QCOMPARE(dnsShown, tick);
    QCOMPARE(boxes.Texts(), QStringList{"Are you sure?"});  // no cancel question before a file
    QVERIFY(w->IsUnloaded());
  }
}

void WizardWindowTest::TickedDnsBoxResolvesThroughTheWindowsResolver() {
  // A scan with the box ticked against a DNS server of the test's own on 127.0.0.1: the pending
  // count is shown, the look-ups reach the server, and the summary has no time and no rate.
  const std::vector<std::pair<std::string, std::string>> hosts = {{"10.0.0.1", "one.example.org"}};
  tytest::Dnsmasq server(hosts);
  if (!server.Started()) QSKIP(server.Why().c_str());
  Demo demo;
  std::string log =
      "#Fields: date time c-ip cs-method cs-uri-stem sc-status cs(User-Agent)\r\n";
  for (int i = 0; i < 1200; ++i)
    log += "2026-11-01 10:" + std::to_string(10 + i / 60) + ":" + std::to_string(10 + i % 40) +
           " 10.0.0." + std::to_string(1 + i % 3) + " GET /p" + std::to_string(i % 9) +
           ".htm 200 Mozilla/5.0\r\n";
  tytest::WriteFile(demo.root / "logs" / "dns" / "ex261101.log", log);
  demo.Sites("[Dns]\r\nTYPE=0\r\nFOLDER=logs/dns/\r\nMASK=ex*.log\r\n\r\n");
  auto s = demo.Start();
  window::WizardWindow* w = s->window.get();
  platform::DnsSettings settings;
  settings.servers = {server.Server()};
  settings.timeoutMs = 2000;
  w->SetDnsSettings(settings);
  w->show();
  Find<QCheckBox>(w, "chkDNS")->setChecked(true);
  bool labelsShown = false;
  w->SetYieldObserver([&] {
    labelsShown = labelsShown || (Find<QLabel>(w, "lblPDNS")->isVisible() &&
                                  Find<QLabel>(w, "lblDNS")->isVisible());
  });
  BoxAnswerer boxes({QMessageBox::Yes, QMessageBox::Ok});
  Click(w, "btn0");
  QCOMPARE(boxes.seen.size(), size_t{2});
  const QString summary = boxes.seen[1].text;
  QVERIFY2(summary.contains(" lines.\n\n"), qPrintable(summary));
  QVERIFY(!summary.contains("lines per second"));
  QVERIFY(labelsShown);
  QVERIFY(w->Logic().Driver().DnsFlag());
  QVERIFY(server.Queries("10.0.0.1") >= 1);
  QVERIFY(w->IsUnloaded());
  QCOMPARE(TableDefects(demo.Data()), QStringList());
}

void WizardWindowTest::KeepsItsLayoutWhenResized() {
  Demo demo;
  auto s = demo.Start();
  window::WizardWindow* w = s->window.get();
  w->show();
  const QSize minimum = w->minimumSizeHint();
  // Whatever its size, the buttons stay inside the window, bottom right, and the tabs fill what
  // is left; a long caption does not widen the window.
  for (const QSize size : {minimum, w->size(), QSize(minimum.width() * 3, minimum.height() * 2)}) {
    w->resize(size);
    QCoreApplication::processEvents();
    QPushButton* start = Find<QPushButton>(w, "btn0");
    QPushButton* cancel = Find<QPushButton>(w, "btn1");
    const QRect inside = w->rect();
    QVERIFY(inside.contains(QRect(cancel->mapTo(w, QPoint(0, 0)), cancel->size())));
    QVERIFY(inside.contains(QRect(start->mapTo(w, QPoint(0, 0)), start->size())));
    QVERIFY(start->mapTo(w, QPoint(0, 0)).x() < cancel->mapTo(w, QPoint(0, 0)).x());
    QVERIFY(w->width() - (cancel->mapTo(w, QPoint(0, 0)).x() + cancel->width()) < 40);
    QTabWidget* tabs = Find<QTabWidget>(w, "SSTabs");
    QVERIFY(tabs->mapTo(w, QPoint(0, 0)).y() + tabs->height() <= start->mapTo(w, QPoint(0, 0)).y());
    QVERIFY(Find<QCheckBox>(w, "chkDNS")->width() > 0);
    // No explanation is cut short.
    for (const char* name : {"lbl0", "lbl1", "lbl2", "lblTabHelp", "lblNote"}) {
      QLabel* l = Find<QLabel>(w, name);
      QVERIFY2(l->height() >= l->heightForWidth(l->width()), name);
    }
    QCheckBox* box = Find<QCheckBox>(w, "chkDNS");
    QVERIFY(QRect(QPoint(0, 0), box->parentWidget()->size())
                .contains(QRect(box->pos(), box->sizeHint())));
  }
  const int before = w->minimumSizeHint().width();
  w->SetCaption(platform::Label::Prog, std::string(400, 'x'));
  QCOMPARE(w->minimumSizeHint().width(), before);
}

void WizardWindowTest::ScreenshotsOfBothTabs() {
  // Written to TY_SCREENSHOT_DIR when it is set (the pictures in docs/), else to a temp folder.
  tytest::TempDir temp;
  const QByteArray target = qgetenv("TY_SCREENSHOT_DIR");
  const QString folder = target.isEmpty() ? Q(temp.str()) : QString::fromLocal8Bit(target) + "/";
  Demo demo;
  auto s = demo.Start();
  window::WizardWindow* w = s->window.get();
  w->show();
  QCoreApplication::processEvents();
  const QPixmap before = w->grab();
  QVERIFY(before.save(folder + "window-explanation.png"));

  // Mid-scan: the second file of the second site, a few steps into it.
  QPixmap during;
  int stepsIntoFile = 0;
  w->SetYieldObserver([&] {
    if (!Text(w, "lblProg").endsWith("access_log.2022-01-11")) return;
    if (++stepsIntoFile == 3) during = w->grab();
  });
  BoxAnswerer boxes({QMessageBox::Yes, QMessageBox::Ok});
  Click(w, "btn0");
  QVERIFY(!during.isNull());
  QVERIFY(during.save(folder + "window-progress.png"));
  QCOMPARE(during.size(), before.size());
}

QTEST_MAIN(WizardWindowTest)
#include "WizardWindow_test.moc"
