// SPDX-License-Identifier: GPL-3.0-or-later
// How a failed command is shown to the user.
#pragma once

#include <string>

namespace app {

class OperationStack;
class UserDialogs;

// "Error while <innermost>:\n" (or "Error while performing general
// operation:\n" with no operation running), then `text`, then "." unless
// the result ends in a line feed. Empties the whole stack.
std::string ErrorReportText(OperationStack& operations, const std::string& text);

// Shows ErrorReportText with the error icon and an OK button.
void ReportError(OperationStack& operations, UserDialogs& dialogs, const std::string& text);

}  // namespace app
