// SPDX-License-Identifier: GPL-3.0-or-later
// The commands of velomar-cli. Each takes its arguments after the command
// word and returns the exit status: 0 success, 1 failure (reported).
#pragma once

#include <string>
#include <vector>

namespace cli {

struct Command {
  const char* name;
  const char* summary;
  const char* help;  // full help text, usage line first
  int (*run)(const std::vector<std::string>& args);
};

int RunInfo(const std::vector<std::string>& args);
int RunSequence(const std::vector<std::string>& args);
int RunConvert(const std::vector<std::string>& args);
int RunDemoShot(const std::vector<std::string>& args);
int RunNew(const std::vector<std::string>& args);
int RunSegment(const std::vector<std::string>& args);
int RunExport(const std::vector<std::string>& args);
int RunOverlay(const std::vector<std::string>& args);
int RunSet(const std::vector<std::string>& args);
int RunTrack(const std::vector<std::string>& args);
int RunDemo(const std::vector<std::string>& args);
int RunLink(const std::vector<std::string>& args);
int RunPreview(const std::vector<std::string>& args);
int RunRender(const std::vector<std::string>& args);
int RunCoders(const std::vector<std::string>& args);
int RunBatch(const std::vector<std::string>& args);
int RunRelink(const std::vector<std::string>& args);

// info on a ".vlp": the project's settings, segments and overlay; 0 or 1.
// `yes` answers the questions opening the project may raise.
int PrintProjectInfo(const std::string& path, bool json, bool yes);

extern const Command kInfoCommand;
extern const Command kSequenceCommand;
extern const Command kConvertCommand;
extern const Command kDemoShotCommand;
extern const Command kNewCommand;
extern const Command kSegmentCommand;
extern const Command kExportCommand;
extern const Command kOverlayCommand;
extern const Command kSetCommand;
extern const Command kTrackCommand;
extern const Command kDemoCommand;
extern const Command kLinkCommand;
extern const Command kPreviewCommand;
extern const Command kRenderCommand;
extern const Command kCodersCommand;
extern const Command kBatchCommand;
extern const Command kRelinkCommand;

}  // namespace cli
