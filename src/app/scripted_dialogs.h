// SPDX-License-Identifier: GPL-3.0-or-later
// UserDialogs without a window. The tests queue the user's answers in advance
// and read back every question the core asked, in order; velomar-cli's --yes
// uses the affirmative mode, in which every question gets its "yes" button
// and is still recorded (so the command can print what it agreed to).
//
// A question or file choice with no answer scripted is a fault of the test
// or of the command's flags: it throws std::logic_error naming the question,
// rather than guessing an answer.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/ports.h"

namespace app {

struct AskedQuestion {
  std::string text;
  Buttons buttons;
  Icon icon;
  Answer answer;
};

struct AskedFileChoice {
  bool save;  // false: an open dialog
  FileChoice choice;
  std::optional<FileChoiceResult> result;
};

struct ProgressRecord {
  std::string title;
  // Every update in order.
  struct Step {
    int64_t done;
    int64_t total;
    std::string text;
  };
  std::vector<Step> steps;
  bool closed = false;
};

// The button that says yes to a question with these buttons: Ok or Yes.
Answer AffirmativeAnswer(Buttons buttons);
// Whether `answer` is one of the buttons offered.
bool IsOffered(Buttons buttons, Answer answer);

class ScriptedDialogs : public UserDialogs {
 public:
  enum class Mode {
    Scripted,     // answers come from answer(); none left is a fault
    Affirmative,  // every question with no scripted answer gets Ok or Yes
  };

  explicit ScriptedDialogs(Mode mode = Mode::Scripted) : mode_(mode) {}

  // Queues the answer of the next question (notices with only an OK button
  // take none). An answer that is not among the
  // question's buttons is a fault of the test (logic_error when asked).
  void answer(Answer next) { answers_.push_back(next); }
  // Queues the result of the next file choice (open or save); nullopt
  // stands for the user cancelling.
  void choose_file(std::optional<FileChoiceResult> next) { files_.push_back(std::move(next)); }
  void choose_file(const std::string& path, bool check_box = false) {
    choose_file(FileChoiceResult{path, check_box});
  }
  // From now on progress displays report cancelled().
  void cancel_progress() { *progress_cancelled_ = true; }

  Answer ask(const std::string& text, Buttons buttons, Icon icon) override;
  std::optional<FileChoiceResult> choose_open_file(const FileChoice& choice) override;
  std::optional<FileChoiceResult> choose_save_file(const FileChoice& choice) override;
  std::unique_ptr<Progress> begin_progress(const std::string& title) override;
  void set_wait_cursor(bool busy) override;

  const std::vector<AskedQuestion>& questions() const { return questions_; }
  const std::vector<AskedFileChoice>& file_choices() const { return file_choices_; }
  // Records stay valid after their display closed.
  const std::vector<std::shared_ptr<ProgressRecord>>& progress() const { return progress_; }
  // Every set_wait_cursor call in order.
  const std::vector<bool>& cursor_changes() const { return cursor_changes_; }
  bool wait_cursor() const { return !cursor_changes_.empty() && cursor_changes_.back(); }
  // Scripted answers and file choices not yet consumed.
  size_t unused_answers() const { return answers_.size(); }
  size_t unused_file_choices() const { return files_.size(); }

 private:
  std::optional<FileChoiceResult> next_file(bool save, const FileChoice& choice);

  Mode mode_;
  std::deque<Answer> answers_;
  std::deque<std::optional<FileChoiceResult>> files_;
  std::vector<AskedQuestion> questions_;
  std::vector<AskedFileChoice> file_choices_;
  std::vector<std::shared_ptr<ProgressRecord>> progress_;
  std::shared_ptr<bool> progress_cancelled_ = std::make_shared<bool>(false);
  std::vector<bool> cursor_changes_;
};

}  // namespace app
