// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli render and coders: File > Render as the window runs it (the
// view's own composites, the same writers, questions and notices), with the
// save dialog answered from -o and the progress on standard error.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "app/model/comp.h"
#include "app/preview/recording_surface.h"
#include "app/preview/view.h"
#include "app/profile_store.h"
#include "app/render/render_command.h"
#include "app/render/render_settings.h"
#include "cli/commands.h"
#include "cli/json.h"
#include "cli/options.h"
#include "cli/project_session.h"
#include "cli/render_run.h"
#include "cli/style_option.h"
#include "cli/track_run.h"
#include "imaging/global_cache.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

const char* const kFormatWords[] = {"bmp", "png", "tga",  "tif", "tiff",
                                    "gif", "jpg", "jpeg", "avi"};

std::string Lower(std::string word) {
  for (char& c : word) c = char(std::tolower(static_cast<unsigned char>(c)));
  return word;
}

// "N / M" on standard error: one line redrawn on a terminal, every tenth
// frame and the last otherwise. Ctrl-C is the dialog's Cancel.
class TerminalProgress : public app::Progress {
 public:
  explicit TerminalProgress(const InterruptWatch& watch)
      : watch_(watch), terminal_(isatty(STDERR_FILENO) != 0) {}
  ~TerminalProgress() override {
    if (terminal_ && shown_) std::fputc('\n', stderr);
  }
  void update(int64_t done, int64_t total, const std::string& text) override {
    if (terminal_) {
      std::fprintf(stderr, "\r%s", text.c_str());
    } else if (done > 0 && (done == total || done % 10 == 0)) {
      std::fprintf(stderr, "%s\n", text.c_str());
    }
    shown_ = true;
    std::fflush(stderr);
  }
  bool cancelled() const override { return watch_.fired(); }

 private:
  const InterruptWatch& watch_;
  bool terminal_;
  bool shown_ = false;
};

// The session's dialogs for questions and notices; the save dialog answers
// with the one prepared path, and a second showing (the answer was refused)
// is a cancel.
class RenderDialogs : public app::UserDialogs {
 public:
  RenderDialogs(app::UserDialogs& inner, std::string answer, const InterruptWatch& watch)
      : inner_(inner), answer_(std::move(answer)), watch_(watch) {}
  app::Answer ask(const std::string& text, app::Buttons buttons, app::Icon icon) override {
    notices_.push_back(text);
    return inner_.ask(text, buttons, icon);
  }
  std::optional<app::FileChoiceResult> choose_open_file(const app::FileChoice& c) override {
    return inner_.choose_open_file(c);
  }
  std::optional<app::FileChoiceResult> choose_save_file(const app::FileChoice&) override {
    if (asked_++) return std::nullopt;
    return app::FileChoiceResult{answer_, false};
  }
  std::unique_ptr<app::Progress> begin_progress(const std::string&) override {
    return std::make_unique<TerminalProgress>(watch_);
  }
  void set_wait_cursor(bool) override {}
  const std::vector<std::string>& notices() const { return notices_; }

 private:
  app::UserDialogs& inner_;
  std::string answer_;
  const InterruptWatch& watch_;
  int asked_ = 0;
  std::vector<std::string> notices_;
};

RenderRequest ParseRequest(const Options& options) {
  RenderRequest r;
  if (options.positional().size() != 1) throw UsageError("render needs one PROJECT");
  if (!options.has("--output")) throw UsageError("render needs -o OUT (a folder, or a file .avi)");
  r.project = options.positional()[0];
  r.out = options.value("--output");
  r.avi = Lower(fs::path(r.out).extension().string()) == ".avi";
  r.overlay_only = options.flag("--overlay-only");
  r.skip_existing = options.flag("--skip-existing");
  if (options.has("--format")) {
    const std::string word = Lower(options.value("--format"));
    if (std::find(std::begin(kFormatWords), std::end(kFormatWords), word) == std::end(kFormatWords))
      throw UsageError("--format takes bmp, png, tga, tif, tiff, gif, jpg, jpeg or avi, not '" +
                       options.value("--format") + "'");
    if ((word == "avi") != r.avi)
      throw UsageError(r.avi ? "-o FILE.avi renders AVI: --format must be avi or left out"
                             : "--format avi needs -o FILE.avi");
    r.format = word;
  }
  if (r.avi) r.format = "avi";
  if (options.flag("--alpha") && options.flag("--no-alpha"))
    throw UsageError("--alpha and --no-alpha exclude each other");
  if (options.flag("--alpha")) r.alpha = true;
  if (options.flag("--no-alpha")) r.alpha = false;
  if (options.has("--field")) {
    const std::string f = options.value("--field");
    if (f == "none")
      r.field = 0;
    else if (f == "upper")
      r.field = 1;
    else if (f == "lower")
      r.field = 2;
    else
      throw UsageError("--field takes none, upper or lower, not '" + f + "'");
  }
  if (options.has("--coder")) r.coder = options.value("--coder");
  if (options.has("--coder-options")) {
    if (!r.coder) throw UsageError("--coder-options needs --coder NAME");
    r.coder_options = options.value("--coder-options");
  }
  if (r.coder && !r.avi) throw UsageError("--coder belongs to AVI output: -o FILE.avi");
  if (r.skip_existing && (r.avi || r.field.value_or(0) != 0))
    throw UsageError("--skip-existing keeps image files, one per frame: not with AVI or --field");
  if (options.has("--span")) {
    const std::string text = options.value("--span");
    const auto colon = text.find(':');
    if (colon == std::string::npos) throw UsageError("--span needs FIRST:LAST");
    r.span = My::Span{ParseFrameIndex(text.substr(0, colon), "--span"),
                      ParseFrameIndex(text.substr(colon + 1), "--span")};
  }
  r.style.background = kCliBackground;
  for (const std::string& setting : options.values("--style")) ApplyStyle(r.style, setting);
  return r;
}

void PrintOutcome(const app::RenderOutcome& outcome, double seconds, bool json) {
  if (json) {
    Json j;
    j.begin_object()
        .key("output")
        .value(outcome.output)
        .key("frames")
        .value(outcome.frames)
        .key("kept")
        .value(outcome.kept)
        .key("cancelled")
        .value(outcome.cancelled)
        .key("seconds")
        .value(seconds)
        .end_object();
    std::printf("%s\n", j.str().c_str());
  }
  if (outcome.cancelled) {
    std::fprintf(stderr, "%s\n", app::kRenderInterrupted);
    return;
  }
  if (!json) {
    std::printf("%s\n", app::kRenderDone);
    std::printf("%lld frames into %s in %.2f s", static_cast<long long>(outcome.frames),
                outcome.output.c_str(), seconds);
    if (outcome.frames > 0 && seconds > 0) std::printf(", %.1f frames/s", outcome.frames / seconds);
    if (outcome.kept > 0)
      std::printf("; %lld frames were there already", static_cast<long long>(outcome.kept));
    std::printf("\n");
  }
}

}  // namespace

app::RenderOutcome RenderInSession(ProjectSession& session,
                                   const RenderRequest& r,
                                   const InterruptWatch& watch) {
  VLComp& comp = session.comp();
  app::Velomar& velomar = session.app();
  app::AppPreferences& preferences = velomar.GetPreferences();
  if (r.format) preferences.renderingFormat = *r.format;
  if (r.alpha) preferences.renderingAlpha = *r.alpha;
  if (r.field) preferences.renderingField = *r.field;
  if (r.span) {
    if (r.span->first < 0 || r.span->first > r.span->last || r.span->last > comp.GetLength())
      throw UsageError("--span FIRST:LAST must lie in 0:" + std::to_string(comp.GetLength()) +
                       " (frame indices from 0, LAST one past the end)");
    comp.SetWorkAreaDirect(*r.span);
  }
  // The style and the coder of this run only.
  app::MemoryProfileStore profile;
  app::WriteDisplayStyle(profile, r.style);
  app::AviCoderList coders;
  if (r.coder) {
    const img::avi::AviCoderInfo* coder = coders.find(*r.coder);
    if (!coder)
      throw img::avi::exception(img::avi::kOpenCoderError,
                                "no AVI coder \"" + *r.coder + "\": velomar-cli coders lists them");
    app::ChooseAviCoder(preferences, profile, *coder, r.coder_options);
  }

  std::string answer = r.out;
  if (!r.avi) {
    const fs::path folder(r.out);
    if (fs::exists(folder) && !fs::is_directory(folder))
      throw std::runtime_error("the output folder is a file: " + r.out);
    fs::create_directories(folder);
    const My::Span area = comp.GetWorkArea();
    const int32_t first = std::clamp(area.first, 0, comp.GetLength() - 1);
    answer = (folder / (fs::path(comp.GetUnderlay()[size_t(first)]).stem().string() + "." +
                        preferences.renderingFormat))
                 .string();
  }

  RenderDialogs dialogs(velomar.GetDialogs(), answer, watch);
  app::RecordingSurface surface;
  // The merger's cursor messages may still wait in the queue when this
  // render is over: they go to the session's dialogs, which outlive it.
  app::VLView view(comp, {.surface = surface,
                          .profile = profile,
                          .queue = velomar.GetQueue(),
                          .dialogs = velomar.GetDialogs(),
                          .cache = img::global_cache(),
                          .workspace_colour = kCliBackground,
                          .follow_tracker = {}});
  app::RenderPorts ports{.comp = comp,
                         .view = view,
                         .dialogs = dialogs,
                         .profile = profile,
                         .preferences = preferences,
                         .operations = velomar.GetOperations(),
                         .coders = coders,
                         .cache = img::global_cache(),
                         .filter = velomar.GetAviFilter(),
                         .pump = [&] { session.queue().pump(); },
                         .keep_written = r.skip_existing};
  const app::RenderOutcome outcome = app::Render(ports, r.overlay_only);
  if (!outcome.started) {
    // A refused answer or a missing coder: its notice is the failure.
    throw std::runtime_error(dialogs.notices().empty() ? "nothing was rendered"
                                                       : dialogs.notices().back());
  }
  return outcome;
}

int RunRender(const std::vector<std::string>& args) {
  const Options options(
      WithLongOutput(args),
      {"--overlay-only", "--alpha", "--no-alpha", "--skip-existing", "--json"},
      {"--output", "--format", "--field", "--coder", "--coder-options", "--span", "--style"});
  const RenderRequest r = ParseRequest(options);
  const bool json = options.flag("--json");
  ProjectSession session(false);
  int status = 0;
  const int failed = session.Run(
      [&] {
        session.Open(r.project);
        const auto start = std::chrono::steady_clock::now();
        InterruptWatch watch;
        const app::RenderOutcome outcome = RenderInSession(session, r, watch);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        PrintOutcome(outcome, seconds, json);
        if (outcome.cancelled) status = watch.status();
      },
      json, "rendering");
  return failed ? failed : status;
}

int RunCoders(const std::vector<std::string>& args) {
  const Options options(args, {"--json"}, {});
  if (!options.positional().empty()) throw UsageError("coders takes no arguments");
  app::AviCoderList list;
  const auto& coders = list.coders();
  if (options.flag("--json")) {
    Json j;
    j.begin_array();
    for (const auto& c : coders)
      j.begin_object()
          .key("handler")
          .value(c.handler)
          .key("name")
          .value(c.name)
          .key("description")
          .value(c.description)
          .key("accepts_32")
          .value(c.accepts_32)
          .key("accepts_24")
          .value(c.accepts_24)
          .key("has_quality")
          .value(c.has_quality)
          .key("is_temporal")
          .value(c.is_temporal)
          .key("has_crunch")
          .value(c.has_crunch)
          .key("has_about")
          .value(c.has_about)
          .key("has_configure")
          .value(c.has_configure)
          .end_object();
    j.end_array();
    std::printf("%s\n", j.str().c_str());
    return 0;
  }
  std::printf("%-18s %-5s %-5s %-8s %-7s %s\n", "CODER", "32bit", "24bit", "temporal", "quality",
              "description");
  for (const auto& c : coders)
    std::printf("%-18s %-5s %-5s %-8s %-7s %s\n", c.handler.c_str(), c.accepts_32 ? "yes" : "-",
                c.accepts_24 ? "yes" : "-", c.is_temporal ? "yes" : "-",
                c.has_quality ? "yes" : "-", c.description.c_str());
  return 0;
}

const Command kRenderCommand = {
    "render", "render the work area to image files or an AVI",
    "usage: velomar-cli render PROJECT.vlp -o OUT [--overlay-only] [--format WORD]\n"
    "                          [--alpha | --no-alpha] [--field none|upper|lower]\n"
    "                          [--coder NAME [--coder-options K=V:K=V]]\n"
    "                          [--span FIRST:LAST] [--style KEY=VALUE]...\n"
    "                          [--skip-existing] [--json]\n"
    "\n"
    "Renders as File > Render > Composition does (Overlay with --overlay-only:\n"
    "the overlay alone on a transparent background): each frame of the work\n"
    "area is composited as the preview shows it with the render settings on\n"
    "(no mask, full overlay opacity, bilinear), and written.\n"
    "OUT is a folder for image files (made if missing): one file per frame,\n"
    "named after the source frame's stem with the format word as extension.\n"
    "OUT ending in .avi writes one AVI. Files appear under their names only\n"
    "when whole.\n"
    "  --format WORD      bmp, png, tga, tif, tiff, gif, jpg, jpeg or avi\n"
    "                     (default tga; avi when OUT ends in .avi)\n"
    "  --alpha, --no-alpha  an alpha channel in the output (default on; a coder\n"
    "                     or format without alpha writes without)\n"
    "  --field none|upper|lower  interlace pairs of frames, the earlier frame\n"
    "                     in the upper (even) or lower (odd) rows; one output\n"
    "                     frame per pair, named as the first half of the range\n"
    "  --coder NAME       the AVI coder (velomar-cli coders lists them), with\n"
    "  --coder-options K=V:K=V  its options, as FFmpeg names them\n"
    "  --span FIRST:LAST  the frames rendered (frame indices from 0, LAST one past\n"
    "                     the end; default the work area)\n"
    "  --style KEY=VALUE  a display style key for this run, as preview takes it;\n"
    "                     Background defaults to 0xABABAB (grey, alpha 0) where\n"
    "                     the window takes its workspace colour\n"
    "  --skip-existing    frames whose file is in OUT already are not rendered\n"
    "                     again, so a stopped render resumes (image files only,\n"
    "                     without --field); a file there is always whole\n"
    "\n"
    "Progress \"N / M\" goes to standard error. Ctrl-C stops as the dialog's\n"
    "Cancel does (\"Rendering interrupted by user.\", status 130) and keeps\n"
    "what was written, each file whole; SIGTERM and SIGHUP do the same with\n"
    "status 143 and 129. A frame that is missing, of the wrong size or cannot\n"
    "be read, or an output that cannot be written, fails with status 1.\n",
    RunRender};

const Command kCodersCommand = {"coders", "list the AVI coders",
                                "usage: velomar-cli coders [--json]\n"
                                "\n"
                                "The encoders of this build that an AVI file can hold and that\n"
                                "take 32-bit (with alpha) or 24-bit pictures, with their flags.\n",
                                RunCoders};

}  // namespace cli
