// SPDX-License-Identifier: GPL-3.0-or-later
// velomar: the desktop program. Start-up runs in a fixed order: the command
// line, the file-type registration (written at every start; "-reg" and
// "-unreg" end after it), the crash handler, the window, and then any file
// named on the command line, opened by the running message loop.
#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QVBoxLayout>
#include <cstdio>

#include "app/command_line.h"
#include "app/commands/application.h"
#include "app/report_error.h"
#include "base/crash_report.h"
#include "gui/desktop.h"
#include "gui/main_frame.h"
#include "gui/qt_ports.h"

namespace {

// A standard exception that escapes an event handler is reported, and the
// loop goes on: a failed command never ends the program.
class VelomarApplication : public QApplication {
 public:
  using QApplication::QApplication;
  gui::Desktop* desktop = nullptr;
  bool notify(QObject* receiver, QEvent* event) override {
    try {
      return QApplication::notify(receiver, event);
    } catch (const std::exception& e) {
      if (desktop)
        desktop->app().ReportError(e.what());
      else
        std::fprintf(stderr, "velomar: %s\n", e.what());
    }
    return false;
  }
};

void ShowCrashReport(QWidget* parent, const std::string& report, const std::string& path) {
  QDialog dialog(parent);
  dialog.setWindowTitle("Velomar");
  auto* layout = new QVBoxLayout(&dialog);
  layout->addWidget(new QLabel(
      QString::fromStdString("Velomar ended unexpectedly last time. Its report stays in\n" + path +
                             "\nPlease send it with a description of what you were doing.")));
  auto* text = new QPlainTextEdit(QString::fromStdString(report));
  text->setReadOnly(true);
  text->setLineWrapMode(QPlainTextEdit::NoWrap);
  text->setMinimumSize(640, 320);
  layout->addWidget(text);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok);
  QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
  layout->addWidget(buttons);
  dialog.exec();
}

}  // namespace

int main(int argc, char** argv) {
  VelomarApplication application(argc, argv);
  QApplication::setOrganizationName("Kelvane");
  QApplication::setApplicationName("Velomar");
  QApplication::setDesktopFileName("velomar");

  std::vector<std::string> arguments;
  for (const QString& a : QApplication::arguments().mid(1)) arguments.push_back(a.toStdString());
  const app::VLCommandLineInfo info = app::ParseCommandLine(arguments);

  gui::FreedesktopRegistration registration;
  gui::QtProfileStore settings;
  try {
    if (info.unregisterOnly) {
      registration.unregister_types();
      return 1;
    }
    const std::string program = QApplication::applicationFilePath().toStdString();
    registration.register_types(program);
    // The host's plug-in finds the program here.
    settings.set_string("Preferences", "Path", program);
  } catch (const std::exception& e) {
    QMessageBox::critical(nullptr, "Velomar", QString::fromStdString(e.what()));
    return 1;
  }
  if (info.registerOnly) return 1;

  const std::string crash_file = gui::CrashFilePath();
  const auto unseen = gui::UnseenCrashReport(settings, crash_file);
  try {
    InstallCrashHandler(crash_file);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "velomar: no crash report on this run: %s\n", e.what());
  }

  gui::Desktop desktop;
  application.desktop = &desktop;
  desktop.frame().showMaximized();
  if (unseen) ShowCrashReport(&desktop.frame(), *unseen, crash_file);
  if (const auto file = app::StartupFile(info)) desktop.post_open(*file);
  const int status = QApplication::exec();
  application.desktop = nullptr;
  return status;
}
