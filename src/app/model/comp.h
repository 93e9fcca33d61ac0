// SPDX-License-Identifier: GPL-3.0-or-later
// The composition: the project. The underlay's frames, the overlay, the
// stacked segments, the settings, current and preview time, the undo queue,
// and the top path that tells which segment rules each frame.
//
// One object lives for the whole run; an empty underlay stands for no
// project. Everything here belongs to the thread that owns the composition,
// except that the compositing worker reads the top path (through
// TransformBetween) and the overlay's transforms; writers stop the view
// before they change those.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/model/action_queue.h"
#include "app/model/host.h"
#include "app/model/interfaces.h"
#include "app/model/jobs.h"
#include "app/model/overlay.h"
#include "app/model/segment.h"
#include "app/model/settings.h"
#include "app/model/view_control.h"
#include "app/operation_stack.h"
#include "app/ports.h"
#include "base/pixel_aspect.h"

class VLComp;

// Which object the property panel shows.
enum class PanelObject { None, Composition, Overlay, Segment };

struct PanelState {
  PanelObject object = PanelObject::None;
  int32_t segment = -1;   // the index, for PanelObject::Segment
  uint64_t revision = 0;  // raised whenever the panel must re-read its values
  // "Composition Properties", ..., or "Property Editor" with no object.
  std::string Title() const;
};

class VLCompInterface : public VL::Composition, public app::SettingsObject<VLComp> {
 public:
  explicit VLCompInterface(VLComp& comp) : comp_(comp) {}

  bool IsEmpty() const override;
  int32_t GetStartFrame() const override;
  void SetStartFrame(int32_t frame) override;
  int32_t GetLength() const override;
  My::Span GetWorkArea() const override;
  void SetWorkArea(int32_t first, int32_t last) override;
  int32_t GetCurrentTime() const override;
  void SetCurrentTime(int32_t time) override;
  int32_t GetPreviewTime() const override;
  void SetPreviewTime(int32_t time) override;
  int32_t GetSegmentCount() const override;
  VL::Segment& GetSegment(int32_t index) override;
  int32_t GetActiveSegment() const override;
  void SetActiveSegment(int32_t index) override;
  VL::Overlay& GetOverlay() override;
  bool IsOverlayActive() const override;
  void SetOverlayActive(bool active) override;
  void SelectSegment(int32_t index) override;
  void SelectSegments(const std::vector<int32_t>& indices) override;
  void DeselectSegment(int32_t index) override;
  void SelectAll() override;
  void DeselectAll() override;
  void CreateSegment(int32_t time, bool copyActive) override;
  void DeleteActiveSegment() override;
  void MoveActiveSegment(int32_t index) override;
  void SetListener(VL::Listener* listener) override { listener_ = listener; }

  VLComp& SettingsOwner() override { return comp_; }
  const VLComp& SettingsOwner() const override { return comp_; }
  VLActionQueue& SettingsQueue() override;

  VL::Listener* GetListener() const { return listener_; }

 private:
  VLComp& comp_;
  VL::Listener* listener_ = nullptr;
};

// The plain settings of a project, as the file holds them.
struct VLCompSettings {
  double framerate = 50;  // frames per second; 29.97 and the like too
  PixelAspectRatio pixelAspect;
  float exportInaccuracy = 0.0f;  // pixels
  TaskType task = TaskType::Tracking;
  ExportModel exportModel = ExportModel::Auto;
  int32_t startFrame = 0;  // the number shown for frame 0
  My::Span workArea;
  // Field by field; floats compare by value.
  friend bool operator==(const VLCompSettings&, const VLCompSettings&) = default;
};

// What the composition calls on the program around it; each may be empty.
struct VLCompHooks {
  std::function<void()> updateTitle;
  std::function<void(bool)> enablePopupMenus;
  std::function<void()> purgeCache;              // empty: the process-wide frame cache
  std::function<void(VLSegment&)> maskChanging;  // readers of the pixels stop
  std::function<void(VLSegment&)> maskChanged;   // the view and the mask editor reload
};

class VLComp : public VLHost {
 public:
  // `dialogs` and `view` may be null (no questions asked, no view to refresh).
  explicit VLComp(app::OperationStack& operations,
                  app::UserDialogs* dialogs = nullptr,
                  app::ViewSurface* view = nullptr);
  VLComp(const VLComp&) = delete;
  VLComp& operator=(const VLComp&) = delete;
  ~VLComp() override;

  VLCompHooks hooks;
  // New segments take these parameters; the overlay's first import takes
  // alignment and alpha from here (the application's preferences).
  VLSegmentParams defaultParams;
  Alignment defaultAlignment = Alignment::No;
  AlphaInterpretation defaultAlpha = AlphaInterpretation::Straight;

  VLCompInterface& GetInterface() { return interface_; }
  app::OperationStack& GetOperations() { return operations_; }
  app::UserDialogs* GetDialogs() const override { return dialogs_; }
  // The tracking jobs; NoJobs until the program gives its processor.
  app::Jobs& GetJobs() const override { return *jobs_; }
  void SetJobs(app::Jobs* jobs) { jobs_ = jobs ? jobs : &noJobs_; }
  VLActionQueue& GetActionQueue() { return actionQueue_; }
  const VLActionQueue& GetActionQueue() const { return actionQueue_; }

  bool IsEmpty() const { return underlay_.empty(); }
  int32_t GetLength() const override { return int32_t(underlay_.size()); }
  const std::vector<std::string>& GetUnderlay() const { return underlay_; }
  uint32_t GetWidth() const override { return width_; }
  uint32_t GetHeight() const override { return height_; }
  const std::string& GetProjectPath() const { return projectPath_; }

  const VLCompSettings& GetSettings() const { return settings_; }
  double GetFramerate() const { return settings_.framerate; }
  PixelAspectRatio GetPixelAspect() const { return settings_.pixelAspect; }
  float GetExportInaccuracy() const { return settings_.exportInaccuracy; }
  TaskType GetTask() const { return settings_.task; }
  ExportModel GetExportModel() const { return settings_.exportModel; }
  int32_t GetStartFrame() const override { return settings_.startFrame; }
  My::Span GetWorkArea() const { return settings_.workArea; }
  // Stores the settings (setting_tables.cpp clamps them first); whom a
  // change concerns hears of it, and equal settings change nothing.
  void ApplySettings(const VLCompSettings& settings);
  // The work area's row of the settings table, by its older name: clamped
  // into 0..length, first <= last; no undo step.
  void SetWorkAreaDirect(My::Span area);

  int32_t GetCurrentTime() const override { return currentTime_; }
  int32_t GetPreviewTime() const { return previewTime_; }
  // Stops the view, clamps into the composition, and moves the preview along.
  void SetCurrentTime(int32_t time);
  void SetPreviewTime(int32_t time, bool stopView);
  // The time field: a number as the user sees it (start frame added).
  void SetCurrentTimeByText(const std::string& text);
  std::string GetCurrentTimeText() const;

  int32_t GetSegmentCount() const { return int32_t(segments_.size()); }
  VLSegment& GetSegmentObject(int32_t index) { return *segments_[size_t(index)]; }
  const VLSegment& GetSegmentObject(int32_t index) const { return *segments_[size_t(index)]; }
  int32_t IndexOf(const VLSegment* segment) const;  // -1 when not in the list
  // Raw list changes; callers rebuild the top path (ActiveSegmentKeeper does).
  void InsertSegment(int32_t index, std::unique_ptr<VLSegment> segment);
  std::unique_ptr<VLSegment> RemoveSegment(int32_t index);

  int32_t GetActiveSegment() const { return activeSegment_; }
  void SetActiveSegment(int32_t index);
  bool IsOverlayActive() const override { return overlayActive_; }
  bool IsActive(const VLSegment& segment) const override;
  void SetOverlayActive(bool active);

  VLOverlay& GetOverlay() { return overlay_; }
  const VLOverlay& GetOverlay() const { return overlay_; }

  // The segment in the mask editor, or null.
  VLSegment* GetEditedSegment() const override { return edited_; }
  void SetEditedSegment(VLSegment* segment) override { edited_ = segment; }

  // Index of the ruling segment per frame (-1: none), and the frames where a
  // new run of equal rulers starts.
  const std::vector<int32_t>& GetTopSegment() const { return topSegment_; }
  const std::vector<int32_t>& GetTopBreaks() const { return topBreaks_; }
  void RebuildTopPath();
  void UpdateOverlaySpan();
  // The transformation from frame a to frame b along the top path.
  types::affine TransformBetween(int32_t a, int32_t b) const override;
  // Whether frames of [first, last) are still to come from a running job.
  bool IsProcessingInside(int32_t first, int32_t last) const;

  // A new project from the frames of a sequence. aspect.num 0 derives the
  // ratio from the frame size. Throws what the image reader throws.
  void LoadSequence(const std::vector<std::string>& paths,
                    double framerate,
                    PixelAspectRatio aspect,
                    int32_t startFrame);
  // Reads a project: `read` reads the file at `path` into this composition
  // (through the TakeOver functions and AdoptSegment). A failure closes the
  // composition and passes on, so a failed load leaves no project.
  void Load(const std::string& path, const std::function<void(VLComp&)>& read);
  // Writes a project: `write` writes this composition to `path`. A failure
  // puts the old project path back and passes on.
  void Save(const std::string& path, const std::function<void(const VLComp&)>& write);
  void Close();
  // The defaults of a closed project (frame rate 50, times -1, ...); the
  // export inaccuracy is left as it is.
  void Reset();

  // The project reader's way in: no events, no checks beyond AdoptSegment's.
  void TakeOverSettings(const VLCompSettings& settings) { settings_ = settings; }
  void TakeOverUnderlay(std::vector<std::string> paths, uint32_t width, uint32_t height);
  void TakeOverTimes(int32_t currentTime, int32_t previewTime);
  void TakeOverActive(int32_t activeSegment, bool overlayActive);
  // Appends a read segment at the bottom; throws as AttachToComposition.
  void AdoptSegment(std::unique_ptr<VLSegment> segment);

  const PanelState& GetPanel() const { return panel_; }
  void ShowInPanel(PanelObject object, int32_t segment = -1);
  void RefreshPanel() { ++panel_.revision; }
  // Through the view control when a preview is installed, else straight to
  // the surface (invalidate, stop the timer).
  void RefreshView();
  void StopView();
  // The preview's logic installs itself here; null removes it.
  void SetViewControl(VLViewControl* control) { viewControl_ = control; }
  VLViewControl* GetViewControl() const { return viewControl_; }
  // Before frame names or segments go away.
  void StopViewWorker() {
    if (viewControl_) viewControl_->StopWorker();
  }
  void SetViewImageSize(uint32_t width, uint32_t height);
  void UpdateTitle();
  void EnablePopupMenus(bool enable);

  // Calls `event` on the composition's listener, if any.
  void Fire(void (VL::Listener::*event)());

  // VLHost.
  VLComp& Composition() override { return *this; }
  Alignment GetDefaultAlignment() const override { return defaultAlignment; }
  AlphaInterpretation GetDefaultAlpha() const override { return defaultAlpha; }
  VL::Listener& SegmentEvents(VLSegment& source) override {
    reporting_ = &source;
    return segmentEvents_;
  }
  VL::Listener& OverlayEvents() override { return overlayEvents_; }

 private:
  // What the composition makes of its segments' and its overlay's reports.
  class SegmentEventsListener : public VL::Listener {
   public:
    explicit SegmentEventsListener(VLComp& comp) : comp_(comp) {}
    void OnObjectChanged() override;
    void OnDataChanged() override;
    void OnStateChanged() override;
    void OnLookChanged() override;
    void OnMaskChanging() override;
    void OnMaskChanged() override;
    void OnResultsAdded() override;

   private:
    VLComp& comp_;
  };
  class OverlayEventsListener : public VL::Listener {
   public:
    explicit OverlayEventsListener(VLComp& comp) : comp_(comp) {}
    void OnObjectChanged() override;
    void OnDataChanged() override;
    void OnStateChanged() override;
    void OnTrimChanged() override;
    void OnPreviewTimeChanged() override;
    void OnLookChanged() override;

   private:
    VLComp& comp_;
  };

  bool Continuous(int32_t frame) const;

  SegmentEventsListener segmentEvents_{*this};
  VLSegment* reporting_ = nullptr;  // the segment whose report is being heard
  OverlayEventsListener overlayEvents_{*this};
  VLCompInterface interface_;
  VLCompSettings settings_;
  int32_t currentTime_ = -1;
  int32_t previewTime_ = -1;
  VLOverlay overlay_;
  bool overlayActive_ = false;
  std::vector<std::unique_ptr<VLSegment>> segments_;  // index 0 is the topmost
  int32_t activeSegment_ = -1;
  std::vector<std::string> underlay_;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  std::string projectPath_;
  VLActionQueue actionQueue_;
  std::vector<int32_t> topSegment_;
  std::vector<int32_t> topBreaks_;

  app::OperationStack& operations_;
  app::UserDialogs* dialogs_;
  app::ViewSurface* view_;
  VLViewControl* viewControl_ = nullptr;
  app::NoJobs noJobs_;
  app::Jobs* jobs_ = &noJobs_;
  PanelState panel_;
  VLSegment* edited_ = nullptr;

  friend class ActiveSegmentKeeper;
};

// Around every reordering of the segment list: remembers the active segment
// and, at its end, rebuilds the top path and makes the same segment active
// again at its new index (or the old index, clamped, when it left the list).
class ActiveSegmentKeeper {
 public:
  explicit ActiveSegmentKeeper(VLComp& comp);
  ~ActiveSegmentKeeper();
  ActiveSegmentKeeper(const ActiveSegmentKeeper&) = delete;
  ActiveSegmentKeeper& operator=(const ActiveSegmentKeeper&) = delete;

 private:
  VLComp& comp_;
  int32_t index_;
  const VLSegment* segment_;
};
