// SPDX-License-Identifier: GPL-3.0-or-later
// The overlay: a still image or a sequence laid over the underlay and given
// the tracked motion. It keeps its placement in time (source offset,
// trimming), its anchor in time (the match frame, where the transformation
// is the identity), its anchor in space (the initial transform or an
// alignment), and the per-frame transformations, filled on demand.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "app/model/host.h"
#include "app/model/interfaces.h"
#include "app/model/settings.h"

class VLComp;
class VLOverlay;

class VLOverlayInterface : public VL::Overlay, public app::SettingsObject<VLOverlay> {
 public:
  explicit VLOverlayInterface(VLOverlay& overlay) : overlay_(overlay) {}

  void Import(const std::vector<std::string>& paths) override;
  void Clear() override;
  bool IsEmpty() const override;
  bool IsStill() const override;
  bool IsActive() const override;
  int32_t GetSourceOffset() const override;
  void SetSourceOffset(int32_t offset) override;
  int32_t GetFrameCount() const override;
  My::Span GetTrimming() const override;
  void SetTrimming(int32_t first, int32_t last) override;
  My::Span GetTransformSpan() const override;
  int32_t GetMatch() const override;
  void SetMatch(int32_t frame) override;
  const types::affine& GetInitialTransform() const override;
  void SetInitialTransform(const types::affine& transform) override;
  Alignment GetAlignment() const override;
  void SetAlignment(Alignment alignment) override;
  AlphaInterpretation GetAlpha() const override;
  void SetAlpha(AlphaInterpretation alpha) override;
  void SetListener(VL::Listener* listener) override { listener_ = listener; }

  VLOverlay& SettingsOwner() override { return overlay_; }
  const VLOverlay& SettingsOwner() const override { return overlay_; }
  VLActionQueue& SettingsQueue() override;

  VL::Listener* GetListener() const { return listener_; }

 private:
  VLOverlay& overlay_;
  VL::Listener* listener_ = nullptr;
};

class VLOverlay {
 public:
  // What a project file holds of the overlay.
  struct Stored {
    int32_t sourceOffset = 0;
    My::Span trimming;
    int32_t match = 0;
    My::Span transformSpan;
    std::vector<std::string> paths;
    uint32_t width = 0;
    uint32_t height = 0;
    AlphaInterpretation alpha = AlphaInterpretation::Straight;
    Alignment alignment = Alignment::No;
    types::affine initialTransform;
  };

  explicit VLOverlay(VLHost& host);
  VLOverlay(const VLOverlay&) = delete;
  VLOverlay& operator=(const VLOverlay&) = delete;

  VLOverlayInterface& GetInterface() { return interface_; }
  VLComp& GetComposition() const { return host_.Composition(); }

  bool IsEmpty() const { return paths_.empty(); }
  bool IsStill() const { return paths_.size() == 1; }
  // The footage's frames; a still image lasts as long as the composition.
  int32_t GetFrameCount() const;
  int32_t GetSourceOffset() const { return sourceOffset_; }
  My::Span GetTrimming() const { return trimming_; }
  int32_t GetMatch() const { return match_; }
  My::Span GetTransformSpan() const { return transformSpan_; }
  const std::vector<std::string>& GetPaths() const { return paths_; }
  uint32_t GetWidth() const { return width_; }
  uint32_t GetHeight() const { return height_; }
  AlphaInterpretation GetAlpha() const { return alpha_; }
  Alignment GetAlignment() const { return alignment_; }
  const types::affine& GetInitialTransform() const { return initialTransform_; }

  // The setters of the settings' table (setting_tables.cpp); each clamps,
  // compares first and does nothing for an unchanged value.
  void SetSourceOffsetDirect(int32_t offset);  // not for a still image
  void SetTrimmingDirect(int32_t first, int32_t last);
  void SetMatchDirect(int32_t frame);
  void SetInitialTransformDirect(const types::affine& transform);  // clears the alignment
  void SetAlignmentDirect(Alignment alignment);
  void SetAlphaDirect(AlphaInterpretation alpha);
  // Places the overlay by its alignment, when it has one.
  void ApplyAlignment();

  // Reads the first frame's header and takes over the frames. With
  // `askAboutAlpha` an image without alpha asks the user first; false when
  // the user declines or no project is open. Throws "could not read file: ".
  bool ImportDirect(const std::vector<std::string>& paths, bool askAboutAlpha);
  void ClearDirect();
  // Placement back to nothing; alpha, alignment and the transform arrays stay.
  void Reset();

  // Clamped into the footage's placement; forgets every computed transform.
  void SetTransformSpan(int32_t first, int32_t last);
  // The transformation from the match frame to `frame`, computed once per
  // frame of the transform span and kept. Outside the span it is computed
  // and not kept. Any thread (the compositing worker reads it too).
  types::affine GetTransform(int32_t frame);
  // Fills every transformation of the span (before a save or an export).
  void CompleteTransforms();
  // Completes the span and copies its transformations, entry i for frame
  // transformSpan.first + i. A copy, taken under the lock, because the
  // compositing worker may still store an entry it computed side by side.
  std::vector<types::affine> CompletedTransforms();

  // The project reader's way in: no events, no checks.
  void TakeOver(Stored stored);
  Stored GetStored() const;

 private:
  // Tells the overlay's own listener, then the composition.
  void Report(void (VL::Listener::*event)());
  void Fire(void (VL::Listener::*event)());

  VLHost& host_;
  VLOverlayInterface interface_;
  int32_t sourceOffset_ = 0;
  My::Span trimming_;
  int32_t match_ = 0;
  My::Span transformSpan_;
  std::vector<std::string> paths_;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  AlphaInterpretation alpha_ = AlphaInterpretation::Straight;
  Alignment alignment_ = Alignment::No;
  types::affine initialTransform_;
  // Entries of the transform span; the lock lets the compositing worker and
  // the owning thread fill them side by side.
  std::vector<types::affine> transforms_;
  std::vector<uint8_t> transformKnown_;
  std::mutex transformsLock_;
};
