// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/report_error.h"

#include "app/operation_stack.h"
#include "app/ports.h"

namespace app {

std::string ErrorReportText(OperationStack& operations, const std::string& text) {
  std::string report;
  if (!operations.empty()) {
    report = "Error while " + operations.innermost() + ":\n";
    operations.clear();
  } else {
    report = "Error while performing general operation:\n";
  }
  report += text;
  // The test is on the whole report: an empty text leaves the header's line
  // feed last, and then no stop is added.
  if (report.back() != '\n') report += '.';
  return report;
}

void ReportError(OperationStack& operations, UserDialogs& dialogs, const std::string& text) {
  const std::string report = ErrorReportText(operations, text);
  dialogs.ask(report, Buttons::Ok, Icon::Error);
}

}  // namespace app
