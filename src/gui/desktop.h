// SPDX-License-Identifier: GPL-3.0-or-later
// The desktop program as one object: the ports over Qt, the tracker, the
// application core, the main window and its preview, the host link and its
// server, and the window's presenter, made and ended in a safe order. The
// program's main and the window's tests make the same object.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/commands/window_presenter.h"

class VLPropertyGrid;
class VLTrackline;

namespace app {
class MaskEditor;
class Processor;
class ProfileStore;
class UserDialogs;
class VLView;
class Velomar;
namespace link {
class HostLauncher;
class HostLink;
class Sleeper;
}  // namespace link
}  // namespace app

namespace gui {

class MainFrame;
class QtClipboard;
class QtDialogs;
class QtGuiQueue;
class QtProfileStore;

struct DesktopOptions {
  // Null: the Qt dialogs and the desktop's settings of "Kelvane", "Velomar".
  app::UserDialogs* dialogs = nullptr;
  app::ProfileStore* profile = nullptr;
  // Serve the host's plug-in on this socket; empty: the usual one.
  std::string link_path = {};
  bool serve_link = true;
};

class Desktop {
 public:
  explicit Desktop(DesktopOptions options = {});
  // Stops tracking and compositing, writes the layout and preferences back.
  ~Desktop();
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;

  MainFrame& frame() { return *frame_; }
  app::Velomar& app() { return *app_; }
  app::VLView& view() { return *view_; }
  app::MaskEditor& editor() { return *editor_; }
  VLTrackline& trackline() { return *trackline_; }
  VLPropertyGrid& property_grid() { return *grid_; }
  app::WindowPresenter& presenter() { return *presenter_; }
  app::Processor& processor() { return *processor_; }
  app::UserDialogs& dialogs() { return *dialogs_; }
  app::ProfileStore& profile() { return *profile_; }
  QtGuiQueue& queue() { return *queue_; }
  // Null when another instance serves the link.
  app::link::Sleeper* sleeper() { return sleeper_.get(); }

  // Opens a project or a sequence through the message loop, as a file
  // named on the command line is.
  void post_open(const std::string& path);
  // Runs the messages waiting for the window's thread.
  void pump();

 private:
  std::unique_ptr<QtGuiQueue> queue_;
  std::unique_ptr<QtDialogs> own_dialogs_;
  std::unique_ptr<QtProfileStore> own_profile_;
  app::UserDialogs* dialogs_;
  app::ProfileStore* profile_;
  std::unique_ptr<QtClipboard> clipboard_;
  std::unique_ptr<MainFrame> frame_;
  std::unique_ptr<app::Processor> processor_;
  std::unique_ptr<app::Velomar> app_;
  std::unique_ptr<app::VLView> view_;
  std::unique_ptr<app::MaskEditor> editor_;
  VLTrackline* trackline_ = nullptr;  // owned by the frame
  VLPropertyGrid* grid_ = nullptr;    // owned by the frame
  std::unique_ptr<app::link::HostLauncher> launcher_;
  std::unique_ptr<app::link::HostLink> link_;
  std::unique_ptr<app::link::Sleeper> sleeper_;
  std::unique_ptr<app::WindowPresenter> presenter_;
};

// Where a crash report of the window goes: the user's state folder
// ($XDG_STATE_HOME, else ~/.local/state) under "velomar".
std::string CrashFilePath();
// The report a crash left that the user has not seen yet; it is marked as
// seen in `profile` (section "Crash"), and the file itself stays.
std::optional<std::string> UnseenCrashReport(app::ProfileStore& profile, const std::string& path);

// The manual, written out of the program into the user's cache folder so
// that the desktop's browser can open it; its path.
std::string WriteManual();

}  // namespace gui
