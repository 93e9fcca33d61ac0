// SPDX-License-Identifier: GPL-3.0-or-later
// A composition for the widgets to show: generated frames, scripted
// dialogs that record what they are asked, and a place for snapshots.
#pragma once

#include <QImage>
#include <string>

#include "app/model/comp.h"
#include "app/operation_stack.h"
#include "app/scripted_dialogs.h"
#include "testing/files.h"

namespace gui_testing {

struct CompOfFrames {
  // `frames` frames of 16 x 12 pixels (one file named again and again).
  explicit CompOfFrames(int32_t frames);

  testing_support::TempDir dir;
  app::OperationStack operations;
  app::ScriptedDialogs dialogs;
  VLComp comp{operations, &dialogs};
};

// Writes `image` as <name>.png where the suite keeps its artefacts, for a
// person to look at; returns the path.
std::string SaveSnapshot(const QImage& image, const std::string& name);

}  // namespace gui_testing
