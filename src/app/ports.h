// SPDX-License-Identifier: GPL-3.0-or-later
// How the application core reaches the outside world. The core never calls a
// window system: each program (the desktop GUI, velomar-cli, the tests)
// implements these small interfaces, so every command runs headless.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace app {

// A message from any thread to the thread that owns the composition. Its
// Execute runs there, between two other messages; the receiver owns it.
class VLMessage {
 public:
  virtual ~VLMessage() = default;
  virtual void Execute() = 0;
};

// Carries messages to the owning thread. post() may be called from any
// thread, never blocks and never waits for execution.
class GuiQueue {
 public:
  virtual ~GuiQueue() = default;
  virtual void post(std::unique_ptr<VLMessage> message) = 0;
};

enum class Icon { None, Information, Question, Warning, Error };
enum class Buttons { Ok, OkCancel, YesNo, YesNoCancel };
enum class Answer { Ok, Cancel, Yes, No };

// A file dialog's request. `filter` is in the "A (x)|x|B|y||" form; the GUI
// adapter converts it to its toolkit's form.
struct FileChoice {
  std::string title;
  std::string filter;
  std::string default_extension;  // without the dot
  bool must_exist = false;        // open: the file must exist
  bool overwrite_prompt = false;  // save: ask before replacing
  bool path_must_exist = false;   // save: the folder must exist
  // An extra check box of the dialog ("Force Static Overlay"); empty for none.
  std::string check_box;
};

struct FileChoiceResult {
  std::string path;
  bool check_box = false;
};

// Long work reports here; the user may cancel.
class Progress {
 public:
  virtual ~Progress() = default;
  // `done` of `total` units; `text` says what is being done.
  virtual void update(int64_t done, int64_t total, const std::string& text) = 0;
  virtual bool cancelled() const = 0;
};

// Questions, notices, file choice, progress and the wait cursor.
class UserDialogs {
 public:
  virtual ~UserDialogs() = default;
  // A modal question or notice with its fixed text, buttons and icon.
  virtual Answer ask(const std::string& text, Buttons buttons, Icon icon) = 0;
  void inform(const std::string& text, Icon icon = Icon::Information) {
    ask(text, Buttons::Ok, icon);
  }
  // Nothing when the user cancels.
  virtual std::optional<FileChoiceResult> choose_open_file(const FileChoice& choice) = 0;
  virtual std::optional<FileChoiceResult> choose_save_file(const FileChoice& choice) = 0;
  // A progress display for work that may take long; it closes when destroyed.
  virtual std::unique_ptr<Progress> begin_progress(const std::string& title) = 0;
  virtual void set_wait_cursor(bool busy) = 0;
};

// Preferences by section and key ("Preferences", "Time", "DisplayStyle", "Layout").
class ProfileStore {
 public:
  virtual ~ProfileStore() = default;
  virtual int64_t get_int(const std::string& section, const std::string& key, int64_t fallback) = 0;
  virtual std::string get_string(const std::string& section,
                                 const std::string& key,
                                 const std::string& fallback) = 0;
  virtual void set_int(const std::string& section, const std::string& key, int64_t value) = 0;
  virtual void set_string(const std::string& section,
                          const std::string& key,
                          const std::string& value) = 0;
};

// The preview's surface.
class ViewSurface {
 public:
  virtual ~ViewSurface() = default;
  virtual void invalidate() = 0;
  virtual void start_play_timer(uint32_t interval_ms) = 0;
  virtual void stop_play_timer() = 0;
  virtual void set_image_size(uint32_t width, uint32_t height) = 0;
};

class Clipboard {
 public:
  virtual ~Clipboard() = default;
  // False when the clipboard cannot be opened.
  virtual bool set_text(const std::string& text) = 0;
};

// The compositing host's window and launch.
class HostApplication {
 public:
  virtual ~HostApplication() = default;
  virtual bool is_running() = 0;
  virtual void activate_or_launch() = 0;
};

// File-type registration with the desktop.
class ShellRegistration {
 public:
  virtual ~ShellRegistration() = default;
  virtual void register_types(const std::string& program_path) = 0;
  virtual void unregister_types() = 0;
};

}  // namespace app
