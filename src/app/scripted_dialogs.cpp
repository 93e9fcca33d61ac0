// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/scripted_dialogs.h"

#include <stdexcept>
#include <utility>

namespace app {
namespace {

class ScriptedProgress : public Progress {
 public:
  ScriptedProgress(std::shared_ptr<ProgressRecord> record, std::shared_ptr<bool> cancelled)
      : record_(std::move(record)), cancelled_(std::move(cancelled)) {}
  ~ScriptedProgress() override { record_->closed = true; }

  void update(int64_t done, int64_t total, const std::string& text) override {
    record_->steps.push_back({done, total, text});
  }
  bool cancelled() const override { return *cancelled_; }

 private:
  std::shared_ptr<ProgressRecord> record_;
  std::shared_ptr<bool> cancelled_;
};

}  // namespace

Answer AffirmativeAnswer(Buttons buttons) {
  switch (buttons) {
    case Buttons::Ok:
    case Buttons::OkCancel:
      return Answer::Ok;
    case Buttons::YesNo:
    case Buttons::YesNoCancel:
      return Answer::Yes;
  }
  throw std::logic_error("unknown button set");
}

bool IsOffered(Buttons buttons, Answer answer) {
  switch (buttons) {
    case Buttons::Ok:
      return answer == Answer::Ok;
    case Buttons::OkCancel:
      return answer == Answer::Ok || answer == Answer::Cancel;
    case Buttons::YesNo:
      return answer == Answer::Yes || answer == Answer::No;
    case Buttons::YesNoCancel:
      return answer == Answer::Yes || answer == Answer::No || answer == Answer::Cancel;
  }
  return false;
}

Answer ScriptedDialogs::ask(const std::string& text, Buttons buttons, Icon icon) {
  Answer answer;
  if (buttons == Buttons::Ok) {
    // A notice has one button: it takes no scripted answer, so notices
    // between two questions do not shift the script.
    answer = Answer::Ok;
  } else if (!answers_.empty()) {
    answer = answers_.front();
    answers_.pop_front();
  } else if (mode_ == Mode::Affirmative) {
    answer = AffirmativeAnswer(buttons);
  } else {
    throw std::logic_error("no answer scripted for the question \"" + text + "\"");
  }
  if (!IsOffered(buttons, answer))
    throw std::logic_error("the scripted answer is not a button of the question \"" + text + "\"");
  questions_.push_back({text, buttons, icon, answer});
  return answer;
}

std::optional<FileChoiceResult> ScriptedDialogs::next_file(bool save, const FileChoice& choice) {
  if (files_.empty())
    throw std::logic_error("no file scripted for the dialog \"" + choice.title + "\"");
  std::optional<FileChoiceResult> result = std::move(files_.front());
  files_.pop_front();
  file_choices_.push_back({save, choice, result});
  return result;
}

std::optional<FileChoiceResult> ScriptedDialogs::choose_open_file(const FileChoice& choice) {
  return next_file(false, choice);
}

std::optional<FileChoiceResult> ScriptedDialogs::choose_save_file(const FileChoice& choice) {
  return next_file(true, choice);
}

std::unique_ptr<Progress> ScriptedDialogs::begin_progress(const std::string& title) {
  auto record = std::make_shared<ProgressRecord>();
  record->title = title;
  progress_.push_back(record);
  return std::make_unique<ScriptedProgress>(record, progress_cancelled_);
}

void ScriptedDialogs::set_wait_cursor(bool busy) {
  cursor_changes_.push_back(busy);
}

}  // namespace app
