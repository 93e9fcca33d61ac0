// SPDX-License-Identifier: GPL-3.0-or-later
// One render of an open project as File > Render runs it, over a headless
// view: shared by velomar-cli render and the demo.
#pragma once

#include <optional>
#include <string>

#include "app/preview/display_style.h"
#include "app/render/render_command.h"
#include "base/span.h"

namespace cli {

class InterruptWatch;
class ProjectSession;

struct RenderRequest {
  std::string project;
  std::string out;  // a folder for image files, or a file ending in .avi
  bool avi = false;
  bool overlay_only = false;
  // Unset: the session's preferences stand.
  std::optional<std::string> format;  // a "RenderingFormat" word
  std::optional<bool> alpha;
  std::optional<int> field;  // 0 none, 1 upper first, 2 lower first
  std::optional<std::string> coder;
  std::string coder_options;
  std::optional<My::Span> span;  // frame indices from 0, last one past the end
  app::DisplayStyle style;       // the view's style for this run
  bool skip_existing = false;    // frames whose file is in `out` already stay
};

// Renders the session's open project: sets the preferences, the span and
// the coder of `r`, makes the output folder, and runs the render command
// with the save dialog answered from r.out and Ctrl-C (`watch`) as Cancel.
// Throws what the command throws; a refused answer or a missing coder
// throws its notice's text.
app::RenderOutcome RenderInSession(ProjectSession& session,
                                   const RenderRequest& r,
                                   const InterruptWatch& watch);

}  // namespace cli
