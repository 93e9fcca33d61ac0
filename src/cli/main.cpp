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

#include "cli/commands.h"
#include "cli/options.h"

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
               "velomar-cli <command> --help tells more. Any failure, a usage mistake\n"
               "included, exits with status 1 and a report on standard error.\n");
}

// Where a crash report goes besides standard error: the user's state folder
// ($XDG_STATE_HOME, else ~/.local/state), else the temporary folder.
std::string CrashFilePath() {
  namespace fs = std::filesystem;
  fs::path base;
  if (const char* state = std::getenv("XDG_STATE_HOME"); state && *state) {
    base = state;
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    base = fs::path(home) / ".local" / "state";
  } else {
    base = fs::temp_directory_path();
  }
  std::error_code ec;
  fs::create_directories(base / "velomar", ec);
  if (ec) return (fs::temp_directory_path() / "velomar-cli-crash.txt").string();
  return (base / "velomar" / "velomar-cli-crash.txt").string();
}

// Where the standard logging stream goes: nowhere. Workers log their
// failures there ("thread error: ..."), and the commands report the same
// failures in their own words; a second, unterminated copy would only cut
// into the progress lines. The tracker's own log goes to VL_DEBUG_DIR.
class DiscardingBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return traits_type::not_eof(c); }
};

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
      std::fprintf(stderr, "velomar-cli %s: %s\n", c->name, e.what());
      const char* end = std::strchr(c->help, '\n');
      std::fprintf(stderr, "%.*s\n", int(end ? end - c->help : std::strlen(c->help)), c->help);
      return 1;
    } catch (const std::exception& e) {
      // Commands report their own failures; this is the last line of defence.
      std::fprintf(stderr, "Error while performing general operation:\n%s.\n", e.what());
      return 1;
    }
  }
  std::fprintf(stderr, "velomar-cli: unknown command '%s'\n\n", word.c_str());
  PrintToolHelp(stderr);
  return 1;
}
