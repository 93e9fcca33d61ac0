// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli preview: the picture the preview shows at one frame, written
// to an image file. It runs the window's own path: the view builds the
// request, its merger composites, and what the view paints is written.
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

#include "app/model/comp.h"
#include "app/model/segment.h"
#include "app/preview/recording_surface.h"
#include "app/preview/view.h"
#include "app/profile_store.h"
#include "cli/commands.h"
#include "cli/frames.h"
#include "cli/options.h"
#include "cli/output_file.h"
#include "cli/project_session.h"
#include "cli/style_option.h"
#include "imaging/global_cache.h"
#include "imaging/io_types.h"
#include "imaging/multi_io.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

constexpr const char* kMakingPreview = "making preview";

}  // namespace

int RunPreview(const std::vector<std::string>& raw) {
  Options options(WithLongOutput(raw), {"--edit-mode"}, {"--frame", "--output", "--style"});
  if (options.positional().size() != 1) throw UsageError("preview needs one PROJECT");
  if (!options.has("--frame")) throw UsageError("preview needs --frame N");
  if (!options.has("--output")) throw UsageError("preview needs -o FILE");
  const int32_t number = ParseFrameNumber(options.value("--frame"), "--frame");
  const std::string out = options.value("--output");
  app::DisplayStyle style;
  style.background = kCliBackground;
  for (const std::string& setting : options.values("--style")) ApplyStyle(style, setting);
  const std::string format = img::upper_extension(out);
  if (format.empty()) throw UsageError("cannot tell the output format from '" + out + "'");

  ProjectSession session(true);
  std::string staging;
  const int status = session.Run(
      [&] {
        session.Open(options.positional()[0]);
        VLComp& comp = session.comp();
        app::Velomar& velomar = session.app();
        velomar.GetOperations().push(kMakingPreview);
        const int32_t frame = FrameIndex(comp, number);
        // The style of this run only: the view reads it from a store of
        // its own and writes it back there.
        app::MemoryProfileStore profile;
        app::WriteDisplayStyle(profile, style);
        app::RecordingSurface surface;
        app::VLView view(comp, {.surface = surface,
                                .profile = profile,
                                .queue = velomar.GetQueue(),
                                .dialogs = velomar.GetDialogs(),
                                .cache = img::global_cache(),
                                .workspace_colour = kCliBackground});
        if (options.flag("--edit-mode")) {
          // The editor works on the active segment.
          const int32_t active = comp.GetActiveSegment();
          comp.SetEditedSegment(active >= 0 ? &comp.GetSegmentObject(active) : nullptr);
          view.set_view_mode(1);
        }
        comp.SetCurrentTime(frame);
        view.refresh(true);
        view.wait_shown([&] { session.queue().pump(); });
        img::image picture;
        view.paint({0, 0, comp.GetWidth(), comp.GetHeight()},
                   [&](const img::image& shown, app::PixelRect part) {
                     picture.resize(part.width, part.height, 4);
                     for (uint32_t y = 0; y < part.height; ++y)
                       std::copy_n(shown.rows[y + part.y] + 4 * size_t(part.x), 4 * part.width,
                                   picture.rows[y]);
                   });
        comp.SetEditedSegment(nullptr);
        if (picture.empty()) throw std::runtime_error("nothing to show at this frame");

        staging = StagingName(out);
        img::multi_writer writer;
        writer.write(staging, format, picture, format == "TGA");
        fs::rename(staging, out);
        staging.clear();
        velomar.GetOperations().pop();
      },
      false, nullptr);
  if (!staging.empty()) {
    std::error_code ec;
    fs::remove(staging, ec);
  }
  return status;
}

const Command kPreviewCommand = {
    "preview", "the picture the preview shows at one frame, as an image file",
    "usage: velomar-cli preview PROJECT.vlp --frame N -o FILE [--style KEY=VALUE]...\n"
    "                           [--edit-mode]\n"
    "\n"
    "Writes the composite the preview shows at frame N (numbered as info\n"
    "prints frames) to FILE, in the format of its extension\n"
    "(bmp, tga, png, jpg, gif, tif; tga keeps the alpha channel).\n"
    "  --style KEY=VALUE  a key of the display style for this run only, in its\n"
    "                     stored integer form (decimal, or 0x and hex digits):\n"
    "       Underlay, Overlay, Mask, InverseMask   0 or 1 (defaults 1, 1, 1, 0)\n"
    "       Background, MaskColor    colour, blue in the low byte, then green,\n"
    "                                red, alpha (default 0xABABAB: grey with\n"
    "                                alpha 0; MaskColor 255: blue)\n"
    "       OverlayOpacity, MaskOpacity  thousandths (defaults 1000, 500)\n"
    "       Interpolation            1 bilinear, 0 nearest (default 1)\n"
    "  --edit-mode        what the view shows while the mask editor is on: no\n"
    "                     compensation, the active segment's mask tinted over it\n"
    "Fails (status 1) when a frame is missing or has the wrong size, an overlay\n"
    "cannot be read, or FILE cannot be written; no partial file is left.\n",
    RunPreview};

}  // namespace cli
