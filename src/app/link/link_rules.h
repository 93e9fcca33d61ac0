// SPDX-License-Identifier: GPL-3.0-or-later
// The host link's commands as the panel and the menu "&After Effects" show
// them: when each is enabled and what it reads, as pure functions over a
// snapshot, and their fixed words.
#pragma once

#include <string>

#include "exchange/link/records.h"

namespace app::link {

// Operation names of the requests, for failure reports.
inline constexpr const char* kRequestingUnderlay = "requesting AE for underlay";
inline constexpr const char* kRequestingOverlay = "requesting AE for overlay";

// Replies of the server when the program cannot take footage now.
inline constexpr const char* kBusyTrackingOrRendering =
    "Velomar is busy now, tracking or rendering is ongoing";
inline constexpr const char* kBusyRendering = "Velomar is busy now, rendering is ongoing";

struct LinkCommandInfo {
  int id;
  const char* tool_image;  // empty: no button of its own
  const char* menu_text;
  const char* hint;
};

// Switch to the host, Import Project, Import Overlay, Export Project,
// Export Transformations, in menu order.
const LinkCommandInfo& SwitchToHostInfo();
const LinkCommandInfo& ImportProjectInfo();
const LinkCommandInfo& ImportOverlayInfo();
const LinkCommandInfo& ExportProjectInfo();
const LinkCommandInfo& ExportTransformationsInfo();

// The panel's tool bar: command ids, 0 for a separator.
inline constexpr int kPanelButtons[] = {32777, 0, 32807, 32809};
inline constexpr const char* kPanelTitle = "After Effects ®";

struct LinkSnapshot {
  // No modal phase (rendering) holds the window.
  bool idle = false;
  // The composition's underlay is not empty.
  bool hasUnderlay = false;
  bool mainWindowEnabled = true;
  // The overlay has motion to export.
  bool hasFrames = false;
  // The host's window was found / a launch command is set.
  bool hostWindow = false;
  bool hostCommand = false;
  // What the plug-in said at the last query; all false when it is not there.
  exchange::link::PossibleActions actions;
};

struct CommandUi {
  bool enabled = false;
  std::string text;  // empty: the command keeps its own text
  friend bool operator==(const CommandUi&, const CommandUi&) = default;
};

CommandUi SwitchToHostUi(const LinkSnapshot& s);
CommandUi ImportProjectUi(const LinkSnapshot& s);
CommandUi ImportOverlayUi(const LinkSnapshot& s);
CommandUi ExportProjectUi(const LinkSnapshot& s);
// `in_menu`: a menu entry keeps its own text.
CommandUi ExportTransformationsUi(const LinkSnapshot& s, bool in_menu = false);

// What the program tells the plug-in it can do now: StillOverlay is never
// offered.
exchange::link::PossibleActions OfferedActions(const LinkSnapshot& s);

}  // namespace app::link
