// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/application.h"

#include <algorithm>
#include <stdexcept>

#include "app/command_line.h"
#include "app/commands/command_state.h"
#include "app/commands/command_texts.h"
#include "app/commands/mask_file.h"
#include "app/model/comp.h"
#include "app/model/properties.h"
#include "app/report_error.h"
#include "base/errors.h"
#include "imaging/global_cache.h"
#include "imaging/image_list.h"
#include "imaging/multi_io.h"

namespace app {

namespace {
constexpr size_t kRecentFiles = 4;
}  // namespace

void FileOpenMessage::Execute() {
  if (IsProjectPath(path_))
    app_.OpenDocumentFile(path_);
  else
    app_.LoadSequenceFile(path_);
}

Velomar::Velomar(VelomarPorts ports) : ports_(std::move(ports)) {
  const std::string patterns = img::multi_reader().filter();
  openFilter_ = OpenFilter(patterns);
  aviFilter_ = AviFilter(patterns);
  preferences_ = ReadPreferences(ports_.profile);
  SetHintLanguage(preferences_.hintLanguage);
  ApplyCacheQuota(preferences_, img::global_cache());
  composition_ = std::make_unique<VLComp>(operations_, &ports_.dialogs, ports_.view);
  composition_->SetJobs(ports_.jobs);
  // Unchecked on purpose: the overlay's own setters clamp what it is given.
  composition_->defaultAlignment = Alignment(preferences_.overlayAlignment);
  composition_->defaultAlpha = AlphaInterpretation(preferences_.overlayAlpha);
}

Velomar::~Velomar() {
  try {
    Exit();
  } catch (const std::exception&) {
    // A profile that cannot be written must not turn the end of the run
    // into a crash; Exit() called directly reports it.
  }
}

void Velomar::Exit() {
  if (exited_) return;
  exited_ = true;
  composition_.reset();
  WritePreferences(preferences_, ports_.profile);
}

bool Velomar::IsProjectOpen() const {
  return composition_ && !composition_->IsEmpty();
}

CommandSnapshot Velomar::GetCommandState() const {
  return SnapshotOf(*composition_, mainWindowEnabled);
}

bool Velomar::Run(const std::function<void()>& command) {
  try {
    command();
    return true;
  } catch (const std::exception& e) {
    ReportError(e.what());
    return false;
  }
}

void Velomar::ReportError(const std::string& text) {
  ::app::ReportError(operations_, ports_.dialogs, text);
}

bool Velomar::NoJobRunning() const {
  return !ports_.jobs || !ports_.jobs->any_running();
}

void Velomar::SetRecentFiles(std::vector<std::string> files) {
  std::erase(files, std::string());
  if (files.size() > kRecentFiles) files.resize(kRecentFiles);
  recentFiles_ = std::move(files);
}

void Velomar::AddRecentFile(const std::string& path) {
  std::erase(recentFiles_, path);
  recentFiles_.insert(recentFiles_.begin(), path);
  if (recentFiles_.size() > kRecentFiles) recentFiles_.resize(kRecentFiles);
}

// --- File --------------------------------------------------------------------

void Velomar::OnNewProject() {
  if (IsProjectOpen() && !CloseProject()) return;
  const auto choice = ports_.dialogs.choose_open_file(OpenSequenceChoice(openFilter_));
  if (!choice) return;
  LoadSequenceFile(choice->path);
}

void Velomar::OnOpen() {
  const auto choice = ports_.dialogs.choose_open_file(OpenProjectChoice());
  if (!choice) return;
  OpenDocumentFile(choice->path);
}

bool Velomar::OpenDocumentFile(const std::string& path) {
  if (IsProjectOpen() && !CloseProject()) return false;
  operations_.push(kOpeningProject);
  ports_.files.load(*composition_, path, ports_.dialogs);
  AddRecentFile(path);
  operations_.pop();
  return true;
}

void Velomar::LoadSequenceFile(const std::string& path, double framerate) {
  operations_.push(kLoadingSequence);
  std::vector<std::string> frames;
  img::frame_size size;
  img::read_image_list(path, frames, size);
  if (mainWindowEnabled && NoJobRunning() && !frames.empty())
    LoadSequenceList(frames, framerate, PixelAspectRatio{0, 1},
                     int32_t(img::first_frame_number(frames.front())));
  operations_.pop();
}

void Velomar::LoadSequenceList(const std::vector<std::string>& paths,
                               double framerate,
                               PixelAspectRatio aspect,
                               int32_t startFrame) {
  // Asked again here: dropped files and the link come in without New Project.
  if (IsProjectOpen() && !CloseProject()) return;
  operations_.push(kLoadingSequence);
  composition_->LoadSequence(paths, framerate, aspect, startFrame);
  operations_.pop();
}

bool Velomar::CloseProject() {
  if (!IsProjectOpen()) return true;
  if (!NoJobRunning()) {
    if (ports_.dialogs.ask(kCloseCancelsProcessing, Buttons::OkCancel, Icon::Warning) ==
        Answer::Cancel)
      return false;
    ports_.jobs->cancel_all_and_wait();
  }
  if (composition_->GetActionQueue().IsModified()) {
    switch (ports_.dialogs.ask(kSaveChangesQuestion, Buttons::YesNoCancel, Icon::Warning)) {
      case Answer::Yes:
        // A Save As dialog cancelled in there is no cancelled close: the
        // project closes unsaved. Only a failed save keeps it open.
        OnSave();
        break;
      case Answer::Cancel:
        return false;
      default:
        break;
    }
  }
  composition_->Close();
  return true;
}

void Velomar::OnSave() {
  if (!IsProjectOpen()) return;
  if (composition_->GetProjectPath().empty()) {
    OnSaveAs();
    return;
  }
  operations_.push(kSavingProject);
  ports_.files.save(*composition_, composition_->GetProjectPath());
  operations_.pop();
}

void Velomar::OnSaveAs() {
  if (!IsProjectOpen()) return;
  const auto choice = ports_.dialogs.choose_save_file(SaveProjectAsChoice());
  if (!choice) return;
  SaveProjectAs(choice->path);
}

void Velomar::SaveProjectAs(const std::string& path) {
  if (!IsProjectOpen()) return;
  operations_.push(kSavingProject);
  ports_.files.save(*composition_, path);
  AddRecentFile(path);
  operations_.pop();
}

void Velomar::OnImportOverlay() {
  if (!CanImportOverlay(GetCommandState())) return;
  const auto choice = ports_.dialogs.choose_open_file(ImportOverlayChoice(openFilter_));
  if (!choice) return;
  ImportOverlayFile(choice->path, choice->check_box);
}

void Velomar::ImportOverlayFile(const std::string& path, bool still) {
  if (!IsProjectOpen()) return;
  operations_.push(kImportingOverlay);
  std::vector<std::string> frames;
  uint32_t width = 0, height = 0;
  if (still) {
    img::file_info info;
    bool known = false;
    try {
      known = img::multi_reader().info(path, &info);
    } catch (const img::io_error&) {
      // Any reason the size cannot be read gets the one text below.
    }
    if (!known) throw std::runtime_error(CouldNotReadFile(path));
    frames.push_back(path);
    width = info.width;
    height = info.height;
  } else {
    img::frame_size size;
    img::read_image_list(path, frames, size);
    width = size.width;
    height = size.height;
  }
  VLComp& comp = *composition_;
  if ((width != comp.GetWidth() || height != comp.GetHeight()) &&
      ports_.dialogs.ask(kOverlayDimensionsQuestion, Buttons::OkCancel, Icon::Warning) ==
          Answer::Cancel) {
    operations_.pop();
    return;
  }
  comp.GetInterface().GetOverlay().Import(frames);
  // A declined alpha question leaves other frames (or none): no notice then.
  if (comp.GetOverlay().GetPaths() == frames)
    ports_.dialogs.inform(OverlayImportedNotice(frames.size()));
  operations_.pop();
}

void Velomar::OnImportMask() {
  if (!CanImportMask(GetCommandState())) return;
  const auto choice = ports_.dialogs.choose_open_file(ImportMaskChoice());
  if (!choice) return;
  ImportMaskFile(choice->path);
}

void Velomar::ImportMaskFile(const std::string& path) {
  VLComp& comp = *composition_;
  const int32_t active = comp.GetActiveSegment();
  if (active < 0 || active >= comp.GetSegmentCount()) return;
  VLSegment& segment = comp.GetSegmentObject(active);
  if (segment.IsProcessing()) return;

  // A cancelled question below leaves the name on the stack until the next
  // report empties it; harmless, and kept.
  operations_.push(kImportingMask);
  VL::Mask mask = ReadMaskFile(path);
  const uint64_t set = CountSetPixels(mask);
  const uint64_t all = uint64_t(mask.width) * mask.height;
  const char* missing = set == 0 ? "white" : set == all ? "black" : nullptr;
  if (missing && ports_.dialogs.ask(EmptyMaskQuestion(path, missing), Buttons::OkCancel,
                                    Icon::Warning) == Answer::Cancel)
    return;
  if (mask.width != comp.GetWidth() || mask.height != comp.GetHeight()) {
    if (ports_.dialogs.ask(MaskDimensionsQuestion(path), Buttons::OkCancel, Icon::Warning) ==
        Answer::Cancel)
      return;
    mask = FitMask(mask, comp.GetWidth(), comp.GetHeight());
    // Tracking would refuse it only much later, far from the cause.
    const uint64_t kept = CountSetPixels(mask);
    if (kept == 0 || kept == uint64_t(mask.width) * mask.height)
      throw xtd::exception(CroppedMaskRefusal(path, kept == 0 ? "white" : "black"));
  }
  comp.StopView();
  segment.GetInterface().SetMask(mask);
  operations_.pop();
}

void Velomar::OnExportMask() {
  if (!CanExportMask(GetCommandState())) return;
  const auto choice = ports_.dialogs.choose_save_file(ExportMaskChoice());
  if (!choice) return;
  ExportMaskFile(choice->path);
}

void Velomar::ExportMaskFile(const std::string& path) {
  VLComp& comp = *composition_;
  const int32_t active = comp.GetActiveSegment();
  if (active < 0 || active >= comp.GetSegmentCount()) return;
  operations_.push(kExportingMask);
  WriteMaskFile(path, comp.GetSegmentObject(active).GetMask());
  operations_.pop();
}

// --- Edit --------------------------------------------------------------------

void Velomar::OnUndo() {
  if (CanUndo(GetCommandState())) composition_->GetActionQueue().Undo();
}

void Velomar::OnRedo() {
  if (CanRedo(GetCommandState())) composition_->GetActionQueue().Redo();
}

void Velomar::OnClear() {
  const CommandSnapshot state = GetCommandState();
  if (state.active())
    composition_->GetInterface().DeleteActiveSegment();
  else if (state.overlayActive)
    composition_->GetInterface().GetOverlay().Clear();
}

// --- Segment -----------------------------------------------------------------

void Velomar::OnNewSegment() {
  if (CanNewSegment(GetCommandState()))
    composition_->GetInterface().CreateSegment(composition_->GetCurrentTime(), false);
}

void Velomar::OnNewFromActive() {
  if (CanNewFromActive(GetCommandState()))
    composition_->GetInterface().CreateSegment(composition_->GetCurrentTime(), true);
}

void Velomar::OnActivateAbove() {
  if (const auto target = ActivateAboveTarget(GetCommandState()))
    composition_->GetInterface().SetActiveSegment(*target);
}

void Velomar::OnActivateBelow() {
  if (const auto target = ActivateBelowTarget(GetCommandState()))
    composition_->GetInterface().SetActiveSegment(*target);
}

void Velomar::OnProcess() {
  if (!CanProcess(GetCommandState())) return;
  composition_->GetSegmentObject(composition_->GetActiveSegment()).Process();
}

void Velomar::OnCancel() {
  if (!CanCancel(GetCommandState())) return;
  composition_->GetSegmentObject(composition_->GetActiveSegment()).CancelNoWait();
}

void Velomar::OnTrim() {
  if (!CanTrim(GetCommandState())) return;
  composition_->GetSegmentObject(composition_->GetActiveSegment()).GetInterface().Trim();
}

int32_t Velomar::OnProcessAll() {
  if (!CanProcessAll(GetCommandState())) return 0;
  int32_t queued = 0;
  for (int32_t i = 0; i < composition_->GetSegmentCount(); ++i)
    if (composition_->GetSegmentObject(i).Process()) ++queued;
  return queued;
}

void Velomar::OnCancelAll() {
  if (CanCancelAll(GetCommandState())) composition_->GetJobs().cancel_all();
}

}  // namespace app
