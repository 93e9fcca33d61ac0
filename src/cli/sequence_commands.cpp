// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli sequence, demo-shot: the frame list a click on a file gives,
// and a generated shot to try everything on.
#include <cstdio>
#include <filesystem>

#include "base/pixel_aspect.h"
#include "cli/commands.h"
#include "cli/demo_shot.h"
#include "cli/json.h"
#include "cli/options.h"
#include "cli/report.h"
#include "imaging/image_list.h"
#include "imaging/synthetic_shot.h"

namespace cli {

int RunSequence(const std::vector<std::string>& args) {
  Options options(args, {"--json"}, {});
  const bool json = options.flag("--json");
  if (options.positional().size() != 1) throw UsageError("sequence needs one PATH");
  try {
    std::vector<std::string> frames;
    img::frame_size size;
    img::read_image_list(options.positional()[0], frames, size);
    const uint32_t first = frames.empty() ? 0 : img::first_frame_number(frames.front());
    const PixelAspectRatio aspect = guess_pixel_aspect(size.width, size.height);
    if (json) {
      Json j;
      j.begin_object().key("frames").begin_array();
      for (const auto& f : frames) j.value(f);
      j.end_array()
          .key("first_frame_number")
          .value(first)
          .key("width")
          .value(size.width)
          .key("height")
          .value(size.height)
          .key("pixel_aspect")
          .begin_array()
          .value(aspect.num)
          .value(aspect.den)
          .end_array()
          .end_object();
      std::printf("%s\n", j.str().c_str());
    } else {
      std::printf("%zu frames, first frame number %u, %u x %u, pixel aspect %d/%d\n", frames.size(),
                  first, size.width, size.height, aspect.num, aspect.den);
      for (const auto& f : frames) std::printf("%s\n", f.c_str());
    }
    return 0;
  } catch (const std::exception& e) {
    return ReportFailure("loading sequence", e, json);
  }
}

int RunDemoShot(const std::vector<std::string>& args) {
  Options options(args, {"--json"}, {"--format", "--frames", "--size"});
  const bool json = options.flag("--json");
  if (options.positional().size() != 1) throw UsageError("demo-shot needs one DIR");
  try {
    const std::filesystem::path dir(options.positional()[0]);
    std::string format = options.has("--format") ? options.value("--format") : "tga";
    img::synthetic_shot shot;
    if (options.has("--frames")) {
      shot.frames = std::stoi(options.value("--frames"));
      if (shot.frames < 1 || shot.frames > 10000) throw UsageError("--frames must be 1 to 10000");
      shot.key_frame = shot.frames / 2;
    }
    if (options.has("--size")) {
      // The plate and its motion scale with the picture, so that every size
      // is the same shot.
      unsigned w = 0, h = 0;
      char end = 0;
      if (std::sscanf(options.value("--size").c_str(), "%ux%u%c", &w, &h, &end) != 2 || w < 16 ||
          h < 16 || w > 8192 || h > 8192)
        throw UsageError("--size takes WIDTHxHEIGHT, 16 to 8192 each, not '" +
                         options.value("--size") + "'");
      const double sx = w / double(shot.width), sy = h / double(shot.height);
      shot.width = w;
      shot.height = h;
      shot.plate_left *= sx, shot.plate_width *= sx, shot.shift_x *= sx;
      shot.background_shift_x *= sx;
      shot.plate_top *= sy, shot.plate_height *= sy, shot.shift_y *= sy;
      shot.background_shift_y *= sy;
    }
    const DemoShotFiles files = WriteDemoShot(dir, shot, format, !json);
    const std::string key_name = std::filesystem::path(files.mask).filename().string();
    if (json) {
      Json j;
      j.begin_object()
          .key("directory")
          .value(dir.string())
          .key("frames")
          .value(shot.frames)
          .key("key_frame")
          .value(shot.key_frame)
          .key("mask")
          .value(files.mask)
          .end_object();
      std::printf("%s\n", j.str().c_str());
    } else {
      std::printf("%d frames of %u x %u in %s, key frame %d, mask %s\n", shot.frames, shot.width,
                  shot.height, dir.string().c_str(), shot.key_frame, key_name.c_str());
    }
    return 0;
  } catch (const UsageError&) {
    throw;
  } catch (const std::exception& e) {
    return ReportFailure("making the demo shot", e, json);
  }
}

const Command kSequenceCommand = {
    "sequence", "the frame list of a numbered series or an .ais list",
    "usage: velomar-cli sequence [--json] PATH\n"
    "\n"
    "Lists the frames that opening PATH gives: PATH is any frame of a numbered\n"
    "series (every digit of its name matches any character; names sort as byte\n"
    "strings) or an \".ais\" list (one file a line). Prints the count, the first\n"
    "frame number, the size of the first image and the pixel aspect it implies.\n"
    "With --json:\n"
    "  {\"frames\": [...], \"first_frame_number\", \"width\", \"height\", \"pixel_aspect\": [num, "
    "den]}\n",
    RunSequence};

const Command kDemoShotCommand = {
    "demo-shot", "make a generated shot with a known motion",
    "usage: velomar-cli demo-shot [--format WORD] [--frames N] [--size WxH] [--json] DIR\n"
    "\n"
    "Writes DIR/shot_0000.tga ... : a textured plate moving by a smooth affine\n"
    "motion over a background that moves otherwise, 1280 x 720 (--size scales the\n"
    "whole shot), 60 frames unless --frames says otherwise, and DIR/mask_NNNN.bmp,\n"
    "the plate's mask on the key frame (the middle one). --format picks the image\n"
    "format (default TGA).\n",
    RunDemoShot};

}  // namespace cli
