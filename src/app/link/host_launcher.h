// SPDX-License-Identifier: GPL-3.0-or-later
// The compositing host as a program to find and start. The launch command
// is the user's setting "HostCommand" in the section "Preferences" (a
// command line: words split at blanks, quotes group, backslash escapes).
// Finding and fronting the host's window needs the desktop's help; without
// a finder given, no window is ever found, so the command launches.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/ports.h"

namespace app::link {

inline constexpr const char* kHostCommandSection = "Preferences";
inline constexpr const char* kHostCommandKey = "HostCommand";

// Splits a command line into words: blanks separate, '...' takes every
// character literally, "..." all but \" and \\, and a backslash outside
// quotes takes the next character. Throws std::runtime_error for an
// unclosed quote.
std::vector<std::string> SplitCommandLine(const std::string& line);

struct HostWindow {
  // True when the host's window exists.
  std::function<bool()> find;
  // Brings it to the front (restoring it when minimised); false on failure.
  std::function<bool()> front;
};

class HostLauncher : public HostApplication {
 public:
  explicit HostLauncher(ProfileStore& profile, HostWindow window = {});

  // The launch command; read again while it is empty, kept once found.
  const std::string& GetHostCommand();
  bool FindHostWindow();
  // Fronts the window when there is one; SystemError "SetForegroundWindow"
  // when that fails.
  void SwitchToHost();
  // Starts the command and does not wait for it. SystemError
  // "CreateProcess(AE)" when it cannot start (no command, no such program).
  void LaunchHost();

  // HostApplication: the window exists / front it, or launch.
  bool is_running() override { return FindHostWindow(); }
  void activate_or_launch() override;

 private:
  ProfileStore& profile_;
  HostWindow window_;
  std::string command_;
};

}  // namespace app::link
