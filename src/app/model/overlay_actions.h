// SPDX-License-Identifier: GPL-3.0-or-later
// Undo steps on the overlay.
#pragma once

#include <string>
#include <vector>

#include "app/model/action.h"
#include "app/model/overlay.h"

// Empties the overlay; undo reloads the frames and puts the placement back.
// The alignment is not part of what it keeps.
class OverlayClearAction : public Action {
 public:
  explicit OverlayClearAction(VLOverlay& overlay, VLComp& comp) : overlay_(overlay), comp_(comp) {}
  bool Do() override;
  void Undo() override;
  std::string GetName() const override { return "Clear Overlay"; }

 private:
  VLOverlay& overlay_;
  VLComp& comp_;
  std::vector<std::string> paths_;
  int32_t sourceOffset_ = 0;
  My::Span trimming_;
  int32_t match_ = 0;
  My::Span transformSpan_;
  types::affine initialTransform_;
  AlphaInterpretation alpha_ = AlphaInterpretation::Straight;
  bool overlayActive_ = false;
};

// Clears the old overlay, then imports. The alpha question is asked only by
// the first Do, never by a redo. When the import fails or the user declines,
// the old overlay stays cleared and the queue drops the action.
class OverlayImportAction : public Action {
 public:
  OverlayImportAction(VLOverlay& overlay, VLComp& comp, std::vector<std::string> paths)
      : overlay_(overlay), comp_(comp), clear_(overlay, comp), paths_(std::move(paths)) {}
  bool Do() override;
  void Undo() override;
  std::string GetName() const override { return "Load Overlay"; }

 private:
  VLOverlay& overlay_;
  VLComp& comp_;
  OverlayClearAction clear_;
  std::vector<std::string> paths_;
  bool cleared_ = false;
  bool askAboutAlpha_ = true;
};
