// SPDX-License-Identifier: GPL-3.0-or-later
// File > Render > Composition and Overlay: the work area through the
// preview's own compositing into image files or one AVI.
//
// Each frame is composited by the view's merger exactly as the preview
// shows it with the render settings on, and the writer takes what the back
// buffer then holds: there is no second way to make a rendered picture.
// Owning thread only; the questions, notices and progress go through
// UserDialogs, so the window, velomar-cli and the tests run the same code.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "app/ports.h"

class VLComp;

namespace img {
class Cache;
}

namespace app {

class AviCoderList;
class OperationStack;
class VLView;
struct AppPreferences;

inline constexpr const char* kRenderRangeQuestion =
    "Rendering range intersect segments that are being processed.\n"
    "Rendering results may omit data of these segments. Proceed?";
inline constexpr const char* kRenderDialogTitle = "Choose Directory for Output Sequence";
inline constexpr const char* kRenderNameChanged =
    "Change of file name is prohibited,\nyou should point out output directory only.";
inline constexpr const char* kRenderFormatUnknown =
    "Entered format (file extension) is not supported.";
inline constexpr const char* kRenderNoCoder =
    "Please choose AVI coder through\nFile|Preferences|Rendering Format|AVI menu.";
inline constexpr const char* kRenderProgressTitle = "Rendering...";
inline constexpr const char* kRenderDone = "Rendering completed successfully.";
inline constexpr const char* kRenderInterrupted = "Rendering interrupted by user.";
inline constexpr const char* kRenderingJob = "rendering";

struct RenderPorts {
  VLComp& comp;
  VLView& view;
  UserDialogs& dialogs;
  ProfileStore& profile;  // the AVI coder and its state
  AppPreferences& preferences;
  OperationStack& operations;  // the running jobs: "rendering" while it runs
  AviCoderList& coders;
  img::Cache& cache;   // the view's cache
  std::string filter;  // the save dialog's filter: image formats, then AVI
  // Runs the owning thread's pending messages while the view composites.
  std::function<void()> pump;
  // False while the render holds the window; null when there is none.
  bool* window_enabled = nullptr;
  // Encode frame n on a second thread while frame n + 1 is composited.
  // The files are the same either way.
  bool overlap = true;
  // A frame whose image file is there already is not composited again, so
  // that a render stopped midway (a farm's time limit) resumes where it
  // stopped. Files appear only when whole, so any file there is a finished
  // frame. Image files without interlacing only: an AVI or a pair of fields
  // is always rendered whole.
  bool keep_written = false;
};

struct RenderOutcome {
  bool started = false;    // the frame loop ran (no question or dialog ended it)
  bool cancelled = false;  // the user stopped it; what was written stays
  int64_t frames = 0;      // frames handed to the writer
  int64_t kept = 0;        // frames whose file was there already (keep_written)
  std::string output;      // the AVI, or the folder of the image files
};

// The whole of a render command; `overlay_only` renders the overlay alone
// on a transparent background. The view's display style, play state and
// current frame are put back on every way out, a failure included. A
// failure throws (the reader's, compositor's or writer's exception), after
// the frames before it were written.
RenderOutcome Render(RenderPorts& ports, bool overlay_only);

}  // namespace app
