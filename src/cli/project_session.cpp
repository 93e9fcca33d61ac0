// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/project_session.h"

#include <charconv>
#include <cstdio>
#include <stdexcept>

#include "app/commands/project_files.h"
#include "app/model/comp.h"
#include "app/work/processor.h"
#include "cli/frames.h"
#include "cli/options.h"
#include "cli/report.h"
#include "imaging/global_cache.h"

namespace cli {

app::Answer FlagDialogs::ask(const std::string& text, app::Buttons buttons, app::Icon icon) {
  // The question stays a question; the line after it says what was answered.
  if (buttons != app::Buttons::Ok && !yes_)
    throw std::runtime_error(text + "\nAnswered no: give --yes to answer yes");
  return ScriptedDialogs::ask(text, buttons, icon);
}

ProjectSession::ProjectSession(bool yes, bool tracker)
    : dialogs_(yes),
      processor_(tracker ? std::make_unique<app::Processor>(
                               app::ProcessorPorts{.queue = queue_,
                                                   .dialogs = dialogs_,
                                                   .cache = img::global_cache(),
                                                   .prefetcher = &img::global_prefetcher(),
                                                   .pump = [this] { queue_.pump(); }})
                         : nullptr),
      app_({.queue = queue_,
            .dialogs = dialogs_,
            .profile = profile_,
            .files = app::ProjectFiles(),
            .jobs = processor_.get()}) {}

ProjectSession::~ProjectSession() {
  if (!processor_) return;
  try {
    processor_->cancel_all_and_wait();
  } catch (const std::exception&) {
    // A message that fails while the session ends has no one left to tell.
  }
}

VLComp& ProjectSession::comp() {
  return app_.GetComposition();
}

void ProjectSession::Open(const std::string& path) {
  if (!app_.OpenDocumentFile(path) || !app_.IsProjectOpen())
    throw std::runtime_error("could not open project: " + path);
  ReportGaps(comp().GetUnderlay());
}

int ProjectSession::Run(const std::function<void()>& command, bool json, const char* operation) {
  try {
    if (operation) app_.GetOperations().push(operation);
    command();
    if (operation) app_.GetOperations().pop();
    queue_.pump();
  } catch (const UsageError&) {
    throw;
  } catch (const std::exception& e) {
    return ReportFailure(app_.GetOperations(), e, json);
  }
  for (const auto& q : dialogs_.questions()) {
    if (q.buttons == app::Buttons::Ok) continue;
    std::string line = q.text;
    for (char& c : line)
      if (c == '\n') c = ' ';
    std::fprintf(stderr, "velomar-cli: answered yes: %s\n", line.c_str());
  }
  return 0;
}

int32_t ParseFrameIndex(const std::string& text, const std::string& what) {
  int32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec != std::errc() || ptr != end)
    throw UsageError(what + " needs a frame index from 0, not '" + text + "'");
  return value;
}

std::vector<std::string> Notices(const app::ScriptedDialogs& dialogs) {
  std::vector<std::string> texts;
  for (const auto& q : dialogs.questions())
    if (q.buttons == app::Buttons::Ok) texts.push_back(q.text);
  return texts;
}

}  // namespace cli
