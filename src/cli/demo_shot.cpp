// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/demo_shot.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <future>
#include <thread>
#include <vector>

#include "imaging/multi_io.h"

namespace cli {

DemoShotFiles WriteDemoShot(const std::filesystem::path& dir,
                            const img::synthetic_shot& shot,
                            const std::string& format,
                            bool progress) {
  std::filesystem::create_directories(dir);
  // A count redrawn in place only means something on a terminal.
  const bool counting = progress && isatty(STDERR_FILENO) == 1;
  std::string ext = format;
  for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  const auto frame_path = [&](int32_t f) {
    char name[32];
    std::snprintf(name, sizeof name, "shot_%04d.", f);
    return (dir / (name + ext)).string();
  };
  // Rendering is the slow part and every frame stands alone: the frames are
  // dealt out to a few threads, each with its own writer.
  const int32_t lanes = int32_t(std::clamp(std::thread::hardware_concurrency(), 1u, 4u));
  std::atomic<int32_t> written{0};
  std::vector<std::future<void>> work;
  for (int32_t lane = 0; lane < lanes; ++lane)
    work.push_back(std::async(std::launch::async, [&, lane] {
      img::multi_writer writer;
      img::image frame;
      for (int32_t f = lane; f < shot.frames; f += lanes) {
        shot.render(f, frame);
        writer.write(frame_path(f), format, frame, false);
        const int32_t count = ++written;
        if (counting) std::fprintf(stderr, "\rframe %d of %d", count, shot.frames);
      }
    }));
  // get() in order rethrows the first failure after every lane has ended.
  for (auto& w : work) w.wait();
  for (auto& w : work) w.get();
  if (counting) std::fprintf(stderr, "\n");
  DemoShotFiles files;
  files.first_frame = frame_path(0);
  img::multi_writer writer;
  img::image mask_picture;
  shot.plate_mask_picture(mask_picture);
  char key_name[32];
  std::snprintf(key_name, sizeof key_name, "mask_%04d.bmp", shot.key_frame);
  files.mask = (dir / key_name).string();
  writer.write(files.mask, "BMP", mask_picture, false);
  return files;
}

}  // namespace cli
