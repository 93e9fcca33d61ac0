// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/overlay_actions.h"

#include "app/model/comp.h"

bool OverlayClearAction::Do() {
  if (overlay_.IsEmpty()) return false;
  paths_ = overlay_.GetPaths();
  sourceOffset_ = overlay_.GetSourceOffset();
  trimming_ = overlay_.GetTrimming();
  match_ = overlay_.GetMatch();
  transformSpan_ = overlay_.GetTransformSpan();
  initialTransform_ = overlay_.GetInitialTransform();
  alpha_ = overlay_.GetAlpha();
  overlayActive_ = comp_.IsOverlayActive();
  overlay_.ClearDirect();
  return overlay_.IsEmpty();
}

void OverlayClearAction::Undo() {
  app::OperationStack& ops = comp_.GetOperations();
  ops.push("reloading overlay");
  overlay_.ImportDirect(paths_, false);
  overlay_.SetSourceOffsetDirect(sourceOffset_);
  overlay_.SetTrimmingDirect(trimming_.first, trimming_.last);
  overlay_.SetMatchDirect(match_);
  overlay_.SetTransformSpan(transformSpan_.first, transformSpan_.last);
  overlay_.SetInitialTransformDirect(initialTransform_);
  overlay_.SetAlphaDirect(alpha_);
  comp_.SetOverlayActive(overlayActive_);
  ops.pop();
}

bool OverlayImportAction::Do() {
  cleared_ = clear_.Do();
  app::OperationStack& ops = comp_.GetOperations();
  ops.push("importing overlay");
  // A read failure passes on with the name left on the stack for the report.
  const bool imported = overlay_.ImportDirect(paths_, askAboutAlpha_);
  ops.pop();
  if (!imported) return false;
  askAboutAlpha_ = false;
  return !overlay_.IsEmpty();
}

void OverlayImportAction::Undo() {
  if (cleared_)
    clear_.Undo();
  else
    overlay_.ClearDirect();
}
