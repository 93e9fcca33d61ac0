// SPDX-License-Identifier: GPL-3.0-or-later
// How velomar-cli reports a failure: the program's report form on standard
// error, and with --json an {"error": ...} object on standard output.
#pragma once

#include <exception>
#include <string>

namespace app {
class OperationStack;
}

namespace cli {

// "Error while <operation>:\n<text>", with a final "." unless the text ends
// in a line feed.
std::string ReportText(const std::string& operation, const std::string& text);

// The text of a failure, naming the file where the exception knows it and
// its message does not already, and adding the reader's detail (what in the
// file was wrong) or the video coder's reason in parentheses.
// No name of a staging file appears in it: those read as the target's.
std::string FailureText(const std::exception& e);
std::string RawFailureText(const std::exception& e);

// `text` with the names of staging files replaced by their targets' names.
std::string WithoutStagingNames(const std::string& text);

// Prints the failure and returns the exit status 1.
int ReportFailure(const std::string& operation, const std::exception& e, bool json);

// The same for a failure inside the application object: the innermost
// operation on its stack names what failed, and the stack is emptied.
int ReportFailure(app::OperationStack& operations, const std::exception& e, bool json);

}  // namespace cli
