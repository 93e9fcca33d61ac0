// SPDX-License-Identifier: GPL-3.0-or-later
// Messages that workers post to the owning thread and that need nothing of
// the project: a notice, and the busy cursor. Workers never show a dialog
// or change the cursor themselves; they post one of these.
#pragma once

#include <memory>
#include <string>

#include "app/ports.h"

namespace app {

// Shows the text in a message box (an information box unless told) when run.
class AsyncMessageBox : public VLMessage {
 public:
  AsyncMessageBox(UserDialogs& dialogs, std::string text, Icon icon = Icon::Information)
      : dialogs_(dialogs), text_(std::move(text)), icon_(icon) {}
  void Execute() override;
  const std::string& text() const { return text_; }

 private:
  UserDialogs& dialogs_;
  std::string text_;
  Icon icon_;
};

// Turns the busy cursor on or off when run.
class ChangeCursorMessage : public VLMessage {
 public:
  ChangeCursorMessage(UserDialogs& dialogs, bool busy) : dialogs_(dialogs), busy_(busy) {}
  void Execute() override;

 private:
  UserDialogs& dialogs_;
  bool busy_;
};

// Shorthands for workers: post the message to the owning thread.
void PostMessageBox(GuiQueue& queue, UserDialogs& dialogs, std::string text);
void PostCursor(GuiQueue& queue, UserDialogs& dialogs, bool busy);

}  // namespace app
