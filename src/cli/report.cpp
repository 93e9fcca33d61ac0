// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/report.h"

#include <cstdio>
#include <regex>

#include "app/operation_stack.h"
#include "app/report_error.h"
#include "cli/json.h"
#include "imaging/avi_writer.h"
#include "imaging/io_types.h"

namespace cli {

std::string ReportText(const std::string& operation, const std::string& text) {
  app::OperationStack operations;
  operations.push(operation);
  return app::ErrorReportText(operations, text);
}

std::string WithoutStagingNames(const std::string& text) {
  // The files a result is written through before it takes its name: hidden
  // ".NAME.staging-HOST-PID-N" beside the target. The user asked for NAME
  // and knows nothing of the other.
  static const std::regex hidden(R"((^|[/\s(])\.([^/\s]+?)\.staging-[^/\s-]+-[0-9]+-[0-9]+)");
  return std::regex_replace(text, hidden, "$1$2");
}

std::string FailureText(const std::exception& e) {
  return WithoutStagingNames(RawFailureText(e));
}

std::string RawFailureText(const std::exception& e) {
  std::string text = e.what();
  if (const auto* io = dynamic_cast<const img::io_error*>(&e)) {
    if (!io->file().empty() && text.find(io->file()) == std::string::npos) {
      text += ": ";
      text += io->file();
    }
    if (!io->detail().empty()) {
      text += " (";
      text += io->detail();
      text += ")";
    }
  } else if (const auto* avi = dynamic_cast<const img::avi::exception*>(&e)) {
    // The coder's fixed text says which step failed; the library's own
    // reason says why.
    if (!avi->detail().empty()) text += " (" + avi->detail() + ")";
  }
  return text;
}

namespace {

int PrintFailure(const std::string& report, const std::string& text, bool json) {
  std::fprintf(stderr, "%s\n", report.c_str());
  if (json) {
    Json j;
    j.begin_object().key("error").value(text).end_object();
    std::printf("%s\n", j.str().c_str());
  }
  return 1;
}

}  // namespace

int ReportFailure(const std::string& operation, const std::exception& e, bool json) {
  const std::string text = FailureText(e);
  return PrintFailure(ReportText(operation, text), text, json);
}

int ReportFailure(app::OperationStack& operations, const std::exception& e, bool json) {
  const std::string text = FailureText(e);
  return PrintFailure(app::ErrorReportText(operations, text), text, json);
}

}  // namespace cli
