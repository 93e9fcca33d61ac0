// One run of a project command: the application object over headless ports,
// answering questions from the command's flags.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/commands/application.h"
#include "app/message_queue.h"
#include "app/profile_store.h"
#include "app/scripted_dialogs.h"

class VLComp;

namespace app {
class Processor;
}

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
  // With `tracker`, the session has a tracking worker of its own, an
  // app::Processor over the program's frame cache and prefetcher that the
  // composition's jobs go to, as in the window; without, no segment tracks.
  explicit ProjectSession(bool yes, bool tracker = false);
  // Stops any tracking first: the worker must not outlive the segments.
  ~ProjectSession();
  ProjectSession(const ProjectSession&) = delete;
  ProjectSession& operator=(const ProjectSession&) = delete;
  app::Velomar& app() { return app_; }
  // Null without a tracker.
  app::Processor* processor() { return processor_.get(); }
  const FlagDialogs& dialogs() const { return dialogs_; }
  // The owning thread's messages; a command that waits for a worker pumps it.
  app::MessageQueue& queue() { return queue_; }
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
  std::unique_ptr<app::Processor> processor_;
  app::Velomar app_;
};

// A frame index from 0, as the project file and `info` number frames, from
// command-line text; the start frame plays no part. Throws UsageError naming `what`.
int32_t ParseFrameIndex(const std::string& text, const std::string& what);

// The texts of the notices (OK-only messages) the command showed, in order.
std::vector<std::string> Notices(const app::ScriptedDialogs& dialogs);

}  // namespace cli
