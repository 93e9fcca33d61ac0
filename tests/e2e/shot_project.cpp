// SPDX-License-Identifier: GPL-3.0-or-later
#include "shot_project.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "cli_runner.h"
#include "imaging/multi_io.h"
#include "imaging/synthetic_shot.h"

namespace e2e {

std::string MakeShotProject(const testing_support::TempDir& dir,
                            const std::string& name,
                            int32_t frames,
                            uint32_t width,
                            uint32_t height,
                            int32_t distinct) {
  namespace fs = std::filesystem;
  img::synthetic_shot shot;
  const double sx = width / double(shot.width), sy = height / double(shot.height);
  shot.width = width;
  shot.height = height;
  shot.frames = frames;
  shot.key_frame = frames / 2;
  shot.plate_left *= sx, shot.plate_width *= sx, shot.shift_x *= sx;
  shot.plate_top *= sy, shot.plate_height *= sy, shot.shift_y *= sy;
  const fs::path folder = dir / name;
  fs::create_directories(folder);
  img::multi_writer writer;
  img::image picture;
  const auto file = [&](int32_t f) {
    char text[64];
    std::snprintf(text, sizeof text, "%s_%04d.tga", name.c_str(), f);
    return folder / text;
  };
  for (int32_t f = 0; f < frames; ++f) {
    if (distinct > 0 && f >= distinct) {
      fs::create_hard_link(file(f % distinct), file(f));
      continue;
    }
    shot.render(f, picture);
    writer.write(file(f).string(), "TGA", picture, false);
  }
  shot.plate_mask_picture(picture);
  writer.write((folder / "mask.bmp").string(), "BMP", picture, false);
  // The overlay: the plate's outline, transparent elsewhere.
  img::image overlay(width, height);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      const double dx = x - shot.plate_left, dy = y - shot.plate_top;
      const bool edge =
          dx >= 0 && dy >= 0 && dx < shot.plate_width && dy < shot.plate_height &&
          (dx < 3 || dy < 3 || dx >= shot.plate_width - 3 || dy >= shot.plate_height - 3);
      uint8_t* p = overlay.rows[y] + 4 * x;
      p[0] = 0, p[1] = edge ? 140 : 0, p[2] = edge ? 255 : 0, p[3] = edge ? 255 : 0;
    }
  writer.write((folder / "overlay.tga").string(), "TGA", overlay, true);

  const std::string project = dir / (name + ".vlp");
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"new", file(0).string(), "-o", project},
        {"segment", "add", project, "--key", std::to_string(shot.key_frame), "--mask",
         (folder / "mask.bmp").string(), "--span", "0:" + std::to_string(frames)},
        {"overlay", "import", project, (folder / "overlay.tga").string(), "--still", "--yes"}}) {
    const Result r = Cli(dir, args);
    EXPECT_EQ(r.status, 0) << args[0] << ": " << r.err;
    if (r.status != 0) return std::string();
  }
  return project;
}

}  // namespace e2e
