// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/render/render_command.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <optional>

#include "app/model/comp.h"
#include "app/operation_stack.h"
#include "app/preferences.h"
#include "app/preview/view.h"
#include "app/render/async_writer.h"
#include "app/render/image_writer.h"
#include "app/render/render_settings.h"
#include "imaging/avi_writer.h"
#include "imaging/cache.h"
#include "imaging/merge.h"
#include "imaging/multi_io.h"

namespace app {

namespace {

namespace fs = std::filesystem;

bool SameWord(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

std::string Lower(std::string word) {
  for (char& c : word) c = char(std::tolower(static_cast<unsigned char>(c)));
  return word;
}

bool WrittenAsImage(const std::string& extension) {
  std::vector<std::string> known;
  img::multi_writer().extensions(known);
  return std::any_of(known.begin(), known.end(),
                     [&](const std::string& k) { return SameWord(k, extension); });
}

// Where the frames go, as the save dialog's answer was accepted.
struct Target {
  bool avi = false;
  std::string path;       // the AVI file, or the folder of the image files
  std::string extension;  // the image files' format word
};

// Asks for the output until an answer is accepted; nothing when the user cancels.
std::optional<Target> AskTarget(RenderPorts& p, const std::string& stem) {
  const std::string format = p.preferences.renderingFormat;
  FileChoice choice;
  choice.title = kRenderDialogTitle;
  choice.filter = p.filter;
  choice.default_extension = format;
  choice.overwrite_prompt = false;
  for (;;) {
    choice.check_box.clear();
    const auto answer = p.dialogs.choose_save_file(choice);
    if (!answer) return std::nullopt;
    const fs::path path(answer->path);
    std::string extension = path.extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    const std::string name = path.stem().string();
    if (SameWord(extension, "avi")) return Target{true, answer->path, std::string()};
    // An image sequence takes its names from the source frames: only the
    // folder is the user's to choose.
    if (!SameWord(name, stem)) {
      p.dialogs.inform(kRenderNameChanged, Icon::Warning);
      continue;
    }
    const std::string folder = path.parent_path().string();
    if (SameWord(extension, format)) return Target{false, folder, format};
    if (WrittenAsImage(extension)) return Target{false, folder, Lower(extension)};
    p.dialogs.inform(kRenderFormatUnknown, Icon::Warning);
  }
}

// Puts the view, the job list and the window back as they were, on every
// way out of the command.
class ViewRestore {
 public:
  ViewRestore(RenderPorts& p)
      : p_(p),
        style_(p.view.GetDisplayStyle()),
        play_state_(p.view.play_state()),
        frame_(p.comp.GetCurrentTime()),
        preview_frame_(p.comp.GetPreviewTime()),
        window_(p.window_enabled ? *p.window_enabled : true) {}
  ~ViewRestore() {
    try {
      p_.view.SetDisplayStyle(style_);
      p_.comp.SetCurrentTime(frame_);
      p_.comp.SetPreviewTime(preview_frame_, false);
      p_.view.set_play_state(play_state_);
      p_.view.refresh(true);
    } catch (const std::exception&) {
      // The picture on show may be stale; the settings are back, which is
      // what the next refresh needs.
    }
    if (p_.window_enabled) *p_.window_enabled = window_;
  }
  ViewRestore(const ViewRestore&) = delete;
  ViewRestore& operator=(const ViewRestore&) = delete;

 private:
  RenderPorts& p_;
  DisplayStyle style_;
  int play_state_;
  int32_t frame_;
  int32_t preview_frame_;
  bool window_;
};

std::unique_ptr<ImageWriter> MakeWriter(RenderPorts& p, const Target& target, int32_t first) {
  std::unique_ptr<ImageWriter> writer;
  if (target.avi) {
    const std::string name = ReadAviCoder(p.profile);
    const img::avi::AviCoderInfo* coder = p.coders.find(name);
    if (!coder) throw img::avi::exception(img::avi::kOpenCoderError, "no coder \"" + name + "\"");
    const img::avi::settings settings{.width = p.comp.GetWidth(),
                                      .height = p.comp.GetHeight(),
                                      .rate = p.comp.GetFramerate(),
                                      .scale = 1,
                                      .with_alpha = p.preferences.renderingAlpha};
    writer = std::make_unique<AviWriter>(*coder, ReadAviCoderState(p.profile, name), target.path,
                                         settings);
  } else {
    writer = std::make_unique<DiscreteWriter>(
        target.path, target.extension, p.preferences.renderingAlpha, p.comp.GetUnderlay(), first);
  }
  if (p.preferences.renderingField != 0)
    writer = std::make_unique<FieldWriter>(std::move(writer), p.preferences.renderingField == 1);
  return writer;
}

// A shot frame shown alone is the file's own picture, which no compositing
// step has measured; the output must never change size midway.
void CheckSize(const RenderPorts& p, const img::MergeDetails& details, const img::image& picture) {
  if (picture.width == p.comp.GetWidth() && picture.height == p.comp.GetHeight()) return;
  const std::string file = details.underlay_file ? *details.underlay_file : std::string();
  throw img::BadImageDim(img::bad_image_dim_text(file, picture.width, picture.height,
                                                 p.comp.GetWidth(), p.comp.GetHeight()));
}

// Waits for the view's composite of `frame` and hands it to the writer
// under the lock of the displayed image.
void WriteFrame(RenderPorts& p, int32_t frame, ImageWriter& writer) {
  p.view.wait_idle(p.pump);
  const img::MergeDetails details = p.view.BuildDetails(frame);
  if (p.view.back_buffer().shows(details)) {
    auto lock = p.view.back_buffer().Lock();
    if (const img::image* picture = p.view.back_buffer().image()) {
      CheckSize(p, details, *picture);
      writer.write(*picture);
      return;
    }
  }
  // The merger keeps its failures to itself and leaves the last picture on
  // show, which must never be written for this frame. Asking the cache for
  // the same composite brings the reader's or compositor's failure here; if
  // it now succeeds, that is the picture.
  img::CacheHandle handle(p.cache);
  handle.acquire_merge(details, nullptr, false);
  if (!handle) throw std::runtime_error("the composite of a frame could not be made");
  CheckSize(p, details, handle.image());
  writer.write(handle.image());
}

}  // namespace

RenderOutcome Render(RenderPorts& p, bool overlay_only) {
  RenderOutcome outcome;
  VLComp& comp = p.comp;
  if (comp.IsEmpty()) return outcome;
  const My::Span range = comp.GetWorkArea();
  if (comp.IsProcessingInside(range.first, range.last) &&
      p.dialogs.ask(kRenderRangeQuestion, Buttons::OkCancel, Icon::Warning) == Answer::Cancel)
    return outcome;

  const int32_t named = std::clamp(range.first, 0, comp.GetLength() - 1);
  const std::string stem = fs::path(comp.GetUnderlay()[size_t(named)]).stem().string();
  const std::optional<Target> target = AskTarget(p, stem);
  if (!target) return outcome;

  p.view.set_play_state(kStopped);
  p.operations.push(kRenderingJob);
  std::optional<ViewRestore> restore;
  restore.emplace(p);
  if (p.window_enabled) *p.window_enabled = false;

  if (target->avi && ReadAviCoder(p.profile).empty()) {
    p.dialogs.inform(kRenderNoCoder, Icon::Warning);
    p.operations.pop();
    return outcome;
  }
  std::unique_ptr<ImageWriter> writer = MakeWriter(p, *target, range.first);
  if (p.overlap) writer = std::make_unique<AsyncWriter>(std::move(writer));

  DisplayStyle style = p.view.GetDisplayStyle();
  style.show_underlay = overlay_only ? 0 : 1;
  if (comp.GetTask() == TaskType::Tracking) style.show_overlay = 1;
  style.show_mask = 0;
  style.overlay_opacity = 1000;
  style.interpolation = 1;
  if (overlay_only) style.background = 0;
  p.view.SetDisplayStyle(style);

  outcome.started = true;
  outcome.output = target->path;
  const int64_t total = std::max<int64_t>(0, int64_t(range.last) - range.first);
  const bool keep = p.keep_written && !target->avi && p.preferences.renderingField == 0;
  {
    const std::unique_ptr<Progress> progress = p.dialogs.begin_progress(kRenderProgressTitle);
    progress->update(0, total, "0 / " + std::to_string(total));
    for (int32_t frame = range.first; frame < range.last; ++frame) {
      std::error_code ec;
      if (keep && fs::is_regular_file(DiscreteWriter::FileName(target->path, target->extension,
                                                               comp.GetUnderlay(), frame),
                                      ec)) {
        writer->skip();
        ++outcome.kept;
      } else {
        comp.SetCurrentTime(frame);
        p.view.refresh(false);
        WriteFrame(p, frame, *writer);
        ++outcome.frames;
      }
      const int64_t done = outcome.frames + outcome.kept;
      progress->update(done, total, std::to_string(done) + " / " + std::to_string(total));
      if (progress->cancelled()) {
        outcome.cancelled = true;
        break;
      }
    }
    // The last frame's write must end before the progress closes: until
    // then the render is not done.
    writer->close();
  }
  restore.reset();
  writer.reset();
  p.operations.pop();
  p.dialogs.inform(outcome.cancelled ? kRenderInterrupted : kRenderDone,
                   outcome.cancelled ? Icon::Warning : Icon::Information);
  return outcome;
}

}  // namespace app
