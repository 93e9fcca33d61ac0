// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/messages.h"

namespace app {

void AsyncMessageBox::Execute() {
  dialogs_.inform(text_, icon_);
}

void ChangeCursorMessage::Execute() {
  dialogs_.set_wait_cursor(busy_);
}

void PostMessageBox(GuiQueue& queue, UserDialogs& dialogs, std::string text) {
  queue.post(std::make_unique<AsyncMessageBox>(dialogs, std::move(text)));
}

void PostCursor(GuiQueue& queue, UserDialogs& dialogs, bool busy) {
  queue.post(std::make_unique<ChangeCursorMessage>(dialogs, busy));
}

}  // namespace app
