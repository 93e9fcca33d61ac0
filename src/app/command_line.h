// SPDX-License-Identifier: GPL-3.0-or-later
// What the program's command line asks for: "reg" or "unreg" (writing or
// removing the file-type registration and then ending), and one file to open.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace app {

struct VLCommandLineInfo {
  bool registerOnly = false;
  bool unregisterOnly = false;
  // The last token without a switch prefix.
  std::string fileName;

  // One token (not the program's name). A switch starts with "-" or "/" and
  // is compared exactly and case-sensitively with "reg" and "unreg"; any
  // other switch is ignored.
  //
  // "/" also starts every absolute path here, so a "/" token counts as a
  // switch only when it is "/reg" or "/unreg"; anything else is a file name.
  // Treating "/home/..." as an ignored switch would silently drop the file.
  void ParseParam(const std::string& token);
};

// Every argument after the program's name, in order.
VLCommandLineInfo ParseCommandLine(int argc, const char* const* argv);
VLCommandLineInfo ParseCommandLine(const std::vector<std::string>& arguments);

// The file to open after start-up: `fileName` made absolute when it names an
// existing file (not a folder); nothing otherwise, silently.
std::optional<std::string> StartupFile(const VLCommandLineInfo& info);

// Whether the path is opened as a project rather than loaded as a sequence:
// its extension is ".vlp" in any case.
bool IsProjectPath(const std::string& path);

}  // namespace app
