// tydbcreate: the wizard window. Rebuilds the monitoring product's visitor database from the
// web-server logs of its sites, with the product's one-window wizard.
//
//   tydbcreate [APPFOLDER]
//
// APPFOLDER is the folder of SETTINGS.INI and the sites file (default: the program's folder; the
// whole command line counts, so a folder with blanks needs no quotes);
// TALLYO_REGISTRY names the registry file. The program ends when the window unloads: after the
// scan's summary, on Cancel or the close box, or at once when the window refuses to open.
#include <QApplication>
#include <QMessageBox>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "ProgramVersion.h"
#include "WindowSession.h"

namespace {

// True when no window system is named: no display, no Wayland socket, no platform chosen.
bool NoWindowSystem() {
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
    const char* v = std::getenv(name);
    if (v != nullptr && *v != '\0') return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  // --version alone needs no window system: answered before Qt starts.
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::cout << TY_VERSION_LINE("tydbcreate") << "\n";
    return 0;
  }
  if (NoWindowSystem()) {
    std::cerr << "tydbcreate: there is no display to show the wizard window on (DISPLAY is not "
                 "set). Run it in a desktop session, or rebuild the database without a window "
                 "with tydbcreate-cli.\n";
    return 1;
  }
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("tydbcreate"));
  // Qt has taken its own options. The rest is the command line, and the whole command line is
  // the application folder: words are joined again with one blank, so a folder with blanks in
  // its name works unquoted, as it did from a shortcut.
  QStringList args = QApplication::arguments();
  args.removeFirst();
  const std::string appFolder = args.join(QLatin1Char(' ')).toStdString();

  auto session = window::StartSession(appFolder);
  switch (session->status) {
    case window::SessionStatus::AnotherCopy:
      // The product ends silently; the one on a terminal is told why nothing happened.
      std::cerr << "tydbcreate: another copy of the program is running; nothing was done.\n";
      return 3;
    case window::SessionStatus::DataFolderBusy: {
      // Two runs on one data folder would replace each other's tables: the second one stops.
      const QString text =
          QStringLiteral("Another run is using the data folder %1. Nothing was done.")
              .arg(QString::fromStdString(session->failure));
      std::cerr << "tydbcreate: " << text.toStdString() << "\n";
      QMessageBox::information(nullptr, QStringLiteral("Analyze Log Files Wizard"), text);
      return 3;
    }
    case window::SessionStatus::StartupFailed: {
      const QString text = QStringLiteral(
                               "The wizard could not start: %1\n\nSee errors.log in the data "
                               "folder.")
                               .arg(QString::fromStdString(session->failure));
      std::cerr << "tydbcreate: start-up failed: " << session->failure << "\n";
      const startup::World* world = session->started.world.get();
      const QString title = world != nullptr && !world->app.appTitle.empty()
                                ? QString::fromStdString(world->app.appTitle)
                                : QStringLiteral("Analyze Log Files Wizard");
      QMessageBox::critical(nullptr, title, text);
      return 1;
    }
    case window::SessionStatus::Refused:
      return 0;
    case window::SessionStatus::Ready:
      break;
  }
  window::WizardWindow& w = *session->window;
  QObject::connect(&w, &window::WizardWindow::unloaded, &app, &QApplication::quit,
                   Qt::QueuedConnection);
  w.show();
  return app.exec();
}
