// tydbcreate: the wizard window. Rebuilds the monitoring product's visitor database from the
// web-server logs of its sites, with the product's one-window wizard.
//
//   tydbcreate [APPFOLDER]
//
// APPFOLDER is the folder of SETTINGS.INI and the sites file (default: the program's folder);
// TALLYO_REGISTRY names the registry file. The program ends when the window unloads: after the
// scan's summary, on Cancel or the close box, or at once when the window refuses to open.
#include <QApplication>
#include <QMessageBox>
#include <iostream>

#include "WindowSession.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("tydbcreate"));
  // Qt has taken its own options; what is left is the application folder.
  const QStringList args = QApplication::arguments();
  const std::string appFolder = args.size() > 1 ? args.at(1).toStdString() : std::string();

  auto session = window::StartSession(appFolder);
  switch (session->status) {
    case window::SessionStatus::AnotherCopy:
      // The product ends silently; the one on a terminal is told why nothing happened.
      std::cerr << "tydbcreate: another copy of the program is running; nothing was done.\n";
      return 3;
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
