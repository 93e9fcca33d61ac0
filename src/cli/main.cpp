// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli: Velomar's engine without a window.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <streambuf>
#include <string>
#include <vector>

#include "base/crash_report.h"

#include "base/paths.h"
#include "cli/commands.h"
#include "cli/options.h"
#include "cli/report.h"

namespace {

const cli::Command* const kCommands[] = {
    &cli::kInfoCommand,    &cli::kSequenceCommand, &cli::kConvertCommand, &cli::kDemoShotCommand,
    &cli::kNewCommand,     &cli::kSegmentCommand,  &cli::kOverlayCommand, &cli::kSetCommand,
    &cli::kExportCommand,  &cli::kTrackCommand,    &cli::kDemoCommand,    &cli::kLinkCommand,
    &cli::kPreviewCommand, &cli::kRenderCommand,   &cli::kCodersCommand,  &cli::kBatchCommand,
    &cli::kRelinkCommand,
};

void PrintToolHelp(FILE* out) {
  std::fprintf(out,
               "usage: velomar-cli <command> [options] [arguments]\n"
               "\n"
               "Velomar's motion tracking engine without a window.\n"
               "\n"
               "Commands:\n");
  for (const auto* c : kCommands) std::fprintf(out, "  %-10s %s\n", c->name, c->summary);
  std::fprintf(out,
               "\n"
               "velomar-cli <command> --help tells more; velomar-cli --version the version.\n"
               "Any failure, a usage mistake included, exits with status 1 and a report\n"
               "on standard error (\"Error while ...\"), and with --json an object\n"
               "{\"error\": ...} on standard output.\n");
}

// Where a crash report goes besides standard error: the user's state folder
// ($XDG_STATE_HOME, else ~/.local/state), else the temporary folder.
std::string CrashFilePath() {
  return StateFolderPath("velomar-cli-crash.txt");
}

// Where the standard logging stream goes: nowhere. Workers log their
// failures there ("thread error: ..."), and the commands report the same
// failures in their own words; a second, unterminated copy would only cut
// into the progress lines. The tracker's own log goes to VL_DEBUG_DIR.
class DiscardingBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return traits_type::not_eof(c); }
};

bool WantsJson(const std::vector<std::string>& args) {
  for (const auto& a : args)
    if (a == "--json") return true;
  return false;
}

// A usage mistake is a failure like any other: the same report, the same
// JSON object, then the command's usage line to show the right form.
int ReportUsage(const std::exception& e, const std::vector<std::string>& args, const char* usage) {
  cli::ReportFailure("reading the command line", e, WantsJson(args));
  if (usage) {
    const char* end = std::strchr(usage, '\n');
    std::fprintf(stderr, "%.*s\n", int(end ? end - usage : std::strlen(usage)), usage);
  } else {
    std::fprintf(stderr, "velomar-cli --help lists the commands\n");
  }
  return 1;
}

bool WantsHelp(const std::vector<std::string>& args) {
  for (const auto& a : args)
    if (a == "--help" || a == "-h") return true;
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  // Before any worker starts: the stream is shared by all threads. Never
  // freed: the standard streams are flushed after static objects are gone.
  std::clog.rdbuf(new DiscardingBuffer);
  try {
    InstallCrashHandler(CrashFilePath());
  } catch (const std::exception& e) {
    std::fprintf(stderr, "velomar-cli: no crash report on this run: %s\n", e.what());
  }
  if (argc < 2) {
    PrintToolHelp(stderr);
    return 1;
  }
  const std::string word = argv[1];
  if (word == "--help" || word == "-h" || word == "help") {
    PrintToolHelp(stdout);
    return 0;
  }
  if (word == "--version") {
    std::printf("velomar-cli %s\n", VELOMAR_VERSION);
    return 0;
  }
  std::vector<std::string> args(argv + 2, argv + argc);
  for (const auto* c : kCommands) {
    if (word != c->name) continue;
    if (WantsHelp(args)) {
      std::fputs(c->help, stdout);
      return 0;
    }
    try {
      return c->run(args);
    } catch (const cli::UsageError& e) {
      return ReportUsage(e, args, c->help);
    } catch (const std::exception& e) {
      // Commands report their own failures; this is the last line of defence.
      return cli::ReportFailure("performing general operation", e, WantsJson(args));
    }
  }
  std::string known;
  for (const auto* c : kCommands) known += std::string(known.empty() ? "" : ", ") + c->name;
  return ReportUsage(cli::UsageError("unknown command '" + word + "' (known: " + known + ")"), args,
                     nullptr);
}
