// SPDX-License-Identifier: GPL-3.0-or-later
// The application object: owns the one composition, the operation stack and
// the preferences, and carries out the File, Edit and Segment commands with
// their questions, in their fixed orders. It reaches the desktop only through
// the ports, so the same object serves the window, velomar-cli and the tests.
//
// Owning thread only, except that any thread may post to the queue.
//
//   app::Velomar app({.queue = queue, .dialogs = dialogs, .profile = profile,
//                     .files = app::ProjectFiles()});
//   app.Run([&] { app.OpenDocumentFile("shot.vlp"); });  // a failure is reported
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/commands/command_rules.h"
#include "app/model/jobs.h"
#include "app/operation_stack.h"
#include "app/ports.h"
#include "app/preferences.h"
#include "base/pixel_aspect.h"

class VLComp;

namespace app {

// How projects are read and written. Programs pass ProjectFiles() (the
// ".vlp" reader and writer); a test may pass functions that fail on purpose.
struct ProjectFileAccess {
  std::function<void(VLComp&, const std::string&, UserDialogs&)> load;
  std::function<void(VLComp&, const std::string&)> save;
};

struct VelomarPorts {
  GuiQueue& queue;
  UserDialogs& dialogs;
  ProfileStore& profile;
  ProjectFileAccess files;
  ViewSurface* view = nullptr;
  Clipboard* clipboard = nullptr;
  Jobs* jobs = nullptr;  // the tracker; null: no job ever runs
};

class Velomar {
 public:
  // Reads the preferences and creates the composition with no project.
  explicit Velomar(VelomarPorts ports);
  // Exit() unless it ran; a failure to write the preferences is swallowed
  // here, call Exit() to see it.
  ~Velomar();
  Velomar(const Velomar&) = delete;
  Velomar& operator=(const Velomar&) = delete;

  // Deletes the composition, then writes the preferences back. Once only.
  void Exit();

  VLComp& GetComposition() { return *composition_; }
  OperationStack& GetOperations() { return operations_; }
  AppPreferences& GetPreferences() { return preferences_; }
  UserDialogs& GetDialogs() { return ports_.dialogs; }
  GuiQueue& GetQueue() { return ports_.queue; }
  // The filter of New Project and Import Overlay.
  const std::string& GetOpenFilter() const { return openFilter_; }
  const std::string& GetAviFilter() const { return aviFilter_; }
  // Most recent first, at most 4.
  const std::vector<std::string>& GetRecentFiles() const { return recentFiles_; }
  // The list as the profile kept it from the last run (at most 4 are kept).
  void SetRecentFiles(std::vector<std::string> files);

  bool IsProjectOpen() const;
  // False while a modal phase (loading, rendering) holds the window.
  bool mainWindowEnabled = true;
  // The state the enabling rules of the menus look at.
  CommandSnapshot GetCommandState() const;

  // Runs a command; a standard exception is shown by ReportError and gives
  // false, so a failed command never ends the program.
  bool Run(const std::function<void()>& command);
  void ReportError(const std::string& text);

  // File
  void OnNewProject();
  void OnOpen();
  // False when a project stays open because the user kept it.
  bool OpenDocumentFile(const std::string& path);
  // A sequence from one of its frames or an ".ais" list: frame rate 50
  // unless given, pixel aspect from the size, start frame from the first name.
  void LoadSequenceFile(const std::string& path, double framerate = 50);
  // The sequence load's steps after the expansion (also the link's way in).
  void LoadSequenceList(const std::vector<std::string>& paths,
                        double framerate,
                        PixelAspectRatio aspect,
                        int32_t startFrame);
  // Close Project; true when no project is open afterwards.
  bool CloseProject();
  void OnSave();
  void OnSaveAs();
  void SaveProjectAs(const std::string& path);
  void OnImportOverlay();
  void ImportOverlayFile(const std::string& path, bool still);
  void OnImportMask();
  void ImportMaskFile(const std::string& path);
  void OnExportMask();
  void ExportMaskFile(const std::string& path);

  // Edit
  void OnUndo();
  void OnRedo();
  void OnClear();

  // Segment
  void OnNewSegment();
  void OnNewFromActive();
  void OnActivateAbove();
  void OnActivateBelow();
  // Queues the active segment for tracking.
  void OnProcess();
  // Stops the active segment's tracking without waiting.
  void OnCancel();
  // Cuts the active segment's results down to its time span ("Trim Data").
  void OnTrim();
  // Queues every segment with frames left to track, in list order; returns
  // how many were queued.
  int32_t OnProcessAll();
  // Stops all tracking without waiting.
  void OnCancelAll();

 private:
  void AddRecentFile(const std::string& path);
  bool NoJobRunning() const;

  VelomarPorts ports_;
  OperationStack operations_;
  AppPreferences preferences_;
  std::string openFilter_;
  std::string aviFilter_;
  std::vector<std::string> recentFiles_;
  std::unique_ptr<VLComp> composition_;
  bool exited_ = false;
};

// Opens a dropped or given file: a ".vlp" (any case) as a project, anything
// else as a sequence. Failures pass to the loop that runs the message.
class FileOpenMessage : public VLMessage {
 public:
  FileOpenMessage(Velomar& app, std::string path) : app_(app), path_(std::move(path)) {}
  void Execute() override;
  const std::string& path() const { return path_; }

 private:
  Velomar& app_;
  std::string path_;
};

}  // namespace app
