// SPDX-License-Identifier: GPL-3.0-or-later
// The core's ports over Qt: messages as queued events, dialogs, the settings
// store, the clipboard, and the file-type registration with the desktop.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QSettings>
#include <QString>
#include <functional>
#include <memory>
#include <string>

#include "app/ports.h"

class QWidget;

namespace gui {

// Posts each message as an event to an object of the GUI thread; its
// Execute runs there between two other events, through `run` (the
// application's report loop), and the message is deleted afterwards.
// Messages still queued when the queue goes are deleted unexecuted.
class QtGuiQueue : public QObject, public app::GuiQueue {
 public:
  explicit QtGuiQueue(QObject* parent = nullptr);
  void post(std::unique_ptr<app::VLMessage> message) override;
  // Wraps every Execute; empty: Execute runs bare and its exception is lost
  // to the event loop, so the program sets this at once.
  std::function<void(const std::function<void()>&)> run;

 protected:
  bool event(QEvent* e) override;
};

// "A (x)|x|B|y||" to Qt's "A (x);;B (y)"; a pattern list "*.a;*.b" becomes
// "*.a *.b" inside the parentheses.
QString QtFilter(const std::string& filter);

class QtDialogs : public app::UserDialogs {
 public:
  // Dialogs are modal to `parent` once it is set.
  void set_parent(QWidget* parent) { parent_ = parent; }
  app::Answer ask(const std::string& text, app::Buttons buttons, app::Icon icon) override;
  std::optional<app::FileChoiceResult> choose_open_file(const app::FileChoice& choice) override;
  std::optional<app::FileChoiceResult> choose_save_file(const app::FileChoice& choice) override;
  std::unique_ptr<app::Progress> begin_progress(const std::string& title) override;
  void set_wait_cursor(bool busy) override;

 private:
  std::optional<app::FileChoiceResult> choose(const app::FileChoice& choice, bool save);
  QWidget* parent_ = nullptr;
  int busy_ = 0;
};

// The profile on QSettings: a section is a group, so "Layout/RightBarSize".
class QtProfileStore : public app::ProfileStore {
 public:
  // The desktop's store of "Kelvane", "Velomar".
  QtProfileStore();
  // An INI file of its own (tests).
  explicit QtProfileStore(const QString& ini_path);
  int64_t get_int(const std::string& section, const std::string& key, int64_t fallback) override;
  std::string get_string(const std::string& section,
                         const std::string& key,
                         const std::string& fallback) override;
  void set_int(const std::string& section, const std::string& key, int64_t value) override;
  void set_string(const std::string& section,
                  const std::string& key,
                  const std::string& value) override;
  QSettings& settings() { return *settings_; }

 private:
  std::unique_ptr<QSettings> settings_;
};

// The text goes as it is given: the core has put CR before every LF.
class QtClipboard : public app::Clipboard {
 public:
  bool set_text(const std::string& text) override;
};

// The freedesktop form of the file-type registration, under a data folder
// ($XDG_DATA_HOME, else ~/.local/share): a desktop entry, a MIME package for
// ".vlp" and ".ais", and the icon; the desktop's databases are refreshed
// when a file changed and their tools are installed.
class FreedesktopRegistration : public app::ShellRegistration {
 public:
  // Empty: the user's data folder.
  explicit FreedesktopRegistration(std::string data_home = {});
  void register_types(const std::string& program_path) override;
  void unregister_types() override;
  // The files it writes, under the data folder.
  std::string desktop_file() const;
  std::string mime_file() const;
  std::string icon_file() const;

 private:
  void refresh_databases() const;
  std::string data_home_;
};

// A file built into the program (the manual, the desktop files, the icon).
QByteArray Resource(const char* name);

// The desktop entry's text for the program at `program_path`.
std::string DesktopEntry(const std::string& program_path);

}  // namespace gui
