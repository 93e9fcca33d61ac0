// One run of a project command: the application object over headless ports,
// answering questions from the command's flags.
#pragma once

#include <functional>
#include <string>
#include <vector>

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
  const FlagDialogs& dialogs() const { return dialogs_; }
  VLComp& comp();
  // Runs `command` and returns 0; a failure is reported through the
  // application's operation stack (and as {"error": ...} with `json`) and
  // gives 1. Agreed questions are listed on standard error.
  // `operation` names the command in a report when it fails before the
  // application has pushed an operation of its own.
  int Run(const std::function<void()>& command, bool json, const char* operation = nullptr);
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

// A frame index from 0, as the project file and `info` number frames, from
// command-line text; the start frame plays no part. Throws UsageError naming `what`.
int32_t ParseFrameIndex(const std::string& text, const std::string& what);

// The texts of the notices (OK-only messages) the command showed, in order.
std::vector<std::string> Notices(const app::ScriptedDialogs& dialogs);

}  // namespace cli
