// One run of a project command: the application object over headless ports,
// answering questions from the command's flags.
#pragma once

#include <functional>
#include <string>

#include "app/commands/application.h"
#include "app/message_queue.h"
#include "app/profile_store.h"
#include "app/scripted_dialogs.h"

class VLComp;

namespace cli {

// Notices pass; a question gets its "yes" button with --yes and fails the
// command with its own text without it, so a script never agrees by default.
class FlagDialogs : public app::ScriptedDialogs {
 public:
  explicit FlagDialogs(bool yes)
      : ScriptedDialogs(yes ? Mode::Affirmative : Mode::Scripted), yes_(yes) {}
  app::Answer ask(const std::string& text, app::Buttons buttons, app::Icon icon) override;

 private:
  bool yes_;
};

class ProjectSession {
 public:
  explicit ProjectSession(bool yes);
  app::Velomar& app() { return app_; }
  VLComp& comp();
  // Runs `command` and returns 0; a failure is reported through the
  // application's operation stack (and as {"error": ...} with `json`) and
  // gives 1. Agreed questions are listed on standard error.
  int Run(const std::function<void()>& command, bool json);
  // Opens the project; throws when it cannot be read.
  void Open(const std::string& path);

 private:
  app::MessageQueue queue_;
  FlagDialogs dialogs_;
  // Each command starts from the default preferences: a script's result must
  // not depend on the desktop settings of whoever runs it.
  app::MemoryProfileStore profile_;
  app::Velomar app_;
};

// A frame as the user numbers it (index plus the composition's start frame)
// from command-line text. Throws UsageError naming `what`.
int32_t ParseUserFrame(const std::string& text, const std::string& what);

}  // namespace cli
